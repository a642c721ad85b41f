#include "support/ChannelRecorder.h"

#include <algorithm>

namespace testsupport {

namespace {

// Where the message starts in a line's text: after "<thread>|<function>()|",
// aligned at column 70.
constexpr size_t kMessageColumn = 70;

std::string messageOf(const std::string& text) {
    size_t functionEnd = text.find("()|");
    size_t at = functionEnd == std::string::npos ? 0 : std::max(functionEnd + 3, kMessageColumn);
    return at < text.size() ? text.substr(at) : std::string();
}

}  // namespace

void ChannelRecorder::attach() {
    StaticLogger::setEventThreshold(kLogNormal, 0);
    StaticLogger::setEventThreshold(kLogError, 0);
    StaticLogger::setEventSink(this);
}

ChannelRecorder::~ChannelRecorder() { StaticLogger::setEventSink(nullptr); }

// The error channel always reports a nonzero event id; the normal channel
// reports 0 and splits long lines, which the messages looked up here are not.
void ChannelRecorder::report(const std::wstring&, uint32_t, int32_t eventId, const std::string& text) {
    std::lock_guard<std::mutex> hold(mutex_);
    lines_.push_back({messageOf(text), eventId != 0 ? static_cast<int>(kLogError) : static_cast<int>(kLogNormal)});
}

int ChannelRecorder::channelOf(const std::string& message) const {
    std::lock_guard<std::mutex> hold(mutex_);
    for (const Line& line : lines_)
        if (line.message == message) return line.channel;
    return kNoSuchLine;
}

}  // namespace testsupport
