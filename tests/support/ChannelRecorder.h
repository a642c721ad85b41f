// Tells on which channel each line was logged. The log file does not show
// it, so this sink is attached as the logger's event destination with every
// level let through; error-channel lines reach it with an error event id.
// Declare it before the LogCapture or ServiceHarness, so that it outlives
// every thread that logs, and attach it after them, since they reset the
// logger.
#pragma once

#include "foundation/StaticLogger.h"

#include <mutex>
#include <string>
#include <vector>

namespace testsupport {

class ChannelRecorder : public LogEventSink {
public:
    static constexpr int kNoSuchLine = -1;

    ChannelRecorder() = default;
    ~ChannelRecorder() override;
    ChannelRecorder(const ChannelRecorder&) = delete;
    ChannelRecorder& operator=(const ChannelRecorder&) = delete;

    // Lets every level of both channels through to this sink.
    void attach();
    void report(const std::wstring& source, uint32_t type, int32_t eventId, const std::string& text) override;
    // kLogNormal or kLogError for the first line with exactly this message,
    // kNoSuchLine when there is none.
    int channelOf(const std::string& message) const;

private:
    struct Line {
        std::string message;
        int channel;
    };
    mutable std::mutex mutex_;
    std::vector<Line> lines_;
};

}  // namespace testsupport
