// Reaches into the service object for the few tests that must arrange or
// observe what no platform call shows: a handle replaced by a closed one, the
// stamping of the sender on a request.
#pragma once

#include "service/VexorPrintingService.h"

struct ServiceTestAccess {
    static HANDLE& cleanupWakeEvent(VexorPrintingService& service) { return service.cleanupWakeEvent; }
    static HANDLE queueMutex(VexorPrintingService& service) { return service.hMsgQueueMutex; }
    static void stampSender(VexorPrintingService& service, ClientMsg* msg) { service.stampSender(msg); }
};
