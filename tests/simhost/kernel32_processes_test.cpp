// The process table of the simulated host: OpenProcess, the image names, the
// session of a process and toolhelp snapshots.
#include "simhost/core/host.h"
#include "simhost/kernel32/kernel32.h"
#include "simhost/kernel32/objects.h"
#include "simhost/kernel32/processes.h"
#include "simhost/kernel32/threads.h"
#include "simhost/kernel32/toolhelp.h"

#include "kernel32_test_helpers.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

using simhost::kernel32::ProcessProtection;
using simhost::kernel32::ProcessRecord;

namespace {

constexpr DWORD kUntouched = 0xDEADBEEF;
constexpr DWORD kLoaderId = 5000;
constexpr DWORD kSessionHostId = 4000;
const std::wstring kLoaderPath = L"C:\\Program Files\\Quillion\\VexorAgent\\vexor_vchan_loader.exe";
const std::wstring kLoaderDevicePath =
    L"\\Device\\HarddiskVolume3\\Program Files\\Quillion\\VexorAgent\\vexor_vchan_loader.exe";

class Processes : public ::testing::Test {
protected:
    void SetUp() override {
        simhost::Host::get().reset();
        // A fixed id of our own, so that the test never depends on the real one.
        simhost::setCurrentProcessId(4242);
        simhost::kernel32::addProcess({kLoaderId, kSessionHostId, 2, kLoaderPath});
    }
    void TearDown() override { simhost::Host::get().reset(); }

