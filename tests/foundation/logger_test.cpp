#include "foundation/StaticLogger.h"
#include "platform/win32.h"
#include "simhost/core/host.h"
#include "support/LogCapture.h"

#include <gtest/gtest.h>

#include <ctime>
#include <filesystem>
#include <regex>
#include <string>
#include <thread>
#include <vector>

using testsupport::LogCapture;
using testsupport::LogLine;

namespace loggertest {

void logFromFreeFunction(const char* text) { VX_LOG(kLogNormal, kNoLastError, 3, "%s", text); }

struct VexorPrintingServiceLike {
    virtual ~VexorPrintingServiceLike() = default;
    virtual void OnStart(DWORD, wchar_t**) { VX_LOG(kLogNormal, kNoLastError, 3, "Vexor_PrintingService in OnStart"); }
};

struct RecordedEvent {
    std::wstring source;
    uint32_t type;
    int32_t id;
    std::string text;
};

class RecordingSink : public LogEventSink {
public:
    void report(const std::wstring& source, uint32_t type, int32_t id, const std::string& text) override {
        events.push_back({source, type, id, text});
    }
    std::vector<RecordedEvent> events;
};

}  // namespace loggertest

namespace {

std::string lineBody(const std::string& message) {
    // What a message logged from logFromFreeFunction looks like after "PrintingSvc :|".
    char id[16];
    std::snprintf(id, sizeof id, "%08u", GetCurrentThreadId());
    std::string body = std::string(id) + "|loggertest::logFromFreeFunction()|";
    body.append(70 - body.size(), ' ');
    return body + message;
}

TEST(Logger, LineHasTimeStampLevelTagThreadIdAndFunction) {
    LogCapture log;
    loggertest::VexorPrintingServiceLike service;
    service.OnStart(0, nullptr);
    std::vector<LogLine> lines = log.lines();
    ASSERT_EQ(lines.size(), 1u);
    std::regex form(
        R"(^\d{4}-\d{2}-\d{2}T\d{2}:\d{2}:\d{2}\.\d{3}Z> LogLevel:3        PrintingSvc :\|\d{8}\|)"
        R"(loggertest::VexorPrintingServiceLike::OnStart\(\)\| +Vexor_PrintingService in OnStart$)");
    EXPECT_TRUE(std::regex_match(lines[0].raw, form)) << lines[0].raw;
    char id[16];
    std::snprintf(id, sizeof id, "%08u", GetCurrentThreadId());
    EXPECT_EQ(lines[0].threadId, id);
}

TEST(Logger, TimeStampIsTheCurrentUtcTime) {
    LogCapture log;
    std::time_t before = std::time(nullptr);
    loggertest::logFromFreeFunction("now");
    std::time_t after = std::time(nullptr);
    std::string stamp = log.lines().at(0).timeStamp;
    std::tm parts = {};
    ASSERT_TRUE(strptime(stamp.c_str(), "%Y-%m-%dT%H:%M:%S", &parts)) << stamp;
    std::time_t logged = timegm(&parts);
    EXPECT_GE(logged, before);
    EXPECT_LE(logged, after);
}

TEST(Logger, MessageStartsAtColumnSeventyOfTheBody) {
    LogCapture log;
    loggertest::logFromFreeFunction("aligned");
    LogLine line = log.lines().at(0);
    EXPECT_EQ(line.body, lineBody("aligned"));
    EXPECT_EQ(line.body.find("aligned"), 70u);
}

TEST(Logger, BodyOfSeventyOrMoreCharactersIsFollowedAtOnceByTheMessage) {
    LogCapture log;
    std::string longName(57, 'f');  // "00001234|" (9) + name + "()|" (3) = 69 + 1 with the extra letter below
    StaticLogger::Log(kLogNormal, kNoLastError, 3, (longName + "g").c_str(), __FILE__, __LINE__, "text");
    std::string longerName(90, 'h');
    StaticLogger::Log(kLogNormal, kNoLastError, 3, longerName.c_str(), __FILE__, __LINE__, "more");
    std::vector<LogLine> lines = log.lines();
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_EQ(lines[0].body.size(), 70u + 4u);
    EXPECT_EQ(lines[0].body.substr(lines[0].body.size() - 8), "g()|text");
    EXPECT_EQ(lines[1].body.substr(lines[1].body.size() - 8), "h()|more");
}

TEST(Logger, OutputOf511BytesFitsTheFirstBuffer) {
    LogCapture log;
    std::string text(511, 'x');
    loggertest::logFromFreeFunction(text.c_str());
    EXPECT_EQ(log.lines().at(0).message, text);
}

TEST(Logger, MessageOf20000BytesIsCutAt16383WithAShortFormat) {
    LogCapture log;
    std::string text(20000, 'y');
    loggertest::logFromFreeFunction(text.c_str());
    EXPECT_EQ(log.lines().at(0).message, std::string(16383, 'y'));
}

TEST(Logger, LongFormatStartsWithTwiceItsLengthAndStopsAtTheFirstRetryAboveTenThousand) {
    LogCapture log;
    // A format of 6,002 bytes starts with a 12,004-byte buffer; one retry of
    // 24,008 bytes is the last, so 24,007 bytes remain.
    std::string format(6000, 'a');
    format += "%s";
    std::string argument(30000, 'b');
    StaticLogger::Log(kLogNormal, kNoLastError, 3, "f", __FILE__, __LINE__, format.c_str(), argument.c_str());
    std::string message = log.lines().at(0).message;
    EXPECT_EQ(message.size(), 24007u);
    EXPECT_EQ(message, std::string(6000, 'a') + std::string(18007, 'b'));
}

TEST(Logger, TrailingLineFeedGivesOneLineEnd) {
    LogCapture log;
    VX_LOG(kLogNormal, kNoLastError, 4, "listen returned success\n");
    std::string contents = log.contents();
    EXPECT_EQ(contents.find("\n\n"), std::string::npos);
    ASSERT_FALSE(contents.empty());
    EXPECT_EQ(contents.back(), '\n');
    EXPECT_EQ(log.lines().size(), 1u);
    EXPECT_EQ(log.lines().at(0).message, "listen returned success");
}

TEST(Logger, MessageWithANulInsideIsWrittenUpToTheNul) {
    LogCapture log;
    VX_LOG(kLogNormal, kNoLastError, 3, "abc%cdef", '\0');
    std::vector<LogLine> lines = log.lines();
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0].message, "abc");
}

