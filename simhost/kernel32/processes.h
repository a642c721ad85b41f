// The process table of the simulated host: the processes of the machine with
// their parent, session, image and account, as OpenProcess, the image-name
// calls, ProcessIdToSessionId, toolhelp snapshots and OpenProcessToken see
// them. Tests and host files arrange it here.
//
// A new machine holds three processes: the System Idle Process (id 0, named
// "[System Process]"), System (id 4, which cannot be opened), and the service
// process itself, whose id is GetCurrentProcessId() at the time of each
// look-up, in session 0, with kServiceImagePath as its image, running as the
// local system account. All three have parent 0.
#pragma once

#include "simhost/wintypes.h"

#include <string>
#include <vector>

namespace simhost {
namespace kernel32 {

// What keeps the service from a process's name.
enum class ProcessProtection {
    None,
    // OpenProcess answers ERROR_ACCESS_DENIED, whatever the rights asked.
    CannotOpen,
    // OpenProcess succeeds; both image-name calls answer ERROR_ACCESS_DENIED.
    CannotName,
};

struct ProcessRecord {
    DWORD processId = 0;
    DWORD parentProcessId = 0;
    DWORD sessionId = 0;
    // Drive form, "C:\Program Files\...\x.exe". A text without a drive
    // ("System") only names the process in snapshots: it has no image file,
    // and its image-name calls fail as with CannotName.
    std::wstring imagePath;
    ProcessProtection protection = ProcessProtection::None;
    // An exited process is gone for every call (its id is unknown), while
    // its children still name it as their parent.
    bool exited = false;
    // The account of the process's token, as SID text; empty for the
    // session's default, simhost::sessionUserSid (advapi32/tokens.h): the
    // local system account in session 0, a user of the machine otherwise.
    std::wstring userSid = {};
    // The logon SID of its token; empty for the session's default,
    // simhost::sessionLogonSid, which every process of the session shares.
    std::wstring logonSid = {};
    // A token without a logon SID, as some service and network logons have.
    bool noLogonSid = false;
};

constexpr const wchar_t* kServiceImagePath = L"C:\\Program Files\\Quillion\\VexorAgent\\VexorPrintingService.exe";

// Adds a process. A record with the id the service process has now replaces
// the service's own entry (set that id with setCurrentProcessId first). SID
// texts are kept in their "S-1-..." form ("SY" becomes "S-1-5-18").
// Throws std::invalid_argument when a process of that id is still running,
// or for a user or logon SID that is not a SID text.
void addProcess(const ProcessRecord& process);
// The process has ended: false if no running process has that id. Waits on
// its handles end; handles open to it keep answering its image name.
bool markExited(DWORD processId);
// Forgets every record of that id, running or exited: false if none.
bool removeProcess(DWORD processId);
// Every record, exited ones included, in the order they were added.
std::vector<ProcessRecord> processes();

// The device a drive letter stands for in device-form paths. By default
// drive C is "\Device\HarddiskVolume3", and every letter the volume of its
// place in the alphabet (A 1, B 2, D 4, ...).
void setDeviceName(wchar_t drive, const std::wstring& deviceName);
// "C:\dir\x.exe" as "\Device\HarddiskVolume3\dir\x.exe"; empty for a path
// without a drive.
std::wstring deviceFormPath(const std::wstring& drivePath);

}  // namespace kernel32
}  // namespace simhost
