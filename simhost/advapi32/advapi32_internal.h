// Helpers shared by the parts of advapi32: names compared regardless of case,
// and the mapping of generic access rights onto an object's own rights.
#pragma once

#include "simhost/advapi32/advapi32.h"

#include <cwctype>
#include <string>

namespace simhost {
namespace advapi32 {

// Registry keys, value names and service names compare regardless of case,
// as Windows compares them: by their upper-case form.
inline std::wstring foldCase(std::wstring text) {
    for (wchar_t& c : text) c = static_cast<wchar_t>(std::towupper(c));
    return text;
}

inline bool sameIgnoringCase(const std::wstring& a, const std::wstring& b) { return foldCase(a) == foldCase(b); }

// The text of an optional string parameter; empty for null.
inline std::wstring textOf(LPCWSTR text) { return text ? std::wstring(text) : std::wstring(); }

// What each generic right stands for on one kind of object.
struct GenericMapping {
    ACCESS_MASK read;
    ACCESS_MASK write;
    ACCESS_MASK execute;
    ACCESS_MASK all;
};

// The specific rights a request stands for: generic rights and
// MAXIMUM_ALLOWED replaced by what they mean for the object.
inline ACCESS_MASK mapGenericAccess(ACCESS_MASK desired, const GenericMapping& mapping) {
    ACCESS_MASK specific = desired & ~(GENERIC_READ | GENERIC_WRITE | GENERIC_EXECUTE | GENERIC_ALL | MAXIMUM_ALLOWED);
    if (desired & GENERIC_READ) specific |= mapping.read;
    if (desired & GENERIC_WRITE) specific |= mapping.write;
    if (desired & GENERIC_EXECUTE) specific |= mapping.execute;
    if (desired & (GENERIC_ALL | MAXIMUM_ALLOWED)) specific |= mapping.all;
    return specific;
}

inline bool grants(ACCESS_MASK granted, ACCESS_MASK needed) { return (granted & needed) == needed; }

// The end of a BOOL call: TRUE, or FALSE with the error as the last error.
inline BOOL succeedOrFail(DWORD error) {
    if (!error) return TRUE;
    SetLastError(error);
    return FALSE;
}

// The failure of a call that answers a handle: null, with the last error.
template <class Handle>
Handle failHandle(DWORD error) {
    SetLastError(error);
    return nullptr;
}

}  // namespace advapi32
}  // namespace simhost
