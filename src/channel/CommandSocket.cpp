// The command socket: the listening socket on 127.0.3.1:5555, the one select
// loop over it and the connected clients, and the cutting of each client's
// byte stream into NUL-ended JSON messages that go on the request queue.
#include "channel/SenderVetting.h"
#include "foundation/ClassicJson.h"
#include "foundation/StaticLogger.h"
#include "printers/TcpProcessInfo.h"
#include "service/VexorPrintingService.h"

#include <atomic>
#include <exception>

namespace {

constexpr const char* kCommandAddress = "127.0.3.1";
constexpr u_short kCommandPort = 5555;
constexpr int kListenBacklog = 3;
constexpr int kMaxSelectSockets = 64;
constexpr int kRecvBufferBytes = 5000;
constexpr DWORD kHandOverWaitMs = 5000;
constexpr uint32_t kLogRotationBytes = 5000000;

// Counts the segments read from clients, for the log alone.
std::atomic<uint32_t> segmentCount{0};

}  // namespace

bool VexorPrintingService::_createCmdSocket() {
    VX_LOG(kLogNormal, kNoLastError, 2, "VexorPrintingService::_createCmdSocket");
    if (cmdSocket == INVALID_SOCKET) {
        cmdSocket = socket(AF_INET, SOCK_STREAM, IPPROTO_TCP);
        if (cmdSocket == INVALID_SOCKET) {
            VX_LOG(kLogError, kNoLastError, 4, "Failed to create cmd socket with error: %u",
                   static_cast<unsigned>(WSAGetLastError()));
            return false;
        }
    }
    SOCKET listening = cmdSocket;
    VX_LOG(kLogNormal, kNoLastError, 3, "VexorPrintingService::_createCmdSocket made cmd socket:%d",
           static_cast<int>(listening));

    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = inet_addr(kCommandAddress);
    address.sin_port = htons(kCommandPort);
    // A failed bind keeps the socket for the next attempt.
    if (bind(listening, reinterpret_cast<sockaddr*>(&address), sizeof address) == SOCKET_ERROR) {
        VX_LOG(kLogError, kNoLastError, 4, "bind cmd socket failed with error %u on %s",
               static_cast<unsigned>(WSAGetLastError()), kCommandAddress);
        return false;
    }

    sockaddr_in bound = {};
    int boundLength = sizeof bound;
    if (getsockname(listening, reinterpret_cast<sockaddr*>(&bound), &boundLength) == SOCKET_ERROR) {
        VX_LOG(kLogNormal, kNoLastError, 2, "getsockname failed with error %u",
               static_cast<unsigned>(WSAGetLastError()));
        return false;
    }
    VX_LOG(kLogNormal, kNoLastError, 2, "bind cmd socket bound to:%s:%u", inet_ntoa(bound.sin_addr),
           static_cast<unsigned>(ntohs(bound.sin_port)));

    if (listen(listening, kListenBacklog) == SOCKET_ERROR) {
        VX_LOG(kLogError, kNoLastError, 4, "listen failed with error %u", static_cast<unsigned>(WSAGetLastError()));
        // The member keeps the closed handle, so later attempts fail at bind.
        closesocket(listening);
        return false;
    }
    VX_LOG(kLogNormal, kNoLastError, 2, "listen returned success\n");
    return true;
}

bool VexorPrintingService::_checkCmdSocket() {
    fd_set readSet;
    FD_ZERO(&readSet);
    FD_SET(cmdSocket.load(), &readSet);
    // The set holds the listening socket and at most 63 clients; those
    // beyond, in key order, stay connected but are not read.
    int socketCount = 1;
    for (const auto& entry : clients) {
        FD_SET(entry.first, &readSet);
        if (++socketCount >= kMaxSelectSockets) {
            VX_LOG(kLogError, kNoLastError, 5, "VexorPrintingService exceeded maximum number of sockets:%d",
                   kMaxSelectSockets);
            break;
        }
    }

    timeval timeout = {1, 0};
    int ready = select(0, &readSet, nullptr, nullptr, &timeout);
    if (ready == 0) return false;
    if (ready == SOCKET_ERROR) {
        VX_LOG(kLogError, kNoLastError, 5, "Select call failed with error code : %d", WSAGetLastError());
        Sleep(1000);
        return false;
    }

    if (StaticLogger::logFileSize() > kLogRotationBytes) {
        std::wstring newLogFile;
        StaticLogger::OpenLogFile(newLogFile);
        VX_LOG(kLogNormal, kNoLastError, 4, "Plugin version:25.6.0.51414, Short Hash = 57230ca0d");
    }

    SOCKET listening = cmdSocket;
    if (listening == INVALID_SOCKET) {
        VX_LOG(kLogNormal, kNoLastError, 3, "Our socket was closed. Exiting");
        return false;
    }
    if (FD_ISSET(listening, &readSet)) {
        VX_LOG(kLogNormal, kNoLastError, 3, "New TCP connection received");
        _onClientConnect();
    }
    for (const auto& entry : clients) {
        if (!FD_ISSET(entry.first, &readSet)) continue;
        VX_LOG(kLogNormal, kNoLastError, 3, "New data on existing TCP connection:%u received",
               static_cast<unsigned>(entry.first));
        // A removed client changed the map: the next select reports the rest.
        if (_processClientObj(entry.second)) break;
    }
    return true;
}

