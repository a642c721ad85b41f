// The request queue: a binary heap of requests in one array, smallest
// priority number at the root. The priority is not stored; it is worked out
// from the request's verb at every comparison. Push and pop follow fixed
// steps that make the order among equal priorities what it is (not the order
// of arrival): four equal requests A, B, C, D come out A, C, B, D.
// Not thread-safe: the service guards it with hMsgQueueMutex.
#pragma once

#include "channel/ClientTypes.h"

#include <vector>

// The verb's priority: removals and unknown verbs 1, printer creation 2,
// port creation and status 3, reap 4, process information 5.
int msgPriority(const ClientMsg* msg);

class MessageQueue {
public:
    void push(ClientMsg* msg);
    // Takes the root. The queue must not be empty.
    ClientMsg* pop();
    size_t size() const { return heap_.size(); }
    bool empty() const { return heap_.empty(); }

private:
    // Moves `msg` up from `hole` while its parent's number is strictly greater.
    void siftUp(size_t hole, ClientMsg* msg);

    std::vector<ClientMsg*> heap_;
};
