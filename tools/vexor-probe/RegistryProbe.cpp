// RegGetValueW's type filters and size protocol, on values the probe
// writes under a key of its own and removes again. Sizes of text are told
// in characters.
#include "Probe.h"

#include <cstring>

namespace probe {
namespace {

const wchar_t* const kProbeKey = L"Software\\VexorProbe";

void setValue(HKEY key, const wchar_t* name, DWORD type, const void* data, size_t bytes) {
    LSTATUS status = RegSetValueExW(key, name, 0, type, static_cast<const BYTE*>(data), static_cast<DWORD>(bytes));
    if (status != ERROR_SUCCESS) observe(std::string("RegSetValueExW ") + text(name), "status=" + number(status));
}

void setText(HKEY key, const wchar_t* name, DWORD type, const std::wstring& value) {
    setValue(key, name, type, value.c_str(), (value.size() + 1) * sizeof(wchar_t));
}

// A size of text values in characters, of other values in bytes.
std::string sizeText(DWORD bytes, bool isText) {
    return isText ? number(bytes / sizeof(wchar_t)) + " chars" : number(bytes) + " bytes";
}

std::string typeName(DWORD type) {
    switch (type) {
        case REG_SZ: return "REG_SZ";
        case REG_EXPAND_SZ: return "REG_EXPAND_SZ";
        case REG_MULTI_SZ: return "REG_MULTI_SZ";
        case REG_DWORD: return "REG_DWORD";
        case REG_QWORD: return "REG_QWORD";
        case REG_BINARY: return "REG_BINARY";
        default: return number(type);
    }
}

// One RegGetValueW with a buffer of `capacity` bytes (none for 0, none and
// no size for ~0). `isText` tells whether the value stored is text, whose
// sizes are told in characters; a size left as given is told so.
void get(const std::string& topic, const wchar_t* value, DWORD flags, DWORD capacity, bool isText) {
    std::vector<BYTE> buffer(capacity && capacity != ~0u ? capacity : 1, 0xCC);
    DWORD type = 0xFFFF;
    DWORD size = capacity == ~0u ? 0 : capacity;
    LSTATUS status = RegGetValueW(HKEY_CURRENT_USER, kProbeKey, value, flags, &type,
                                  capacity && capacity != ~0u ? buffer.data() : nullptr,
                                  capacity == ~0u ? nullptr : &size);
    std::string told = "status=" + number(status) + " type=" + (type == 0xFFFF ? "untouched" : typeName(type));
    if (capacity != ~0u) told += " size=" + (size == capacity && capacity ? "as-given" : sizeText(size, isText));
    if (status == ERROR_SUCCESS && capacity && capacity != ~0u && isText)
        told += " data=\"" + text(std::wstring(reinterpret_cast<const wchar_t*>(buffer.data()),
                                              size / sizeof(wchar_t)).c_str()) + "\"";
    if (status == ERROR_SUCCESS && !isText && capacity == sizeof(DWORD))
        told += " data=" + number(*reinterpret_cast<const DWORD*>(buffer.data()));
    observe("RegGetValueW " + topic, told);
}

constexpr DWORD kTextBuffer = 64 * sizeof(wchar_t);

}  // namespace

void probeRegistry() {
    HKEY key = nullptr;
    LSTATUS status = RegCreateKeyExW(HKEY_CURRENT_USER, kProbeKey, 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &key, nullptr);
    observe("RegCreateKeyExW HKCU\\Software\\VexorProbe", "status=" + number(status));
    if (status != ERROR_SUCCESS) return;
    setText(key, L"text", REG_SZ, L"plain text");
    setText(key, L"expand", REG_EXPAND_SZ, L"%VEXOR_PROBE_UNDEFINED%\\tail");
    const wchar_t multi[] = L"one\0two\0";
    setValue(key, L"multi", REG_MULTI_SZ, multi, sizeof multi);
    const DWORD seven = 7;
    setValue(key, L"number", REG_DWORD, &seven, sizeof seven);

    get("REG_SZ as RRF_RT_REG_SZ", L"text", RRF_RT_REG_SZ, kTextBuffer, true);
    get("REG_SZ size-query", L"text", RRF_RT_REG_SZ, 0, true);
    get("REG_SZ short-buffer", L"text", RRF_RT_REG_SZ, 4 * sizeof(wchar_t), true);
    get("REG_SZ as RRF_RT_REG_DWORD", L"text", RRF_RT_REG_DWORD, sizeof(DWORD), true);
    get("REG_SZ as RRF_RT_REG_MULTI_SZ", L"text", RRF_RT_REG_MULTI_SZ, kTextBuffer, true);
    get("REG_SZ as RRF_RT_ANY", L"text", RRF_RT_ANY, kTextBuffer, true);
    get("REG_SZ no-type-flag", L"text", 0, kTextBuffer, true);
    get("REG_SZ no-size", L"text", RRF_RT_REG_SZ, ~0u, true);
    get("REG_EXPAND_SZ as RRF_RT_REG_SZ", L"expand", RRF_RT_REG_SZ, kTextBuffer, true);
    get("REG_EXPAND_SZ as RRF_RT_REG_SZ size-query", L"expand", RRF_RT_REG_SZ, 0, true);
    get("REG_EXPAND_SZ as RRF_RT_REG_EXPAND_SZ|RRF_NOEXPAND", L"expand", RRF_RT_REG_EXPAND_SZ | RRF_NOEXPAND,
        kTextBuffer, true);
    get("REG_EXPAND_SZ as RRF_RT_REG_SZ|RRF_NOEXPAND", L"expand", RRF_RT_REG_SZ | RRF_NOEXPAND, kTextBuffer, true);
    get("REG_EXPAND_SZ as RRF_RT_REG_EXPAND_SZ", L"expand", RRF_RT_REG_EXPAND_SZ, kTextBuffer, true);
    get("REG_MULTI_SZ as RRF_RT_REG_MULTI_SZ", L"multi", RRF_RT_REG_MULTI_SZ, 0, true);
    get("REG_MULTI_SZ as RRF_RT_REG_SZ", L"multi", RRF_RT_REG_SZ, kTextBuffer, true);
    get("REG_DWORD as RRF_RT_REG_DWORD", L"number", RRF_RT_REG_DWORD, sizeof(DWORD), false);
    get("REG_DWORD as RRF_RT_DWORD", L"number", RRF_RT_DWORD, sizeof(DWORD), false);
    get("REG_DWORD short-buffer", L"number", RRF_RT_REG_DWORD, 2, false);
    get("REG_DWORD as RRF_RT_REG_SZ", L"number", RRF_RT_REG_SZ, kTextBuffer, false);
    get("REG_DWORD as RRF_RT_REG_QWORD", L"number", RRF_RT_REG_QWORD, 8, false);
    get("missing value", L"absent", RRF_RT_ANY, kTextBuffer, true);

    RegCloseKey(key);
    observe("RegDeleteKeyW HKCU\\Software\\VexorProbe", "status=" + number(RegDeleteKeyW(HKEY_CURRENT_USER, kProbeKey)));
    get("value of a deleted key", L"text", RRF_RT_REG_SZ, kTextBuffer, true);
}

}  // namespace probe
