// The few places where the service must do something differently on Windows
// and on the simulated host. Each is one small named function; service code
// calls these instead of testing the platform itself.
#pragma once

#include <fstream>
#include <string>
#include <vector>

namespace platform {

// Opens the log file for writing, truncating it, shared so that other
// programs can read it meanwhile. The path is a Windows path in UTF-8. The
// simulated host maps its drive letter to a directory of its own.
bool openLogStream(std::ofstream& stream, const std::string& utf8WindowsPath);

// The program's arguments as wide text, the program's name first. On
// Windows they come from the wide command line; elsewhere from UTF-8.
std::vector<std::wstring> wideArguments(int argc, char** argv);

// Readies the process before any service code runs. On the simulated host
// this arranges the machine from the host file named by VEXOR_SIM_HOST and
// has its final state written where VEXOR_SIM_STATE says when the process
// ends. Windows needs nothing.
void prepareHost();

}  // namespace platform
