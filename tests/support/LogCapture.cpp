#include "support/LogCapture.h"

#include "foundation/ServiceLogging.h"
#include "foundation/StaticLogger.h"

#include <algorithm>
#include <chrono>
#include <thread>
#include <filesystem>
#include <fstream>
#include <sstream>

namespace testsupport {

LogCapture::LogCapture(bool openLog) {
    StaticLogger::restoreInitialState();
    drive_.makeDirectory(kLogDirectory);
    applyServiceLogSettings();
    recorder_.attach();
    if (openLog) {
        std::wstring path;
        StaticLogger::OpenLogFile(path);
    }
}

LogCapture::~LogCapture() { StaticLogger::restoreInitialState(); }

std::vector<std::string> LogCapture::logFiles() const {
    std::vector<std::string> files;
    for (const auto& entry : std::filesystem::directory_iterator(drive_.native(kLogDirectory)))
        files.push_back(entry.path().string());
    std::sort(files.begin(), files.end());
    return files;
}

std::string LogCapture::logFilePath() const {
    std::string newest;
    std::filesystem::file_time_type newestTime{};
    for (const std::string& file : logFiles()) {
        auto time = std::filesystem::last_write_time(file);
        if (newest.empty() || time >= newestTime) {
            newest = file;
            newestTime = time;
        }
    }
    return newest;
}

std::string LogCapture::contents() const {
    std::ifstream in(logFilePath(), std::ios::binary);
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

LogLine LogCapture::parse(const std::string& raw) {
    LogLine line;
    line.raw = raw;
    size_t stampEnd = raw.find("Z> ");
    if (stampEnd == std::string::npos) return line;
    line.timeStamp = raw.substr(0, stampEnd);
    size_t levelAt = raw.find("LogLevel:", stampEnd);
    if (levelAt != std::string::npos) line.level = static_cast<uint32_t>(std::stoul(raw.substr(levelAt + 9)));
    const std::string tag = "PrintingSvc :|";
    size_t tagAt = raw.find(tag);
    if (tagAt == std::string::npos) return line;
    line.body = raw.substr(tagAt + tag.size());
    size_t idEnd = line.body.find('|');
    size_t functionEnd = line.body.find("()|");
    if (idEnd == std::string::npos || functionEnd == std::string::npos) return line;
    line.threadId = line.body.substr(0, idEnd);
    line.function = line.body.substr(idEnd + 1, functionEnd - idEnd - 1);
    size_t messageAt = std::max<size_t>(functionEnd + 3, 70);
    line.message = messageAt < line.body.size() ? line.body.substr(messageAt) : std::string();
    return line;
}

std::vector<LogLine> LogCapture::lines() const {
    std::vector<LogLine> parsed;
    std::istringstream in(contents());
    for (std::string raw; std::getline(in, raw);) {
        parsed.push_back(parse(raw));
        parsed.back().channel = recorder_.channelOfBody(parsed.back().body);
    }
    return parsed;
}

std::vector<std::string> LogCapture::messages() const {
    std::vector<std::string> texts;
    for (const LogLine& line : lines()) texts.push_back(line.message);
    return texts;
}

std::vector<LogLine> LogCapture::find(const std::string& message) const {
    std::vector<LogLine> found;
    for (const LogLine& line : lines())
        if (line.message == message) found.push_back(line);
    return found;
}

}  // namespace testsupport

namespace testsupport {

namespace {

bool pollUntil(const std::function<bool()>& done, int timeoutMs) {
    auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
    for (;;) {
        if (done()) return true;
        if (std::chrono::steady_clock::now() >= deadline) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
}

}  // namespace

bool LogCapture::waitFor(const std::string& message, int timeoutMs, size_t count) const {
    return pollUntil([&] { return find(message).size() >= count; }, timeoutMs);
}

bool LogCapture::waitUntil(const std::function<bool(const LogLine&)>& matches, int timeoutMs) const {
    return pollUntil(
        [&] {
            for (const LogLine& line : lines())
                if (matches(line)) return true;
            return false;
        },
        timeoutMs);
}

}  // namespace testsupport
