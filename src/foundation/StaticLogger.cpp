#include "foundation/StaticLogger.h"

#include "foundation/LogMessageFormat.h"
#include "foundation/TextConversion.h"
#include "platform/win32.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <iomanip>
#include <memory>
#include <mutex>
#include <sstream>
#include <vector>

namespace {

// Module-level settings. They are set once by the service constructor and
// read by every thread; atomics keep those reads defined without a lock.
std::atomic<uint32_t> fileThreshold[2] = {{0}, {0}};
std::atomic<uint32_t> eventThreshold[2] = {{0}, {0}};
std::atomic<uint32_t> showThreadId{0};
std::atomic<uint32_t> showFunction{0};
std::atomic<uint32_t> showSource{0};
std::atomic<const wchar_t*> displayName{L"Vexor"};
std::atomic<LogEventSink*> eventSink{nullptr};
std::atomic<uint32_t> logFileSize{0};
std::atomic<uint64_t> lastWorkingSet{0};
std::atomic<HANDLE> processHandle{nullptr};

// The one shared file stream. Lines are built without any lock; only their
// insertion into the stream is serialised, so two threads never interleave
// inside a line. The stream is made on the first opening and never
// destroyed: after a shutdown the service's threads outlive main and still
// log while the process ends, so no exit-time destructor may take it away.
// The mutex has no destructor of consequence for the same reason.
std::mutex fileMutex;
std::ofstream* logFile = nullptr;

constexpr size_t kLineBodyColumn = 70;
constexpr size_t kMinFormatBuffer = 512;
constexpr size_t kLastFormatBufferAbove = 10000;
constexpr DWORD kSystemTextCapacity = 1260;
constexpr size_t kEventPieceBytes = 350;
constexpr DWORD kPathCapacity = 261;
constexpr DWORD kLongestUsablePath = 259;

uint32_t channelIndex(uint32_t channel) { return channel == kLogNormal ? 0 : 1; }

// The message as the doubling buffer keeps it: the buffer starts at twice
// the format's length, at least 512 bytes, and doubles while the text does
// not fit; the first retry with more than 10,000 bytes is the last, and what
// still does not fit is cut. The text itself comes whole from
// formatLogMessage, so only the buffer's final size is worked out here.
// NUL bytes the print produced are kept.
std::string formatMessage(const char* format, va_list args) {
    std::string text = formatLogMessage(format, args);
    size_t size = std::max(kMinFormatBuffer, 2 * std::strlen(format));
    for (bool retried = false; text.size() >= size; retried = true) {
        if (retried && size > kLastFormatBufferAbove) break;
        size *= 2;
    }
    if (text.size() >= size) text.resize(size - 1);
    return text;
}

// " Err:<number>:<system text>" for the calling thread's last error.
std::string lastErrorSuffix() {
    DWORD error = GetLastError();
    wchar_t text[kSystemTextCapacity] = {0};
    FormatMessageW(FORMAT_MESSAGE_FROM_SYSTEM, nullptr, error, 0, text, kSystemTextCapacity, nullptr);
    return " Err:" + std::to_string(error) + ":" + wideToUtf8(text);
}

// The source file's base name: after the last backslash, or failing that
// the last slash, and before the last dot.
std::string sourceBaseName(const char* sourceFile) {
    std::string path = sourceFile ? sourceFile : "";
    size_t slash = path.find_last_of('\\');
    if (slash == std::string::npos) slash = path.find_last_of('/');
    std::string base = slash == std::string::npos ? path : path.substr(slash + 1);
    size_t dot = base.find_last_of('.');
    return dot == std::string::npos ? base : base.substr(0, dot);
}

void removeTrailingWhiteSpace(std::string& text) {
    size_t end = text.find_last_not_of(" \t\r\n\v\f");
    text.erase(end == std::string::npos ? 0 : end + 1);
}

// Days since 1970-01-01 to a civil date (proleptic Gregorian calendar).
void civilFromDays(int64_t days, int& year, unsigned& month, unsigned& day) {
    days += 719468;
    const int64_t era = (days >= 0 ? days : days - 146096) / 146097;
    const unsigned dayOfEra = static_cast<unsigned>(days - era * 146097);
    const unsigned yearOfEra = (dayOfEra - dayOfEra / 1460 + dayOfEra / 36524 - dayOfEra / 146096) / 365;
    const unsigned dayOfYear = dayOfEra - (365 * yearOfEra + yearOfEra / 4 - yearOfEra / 100);
    const unsigned shiftedMonth = (5 * dayOfYear + 2) / 153;
    day = dayOfYear - (153 * shiftedMonth + 2) / 5 + 1;
    month = shiftedMonth < 10 ? shiftedMonth + 3 : shiftedMonth - 9;
    year = static_cast<int>(yearOfEra + era * 400 + (month <= 2 ? 1 : 0));
}

// "2026-01-31T08:15:02.417Z> " in UTC.
std::string timeStamp() {
    using namespace std::chrono;
    const int64_t ms = duration_cast<milliseconds>(system_clock::now().time_since_epoch()).count();
    const int64_t seconds = ms / 1000;
    int64_t days = seconds / 86400;
    int64_t secondOfDay = seconds % 86400;
    if (secondOfDay < 0) {
        secondOfDay += 86400;
        --days;
    }
    int year = 0;
    unsigned month = 0, day = 0;
    civilFromDays(days, year, month, day);
    char text[40];
    std::snprintf(text, sizeof text, "%04d-%02u-%02uT%02d:%02d:%02d.%03dZ> ", year, month, day,
                  static_cast<int>(secondOfDay / 3600), static_cast<int>(secondOfDay / 60 % 60),
                  static_cast<int>(secondOfDay % 60), static_cast<int>(ms % 1000));
    return text;
}

void writeToFile(uint32_t level, const std::string& text) {
    std::string header = timeStamp() + "LogLevel:" + std::to_string(level) + "        PrintingSvc :";
    std::string upToNul(text.c_str());
    std::lock_guard<std::mutex> lock(fileMutex);
    if (!logFile || !logFile->is_open()) return;
    *logFile << header << '|' << upToNul << '\n';
    logFile->flush();
    std::streamoff position = logFile->tellp();
    ::logFileSize.store(position < 0 ? 0 : static_cast<uint32_t>(position), std::memory_order_relaxed);
}

uint32_t eventTypeOfNormalChannel(uint32_t level) {
    if (level >= 5) return 0;
    if (level >= 3) return 2;
    return 3;
}

void writeToEventSink(LogEventSink* sink, uint32_t channel, uint32_t level, const std::string& text) {
    const std::wstring source = displayName.load();
    if (channelIndex(channel) == 1) {
        sink->report(source, level < 5 ? 1 : 0, level < 5 ? -500 : -514, text);
        return;
    }
    // The normal channel goes out in 350-byte pieces: one call per full piece
    // and one for the rest, which may be empty; later pieces carry "Cont...".
    const uint32_t type = eventTypeOfNormalChannel(level);
    size_t offset = 0;
    for (bool first = true;; first = false) {
        const std::wstring pieceSource = first ? source : L"Cont...";
        if (text.size() - offset < kEventPieceBytes) {
            sink->report(pieceSource, type, 0, text.substr(offset));
            return;
        }
        sink->report(pieceSource, type, 0, text.substr(offset, kEventPieceBytes));
        offset += kEventPieceBytes;
    }
}

void writeOut(uint32_t channel, uint32_t level, const std::string& text) {
    const uint32_t c = channelIndex(channel);
    if (level >= fileThreshold[c].load(std::memory_order_relaxed)) writeToFile(level, text);
    LogEventSink* sink = eventSink.load();
    if (sink && level >= eventThreshold[c].load(std::memory_order_relaxed))
        writeToEventSink(sink, channel, level, text);
}

// A directory from GetTempPathW or GetCurrentDirectoryW, used only when its
// length is from 1 to 259 characters; a final backslash is added.
template <class Reader>
std::wstring usableDirectory(Reader read) {
    wchar_t buffer[kPathCapacity] = {0};
    DWORD length = read(kPathCapacity, buffer);
    if (length < 1 || length > kLongestUsablePath) return {};
    std::wstring directory(buffer, length);
    if (directory.back() != L'\\') directory += L'\\';
    return directory;
}

}  // namespace