TEST(Logger, WideArgumentsOutsideAsciiAreWrittenAsUtf8) {
    LogCapture log;
    const wchar_t* path = L"C:\\Program Files\\Acm\u00e9\\\u6f22.exe";
    VX_LOG(kLogNormal, kNoLastError, 2, "Sender process:%ls == %ls", path, L"caf\u00e9");
    VX_LOG(kLogNormal, kNoLastError, 2, "[%8ls][%-4ls][%.3ls][%lc]", L"\u00e9", L"\u6f22", L"abcdef", L'\u6f22');
    VX_LOG(kLogNormal, kNoLastError, 2, "%d %s %ls %u %%", -3, "narrow", L"", 7u);
    std::vector<std::string> expected = {
        "Sender process:C:\\Program Files\\Acm\xc3\xa9\\\xe6\xbc\xa2.exe == caf\xc3\xa9",
        "[      \xc3\xa9][\xe6\xbc\xa2 ][abc][\xe6\xbc\xa2]",
        "-3 narrow  7 %",
    };
    EXPECT_EQ(log.messages(), expected);
}

TEST(Logger, NarrowConversionsAreThoseOfTheRuntime) {
    LogCapture log;
    long long big = -1234567890123LL;
    VX_LOG(kLogNormal, kNoLastError, 2, "%05d|%x|%08x|%lld|%zu|%.2f|%*d|%-*s|%c", 42, 255u, 0xbeefu, big,
           static_cast<size_t>(9), 2.5, 4, 7, 3, "ab", 'z');
    EXPECT_EQ(log.messages(), std::vector<std::string>{"00042|ff|0000beef|-1234567890123|9|2.50|   7|ab |z"});
}

