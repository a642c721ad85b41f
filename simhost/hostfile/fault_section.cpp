// The "faults" section of a host file: the host's fault injection
// (Host::faults()) for any call that can fail, arranged before the program
// runs.
#include "simhost/core/host.h"
#include "simhost/hostfile/host_file.h"
#include "simhost/hostfile/host_sections.h"

namespace simhost {
namespace {

// How many calls fail: a whole number from 1, or all when absent.
int timesOf(const Json::Value& entry) {
    if (!entry.isMember("times")) return Faults::kAlways;
    const Json::Value& times = entry["times"];
    if (!times.isInt() || times.asInt() < 1) throw HostFileError("fault \"times\" must be a whole number from 1");
    return times.asInt();
}

int passingOf(const Json::Value& entry) {
    const Json::Value& passing = entry.get("passing", 0);
    if (!passing.isInt() || passing.asInt() < 0) throw HostFileError("fault \"passing\" must be a whole number from 0");
    return passing.asInt();
}

// {"call", "error", "times", "passing"}, {"call", "block": true} or
// {"call", "delayMs"}; the three can be combined.
void applyFault(const Json::Value& entry) {
    requireObject(entry, "a fault");
    requireKnownKeys(entry, {"call", "error", "times", "passing", "block", "delayMs"}, "a fault");
    const std::string call = requireString(entry["call"], "fault \"call\"");
    bool fails = entry.isMember("error");
    if (!fails && (entry.isMember("times") || entry.isMember("passing")))
        throw HostFileError("fault of " + call + ": \"times\" and \"passing\" need \"error\"");
    if (!fails && !entry.isMember("block") && !entry.isMember("delayMs"))
        throw HostFileError("fault of " + call + " needs \"error\", \"block\" or \"delayMs\"");
    Faults& faults = Host::get().faults();
    if (fails) faults.failCall(call, requireDword(entry["error"], "fault \"error\""), timesOf(entry), passingOf(entry));
    if (entry.isMember("block")) {
        if (!entry["block"].isBool()) throw HostFileError("fault \"block\" must be true or false");
        if (entry["block"].asBool()) faults.blockCall(call);
    }
    if (entry.isMember("delayMs")) faults.delayCall(call, requireDword(entry["delayMs"], "fault \"delayMs\""));
}

}  // namespace

// "faults": [{"call": "AddPrinterW", "error": 1797, "times": 1}, ...]
void applyFaults(const Json::Value& faults, const std::string&) {
    requireArray(faults, "\"faults\"");
    for (const Json::Value& entry : faults) applyFault(entry);
}

}  // namespace simhost
