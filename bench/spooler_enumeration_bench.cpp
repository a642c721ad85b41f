// Cost of the simulated spooler's enumerations as machines grow: the
// two-call protocol of EnumPrintersW (level 2) and EnumPortsW (level 2) over
// 100 and 1,000 printers or ports. The reaper runs one printer enumeration
// per port of the service, so the cost per listed item must stay flat:
// per_item_ns should hardly change from 100 to 1,000.
#include "simhost/core/host.h"
#include "simhost/winspool/spooler.h"
#include "simhost/winspool/winspool.h"

#include <benchmark/benchmark.h>

#include <string>
#include <vector>

namespace {

void arrangeMachine(int printers) {
    simhost::Host::get().reset();
    simhost::winspool::PrinterDriver driver;
    driver.name = L"Acme LaserBox 2000";
    simhost::winspool::addDriver(driver);
    for (int i = 0; i < printers; ++i) {
        simhost::winspool::PrinterPort port;
        port.name = L"VexorPort_" + std::to_wstring(50000 + i);
        simhost::winspool::TcpPortConfiguration tcp;
        tcp.hostAddress = L"127.0.1.20";
        tcp.portNumber = static_cast<DWORD>(50000 + i);
        port.tcp = tcp;
        simhost::winspool::addPort(port);
        simhost::winspool::SpoolerPrinter printer;
        printer.name = L"Local Printer " + std::to_wstring(i);
        printer.portName = port.name;
        printer.driverName = driver.name;
        printer.comment = L"Vexor redirected printer.  Documents printed on this printer will appear locally";
        printer.location = L"Vexor >> ";
        simhost::winspool::addPrinter(printer);
    }
}

// One enumeration as a caller makes it: the size query, then the fetch into
// a block of that size.
template <class Enumerate>
void enumerateTwice(benchmark::State& state, Enumerate enumerate) {
    std::vector<BYTE> block;
    DWORD needed = 0, returned = 0;
    for (auto _ : state) {
        enumerate(nullptr, 0, &needed, &returned);
        block.resize(needed);
        if (!enumerate(block.data(), needed, &needed, &returned)) state.SkipWithError("the fetch failed");
        benchmark::DoNotOptimize(block.data());
    }
    state.counters["listed"] = returned;
    state.counters["block_bytes"] = needed;
    state.counters["per_item_ns"] = benchmark::Counter(static_cast<double>(state.iterations()) * returned,
                                                       benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}

void BM_EnumPrintersW(benchmark::State& state) {
    arrangeMachine(static_cast<int>(state.range(0)));
    enumerateTwice(state, [](LPBYTE buffer, DWORD size, LPDWORD needed, LPDWORD returned) {
        return EnumPrintersW(PRINTER_ENUM_LOCAL | PRINTER_ENUM_CONNECTIONS, nullptr, 2, buffer, size, needed, returned);
    });
    simhost::Host::get().reset();
}

void BM_EnumPortsW(benchmark::State& state) {
    arrangeMachine(static_cast<int>(state.range(0)));
    enumerateTwice(state, [](LPBYTE buffer, DWORD size, LPDWORD needed, LPDWORD returned) {
        return EnumPortsW(nullptr, 2, buffer, size, needed, returned);
    });
    simhost::Host::get().reset();
}

BENCHMARK(BM_EnumPrintersW)->Arg(100)->Arg(1000)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_EnumPortsW)->Arg(100)->Arg(1000)->Unit(benchmark::kMicrosecond);

}  // namespace

BENCHMARK_MAIN();