    static HANDLE openLoader(DWORD access = PROCESS_QUERY_LIMITED_INFORMATION) {
        HANDLE process = OpenProcess(access, FALSE, kLoaderId);
        EXPECT_NE(process, nullptr);
        return process;
    }
};

std::wstring moduleFileName(HANDLE process, DWORD size, DWORD& answer) {
    std::vector<WCHAR> buffer(size + 1, L'#');
    buffer[size] = L'\0';
    answer = K32GetModuleFileNameExW(process, nullptr, buffer.data(), size);
    return std::wstring(buffer.data());
}

std::wstring imageFileName(HANDLE process, DWORD size, DWORD& answer) {
    std::vector<WCHAR> buffer(size + 1, L'#');
    buffer[size] = L'\0';
    answer = K32GetProcessImageFileNameW(process, buffer.data(), size);
    return std::wstring(buffer.data());
}

PROCESSENTRY32W freshEntry() {
    PROCESSENTRY32W entry = {};
    entry.dwSize = sizeof entry;
    return entry;
}

struct Listed {
    DWORD id;
    DWORD parent;
    std::wstring name;
};

// Every entry of the snapshot, walked as callers do.
std::vector<Listed> walk(HANDLE snapshot) {
    std::vector<Listed> listed;
    PROCESSENTRY32W entry = freshEntry();
    for (BOOL more = Process32FirstW(snapshot, &entry); more; more = Process32NextW(snapshot, &entry))
        listed.push_back({entry.th32ProcessID, entry.th32ParentProcessID, entry.szExeFile});
    return listed;
}

std::vector<Listed> listProcesses() {
    HANDLE snapshot = CreateToolhelp32Snapshot(TH32CS_SNAPPROCESS, 0);
    EXPECT_NE(snapshot, INVALID_HANDLE_VALUE);
    std::vector<Listed> listed = walk(snapshot);
    EXPECT_TRUE(CloseHandle(snapshot));
    return listed;
}

bool listsId(const std::vector<Listed>& listed, DWORD id) {
    for (const Listed& process : listed)
        if (process.id == id) return true;
    return false;
}

// ---- The table ----

TEST(ProcessTable, NewMachineHoldsIdleSystemAndTheService) {
    simhost::Host::get().reset();
    std::vector<ProcessRecord> all = simhost::kernel32::processes();
    ASSERT_EQ(all.size(), 3u);
    EXPECT_EQ(all[0].processId, 0u);
    EXPECT_EQ(all[0].imagePath, L"[System Process]");
    EXPECT_EQ(all[1].processId, 4u);
    EXPECT_EQ(all[1].imagePath, L"System");
    EXPECT_EQ(all[1].protection, ProcessProtection::CannotOpen);
    EXPECT_EQ(all[2].processId, GetCurrentProcessId());
    EXPECT_EQ(all[2].sessionId, 0u);
    EXPECT_EQ(all[2].parentProcessId, 0u);
    EXPECT_EQ(all[2].imagePath, simhost::kernel32::kServiceImagePath);
    for (const ProcessRecord& process : all) EXPECT_FALSE(process.exited);
}

TEST(ProcessTable, ServiceEntryTakesTheIdTheHostGivesTheService) {
    simhost::Host::get().reset();
    simhost::setCurrentProcessId(4242);
    EXPECT_EQ(simhost::kernel32::processes()[2].processId, 4242u);
    DWORD session = kUntouched;
    EXPECT_TRUE(ProcessIdToSessionId(4242, &session));
    EXPECT_EQ(session, 0u);
    simhost::Host::get().reset();
}

TEST_F(Processes, AddedProcessesFollowInTheOrderAdded) {
    simhost::kernel32::addProcess({kSessionHostId, 700, 2, L"C:\\Windows\\System32\\rdpclip.exe"});
    std::vector<ProcessRecord> all = simhost::kernel32::processes();
    ASSERT_EQ(all.size(), 5u);
    EXPECT_EQ(all[3].processId, kLoaderId);
    EXPECT_EQ(all[3].parentProcessId, kSessionHostId);
    EXPECT_EQ(all[3].sessionId, 2u);
    EXPECT_EQ(all[3].imagePath, kLoaderPath);
    EXPECT_EQ(all[4].processId, kSessionHostId);
}

TEST_F(Processes, AnIdOfARunningProcessCannotBeAddedAgain) {
    EXPECT_THROW(simhost::kernel32::addProcess({kLoaderId, 1, 1, L"C:\\x.exe"}), std::invalid_argument);
    EXPECT_THROW(simhost::kernel32::addProcess({4, 1, 1, L"C:\\x.exe"}), std::invalid_argument);
}

TEST_F(Processes, TheIdOfAnExitedProcessCanBeGivenToANewOne) {
    ASSERT_TRUE(simhost::kernel32::markExited(kLoaderId));
    simhost::kernel32::addProcess({kLoaderId, 1, 3, L"C:\\reused.exe"});
    std::vector<ProcessRecord> all = simhost::kernel32::processes();
    ASSERT_EQ(all.size(), 5u);
    EXPECT_TRUE(all[3].exited);
    EXPECT_FALSE(all[4].exited);
    DWORD session = kUntouched;
    EXPECT_TRUE(ProcessIdToSessionId(kLoaderId, &session));
    EXPECT_EQ(session, 3u);
}

TEST_F(Processes, ARecordWithTheServiceIdReplacesTheServiceEntry) {
    simhost::setCurrentProcessId(4242);
    simhost::kernel32::addProcess({4242, 600, 0, L"C:\\Service\\other.exe"});
    std::vector<ProcessRecord> all = simhost::kernel32::processes();
    ASSERT_EQ(all.size(), 4u);
    EXPECT_EQ(all[3].processId, 4242u);
    EXPECT_EQ(all[3].imagePath, L"C:\\Service\\other.exe");
    EXPECT_EQ(all[3].parentProcessId, 600u);
}

TEST_F(Processes, MarkExitedAndRemoveAnswerWhetherTheyFoundTheProcess) {
    EXPECT_FALSE(simhost::kernel32::markExited(9999));
    EXPECT_TRUE(simhost::kernel32::markExited(kLoaderId));
    EXPECT_FALSE(simhost::kernel32::markExited(kLoaderId));
    EXPECT_TRUE(simhost::kernel32::removeProcess(kLoaderId));
    EXPECT_FALSE(simhost::kernel32::removeProcess(kLoaderId));
    EXPECT_EQ(simhost::kernel32::processes().size(), 3u);
}

TEST_F(Processes, DeviceFormReplacesTheDriveWithItsVolume) {
    EXPECT_EQ(simhost::kernel32::deviceFormPath(L"C:\\a\\b.exe"), L"\\Device\\HarddiskVolume3\\a\\b.exe");
    EXPECT_EQ(simhost::kernel32::deviceFormPath(L"d:\\b.exe"), L"\\Device\\HarddiskVolume4\\b.exe");
    EXPECT_EQ(simhost::kernel32::deviceFormPath(L"System"), L"");
    simhost::kernel32::setDeviceName(L'c', L"\\Device\\HarddiskVolume7");
    EXPECT_EQ(simhost::kernel32::deviceFormPath(L"C:\\a\\b.exe"), L"\\Device\\HarddiskVolume7\\a\\b.exe");
}

// ---- OpenProcess ----

TEST_F(Processes, OpenProcessGivesAHandleThatClosesOnce) {
    SetLastError(kUntouched);
    HANDLE process = openLoader();
    EXPECT_NE(process, INVALID_HANDLE_VALUE);
    EXPECT_EQ(GetLastError(), kUntouched);
    EXPECT_EQ(simhost::openHandleCount("Process"), 1u);
    HANDLE second = openLoader();
    EXPECT_NE(second, process);
    EXPECT_TRUE(CloseHandle(process));
    EXPECT_TRUE(CloseHandle(second));
    EXPECT_FALSE(CloseHandle(process));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_HANDLE));
    EXPECT_EQ(simhost::openHandleCount("Process"), 0u);
}

