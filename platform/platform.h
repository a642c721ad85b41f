// The few places where the service must do something differently on Windows
// and on the simulated host. Each is one small named function; service code
// calls these instead of testing the platform itself.
#pragma once

#include <fstream>
#include <string>

namespace platform {

// Opens the log file for writing, truncating it, shared so that other
// programs can read it meanwhile. The path is a Windows path in UTF-8. The
// simulated host maps its drive letter to a directory of its own.
bool openLogStream(std::ofstream& stream, const std::string& utf8WindowsPath);

}  // namespace platform
