// The process table of the machine and the drive devices of device-form
// paths: the state behind OpenProcess, the image-name calls, sessions and
// snapshots, and the API through which tests and host files arrange it.
#include "simhost/kernel32/process_table.h"

#include "simhost/advapi32/security.h"
#include "simhost/core/host.h"
#include "simhost/kernel32/kernel32.h"

#include <algorithm>
#include <cwctype>
#include <map>
#include <stdexcept>

namespace simhost {
namespace kernel32 {
namespace {

constexpr DWORD kSystemProcessId = 4;
// Ids of started processes count up from here.
constexpr DWORD kFirstStartedId = 8000;

struct ProcessTable {
    std::mutex mutex;
    // In the order the processes were added; exited ones stay, as their ids
    // may still be named as parents.
    std::vector<std::shared_ptr<Process>> processes;
    std::map<wchar_t, std::wstring> deviceNames;
    DWORD lastStartedId = kFirstStartedId;

    // A new machine: the System Idle Process, System and the service. The
    // constructor runs under the host's lock, so it must not call the host.
    ProcessTable() {
        processes.push_back(std::make_shared<Process>(ProcessRecord{0, 0, 0, L"[System Process]"}, false));
        processes.push_back(std::make_shared<Process>(
            ProcessRecord{kSystemProcessId, 0, 0, L"System", ProcessProtection::CannotOpen}, false));
        processes.push_back(std::make_shared<Process>(ProcessRecord{0, 0, 0, kServiceImagePath}, true));
    }
};

ProcessTable& processTable() { return Host::get().state<ProcessTable>(); }

wchar_t driveLetterOf(const std::wstring& path) {
    if (path.size() < 2 || path[1] != L':' || !std::iswalpha(path[0])) return 0;
    return static_cast<wchar_t>(std::towupper(path[0]));
}

std::wstring defaultDeviceName(wchar_t drive) {
    return L"\\Device\\HarddiskVolume" + std::to_wstring(drive - L'A' + 1);
}

// The position of the running process of that id in the table, or end.
std::vector<std::shared_ptr<Process>>::iterator findRunning(ProcessTable& table, DWORD processId,
                                                            DWORD currentProcessId) {
    return std::find_if(table.processes.begin(), table.processes.end(), [&](const std::shared_ptr<Process>& p) {
        return !p->exited() && p->id(currentProcessId) == processId;
    });
}

// The "S-1-..." form of a SID text, so that tokens and reports show one
// form; empty stays empty. Throws SecurityTextError, an invalid_argument.
std::wstring sidInStandardForm(const std::wstring& text) {
    return text.empty() ? text : sidToText(sidFromText(text).data());
}

ProcessRecord withStandardSids(ProcessRecord record) {
    record.userSid = sidInStandardForm(record.userSid);
    record.logonSid = sidInStandardForm(record.logonSid);
    return record;
}

}  // namespace

Process::Process(ProcessRecord record, bool isServiceProcess)
    : record_(std::move(record)),
      isServiceProcess_(isServiceProcess),
      exited_(record_.exited),
      exitCode_(record_.exited ? 0 : STILL_ACTIVE) {}

ProcessRecord Process::describe(DWORD currentProcessId) const {
    ProcessRecord described = record_;
    described.processId = id(currentProcessId);
    described.exited = exited_;
    return described;
}

void Process::exit(DWORD exitCode) {
    std::lock_guard<std::mutex> hold(handlesMutex_);
    if (!exited_) exitCode_ = exitCode;
    exited_ = true;
    for (const std::weak_ptr<ExitSignal>& handle : handles_)
        if (std::shared_ptr<ExitSignal> open = handle.lock()) open->wake();
}

void Process::attach(const std::shared_ptr<ExitSignal>& handle) {
    std::lock_guard<std::mutex> hold(handlesMutex_);
    // Handles already closed leave expired entries; drop them as we go.
    handles_.erase(std::remove_if(handles_.begin(), handles_.end(),
                                  [](const std::weak_ptr<ExitSignal>& h) { return h.expired(); }),
                   handles_.end());
    handles_.push_back(handle);
}

std::shared_ptr<Process> startProcess(ProcessRecord record) {
    DWORD current = GetCurrentProcessId();
    ProcessTable& table = processTable();
    std::lock_guard<std::mutex> hold(table.mutex);
    auto used = [&](DWORD id) {
        return id == current || std::any_of(table.processes.begin(), table.processes.end(),
                                            [&](const std::shared_ptr<Process>& p) { return p->id(current) == id; });
    };
    do table.lastStartedId += 4;
    while (used(table.lastStartedId));
    record.processId = table.lastStartedId;
    table.processes.push_back(std::make_shared<Process>(std::move(record), false));
    return table.processes.back();
}

std::shared_ptr<Process> findRunningProcess(DWORD processId) {
    DWORD current = GetCurrentProcessId();
    ProcessTable& table = processTable();
    std::lock_guard<std::mutex> hold(table.mutex);
    auto found = findRunning(table, processId, current);
    return found == table.processes.end() ? nullptr : *found;
}

std::shared_ptr<ProcessHandle> processHandleOf(HANDLE process) {
    if (process != GetCurrentProcess()) return lookupHandle<ProcessHandle>(process);
    std::shared_ptr<Process> self = findRunningProcess(GetCurrentProcessId());
    return self ? std::make_shared<ProcessHandle>(self, ~0u) : nullptr;
}

bool hasImageFile(const ProcessRecord& record) { return driveLetterOf(record.imagePath) != 0; }

std::wstring executableName(const ProcessRecord& record) {
    size_t lastSeparator = record.imagePath.find_last_of(L"\\/");
    return lastSeparator == std::wstring::npos ? record.imagePath : record.imagePath.substr(lastSeparator + 1);
}

void addProcess(const ProcessRecord& process) {
    ProcessRecord record = withStandardSids(process);
    DWORD current = GetCurrentProcessId();
    ProcessTable& table = processTable();
    std::lock_guard<std::mutex> hold(table.mutex);
    auto running = findRunning(table, process.processId, current);
    if (running != table.processes.end()) {
        if (!(*running)->isServiceProcess())
            throw std::invalid_argument("a running process already has id " + std::to_string(process.processId));
        table.processes.erase(running);
    }
    table.processes.push_back(std::make_shared<Process>(std::move(record), false));
}

bool markExited(DWORD processId) {
    std::shared_ptr<Process> process = findRunningProcess(processId);
    if (!process) return false;
    process->exit();
    return true;
}

bool removeProcess(DWORD processId) {
    DWORD current = GetCurrentProcessId();
    std::vector<std::shared_ptr<Process>> removed;
    {
        ProcessTable& table = processTable();
        std::lock_guard<std::mutex> hold(table.mutex);
        auto isOther = [&](const std::shared_ptr<Process>& p) { return p->id(current) != processId; };
        auto kept = std::stable_partition(table.processes.begin(), table.processes.end(), isOther);
        removed.assign(kept, table.processes.end());
        table.processes.erase(kept, table.processes.end());
    }
    // A removed process is gone for its open handles too.
    for (const std::shared_ptr<Process>& process : removed) process->exit();
    return !removed.empty();
}

std::vector<ProcessRecord> processes() {
    DWORD current = GetCurrentProcessId();
    ProcessTable& table = processTable();
    std::lock_guard<std::mutex> hold(table.mutex);
    std::vector<ProcessRecord> records;
    for (const std::shared_ptr<Process>& process : table.processes) records.push_back(process->describe(current));
    return records;
}

void setDeviceName(wchar_t drive, const std::wstring& deviceName) {
    ProcessTable& table = processTable();
    std::lock_guard<std::mutex> hold(table.mutex);
    table.deviceNames[static_cast<wchar_t>(std::towupper(drive))] = deviceName;
}

std::wstring deviceFormPath(const std::wstring& drivePath) {
    wchar_t drive = driveLetterOf(drivePath);
    if (!drive) return {};
    ProcessTable& table = processTable();
    std::lock_guard<std::mutex> hold(table.mutex);
    auto named = table.deviceNames.find(drive);
    std::wstring device = named == table.deviceNames.end() ? defaultDeviceName(drive) : named->second;
    return device + drivePath.substr(2);
}

}  // namespace kernel32
}  // namespace simhost
