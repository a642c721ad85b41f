#include "simhost/kernel32/objects.h"

#include "simhost/core/host.h"
#include "simhost/kernel32/kernel32.h"

#include <atomic>
#include <map>
#include <thread>
#include <unordered_map>

namespace simhost {
namespace {

// The machine's open handles and object names; Host::reset drops them all.
struct HandleTable {
    std::mutex mutex;
    std::unordered_map<HANDLE, std::shared_ptr<KernelObject>> handles;
    std::map<std::wstring, std::weak_ptr<KernelObject>> names;
};

HandleTable& handleTable() { return Host::get().state<HandleTable>(); }

// Outside the host's state, so values stay unique across resets.
std::atomic<uintptr_t> lastHandleValue{0};

}  // namespace

DWORD WaitableObject::wait(DWORD milliseconds) {
    std::optional<std::chrono::steady_clock::time_point> deadline = waitDeadline(milliseconds);
    DWORD result = WAIT_TIMEOUT;
    auto acquired = [&] {
        result = tryAcquireLocked();
        return result != WAIT_TIMEOUT;
    };
    std::unique_lock<std::mutex> hold(lock_);
    ++waiters_;
    if (deadline)
        changed_.wait_until(hold, *deadline, acquired);
    else
        changed_.wait(hold, acquired);
    --waiters_;
    return result;
}

bool waitUntilWaiting(HANDLE handle, size_t count, unsigned timeoutMs) {
    std::shared_ptr<WaitableObject> object = lookupHandle<WaitableObject>(handle);
    return object && pollUntil([&] { return object->waiters() >= count; }, timeoutMs);
}

bool pollUntil(const std::function<bool()>& reached, unsigned timeoutMs) {
    auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
    while (!reached()) {
        if (std::chrono::steady_clock::now() >= deadline) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

DWORD WaitableObject::tryAcquire() {
    std::lock_guard<std::mutex> hold(lock_);
    return tryAcquireLocked();
}

std::optional<std::chrono::steady_clock::time_point> waitDeadline(DWORD milliseconds) {
    if (milliseconds == INFINITE) return std::nullopt;
    return std::chrono::steady_clock::now() +
           std::chrono::milliseconds(Host::get().scaledMilliseconds(milliseconds));
}

HANDLE reserveHandleValue() { return reinterpret_cast<HANDLE>(lastHandleValue.fetch_add(4) + 4); }

HANDLE registerHandle(std::shared_ptr<KernelObject> object) {
    HANDLE handle = reserveHandleValue();
    HandleTable& table = handleTable();
    std::lock_guard<std::mutex> hold(table.mutex);
    table.handles.emplace(handle, std::move(object));
    return handle;
}

std::shared_ptr<KernelObject> lookupObject(HANDLE handle) {
    HandleTable& table = handleTable();
    std::lock_guard<std::mutex> hold(table.mutex);
    auto found = table.handles.find(handle);
    return found == table.handles.end() ? nullptr : found->second;
}

bool closeHandle(HANDLE handle) {
    std::shared_ptr<KernelObject> closed;
    HandleTable& table = handleTable();
    std::lock_guard<std::mutex> hold(table.mutex);
    auto found = table.handles.find(handle);
    if (found == table.handles.end()) return false;
    // The object may die with its last handle; it is destroyed when `closed`
    // goes, after the table's lock is released.
    closed = std::move(found->second);
    table.handles.erase(found);
    return true;
}

NamedObject openOrCreateNamedObject(const std::wstring& name,
                                    const std::function<std::shared_ptr<KernelObject>()>& make) {
    HandleTable& table = handleTable();
    std::lock_guard<std::mutex> hold(table.mutex);
    std::weak_ptr<KernelObject>& entry = table.names[name];
    if (std::shared_ptr<KernelObject> living = entry.lock()) return {living, true};
    std::shared_ptr<KernelObject> made = make();
    entry = made;
    return {made, false};
}

size_t openHandleCount() {
    HandleTable& table = handleTable();
    std::lock_guard<std::mutex> hold(table.mutex);
    return table.handles.size();
}

size_t openHandleCount(const std::string& typeName) {
    HandleTable& table = handleTable();
    std::lock_guard<std::mutex> hold(table.mutex);
    size_t count = 0;
    for (const auto& entry : table.handles)
        if (typeName == entry.second->typeName()) ++count;
    return count;
}

}  // namespace simhost

// The pseudo-handles of the own process and thread are not in the table;
// closing them succeeds and does nothing, as on Windows.
BOOL WINAPI CloseHandle(HANDLE object) {
    if (DWORD e = simhost::injectedFailure("CloseHandle")) {
        SetLastError(e);
        return FALSE;
    }
    if (object == GetCurrentProcess() || object == GetCurrentThread() || simhost::closeHandle(object)) return TRUE;
    SetLastError(ERROR_INVALID_HANDLE);
    return FALSE;
}
