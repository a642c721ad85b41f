// PrintUIEntry as the service runs it:
//   /ia /u /q /f "<inf path>" /m "<model name>"
// installs the driver of the model (its display name, any case) from the INF
// file, quietly, under the model's display name. The model is looked for in
// the models sections the host picks for amd64, as class driver lists do;
// the driver gets the model line's hardware id and the language monitor its
// install section names (LanguageMonitor = "name,file.dll", in the section
// itself or in the section its DataSection names). A driver installed
// already is left as it is. The exit code is 0, or the error of the step
// that failed; any other form of the arguments is ERROR_INVALID_PARAMETER.
#include "simhost/kernel32/program_run.h"
#include "simhost/printui/printui.h"
#include "simhost/setupapi/driver_catalog.h"
#include "simhost/setupapi/inf_state.h"
#include "simhost/setupapi/setupapi_state.h"
#include "simhost/winspool/spooler.h"

#include <stdexcept>
#include <vector>

namespace simhost {
namespace printui {
namespace {

constexpr DWORD kInstallFailed = 1;

// The blank-separated words of the arguments, a quoted one as one word
// without its quotes.
std::vector<std::wstring> words(const std::wstring& text) {
    std::vector<std::wstring> found;
    for (size_t at = text.find_first_not_of(L" \t"); at != std::wstring::npos;
         at = text.find_first_not_of(L" \t", at)) {
        bool quoted = text[at] == L'"';
        size_t end = quoted ? text.find(L'"', at + 1) : text.find_first_of(L" \t", at);
        found.push_back(text.substr(at + quoted, end == std::wstring::npos ? std::wstring::npos : end - at - quoted));
        at = end == std::wstring::npos ? end : end + quoted;
    }
    return found;
}

struct Request {
    std::wstring infPath;
    std::wstring model;
};

bool parseRequest(const std::wstring& arguments, Request& request) {
    std::vector<std::wstring> given = words(arguments);
    const std::vector<std::wstring> form = {L"/ia", L"/u", L"/q", L"/f", L"", L"/m", L""};
    if (given.size() != form.size()) return false;
    for (size_t i = 0; i < form.size(); ++i)
        if (!form[i].empty() && given[i] != form[i]) return false;
    request = Request{given[4], given[6]};
    return !request.infPath.empty() && !request.model.empty();
}

// The display name of the monitor of a LanguageMonitor value "name,file".
std::wstring languageMonitor(const setupapi::InfFile& file, const std::wstring& installSection) {
    std::wstring value = file.value(installSection, L"LanguageMonitor");
    std::wstring dataSection = file.value(installSection, L"DataSection");
    if (value.empty() && !dataSection.empty()) value = file.value(dataSection, L"LanguageMonitor");
    return value.substr(0, value.find(L','));
}

DWORD installFrom(const setupapi::InfFile& file, const Request& request) {
    for (const setupapi::DriverInfo& model : setupapi::infDrivers(file, request.infPath, FILETIME{})) {
        if (!setupapi::sameIgnoringCase(model.description, request.model)) continue;
        winspool::PrinterDriver driver;
        driver.name = model.description;
        driver.hardwareId = model.ids.front();
        driver.monitorName = languageMonitor(file, model.sectionName);
        try {
            winspool::addDriver(driver);
        } catch (const std::invalid_argument&) {
            // Installed already: nothing to do.
        }
        return ERROR_SUCCESS;
    }
    return ERROR_UNKNOWN_PRINTER_DRIVER;
}

DWORD install(const Request& request) {
    HINF inf = SetupOpenInfFileW(request.infPath.c_str(), nullptr, INF_STYLE_WIN4, nullptr);
    if (inf == INVALID_HANDLE_VALUE) return GetLastError();
    DWORD result = installFrom(*setupapi::openedInfFile(inf), request);
    SetupCloseInfFile(inf);
    return result;
}

}  // namespace

DWORD printUiEntry(const std::wstring& arguments, const kernel32::ProgramRun& run) {
    Request request;
    if (!parseRequest(arguments, request)) return ERROR_INVALID_PARAMETER;
    InstallerBehaviour behaviour = installerBehaviour(request.model);
    DWORD duration = behaviour.outcome == InstallerOutcome::Hangs ? INFINITE : behaviour.delayMs;
    if (run.endedWithin(duration) || behaviour.outcome == InstallerOutcome::Fails) return kInstallFailed;
    return install(request);
}

}  // namespace printui
}  // namespace simhost
