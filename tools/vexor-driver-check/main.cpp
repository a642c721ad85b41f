// vexor-driver-check: tells an administrator, before any client connects,
// which driver the printing service will give a client printer on a host,
// and why. It runs the service's own driver selection on a simulated copy
// of the host, made in a temporary folder, and reports the outcome, the step
// that decided and the selection's trail from the service's log. It never
// opens the command socket.
#include "CheckOptions.h"
#include "Report.h"
#include "ScratchHost.h"
#include "SelectionRun.h"
#include "platform/win32.h"
#include "simhost/core/host.h"

#include <iostream>

namespace {

using namespace driver_check;

enum ExitCode { kDriverChosen = 0, kNoDriver = 1, kBadUsage = 2 };

SelectionOutcome selectOnHost(const Json::Value& request) {
    try {
        SelectionOutcome outcome = runSelection(request);
        // Ends what an installer that hangs left running on the host.
        simhost::Host::get().reset();
        return outcome;
    } catch (const std::exception& e) {
        throw UsageError(std::string("the selection failed on this printer description: ") + e.what());
    } catch (DWORD error) {
        throw UsageError("the service could not be made on this host: error " + std::to_string(error));
    }
}

int runCheck(const CheckOptions& options) {
    const Json::Value request = printerRequest(options);
    const TemporaryFolder folder;
    arrangeHost(options, folder.path());
    const SelectionOutcome outcome = selectOnHost(request);
    if (options.json)
        printReplyRecord(outcome, std::cout);
    else
        printReport(outcome, options.verbose, std::cout);
    return outcome.driver.empty() ? kNoDriver : kDriverChosen;
}

}  // namespace

int main(int argc, char** argv) {
    try {
        const CheckOptions options = parseCheckOptions(std::vector<std::string>(argv + 1, argv + argc));
        if (options.help) {
            std::cout << kUsageText;
            return kDriverChosen;
        }
        return runCheck(options);
    } catch (const UsageError& e) {
        std::cerr << "vexor-driver-check: " << e.what() << "\n"
                  << "(vexor-driver-check --help tells the options)\n";
        return kBadUsage;
    }
}
