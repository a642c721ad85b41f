// The INF calls of setupapi: opening a file as a handle, finding lines and
// reading their fields. An HINF is not a kernel object: its values come from
// the host's handle sequence, are never reused, and only SetupCloseInfFile
// closes them. A line's context names the handle, the section and the line
// by index; the parsed file behind a handle never changes.
#include "simhost/kernel32/objects.h"
#include "simhost/setupapi/inf_state.h"
#include "simhost/setupapi/setupapi_state.h"

#include <algorithm>
#include <sys/stat.h>

namespace simhost {
namespace setupapi {
namespace {

constexpr DWORD kKnownInfStyles = INF_STYLE_OLDNT | INF_STYLE_WIN4;

InfState& infState() { return Host::get().state<InfState>(); }

template <class Work>
auto withInfState(Work work) {
    InfState& state = infState();
    std::lock_guard<std::mutex> hold(state.mutex);
    return work(state);
}

// A name without a path separator is looked for in the INF directory, then
// in system32, as documented.
std::wstring resolveInfName(const std::wstring& name) {
    if (name.find_first_of(L"\\/") != std::wstring::npos) return name;
    for (const wchar_t* directory : {L"C:\\Windows\\INF\\", L"C:\\Windows\\System32\\"}) {
        std::string native = Host::get().toNativePath(directory + name);
        struct stat info;
        if (!native.empty() && ::stat(native.c_str(), &info) == 0) return directory + name;
    }
    return L"C:\\Windows\\INF\\" + name;
}

// The error of opening the file for this style and class, or 0.
DWORD refusal(const InfFile& file, PCWSTR infClass, DWORD infStyle) {
    if (!(infStyle & INF_STYLE_WIN4) || !isWin4Inf(file)) return ERROR_WRONG_INF_STYLE;
    if (infClass && *infClass && !sameIgnoringCase(infClassOf(file), infClass)) return ERROR_CLASS_MISMATCH;
    return ERROR_SUCCESS;
}

HINF failOpen(DWORD error) {
    SetLastError(error);
    return INVALID_HANDLE_VALUE;
}

// The line a context names, or the error to fail with.
struct LineLookup {
    std::shared_ptr<const InfFile> file;
    const InfSection* section = nullptr;
    const InfLine* line = nullptr;
    DWORD error = ERROR_SUCCESS;
};

LineLookup lookUpLine(const INFCONTEXT* context) {
    if (!context) return {nullptr, nullptr, nullptr, ERROR_INVALID_PARAMETER};
    LineLookup found;
    found.file = openedInfFile(context->Inf);
    if (!found.file) return {nullptr, nullptr, nullptr, ERROR_INVALID_HANDLE};
    if (context->Section >= found.file->sections.size()) return {nullptr, nullptr, nullptr, ERROR_INVALID_PARAMETER};
    found.section = &found.file->sections[context->Section];
    if (context->Line >= found.section->lines.size()) return {nullptr, nullptr, nullptr, ERROR_INVALID_PARAMETER};
    found.line = &found.section->lines[context->Line];
    return found;
}

// Delivers `size` characters from `text`, every NUL included, in the
// two-call protocol: *requiredSize always, the text when it fits. A null
// buffer only asks for the size.
BOOL deliver(const wchar_t* text, size_t size, PWSTR buffer, DWORD bufferSize, PDWORD requiredSize) {
    DWORD needed = static_cast<DWORD>(size);
    if (requiredSize) *requiredSize = needed;
    if (!buffer) return TRUE;
    if (bufferSize < needed) return failWith(ERROR_INSUFFICIENT_BUFFER);
    std::copy(text, text + size, buffer);
    return TRUE;
}

}  // namespace

// A WIN4 INF file has a [Version] section whose Signature is "$Windows NT$"
// or "$Chicago$", in any case.
bool isWin4Inf(const InfFile& file) {
    std::wstring signature = file.value(L"Version", L"Signature");
    return sameIgnoringCase(signature, L"$Windows NT$") || sameIgnoringCase(signature, L"$Chicago$");
}

// The file's class: its Class value, else the name of the class of its
// ClassGUID when the host knows that class.
std::wstring infClassOf(const InfFile& file) {
    std::wstring name = file.value(L"Version", L"Class");
    if (!name.empty()) return name;
    std::wstring guid = file.value(L"Version", L"ClassGUID");
    for (const GUID& known : {GUID_DEVCLASS_PRINTER, GUID_DEVCLASS_PRINTQUEUE})
        if (sameIgnoringCase(guid, registryForm(known))) return *knownClassName(known);
    return {};
}

size_t openInfHandleCount() {
    return withInfState([](InfState& state) { return state.open.size(); });
}

std::shared_ptr<const InfFile> openedInfFile(HINF inf) {
    return withInfState([&](InfState& state) {
        auto open = state.open.find(inf);
        return open == state.open.end() ? nullptr : open->second;
    });
}

InfCacheCounts infCacheCounts() {
    return withInfState([](InfState& state) { return state.counts; });
}

}  // namespace setupapi
}  // namespace simhost

using namespace simhost::setupapi;

