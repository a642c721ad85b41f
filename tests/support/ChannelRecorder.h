// Tells on which channel each line was logged. The log file does not show
// it, so this sink is attached as the logger's event destination with every
// level let through: error-channel lines reach it in one call with an error
// event id, normal-channel lines with id 0, cut into 350-byte pieces that it
// joins again. LogCapture owns one and reports each line's channel from it.
#pragma once

#include "foundation/StaticLogger.h"

#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace testsupport {

class ChannelRecorder : public LogEventSink {
public:
    static constexpr int kNoSuchLine = -1;

    ChannelRecorder() = default;
    ~ChannelRecorder() override;
    ChannelRecorder(const ChannelRecorder&) = delete;
    ChannelRecorder& operator=(const ChannelRecorder&) = delete;

    // Lets every level of both channels through to this sink. The service's
    // constructor sets its own event thresholds, so whoever builds a service
    // attaches again afterwards to see lines below level 5.
    void attach();
    void report(const std::wstring& source, uint32_t type, int32_t eventId, const std::string& text) override;
    // kLogNormal or kLogError for the line with exactly this body (the text
    // after "PrintingSvc :|"), kNoSuchLine when none was reported.
    int channelOfBody(const std::string& body) const;
    // The same for the first line with exactly this message.
    int channelOf(const std::string& message) const;

private:
    mutable std::mutex mutex_;
    std::map<std::string, int> channelByBody_;
    std::vector<std::pair<std::string, int>> messages_;
    // Normal-channel pieces of a line still being reported, by the thread
    // that logs it: the pieces of one line come one after the other from it.
    std::map<std::thread::id, std::string> pendingPieces_;
};

}  // namespace testsupport
