// Installed printer drivers: EnumPrinterDriversW and the host API that
// installs and lists them. A driver is installed for one environment (the
// processor architecture it was written for); this machine's is
// kLocalEnvironment.
#include "simhost/core/text.h"
#include "simhost/winspool/record_block.h"
#include "simhost/winspool/spooler_state.h"

#include <stdexcept>

namespace simhost {
namespace winspool {
namespace {

const wchar_t* const kKnownEnvironments[] = {L"Windows x64", L"Windows NT x86", L"Windows IA64", L"Windows ARM64",
                                             L"Windows 4.0"};

bool isKnownEnvironment(const std::wstring& environment) {
    for (const wchar_t* known : kKnownEnvironments)
        if (sameName(environment, known)) return true;
    return false;
}

// The driver version of printer drivers since Windows 2000.
constexpr DWORD kDriverVersion = 3;

// Members the host does not model (driver files, manufacturer, dates) are
// empty texts or lists; a driver without a language monitor or a hardware
// id has null there.
LPWSTR optionalText(RecordBlock& block, const std::wstring& text) { return text.empty() ? nullptr : block.text(text); }

void fillDriver1(DRIVER_INFO_1W& record, RecordBlock& block, const PrinterDriver* driver) {
    record.pName = block.text(driver->name);
}

template <class Record>
void fillDriverCommon(Record& record, RecordBlock& block, const PrinterDriver& driver) {
    record.cVersion = kDriverVersion;
    record.pName = block.text(driver.name);
    record.pEnvironment = block.text(driver.environment);
    record.pDriverPath = block.text(L"");
    record.pDataFile = block.text(L"");
    record.pConfigFile = block.text(L"");
    record.pHelpFile = block.text(L"");
    record.pDependentFiles = block.multiText({});
    record.pMonitorName = optionalText(block, driver.monitorName);
    record.pDefaultDataType = block.text(L"RAW");
}

void fillDriver3(DRIVER_INFO_3W& record, RecordBlock& block, const PrinterDriver* driver) {
    fillDriverCommon(record, block, *driver);
}

void fillDriver8(DRIVER_INFO_8W& record, RecordBlock& block, const PrinterDriver* driver) {
    fillDriverCommon(record, block, *driver);
    record.pszzPreviousNames = block.multiText({});
    record.pszMfgName = block.text(L"");
    record.pszOEMUrl = block.text(L"");
    record.pszHardwareID = optionalText(block, driver->hardwareId);
    record.pszProvider = block.text(L"");
    record.pszPrintProcessor = block.text(kPrintProcessor);
    record.pszVendorSetup = block.text(L"");
    record.pszzColorProfiles = block.multiText({});
    record.pszInfPath = block.text(L"");
    record.pszzCoreDriverDependencies = block.multiText({});
}

std::vector<const PrinterDriver*> driversFor(const SpoolerState& state, const std::wstring& environment) {
    std::vector<const PrinterDriver*> listed;
    for (const PrinterDriver& driver : state.drivers)
        if (sameName(environment, L"all") || sameName(driver.environment, environment)) listed.push_back(&driver);
    return listed;
}

BlockAnswer answerDrivers(const std::vector<const PrinterDriver*>& listed, DWORD level, LPBYTE buffer, DWORD size) {
    if (level == 1) return answerRecords<DRIVER_INFO_1W>(listed, buffer, size, fillDriver1);
    if (level == 3) return answerRecords<DRIVER_INFO_3W>(listed, buffer, size, fillDriver3);
    return answerRecords<DRIVER_INFO_8W>(listed, buffer, size, fillDriver8);
}

}  // namespace

void addDriver(PrinterDriver driver) {
    if (driver.name.empty()) throw std::invalid_argument("a driver needs a name");
    if (driver.environment.empty()) driver.environment = kLocalEnvironment;
    if (!isKnownEnvironment(driver.environment))
        throw std::invalid_argument("driver \"" + narrow(driver.name) + "\": unknown environment \"" +
                                    narrow(driver.environment) + "\"");
    if (driver.devMode.empty()) driver.devMode = devModeBlock(typicalDevMode(driver.name));
    if (driver.devMode.size() < sizeof(DEVMODEW))
        throw std::invalid_argument("driver \"" + narrow(driver.name) + "\": a device mode shorter than DEVMODEW");
    withSpooler([&](SpoolerState& state) {
        if (state.findDriver(driver.name, driver.environment))
            throw std::invalid_argument("driver \"" + narrow(driver.name) + "\" is installed for this environment");
        state.drivers.push_back(std::move(driver));
    });
}

std::vector<PrinterDriver> drivers() {
    return withSpooler([](SpoolerState& state) { return state.drivers; });
}

}  // namespace winspool
}  // namespace simhost

using namespace simhost::winspool;

// Levels 1, 3 and 8 (DRIVER_INFO_1W, _3W, _8W) of the drivers installed for
// an environment: a null one is this machine's ("Windows x64"), "all" lists
// every environment, as documented; an environment Windows does not know is
// ERROR_INVALID_ENVIRONMENT. Another level: ERROR_INVALID_LEVEL; a server
// other than this machine: ERROR_INVALID_NAME. The size protocol of the
// other Enum calls.
BOOL WINAPI EnumPrinterDriversW(LPWSTR serverName, LPWSTR environment, DWORD level, LPBYTE buffer,
                                DWORD bufferSize, LPDWORD needed, LPDWORD returned) {
    if (DWORD e = simhost::injectedFailure("EnumPrinterDriversW")) return succeedOrFail(e);
    if (DWORD e = checkBlockArguments(buffer, bufferSize, needed, returned)) return succeedOrFail(e);
    if (serverName && *serverName) return succeedOrFail(ERROR_INVALID_NAME);
    if (level != 1 && level != 3 && level != 8) return succeedOrFail(ERROR_INVALID_LEVEL);
    const std::wstring wanted = environment ? environment : kLocalEnvironment;
    if (!sameName(wanted, L"all") && !isKnownEnvironment(wanted)) return succeedOrFail(ERROR_INVALID_ENVIRONMENT);
    return withSpooler([&](SpoolerState& state) {
        return finishEnum(answerDrivers(driversFor(state, wanted), level, buffer, bufferSize), needed, returned);
    });
}
