// A fresh directory of this machine that stands for drive C: of the
// simulated host for the life of one test.
#pragma once

#include <string>

namespace testsupport {

class TempDrive {
public:
    // Resets the simulated host and maps C: to a new temporary directory.
    TempDrive();
    ~TempDrive();
    TempDrive(const TempDrive&) = delete;
    TempDrive& operator=(const TempDrive&) = delete;

    const std::string& root() const { return root_; }
    // The directory of this machine behind "C:\<relative>" (backslashes or slashes).
    std::string native(const std::string& relative) const;
    // Creates "C:\<relative>" with its parents.
    void makeDirectory(const std::string& relative) const;

private:
    std::string root_;
};

}  // namespace testsupport
