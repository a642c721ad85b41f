// One run of the service's own driver selection on the arranged simulated
// host, and what it left: the reply, the comment, the installer's runs and
// the log lines it wrote.
#pragma once

#include <json/json.h>

#include <string>
#include <vector>

namespace driver_check {

struct SelectionLogLine {
    std::string function;
    std::string message;
};

struct SelectionOutcome {
    // The driver chosen; empty when none was, with `err` in the reply.
    std::wstring driver;
    // What the selection wrote into the reply: `detail`, `warn`, `err`.
    Json::Value response{Json::objectValue};
    std::wstring comment;
    // Every command line the host started, the installer's included.
    std::vector<std::wstring> installerRuns;
    // The log lines of the selection, in order.
    std::vector<SelectionLogLine> log;
};

// Constructs the service on the host arranged, builds its driver catalogue
// and selects a driver for `request`. Throws what the service throws.
SelectionOutcome runSelection(const Json::Value& request);

// The function and message of one line of the service's log file.
SelectionLogLine parseLogLine(const std::string& raw);

}  // namespace driver_check
