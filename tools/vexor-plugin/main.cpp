// vexor-plugin: stands in for the plugin of a user session. It runs beside
// the service on the simulated host: opens its own listener for print jobs,
// asks the service for a printer whose port points at it, shows which driver
// the printer got and why, saves the documents the spooler sends, and goes
// away so that the service reaps the printer. `vexor-plugin print` prints a
// document on the simulated host through its control socket.
#include "ControlPrint.h"
#include "PluginOptions.h"
#include "PluginRun.h"
#include "common/Sockets.h"

#include <iostream>

int main(int argc, char** argv) {
    using namespace vexor_plugin;
    using vexor_tools::SocketError;
    constexpr int kUsage = 2;
    try {
        Options options = parseOptions(argc, argv);
        switch (options.command) {
        case Command::Help: std::cout << kUsageText; return 0;
        case Command::Print: return printThroughHost(options.print);
        case Command::Run: return runPlugin(options.run);
        }
    } catch (const UsageError& e) {
        std::cerr << "vexor-plugin: " << e.what() << "\n\n" << kUsageText;
        return kUsage;
    } catch (const SocketError& e) {
        std::cerr << "vexor-plugin: " << e.what() << std::endl;
        return 3;
    }
    return kUsage;
}
