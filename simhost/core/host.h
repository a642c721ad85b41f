// The model of one simulated Windows machine. One per process: every stand-in
// of the Windows API reads and changes the state held here, tests arrange and
// inspect it through this interface, and reset() turns it back into a new
// machine between tests.
#pragma once

#include "simhost/core/faults.h"
#include "simhost/wintypes.h"

#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace simhost {

class Host {
public:
    static Host& get();

    // Drops every component's state, every fault and drive mapping, and the
    // time scale. Nothing of the service may still run when it is called.
    void reset();

    // The state of one component (an object table, the registry, ...), made
    // on first use. Each component defines its own state type in its folder,
    // so adding a component never changes this class.
    template <class State>
    State& state() {
        // Each state type has a fixed slot, numbered on its first use: most
        // calls of the host ask for a state, so the look-up is an index.
        static const size_t slot = nextStateSlot();
        std::lock_guard<std::mutex> lock(mutex_);
        if (states_.size() <= slot) states_.resize(slot + 1);
        std::shared_ptr<void>& held = states_[slot];
        if (!held) held = std::make_shared<State>();
        return *static_cast<State*>(held.get());
    }

    // Drive letters map to directories of this machine: C:\ProgramData is
    // <directory of C>/ProgramData. Letters are case-insensitive.
    void mapDrive(wchar_t letter, const std::string& directory);
    std::string driveDirectory(wchar_t letter) const;
    // "C:\a\b" or "C:/a/b" to "<directory of C>/a/b". Empty when the path has
    // no drive letter or its drive is not mapped.
    std::string toNativePath(const std::wstring& windowsPath) const;

    // Platform waits (Sleep, WaitForSingleObject) last their time-out
    // multiplied by this factor, so that tests of 10-second limits run fast.
    // 1.0 (real time) unless a test or host file says otherwise.
    void setTimeScale(double factor);
    double timeScale() const;
    // A time-out in milliseconds after scaling; INFINITE stays INFINITE.
    uint64_t scaledMilliseconds(DWORD milliseconds) const;

    Faults& faults() { return faults_; }

private:
    Host() = default;

    mutable std::mutex mutex_;
    static size_t nextStateSlot();

    std::vector<std::shared_ptr<void>> states_;
    std::map<wchar_t, std::string> drives_;
    double timeScale_ = 1.0;
    Faults faults_;
};

// The entry check of every stand-in that can be made to fail: blocks or
// delays as arranged, then answers the error to fail with, or 0 to go on.
inline DWORD injectedFailure(const char* call) { return Host::get().faults().enter(call); }

}  // namespace simhost
