// Print jobs in a printer's queue, as the host API puts them there. The
// spooler's calls see them as cJobs and drop them with
// PRINTER_CONTROL_PURGE; printJob (raw_printing.cpp) queues and prints.
#include "simhost/core/text.h"
#include "simhost/winspool/spooler_state.h"

#include <stdexcept>

namespace simhost {
namespace winspool {

DWORD queueJob(SpoolerState& state, SpoolerPrinter& printer, PrintJob job) {
    if (!job.id) job.id = state.nextJobId();
    printer.jobs.push_back(std::move(job));
    return printer.jobs.back().id;
}

DWORD addJob(const std::wstring& printerName, PrintJob job) {
    return withSpooler([&](SpoolerState& state) {
        PrinterPtr printer = state.findVisiblePrinter(printerName);
        if (!printer) throw std::invalid_argument("no printer \"" + narrow(printerName) + "\" to queue a job on");
        return queueJob(state, *printer, std::move(job));
    });
}

}  // namespace winspool
}  // namespace simhost
