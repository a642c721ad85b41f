#include "support/TempDrive.h"

#include "simhost/core/host.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <stdexcept>

namespace testsupport {

TempDrive::TempDrive() {
    std::string pattern = (std::filesystem::temp_directory_path() / "vexor-drive-XXXXXX").string();
    if (!mkdtemp(pattern.data())) throw std::runtime_error("cannot make a temporary drive");
    root_ = pattern;
    simhost::Host::get().reset();
    simhost::Host::get().mapDrive(L'C', root_);
}

TempDrive::~TempDrive() {
    std::error_code ignored;
    std::filesystem::remove_all(root_, ignored);
}

std::string TempDrive::native(const std::string& relative) const {
    std::string tail = relative;
    std::replace(tail.begin(), tail.end(), '\\', '/');
    if (!tail.empty() && tail[0] != '/') tail.insert(tail.begin(), '/');
    return root_ + tail;
}

void TempDrive::makeDirectory(const std::string& relative) const {
    std::filesystem::create_directories(native(relative));
}

}  // namespace testsupport
