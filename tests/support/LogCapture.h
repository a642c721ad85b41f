// Reads back what the logger really wrote. Makes the log directory on a
// temporary simulated drive, applies the service's log settings, records the
// channel of every line, opens a new log file there, and parses the file's
// lines on request.
#pragma once

#include "support/ChannelRecorder.h"
#include "support/TempDrive.h"

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace testsupport {

struct LogLine {
    std::string raw;        // the whole line without its line feed
    std::string timeStamp;  // "2026-01-31T08:15:02.417"
    uint32_t level = 0;
    std::string body;      // everything after "PrintingSvc :|"
    std::string threadId;  // eight or more digits
    std::string function;  // "VexorPrintingService::OnStart"
    std::string message;   // the text after the alignment to column 70
    // kLogNormal or kLogError, as the logger was told; ChannelRecorder::kNoSuchLine
    // when the line reached the file while the channels were not recorded.
    int channel = ChannelRecorder::kNoSuchLine;
};

class LogCapture {
public:
    static constexpr const char* kLogDirectory = "ProgramData\\Quillion\\VexorAgent\\logs";

    // With openLog false the directory and settings are made but no file is opened.
    explicit LogCapture(bool openLog = true);
    ~LogCapture();

    const TempDrive& drive() const { return drive_; }
    // Records the channel of every line again; needed after anything that
    // applies the service's log settings (the service's constructor does),
    // which let only levels from 5 through to the recorder.
    void recordChannels() { recorder_.attach(); }
    // The newest file in the log directory, as a path of this machine.
    std::string logFilePath() const;
    std::vector<std::string> logFiles() const;
    std::string contents() const;
    std::vector<LogLine> lines() const;
    std::vector<std::string> messages() const;
    // The lines whose message is exactly `message`.
    std::vector<LogLine> find(const std::string& message) const;
    bool contains(const std::string& message) const { return !find(message).empty(); }
    // Waits until `count` lines with exactly this message stand in the log.
    bool waitFor(const std::string& message, int timeoutMs = 5000, size_t count = 1) const;
    // Waits until some line satisfies `matches`.
    bool waitUntil(const std::function<bool(const LogLine&)>& matches, int timeoutMs = 5000) const;

    static LogLine parse(const std::string& raw);

private:
    TempDrive drive_;
    ChannelRecorder recorder_;
};

}  // namespace testsupport
