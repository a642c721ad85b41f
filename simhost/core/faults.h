// Fault injection: any named Windows call of the simulated host can be made
// to fail with a chosen error, to block until released, or to be slow. The
// service's failure paths are tested through these, never by changing it.
#pragma once

#include "simhost/wintypes.h"

#include <condition_variable>
#include <map>
#include <mutex>
#include <string>
#include <string_view>

namespace simhost {

class Faults {
public:
    static constexpr int kAlways = -1;

    // After `passing` more calls go through, the next `times` calls (or all,
    // with kAlways) fail with `error`.
    void failCall(const std::string& call, DWORD error, int times = kAlways, int passing = 0);
    // Calls wait on entry until releaseCall; blockedCount tells how many wait.
    void blockCall(const std::string& call);
    void releaseCall(const std::string& call);
    size_t blockedCount(const std::string& call) const;
    // Waits until at least `count` calls wait in a block of `call`, for at
    // most `timeoutMs` real milliseconds; false when they did not come.
    bool waitUntilBlocked(const std::string& call, size_t count = 1, unsigned timeoutMs = 10000) const;
    // Calls wait this many real milliseconds on entry before they proceed.
    void delayCall(const std::string& call, DWORD milliseconds);
    // Drops every arrangement for one call, or for all, releasing blocked calls.
    void clear(const std::string& call);
    void clearAll();
    // How often the call was entered since the last clearAll.
    size_t callCount(const std::string& call) const;

    // Called by the stand-in on entry: counts, blocks or delays as arranged,
    // and answers the error to fail with, or 0.
    DWORD enter(std::string_view call);
    // Lets every blocked or delayed call look again whether its thread is to
    // end.
    void wakeWaiters();

private:
    struct Arrangement {
        DWORD error = 0;
        int failuresLeft = 0;
        int passesLeft = 0;
        bool blocked = false;
        size_t waiting = 0;
        DWORD delay = 0;
        size_t calls = 0;
    };

    mutable std::mutex mutex_;
    std::condition_variable released_;
    mutable std::condition_variable blocked_;
    // Looked up by a view of the name: the stand-ins enter on every call.
    std::map<std::string, Arrangement, std::less<>> calls_;
};

}  // namespace simhost
