#include "Report.h"

#include "foundation/ClassicJson.h"
#include "foundation/TextConversion.h"
#include "common/SelectionSteps.h"

#include <iomanip>

namespace driver_check {

namespace {

// Logged by step 8 alone, which runs only when step 7 found nothing.
constexpr const char* kSeriesIdsLine = " make-and-model strings plus 'series' into:";

constexpr int kLabelWidth = 16;

bool seriesIdsTried(const std::vector<SelectionLogLine>& log) {
    for (const SelectionLogLine& line : log)
        if (line.message.find(kSeriesIdsLine) != std::string::npos) return true;
    return false;
}

void field(std::ostream& out, const std::string& label, const std::string& value) {
    out << std::left << std::setw(kLabelWidth) << label << value << "\n";
}

std::string compact(const Json::Value& value) {
    std::string text = writeCompact(value);
    if (!text.empty() && text.back() == '\n') text.pop_back();
    return text;
}

const Json::Value& detailOf(const SelectionOutcome& outcome) { return outcome.response["detail"]; }

void printChoice(const SelectionOutcome& outcome, std::ostream& out) {
    const Json::Value& detail = detailOf(outcome);
    if (outcome.driver.empty())
        field(out, "No driver:", outcome.response["err"].asString());
    else
        field(out, "Driver:", wideToUtf8(outcome.driver));
    field(out, "Decided by:", decidingStep(outcome));
    if (detail.isMember("matchedHwid")) field(out, "Matched id:", vexor_tools::matchedIdText(detail));
    // Steps 7 and 9 go on trying names after a hit; the record reports the last.
    const std::string picked = detail["driverNamePicked"].asString();
    if (!outcome.driver.empty() && picked != wideToUtf8(outcome.driver))
        field(out, "Name picked:", picked + " (the last name tried, not the driver)");
}

void printInstallation(const SelectionOutcome& outcome, std::ostream& out) {
    if (!outcome.driver.empty())
        field(out, "Installed:", detailOf(outcome)["preinstalled"].asBool() ? "already, on the host" : "by this run");
    if (outcome.installerRuns.empty()) {
        field(out, "Installer runs:", "none");
        return;
    }
    out << "Installer runs:\n";
    for (const std::wstring& commandLine : outcome.installerRuns) out << "  " << wideToUtf8(commandLine) << "\n";
}

// The comment mark counts only for a printer that is made.
void printNotes(const SelectionOutcome& outcome, std::ostream& out) {
    if (!outcome.driver.empty() && !outcome.comment.empty())
        field(out, "Comment mark:", "\"" + wideToUtf8(outcome.comment) + "\"");
    if (outcome.response.isMember("warn")) field(out, "Warning:", outcome.response["warn"].asString());
    field(out, "Detail:", compact(detailOf(outcome)));
}

void printTrail(const std::vector<SelectionLogLine>& log, std::ostream& out) {
    out << "Trail:\n";
    for (const SelectionLogLine& line : log)
        if (line.message.rfind("DRV_MATCH", 0) == 0) out << "  " << line.message << "\n";
}

void printLog(const std::vector<SelectionLogLine>& log, std::ostream& out) {
    out << "Log of the selection:\n";
    for (const SelectionLogLine& line : log) out << "  " << line.function << ": " << line.message << "\n";
}

}  // namespace

std::string decidingStep(const SelectionOutcome& outcome) {
    return vexor_tools::decidingStep(detailOf(outcome), !outcome.driver.empty(), seriesIdsTried(outcome.log));
}

void printReport(const SelectionOutcome& outcome, bool verbose, std::ostream& out) {
    printChoice(outcome, out);
    printInstallation(outcome, out);
    printNotes(outcome, out);
    printTrail(outcome.log, out);
    if (verbose) printLog(outcome.log, out);
}

void printReplyRecord(const SelectionOutcome& outcome, std::ostream& out) { out << writeCompact(outcome.response); }

}  // namespace driver_check
