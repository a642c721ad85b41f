// The members of DEVMODEW by name, for host files and state files. The two
// unions of the record are listed by their printer members (dmOrientation
// to dmPrintQuality, dmNup); their display members share the same bytes.
#pragma once

#include "simhost/winspool/winspool.h"

#include <cstddef>
#include <string>
#include <vector>

namespace simhost {
namespace winspool {

enum class DevModeMemberKind { Short, Word, Dword, Text };

struct DevModeMember {
    const char* name;
    size_t offset;
    DevModeMemberKind kind;
};

// In the order of the record.
const std::vector<DevModeMember>& devModeMembers();
// The member of that name, or null.
const DevModeMember* devModeMember(const std::string& name);

// The range a numeric member takes.
long long smallestValue(const DevModeMember& member);
long long largestValue(const DevModeMember& member);

long long memberNumber(const DEVMODEW& mode, const DevModeMember& member);
void setMemberNumber(DEVMODEW& mode, const DevModeMember& member, long long value);
// A text member's text, and setting it (cut to 31 characters and a NUL).
std::wstring memberText(const DEVMODEW& mode, const DevModeMember& member);
void setMemberText(DEVMODEW& mode, const DevModeMember& member, const std::wstring& text);

}  // namespace winspool
}  // namespace simhost