TEST_F(Processes, OpenProcessRefusesTheIdleProcessAndUnknownIds) {
    for (DWORD id : {0u, 9999u}) {
        SetLastError(kUntouched);
        EXPECT_EQ(OpenProcess(PROCESS_QUERY_LIMITED_INFORMATION, FALSE, id), nullptr);
        EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_PARAMETER)) << id;
    }
}

TEST_F(Processes, AnExitedProcessCannotBeOpened) {
    ASSERT_TRUE(simhost::kernel32::markExited(kLoaderId));
    EXPECT_EQ(OpenProcess(PROCESS_QUERY_LIMITED_INFORMATION, FALSE, kLoaderId), nullptr);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_PARAMETER));
}

TEST_F(Processes, SystemAndProcessesThatCannotBeOpenedAreAccessDenied) {
    simhost::kernel32::addProcess({600, 4, 0, L"C:\\Windows\\System32\\csrss.exe", ProcessProtection::CannotOpen});
    for (DWORD id : {4u, 600u}) {
        EXPECT_EQ(OpenProcess(PROCESS_QUERY_LIMITED_INFORMATION, FALSE, id), nullptr);
        EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_ACCESS_DENIED)) << id;
    }
    EXPECT_EQ(simhost::openHandleCount("Process"), 0u);
}

// ---- Image names ----

TEST_F(Processes, ModuleFileNameIsTheDriveFormPath) {
    HANDLE process = openLoader();
    SetLastError(kUntouched);
    DWORD answer = 0;
    EXPECT_EQ(moduleFileName(process, MAX_PATH, answer), kLoaderPath);
    EXPECT_EQ(answer, kLoaderPath.size());
    EXPECT_EQ(GetLastError(), kUntouched);
    CloseHandle(process);
}

TEST_F(Processes, ModuleFileNameIsCutToTheBufferAndStillSucceeds) {
    HANDLE process = openLoader();
    SetLastError(kUntouched);
    DWORD answer = 0;
    EXPECT_EQ(moduleFileName(process, 10, answer), kLoaderPath.substr(0, 9));
    EXPECT_EQ(answer, 9u);
    EXPECT_EQ(GetLastError(), kUntouched);
    EXPECT_EQ(moduleFileName(process, static_cast<DWORD>(kLoaderPath.size()), answer),
              kLoaderPath.substr(0, kLoaderPath.size() - 1));
    EXPECT_EQ(answer, kLoaderPath.size() - 1);
    CloseHandle(process);
}

TEST_F(Processes, ModuleFileNameWithoutRoomFails) {
    HANDLE process = openLoader();
    DWORD answer = 1;
    moduleFileName(process, 0, answer);
    EXPECT_EQ(answer, 0u);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INSUFFICIENT_BUFFER));
    CloseHandle(process);
}

TEST_F(Processes, ModuleFileNameOfAnotherModuleIsInvalidHandle) {
    HANDLE process = openLoader();
    WCHAR buffer[MAX_PATH];
    EXPECT_EQ(K32GetModuleFileNameExW(process, reinterpret_cast<HMODULE>(0x10000), buffer, MAX_PATH), 0u);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_HANDLE));
    CloseHandle(process);
}