TEST(Logger, PointersAreWrittenAsTheWindowsRuntimeWritesThem) {
    LogCapture log;
    VX_LOG(kLogNormal, kNoLastError, 2, "hPrinter = 0x%p|%p", reinterpret_cast<void*>(0xAB12), nullptr);
    EXPECT_EQ(log.messages(), std::vector<std::string>{"hPrinter = 0x000000000000AB12|0000000000000000"});
}

// After a shutdown the service's threads outlive main and go on logging while
// the process ends: the log file's stream must still be there for them.
TEST(LoggerDeathTest, ThreadsStillLogWhileTheProcessEnds) {
    LogCapture log;
    EXPECT_EXIT(
        {
            StaticLogger::setEventSink(nullptr);
            StaticLogger::setShowThreadId(false);
            std::thread([] {
                for (;;) VX_LOG(kLogNormal, kNoLastError, 2, "still logging");
            }).detach();
            while (StaticLogger::logFileSize() < 100000) std::this_thread::yield();
            std::exit(0);
        },
        ::testing::ExitedWithCode(0), "");
    EXPECT_GT(log.find("still logging").size(), 100u);
}

TEST(Logger, CaptureTellsTheChannelOfEachLineLongOnesToo) {
    LogCapture log;
    VX_LOG(kLogError, kNoLastError, 4, "on the error channel");
    VX_LOG(kLogNormal, kNoLastError, 2, "%s", std::string(800, 'n').c_str());
    VX_LOG(kLogError, kNoLastError, 5, "%s", std::string(800, 'e').c_str());
    std::vector<LogLine> lines = log.lines();
    ASSERT_EQ(lines.size(), 3u);
    EXPECT_EQ(lines[0].channel, static_cast<int>(kLogError));
    EXPECT_EQ(lines[1].channel, static_cast<int>(kLogNormal));
    EXPECT_EQ(lines[2].channel, static_cast<int>(kLogError));
}

TEST(Logger, LastErrorZeroEndsInZeroAndItsSystemText) {
    LogCapture log;
    SetLastError(0);
    VX_LOG(kLogError, kWithLastError, 4, "CreateEvent failed");
    EXPECT_EQ(log.lines().at(0).message, "CreateEvent failed Err:0:The operation completed successfully.");
}

TEST(Logger, LastErrorIsReadAfterTheMessageAndAppendedWithItsText) {
    LogCapture log;
    SetLastError(ERROR_ACCESS_DENIED);
    VX_LOG(kLogError, kWithLastError, 5, "GlobalAlloc");
    EXPECT_EQ(log.lines().at(0).message, "GlobalAlloc Err:5:Access is denied.");
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_ACCESS_DENIED));
}

TEST(Logger, NullFormatWritesNoPaddingAndNoMessage) {
    LogCapture log;
    SetLastError(ERROR_INVALID_HANDLE);
    StaticLogger::Log(kLogNormal, kWithLastError, 3, "f", __FILE__, __LINE__, nullptr);
    StaticLogger::Log(kLogNormal, kNoLastError, 3, "g", __FILE__, __LINE__, nullptr);
    std::vector<LogLine> lines = log.lines();
    ASSERT_EQ(lines.size(), 2u);
    char id[16];
    std::snprintf(id, sizeof id, "%08u", GetCurrentThreadId());
    EXPECT_EQ(lines[0].body, std::string(id) + "|f()| Err:6:The handle is invalid.");
    EXPECT_EQ(lines[1].body, std::string(id) + "|g()|");
}

TEST(Logger, SourcePartUsesTheBaseNameWithoutExtension) {
    LogCapture log;
    StaticLogger::setShowSource(true);
    StaticLogger::Log(kLogNormal, kNoLastError, 3, "f", "C:\\src\\dir/Printer.Util.cpp", 42, "m");
    StaticLogger::Log(kLogNormal, kNoLastError, 3, "f", "src/service/Service.cpp", 7, "m");
    StaticLogger::Log(kLogNormal, kNoLastError, 3, "f", "Makefile", 1, "m");
    StaticLogger::Log(kLogNormal, kNoLastError, 3, "f", "C:\\build\\Logger.cpp", 9, "m");
    std::vector<LogLine> lines = log.lines();
    ASSERT_EQ(lines.size(), 4u);
    EXPECT_NE(lines[3].body.find("|f()|Logger:9|"), std::string::npos) << lines[3].body;
    // A backslash decides before any slash: what follows the last one is kept whole.
    EXPECT_NE(lines[0].body.find("|f()|dir/Printer.Util:42|"), std::string::npos) << lines[0].body;
    EXPECT_NE(lines[1].body.find("|f()|Service:7|"), std::string::npos) << lines[1].body;
    EXPECT_NE(lines[2].body.find("|f()|Makefile:1|"), std::string::npos) << lines[2].body;
}

