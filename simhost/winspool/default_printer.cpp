// The default printer of each user: SetDefaultPrinterW for the user the
// calling thread acts for.
#include "simhost/core/text.h"
#include "simhost/winspool/access.h"

#include <stdexcept>

namespace simhost {
namespace winspool {
namespace {

// The printer a name stands for: the named one, or for a null or empty name
// the first printer of the machine, as SetDefaultPrinter picks one itself.
PrinterPtr chosenPrinter(const SpoolerState& state, const std::wstring& name) {
    if (!name.empty()) return state.findVisiblePrinter(name);
    for (const PrinterPtr& printer : state.printers)
        if (!printer->pendingDeletion) return printer;
    return nullptr;
}

}  // namespace

void setDefaultPrinterOf(const std::wstring& userSid, const std::wstring& printerName) {
    withSpooler([&](SpoolerState& state) {
        PrinterPtr printer = state.findVisiblePrinter(printerName);
        if (!printer) throw std::invalid_argument("no printer \"" + narrow(printerName) + "\" to make the default");
        state.defaultPrinters[userSid] = printer->name;
    });
}

std::vector<std::pair<std::wstring, std::wstring>> defaultPrinters() {
    return withSpooler([](SpoolerState& state) {
        return std::vector<std::pair<std::wstring, std::wstring>>(state.defaultPrinters.begin(),
                                                                  state.defaultPrinters.end());
    });
}

std::optional<std::wstring> defaultPrinterOf(const std::wstring& userSid) {
    return withSpooler([&](SpoolerState& state) -> std::optional<std::wstring> {
        auto it = state.defaultPrinters.find(userSid);
        if (it == state.defaultPrinters.end()) return std::nullopt;
        return it->second;
    });
}

}  // namespace winspool
}  // namespace simhost

using namespace simhost::winspool;

// Makes the printer the default of the user the calling thread acts for
// (callingThreadIdentity), under the printer's own name. A null or empty
// name picks the first printer of the machine, as documented; a name no
// visible printer has, or no printer to pick, is ERROR_INVALID_PRINTER_NAME.
// Other users' defaults stay as they are.
BOOL WINAPI SetDefaultPrinterW(LPCWSTR printerName) {
    if (DWORD e = simhost::injectedFailure("SetDefaultPrinterW")) return succeedOrFail(e);
    return withSpooler([&](SpoolerState& state) {
        PrinterPtr printer = chosenPrinter(state, textOf(printerName));
        if (!printer) return succeedOrFail(ERROR_INVALID_PRINTER_NAME);
        state.defaultPrinters[callingThreadIdentity().userSid] = printer->name;
        return TRUE;
    });
}
