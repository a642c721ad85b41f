// INF reading through SetupAPI on the INF file named on the command line:
// lines, fields with their size protocol (in characters), string
// substitution, and the errors of missing files, sections and keys.
#include "Probe.h"

namespace probe {
namespace {

void field(const std::string& topic, INFCONTEXT& line, DWORD index) {
    DWORD required = 0;
    primeLastError();
    BOOL ok = SetupGetStringFieldW(&line, index, nullptr, 0, &required);
    std::string told = "size-query " + outcome(ok) + " required=" + number(required);
    wchar_t shortBuffer[2] = {};
    DWORD shortRequired = 0;
    primeLastError();
    ok = SetupGetStringFieldW(&line, index, shortBuffer, 2, &shortRequired);
    told += "; short " + outcome(ok) + " required=" + (shortRequired == required ? "same" : number(shortRequired));
    wchar_t buffer[128] = {};
    DWORD used = 0;
    primeLastError();
    ok = SetupGetStringFieldW(&line, index, buffer, 128, &used);
    told += "; fetch " + outcome(ok) + (ok ? " used=" + number(used) + " \"" + text(buffer) + "\"" : "");
    observe(topic + " field " + number(index), told);
}

bool findLine(HINF inf, const wchar_t* section, const wchar_t* key, INFCONTEXT& line) {
    const std::string topic = "SetupFindFirstLineW [" + text(section) + "] " + (key ? text(key) : "any");
    primeLastError();
    BOOL ok = SetupFindFirstLineW(inf, section, key, &line);
    observe(topic, outcome(ok) + (ok ? " fields=" + number(SetupGetFieldCount(&line)) : ""));
    return ok;
}

void open(const std::string& topic, const std::wstring& path) {
    UINT errorLine = 0;
    primeLastError();
    HINF inf = SetupOpenInfFileW(path.c_str(), nullptr, INF_STYLE_WIN4, &errorLine);
    observe("SetupOpenInfFileW " + topic, outcome(inf != INVALID_HANDLE_VALUE));
    if (inf != INVALID_HANDLE_VALUE) SetupCloseInfFile(inf);
}

// The folder of a Windows path, with its final backslash.
std::wstring folderOf(const std::wstring& path) { return path.substr(0, path.rfind(L'\\') + 1); }

}  // namespace

void probeInf(const Setup& setup) {
    UINT errorLine = 0;
    primeLastError();
    HINF inf = SetupOpenInfFileW(setup.infPath.c_str(), nullptr, INF_STYLE_WIN4, &errorLine);
    observe("SetupOpenInfFileW probe.inf", outcome(inf != INVALID_HANDLE_VALUE));
    if (inf == INVALID_HANDLE_VALUE) return;
    INFCONTEXT line;
    if (findLine(inf, L"Version", L"Signature", line)) field("[Version] Signature", line, 1);
    if (findLine(inf, L"version", L"provider", line)) field("[Version] Provider", line, 1);
    if (findLine(inf, L"Manufacturer", nullptr, line)) {
        for (DWORD i = 0; i <= 3; ++i) field("[Manufacturer]", line, i);
    }
    if (findLine(inf, L"Models.NTamd64", nullptr, line)) {
        for (DWORD i = 0; i <= 4; ++i) field("[Models.NTamd64]", line, i);
        DWORD required = 0;
        primeLastError();
        BOOL ok = SetupGetMultiSzFieldW(&line, 2, nullptr, 0, &required);
        observe("SetupGetMultiSzFieldW [Models.NTamd64] from 2", outcome(ok) + " required=" + number(required));
        primeLastError();
        ok = SetupFindNextLine(&line, &line);
        observe("SetupFindNextLine [Models.NTamd64] second", outcome(ok));
        if (ok) field("[Models.NTamd64] second", line, 0);
        primeLastError();
        observe("SetupFindNextLine [Models.NTamd64] past-last", outcome(SetupFindNextLine(&line, &line)));
    }
    if (findLine(inf, L"ProbeInstall", L"CopyFiles", line)) field("[ProbeInstall] CopyFiles", line, 1);
    if (findLine(inf, L"ProbeInstall", L"Note", line)) field("[ProbeInstall] Note", line, 1);
    if (findLine(inf, L"ProbeInstall", L"Percent", line)) field("[ProbeInstall] Percent", line, 1);
    findLine(inf, L"ProbeInstall", L"NoSuchKey", line);
    findLine(inf, L"NoSuchSection", nullptr, line);
    findLine(inf, L"Empty", nullptr, line);
    SetupCloseInfFile(inf);

    const std::wstring folder = folderOf(setup.infPath);
    open("missing file", folder + L"missing.inf");
    open("missing folder", folder + L"missing\\probe.inf");
    open("folder", folder.substr(0, folder.size() - 1));
}

}  // namespace probe
