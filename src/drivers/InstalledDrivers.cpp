// The installed printer drivers as the spooler lists them.
#include "drivers/InstalledDrivers.h"

#include "drivers/DriverCatalogue.h"
#include "foundation/StaticLogger.h"

#include <cwchar>

namespace {

// How long one run of the installation tool is waited for.
constexpr DWORD kInstallerWaitMs = 60000;

// Drivers of every processor architecture are listed.
wchar_t kAllEnvironments[] = L"all";

std::wstring withoutBus(const wchar_t* hwid) {
    const wchar_t* slash = std::wcsrchr(hwid, L'\\');
    return slash ? slash + 1 : hwid;
}

// Runs the installation tool for one catalogue record and waits for it; a
// tool that outlasts the wait is left running. False if it could not start.
bool runInstaller(const DriverInfoRecord& record, const char* caller) {
    std::wstring commandLine = L"rundll32 printui.dll,PrintUIEntry /ia /u /q /f \"" + record.infFile + L"\" /m \"" +
                               record.driverName + L"\"";
    VX_LOG_AS(caller, kLogNormal, kNoLastError, 2, "Running cmd:%ls", commandLine.c_str());
    STARTUPINFOW startup = {};
    PROCESS_INFORMATION process = {};
    if (!CreateProcessW(nullptr, &commandLine[0], nullptr, nullptr, FALSE, 0, nullptr, nullptr, &startup, &process)) {
        VX_LOG_AS(caller, kLogError, kWithLastError, 4,
                  "CreateProcess failed. Is rundll32 in the current PATH? should be in system32");
        return false;
    }
    const DWORD waited = WaitForSingleObject(process.hProcess, kInstallerWaitMs);
    if (waited == WAIT_TIMEOUT)
        VX_LOG_AS(caller, kLogError, kNoLastError, 4, "Timed out waiting for printui to stop");
    else if (waited == WAIT_FAILED)
        VX_LOG_AS(caller, kLogError, kNoLastError, 4, "Error waiting for printui to stop");
    CloseHandle(process.hProcess);
    CloseHandle(process.hThread);
    return true;
}

}  // namespace

