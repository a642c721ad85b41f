// The worker's side of the request queue: one request at a time is taken,
// stamped with its sender, handled by its verb, and answered with one
// NUL-ended JSON reply on the connection it came from.
#include "cleanup/PrinterReaper.h"
#include "foundation/ClassicJson.h"
#include "foundation/JsonGetters.h"
#include "foundation/StaticLogger.h"
#include "service/VexorPrintingService.h"

#include <exception>

namespace {

constexpr DWORD kWorkerWaitMs = 666;

}  // namespace

// An abandoned mutex is owned all the same: the queue it guards is intact,
// since nothing is ever thrown while it is held.
bool VexorPrintingService::acquireQueueMutex(DWORD milliseconds) {
    DWORD result = WaitForSingleObject(hMsgQueueMutex, milliseconds);
    return result == WAIT_OBJECT_0 || result == WAIT_ABANDONED;
}

// One pass of the worker: take the next request (waiting a little for one,
// and reaping while none waits), handle it and answer it. The log lines of
// these steps belong to this function, so the steps are lambdas here.
bool VexorPrintingService::_checkMsgQueue() {
    auto releaseQueueMutex = [this] {
        if (!ReleaseMutex(hMsgQueueMutex)) VX_LOG(kLogError, kNoLastError, 6, "Failed to release hMsgQueueMutex");
    };
    auto acquireOrLog = [this] {
        if (acquireQueueMutex(kWorkerWaitMs)) return true;
        VX_LOG(kLogError, kNoLastError, 4, "Failed to aquire hMsgQueueMutex after %uMS",
               static_cast<unsigned>(kWorkerWaitMs));
        return false;
    };
    // Any number of departures since the last reap cost one reap, done here
    // while no request waits.
    auto reapIfPending = [this] {
        if (!reapPending.load(std::memory_order_relaxed)) return;
        VX_LOG(kLogNormal, kNoLastError, 2, "Dealing with pending reap");
        reapPending.store(0, std::memory_order_relaxed);
        VX_LOG(kLogNormal, kNoLastError, 2, "Reaping");
        PrinterReaper::reapPrinterPorts(0);
        VX_LOG(kLogNormal, kNoLastError, 2, "Finished Reaping");
    };
    auto popRequest = [&]() -> ClientMsg* {
        if (!acquireOrLog()) return nullptr;
        if (msgQueue.empty()) {
            releaseQueueMutex();
            reapIfPending();
            if (WaitForSingleObject(msgQueueEvent, kWorkerWaitMs) != WAIT_OBJECT_0) return nullptr;
            if (!acquireOrLog()) return nullptr;
            if (msgQueue.empty()) {
                VX_LOG(kLogNormal, kNoLastError, 2,
                       "Got a signal that there was a msg but none there. Must have got it already.");
                releaseQueueMutex();
                return nullptr;
            }
        }
        ClientMsg* msg = msgQueue.pop();
        VX_LOG(kLogNormal, kNoLastError, 2, "dequeued new msg. Queue size now:%u",
               static_cast<unsigned>(msgQueue.size()));
        releaseQueueMutex();
        return msg;
    };
    // A request whose handling throws gets no reply; the exception goes no
    // further.
    auto answerRequest = [this](ClientMsg* msg) {
        try {
            const int id = getJsonInt("_msgUniqueId", msg->json, 0);
            VX_LOG(kLogNormal, kNoLastError, 3, "Got request id:%d", id);
            stampSender(msg);
            Json::Value reply = _handleRequest(msg);
            if (!reply.isMember("status")) reply["status"] = reply.isMember("err") ? "fail" : "success";
            reply["_msgUniqueId"] = id;
            std::string text = writeCompact(reply);
            text.push_back('\0');
            VX_LOG(kLogNormal, kNoLastError, 3, "Sending json response for id:%d", id);
            VX_LOG(kLogNormal, kNoLastError, 2, "JSON:%s", text.c_str());
            if (send(msg->peer.socket, text.data(), static_cast<int>(text.size()), 0) == SOCKET_ERROR)
                VX_LOG(kLogError, kNoLastError, 4, "send failed with error:%d", WSAGetLastError());
            else
                VX_LOG(kLogNormal, kNoLastError, 2, "responded to cmd");
        } catch (const std::exception& e) {
            VX_LOG(kLogError, kNoLastError, 5, "exception processing command. Caught:%s", e.what());
        } catch (...) {
            VX_LOG(kLogError, kNoLastError, 5, "Unknown exception processing command");
        }
    };

    ClientMsg* msg = popRequest();
    if (!msg) return false;
    answerRequest(msg);
    delete msg;
    VX_LOG_MEMORY();
    return true;
}

