// Cost of the spelling variants of a make-and-model string: the variants
// double with every blank, and the number of blanks is whatever a client
// sends. Reports time per call, the ids and their bytes, and the peak
// resident set of the process after each size.
#include "drivers/MakeAndModelHwids.h"

#include <benchmark/benchmark.h>
#include <sys/resource.h>

#include <memory>
#include <string>

namespace {

// "Acme W1 W2 ... Wn": n blanks between short words.
std::wstring makeAndModelWithBlanks(int blanks) {
    std::wstring text = L"Acme";
    for (int i = 1; i <= blanks; ++i) text += L" W" + std::to_wstring(i);
    return text;
}

double textBytes(const Json::Value& ids) {
    double bytes = 0;
    for (const Json::Value& id : ids) bytes += static_cast<double>(id.asString().size());
    return bytes;
}

double peakResidentMegabytes() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return static_cast<double>(usage.ru_maxrss) / 1024.0;  // ru_maxrss is in kilobytes on Linux
}

void BM_AddMakeAndModelHwids(benchmark::State& state) {
    const std::wstring text = makeAndModelWithBlanks(static_cast<int>(state.range(0)));
    double ids = 0;
    double bytes = 0;
    for (auto _ : state) {
        auto result = std::make_unique<Json::Value>(Json::arrayValue);
        PrinterUtil::addMakeAndModelHwids(text, *result);
        benchmark::DoNotOptimize(result.get());
        // Counting and freeing the result is not part of the call.
        state.PauseTiming();
        ids = result->size();
        bytes = textBytes(*result);
        result.reset();
        state.ResumeTiming();
    }
    state.counters["ids"] = ids;
    state.counters["id_text_bytes"] = bytes;
    state.counters["peak_rss_MB"] = peakResidentMegabytes();
}

BENCHMARK(BM_AddMakeAndModelHwids)->Arg(8)->Arg(12)->Arg(16)->Arg(20)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
