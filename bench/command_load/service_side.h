// The service's side of the load driver, kept apart from the client side:
// the simulated host's Winsock declarations and the system's socket headers
// cannot meet in one file.
#pragma once

#include <string>

// Maps drive C: to a new temporary directory, makes the log directory and
// starts the service there. Answers the directory.
std::string startServiceOnSimulatedHost();
// The same on a host with a driver store of `catalogueEntries` staged models
// (INF files of ten models each, "Maker<i> Model <i>"), the first
// `installedDrivers` of them installed, model 0 with a language monitor, the
// Windows clients' fallback driver installed, and
// the advanced printing mode, so that Windows clients may have the drivers
// they name.
std::string startServiceWithDriverStore(int catalogueEntries, int installedDrivers);
void stopService();
// Lines the service's log holds so far, and the cost of one line as the
// logger writes it now, in microseconds (measured with `samples` lines).
size_t serviceLogLines(const std::string& drive);
double logLineMicroseconds(int samples);
// One printer added on a bare host, straight with AddPrinterW and on the
// guarded add thread the service uses, in microseconds (mean of `samples`).
struct AddCost {
    double directUs = 0;
    double guardedUs = 0;
};
AddCost addPrinterCost(int samples);
