// The driver a new printer gets: a ladder of attempts from the most specific
// description of the client's printer to the least. Policy first, then the
// driver the client names, then ids, then names made from make and model,
// then the fallback. The first step that yields a driver ends the ladder,
// except the two steps that try make-and-model strings as names: they try
// every string, and the latest hit wins.
//
// Every line of the ladder belongs to selectDriver, whichever step logs it.
#include "drivers/InstalledDrivers.h"
#include "drivers/MakeAndModelHwids.h"
#include "foundation/JsonGetters.h"
#include "foundation/StaticLogger.h"
#include "foundation/TextConversion.h"
#include "service/VexorPrintingService.h"

#define LADDER_LOG(channel, level, ...) VX_LOG_AS(self_, (channel), kNoLastError, (level), __VA_ARGS__)

namespace {

constexpr const wchar_t* kClientRenderedMark = L"(Client Rendered) ";
constexpr const char* kGenericPostScript = "Generic PostScript Printer";
constexpr const wchar_t* kHardcodedPostScriptDriver = L"MS Publisher Imagesetter";

// Lines of the steps that try a name, when it was installed already and
// when it was installed now.
struct NameLines {
    const char* alreadyInstalled;
    const char* justInstalled;
};
constexpr NameLines kRequestedLines = {"DRV_MATCH: Client requested driver already installed (Name match):%ls",
                                       "DRV_MATCH: Client requested driver just installed (Name match):%ls"};
constexpr NameLines kMfgMdlLines = {"DRV_MATCH: MFG/MDL driver already installed (Name match):%ls",
                                    "DRV_MATCH: MFG/MDL driver just installed (Name match):%ls"};
constexpr NameLines kMakeModelLines = {"DRV_MATCH: make/model driver already installed (Name match):%ls",
                                       "DRV_MATCH: make/model driver just installed (Name match):%ls"};

// The two runs over a list of ids: installed drivers only, then through the
// catalogue. Each logs its attempt (the id) and its hit (the id, the driver).
struct IdListRun {
    bool useCompatibleIds;
    const char* attempt;
    uint32_t hitLevel;
    const char* hit;
};
constexpr IdListRun kIdListRuns[] = {
    {false, "Attempting match compatible hwid (%ls) without going into compatible ids", 4,
     "DRV_MATCH:Matched compatible hwid:%ls to %ls"},
    {true, "Attempting match compatible hwid (%ls) using locally compatible hwids", 2,
     "Matched compatible hwid:%ls to locally compatible hwid:%ls"},
};

// A make-and-model string that names a series already gets no 'series'
// forms. The test is case-sensitive: "SERIES" does not count.
bool namesASeries(const std::string& text) {
    return text.find("series") != std::string::npos || text.find("Series") != std::string::npos;
}

bool isNonEmptyArray(const Json::Value& value) { return value.isArray() && !value.empty(); }

}  // namespace

VexorPrintingService::DriverAvailability VexorPrintingService::tryDriverName(const std::wstring& name,
                                                                             Json::Value& detail) {
    if (PrinterUtil::printerDriverInstalled(name)) {
        detail["preinstalled"] = true;
        return DriverAvailability::kAlreadyInstalled;
    }
    if (PrinterUtil::installDriverByName(name, driverInfoMap)) {
        detail["preinstalled"] = false;
        return DriverAvailability::kJustInstalled;
    }
    return DriverAvailability::kUnavailable;
}

class VexorPrintingService::DriverLadder {
public:
    DriverLadder(VexorPrintingService& service, const char* self, const Json::Value& request, Json::Value& response,
                 Json::Value& detail, std::wstring& printerComment)
        : service_(service), self_(self), request_(request), response_(response), detail_(detail),
          comment_(printerComment) {}

    std::wstring run() {
        detail_["hwid"] = request_.get("hardwareId", "");
        detail_["driverNameReq"] = request_.get("driverName", "");
        detail_["printerName"] = request_.get("printerName", "");
        forcedClientRender();
        if (!chosen()) requestedDriver();
        if (!chosen()) clientHardwareId();
        // The strings serve every later step, and are read whatever chose.
        makeAndModels_ = PrinterUtil::getMakeAndModelStrings(request_);
        if (!chosen()) genericPostScript();
        if (!chosen()) idListPasses();
        if (!chosen()) mfgMdlName();
        if (!chosen()) makeAndModelNames(L"");
        if (!chosen() && seriesStepsApply()) checksummedSeriesIds();
        if (!chosen() && seriesStepsApply()) makeAndModelNames(L" Series");
        if (!chosen()) fallback();
        if (!chosen()) {
            LADDER_LOG(kLogError, 4, "DRV_MATCH:Failed to find driver for printer.");
            response_["err"] = "Could not find a driver for the printer";
        } else {
            detail_["driverNamePicked"] = wideToUtf8(candidate_);
        }
        response_["detail"] = detail_;
        return chosen_;
    }

private:
    bool chosen() const { return !chosen_.empty(); }

