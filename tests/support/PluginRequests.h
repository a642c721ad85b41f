// A plugin's requests and the service's replies as bytes, and the checks of
// the log lines a request leaves, for the end-to-end tests of the verbs.
#pragma once

#include "support/LogCapture.h"
#include "support/TestClient.h"

#include <json/json.h>

#include <cstdint>
#include <string>

namespace testsupport {

// The reply as the service writes it: the compact JSON text, its line feed
// and the NUL that ends it.
std::string replyBytes(const std::string& body);
std::string successReply(int id);
std::string failureReply(int id, const std::string& err);

// Sends the request with `_msgUniqueId` = id and answers the reply that
// comes back (empty when none came in time).
std::string ask(TestClient& client, Json::Value request, int id);

// The one line with exactly this message, checked for level, channel and
// function.
void expectOneLine(const LogCapture& log, const std::string& message, uint32_t level, int channel,
                   const std::string& function);

}  // namespace testsupport
