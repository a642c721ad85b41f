// Reaches into the service object for the few tests that must arrange or
// observe what no platform call shows: a handle replaced by a closed one, the
// stamping of the sender on a request, a request as it waits in the queue.
#pragma once

#include "service/VexorPrintingService.h"

struct ServiceTestAccess {
    static HANDLE& cleanupWakeEvent(VexorPrintingService& service) { return service.cleanupWakeEvent; }
    static HANDLE cleanupStoppedEvent(VexorPrintingService& service) { return service.cleanupStoppedEvent; }
    static HANDLE queueMutex(VexorPrintingService& service) { return service.hMsgQueueMutex; }
    // A connection record in the client table, as the socket thread keeps it.
    static void addClient(VexorPrintingService& service, SOCKET socket, ClientObj* client) {
        service.clients[socket] = client;
    }
    // A request on the queue, as the socket thread hands it over.
    static void queueRequest(VexorPrintingService& service, ClientMsg* msg) {
        WaitForSingleObject(service.hMsgQueueMutex, 5000);
        service.msgQueue.push(msg);
        ReleaseMutex(service.hMsgQueueMutex);
    }
    static void stampSender(VexorPrintingService& service, ClientMsg* msg) { service.stampSender(msg); }
    // How many requests wait in the queue; 0 when the mutex could not be had.
    static size_t queuedCount(VexorPrintingService& service) {
        if (WaitForSingleObject(service.hMsgQueueMutex, 5000) != WAIT_OBJECT_0) return 0;
        const size_t count = service.msgQueue.size();
        ReleaseMutex(service.hMsgQueueMutex);
        return count;
    }
    // Takes the next waiting request off the queue, under the queue's mutex,
    // so that the worker never sees it; the caller owns it. Null when none
    // waits or the mutex could not be had.
    static ClientMsg* takeQueuedRequest(VexorPrintingService& service) {
        if (WaitForSingleObject(service.hMsgQueueMutex, 5000) != WAIT_OBJECT_0) return nullptr;
        ClientMsg* msg = service.msgQueue.empty() ? nullptr : service.msgQueue.pop();
        ReleaseMutex(service.hMsgQueueMutex);
        return msg;
    }
};