TEST(Logger, ThreadIdAndFunctionCanBeSwitchedOff) {
    LogCapture log;
    StaticLogger::setShowThreadId(false);
    StaticLogger::setShowFunction(false);
    StaticLogger::Log(kLogNormal, kNoLastError, 3, "f", __FILE__, __LINE__, "bare");
    std::string raw = log.lines().at(0).raw;
    EXPECT_EQ(raw.substr(raw.find(":|")), ":|" + std::string(70, ' ') + "bare");
}

TEST(Logger, LevelsBelowTheFileThresholdOfTheirChannelAreNotWritten) {
    LogCapture log;
    StaticLogger::setFileThreshold(kLogNormal, 4);
    StaticLogger::setFileThreshold(kLogError, 3);
    VX_LOG(kLogNormal, kNoLastError, 3, "normal 3");
    VX_LOG(kLogNormal, kNoLastError, 4, "normal 4");
    VX_LOG(kLogError, kNoLastError, 2, "error 2");
    VX_LOG(kLogError, kNoLastError, 3, "error 3");
    std::vector<std::string> expected = {"normal 4", "error 3"};
    EXPECT_EQ(log.messages(), expected);
}

TEST(Logger, NothingIsWrittenBeforeTheLoggerIsConfigured) {
    LogCapture log;
    StaticLogger::restoreInitialState();
    VX_LOG(kLogNormal, kNoLastError, 6, "lost");
    EXPECT_TRUE(log.contents().empty());
}

TEST(Logger, MissingLogDirectoryLeavesNoFileAndLoggingGoesOn) {
    LogCapture log(false);
    std::filesystem::remove_all(log.drive().native(LogCapture::kLogDirectory));
    std::wstring path;
    EXPECT_EQ(StaticLogger::OpenLogFile(path), 0);
    VX_LOG(kLogNormal, kNoLastError, 3, "dropped");
    EXPECT_FALSE(std::filesystem::exists(log.drive().native(LogCapture::kLogDirectory)));
    // A later opening that succeeds takes the lines again.
    log.drive().makeDirectory(LogCapture::kLogDirectory);
    EXPECT_EQ(StaticLogger::OpenLogFile(path), 1);
    VX_LOG(kLogNormal, kNoLastError, 3, "kept");
    std::vector<std::string> expected = {"kept"};
    EXPECT_EQ(log.messages(), expected);
}

TEST(Logger, NewFileIsNamedAfterDisplayNameAndTimeUnderProgramData) {
    LogCapture log(false);
    std::time_t before = std::time(nullptr);
    std::wstring path;
    ASSERT_EQ(StaticLogger::OpenLogFile(path), 1);
    std::time_t after = std::time(nullptr);
    EXPECT_TRUE(path.empty());
    std::vector<std::string> files = log.logFiles();
    ASSERT_EQ(files.size(), 1u);
    std::string name = std::filesystem::path(files[0]).filename().string();
    std::smatch match;
    ASSERT_TRUE(std::regex_match(name, match, std::regex(R"(Vexor Printing Service_(\d+)\.txt)"))) << name;
    std::time_t stamp = std::stoll(match[1]);
    EXPECT_GE(stamp, before);
    EXPECT_LE(stamp, after);
}

TEST(Logger, DirectoryIsProgramDataUnderTheCompanyAndProductFolders) {
    LogCapture log(false);
    EXPECT_EQ(StaticLogger::logDirectory(), L"C:\\ProgramData\\Quillion\\VexorAgent\\logs\\");
}

