// Who owns a TCP connection: the look-up in the system's connection table,
// and the verb that reports the owner with its ancestry.
#include "printers/TcpProcessInfo.h"

#include "channel/SenderVetting.h"
#include "foundation/JsonGetters.h"
#include "foundation/StaticLogger.h"
#include "foundation/TextConversion.h"
#include "service/VexorPrintingService.h"

#include <cstdint>
#include <cstdlib>
#include <set>

namespace {

// What getTCPOwnerPid answers when the table cannot be read.
constexpr DWORD kTableUnreadable = 1;
// The ancestry stops at the level whose count, before it goes up, is above
// this: 102 levels are filled at most.
constexpr int kMaxAncestorCount = 100;
// Device-form image names are read into this many characters.
constexpr DWORD kImageNameCapacity = MAX_PATH;
constexpr unsigned kMaxPort = 65535;

}  // namespace

DWORD PrinterUtil::getTCPOwnerPid(const sockaddr_in& endpoint) {
    DWORD size = 0;
    DWORD result = GetExtendedTcpTable(nullptr, &size, TRUE, AF_INET, TCP_TABLE_OWNER_PID_CONNECTIONS, 0);
    if (result != ERROR_INSUFFICIENT_BUFFER && result != NO_ERROR) {
        VX_LOG(kLogNormal, kNoLastError, 2, "Failed to get size estimation %u", static_cast<unsigned>(result));
        return kTableUnreadable;
    }
    // A block of its own for each call: the table is read afresh every time.
    auto* table = static_cast<MIB_TCPTABLE_OWNER_PID*>(std::malloc(size));
    if (!table) {
        VX_LOG(kLogError, kWithLastError, 5, "malloc");
        return kTableUnreadable;
    }
    result = GetExtendedTcpTable(table, &size, TRUE, AF_INET, TCP_TABLE_OWNER_PID_CONNECTIONS, 0);
    if (result != NO_ERROR) {
        VX_LOG(kLogNormal, kNoLastError, 2, "Failed to get TCP Table %u", static_cast<unsigned>(result));
        std::free(table);
        return kTableUnreadable;
    }
    // The peer's own row has its address as the local end; the service's row
    // of the same connection has it as the remote end and is not the match.
    const MIB_TCPROW_OWNER_PID* rows = table->table;
    DWORD owner = 0;
    for (DWORD i = 0; i < table->dwNumEntries; ++i) {
        if (rows[i].dwLocalPort != endpoint.sin_port || rows[i].dwLocalAddr != endpoint.sin_addr.s_addr) continue;
        owner = rows[i].dwOwningPid;
        VX_LOG(kLogNormal, kNoLastError, 2, "Communicating Pid:%u", static_cast<unsigned>(owner));
        break;
    }
    std::free(table);
    return owner;
}

// The owner of a TCP endpoint and its ancestors, each level nested in the one
// before as "ParentInfo". Only a bad request or an endpoint without owner
// fails; after that a level that cannot be read fully only lacks keys.
Json::Value VexorPrintingService::_getTcpProcessInfo(const Json::Value& request) {
    // Fills one level: id, and session and device-form image path where they
    // can be had.
    auto describeProcess = [](DWORD processId, Json::Value& level) {
        level["ProcessId"] = Json::Value(static_cast<Json::UInt>(processId));
        DWORD session = 0;
        if (ProcessIdToSessionId(processId, &session)) level["SessionId"] = Json::Value(static_cast<int>(session));
        HANDLE process = OpenProcess(PROCESS_QUERY_LIMITED_INFORMATION, FALSE, processId);
        if (!process) {
            if (GetLastError() != 0)
                VX_LOG(kLogError, kWithLastError, 4, "Failed to open process %u to check name",
                       static_cast<unsigned>(processId));
            else
                VX_LOG(kLogNormal, kNoLastError, 2, "Failed to open process %u to check name",
                       static_cast<unsigned>(processId));
            return;
        }
        wchar_t imageName[kImageNameCapacity] = {0};
        if (K32GetProcessImageFileNameW(process, imageName, kImageNameCapacity))
            level["Path"] = wideToUtf8(imageName);
        else
            VX_LOG(kLogError, kWithLastError, 4, "Failed to get name for process %u", static_cast<unsigned>(processId));
        if (!CloseHandle(process)) VX_LOG(kLogError, kWithLastError, 2, "Failed to close process handle");
    };

    Json::Value reply(Json::objectValue);
    const std::string ip = getJsonString("IP", request, "");
    if (ip.empty()) {
        reply["err"] = "no/bad IP field given";
        return reply;
    }
    // All ones is also 255.255.255.255, which is refused with the rest.
    const auto address = inet_addr(ip.c_str());
    if (address == INADDR_NONE) {
        reply["err"] = "Invalid IP field given:";
        return reply;
    }
    const unsigned port = getJsonUInt("Port", request, 0);
    if (port < 1 || port > kMaxPort) {
        reply["err"] = "no/bad Port field given";
        return reply;
    }
    sockaddr_in endpoint = {};
    endpoint.sin_family = AF_INET;
    endpoint.sin_addr.s_addr = address;
    // Taken as it stands: the caller gives the port in network byte order,
    // the order of the table it is compared with.
    endpoint.sin_port = static_cast<u_short>(port);
    VX_LOG(kLogNormal, kNoLastError, 2, "Looking up IP:%s:%u", inet_ntoa(endpoint.sin_addr),
           static_cast<unsigned>(static_cast<int>(static_cast<int16_t>(port))));

    DWORD processId = PrinterUtil::getTCPOwnerPid(endpoint);
    if (processId == 0) {
        reply["err"] = "Unable to get pid from IP";
        return reply;
    }
    Json::Value& info = reply["ProcessInfo"] = Json::Value(Json::objectValue);
    Json::Value* current = &info;
    std::set<DWORD> seen;
    for (int count = 0;; ++count) {
        // A loop in the parent ids leaves the level made for the repeated id
        // empty.
        if (!seen.insert(processId).second) {
            VX_LOG(kLogError, kNoLastError, 5, "Parent pid loop:%u  Breaking", static_cast<unsigned>(processId));
            break;
        }
        describeProcess(processId, *current);
        processId = getParentProcessId(processId);
        if (processId == 0) break;
        if (count > kMaxAncestorCount) {
            VX_LOG(kLogError, kNoLastError, 5, "Too many ancestors. Potential infinte loop.  Breaking");
            break;
        }
        current = &((*current)["ParentInfo"] = Json::Value(Json::objectValue));
    }
    return reply;
}
