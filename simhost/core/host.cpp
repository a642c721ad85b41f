#include "simhost/core/host.h"

#include "simhost/core/text.h"

#include <atomic>
#include <cwctype>
#include <limits>

namespace simhost {

size_t Host::nextStateSlot() {
    static std::atomic<size_t> next{0};
    return next.fetch_add(1, std::memory_order_relaxed);
}

Host& Host::get() {
    static Host host;
    return host;
}

void Host::reset() {
    std::vector<std::shared_ptr<void>> dropped;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        dropped.swap(states_);
        drives_.clear();
        timeScale_ = 1.0;
    }
    faults_.clearAll();
    // `dropped` is destroyed here, outside the lock: a component's state may
    // call back into the host while it is torn down.
}

void Host::mapDrive(wchar_t letter, const std::string& directory) {
    std::lock_guard<std::mutex> lock(mutex_);
    std::string dir = directory;
    while (dir.size() > 1 && dir.back() == '/') dir.pop_back();
    drives_[static_cast<wchar_t>(std::towupper(letter))] = dir;
}

std::string Host::driveDirectory(wchar_t letter) const {
    std::lock_guard<std::mutex> lock(mutex_);
    auto it = drives_.find(static_cast<wchar_t>(std::towupper(letter)));
    return it == drives_.end() ? std::string() : it->second;
}

std::string Host::toNativePath(const std::wstring& windowsPath) const {
    if (windowsPath.size() < 2 || windowsPath[1] != L':' || !std::iswalpha(windowsPath[0])) return {};
    std::string native = driveDirectory(windowsPath[0]);
    if (native.empty()) return {};
    std::string tail = narrow(windowsPath.substr(2));
    for (char& c : tail)
        if (c == '\\') c = '/';
    if (!tail.empty() && tail[0] != '/') tail.insert(tail.begin(), '/');
    return native + tail;
}

void Host::setTimeScale(double factor) {
    std::lock_guard<std::mutex> lock(mutex_);
    timeScale_ = factor > 0 ? factor : 1.0;
}

double Host::timeScale() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return timeScale_;
}

uint64_t Host::scaledMilliseconds(DWORD milliseconds) const {
    if (milliseconds == INFINITE) return INFINITE;
    double scaled = static_cast<double>(milliseconds) * timeScale();
    return static_cast<uint64_t>(scaled + 0.5);
}

}  // namespace simhost
