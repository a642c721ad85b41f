// vexor-probe [--inf PATH] [--driver NAME] [--port NAME] [--printer NAME]
//
// Prints what the platform answers to the calls the service makes, one
// observation a line (see Probe.h). The INF file, driver and port are the
// machine's; the printer is made on them and deleted again.
#include "Probe.h"

#include "foundation/TextConversion.h"

#include <cstdio>
#include <string>
#include <vector>

namespace {

const char* const kUsage =
    "usage: vexor-probe [--inf PATH] [--driver NAME] [--port NAME] [--printer NAME]\n"
    "Prints what the platform answers to the calls the printing service makes.\n"
    "  --inf      an INF file to read (default C:\\VexorProbe\\probe.inf)\n"
    "  --driver   an installed printer driver (default \"Vexor Probe Driver\")\n"
    "  --port     a local port for the probe's printer (default LPT1:)\n"
    "  --printer  the name of the printer the probe makes and deletes\n"
    "             (default \"Vexor Probe Printer\")\n";

bool parse(const std::vector<std::wstring>& arguments, probe::Setup& setup) {
    for (size_t i = 1; i < arguments.size(); i += 2) {
        if (i + 1 >= arguments.size()) return false;
        const std::wstring& option = arguments[i];
        const std::wstring& value = arguments[i + 1];
        if (option == L"--inf") {
            setup.infPath = value;
        } else if (option == L"--driver") {
            setup.driverName = value;
        } else if (option == L"--port") {
            setup.portName = value;
        } else if (option == L"--printer") {
            setup.printerName = value;
        } else {
            return false;
        }
    }
    return true;
}

}  // namespace

int main(int argc, char** argv) {
    platform::prepareHost();
    probe::Setup setup{L"C:\\VexorProbe\\probe.inf", L"Vexor Probe Driver", L"LPT1:", L"Vexor Probe Printer"};
    if (!parse(platform::wideArguments(argc, argv), setup)) {
        std::fputs(kUsage, stderr);
        return 1;
    }
    probe::probeSpooler(setup);
    probe::probeManagement(setup);
    probe::probePrinterRemoval(setup);
    probe::probeSecurity();
    probe::probeToken();
    probe::probeCodePages();
    probe::probeMessages();
    probe::probeRegistry();
    probe::probeInf(setup);
    probe::probeSockets();
    // A run that ends early, a crash of the platform included, lacks this.
    probe::observe("vexor-probe", "done");
    return 0;
}