TEST_F(Processes, ImageFileNameIsTheDeviceFormPath) {
    HANDLE process = openLoader();
    SetLastError(kUntouched);
    DWORD answer = 0;
    EXPECT_EQ(imageFileName(process, MAX_PATH, answer), kLoaderDevicePath);
    EXPECT_EQ(answer, kLoaderDevicePath.size());
    EXPECT_EQ(imageFileName(process, static_cast<DWORD>(kLoaderDevicePath.size() + 1), answer), kLoaderDevicePath);
    EXPECT_EQ(GetLastError(), kUntouched);
    simhost::kernel32::setDeviceName(L'C', L"\\Device\\HarddiskVolume2");
    EXPECT_EQ(imageFileName(process, MAX_PATH, answer),
              L"\\Device\\HarddiskVolume2\\Program Files\\Quillion\\VexorAgent\\vexor_vchan_loader.exe");
    CloseHandle(process);
}

TEST_F(Processes, ImageFileNameWithoutRoomForItsNulFailsAndWritesNothing) {
    HANDLE process = openLoader();
    DWORD answer = 1;
    std::wstring untouched(kLoaderDevicePath.size(), L'#');
    EXPECT_EQ(imageFileName(process, static_cast<DWORD>(kLoaderDevicePath.size()), answer), untouched);
    EXPECT_EQ(answer, 0u);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INSUFFICIENT_BUFFER));
    CloseHandle(process);
}

TEST_F(Processes, NamesNeedAQueryRight) {
    HANDLE readOnly = openLoader(PROCESS_VM_READ);
    DWORD answer = 1;
    moduleFileName(readOnly, MAX_PATH, answer);
    EXPECT_EQ(answer, 0u);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_ACCESS_DENIED));
    imageFileName(readOnly, MAX_PATH, answer);
    EXPECT_EQ(answer, 0u);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_ACCESS_DENIED));
    HANDLE full = openLoader(PROCESS_QUERY_INFORMATION | PROCESS_VM_READ);
    EXPECT_EQ(moduleFileName(full, MAX_PATH, answer), kLoaderPath);
    CloseHandle(readOnly);
    CloseHandle(full);
}

TEST_F(Processes, AProcessThatCannotBeNamedOpensButGivesNoName) {
    simhost::kernel32::addProcess({700, 4, 0, L"C:\\Windows\\System32\\guard.exe", ProcessProtection::CannotName});
    HANDLE process = OpenProcess(PROCESS_QUERY_LIMITED_INFORMATION, FALSE, 700);
    ASSERT_NE(process, nullptr);
    DWORD answer = 1;
    moduleFileName(process, MAX_PATH, answer);
    EXPECT_EQ(answer, 0u);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_ACCESS_DENIED));
    imageFileName(process, MAX_PATH, answer);
    EXPECT_EQ(answer, 0u);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_ACCESS_DENIED));
    DWORD session = kUntouched;
    EXPECT_TRUE(ProcessIdToSessionId(700, &session));
    EXPECT_EQ(session, 0u);
    CloseHandle(process);
}

TEST_F(Processes, AProcessWithoutAnImageFileGivesNoName) {
    simhost::kernel32::addProcess({88, 4, 0, L"Registry"});
    HANDLE process = OpenProcess(PROCESS_QUERY_LIMITED_INFORMATION, FALSE, 88);
    ASSERT_NE(process, nullptr);
    DWORD answer = 1;
    imageFileName(process, MAX_PATH, answer);
    EXPECT_EQ(answer, 0u);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_ACCESS_DENIED));
    CloseHandle(process);
}

TEST_F(Processes, AHandleOpenedBeforeTheExitKeepsTheImageNameButNotTheModule) {
    HANDLE process = openLoader();
    ASSERT_TRUE(simhost::kernel32::markExited(kLoaderId));
    DWORD answer = 0;
    EXPECT_EQ(imageFileName(process, MAX_PATH, answer), kLoaderDevicePath);
    moduleFileName(process, MAX_PATH, answer);
    EXPECT_EQ(answer, 0u);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_PARTIAL_COPY));
    CloseHandle(process);
}