// A handle to the parsed file, or INVALID_HANDLE_VALUE with the last error.
// *errorLine receives the 1-based line of a syntax error and is left alone
// on other failures. Style INF_STYLE_OLDNT alone refuses every file, as the
// host holds WIN4 files only.
HINF WINAPI SetupOpenInfFileW(PCWSTR fileName, PCWSTR infClass, DWORD infStyle, PUINT errorLine) {
    if (DWORD error = simhost::injectedFailure("SetupOpenInfFileW")) return failOpen(error);
    if (!fileName || !*fileName || (infStyle & ~kKnownInfStyles)) return failOpen(ERROR_INVALID_PARAMETER);
    std::wstring path = resolveInfName(fileName);
    InfParse parse = withInfState([&](InfState& state) { return loadInfFile(state, path); });
    if (parse.error) {
        if (parse.errorLine && errorLine) *errorLine = parse.errorLine;
        return failOpen(parse.error);
    }
    if (DWORD error = refusal(*parse.file, infClass, infStyle)) return failOpen(error);
    HINF handle = simhost::reserveHandleValue();
    withInfState([&](InfState& state) { state.open[handle] = parse.file; });
    return handle;
}

// Closes the handle; an unknown or closed one is ignored, as the call has no
// way to report it. An injected failure can only block or delay the call.
void WINAPI SetupCloseInfFile(HINF infHandle) {
    simhost::injectedFailure("SetupCloseInfFile");
    withInfState([&](InfState& state) { state.open.erase(infHandle); });
}

// The first line of the section, or its first line of this key in any case.
// The documentation gives one outcome for a line not found, so a section the
// file lacks fails as an absent line does: ERROR_LINE_NOT_FOUND.
BOOL WINAPI SetupFindFirstLineW(HINF infHandle, PCWSTR section, PCWSTR key, PINFCONTEXT context) {
    if (DWORD error = simhost::injectedFailure("SetupFindFirstLineW")) return failWith(error);
    if (!section || !context) return failWith(ERROR_INVALID_PARAMETER);
    std::shared_ptr<const InfFile> file = openedInfFile(infHandle);
    if (!file) return failWith(ERROR_INVALID_HANDLE);
    long index = file->findSection(section);
    if (index < 0) return failWith(ERROR_LINE_NOT_FOUND);
    const std::vector<InfLine>& lines = file->sections[size_t(index)].lines;
    for (size_t i = 0; i < lines.size(); ++i) {
        if (key && !(lines[i].hasKey && sameIgnoringCase(lines[i].key, key))) continue;
        *context = INFCONTEXT{infHandle, infHandle, static_cast<UINT>(index), static_cast<UINT>(i)};
        return TRUE;
    }
    return failWith(ERROR_LINE_NOT_FOUND);
}

// The next line of the same section; contextOut may be contextIn.
BOOL WINAPI SetupFindNextLine(PINFCONTEXT contextIn, PINFCONTEXT contextOut) {
    if (DWORD error = simhost::injectedFailure("SetupFindNextLine")) return failWith(error);
    LineLookup found = lookUpLine(contextIn);
    if (found.error) return failWith(found.error);
    if (!contextOut) return failWith(ERROR_INVALID_PARAMETER);
    if (contextIn->Line + 1 >= found.section->lines.size()) return failWith(ERROR_LINE_NOT_FOUND);
    INFCONTEXT next = *contextIn;
    ++next.Line;
    *contextOut = next;
    return TRUE;
}

// The fields of the line, the key not counted; 0 with the last error for a
// context that names no line.
DWORD WINAPI SetupGetFieldCount(PINFCONTEXT context) {
    if (DWORD error = simhost::injectedFailure("SetupGetFieldCount")) return failWith(error);
    LineLookup found = lookUpLine(context);
    if (found.error) return failWith(found.error);
    return static_cast<DWORD>(found.line->fields.size());
}

// Field 0 is the key, as documented ("a FieldIndex of 0 to retrieve a string
// key, if present"): empty for a line without one. A field past the last:
// ERROR_INVALID_PARAMETER. Sizes are in characters, the NUL included.
BOOL WINAPI SetupGetStringFieldW(PINFCONTEXT context, DWORD fieldIndex, PWSTR returnBuffer, DWORD returnBufferSize,
                                 PDWORD requiredSize) {
    if (DWORD error = simhost::injectedFailure("SetupGetStringFieldW")) return failWith(error);
    LineLookup found = lookUpLine(context);
    if (found.error) return failWith(found.error);
    const InfLine& line = *found.line;
    if (fieldIndex > line.fields.size()) return failWith(ERROR_INVALID_PARAMETER);
    const std::wstring& text = fieldIndex == 0 ? line.key : line.fields[fieldIndex - 1];
    return deliver(text.c_str(), text.size() + 1, returnBuffer, returnBufferSize, requiredSize);
}

// The fields from fieldIndex (1 or more, as documented) to the end of the
// line, each ended by a NUL, with one more NUL after the last.
BOOL WINAPI SetupGetMultiSzFieldW(PINFCONTEXT context, DWORD fieldIndex, PWSTR returnBuffer, DWORD returnBufferSize,
                                  LPDWORD requiredSize) {
    if (DWORD error = simhost::injectedFailure("SetupGetMultiSzFieldW")) return failWith(error);
    LineLookup found = lookUpLine(context);
    if (found.error) return failWith(found.error);
    const std::vector<std::wstring>& fields = found.line->fields;
    if (fieldIndex == 0 || fieldIndex > fields.size()) return failWith(ERROR_INVALID_PARAMETER);
    std::wstring list;
    for (size_t i = fieldIndex - 1; i < fields.size(); ++i) list += fields[i] + L'\0';
    list.push_back(L'\0');
    return deliver(list.c_str(), list.size(), returnBuffer, returnBufferSize, requiredSize);
}
