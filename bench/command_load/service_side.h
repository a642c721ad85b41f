// The service's side of the load driver, kept apart from the client side:
// the simulated host's Winsock declarations and the system's socket headers
// cannot meet in one file.
#pragma once

#include <string>

// Maps drive C: to a new temporary directory, makes the log directory and
// starts the service there. Answers the directory.
std::string startServiceOnSimulatedHost();
void stopService();