TEST(Logger, OpenLogFileWithAPathOpensThatFileAndClearsThePath) {
    LogCapture log(false);
    std::wstring path = L"C:\\ProgramData\\Quillion\\VexorAgent\\logs\\chosen.txt";
    ASSERT_EQ(StaticLogger::OpenLogFile(path), 1);
    EXPECT_TRUE(path.empty());
    VX_LOG(kLogNormal, kNoLastError, 3, "into the chosen file");
    EXPECT_EQ(std::filesystem::path(log.logFilePath()).filename().string(), "chosen.txt");
    EXPECT_EQ(log.messages().at(0), "into the chosen file");
}

TEST(Logger, ReopeningTruncatesAnExistingFileAndResetsTheSize) {
    LogCapture log(false);
    std::wstring path = L"C:\\ProgramData\\Quillion\\VexorAgent\\logs\\same.txt";
    ASSERT_EQ(StaticLogger::OpenLogFile(path), 1);
    VX_LOG(kLogNormal, kNoLastError, 3, "first");
    EXPECT_EQ(StaticLogger::logFileSize(), std::filesystem::file_size(log.logFilePath()));
    EXPECT_GT(StaticLogger::logFileSize(), 0u);
    path = L"C:\\ProgramData\\Quillion\\VexorAgent\\logs\\same.txt";
    ASSERT_EQ(StaticLogger::OpenLogFile(path), 1);
    EXPECT_EQ(StaticLogger::logFileSize(), 0u);
    VX_LOG(kLogNormal, kNoLastError, 3, "second");
    std::vector<std::string> expected = {"second"};
    EXPECT_EQ(log.messages(), expected);
    EXPECT_EQ(StaticLogger::logFileSize(), std::filesystem::file_size(log.logFilePath()));
}

TEST(Logger, EachLineIsFlushedAtOnce) {
    LogCapture log;
    VX_LOG(kLogNormal, kNoLastError, 3, "visible before the file is closed");
    EXPECT_EQ(log.messages().size(), 1u);
}

TEST(LoggerEventSink, NormalChannelTextOfExactly350BytesGivesTwoCalls) {
    LogCapture log;
    loggertest::RecordingSink sink;
    StaticLogger::setEventSink(&sink);
    StaticLogger::setShowThreadId(false);
    StaticLogger::setShowFunction(false);
    std::string message(350 - 70, 'z');
    StaticLogger::Log(kLogNormal, kNoLastError, 5, "f", __FILE__, __LINE__, "%s", message.c_str());
    ASSERT_EQ(sink.events.size(), 2u);
    EXPECT_EQ(sink.events[0].source, L"Vexor Printing Service");
    EXPECT_EQ(sink.events[0].text, std::string(70, ' ') + message);
    EXPECT_EQ(sink.events[0].id, 0);
    EXPECT_EQ(sink.events[0].type, 0u);
    EXPECT_EQ(sink.events[1].source, L"Cont...");
    EXPECT_EQ(sink.events[1].text, "");
    EXPECT_EQ(sink.events[1].id, 0);
}

TEST(LoggerEventSink, NormalChannelCutsIntoPiecesOf350Bytes) {
    LogCapture log;
    loggertest::RecordingSink sink;
    StaticLogger::setEventSink(&sink);
    StaticLogger::setEventThreshold(kLogNormal, 2);
    StaticLogger::setShowThreadId(false);
    StaticLogger::setShowFunction(false);
    std::string message(800 - 70, 'q');
    StaticLogger::Log(kLogNormal, kNoLastError, 3, "f", __FILE__, __LINE__, "%s", message.c_str());
    ASSERT_EQ(sink.events.size(), 3u);
    EXPECT_EQ(sink.events[0].text.size(), 350u);
    EXPECT_EQ(sink.events[1].text.size(), 350u);
    EXPECT_EQ(sink.events[2].text.size(), 100u);
    EXPECT_EQ(sink.events[1].source, L"Cont...");
    EXPECT_EQ(sink.events[2].source, L"Cont...");
    for (const auto& event : sink.events) EXPECT_EQ(event.type, 2u);
}

