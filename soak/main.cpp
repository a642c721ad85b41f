// vexor-soak: the service under a long run of plugins of several sessions
// that create, print to and delete printers while others leave and come
// back. Not part of the test suite: run it with scripts/soak.sh.
#include "Soak.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

namespace {

constexpr const char* kUsage =
    "usage: vexor-soak [--operations N] [--plugins N] [--seed N]\n"
    "Runs the service on a simulated host with N plugins (default 63) of three\n"
    "sessions for N operations (default 10000), then checks that every request\n"
    "was answered once, that the reaper left nothing of departed plugins and\n"
    "took nothing of live ones, that the host's counters are back where they\n"
    "were, and that memory stayed flat after the warm-up.\n"
    "Exit status: 0 every check held, 1 a check failed, 2 bad usage.\n";

// Growth of resident memory allowed from the end of the warm-up (the first
// half of the run, in which the allocator's arenas of 63 threads settle) to
// the end, beside what the tokens the design leaves open hold.
constexpr long kFlatMemoryKiB = 2048;
constexpr size_t kWarmUpSample = 4;  // the fifth tenth

bool parseNumber(const char* text, unsigned long& value) {
    char* end = nullptr;
    value = std::strtoul(text, &end, 10);
    return *text && *end == '\0' && text[0] != '-';
}

bool parseOptions(int argc, char** argv, soak::SoakOptions& options) {
    for (int i = 1; i < argc; ++i) {
        unsigned long value = 0;
        if (i + 1 >= argc || !parseNumber(argv[i + 1], value)) return false;
        if (std::strcmp(argv[i], "--operations") == 0 && value > 0)
            options.operations = value;
        else if (std::strcmp(argv[i], "--plugins") == 0 && value > 0 && value <= 63)
            options.plugins = static_cast<int>(value);
        else if (std::strcmp(argv[i], "--seed") == 0)
            options.seed = static_cast<unsigned>(value);
        else
            return false;
        ++i;
    }
    return true;
}

struct MemoryGrowth {
    long residentKiB = 0;
    long tokensKiB = 0;
    long otherKiB() const { return residentKiB - tokensKiB; }
};

// From the end of the warm-up to the end of the run.
MemoryGrowth growthAfterWarmUp(const soak::SoakReport& report) {
    MemoryGrowth growth;
    const auto& resident = report.residentKiB;
    const auto& tokens = report.openTokens;
    if (resident.size() <= kWarmUpSample + 1) return growth;
    growth.residentKiB = resident.back() - resident[kWarmUpSample];
    growth.tokensKiB = static_cast<long>(static_cast<double>(tokens.back() - tokens[kWarmUpSample]) *
                                         report.bytesPerToken / 1024);
    return growth;
}

void checkMemory(soak::SoakReport& report) {
    const MemoryGrowth growth = growthAfterWarmUp(report);
    if (growth.otherKiB() > kFlatMemoryKiB)
        report.failures.push_back("resident memory grew by " + std::to_string(growth.otherKiB()) +
                                  " KiB after the warm-up beside the open tokens");
}

void print(const soak::SoakOptions& options, const soak::SoakReport& report) {
    std::printf("soak: %lu operations, %d plugins of 3 sessions, seed %u, %.1f s (%.0f operations/s)\n",
                options.operations, options.plugins, options.seed, report.seconds,
                static_cast<double>(options.operations) / report.seconds);
    std::printf("  creations %lu, prints %lu (%lu bytes), deletions %lu, departures %lu, joins %lu\n",
                report.creations, report.prints, report.documentBytes, report.deletions, report.departures,
                report.joins);
    std::printf("  requests %lu, each answered once; joins refused and made again %lu\n", report.requests,
                report.refusedJoins);
    std::printf("  session lookups %zu: the token handle each leaves open is expected in the counters\n",
                report.sessionLookups);
    std::printf("  resident memory (KiB) at each tenth:");
    for (long kib : report.residentKiB) std::printf(" %ld", kib);
    const MemoryGrowth growth = growthAfterWarmUp(report);
    std::printf("\n  after the warm-up: +%ld KiB, of which the tokens left open hold %ld KiB (%.0f bytes each), "
                "the rest %ld KiB\n",
                growth.residentKiB, growth.tokensKiB, report.bytesPerToken, growth.otherKiB());
    std::printf("  host counters before -> after the run:\n");
    for (const auto& counter : report.after)
        std::printf("    %-24s %zu -> %zu\n", counter.first.c_str(), report.before.at(counter.first), counter.second);
    if (report.failures.empty()) {
        std::printf("soak: every check held\n");
        return;
    }
    std::printf("soak: %zu checks failed:\n", report.failures.size());
    for (const std::string& failure : report.failures) std::printf("  %s\n", failure.c_str());
}

}  // namespace

int main(int argc, char** argv) {
    soak::SoakOptions options;
    if (!parseOptions(argc, argv, options)) {
        std::fputs(kUsage, stderr);
        return 2;
    }
    soak::SoakReport report = soak::runSoak(options);
    checkMemory(report);
    print(options, report);
    return report.failures.empty() ? 0 : 1;
}
