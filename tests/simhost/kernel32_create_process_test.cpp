// Processes the service starts: CreateProcessW of the printer installation
// tool (rundll32 printui.dll,PrintUIEntry), its handles and exit code, the
// search for the program, how each installation is arranged to go, the
// host-file and state-file keys, and a fault.
#include "host_file_test_helpers.h"
#include "setupapi_inf_helpers.h"

#include "simhost/kernel32/objects.h"
#include "simhost/kernel32/process_creation.h"
#include "simhost/kernel32/processes.h"
#include "simhost/kernel32/programs.h"
#include "simhost/printui/printui.h"
#include "simhost/winspool/spooler.h"

#include <algorithm>
#include <vector>

using namespace inf_test;
using simhost::printui::InstallerBehaviour;
using simhost::printui::InstallerOutcome;

namespace {

// One model's language monitor is in a data section, the other's in its
// install section; the plain models section is not the one for amd64.
const std::string kAcmeInf = std::string(kVersion) +
                             "[Manufacturer]\r\n%Acme% = Acme, NTamd64\r\n"
                             "[Acme]\r\n\"Acme Old\" = OLD, AcmeOld\r\n"
                             "[Acme.NTamd64]\r\n"
                             "%Laser% = ACME_LASER, USBPRINT\\AcmeLaser, AcmeLaserCompat\r\n"
                             "\"Acme Jet\" = ACME_JET, USBPRINT\\AcmeJet\r\n"
                             "[ACME_LASER]\r\nDataSection = ACME_DATA\r\n"
                             "[ACME_DATA]\r\nLanguageMonitor = \"Acme Language Monitor,acmemon.dll\"\r\n"
                             "[ACME_JET]\r\nLanguageMonitor = \"Jet Monitor,jetmon.dll\"\r\n"
                             "[Strings]\r\nAcme = \"Acme Corp\"\r\nLaser = \"Acme Laser 1\"\r\n";

const wchar_t* const kInfPath = L"C:\\Windows\\INF\\acme.inf";

std::wstring installerLine(const std::wstring& model, const std::wstring& inf = kInfPath) {
    return L"rundll32 printui.dll,PrintUIEntry /ia /u /q /f \"" + inf + L"\" /m \"" + model + L"\"";
}

BOOL createProcess(const std::wstring& commandLine, PROCESS_INFORMATION& info) {
    std::vector<wchar_t> line(commandLine.begin(), commandLine.end());
    line.push_back(L'\0');
    STARTUPINFOW startup{};
    startup.cb = sizeof startup;
    return CreateProcessW(nullptr, line.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr, &startup, &info);
}

std::vector<simhost::winspool::PrinterDriver> installed() { return simhost::winspool::drivers(); }

class CreateProcess : public InfFiles {
protected:
    void SetUp() override {
        InfFiles::SetUp();
        writeInf("acme.inf", kAcmeInf);
    }

    PROCESS_INFORMATION start(const std::wstring& commandLine) {
        PROCESS_INFORMATION info{};
        EXPECT_TRUE(createProcess(commandLine, info)) << "error " << GetLastError();
        return info;
    }

