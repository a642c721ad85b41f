#include "SelectionSteps.h"

namespace vexor_tools {
namespace {

// The step each value of the detail record's `from` stands for. Steps 7 and
// 9 write the same value, and step 3 writes none.
struct StepOfSource {
    const char* from;
    const char* step;
};
constexpr StepOfSource kStepsBySource[] = {
    {"forcedClientRender", "step 1: forced client rendering, with the fallback driver"},
    {"DriverName", "step 2: the driver the client asked for by name"},
    {"HardCodedMakeAndModel", "step 4: a generic PostScript printer"},
    {"compatHwid", "step 5, pass 1: the client's compatible ids"},
    {"checksummedMakeAndModelHwid", "step 5, pass 2: checksummed make-and-model ids"},
    {"makeAndModelHwid", "step 5, pass 3: make-and-model ids"},
    {"MFG/MDLDriverName", "step 6: the device id's manufacturer and model as a driver name"},
    {"checksummedSeriesMakeAndModelHwid", "step 8: checksummed make-and-model ids with 'series'"},
    {"nothing", "step 10: the fallback driver"},
};
constexpr const char* kMakeAndModelNamesFrom = "make/model DriverName";
constexpr const char* kMakeAndModelNamesStep = "step 7: make-and-model strings as driver names";
constexpr const char* kSeriesNamesStep = "step 9: make-and-model strings with \" Series\" as driver names";
constexpr const char* kEitherNamesStep =
    "step 7 or 9: make-and-model strings as driver names (with \" Series\" in step 9)";
constexpr const char* kClientIdStep = "step 3: the client's hardware id";
constexpr const char* kDeviceIdStep = "step 3: the checksummed id of the client's device id";
constexpr const char* kNoDriverStep = "step 11: no step found a driver";

}  // namespace

std::string decidingStep(const Json::Value& detail, bool driverChosen, std::optional<bool> seriesNamesTried) {
    if (!driverChosen) return kNoDriverStep;
    // Step 3 leaves `from` alone; the id ladder under it writes `to`.
    if (!detail.isMember("from")) return detail["hwid"] == "" ? kDeviceIdStep : kClientIdStep;
    const std::string from = detail["from"].asString();
    if (from == kMakeAndModelNamesFrom) {
        if (!seriesNamesTried) return kEitherNamesStep;
        return *seriesNamesTried ? kSeriesNamesStep : kMakeAndModelNamesStep;
    }
    for (const StepOfSource& source : kStepsBySource)
        if (from == source.from) return source.step;
    return "an unknown step (from \"" + from + "\")";
}

std::string matchedIdText(const Json::Value& detail) {
    if (!detail.isMember("matchedHwid")) return {};
    return detail["matchedHwid"].asString() +
           (detail["matchedBus"].asBool() ? " (bus part compared)" : " (without its bus part)");
}

}  // namespace vexor_tools