TEST_F(Processes, NamesRefuseHandlesThatAreNotOpenProcesses) {
    HANDLE event = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    HANDLE closed = openLoader();
    CloseHandle(closed);
    for (HANDLE handle : {event, closed, static_cast<HANDLE>(nullptr)}) {
        DWORD answer = 1;
        moduleFileName(handle, MAX_PATH, answer);
        EXPECT_EQ(answer, 0u);
        EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_HANDLE));
        imageFileName(handle, MAX_PATH, answer);
        EXPECT_EQ(answer, 0u);
        EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_HANDLE));
    }
    CloseHandle(event);
}

TEST_F(Processes, ThePseudoHandleNamesTheServiceProcess) {
    DWORD answer = 0;
    EXPECT_EQ(moduleFileName(GetCurrentProcess(), MAX_PATH, answer), simhost::kernel32::kServiceImagePath);
    EXPECT_EQ(imageFileName(GetCurrentProcess(), MAX_PATH, answer),
              simhost::kernel32::deviceFormPath(simhost::kernel32::kServiceImagePath));
}

// ---- Waits on a process ----

TEST_F(Processes, AProcessHandleIsSignalledOnceTheProcessExits) {
    HANDLE process = openLoader(SYNCHRONIZE | PROCESS_QUERY_LIMITED_INFORMATION);
    EXPECT_EQ(WaitForSingleObject(process, 0), WAIT_TIMEOUT);
    std::atomic<DWORD> waited{kUntouched};
    std::thread waiter([&] { waited = WaitForSingleObject(process, kernel32_test::kBoundedWait); });
    EXPECT_TRUE(simhost::waitUntilWaiting(process));
    EXPECT_EQ(waited.load(), kUntouched);
    EXPECT_TRUE(simhost::kernel32::markExited(kLoaderId));
    waiter.join();
    EXPECT_EQ(waited.load(), WAIT_OBJECT_0);
    EXPECT_EQ(WaitForSingleObject(process, 0), WAIT_OBJECT_0);
    CloseHandle(process);
}

TEST_F(Processes, RemovingAProcessEndsTheWaitsOnIt) {
    HANDLE process = openLoader(SYNCHRONIZE);
    std::thread remover([process] {
        EXPECT_TRUE(simhost::waitUntilWaiting(process));
        simhost::kernel32::removeProcess(kLoaderId);
    });
    EXPECT_EQ(WaitForSingleObject(process, kernel32_test::kBoundedWait), WAIT_OBJECT_0);
    remover.join();
    CloseHandle(process);
}

// ---- Sessions ----

TEST_F(Processes, ProcessIdToSessionIdGivesTheSession) {
    SetLastError(kUntouched);
    DWORD session = kUntouched;
    EXPECT_TRUE(ProcessIdToSessionId(kLoaderId, &session));
    EXPECT_EQ(session, 2u);
    EXPECT_TRUE(ProcessIdToSessionId(4, &session));
    EXPECT_EQ(session, 0u);
    EXPECT_EQ(GetLastError(), kUntouched);
}

TEST_F(Processes, ProcessIdToSessionIdRefusesUnknownExitedAndIdleIds) {
    ASSERT_TRUE(simhost::kernel32::markExited(kLoaderId));
    for (DWORD id : {0u, 9999u, kLoaderId}) {
        DWORD session = kUntouched;
        EXPECT_FALSE(ProcessIdToSessionId(id, &session));
        EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_PARAMETER)) << id;
        EXPECT_EQ(session, kUntouched);
    }
    EXPECT_FALSE(ProcessIdToSessionId(4, nullptr));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_PARAMETER));
}

// ---- Snapshots ----

TEST_F(Processes, ASnapshotListsTheRunningProcessesInOrder) {
    std::vector<Listed> listed = listProcesses();
    ASSERT_EQ(listed.size(), 4u);
    EXPECT_EQ(listed[0].id, 0u);
    EXPECT_EQ(listed[0].name, L"[System Process]");
    EXPECT_EQ(listed[1].id, 4u);
    EXPECT_EQ(listed[1].name, L"System");
    EXPECT_EQ(listed[2].id, GetCurrentProcessId());
    EXPECT_EQ(listed[2].name, L"VexorPrintingService.exe");
    EXPECT_EQ(listed[3].id, kLoaderId);
    EXPECT_EQ(listed[3].parent, kSessionHostId);
    EXPECT_EQ(listed[3].name, L"vexor_vchan_loader.exe");
}

