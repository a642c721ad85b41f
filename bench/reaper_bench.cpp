// Cost of one reaper pass as the service's ports grow: 10, 100 and 1,000
// ports of the service, each with one printer, half of them with a live
// listener. The pass enumerates every printer once per port, so it grows
// with the square of the ports by design. Beside each pass the same run
// times one printer enumeration of that machine (the two-call protocol), and
// `pass_over_enumeration` says how many such enumerations one pass costs:
// about the number of ports when the enumeration dominates.
#include "cleanup/PrinterReaper.h"
#include "simhost/core/host.h"
#include "simhost/winspool/spooler.h"
#include "simhost/ws2_32/winsock.h"

#include <benchmark/benchmark.h>

#include <chrono>
#include <string>
#include <vector>

namespace {

namespace spooler = simhost::winspool;
namespace ws2_32 = simhost::ws2_32;
using Clock = std::chrono::steady_clock;

// A new machine with `ports` ports of the service, each with a printer; the
// even ones have a live plugin. The odd ones point at a port that the system
// gave out and that was given back, so nobody listens there.
void arrangeMachine(int ports) {
    simhost::Host::get().reset();
    spooler::addDriver({L"Acme LaserBox 2000", spooler::kLocalEnvironment, L"", L"", {}});
    std::vector<u_short> departed;
    for (int i = 0; i < ports; ++i) {
        const u_short number = ws2_32::holdListener("127.0.1.20", 0);
        if (i % 2) departed.push_back(number);
        spooler::PrinterPort port;
        port.name = L"Vexor_127.0.1.20:" + std::to_wstring(number);
        spooler::TcpPortConfiguration tcp;
        tcp.hostAddress = L"127.0.1.20";
        tcp.ipAddress = L"127.0.1.20";
        tcp.portNumber = number;
        port.tcp = tcp;
        spooler::addPort(port);
        spooler::SpoolerPrinter printer;
        printer.name = L"Local printer " + std::to_wstring(i);
        printer.portName = port.name;
        printer.driverName = L"Acme LaserBox 2000";
        spooler::addPrinter(printer);
    }
    // Given back only now, so that no number is handed out twice.
    for (u_short number : departed) ws2_32::releaseListener("127.0.1.20", number);
}

double enumerationSeconds() {
    DWORD needed = 0, returned = 0;
    const Clock::time_point start = Clock::now();
    EnumPrintersW(PRINTER_ENUM_LOCAL | PRINTER_ENUM_CONNECTIONS, nullptr, 2, nullptr, 0, &needed, &returned);
    std::vector<BYTE> block(needed);
    EnumPrintersW(PRINTER_ENUM_LOCAL | PRINTER_ENUM_CONNECTIONS, nullptr, 2, block.data(), needed, &needed, &returned);
    return std::chrono::duration<double>(Clock::now() - start).count();
}

void BM_ReapPass(benchmark::State& state) {
    const int ports = static_cast<int>(state.range(0));
    double passSeconds = 0, referenceSeconds = 0;
    for (auto _ : state) {
        state.PauseTiming();
        arrangeMachine(ports);
        referenceSeconds += enumerationSeconds();
        state.ResumeTiming();
        const Clock::time_point start = Clock::now();
        benchmark::DoNotOptimize(PrinterReaper::reapPrinterPorts(0));
        passSeconds += std::chrono::duration<double>(Clock::now() - start).count();
    }
    if (static_cast<int>(spooler::printers().size()) != ports / 2) state.SkipWithError("the pass removed the wrong printers");
    state.counters["per_port_us"] = passSeconds * 1e6 / (static_cast<double>(state.iterations()) * ports);
    state.counters["pass_over_enumeration"] = passSeconds / referenceSeconds;
    simhost::Host::get().reset();
}

BENCHMARK(BM_ReapPass)->Arg(10)->Arg(100)->Arg(1000)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