void VexorPrintingService::_onClientConnect() {
    sockaddr_in peerAddress = {};
    int addressLength = sizeof peerAddress;
    SOCKET accepted = accept(cmdSocket, reinterpret_cast<sockaddr*>(&peerAddress), &addressLength);
    if (accepted == INVALID_SOCKET) {
        VX_LOG(kLogError, kNoLastError, 4, "Failed to accept new connection on %d with:%d",
               static_cast<int>(cmdSocket.load()), WSAGetLastError());
        return;
    }
    const int peerPort = ntohs(peerAddress.sin_port);
    // A refused peer learns nothing: its socket is closed unanswered.
    if (!vettSenderIP(peerAddress)) {
        VX_LOG(kLogError, kNoLastError, 5, "Unauthorized connection from: %s:%d", inet_ntoa(peerAddress.sin_addr),
               peerPort);
        if (closesocket(accepted) == SOCKET_ERROR)
            VX_LOG(kLogError, kNoLastError, 4, "closesocket() failed with:%d", WSAGetLastError());
        return;
    }
    VX_LOG(kLogNormal, kNoLastError, 4, "Got new connection:%u from: %s:%d", static_cast<unsigned>(accepted),
           inet_ntoa(peerAddress.sin_addr), peerPort);

    ClientObj* client = new ClientObj();
    client->socket = accepted;
    client->peer.addr = peerAddress;
    client->peer.socket = accepted;
    // Looked up again rather than kept from the vetting, which answers only
    // yes or no.
    client->peer.ownerPid = PrinterUtil::getTCPOwnerPid(peerAddress);
    clients[accepted] = client;
    VX_LOG(kLogNormal, kNoLastError, 3, "[WT]New connection, socket fd is %u, addr:%s:%d",
           static_cast<unsigned>(accepted), inet_ntoa(peerAddress.sin_addr), peerPort);
}

// Reads one segment of one client and cuts out every message it completes.
// The log lines of the checks and the hand-over belong to this function, so
// its steps are lambdas here rather than methods of their own.
bool VexorPrintingService::_processClientObj(ClientObj* client) {
    // The first checks and the parse of one message. Only an object passes.
    auto parseMessage = [](const std::string& text, ClientMsg* msg) {
        if (text.size() < 3) {
            VX_LOG(kLogError, kNoLastError, 5, "Impossibly short message ignoring");
            return false;
        }
        if (text[0] != '{') {
            VX_LOG(kLogError, kNoLastError, 5, "message not JSON Obj. ignoring");
            return false;
        }
        try {
            bool accepted = false;
            if (!parseWithClassicReader(text, msg->json))
                VX_LOG(kLogError, kNoLastError, 5, "Failed to parse json rejecting message");
            else if (!msg->json.isObject())
                VX_LOG(kLogError, kNoLastError, 5, "json msg wasn't object. rejecting message");
            else
                accepted = true;
            VX_LOG(kLogNormal, kNoLastError, 2, "parsed msg");
            return accepted;
        } catch (const std::exception& e) {
            VX_LOG(kLogError, kNoLastError, 5, "exception parsing request. Caught:%s", e.what());
        } catch (...) {
            VX_LOG(kLogError, kNoLastError, 5, "Unknown exception parsing request");
        }
        return false;
    };
    // Puts a parsed request on the queue. False when the queue could not be
    // had: the request is lost, and the rest of the buffer waits for more.
    auto handOverMessage = [this, client](ClientMsg* msg) {
        msg->peer = client->peer;
        if (!acquireQueueMutex(kHandOverWaitMs)) {
            VX_LOG(kLogError, kNoLastError, 5, "Failed to aquire hMsgQueueMutex after %uMS. Request will be lost!",
                   static_cast<unsigned>(kHandOverWaitMs));
            delete msg;
            return false;
        }
        msgQueue.push(msg);
        VX_LOG(kLogNormal, kNoLastError, 2, "enqueued new msg. Queue size now:%u",
               static_cast<unsigned>(msgQueue.size()));
        if (!ReleaseMutex(hMsgQueueMutex)) VX_LOG(kLogError, kNoLastError, 6, "Failed to release hMsgQueueMutex");
        if (!SetEvent(msgQueueEvent)) VX_LOG(kLogError, kNoLastError, 5, "SetEvent failed.");
        return true;
    };

    VX_LOG(kLogNormal, kNoLastError, 3, "%uth command segment received", ++segmentCount);
    char buffer[kRecvBufferBytes];
    int received = recv(client->socket, buffer, kRecvBufferBytes, 0);
    if (received == SOCKET_ERROR) {
        int error = WSAGetLastError();
        if (error != WSAECONNABORTED && error != WSAECONNRESET) {
            VX_LOG(kLogError, kNoLastError, 4, "[WT]recv failed with error code:%d", error);
            return false;
        }
        VX_LOG(kLogError, kNoLastError, 3, "Client disconnected unexpectedly flagging a reap");
        removeClient(client);
        return true;
    }
    if (received == 0) {
        VX_LOG(kLogNormal, kNoLastError, 2, "Client disconnected nicely");
        removeClient(client);
        return true;
    }

    std::string& pending = client->recvBuffer;
    pending.append(buffer, static_cast<size_t>(received));
    size_t nul = pending.find('\0');
    while (!pending.empty() && nul != std::string::npos) {
        VX_LOG(kLogNormal, kNoLastError, 2, "Parsing %u byte msg.", static_cast<unsigned>(nul));
        std::string text = pending.substr(0, nul);
        pending.erase(0, nul + 1);
        ClientMsg* msg = new ClientMsg();
        if (!parseMessage(text, msg)) {
            delete msg;
        } else if (!handOverMessage(msg)) {
            return false;
        }
        nul = pending.find('\0');
    }
    return false;
}

// A departed client leaves the table; its socket stays open so that replies
// to its queued requests still have somewhere to go. The next empty queue
// brings a reap.
void VexorPrintingService::removeClient(ClientObj* client) {
    clients.erase(client->socket);
    delete client;
    reapPending.store(1, std::memory_order_relaxed);
}
