// The few places where the service must do something differently on Windows
// and on the simulated host. Each is one small named function; service code
// calls these instead of testing the platform itself.
#pragma once

#include "platform/win32.h"

#include <chrono>
#include <fstream>
#include <string>
#include <thread>
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

// How long a timed wait of the service's own thread library lasts: the time
// given on Windows; on the simulated host that time on the host's time
// scale, as its Sleep and waits last, so that tests of long limits run fast.
std::chrono::milliseconds hostDuration(std::chrono::milliseconds duration);

// The handle by which the log names a thread that the service started.
HANDLE threadHandle(std::thread& thread);

// Ends a thread that the service has given up waiting for, as
// TerminateThread(thread, 0) does: non-zero on success, with the last error
// set on failure. On Windows the thread stops wherever it is and can be
// joined. The simulated host cannot stop a thread in the middle of the
// service's own code: it ends the thread inside the host call it waits in,
// or at its next one, and lets go of (detaches) a thread it cannot end at
// once. The caller joins the thread only while it is still joinable.
BOOL endAbandonedThread(std::thread& thread);

}  // namespace platform
