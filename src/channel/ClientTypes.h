// Records of the command channel: a connection's identity, the connection
// itself with the bytes not yet cut into messages, and one parsed request.
#pragma once

#include "platform/win32.h"

#include <json/json.h>

#include <string>

// Who is on the other end of a connection. Copied into every request the
// connection delivers, so that a reply finds its socket and a handler its
// sender even after the connection's record is gone.
struct ClientPeer {
    sockaddr_in addr;   // the client's end, as accept returned it
    SOCKET socket;      // where the replies go
    DWORD ownerPid;     // the process owning the client's end, found at accept
};

// One accepted connection. The key of `clients` is its socket.
struct ClientObj {
    SOCKET socket;
    ClientPeer peer;
    std::string recvBuffer;  // bytes received and not yet cut at a NUL
};

// One request: the parsed object and a copy of its connection's identity.
struct ClientMsg {
    Json::Value json;
    ClientPeer peer;
};