TEST(LoggerEventSink, NormalChannelTypeFollowsTheLevel) {
    LogCapture log;
    loggertest::RecordingSink sink;
    StaticLogger::setEventSink(&sink);
    StaticLogger::setEventThreshold(kLogNormal, 0);
    const uint32_t expectedType[] = {3, 3, 3, 2, 2, 0, 0};
    for (uint32_t level = 0; level <= 6; ++level)
        StaticLogger::Log(kLogNormal, kNoLastError, level, "f", __FILE__, __LINE__, "short");
    ASSERT_EQ(sink.events.size(), 7u);
    for (uint32_t level = 0; level <= 6; ++level) EXPECT_EQ(sink.events[level].type, expectedType[level]) << level;
}

TEST(LoggerEventSink, ErrorChannelIsOneCallWithTypeAndIdByLevel) {
    LogCapture log;
    loggertest::RecordingSink sink;
    StaticLogger::setEventSink(&sink);
    StaticLogger::setEventThreshold(kLogError, 4);
    std::string message(1000, 'e');
    StaticLogger::Log(kLogError, kNoLastError, 3, "f", __FILE__, __LINE__, "below");
    StaticLogger::Log(kLogError, kNoLastError, 4, "f", __FILE__, __LINE__, "%s", message.c_str());
    StaticLogger::Log(kLogError, kNoLastError, 6, "f", __FILE__, __LINE__, "grave");
    ASSERT_EQ(sink.events.size(), 2u);
    EXPECT_EQ(sink.events[0].source, L"Vexor Printing Service");
    EXPECT_EQ(sink.events[0].type, 1u);
    EXPECT_EQ(sink.events[0].id, -500);
    EXPECT_EQ(sink.events[0].text.substr(sink.events[0].text.size() - 1000), message);
    EXPECT_EQ(sink.events[1].type, 0u);
    EXPECT_EQ(sink.events[1].id, -514);
}

TEST(LoggerEventSink, SinkGetsLinesEvenWithoutAFile) {
    LogCapture log(false);
    loggertest::RecordingSink sink;
    StaticLogger::setEventSink(&sink);
    VX_LOG(kLogError, kNoLastError, 5, "no file but an event");
    ASSERT_EQ(sink.events.size(), 1u);
    EXPECT_NE(sink.events[0].text.find("no file but an event"), std::string::npos);
}

TEST(LoggerMemory, LogsWorkingSetLastValueAndDelta) {
    LogCapture log;
    StaticLogger::LogMemory("VexorPrintingService::_checkMsgQueue", __FILE__, __LINE__, "ignored");
    StaticLogger::LogMemory("VexorPrintingService::_checkMsgQueue", __FILE__, __LINE__, "ignored");
    std::vector<LogLine> lines = log.lines();
    ASSERT_EQ(lines.size(), 2u);
    std::regex form(R"(MEMORY:(\d+) last:(\d+) delta:(-?\d+))");
    std::smatch first, second;
    ASSERT_TRUE(std::regex_match(lines[0].message, first, form)) << lines[0].message;
    ASSERT_TRUE(std::regex_match(lines[1].message, second, form)) << lines[1].message;
    EXPECT_EQ(lines[0].level, 2u);
    EXPECT_EQ(lines[0].function, "VexorPrintingService::_checkMsgQueue");
    EXPECT_EQ(first[2], "0");
    EXPECT_EQ(first[3], first[1]);
    EXPECT_EQ(second[2], first[1]);
    EXPECT_EQ(std::stoll(second[3]), std::stoll(second[1]) - std::stoll(first[1]));
    EXPECT_GT(std::stoll(first[1]), 0);
}

TEST(LoggerMemory, FailureIsLoggedOnTheErrorChannelUnderTheLoggersName) {
    LogCapture log;
    simhost::Host::get().faults().failCall("K32GetProcessMemoryInfo", ERROR_ACCESS_DENIED);
    VX_LOG_MEMORY();
    std::vector<LogLine> lines = log.lines();
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0].level, 4u);
    EXPECT_EQ(lines[0].function, "StaticLogger::LogMemory");
    EXPECT_EQ(lines[0].message, "GetProcessMemoryInfo failed Err:5:Access is denied.");
}

