// rundll32: "<dll>,<entry> <arguments>" calls an entry point of a library
// with the rest of the command line. The host knows one entry,
// printui.dll,PrintUIEntry; for any other the program ends with
// ERROR_PROC_NOT_FOUND as its exit code, having done nothing.
#include "simhost/crt/crt.h"
#include "simhost/kernel32/program_run.h"
#include "simhost/printui/printui.h"

namespace simhost {
namespace kernel32 {
namespace {

constexpr DWORD kErrorProcNotFound = 127;  // ERROR_PROC_NOT_FOUND

// A library named with or without its extension, in any case.
bool isLibrary(const std::wstring& name, const wchar_t* stem) {
    std::wstring withExtension = std::wstring(stem) + L".dll";
    return _wcsicmp(name.c_str(), stem) == 0 || _wcsicmp(name.c_str(), withExtension.c_str()) == 0;
}

}  // namespace

DWORD runRundll32(const std::wstring& arguments, const ProgramRun& run) {
    size_t first = arguments.find_first_not_of(L" \t");
    if (first == std::wstring::npos) return kErrorProcNotFound;
    size_t end = arguments.find_first_of(L" \t", first);
    std::wstring target = arguments.substr(first, end == std::wstring::npos ? std::wstring::npos : end - first);
    size_t comma = target.find(L',');
    if (comma == std::wstring::npos) return kErrorProcNotFound;
    // Entry points are named case-sensitively, libraries in any case.
    if (!isLibrary(target.substr(0, comma), L"printui") || target.substr(comma + 1) != L"PrintUIEntry")
        return kErrorProcNotFound;
    return printui::printUiEntry(end == std::wstring::npos ? std::wstring() : arguments.substr(end), run);
}

}  // namespace kernel32
}  // namespace simhost
