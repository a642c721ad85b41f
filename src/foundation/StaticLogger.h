// The process-wide logger. It has no object: its settings and its file are
// module-level state, set once by the service constructor. Every subsystem
// writes through VX_LOG, one line per call, to a text file under the
// program-data directory and optionally to an event sink.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

// Channels select a pair of thresholds; they do not change the line.
constexpr uint32_t kLogNormal = 0;
constexpr uint32_t kLogError = 1;
// Whether the line ends with the calling thread's last error and its text.
constexpr uint32_t kNoLastError = 0;
constexpr uint32_t kWithLastError = 1;

// A second destination for lines that reach the event thresholds. The
// service never attaches one; tests and embedders may.
class LogEventSink {
public:
    virtual ~LogEventSink() = default;
    virtual void report(const std::wstring& source, uint32_t type, int32_t eventId, const std::string& text) = 0;
};

class StaticLogger {
public:
    // Writes one line: time stamp, level, tag, thread id, function, optional
    // source, the message aligned at column 70, and with appendLastError
    // " Err:<n>:<system text>". Never fails towards the caller.
    static void Log(uint32_t channel, uint32_t appendLastError, uint32_t level, const char* function,
                    const char* sourceFile, uint32_t line, const char* format, ...)
#if defined(__GNUC__)
        __attribute__((format(printf, 7, 8)))
#endif
        ;

    // Closes the current file and opens `path`, or a new name under the log
    // directory when it is empty. Returns 1 if a file is open afterwards, 0
    // if not. `path` is cleared.
    static int OpenLogFile(std::wstring& path);

    // Logs the process's working set, the last one and their difference.
    static void LogMemory(const char* function, const char* sourceFile, uint32_t line, const char* ignored);

    // Settings, set by the service constructor.
    static void setFileThreshold(uint32_t channel, uint32_t level);
    static void setEventThreshold(uint32_t channel, uint32_t level);
    static void setShowThreadId(bool show);
    static void setShowFunction(bool show);
    static void setShowSource(bool show);
    static void setDisplayName(const wchar_t* displayName);
    static void setEventSink(LogEventSink* sink);

    // Where the current file stands: the position after the last line.
    static uint32_t logFileSize();
    // The directory new log files go to, with a final backslash; empty when
    // none could be had.
    static std::wstring logDirectory();

    // Returns the logger to its state before any configuration: no file, all
    // thresholds 0, display name "Vexor", no sink, no memory reading.
    static void restoreInitialState();
};

namespace logging_detail {

// The qualified name of a function ("VexorPrintingService::OnStart",
// "PrinterUtil::getPrinter"), cut at compile time out of the compiler's
// signature text, which carries return type, parameters and qualifiers.
template <size_t N>
class QualifiedName {
public:
    constexpr explicit QualifiedName(const char (&signature)[N]) : text_{} {
        size_t open = parameterListStart(signature);
        size_t begin = nameStart(signature, open);
        size_t length = 0;
        for (size_t i = begin; i < open; ++i) text_[length++] = signature[i];
        text_[length] = '\0';
    }
    constexpr const char* c_str() const { return text_; }

private:
    static constexpr bool startsWith(const char* text, size_t at, const char* prefix) {
        for (size_t i = 0; prefix[i]; ++i)
            if (at + i >= N || text[at + i] != prefix[i]) return false;
        return true;
    }
    // The '(' that opens the parameter list: the first one outside template
    // arguments that is not part of an "(anonymous namespace)" qualifier.
    static constexpr size_t parameterListStart(const char (&s)[N]) {
        int depth = 0;
        for (size_t i = 0; i + 1 < N; ++i) {
            if (s[i] == '<') ++depth;
            if (s[i] == '>' && depth > 0) --depth;
            if (s[i] == '(' && depth == 0) {
                if (!startsWith(s, i, "(anonymous")) return i;
                while (i + 1 < N && s[i] != ')') ++i;
            }
        }
        return N - 1;
    }
    // The name starts after the last blank outside template arguments, which
    // ends the return type and specifiers ("virtual void", "__cdecl").
    static constexpr size_t nameStart(const char (&s)[N], size_t open) {
        int depth = 0;
        size_t begin = 0;
        for (size_t i = 0; i < open; ++i) {
            if (s[i] == '<') ++depth;
            if (s[i] == '>' && depth > 0) --depth;
            if (s[i] == '(' && startsWith(s, i, "(anonymous")) {
                while (i < open && s[i] != ')') ++i;
                continue;
            }
            if (s[i] == ' ' && depth == 0) begin = i + 1;
        }
        while (begin < open && (s[begin] == '*' || s[begin] == '&')) ++begin;
        return begin;
    }

    char text_[N];
};

}  // namespace logging_detail

#if defined(_MSC_VER) && !defined(__clang__)
#define VX_FUNCTION_SIGNATURE __FUNCSIG__
#else
#define VX_FUNCTION_SIGNATURE __PRETTY_FUNCTION__
#endif

// The one logging call of the service: channel, whether to append the last
// error, level, then a printf format and its arguments. The qualified
// function name, source file and line are supplied here.
#define VX_LOG(channel, appendLastError, level, ...)                                                          \
    do {                                                                                                      \
        static constexpr ::logging_detail::QualifiedName<sizeof(VX_FUNCTION_SIGNATURE)> vxLogFunction_(       \
            VX_FUNCTION_SIGNATURE);                                                                           \
        ::StaticLogger::Log((channel), (appendLastError), (level), vxLogFunction_.c_str(), __FILE__, __LINE__, \
                            __VA_ARGS__);                                                                     \
    } while (0)

// The qualified name of the enclosing function as a constant named `name`,
// for a helper that logs on behalf of its caller (VX_LOG_AS).
#define VX_DECLARE_FUNCTION_NAME(name) \
    static constexpr ::logging_detail::QualifiedName<sizeof(VX_FUNCTION_SIGNATURE)> name(VX_FUNCTION_SIGNATURE)

// VX_LOG under a function name given by the caller: for a step that two
// functions share, whose lines belong to the function it serves.
#define VX_LOG_AS(function, channel, appendLastError, level, ...) \
    ::StaticLogger::Log((channel), (appendLastError), (level), (function), __FILE__, __LINE__, __VA_ARGS__)

// Logs the working set with the caller's function, file and line.
#define VX_LOG_MEMORY()                                                                                   \
    do {                                                                                                  \
        static constexpr ::logging_detail::QualifiedName<sizeof(VX_FUNCTION_SIGNATURE)> vxLogFunction_(   \
            VX_FUNCTION_SIGNATURE);                                                                       \
        ::StaticLogger::LogMemory(vxLogFunction_.c_str(), __FILE__, __LINE__, "");                        \
    } while (0)
