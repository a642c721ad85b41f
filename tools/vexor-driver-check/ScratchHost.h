// The simulated host a check runs on: the host the options describe, with
// every drive a folder of a fresh temporary folder of this machine, so that
// nothing is written beside the host file and nothing outlives the check.
#pragma once

#include "CheckOptions.h"

#include <string>

namespace driver_check {

// A new, empty temporary folder, removed with everything in it by the
// destructor.
class TemporaryFolder {
public:
    TemporaryFolder();
    ~TemporaryFolder();
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;

    const std::string& path() const { return path_; }

private:
    std::string path_;
};

// The host description the check arranges: the host file's (its listeners
// dropped, its drives moved into `folder`), the INF folder's files staged in
// C:\Windows\INF, the drivers to count as installed and the printing mode.
// Throws UsageError naming the host file or INF folder at fault.
Json::Value checkHostDescription(const CheckOptions& options);

// Arranges the simulated host from that description, with its drives in
// `folder`, and makes the service's log directory.
void arrangeHost(const CheckOptions& options, const std::string& folder);

}  // namespace driver_check
