// What the control socket's requests do on the machine.
#include "simhost/control/control_socket.h"

#include "simhost/core/text.h"
#include "simhost/winspool/spooler.h"

#include <algorithm>
#include <vector>

namespace simhost {
namespace control {
namespace {

Json::Value refusal(const std::string& error) {
    Json::Value reply(Json::objectValue);
    reply["ok"] = false;
    reply["error"] = error;
    return reply;
}

// The first key of `request` that `known` lacks, or "".
std::string unknownKey(const Json::Value& request, const std::vector<std::string>& known) {
    for (const std::string& key : request.getMemberNames())
        if (std::find(known.begin(), known.end(), key) == known.end()) return key;
    return {};
}

// Prints the document to the printer as a user of the machine would: the
// spooler queues the job and sends it to the printer's RAW TCP/IP port.
Json::Value print(const Json::Value& request, const std::string& document) {
    std::string wrong = unknownKey(request, {"op", "printer", "document", "size"});
    if (!wrong.empty()) return refusal("unknown key \"" + wrong + "\" in a print request");
    if (!request["printer"].isString() || request["printer"].asString().empty())
        return refusal("\"printer\" must name a printer");
    if (request.isMember("document") && !request["document"].isString())
        return refusal("\"document\" must be a text");
    const std::string printer = request["printer"].asString();
    const std::string title = request.get("document", "Document").asString();
    std::vector<unsigned char> bytes(document.begin(), document.end());
    winspool::PrintOutcome outcome = winspool::printJob(widen(printer), bytes, widen(title));
    if (!outcome.delivered) {
        Json::Value reply = refusal(outcome.failure);
        if (outcome.jobId) reply["job"] = outcome.jobId;
        if (!outcome.endpoint.empty()) reply["sentTo"] = outcome.endpoint;
        return reply;
    }
    Json::Value reply(Json::objectValue);
    reply["ok"] = true;
    reply["job"] = outcome.jobId;
    reply["bytes"] = static_cast<Json::UInt64>(bytes.size());
    reply["printer"] = printer;
    reply["sentTo"] = outcome.endpoint;
    return reply;
}

}  // namespace

bool announcedSize(const Json::Value& request, size_t& size, std::string& error) {
    size = 0;
    if (!request.isObject() || !request.isMember("size")) return true;
    const Json::Value& value = request["size"];
    if (!value.isUInt64() || value.asUInt64() > kMaxDocumentBytes) {
        error = "\"size\" must be a number of bytes from 0 to " + std::to_string(kMaxDocumentBytes);
        return false;
    }
    size = static_cast<size_t>(value.asUInt64());
    return true;
}

Json::Value answerControlRequest(const Json::Value& request, const std::string& document) {
    if (!request.isObject()) return refusal("a request must be a JSON object");
    if (!request["op"].isString()) return refusal("a request must name its \"op\"");
    const std::string op = request["op"].asString();
    if (op == "print") return print(request, document);
    return refusal("unknown op \"" + op + "\"");
}

}  // namespace control
}  // namespace simhost
