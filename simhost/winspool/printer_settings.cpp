#include "simhost/winspool/printer_settings.h"

#include <cstring>
#include <cwchar>

namespace simhost {
namespace winspool {
namespace {

bool validPrinterName(const std::wstring& name) {
    return !name.empty() && name.size() <= kMaxPrinterNameLength && name.find_first_of(L",\\") == std::wstring::npos;
}

bool allPortsExist(const SpoolerState& state, const std::wstring& portList) {
    std::vector<std::wstring> names = portNamesOf(portList);
    if (names.empty()) return false;
    for (const std::wstring& name : names)
        if (!state.findPort(name)) return false;
    return true;
}

}  // namespace

SpoolerPrinter settingsOf(const PRINTER_INFO_2W& info) {
    SpoolerPrinter settings;
    settings.name = textOf(info.pPrinterName);
    settings.shareName = textOf(info.pShareName);
    settings.portName = textOf(info.pPortName);
    settings.driverName = textOf(info.pDriverName);
    settings.comment = textOf(info.pComment);
    settings.location = textOf(info.pLocation);
    settings.separatorFile = textOf(info.pSepFile);
    settings.printProcessor = textOf(info.pPrintProcessor);
    settings.datatype = info.pDatatype ? info.pDatatype : L"RAW";
    settings.parameters = textOf(info.pParameters);
    settings.attributes = info.Attributes;
    settings.priority = info.Priority;
    settings.defaultPriority = info.DefaultPriority;
    settings.startTime = info.StartTime;
    settings.untilTime = info.UntilTime;
    return settings;
}

DWORD checkRequiredMembers(const PRINTER_INFO_2W& info) {
    bool complete = info.pPrinterName && info.pPortName && info.pDriverName && info.pPrintProcessor;
    return complete ? 0 : ERROR_INVALID_PARAMETER;
}

DWORD checkSettings(const SpoolerState& state, const SpoolerPrinter& settings, const SpoolerPrinter* self) {
    if (!validPrinterName(settings.name)) return ERROR_INVALID_PRINTER_NAME;
    PrinterPtr namesake = state.findVisiblePrinter(settings.name);
    if (namesake && namesake.get() != self) return ERROR_PRINTER_ALREADY_EXISTS;
    if (!state.findDriver(settings.driverName, kLocalEnvironment)) return ERROR_UNKNOWN_PRINTER_DRIVER;
    if (!allPortsExist(state, settings.portName)) return ERROR_UNKNOWN_PORT;
    if (!isPrintProcessor(settings.printProcessor)) return ERROR_UNKNOWN_PRINTPROCESSOR;
    if (!isProcessorDatatype(settings.datatype)) return ERROR_INVALID_DATATYPE;
    return 0;
}

std::string refusalText(DWORD error) {
    switch (error) {
    case ERROR_INVALID_PRINTER_NAME: return "the printer name is empty, too long or holds ',' or '\\'";
    case ERROR_PRINTER_ALREADY_EXISTS: return "a printer of this name exists";
    case ERROR_UNKNOWN_PRINTER_DRIVER: return "no such driver is installed for this machine's environment";
    case ERROR_UNKNOWN_PORT: return "no such port";
    case ERROR_UNKNOWN_PRINTPROCESSOR: return "no such print processor";
    case ERROR_INVALID_DATATYPE: return "the print processor has no such datatype";
    default: return "refused with error " + std::to_string(error);
    }
}

void applySettings(SpoolerState& state, const PrinterPtr& printer, const SpoolerPrinter& settings) {
    if (printer->name != settings.name) state.renamePrinter(printer, settings.name);
    printer->shareName = settings.shareName;
    printer->portName = settings.portName;
    printer->driverName = settings.driverName;
    printer->comment = settings.comment;
    printer->location = settings.location;
    printer->separatorFile = settings.separatorFile;
    printer->printProcessor = settings.printProcessor;
    printer->datatype = settings.datatype;
    printer->parameters = settings.parameters;
    printer->attributes = settings.attributes;
    printer->priority = settings.priority;
    printer->defaultPriority = settings.defaultPriority;
    printer->startTime = settings.startTime;
    printer->untilTime = settings.untilTime;
}

std::vector<BYTE> devModeOf(const DEVMODEW* devMode) {
    if (!devMode) return {};
    const BYTE* bytes = reinterpret_cast<const BYTE*>(devMode);
    return std::vector<BYTE>(bytes, bytes + devMode->dmSize + devMode->dmDriverExtra);
}

std::vector<BYTE> driverDevModeFor(const SpoolerState& state, const SpoolerPrinter& printer) {
    const PrinterDriver* driver = state.findDriver(printer.driverName, kLocalEnvironment);
    std::vector<BYTE> block = driver ? driver->devMode : std::vector<BYTE>();
    if (block.size() < sizeof(DEVMODEW)) return block;
    DEVMODEW* record = reinterpret_cast<DEVMODEW*>(block.data());
    std::memset(record->dmDeviceName, 0, sizeof record->dmDeviceName);
    std::wcsncpy(record->dmDeviceName, printer.name.c_str(), CCHDEVICENAME - 1);
    return block;
}

std::vector<BYTE> startingDevMode(const std::wstring& driverName, const std::wstring& printerName) {
    SpoolerPrinter printer;
    printer.name = printerName;
    printer.driverName = driverName;
    return withSpooler([&](SpoolerState& state) { return driverDevModeFor(state, printer); });
}

}  // namespace winspool
}  // namespace simhost