// Handlers learn who sends from this key alone; whatever the client put there
// is replaced by the owner of its connection.
void VexorPrintingService::stampSender(ClientMsg* msg) {
    msg->json["_senderPID"] = Json::Value(static_cast<Json::UInt>(msg->peer.ownerPid));
}

// The port, then the printer on the same request; a printer that fails takes
// the port just made with it. The client sees the printer's reply whenever a
// printer was attempted. The lines are those of the dispatch.
Json::Value VexorPrintingService::addPrinterAndPort(Json::Value& request, const char* dispatch) {
    VX_LOG_AS(dispatch, kLogNormal, kNoLastError, 2, "Step1:Adding printer port");
    const Json::Value portReply = _addPrinterPort(request);
    if (portReply.isMember("err")) return portReply;
    portCreatedMark.store(0, std::memory_order_relaxed);
    VX_LOG_AS(dispatch, kLogNormal, kNoLastError, 2, "Step2:Adding printer");
    Json::Value printerReply = _addPrinter(request);
    if (printerReply.isMember("err")) {
        VX_LOG_AS(dispatch, kLogNormal, kNoLastError, 2, "Deleting printer port because printer create failed.");
        Json::Value port(Json::objectValue);
        port["name"] = request.get("pPortName", Json::Value());
        _deletePrinterPort(port);
    }
    return printerReply;
}

Json::Value VexorPrintingService::_handleRequest(ClientMsg* msg) {
    const std::string verb = getJsonString("msg", msg->json, "");
    VX_LOG(kLogNormal, kNoLastError, 2, "got peer msg:%s", verb.c_str());
    if (verb == "reap") {
        VX_LOG(kLogNormal, kNoLastError, 2, "doing reap");
        return _reapPrinters(msg->json);
    }
    if (verb == "createPrinterAndPort") {
        VX_DECLARE_FUNCTION_NAME(self);
        return addPrinterAndPort(msg->json, self.c_str());
    }
    if (verb == "createPPort") {
        VX_LOG(kLogNormal, kNoLastError, 2, "Adding printer port");
        Json::Value reply = _addPrinterPort(msg->json);
        if (!reply.isMember("err")) portCreatedMark.store(0, std::memory_order_relaxed);
        return reply;
    }
    if (verb == "deletePPort") {
        VX_LOG(kLogNormal, kNoLastError, 2, "Deleting printer port");
        return _deletePrinterPort(msg->json);
    }
    if (verb == "deletePrinterAndPort") {
        VX_LOG(kLogNormal, kNoLastError, 2, "Deleting printer and port");
        return _deletePrinterAndPort(msg->json);
    }
    if (verb == "createPrinter") {
        VX_LOG(kLogNormal, kNoLastError, 2, "Adding printer");
        return _addPrinter(msg->json);
    }
    if (verb == "deletePrinter") {
        VX_LOG(kLogNormal, kNoLastError, 2, "Deleting printer");
        if (doesSenderOwnPrinter(msg->json)) return _deletePrinter(msg->json);
        Json::Value refusal(Json::objectValue);
        refusal["err"] = "Printer not owned by sender";
        VX_LOG(kLogNormal, kNoLastError, 4, "Refusing printer delete request based on sender");
        return refusal;
    }
    if (verb == "setPrinterStatus") {
        VX_LOG(kLogNormal, kNoLastError, 2, "Setting printer Status");
        return _setPrinterStatus(msg->json);
    }
    if (verb == "getTcpProcessInfo") {
        VX_LOG(kLogNormal, kNoLastError, 2, "Getting TCP Process Info");
        return _getTcpProcessInfo(msg->json);
    }
    Json::Value reply(Json::objectValue);
    reply["err"] = "unknown msg verb. Don't know what you want me to do.";
    VX_LOG(kLogError, kNoLastError, 4, "%s", reply["err"].asCString());
    return reply;
}