    // Waits for the program's end, closes both handles, answers the exit code.
    DWORD finish(const PROCESS_INFORMATION& info, DWORD timeoutMs = 10000) {
        EXPECT_EQ(WaitForSingleObject(info.hProcess, timeoutMs), WAIT_OBJECT_0);
        DWORD code = 0xDEAD;
        EXPECT_TRUE(GetExitCodeProcess(info.hProcess, &code));
        EXPECT_TRUE(CloseHandle(info.hThread));
        EXPECT_TRUE(CloseHandle(info.hProcess));
        return code;
    }
};

TEST_F(CreateProcess, InstallerInstallsTheModelFromTheInf) {
    PROCESS_INFORMATION info = start(installerLine(L"Acme Laser 1"));
    EXPECT_EQ(finish(info), 0u);
    ASSERT_EQ(installed().size(), 1u);
    EXPECT_EQ(installed()[0].name, L"Acme Laser 1");
    EXPECT_EQ(installed()[0].environment, L"Windows x64");
    EXPECT_EQ(installed()[0].hardwareId, L"USBPRINT\\AcmeLaser");
    EXPECT_EQ(installed()[0].monitorName, L"Acme Language Monitor");
    EXPECT_EQ(simhost::kernel32::processRuns(), std::vector<std::wstring>{installerLine(L"Acme Laser 1")});
    EXPECT_EQ(simhost::openHandleCount("Process"), 0u);
    EXPECT_EQ(simhost::openHandleCount("Thread"), 0u);
    EXPECT_EQ(simhost::setupapi::openInfHandleCount(), 0u);
}

TEST_F(CreateProcess, StartedProcessIsAChildOfTheServiceWithItsImage) {
    PROCESS_INFORMATION info = start(installerLine(L"acme jet"));
    EXPECT_NE(info.dwProcessId, 0u);
    EXPECT_NE(info.dwProcessId, GetCurrentProcessId());
    EXPECT_NE(info.dwThreadId, 0u);
    EXPECT_NE(info.hProcess, info.hThread);
    EXPECT_EQ(WaitForSingleObject(info.hThread, 10000), WAIT_OBJECT_0);
    EXPECT_EQ(finish(info), 0u);
    auto all = simhost::kernel32::processes();
    auto child = std::find_if(all.begin(), all.end(), [&](const auto& p) { return p.processId == info.dwProcessId; });
    ASSERT_NE(child, all.end());
    EXPECT_EQ(child->parentProcessId, GetCurrentProcessId());
    EXPECT_EQ(child->sessionId, 0u);
    EXPECT_EQ(child->imagePath, L"C:\\Windows\\System32\\rundll32.exe");
    EXPECT_TRUE(child->exited);
    ASSERT_EQ(installed().size(), 1u);
    EXPECT_EQ(installed()[0].name, L"Acme Jet");
    EXPECT_EQ(installed()[0].monitorName, L"Jet Monitor");
}

TEST_F(CreateProcess, ClosedHandlesAreRefused) {
    PROCESS_INFORMATION info = start(installerLine(L"Acme Jet"));
    finish(info);
    DWORD code = 0;
    EXPECT_FALSE(CloseHandle(info.hProcess));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_HANDLE));
    EXPECT_FALSE(GetExitCodeProcess(info.hProcess, &code));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_HANDLE));
    EXPECT_EQ(WaitForSingleObject(info.hThread, 0), WAIT_FAILED);
}

TEST_F(CreateProcess, ProgramIsFoundByPathOrSearchWithOrWithoutExtension) {
    const std::wstring tail = L" printui.dll,PrintUIEntry /ia /u /q /f \"C:\\Windows\\INF\\acme.inf\" /m \"Acme Jet\"";
    for (const std::wstring& program : {std::wstring(L"\"C:\\Windows\\System32\\rundll32.exe\""),
                                        std::wstring(L"C:\\windows\\system32\\RUNDLL32"), std::wstring(L"rundll32.exe")})
        EXPECT_EQ(finish(start(program + tail)), 0u) << program.c_str();
    EXPECT_EQ(simhost::kernel32::processRuns().size(), 3u);
    EXPECT_EQ(installed().size(), 1u);
}

TEST_F(CreateProcess, UnknownProgramFailsWithFileNotFound) {
    for (const wchar_t* line : {L"notepad C:\\x.txt", L"\"C:\\Windows\\rundll32.exe\" a,b", L"C:\\Tools\\rundll32"}) {
        PROCESS_INFORMATION info{};
        SetLastError(0);
        EXPECT_FALSE(createProcess(line, info)) << line;
        EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_FILE_NOT_FOUND));
    }
    EXPECT_TRUE(simhost::kernel32::processRuns().empty());
    EXPECT_EQ(simhost::openHandleCount("Process"), 0u);
}

