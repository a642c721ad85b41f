// K32GetProcessMemoryInfo for the process itself, from Linux's accounting of
// this very process: the working set is the resident set, its peak the
// resident high-water mark, the page-file usage the private data and stack,
// the page faults the minor and major faults together. Pool quotas are 0.
#include "simhost/core/host.h"
#include "simhost/kernel32/kernel32.h"

#include <unistd.h>

#include <algorithm>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>

namespace simhost {
namespace kernel32 {
namespace {

constexpr DWORD kErrorNoAccess = 998;  // ERROR_NOACCESS
const HANDLE kCurrentProcess = reinterpret_cast<HANDLE>(static_cast<LONG_PTR>(-1));

struct LinuxMemory {
    SIZE_T resident = 0;
    SIZE_T peakResident = 0;
    SIZE_T privateBytes = 0;
    DWORD pageFaults = 0;
};

// Resident and private sizes from /proc/self/statm, in pages there.
bool readStatm(LinuxMemory& memory) {
    std::ifstream statm("/proc/self/statm");
    SIZE_T size = 0, shared = 0, text = 0, library = 0;
    if (!(statm >> size >> memory.resident >> shared >> text >> library >> memory.privateBytes)) return false;
    SIZE_T page = static_cast<SIZE_T>(sysconf(_SC_PAGESIZE));
    memory.resident *= page;
    memory.privateBytes *= page;
    return true;
}

// The resident high-water mark ("VmHWM:", in kB) from /proc/self/status.
SIZE_T readPeakResident() {
    std::ifstream status("/proc/self/status");
    std::string line;
    while (std::getline(status, line)) {
        if (line.rfind("VmHWM:", 0) != 0) continue;
        std::istringstream fields(line.substr(6));
        SIZE_T kilobytes = 0;
        fields >> kilobytes;
        return kilobytes * 1024;
    }
    return 0;
}

// Minor and major faults, fields 10 and 12 of /proc/self/stat. The fields
// are counted after the command name, which ends with the last ')'.
DWORD readPageFaults() {
    std::ifstream stat("/proc/self/stat");
    std::string all((std::istreambuf_iterator<char>(stat)), std::istreambuf_iterator<char>());
    size_t close = all.rfind(')');
    if (close == std::string::npos) return 0;
    std::istringstream fields(all.substr(close + 1));
    std::string skipped;
    for (int field = 3; field < 10; ++field) fields >> skipped;
    unsigned long long minor = 0, childMinor = 0, major = 0;
    fields >> minor >> childMinor >> major;
    return static_cast<DWORD>(minor + major);
}

void fillCounters(const LinuxMemory& memory, PPROCESS_MEMORY_COUNTERS counters) {
    counters->PageFaultCount = memory.pageFaults;
    counters->PeakWorkingSetSize = std::max(memory.peakResident, memory.resident);
    counters->WorkingSetSize = memory.resident;
    counters->QuotaPeakPagedPoolUsage = 0;
    counters->QuotaPagedPoolUsage = 0;
    counters->QuotaPeakNonPagedPoolUsage = 0;
    counters->QuotaNonPagedPoolUsage = 0;
    counters->PagefileUsage = memory.privateBytes;
    counters->PeakPagefileUsage = memory.privateBytes;
}

BOOL fail(DWORD error) {
    SetLastError(error);
    return FALSE;
}

}  // namespace
}  // namespace kernel32
}  // namespace simhost

// Only the process itself (the GetCurrentProcess pseudo-handle) can be asked.
// A record smaller than PROCESS_MEMORY_COUNTERS fails with
// ERROR_INSUFFICIENT_BUFFER; the caller's cb is left as it set it.
BOOL WINAPI K32GetProcessMemoryInfo(HANDLE process, PPROCESS_MEMORY_COUNTERS counters, DWORD size) {
    using namespace simhost::kernel32;
    if (DWORD error = simhost::injectedFailure("K32GetProcessMemoryInfo")) return fail(error);
    if (process != kCurrentProcess) return fail(ERROR_INVALID_HANDLE);
    if (!counters) return fail(kErrorNoAccess);
    if (size < sizeof(PROCESS_MEMORY_COUNTERS)) return fail(ERROR_INSUFFICIENT_BUFFER);
    LinuxMemory memory;
    if (!readStatm(memory)) return fail(ERROR_GEN_FAILURE);
    memory.peakResident = readPeakResident();
    memory.pageFaults = readPageFaults();
    fillCounters(memory, counters);
    return TRUE;
}