void StaticLogger::Log(uint32_t channel, uint32_t appendLastError, uint32_t level, const char* function,
                       const char* sourceFile, uint32_t line, const char* format, ...) {
    std::ostringstream body;
    if (showThreadId.load(std::memory_order_relaxed))
        body << std::setw(8) << std::setfill('0') << GetCurrentThreadId() << '|';
    if (showFunction.load(std::memory_order_relaxed)) body << (function ? function : "") << "()|";
    if (showSource.load(std::memory_order_relaxed)) body << sourceBaseName(sourceFile) << ':' << line << '|';
    std::string text = body.str();
    if (format) {
        if (text.size() < kLineBodyColumn) text.append(kLineBodyColumn - text.size(), ' ');
        va_list args;
        va_start(args, format);
        text += formatMessage(format, args);
        va_end(args);
    }
    if (appendLastError) text += lastErrorSuffix();
    removeTrailingWhiteSpace(text);
    writeOut(channel, level, text);
}

int StaticLogger::OpenLogFile(std::wstring& path) {
    std::lock_guard<std::mutex> lock(fileMutex);
    if (logFile && logFile->is_open()) logFile->close();
    if (path.empty())
        path = logDirectory() + displayName.load() + L"_" + std::to_wstring(std::time(nullptr)) + L".txt";
    if (!logFile) logFile = new std::ofstream();
    logFile->clear();
    bool opened = platform::openLogStream(*logFile, wideToUtf8(path));
    path.clear();
    if (!opened) return 0;
    ::logFileSize.store(0, std::memory_order_relaxed);
    return 1;
}