    void choose(const std::wstring& name, const char* from, const char* to) {
        chosen_ = name;
        detail_["from"] = from;
        if (to) detail_["to"] = to;
    }

    // Tries `candidate_` by name; on success logs the line of how it was had
    // and answers true.
    bool tryCandidate(const NameLines& lines) {
        switch (service_.tryDriverName(candidate_, detail_)) {
            case DriverAvailability::kAlreadyInstalled:
                LADDER_LOG(kLogNormal, 4, lines.alreadyInstalled, candidate_.c_str());
                return true;
            case DriverAvailability::kJustInstalled:
                LADDER_LOG(kLogNormal, 4, lines.justInstalled, candidate_.c_str());
                return true;
            default:
                return false;
        }
    }
    bool tryCandidate(const char* line) { return tryCandidate(NameLines{line, line}); }

    void forcedClientRender() {
        if (!service_.forceClientSideRendering(request_)) return;
        candidate_ = service_.GetFallbackDriver(request_);
        if (candidate_.empty()) {
            LADDER_LOG(kLogNormal, 4, "No fallback driver available");
            return;
        }
        if (!tryCandidate("DRV_MATCH: Forced client render with:%ls")) return;
        comment_ = kClientRenderedMark;
        choose(candidate_, "forcedClientRender", "DriverName");
    }

    void requestedDriver() {
        candidate_ = getJsonWString("driverName", request_, L"");
        if (candidate_.empty()) {
            const char* warning = "_addPrinter called with no driverName (possibly CUPS printer)";
            response_["warn"] = warning;
            LADDER_LOG(kLogError, 3, "%s", warning);
            return;
        }
        LADDER_LOG(kLogNormal, 2, "driver req by user:%ls", candidate_.c_str());
        if (tryCandidate(kRequestedLines)) choose(candidate_, "DriverName", "DriverName");
    }

    void clientHardwareId() {
        std::wstring hwid = getJsonWString("hardwareId", request_, L"");
        if (hwid.empty()) hwid = PrinterUtil::deviceIdToChecksummedHwid(request_);
        if (hwid.empty()) {
            const char* warning = "no hardwareId supplied";
            response_["warn"] = warning;
            LADDER_LOG(kLogError, 3, "%s", warning);
            return;
        }
        LADDER_LOG(kLogNormal, 2, "Attempting match client supplied hwid (%ls) without going into locally compatible ids",
                   hwid.c_str());
        candidate_ = service_._matchDriverByHwid(hwid, false, detail_);
        if (candidate_.empty()) {
            LADDER_LOG(kLogNormal, 2, "Attempting match hwid (%ls) using compatible ids", hwid.c_str());
            candidate_ = service_._matchDriverByHwid(hwid, true, detail_);
        }
        // The id ladder has written `to`; `from` stays as it was.
        if (!candidate_.empty()) chosen_ = candidate_;
    }

    void genericPostScript() {
        if (!isNonEmptyArray(makeAndModels_)) return;
        bool listed = false;
        for (const Json::Value& text : makeAndModels_) listed = listed || text.asString() == kGenericPostScript;
        if (!listed) return;
        candidate_ = service_.GetFallbackDriver(request_);
        if (candidate_.empty()) {
            LADDER_LOG(kLogNormal, 4, "Using hardcoded driver:MS Publisher Imagesetter");
            candidate_ = kHardcodedPostScriptDriver;
        } else {
            LADDER_LOG(kLogNormal, 4, "Using fallback driver for Generic PostScript Printer:%ls", candidate_.c_str());
        }
        // Whichever driver it is, this step leaves the comment alone.
        if (tryCandidate("DRV_MATCH: Matched 'Generic PostScript Printer' to special value:%ls"))
            choose(candidate_, "HardCodedMakeAndModel", "DriverName");
    }

    void idListPasses() {
        const Json::Value& compatHwids = request_.get("compatHwids", Json::Value());
        if (isNonEmptyArray(compatHwids))
            matchIdList(compatHwids, "compatHwid");
        else
            LADDER_LOG(kLogNormal, 2, "No explicitly defined compatible ids supplied by Client");
        if (!chosen()) madeIdPass(PrinterUtil::addChecksummedMakeAndModelHwids, "checksummedMakeAndModelHwid");
        if (!chosen()) madeIdPass(PrinterUtil::addMakeAndModelHwids, "makeAndModelHwid");
    }