namespace PrinterUtil {

DWORD getPrinterDrivers(DWORD level, BYTE** buffer) {
    *buffer = nullptr;
    DWORD needed = 0, returned = 0;
    EnumPrinterDriversW(nullptr, kAllEnvironments, level, nullptr, 0, &needed, &returned);
    if (needed == 0) {
        VX_LOG(kLogError, kWithLastError, 4, "EnumPrinterDrivers for size failed error:");
        return 0;
    }
    BYTE* block = static_cast<BYTE*>(GlobalAlloc(GMEM_ZEROINIT, needed));
    if (!block) {
        VX_LOG(kLogError, kWithLastError, 5, "GlobalAlloc");
        return 0;
    }
    if (!EnumPrinterDriversW(nullptr, kAllEnvironments, level, block, needed, &needed, &returned)) {
        VX_LOG(kLogError, kWithLastError, 5, "EnumPrinterDrivers failed to get printer driver data:%u",
               static_cast<unsigned>(level));
        GlobalFree(block);
        return 0;
    }
    *buffer = block;
    return returned;
}

bool printerDriverInstalled(const std::wstring& name) {
    VX_LOG(kLogNormal, kNoLastError, 2, "printerDriverInstalled() %ls", name.c_str());
    BYTE* block = nullptr;
    const DWORD count = getPrinterDrivers(1, &block);
    if (count == 0) {
        VX_LOG(kLogNormal, kNoLastError, 2, "printerDriverInstalled() found nothing for:%ls", name.c_str());
        if (block) GlobalFree(block);
        return false;
    }
    const auto* drivers = reinterpret_cast<const DRIVER_INFO_1W*>(block);
    for (DWORD i = 0; i < count; ++i) {
        if (!drivers[i].pName || _wcsicmp(drivers[i].pName, name.c_str()) != 0) continue;
        VX_LOG(kLogNormal, kNoLastError, 3, "printerDriverInstalled() found driver:%ls", drivers[i].pName);
        GlobalFree(block);
        return true;
    }
    VX_LOG(kLogNormal, kNoLastError, 2, "%ls not installed.", name.c_str());
    GlobalFree(block);
    return false;
}

std::wstring hardwareIdToInstalledPrinterDriverName(const std::wstring& hwid, bool withBus) {
    std::wstring wanted = hwid;
    if (!withBus && wanted.find(L'\\') != std::wstring::npos) {
        wanted = withoutBus(hwid.c_str());
        VX_LOG(kLogNormal, kNoLastError, 2, "Stripping enumerator in hwid. Now:%ls", wanted.c_str());
    }
    BYTE* block = nullptr;
    const DWORD count = getPrinterDrivers(8, &block);
    if (count == 0) {
        VX_LOG(kLogNormal, kNoLastError, 2, "hardwareIdToInstalledPrinterDriverName() found nothing for:%ls",
               wanted.c_str());
        if (block) GlobalFree(block);
        return L"";
    }
    std::wstring name;
    const auto* drivers = reinterpret_cast<const DRIVER_INFO_8W*>(block);
    for (DWORD i = 0; i < count; ++i) {
        if (!drivers[i].pszHardwareID) continue;
        const std::wstring stored = withBus ? drivers[i].pszHardwareID : withoutBus(drivers[i].pszHardwareID);
        if (_wcsicmp(stored.c_str(), wanted.c_str()) != 0) continue;
        if (!drivers[i].pName)
            VX_LOG(kLogError, kNoLastError, 3, "installedPrinterDriverNameToHardwareId() found EMPTY driver for hwid:%ls",
                   wanted.c_str());
        name = drivers[i].pName ? drivers[i].pName : L"";
        VX_LOG(kLogNormal, kNoLastError, 2, "hardwareIdToInstalledPrinterDriverName() found driver:%ls for hwid:%ls",
               name.c_str(), wanted.c_str());
        break;
    }
    GlobalFree(block);
    if (name.empty())
        VX_LOG(kLogNormal, kNoLastError, 2, "hardwareIdToInstalledPrinterDriverName() found nothing for hwid:%ls",
               wanted.c_str());
    else
        VX_LOG(kLogNormal, kNoLastError, 3, "hardwareIdToInstalledPrinterDriverName() returning driver:%ls for hwid:%ls",
               name.c_str(), wanted.c_str());
    return name;
}

// Success is judged by the name asked for alone: a driver found under its
// bracket-free key installs under its own bracketed name and still answers
// false here.
bool installDriverByName(const std::wstring& name, const DriverInfoMap& driverInfoMap) {
    VX_DECLARE_FUNCTION_NAME(self);
    if (printerDriverInstalled(name)) {
        VX_LOG(kLogError, kNoLastError, 4, "installDriverByName:%ls but is *already* installed", name.c_str());
        return true;
    }
    const auto range = driverInfoMap.equal_range(normaliseDriverName(name));
    if (range.first == range.second) {
        VX_LOG(kLogNormal, kNoLastError, 3, "installDriverByName no info on driver:%ls", name.c_str());
        return false;
    }
    for (auto it = range.first; it != range.second; ++it) {
        if (!it->second) {
            VX_LOG(kLogNormal, kNoLastError, 2, "Failed to find driver info for:%ls", name.c_str());
            return false;
        }
        if (!runInstaller(*it->second, self.c_str())) return false;
        if (printerDriverInstalled(name)) {
            VX_LOG(kLogNormal, kNoLastError, 3, "installDriverByName success:%ls", name.c_str());
            return true;
        }
    }
    VX_LOG(kLogError, kNoLastError, 4, "installDriverByName failure:%ls", name.c_str());
    return false;
}

}  // namespace PrinterUtil
