#include "support/PluginRequests.h"

#include <gtest/gtest.h>

#include <vector>

namespace testsupport {

std::string replyBytes(const std::string& body) { return body + "\n" + std::string(1, '\0'); }

std::string successReply(int id) {
    return replyBytes("{\"_msgUniqueId\":" + std::to_string(id) + ",\"status\":\"success\"}");
}

std::string failureReply(int id, const std::string& err) {
    return replyBytes("{\"_msgUniqueId\":" + std::to_string(id) + ",\"err\":\"" + err + "\",\"status\":\"fail\"}");
}

std::string ask(TestClient& client, Json::Value request, int id) {
    request["_msgUniqueId"] = id;
    std::string text = Json::FastWriter().write(request);
    text.back() = '\0';  // the writer's line feed becomes the message's end
    EXPECT_TRUE(client.send(text));
    return client.receiveReply();
}

void expectOneLine(const LogCapture& log, const std::string& message, uint32_t level, int channel,
                   const std::string& function) {
    std::vector<LogLine> lines = log.find(message);
    ASSERT_EQ(lines.size(), 1u) << message << "\n" << log.contents();
    EXPECT_EQ(lines[0].level, level) << message;
    EXPECT_EQ(lines[0].channel, channel) << message;
    EXPECT_EQ(lines[0].function, function) << message;
}

}  // namespace testsupport