TEST_F(Processes, AnEntryHasTheFieldsWindowsStillFills) {
    HANDLE snapshot = CreateToolhelp32Snapshot(TH32CS_SNAPPROCESS, 0);
    PROCESSENTRY32W entry;
    std::memset(&entry, 0xAB, sizeof entry);
    entry.dwSize = sizeof entry + 8;
    ASSERT_TRUE(Process32FirstW(snapshot, &entry));
    EXPECT_EQ(entry.dwSize, sizeof entry + 8);
    EXPECT_EQ(entry.cntUsage, 0u);
    EXPECT_EQ(entry.th32DefaultHeapID, 0u);
    EXPECT_EQ(entry.th32ModuleID, 0u);
    EXPECT_EQ(entry.cntThreads, 1u);
    EXPECT_EQ(entry.pcPriClassBase, 8);
    EXPECT_EQ(entry.dwFlags, 0u);
    CloseHandle(snapshot);
}

TEST_F(Processes, TheWalkEndsWithNoMoreFiles) {
    HANDLE snapshot = CreateToolhelp32Snapshot(TH32CS_SNAPPROCESS, 0);
    walk(snapshot);
    PROCESSENTRY32W entry = freshEntry();
    SetLastError(kUntouched);
    EXPECT_FALSE(Process32NextW(snapshot, &entry));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_NO_MORE_FILES));
    EXPECT_TRUE(Process32FirstW(snapshot, &entry));
    EXPECT_EQ(entry.th32ProcessID, 0u);
    EXPECT_TRUE(Process32NextW(snapshot, &entry));
    EXPECT_EQ(entry.th32ProcessID, 4u);
    CloseHandle(snapshot);
}

TEST_F(Processes, ASnapshotIsACopyTakenWhenItIsMade) {
    simhost::kernel32::addProcess({kSessionHostId, 4, 2, L"C:\\Windows\\System32\\host.exe"});
    HANDLE snapshot = CreateToolhelp32Snapshot(TH32CS_SNAPPROCESS, 0);
    simhost::kernel32::addProcess({6000, 4, 2, L"C:\\later.exe"});
    simhost::kernel32::markExited(kSessionHostId);
    std::vector<Listed> listed = walk(snapshot);
    EXPECT_TRUE(listsId(listed, kSessionHostId));
    EXPECT_FALSE(listsId(listed, 6000));
    CloseHandle(snapshot);
    std::vector<Listed> now = listProcesses();
    EXPECT_FALSE(listsId(now, kSessionHostId));
    EXPECT_TRUE(listsId(now, 6000));
}

TEST_F(Processes, AChildStillNamesItsExitedParent) {
    simhost::kernel32::addProcess({kSessionHostId, 4, 2, L"C:\\host.exe", ProcessProtection::None, true});
    std::vector<Listed> listed = listProcesses();
    EXPECT_FALSE(listsId(listed, kSessionHostId));
    ASSERT_TRUE(listsId(listed, kLoaderId));
    EXPECT_EQ(listed.back().parent, kSessionHostId);
}

TEST_F(Processes, ALoopInTheAncestryIsListedAsArranged) {
    simhost::kernel32::addProcess({7001, 7002, 1, L"C:\\a.exe"});
    simhost::kernel32::addProcess({7002, 7001, 1, L"C:\\b.exe"});
    std::vector<Listed> listed = listProcesses();
    ASSERT_EQ(listed.size(), 6u);
    EXPECT_EQ(listed[4].parent, 7002u);
    EXPECT_EQ(listed[5].parent, 7001u);
}

TEST_F(Processes, ALongNameIsCutToFitTheEntry) {
    std::wstring longName(300, L'n');
    simhost::kernel32::addProcess({7100, 4, 1, L"C:\\" + longName});
    std::vector<Listed> listed = listProcesses();
    EXPECT_EQ(listed.back().name, longName.substr(0, MAX_PATH - 1));
}

