#include "support/ChannelRecorder.h"

#include <algorithm>

namespace testsupport {

namespace {

// Where the message starts in a line's text: after "<thread>|<function>()|",
// aligned at column 70.
constexpr size_t kMessageColumn = 70;
// The logger cuts normal-channel lines into pieces of this many bytes.
constexpr size_t kPieceBytes = 350;

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

// The error channel always reports a nonzero event id in one call; the
// normal channel reports 0 and ends a line with a piece shorter than 350
// bytes.
void ChannelRecorder::report(const std::wstring&, uint32_t, int32_t eventId, const std::string& text) {
    std::lock_guard<std::mutex> hold(mutex_);
    std::string body = text;
    int channel = static_cast<int>(kLogError);
    if (eventId == 0) {
        channel = static_cast<int>(kLogNormal);
        std::string& pending = pendingPieces_[std::this_thread::get_id()];
        pending += text;
        if (text.size() == kPieceBytes) return;
        body.swap(pending);
        pendingPieces_.erase(std::this_thread::get_id());
    }
    // The file holds a line up to its first NUL; so is it looked up.
    body.resize(std::char_traits<char>::length(body.c_str()));
    channelByBody_[body] = channel;
    messages_.emplace_back(messageOf(body), channel);
}

int ChannelRecorder::channelOfBody(const std::string& body) const {
    std::lock_guard<std::mutex> hold(mutex_);
    auto it = channelByBody_.find(body);
    return it == channelByBody_.end() ? kNoSuchLine : it->second;
}

int ChannelRecorder::channelOf(const std::string& message) const {
    std::lock_guard<std::mutex> hold(mutex_);
    for (const auto& line : messages_)
        if (line.first == message) return line.second;
    return kNoSuchLine;
}

}  // namespace testsupport
