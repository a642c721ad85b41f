// "installer": how the printer installation tool goes for each driver, and
// "installerRuns": the command lines CreateProcessW started.
#include "simhost/core/text.h"
#include "simhost/hostfile/host_file.h"
#include "simhost/hostfile/host_sections.h"
#include "simhost/kernel32/programs.h"
#include "simhost/printui/printui.h"

#include <cmath>

namespace simhost {
namespace {

using printui::InstallerBehaviour;
using printui::InstallerOutcome;

// The longest delay a DWORD of milliseconds holds short of INFINITE.
constexpr double kMostSeconds = 4294967.0;

// "installs", "fails", "hangs" or {"seconds": n}.
InstallerBehaviour behaviourOf(const Json::Value& value, const std::string& driver) {
    const std::string what = "\"installer\" of \"" + driver + "\"";
    if (value.isString()) {
        const std::string word = value.asString();
        if (word == "installs") return {InstallerOutcome::Installs, 0};
        if (word == "fails") return {InstallerOutcome::Fails, 0};
        if (word == "hangs") return {InstallerOutcome::Hangs, 0};
    }
    if (value.isObject() && value.size() == 1 && value.isMember("seconds")) {
        const Json::Value& seconds = value["seconds"];
        if (!seconds.isNumeric() || seconds.asDouble() < 0 || seconds.asDouble() > kMostSeconds)
            throw HostFileError(what + ": \"seconds\" must be a number from 0 to 4294967");
        return {InstallerOutcome::Installs, static_cast<DWORD>(std::lround(seconds.asDouble() * 1000))};
    }
    throw HostFileError(what + " must be \"installs\", \"fails\", \"hangs\" or {\"seconds\": n}");
}

}  // namespace

// "installer": {"<driver name>": "fails", ...}
void applyInstaller(const Json::Value& installer, const std::string&) {
    requireObject(installer, "\"installer\"");
    for (const std::string& driver : installer.getMemberNames())
        printui::setInstallerBehaviour(widen(driver), behaviourOf(installer[driver], driver));
}

Json::Value describeInstallerRuns() {
    Json::Value list(Json::arrayValue);
    for (const std::wstring& commandLine : kernel32::processRuns()) list.append(narrow(commandLine));
    return list;
}

}  // namespace simhost