void StaticLogger::LogMemory(const char* function, const char* sourceFile, uint32_t line, const char*) {
    HANDLE process = processHandle.load();
    if (!process) {
        process = GetCurrentProcess();
        processHandle.store(process);
    }
    PROCESS_MEMORY_COUNTERS counters = {};
    if (!K32GetProcessMemoryInfo(process, &counters, sizeof counters)) {
        VX_LOG(kLogError, kWithLastError, 4, "GetProcessMemoryInfo failed");
        return;
    }
    const uint32_t current = static_cast<uint32_t>(counters.WorkingSetSize);
    const uint32_t last = static_cast<uint32_t>(lastWorkingSet.load(std::memory_order_relaxed));
    Log(kLogNormal, kNoLastError, 2, function, sourceFile, line, "MEMORY:%u last:%u delta:%d", current, last,
        static_cast<int32_t>(current - last));
    lastWorkingSet.store(counters.WorkingSetSize, std::memory_order_relaxed);
}

std::wstring StaticLogger::logDirectory() {
    PWSTR programData = nullptr;
    HRESULT result = SHGetKnownFolderPath(FOLDERID_ProgramData, 0, nullptr, &programData);
    std::wstring directory;
    if (SUCCEEDED(result) && programData) directory = std::wstring(programData) + L"\\Quillion\\VexorAgent\\logs\\";
    CoTaskMemFree(programData);
    if (!directory.empty()) return directory;
    directory = usableDirectory([](DWORD capacity, wchar_t* buffer) { return GetTempPathW(capacity, buffer); });
    if (!directory.empty()) return directory;
    return usableDirectory([](DWORD capacity, wchar_t* buffer) { return GetCurrentDirectoryW(capacity, buffer); });
}

void StaticLogger::setFileThreshold(uint32_t channel, uint32_t level) {
    fileThreshold[channelIndex(channel)].store(level, std::memory_order_relaxed);
}

void StaticLogger::setEventThreshold(uint32_t channel, uint32_t level) {
    eventThreshold[channelIndex(channel)].store(level, std::memory_order_relaxed);
}

void StaticLogger::setShowThreadId(bool show) { showThreadId.store(show ? 1 : 0, std::memory_order_relaxed); }
void StaticLogger::setShowFunction(bool show) { showFunction.store(show ? 1 : 0, std::memory_order_relaxed); }
void StaticLogger::setShowSource(bool show) { showSource.store(show ? 1 : 0, std::memory_order_relaxed); }
void StaticLogger::setDisplayName(const wchar_t* name) { displayName.store(name ? name : L"Vexor"); }
void StaticLogger::setEventSink(LogEventSink* sink) { eventSink.store(sink); }
uint32_t StaticLogger::logFileSize() { return ::logFileSize.load(std::memory_order_relaxed); }

void StaticLogger::restoreInitialState() {
    {
        std::lock_guard<std::mutex> lock(fileMutex);
        if (logFile && logFile->is_open()) logFile->close();
    }
    for (uint32_t channel = 0; channel < 2; ++channel) {
        fileThreshold[channel].store(0);
        eventThreshold[channel].store(0);
    }
    showThreadId.store(0);
    showFunction.store(0);
    showSource.store(0);
    displayName.store(L"Vexor");
    eventSink.store(nullptr);
    ::logFileSize.store(0);
    lastWorkingSet.store(0);
    processHandle.store(nullptr);
}
