// The host API's view of printers and handles, and the host's say over the
// service account's rights on the monitors.
#include "simhost/winspool/spooler_state.h"

namespace simhost {
namespace winspool {

std::vector<SpoolerPrinter> printers() {
    return withSpooler([](SpoolerState& state) {
        std::vector<SpoolerPrinter> listed;
        listed.reserve(state.printers.size());
        for (const PrinterPtr& printer : state.printers) listed.push_back(*printer);
        return listed;
    });
}

std::optional<SpoolerPrinter> findPrinter(const std::wstring& name) {
    return withSpooler([&](SpoolerState& state) -> std::optional<SpoolerPrinter> {
        PrinterPtr printer = state.findAnyPrinter(name);
        if (!printer) return std::nullopt;
        return *printer;
    });
}

size_t openSpoolerHandleCount() {
    return withSpooler([](SpoolerState& state) { return state.handles.size(); });
}

void denyMonitorAdministration(bool denied) {
    withSpooler([&](SpoolerState& state) { state.monitorAdministrationDenied = denied; });
}

}  // namespace winspool
}  // namespace simhost