TEST_F(CreateProcess, OtherRundll32LinesExitNonZeroAndDoNothing) {
    for (const std::wstring& line :
         {std::wstring(L"rundll32 shell32.dll,Control_RunDLL"), std::wstring(L"rundll32 printui.dll,PrintUIEntry /il"),
          std::wstring(L"rundll32 printui.dll,printuientry /ia /u /q /f \"C:\\Windows\\INF\\acme.inf\" /m \"Acme Jet\"")})
        EXPECT_NE(finish(start(line)), 0u);
    EXPECT_TRUE(installed().empty());
}

TEST_F(CreateProcess, ModelNotInTheInfOrMissingInfExitsNonZero) {
    EXPECT_EQ(finish(start(installerLine(L"Acme Old"))), static_cast<DWORD>(ERROR_UNKNOWN_PRINTER_DRIVER));
    EXPECT_EQ(finish(start(installerLine(L"Acme Jet", L"C:\\Windows\\INF\\none.inf"))),
              static_cast<DWORD>(ERROR_FILE_NOT_FOUND));
    EXPECT_TRUE(installed().empty());
}

TEST_F(CreateProcess, DriverInstalledAlreadyIsLeftAsItIs) {
    simhost::winspool::PrinterDriver existing;
    existing.name = L"ACME JET";
    existing.hardwareId = L"Other";
    simhost::winspool::addDriver(existing);
    EXPECT_EQ(finish(start(installerLine(L"Acme Jet"))), 0u);
    ASSERT_EQ(installed().size(), 1u);
    EXPECT_EQ(installed()[0].hardwareId, L"Other");
}

TEST_F(CreateProcess, FailingInstallerExitsWithOne) {
    simhost::printui::setInstallerBehaviour(L"acme laser 1", {InstallerOutcome::Fails, 0});
    EXPECT_EQ(finish(start(installerLine(L"Acme Laser 1"))), 1u);
    EXPECT_TRUE(installed().empty());
}

TEST_F(CreateProcess, HangingInstallerRunsUntilTheHostIsReset) {
    simhost::printui::setInstallerBehaviour(L"Acme Jet", {InstallerOutcome::Hangs, 0});
    PROCESS_INFORMATION info = start(installerLine(L"Acme Jet"));
    EXPECT_EQ(WaitForSingleObject(info.hProcess, 100), WAIT_TIMEOUT);
    DWORD code = 0;
    EXPECT_TRUE(GetExitCodeProcess(info.hProcess, &code));
    EXPECT_EQ(code, STILL_ACTIVE);
    simhost::Host::get().reset();  // ends the program and joins its thread
    EXPECT_TRUE(simhost::kernel32::processRuns().empty());
    EXPECT_TRUE(installed().empty());
}

TEST_F(CreateProcess, HangingInstallerEndsWithItsProcess) {
    simhost::printui::setInstallerBehaviour(L"Acme Jet", {InstallerOutcome::Hangs, 0});
    PROCESS_INFORMATION info = start(installerLine(L"Acme Jet"));
    EXPECT_TRUE(simhost::kernel32::markExited(info.dwProcessId));
    EXPECT_EQ(finish(info), 0u);
    EXPECT_TRUE(installed().empty());
}

TEST_F(CreateProcess, SlowInstallerTakesItsTimeOnTheHostScale) {
    simhost::Host::get().setTimeScale(0.01);
    simhost::printui::setInstallerBehaviour(L"Acme Jet", {InstallerOutcome::Installs, 100000});  // 1 s real
    PROCESS_INFORMATION info = start(installerLine(L"Acme Jet"));
    EXPECT_EQ(WaitForSingleObject(info.hProcess, 0), WAIT_TIMEOUT);
    EXPECT_EQ(finish(info, 1000000), 0u);  // bounded: 10 s real
    EXPECT_EQ(installed().size(), 1u);
}

