// The class driver list's search: the INF directory, where the INF files of
// the system and the published copies of installed packages are, then the
// driver store, where each staged package keeps its INF file in a folder of
// its own. A driver's InfFileName is the path the file was found at.
#include "simhost/setupapi/driver_catalog.h"

#include "simhost/core/text.h"
#include "simhost/crt/crt.h"
#include "simhost/setupapi/inf_state.h"
#include "simhost/setupapi/setupapi_state.h"

#include <algorithm>
#include <filesystem>
#include <sys/stat.h>

namespace simhost {
namespace setupapi {
namespace {

const wchar_t* const kInfDirectory = L"C:\\Windows\\INF";
const wchar_t* const kDriverStore = L"C:\\Windows\\System32\\DriverStore\\FileRepository";

bool byNameIgnoringCase(const std::wstring& a, const std::wstring& b) { return _wcsicmp(a.c_str(), b.c_str()) < 0; }

bool hasInfExtension(const std::wstring& name) {
    return name.size() > 4 && sameIgnoringCase(name.substr(name.size() - 4), L".inf");
}

// The names in a Windows directory, files or folders as asked, by name in
// any case (the order NTFS lists them in); none for a missing directory.
std::vector<std::wstring> namesIn(const std::wstring& directory, bool folders) {
    std::vector<std::wstring> names;
    std::error_code error;
    std::filesystem::directory_iterator it(Host::get().toNativePath(directory), error);
    for (; !error && it != std::filesystem::directory_iterator(); it.increment(error))
        if (it->is_directory() == folders) names.push_back(widen(it->path().filename().string()));
    std::sort(names.begin(), names.end(), byNameIgnoringCase);
    return names;
}

void addInfFilesIn(const std::wstring& directory, std::vector<std::wstring>& paths) {
    for (const std::wstring& name : namesIn(directory, false))
        if (hasInfExtension(name)) paths.push_back(directory + L"\\" + name);
}

FILETIME lastWriteTime(const std::wstring& windowsPath) {
    struct stat info {};
    ::stat(Host::get().toNativePath(windowsPath).c_str(), &info);
    unsigned long long ticks = static_cast<unsigned long long>(info.st_mtim.tv_sec) * 10000000ULL +
                               static_cast<unsigned long long>(info.st_mtim.tv_nsec) / 100 + 116444736000000000ULL;
    return FILETIME{static_cast<DWORD>(ticks), static_cast<DWORD>(ticks >> 32)};
}

std::shared_ptr<const InfFile> parsedInf(const std::wstring& windowsPath) {
    InfState& state = Host::get().state<InfState>();
    std::lock_guard<std::mutex> hold(state.mutex);
    return loadInfFile(state, windowsPath).file;
}

}  // namespace

bool infIsOfClass(const InfFile& file, const GUID& classGuid) {
    std::optional<std::wstring> className = knownClassName(classGuid);
    if (className && sameIgnoringCase(infClassOf(file), *className)) return true;
    return sameIgnoringCase(file.value(L"Version", L"ClassGUID"), registryForm(classGuid));
}

std::vector<DriverInfo> classDrivers(const GUID& classGuid) {
    std::vector<std::wstring> paths;
    addInfFilesIn(kInfDirectory, paths);
    for (const std::wstring& package : namesIn(kDriverStore, true))
        addInfFilesIn(std::wstring(kDriverStore) + L"\\" + package, paths);
    std::vector<DriverInfo> drivers;
    for (const std::wstring& path : paths) {
        std::shared_ptr<const InfFile> file = parsedInf(path);
        if (!file || !isWin4Inf(*file) || !infIsOfClass(*file, classGuid)) continue;
        std::vector<DriverInfo> offered = infDrivers(*file, path, lastWriteTime(path));
        drivers.insert(drivers.end(), offered.begin(), offered.end());
    }
    return drivers;
}

}  // namespace setupapi
}  // namespace simhost
