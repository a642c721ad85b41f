#include "SelectionRun.h"

#include "foundation/StaticLogger.h"
#include "service/VexorPrintingService.h"
#include "simhost/core/host.h"
#include "simhost/kernel32/programs.h"

#include <algorithm>
#include <filesystem>
#include <fstream>

namespace fs = std::filesystem;

namespace driver_check {

namespace {

// A line is "<time>LogLevel:<n>        PrintingSvc :|<thread>|<function>()|"
// and the message, which the logger aligns at this column of the text after
// the tag unless the function's name reaches past it.
constexpr const char* kLineTag = "PrintingSvc :|";
constexpr const char* kFunctionEnd = "()|";
constexpr size_t kMessageColumn = 70;

// The log file the service opened: the only one of its fresh directory,
// or the newest should there be more.
std::string serviceLogFile() {
    const std::string directory = simhost::Host::get().toNativePath(StaticLogger::logDirectory());
    std::string newest;
    fs::file_time_type newestTime{};
    for (const fs::directory_entry& entry : fs::directory_iterator(directory)) {
        if (!newest.empty() && entry.last_write_time() < newestTime) continue;
        newest = entry.path().string();
        newestTime = entry.last_write_time();
    }
    return newest;
}

std::vector<SelectionLogLine> logLinesFrom(uint32_t offset) {
    std::ifstream in(serviceLogFile(), std::ios::binary);
    in.seekg(offset);
    std::vector<SelectionLogLine> lines;
    for (std::string raw; std::getline(in, raw);) lines.push_back(parseLogLine(raw));
    return lines;
}

}  // namespace

SelectionLogLine parseLogLine(const std::string& raw) {
    const size_t tagAt = raw.find(kLineTag);
    if (tagAt == std::string::npos) return {"", raw};
    const std::string text = raw.substr(tagAt + std::string(kLineTag).size());
    const size_t threadEnd = text.find('|');
    const size_t functionEnd = text.find(kFunctionEnd);
    if (threadEnd == std::string::npos || functionEnd == std::string::npos || functionEnd < threadEnd)
        return {"", text};
    const size_t messageAt = std::max(functionEnd + std::string(kFunctionEnd).size(), kMessageColumn);
    return {text.substr(threadEnd + 1, functionEnd - threadEnd - 1),
            messageAt < text.size() ? text.substr(messageAt) : std::string()};
}

SelectionOutcome runSelection(const Json::Value& request) {
    VexorPrintingService service;
    service.loadDriverCatalogue();
    // What the log holds from here on is the selection's.
    const uint32_t selectionStart = StaticLogger::logFileSize();
    SelectionOutcome outcome;
    Json::Value detail(Json::objectValue);
    outcome.driver = service.selectDriver(request, outcome.response, detail, outcome.comment);
    outcome.installerRuns = simhost::kernel32::processRuns();
    outcome.log = logLinesFrom(selectionStart);
    return outcome;
}

}  // namespace driver_check