TEST(LoggerThreads, TwoThreadsLoggingAtOnceWriteWholeLines) {
    LogCapture log;
    constexpr int kLinesPerThread = 2000;
    auto writer = [](char letter) {
        std::string text(100, letter);
        for (int i = 0; i < kLinesPerThread; ++i) VX_LOG(kLogNormal, kNoLastError, 3, "%d %s", i, text.c_str());
    };
    std::thread first(writer, 'a');
    std::thread second(writer, 'b');
    first.join();
    second.join();
    std::vector<LogLine> lines = log.lines();
    ASSERT_EQ(lines.size(), 2u * kLinesPerThread);
    int counts[2] = {0, 0};
    std::regex form(R"(\d+ (a{100}|b{100}))");
    for (const LogLine& line : lines) {
        ASSERT_TRUE(std::regex_match(line.message, form)) << line.raw;
        ++counts[line.message.back() == 'a' ? 0 : 1];
    }
    EXPECT_EQ(counts[0], kLinesPerThread);
    EXPECT_EQ(counts[1], kLinesPerThread);
    EXPECT_EQ(StaticLogger::logFileSize(), std::filesystem::file_size(log.logFilePath()));
}

}  // namespace

#include "simhost/kernel32/host_settings.h"

namespace {

TEST(LoggerDirectory, FallsBackToTheTemporaryPathWithoutTheKnownFolder) {
    LogCapture log(false);
    simhost::Host::get().faults().failCall("SHGetKnownFolderPath", ERROR_FILE_NOT_FOUND);
    EXPECT_EQ(StaticLogger::logDirectory(), L"C:\\Windows\\Temp\\");
}

TEST(LoggerDirectory, FallsBackToTheCurrentDirectoryWithABackslashAdded) {
    LogCapture log(false);
    simhost::Host::get().faults().failCall("SHGetKnownFolderPath", ERROR_FILE_NOT_FOUND);
    simhost::Host::get().faults().failCall("GetTempPathW", ERROR_ACCESS_DENIED);
    EXPECT_EQ(StaticLogger::logDirectory(), L"C:\\Windows\\system32\\");
}

TEST(LoggerDirectory, APathOf260CharactersIsNotUsed) {
    LogCapture log(false);
    simhost::Host::get().faults().failCall("SHGetKnownFolderPath", ERROR_FILE_NOT_FOUND);
    std::wstring longest = L"C:\\" + std::wstring(255, L't') + L"\\";  // 259 characters
    simhost::kernel32::setTempPath(longest);
    EXPECT_EQ(StaticLogger::logDirectory(), longest);
    simhost::kernel32::setTempPath(longest + L"u\\");  // 261 characters: too long
    simhost::kernel32::setCurrentDirectory(L"C:\\work");
    EXPECT_EQ(StaticLogger::logDirectory(), L"C:\\work\\");
}

TEST(LoggerDirectory, NothingUsableLeavesTheNameAlone) {
    LogCapture log(false);
    simhost::Host::get().faults().failCall("SHGetKnownFolderPath", ERROR_FILE_NOT_FOUND);
    simhost::Host::get().faults().failCall("GetTempPathW", ERROR_ACCESS_DENIED);
    simhost::Host::get().faults().failCall("GetCurrentDirectoryW", ERROR_ACCESS_DENIED);
    EXPECT_EQ(StaticLogger::logDirectory(), L"");
    // A bare name is no drive path, so on the simulated host nothing opens.
    std::wstring path;
    EXPECT_EQ(StaticLogger::OpenLogFile(path), 0);
}

TEST(LoggerDirectory, FileGoesToTheFallbackDirectoryWhenItExists) {
    LogCapture log(false);
    simhost::Host::get().faults().failCall("SHGetKnownFolderPath", ERROR_FILE_NOT_FOUND);
    log.drive().makeDirectory("Windows\\Temp");
    std::wstring path;
    ASSERT_EQ(StaticLogger::OpenLogFile(path), 1);
    VX_LOG(kLogNormal, kNoLastError, 3, "in the temporary directory");
    size_t files = 0;
    for (const auto& entry : std::filesystem::directory_iterator(log.drive().native("Windows\\Temp"))) {
        EXPECT_EQ(entry.path().filename().string().rfind("Vexor Printing Service_", 0), 0u);
        ++files;
    }
    EXPECT_EQ(files, 1u);
}

}  // namespace