TEST_F(CreateProcess, ExitCodeOfTheServiceAndBadArguments) {
    DWORD code = 0;
    EXPECT_TRUE(GetExitCodeProcess(GetCurrentProcess(), &code));
    EXPECT_EQ(code, STILL_ACTIVE);
    EXPECT_FALSE(GetExitCodeProcess(GetCurrentProcess(), nullptr));
    EXPECT_EQ(GetLastError(), 998u);
    PROCESS_INFORMATION info{};
    EXPECT_FALSE(CreateProcessW(nullptr, nullptr, nullptr, nullptr, FALSE, 0, nullptr, nullptr, nullptr, &info));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_PARAMETER));
}

TEST_F(CreateProcess, ZeroedStartupRecordIsTaken) {
    std::wstring text = installerLine(L"Acme Jet");
    std::vector<wchar_t> line(text.begin(), text.end());
    line.push_back(L'\0');
    STARTUPINFOW startup{};
    PROCESS_INFORMATION info{};
    ASSERT_TRUE(CreateProcessW(nullptr, line.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr, &startup, &info));
    EXPECT_EQ(finish(info), 0u);
}

TEST_F(CreateProcess, InjectedFailureStartsNothing) {
    simhost::Host::get().faults().failCall("CreateProcessW", ERROR_ACCESS_DENIED, 1);
    PROCESS_INFORMATION info{};
    EXPECT_FALSE(createProcess(installerLine(L"Acme Jet"), info));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_ACCESS_DENIED));
    EXPECT_TRUE(simhost::kernel32::processRuns().empty());
    EXPECT_EQ(simhost::openHandleCount("Process"), 0u);
}

TEST_F(CreateProcess, HostFileArrangesTheInstaller) {
    hostfiletest::apply(R"({"installer": {"Acme Jet": "fails", "Acme Laser 1": {"seconds": 2.5},
                                         "Other": "hangs", "Fine": "installs"}})");
    using simhost::printui::installerBehaviour;
    EXPECT_EQ(installerBehaviour(L"acme jet").outcome, InstallerOutcome::Fails);
    EXPECT_EQ(installerBehaviour(L"Acme Laser 1").delayMs, 2500u);
    EXPECT_EQ(installerBehaviour(L"Other").outcome, InstallerOutcome::Hangs);
    EXPECT_EQ(installerBehaviour(L"Unnamed").outcome, InstallerOutcome::Installs);
    EXPECT_EQ(finish(start(installerLine(L"Acme Jet"))), 1u);
    Json::Value state = simhost::describeHostState();
    ASSERT_EQ(state["installerRuns"].size(), 1u);
    EXPECT_EQ(state["installerRuns"][0].asString(),
              "rundll32 printui.dll,PrintUIEntry /ia /u /q /f \"C:\\Windows\\INF\\acme.inf\" /m \"Acme Jet\"");
}

TEST_F(CreateProcess, HostFileRefusesWrongInstallerValues) {
    using hostfiletest::refusal;
    EXPECT_EQ(refusal(R"({"installer": []})"), "\"installer\" must be an object");
    const std::string kinds = "\"installer\" of \"A\" must be \"installs\", \"fails\", \"hangs\" or {\"seconds\": n}";
    EXPECT_EQ(refusal(R"({"installer": {"A": "sometimes"}})"), kinds);
    EXPECT_EQ(refusal(R"({"installer": {"A": {"minutes": 1}}})"), kinds);
    EXPECT_EQ(refusal(R"({"installer": {"A": {"seconds": -1}}})"),
              "\"installer\" of \"A\": \"seconds\" must be a number from 0 to 4294967");
    EXPECT_NE(refusal(R"({"installerRuns": []})").find("cannot be arranged"), std::string::npos);
}

}  // namespace