TEST_F(Processes, AnEntryWithoutItsSizeIsBadLength) {
    HANDLE snapshot = CreateToolhelp32Snapshot(TH32CS_SNAPPROCESS, 0);
    for (DWORD size : {0u, static_cast<DWORD>(sizeof(PROCESSENTRY32W) - 1)}) {
        PROCESSENTRY32W entry = {};
        entry.dwSize = size;
        EXPECT_FALSE(Process32FirstW(snapshot, &entry));
        EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_BAD_LENGTH)) << size;
        EXPECT_FALSE(Process32NextW(snapshot, &entry));
        EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_BAD_LENGTH)) << size;
    }
    CloseHandle(snapshot);
}

TEST_F(Processes, ASnapshotWithoutProcessesListsNone) {
    HANDLE snapshot = CreateToolhelp32Snapshot(TH32CS_SNAPTHREAD, 0);
    ASSERT_NE(snapshot, INVALID_HANDLE_VALUE);
    PROCESSENTRY32W entry = freshEntry();
    EXPECT_FALSE(Process32FirstW(snapshot, &entry));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_NO_MORE_FILES));
    CloseHandle(snapshot);
}

TEST_F(Processes, SnapshotsAreHandlesOfTheirOwnType) {
    HANDLE snapshot = CreateToolhelp32Snapshot(TH32CS_SNAPPROCESS, 0);
    HANDLE process = openLoader();
    EXPECT_EQ(simhost::openHandleCount("Snapshot"), 1u);
    PROCESSENTRY32W entry = freshEntry();
    EXPECT_FALSE(Process32FirstW(process, &entry));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_HANDLE));
    EXPECT_EQ(WaitForSingleObject(snapshot, 0), WAIT_FAILED);
    EXPECT_TRUE(CloseHandle(snapshot));
    EXPECT_FALSE(Process32FirstW(snapshot, &entry));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_HANDLE));
    EXPECT_EQ(simhost::openHandleCount("Snapshot"), 0u);
    CloseHandle(process);
}

// ---- Faults ----

TEST_F(Processes, EveryCallCanBeMadeToFail) {
    simhost::Faults& faults = simhost::Host::get().faults();
    HANDLE process = openLoader();
    HANDLE snapshot = CreateToolhelp32Snapshot(TH32CS_SNAPPROCESS, 0);
    for (const char* call : {"OpenProcess", "K32GetModuleFileNameExW", "K32GetProcessImageFileNameW",
                             "ProcessIdToSessionId", "CreateToolhelp32Snapshot", "Process32FirstW", "Process32NextW"})
        faults.failCall(call, ERROR_NOT_ENOUGH_MEMORY, 1);
    auto failedWithInjectedError = [] { return GetLastError() == static_cast<DWORD>(ERROR_NOT_ENOUGH_MEMORY); };
    EXPECT_EQ(OpenProcess(PROCESS_QUERY_LIMITED_INFORMATION, FALSE, kLoaderId), nullptr);
    EXPECT_TRUE(failedWithInjectedError());
    WCHAR buffer[MAX_PATH];
    EXPECT_EQ(K32GetModuleFileNameExW(process, nullptr, buffer, MAX_PATH), 0u);
    EXPECT_TRUE(failedWithInjectedError());
    EXPECT_EQ(K32GetProcessImageFileNameW(process, buffer, MAX_PATH), 0u);
    EXPECT_TRUE(failedWithInjectedError());
    DWORD session = kUntouched;
    EXPECT_FALSE(ProcessIdToSessionId(kLoaderId, &session));
    EXPECT_TRUE(failedWithInjectedError());
    EXPECT_EQ(session, kUntouched);
    EXPECT_EQ(CreateToolhelp32Snapshot(TH32CS_SNAPPROCESS, 0), INVALID_HANDLE_VALUE);
    EXPECT_TRUE(failedWithInjectedError());
    PROCESSENTRY32W entry = freshEntry();
    EXPECT_FALSE(Process32FirstW(snapshot, &entry));
    EXPECT_TRUE(failedWithInjectedError());
    EXPECT_FALSE(Process32NextW(snapshot, &entry));
    EXPECT_TRUE(failedWithInjectedError());
    // The failed walk moved nothing: the next call gives the first entry.
    EXPECT_TRUE(Process32NextW(snapshot, &entry));
    EXPECT_EQ(entry.th32ProcessID, 0u);
    CloseHandle(process);
    CloseHandle(snapshot);
}

}  // namespace
