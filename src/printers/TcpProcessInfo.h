// Which process owns a TCP connection, as the system's connection table
// tells. Used to vet a new client and to stamp its requests with their
// sender, and by the process-information verb.
#pragma once

#include "platform/win32.h"

namespace PrinterUtil {

// The owner of the connection whose local end is `endpoint` (address and
// port compared in network byte order, as accept gives them): the owning
// process id, 0 when no connection has that end, 1 when the table could not
// be read. Callers take 1 for a process id; no process 1 passes the name test.
DWORD getTCPOwnerPid(const sockaddr_in& endpoint);

}  // namespace PrinterUtil
