// The event log of the simulated machine: event sources registered by name,
// and every entry written through them kept in order for the host to read.
// No message files are involved: an entry keeps its event id and insertion
// strings as they were given.
#include "simhost/advapi32/advapi32.h"
#include "simhost/advapi32/advapi32_internal.h"
#include "simhost/core/host.h"
#include "simhost/kernel32/objects.h"

#include <mutex>
#include <unordered_map>

namespace simhost {
namespace advapi32 {
namespace {

// Beyond these the event log service refuses the entry (RPC_S_INVALID_BOUND).
constexpr DWORD kMaxRawDataSize = 0xF000;
constexpr size_t kMaxStringLength = 31839;

struct EventLogState {
    std::mutex mutex;
    std::unordered_map<HANDLE, std::wstring> sources;  // by event source handle
    std::vector<EventLogEntry> entries;
};

template <class Work>
auto withEventLog(Work work) {
    EventLogState& state = Host::get().state<EventLogState>();
    std::lock_guard<std::mutex> hold(state.mutex);
    return work(state);
}

// A SID's bytes by its published layout: an 8-byte head whose second byte
// counts the 32-bit sub-authorities that follow.
std::vector<BYTE> sidBytes(PSID sid) {
    if (!sid) return {};
    const BYTE* bytes = static_cast<const BYTE*>(sid);
    return std::vector<BYTE>(bytes, bytes + 8 + 4 * size_t{bytes[1]});
}

DWORD checkInsertionStrings(WORD count, LPCWSTR* strings) {
    if (count && !strings) return ERROR_INVALID_PARAMETER;
    for (WORD index = 0; index < count; ++index) {
        if (!strings[index]) return ERROR_INVALID_PARAMETER;
        if (std::wstring(strings[index]).size() > kMaxStringLength) return RPC_S_INVALID_BOUND;
    }
    return ERROR_SUCCESS;
}

DWORD checkRawData(DWORD dataSize, LPVOID rawData) {
    if (dataSize > kMaxRawDataSize) return RPC_S_INVALID_BOUND;
    return dataSize && !rawData ? ERROR_INVALID_PARAMETER : ERROR_SUCCESS;
}

EventLogEntry makeEntry(const std::wstring& source, WORD type, WORD category, DWORD eventId, PSID userSid,
                        WORD stringCount, DWORD dataSize, LPCWSTR* strings, LPVOID rawData) {
    const BYTE* data = static_cast<const BYTE*>(rawData);
    EventLogEntry entry{source, type, category, eventId, sidBytes(userSid), {}, {}};
    entry.strings.assign(strings, strings + stringCount);
    if (dataSize) entry.rawData.assign(data, data + dataSize);
    return entry;
}

}  // namespace

std::vector<EventLogEntry> eventLogEntries() {
    return withEventLog([](EventLogState& state) { return state.entries; });
}

size_t openEventSourceCount() {
    return withEventLog([](EventLogState& state) { return state.sources.size(); });
}

}  // namespace advapi32
}  // namespace simhost

using namespace simhost::advapi32;

// A handle for writing entries under the source's name. The machine has
// only its own log: another server name is RPC_S_SERVER_UNAVAILABLE.
HANDLE WINAPI RegisterEventSourceW(LPCWSTR serverName, LPCWSTR sourceName) {
    DWORD error = simhost::injectedFailure("RegisterEventSourceW");
    if (!error && serverName && *serverName) error = RPC_S_SERVER_UNAVAILABLE;
    if (!error && !sourceName) error = ERROR_INVALID_PARAMETER;
    if (error) return failHandle<HANDLE>(error);
    return withEventLog([&](EventLogState& state) {
        HANDLE handle = simhost::reserveHandleValue();
        state.sources[handle] = sourceName;
        return handle;
    });
}

// Appends an entry of any type, with the SID, insertion strings and raw data
// as given.
BOOL WINAPI ReportEventW(HANDLE eventLog, WORD type, WORD category, DWORD eventId, PSID userSid, WORD stringCount,
                         DWORD dataSize, LPCWSTR* strings, LPVOID rawData) {
    DWORD error = simhost::injectedFailure("ReportEventW");
    if (!error) error = checkInsertionStrings(stringCount, strings);
    if (!error) error = checkRawData(dataSize, rawData);
    if (!error) error = withEventLog([&](EventLogState& state) -> DWORD {
        auto source = state.sources.find(eventLog);
        if (source == state.sources.end()) return ERROR_INVALID_HANDLE;
        state.entries.push_back(
            makeEntry(source->second, type, category, eventId, userSid, stringCount, dataSize, strings, rawData));
        return ERROR_SUCCESS;
    });
    return succeedOrFail(error);
}

BOOL WINAPI DeregisterEventSource(HANDLE eventLog) {
    DWORD error = simhost::injectedFailure("DeregisterEventSource");
    if (!error) error = withEventLog([&](EventLogState& state) -> DWORD {
        return state.sources.erase(eventLog) ? ERROR_SUCCESS : ERROR_INVALID_HANDLE;
    });
    return succeedOrFail(error);
}
