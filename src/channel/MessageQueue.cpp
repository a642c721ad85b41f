#include "channel/MessageQueue.h"

#include "foundation/JsonGetters.h"

int msgPriority(const ClientMsg* msg) {
    const std::string verb = getJsonString("msg", msg->json, "");
    if (verb == "getTcpProcessInfo") return 5;
    if (verb == "reap") return 4;
    if (verb == "createPPort") return 3;
    if (verb == "setPrinterStatus") return 3;
    if (verb == "createPrinterAndPort") return 2;
    if (verb == "createPrinter") return 2;
    return 1;
}

void MessageQueue::siftUp(size_t hole, ClientMsg* msg) {
    while (hole > 0) {
        size_t parent = (hole - 1) / 2;
        if (msgPriority(heap_[parent]) <= msgPriority(msg)) break;
        heap_[hole] = heap_[parent];
        hole = parent;
    }
    heap_[hole] = msg;
}

void MessageQueue::push(ClientMsg* msg) {
    heap_.push_back(msg);
    siftUp(heap_.size() - 1, msg);
}

ClientMsg* MessageQueue::pop() {
    ClientMsg* root = heap_.front();
    if (heap_.size() < 2) {
        heap_.pop_back();
        return root;
    }
    ClientMsg* last = heap_.back();
    heap_.pop_back();
    const size_t n = heap_.size();
    size_t hole = 0;
    // Walk the hole down, preferring the right child unless it is strictly
    // greater than the left one: on a tie the right child moves up.
    while (2 * hole + 2 < n) {
        size_t left = 2 * hole + 1;
        size_t right = left + 1;
        size_t child = msgPriority(heap_[right]) > msgPriority(heap_[left]) ? left : right;
        heap_[hole] = heap_[child];
        hole = child;
    }
    if (n % 2 == 0 && 2 * hole + 1 == n - 1) {
        heap_[hole] = heap_[n - 1];
        hole = n - 1;
    }
    siftUp(hole, last);
    return root;
}