    // A pass over the ids made from every make-and-model string.
    void madeIdPass(void (*addIds)(std::wstring, Json::Value&), const char* tag) {
        if (!isNonEmptyArray(makeAndModels_)) {
            LADDER_LOG(kLogNormal, 2, "No make-and-model strings supplied by Client");
            return;
        }
        Json::Value ids(Json::arrayValue);
        for (const Json::Value& text : makeAndModels_) addIds(utf8ToWide(text.asString()), ids);
        // The line says "checksummed" for both passes.
        LADDER_LOG(kLogNormal, 2, "converted:%u make-and-model strings into:%u checksummed hwids",
                   makeAndModels_.size(), ids.size());
        matchIdList(ids, tag);
    }

    // Every id of the list is tried against installed drivers before any is
    // tried through the catalogue. An id that is an array or an object
    // throws, and the request goes with it.
    void matchIdList(const Json::Value& ids, const char* tag) {
        LADDER_LOG(kLogNormal, 2, "Checking:%u compatible hwids", ids.size());
        for (const IdListRun& run : kIdListRuns) {
            for (const Json::Value& id : ids) {
                const std::wstring hwid = utf8ToWide(id.asString());
                LADDER_LOG(kLogNormal, 2, run.attempt, hwid.c_str());
                candidate_ = service_._matchDriverByHwid(hwid, run.useCompatibleIds, detail_);
                if (candidate_.empty()) continue;
                choose(candidate_, tag, nullptr);
                LADDER_LOG(kLogNormal, run.hitLevel, run.hit, hwid.c_str(), candidate_.c_str());
                return;
            }
        }
    }

    void mfgMdlName() {
        std::wstring manufacturer, model;
        if (!PrinterUtil::getMacManufacturerModelStr(request_, manufacturer, model)) return;
        candidate_ = trimmed(manufacturer) + trimmed(model);
        LADDER_LOG(kLogNormal, 2, "Got MFG/MDL driver name:%ls", candidate_.c_str());
        if (tryCandidate(kMfgMdlLines)) choose(candidate_, "MFG/MDLDriverName", "DriverName");
    }

    // Every string is tried as a driver name, with `suffix` behind it; a
    // suffix skips the strings that name a series already. All are tried,
    // installs included, and the latest hit is the driver; `candidate_`
    // keeps changing, so the name reported is the last one tried.
    void makeAndModelNames(const std::wstring& suffix) {
        if (!isNonEmptyArray(makeAndModels_)) return;
        for (const Json::Value& text : makeAndModels_) {
            if (!suffix.empty() && namesASeries(text.asString())) continue;
            candidate_ = utf8ToWide(text.asString()) + suffix;
            LADDER_LOG(kLogNormal, 2, "Got make/model driver name:%ls", candidate_.c_str());
            if (tryCandidate(kMakeModelLines)) chosen_ = candidate_;
            if (chosen()) choose(chosen_, "make/model DriverName", "DriverName");
        }
    }

    bool seriesStepsApply() { return service_.addSeriesEnabled() && isNonEmptyArray(makeAndModels_); }

    void checksummedSeriesIds() {
        Json::Value ids(Json::arrayValue);
        for (const Json::Value& text : makeAndModels_) {
            const std::string makeAndModel = text.asString();
            if (namesASeries(makeAndModel)) continue;
            PrinterUtil::addChecksummedMakeAndModelHwids(utf8ToWide(makeAndModel + " series"), ids);
            PrinterUtil::addChecksummedMakeAndModelHwids(utf8ToWide(makeAndModel + " Series"), ids);
        }
        LADDER_LOG(kLogNormal, 2, "converted:%u make-and-model strings plus 'series' into:%u checksummed hwids",
                   makeAndModels_.size(), ids.size());
        matchIdList(ids, "checksummedSeriesMakeAndModelHwid");
    }

    void fallback() {
        candidate_ = service_.GetFallbackDriver(request_);
        if (candidate_.empty()) {
            LADDER_LOG(kLogNormal, 4, "Use of fallback driver has been disabled.");
            return;
        }
        // Set before it is known whether the driver can be had.
        comment_ = kClientRenderedMark;
        if (tryCandidate("DRV_MATCH: using fallback driver:%ls")) choose(candidate_, "nothing", "fallback");
    }

    VexorPrintingService& service_;
    const char* self_;
    const Json::Value& request_;
    Json::Value& response_;
    Json::Value& detail_;
    std::wstring& comment_;
    // The name the latest step produced; reported as the name picked.
    std::wstring candidate_;
    // The driver chosen so far, in storage of its own: in the steps that go
    // on after a hit, later names pass through `candidate_` only.
    std::wstring chosen_;
    Json::Value makeAndModels_;
};

std::wstring VexorPrintingService::selectDriver(const Json::Value& request, Json::Value& response,
                                                Json::Value& detail, std::wstring& printerComment) {
    VX_DECLARE_FUNCTION_NAME(self);
    return DriverLadder(*this, self.c_str(), request, response, detail, printerComment).run();
}
