// SIDs, security descriptors and SDDL of the simulated advapi32: the SID
// calls and their text forms, the binary layout of self-relative
// descriptors, SDDL read and written back in Windows' canonical form, the
// errors of malformed text, the host's C++ API and its access check.
#include "simhost/advapi32/security.h"
#include "simhost/core/host.h"
#include "simhost/kernel32/kernel32.h"
#include "simhost/kernel32/memory.h"
#include "simhost/winspool/winspool.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

namespace {

constexpr DWORD kUntouched = 0xDEADBEEF;
constexpr DWORD kAllParts = OWNER_SECURITY_INFORMATION | GROUP_SECURITY_INFORMATION | DACL_SECURITY_INFORMATION |
                            SACL_SECURITY_INFORMATION;
constexpr DWORD kOwnerGroupDaclLabel = 23;

// The default descriptor of a shared printer, and one made for a user's
// session whose logon SID stands in three entries.
const std::wstring kPrinterSddl =
    L"O:SYG:SYD:(A;;LCSWSDRCWDWO;;;SY)(A;OIIO;GA;;;CO)(A;;SWRC;;;WD)(A;CIIO;GX;;;WD)(A;;LCSWSDRCWDWO;;;BA)"
    L"(A;OICIIO;GA;;;BA)";
const std::wstring kLogonSid = L"S-1-5-5-0-12345";
const std::wstring kSessionPrinterSddl = L"O:BAG:SYD:(A;;SWRC;;;S-1-5-5-0-12345)(A;CIIO;GX;;;S-1-5-5-0-12345)"
                                         L"(A;OIIO;GA;;;S-1-5-5-0-12345)(A;;LCSWSDRCWDWO;;;BA)";

using Bytes = std::vector<BYTE>;

class SecurityTest : public ::testing::Test {
protected:
    void SetUp() override {
        simhost::Host::get().reset();
        SetLastError(kUntouched);
    }
    // Every block the calls handed out was given back with LocalFree.
    void TearDown() override {
        EXPECT_EQ(simhost::kernel32::liveBlockCount(simhost::kernel32::Allocator::Local), 0u);
    }
};

class Advapi32Sids : public SecurityTest {};
class Advapi32SddlText : public SecurityTest {};
class Advapi32SecurityDescriptors : public SecurityTest {};
class Advapi32SecurityAccessCheck : public SecurityTest {};

Bytes bytesOf(const void* data, size_t size) {
    const BYTE* bytes = static_cast<const BYTE*>(data);
    return Bytes(bytes, bytes + size);
}

DWORD dwordAt(const Bytes& bytes, size_t offset) {
    DWORD value;
    std::memcpy(&value, bytes.data() + offset, sizeof value);
    return value;
}

WORD wordAt(const Bytes& bytes, size_t offset) {
    WORD value;
    std::memcpy(&value, bytes.data() + offset, sizeof value);
    return value;
}

// The SID of a text through ConvertStringSidToSidW.
Bytes sidOf(const std::wstring& text) {
    PSID sid = nullptr;
    EXPECT_TRUE(ConvertStringSidToSidW(text.c_str(), &sid)) << "for " << text.size() << " characters";
    if (!sid) return {};
    Bytes bytes = bytesOf(sid, GetLengthSid(sid));
    EXPECT_EQ(LocalFree(sid), nullptr);
    return bytes;
}

// The last error ConvertStringSidToSidW fails with; the result stays unset.
DWORD sidTextError(const wchar_t* text) {
    PSID sid = reinterpret_cast<PSID>(0x1234);
    EXPECT_FALSE(ConvertStringSidToSidW(text, &sid));
    EXPECT_EQ(sid, reinterpret_cast<PSID>(0x1234));
    return GetLastError();
}

std::wstring textOfSid(const Bytes& sid) {
    LPWSTR text = nullptr;
    EXPECT_TRUE(ConvertSidToStringSidW(const_cast<BYTE*>(sid.data()), &text));
    if (!text) return L"";
    std::wstring result = text;
    EXPECT_EQ(LocalFree(text), nullptr);
    return result;
}

// The self-relative descriptor of SDDL text through the Windows call; its
// reported size must be the block's.
Bytes descriptorOf(const std::wstring& sddl) {
    PSECURITY_DESCRIPTOR descriptor = nullptr;
    ULONG size = 0;
    EXPECT_TRUE(ConvertStringSecurityDescriptorToSecurityDescriptorW(sddl.c_str(), SDDL_REVISION_1, &descriptor,
                                                                     &size));
    if (!descriptor) return {};
    EXPECT_EQ(GetSecurityDescriptorLength(descriptor), size);
    Bytes bytes = bytesOf(descriptor, size);
    EXPECT_EQ(LocalFree(descriptor), nullptr);
    return bytes;
}

// The SDDL text of a descriptor through the Windows call; the length it
// reports counts the terminating NUL.
std::wstring sddlOf(const void* descriptor, DWORD parts) {
    LPWSTR text = nullptr;
    ULONG length = 0;
    EXPECT_TRUE(ConvertSecurityDescriptorToStringSecurityDescriptorW(const_cast<void*>(descriptor), SDDL_REVISION_1,
                                                                     parts, &text, &length));
    if (!text) return L"<none>";
    std::wstring result = text;
    EXPECT_EQ(length, result.size() + 1);
    EXPECT_EQ(LocalFree(text), nullptr);
    return result;
}

std::wstring roundTrip(const std::wstring& sddl, DWORD parts = kAllParts) {
    Bytes descriptor = descriptorOf(sddl);
    return descriptor.empty() ? L"<refused>" : sddlOf(descriptor.data(), parts);
}

// The last error the conversion of text fails with; the result stays unset.
DWORD sddlError(const wchar_t* text, DWORD revision = SDDL_REVISION_1) {
    PSECURITY_DESCRIPTOR descriptor = reinterpret_cast<PSECURITY_DESCRIPTOR>(0x1234);
    ULONG size = 77;
    EXPECT_FALSE(ConvertStringSecurityDescriptorToSecurityDescriptorW(text, revision, &descriptor, &size));
    EXPECT_EQ(descriptor, reinterpret_cast<PSECURITY_DESCRIPTOR>(0x1234));
    EXPECT_EQ(size, 77u);
    return GetLastError();
}

// ---- SIDs ----

TEST_F(Advapi32Sids, LocalSystemHasItsPublishedBytes) {
    EXPECT_EQ(sidOf(L"S-1-5-18"), (Bytes{0x01, 0x01, 0x00, 0x00, 0x00, 0x00, 0x00, 0x05, 0x12, 0x00, 0x00, 0x00}));
    EXPECT_EQ(GetLastError(), kUntouched) << "success leaves the last error alone";
}

TEST_F(Advapi32Sids, AbbreviationsStandForTheirWellKnownSids) {
    EXPECT_EQ(sidOf(L"SY"), sidOf(L"S-1-5-18"));
    EXPECT_EQ(sidOf(L"BA"), (Bytes{1, 2, 0, 0, 0, 0, 0, 5, 0x20, 0, 0, 0, 0x20, 0x02, 0, 0}));
    EXPECT_EQ(sidOf(L"WD"), sidOf(L"S-1-1-0"));
    EXPECT_EQ(sidOf(L"CO"), sidOf(L"S-1-3-0"));
    EXPECT_EQ(sidOf(L"AU"), sidOf(L"S-1-5-11"));
    EXPECT_EQ(sidOf(L"RD"), sidOf(L"S-1-5-32-555"));
    EXPECT_EQ(sidOf(L"LA"), sidOf(std::wstring(simhost::kMachineDomainSid) + L"-500"));
}

TEST_F(Advapi32Sids, TextIsAlwaysTheStandardForm) {
    EXPECT_EQ(textOfSid(sidOf(L"SY")), L"S-1-5-18");
    EXPECT_EQ(textOfSid(sidOf(kLogonSid)), kLogonSid);
    EXPECT_EQ(textOfSid(sidOf(L"S-1-5-21-1-2-3-4294967295")), L"S-1-5-21-1-2-3-4294967295");
    EXPECT_EQ(textOfSid(sidOf(L"S-1-5")), L"S-1-5") << "a SID without sub-authorities";
}

TEST_F(Advapi32Sids, AuthorityFrom2To32IsHexadecimalAndBigEndian) {
    Bytes sid = sidOf(L"S-1-0x123456789ABC-7");
    EXPECT_EQ(Bytes(sid.begin() + 2, sid.begin() + 8), (Bytes{0x12, 0x34, 0x56, 0x78, 0x9A, 0xBC}));
    EXPECT_EQ(textOfSid(sid), L"S-1-0x123456789ABC-7");
    EXPECT_EQ(textOfSid(sidOf(L"S-1-4294967295-1")), L"S-1-4294967295-1");
}

TEST_F(Advapi32Sids, MalformedTextIsInvalidSid) {
    for (const wchar_t* text : {L"", L"S-1", L"S-1-", L"S-2-5-18", L"S-1-5-x", L"S-1-5--1", L"S-1-5-4294967296",
                                L"S-1-0x1234567890ABC-1", L"s-1-5-18", L"QQ", L"sy", L"S-1-5-18 ",
                                L"S-1-5-1-2-3-4-5-6-7-8-9-10-11-12-13-14-15-16"})
        EXPECT_EQ(sidTextError(text), static_cast<DWORD>(ERROR_INVALID_SID)) << "text of " << std::wcslen(text);
    const std::wstring fifteen = L"S-1-5-1-2-3-4-5-6-7-8-9-10-11-12-13-14-15";
    EXPECT_EQ(textOfSid(sidOf(fifteen)), fifteen) << "fifteen sub-authorities are the most";
}

TEST_F(Advapi32Sids, DomainAbbreviationsAreNotMappedOnThisMachine) {
    EXPECT_EQ(sidTextError(L"DA"), static_cast<DWORD>(ERROR_NONE_MAPPED));
    EXPECT_EQ(sidTextError(L"DU"), static_cast<DWORD>(ERROR_NONE_MAPPED));
}

TEST_F(Advapi32Sids, NullArgumentsAreInvalidParameter) {
    EXPECT_EQ(sidTextError(nullptr), static_cast<DWORD>(ERROR_INVALID_PARAMETER));
    EXPECT_FALSE(ConvertStringSidToSidW(L"SY", nullptr));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_PARAMETER));
    EXPECT_FALSE(ConvertSidToStringSidW(nullptr, nullptr));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_PARAMETER));
}

TEST_F(Advapi32Sids, InvalidSidHasNoTextAndIsNotValid) {
    Bytes sid = sidOf(L"S-1-5-18");
    sid[0] = 2;
    SetLastError(kUntouched);
    EXPECT_FALSE(IsValidSid(sid.data()));
    EXPECT_EQ(GetLastError(), kUntouched) << "IsValidSid gives no extended error";
    LPWSTR text = nullptr;
    EXPECT_FALSE(ConvertSidToStringSidW(sid.data(), &text));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_SID));
    sid[0] = 1;
    sid[1] = 16;
    EXPECT_FALSE(IsValidSid(sid.data()));
}

TEST_F(Advapi32Sids, LengthAndValidity) {
    Bytes system = sidOf(L"SY");
    Bytes user = sidOf(L"S-1-5-21-1-2-3-1001");
    EXPECT_TRUE(IsValidSid(system.data()));
    EXPECT_EQ(GetLengthSid(system.data()), 12u);
    EXPECT_EQ(GetLengthSid(user.data()), 28u);
}

TEST_F(Advapi32Sids, CopySidNeedsRoomForTheWholeSid) {
    Bytes source = sidOf(L"S-1-5-32-544");
    BYTE small[15];
    std::memset(small, 0xAB, sizeof small);
    EXPECT_FALSE(CopySid(sizeof small, small, source.data()));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INSUFFICIENT_BUFFER));
    EXPECT_EQ(small[0], 0xAB) << "nothing is written into a buffer too small";
    EXPECT_FALSE(CopySid(0, nullptr, source.data()));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INSUFFICIENT_BUFFER));

    SetLastError(kUntouched);
    BYTE exact[16];
    EXPECT_TRUE(CopySid(GetLengthSid(source.data()), exact, source.data()));
    EXPECT_EQ(bytesOf(exact, sizeof exact), source);
    EXPECT_EQ(GetLastError(), kUntouched);
}

TEST_F(Advapi32Sids, EqualSidComparesBytes) {
    Bytes system = sidOf(L"SY");
    Bytes again = sidOf(L"S-1-5-18");
    Bytes admins = sidOf(L"BA");
    EXPECT_TRUE(EqualSid(system.data(), again.data()));
    EXPECT_EQ(GetLastError(), kUntouched);
    EXPECT_FALSE(EqualSid(system.data(), admins.data()));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_SUCCESS)) << "unequal is an answer, not a failure";
}

TEST_F(Advapi32Sids, InjectedFailuresAndAllocationFailures) {
    simhost::Host::get().faults().failCall("ConvertStringSidToSidW", ERROR_NOT_ENOUGH_MEMORY, 1);
    EXPECT_EQ(sidTextError(L"SY"), static_cast<DWORD>(ERROR_NOT_ENOUGH_MEMORY));
    simhost::Host::get().faults().failCall("LocalAlloc", ERROR_OUTOFMEMORY, 1);
    EXPECT_EQ(sidTextError(L"SY"), static_cast<DWORD>(ERROR_OUTOFMEMORY));
    Bytes system = sidOf(L"SY");
    simhost::Host::get().faults().failCall("CopySid", ERROR_ACCESS_DENIED, 1);
    BYTE buffer[12];
    EXPECT_FALSE(CopySid(sizeof buffer, buffer, system.data()));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_ACCESS_DENIED));
}

TEST_F(Advapi32Sids, HostApiConvertsBothWays) {
    EXPECT_EQ(simhost::sidFromText(L"SY"), sidOf(L"S-1-5-18"));
    EXPECT_EQ(simhost::sidToText(simhost::sidFromText(kLogonSid).data()), kLogonSid);
    try {
        simhost::sidFromText(L"S-1-5-");
        ADD_FAILURE() << "no exception";
    } catch (const simhost::SecurityTextError& error) {
        EXPECT_EQ(error.error(), static_cast<DWORD>(ERROR_INVALID_SID));
    }
}

// ---- Binary layout of self-relative descriptors ----

TEST_F(Advapi32SecurityDescriptors, PrinterDescriptorHasTheWindowsLayout) {
    Bytes descriptor = descriptorOf(kPrinterSddl);
    ASSERT_EQ(descriptor.size(), 180u);
    EXPECT_EQ(descriptor[0], SECURITY_DESCRIPTOR_REVISION);
    EXPECT_EQ(descriptor[1], 0);
    EXPECT_EQ(wordAt(descriptor, 2), SE_SELF_RELATIVE | SE_DACL_PRESENT);
    EXPECT_EQ(dwordAt(descriptor, 12), 0u) << "no SACL";
    EXPECT_EQ(dwordAt(descriptor, 16), 20u) << "the DACL follows the head";
    // Six entries: four for 12-byte SIDs (20 bytes each), two for BA (24).
    const size_t dacl = 20;
    EXPECT_EQ(descriptor[dacl], ACL_REVISION);
    EXPECT_EQ(wordAt(descriptor, dacl + 2), 8u + 4 * 20 + 2 * 24);
    EXPECT_EQ(wordAt(descriptor, dacl + 4), 6u);
    EXPECT_EQ(dwordAt(descriptor, 4), 156u) << "the owner follows the DACL";
    EXPECT_EQ(dwordAt(descriptor, 8), 168u) << "the group follows the owner";
    EXPECT_EQ(Bytes(descriptor.begin() + 156, descriptor.begin() + 168), sidOf(L"SY"));

    const size_t first = dacl + 8;
    EXPECT_EQ(descriptor[first], ACCESS_ALLOWED_ACE_TYPE);
    EXPECT_EQ(descriptor[first + 1], 0);
    EXPECT_EQ(wordAt(descriptor, first + 2), 20u);
    EXPECT_EQ(dwordAt(descriptor, first + 4), static_cast<DWORD>(PRINTER_ALL_ACCESS));
    EXPECT_EQ(Bytes(descriptor.begin() + first + 8, descriptor.begin() + first + 20), sidOf(L"SY"));
    const size_t second = first + 20;
    EXPECT_EQ(descriptor[second + 1], OBJECT_INHERIT_ACE | INHERIT_ONLY_ACE);
    EXPECT_EQ(dwordAt(descriptor, second + 4), static_cast<DWORD>(GENERIC_ALL));
    const size_t lastBa = first + 4 * 20 + 24;
    EXPECT_EQ(descriptor[lastBa + 1], OBJECT_INHERIT_ACE | CONTAINER_INHERIT_ACE | INHERIT_ONLY_ACE);
    EXPECT_EQ(wordAt(descriptor, lastBa + 2), 24u);
}

TEST_F(Advapi32SecurityDescriptors, EmptyTextIsAHeadAlone) {
    Bytes descriptor = descriptorOf(L"");
    ASSERT_EQ(descriptor.size(), 20u);
    EXPECT_EQ(wordAt(descriptor, 2), SE_SELF_RELATIVE);
    EXPECT_TRUE(IsValidSecurityDescriptor(descriptor.data()));
}

TEST_F(Advapi32SecurityDescriptors, PartsAreReadInsideTheDescriptor) {
    Bytes descriptor = descriptorOf(kSessionPrinterSddl);
    PSID owner = nullptr;
    PSID group = nullptr;
    BOOL defaulted = TRUE;
    ASSERT_TRUE(GetSecurityDescriptorOwner(descriptor.data(), &owner, &defaulted));
    EXPECT_EQ(owner, descriptor.data() + dwordAt(descriptor, 4));
    EXPECT_FALSE(defaulted);
    EXPECT_EQ(bytesOf(owner, GetLengthSid(owner)), sidOf(L"BA"));
    ASSERT_TRUE(GetSecurityDescriptorGroup(descriptor.data(), &group, &defaulted));
    EXPECT_EQ(bytesOf(group, GetLengthSid(group)), sidOf(L"SY"));

    BOOL present = FALSE;
    PACL dacl = nullptr;
    ASSERT_TRUE(GetSecurityDescriptorDacl(descriptor.data(), &present, &dacl, &defaulted));
    EXPECT_TRUE(present);
    EXPECT_EQ(reinterpret_cast<BYTE*>(dacl), descriptor.data() + 20);
    EXPECT_EQ(dacl->AceCount, 4);
    EXPECT_EQ(GetLastError(), kUntouched);
}

TEST_F(Advapi32SecurityDescriptors, MissingPartsAreNull) {
    Bytes descriptor = descriptorOf(L"G:SY");
    PSID owner = reinterpret_cast<PSID>(0x1);
    BOOL defaulted = TRUE;
    ASSERT_TRUE(GetSecurityDescriptorOwner(descriptor.data(), &owner, &defaulted));
    EXPECT_EQ(owner, nullptr);
    BOOL present = TRUE;
    PACL dacl = reinterpret_cast<PACL>(0x1);
    ASSERT_TRUE(GetSecurityDescriptorDacl(descriptor.data(), &present, &dacl, &defaulted));
    EXPECT_FALSE(present);
    EXPECT_EQ(dacl, reinterpret_cast<PACL>(0x1)) << "left as it was without a DACL";
}

TEST_F(Advapi32SecurityDescriptors, NullAndEmptyDacls) {
    Bytes nullDacl = descriptorOf(L"D:NO_ACCESS_CONTROL");
    ASSERT_EQ(nullDacl.size(), 20u);
    EXPECT_EQ(wordAt(nullDacl, 2), SE_SELF_RELATIVE | SE_DACL_PRESENT);
    BOOL present = FALSE;
    BOOL defaulted = TRUE;
    PACL dacl = reinterpret_cast<PACL>(0x1);
    ASSERT_TRUE(GetSecurityDescriptorDacl(nullDacl.data(), &present, &dacl, &defaulted));
    EXPECT_TRUE(present);
    EXPECT_EQ(dacl, nullptr);

    Bytes emptyDacl = descriptorOf(L"D:");
    ASSERT_EQ(emptyDacl.size(), 28u);
    EXPECT_EQ(dwordAt(emptyDacl, 16), 20u);
    EXPECT_EQ(wordAt(emptyDacl, 22), 8u) << "an ACL head alone";
    EXPECT_EQ(wordAt(emptyDacl, 24), 0u);
}

TEST_F(Advapi32SecurityDescriptors, WrongRevisionIsRefused) {
    Bytes descriptor = descriptorOf(kPrinterSddl);
    descriptor[0] = 2;
    EXPECT_FALSE(IsValidSecurityDescriptor(descriptor.data()));
    EXPECT_EQ(GetLastError(), kUntouched);
    PSID owner = nullptr;
    BOOL defaulted = FALSE;
    EXPECT_FALSE(GetSecurityDescriptorOwner(descriptor.data(), &owner, &defaulted));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_UNKNOWN_REVISION));
    LPWSTR text = nullptr;
    EXPECT_FALSE(ConvertSecurityDescriptorToStringSecurityDescriptorW(descriptor.data(), SDDL_REVISION_1, kAllParts,
                                                                      &text, nullptr));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_UNKNOWN_REVISION));
}

TEST_F(Advapi32SecurityDescriptors, BrokenListIsNotValid) {
    Bytes descriptor = descriptorOf(kPrinterSddl);
    EXPECT_TRUE(IsValidSecurityDescriptor(descriptor.data()));
    descriptor[20 + 8 + 2] = 6;  // the first entry's size, too small for its SID
    EXPECT_FALSE(IsValidSecurityDescriptor(descriptor.data()));
    LPWSTR text = nullptr;
    EXPECT_FALSE(ConvertSecurityDescriptorToStringSecurityDescriptorW(descriptor.data(), SDDL_REVISION_1, kAllParts,
                                                                      &text, nullptr));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_ACL));
}

TEST_F(Advapi32SecurityDescriptors, AbsoluteDescriptorIsReadThroughItsPointers) {
    Bytes relative = descriptorOf(kPrinterSddl);
    SECURITY_DESCRIPTOR absolute = {};
    absolute.Revision = SECURITY_DESCRIPTOR_REVISION;
    absolute.Control = SE_DACL_PRESENT;
    absolute.Owner = relative.data() + dwordAt(relative, 4);
    absolute.Group = relative.data() + dwordAt(relative, 8);
    absolute.Dacl = reinterpret_cast<PACL>(relative.data() + dwordAt(relative, 16));
    EXPECT_EQ(sddlOf(&absolute, kAllParts), kPrinterSddl);
    EXPECT_EQ(GetSecurityDescriptorLength(&absolute), 40u + 12 + 12 + 136);
    EXPECT_TRUE(IsValidSecurityDescriptor(&absolute));
}

TEST_F(Advapi32SecurityDescriptors, InjectedFailures) {
    Bytes descriptor = descriptorOf(kPrinterSddl);
    simhost::Host::get().faults().failCall("GetSecurityDescriptorDacl", ERROR_ACCESS_DENIED, 1);
    BOOL present = FALSE;
    BOOL defaulted = FALSE;
    PACL dacl = nullptr;
    EXPECT_FALSE(GetSecurityDescriptorDacl(descriptor.data(), &present, &dacl, &defaulted));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_ACCESS_DENIED));
    simhost::Host::get().faults().failCall("ConvertStringSecurityDescriptorToSecurityDescriptorW",
                                           ERROR_NOT_ENOUGH_MEMORY, 1);
    EXPECT_EQ(sddlError(kPrinterSddl.c_str()), static_cast<DWORD>(ERROR_NOT_ENOUGH_MEMORY));
    simhost::Host::get().faults().failCall("ConvertSecurityDescriptorToStringSecurityDescriptorW",
                                           ERROR_NOT_ENOUGH_MEMORY, 1);
    LPWSTR text = nullptr;
    EXPECT_FALSE(ConvertSecurityDescriptorToStringSecurityDescriptorW(descriptor.data(), SDDL_REVISION_1, kAllParts,
                                                                      &text, nullptr));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_NOT_ENOUGH_MEMORY));
}

// ---- SDDL text in and out ----

TEST_F(Advapi32SddlText, PrinterDescriptorsComeBackAsWritten) {
    EXPECT_EQ(roundTrip(kPrinterSddl), kPrinterSddl);
    EXPECT_EQ(roundTrip(kPrinterSddl, kOwnerGroupDaclLabel), kPrinterSddl);
    EXPECT_EQ(roundTrip(kSessionPrinterSddl, kOwnerGroupDaclLabel), kSessionPrinterSddl);
    EXPECT_EQ(GetLastError(), kUntouched);
}

TEST_F(Advapi32SddlText, InformationMaskChoosesTheComponents) {
    Bytes descriptor = descriptorOf(kPrinterSddl);
    EXPECT_EQ(sddlOf(descriptor.data(), OWNER_SECURITY_INFORMATION), L"O:SY");
    EXPECT_EQ(sddlOf(descriptor.data(), GROUP_SECURITY_INFORMATION | OWNER_SECURITY_INFORMATION), L"O:SYG:SY");
    EXPECT_EQ(sddlOf(descriptor.data(), DACL_SECURITY_INFORMATION), kPrinterSddl.substr(8));
    EXPECT_EQ(sddlOf(descriptor.data(), 0), L"");
}

TEST_F(Advapi32SddlText, WellKnownSidsAreWrittenAsAbbreviations) {
    EXPECT_EQ(roundTrip(L"O:S-1-5-32-544G:S-1-5-18D:(A;;GA;;;S-1-1-0)(A;;GR;;;S-1-5-32-545)"),
              L"O:BAG:SYD:(A;;GA;;;WD)(A;;GR;;;BU)");
    EXPECT_EQ(roundTrip(L"D:(A;;GA;;;S-1-5-21-1-2-3-1001)"), L"D:(A;;GA;;;S-1-5-21-1-2-3-1001)");
    EXPECT_EQ(roundTrip(std::wstring(L"O:") + simhost::kMachineDomainSid + L"-500"), L"O:LA");
}

TEST_F(Advapi32SddlText, RightsAreWrittenAsWindowsWritesThem) {
    EXPECT_EQ(roundTrip(L"D:(A;;0x1f01ff;;;WD)"), L"D:(A;;FA;;;WD)") << "a composite right equal to the mask";
    EXPECT_EQ(roundTrip(L"D:(A;;FRFX;;;BU)"), L"D:(A;;0x1200a9;;;BU)") << "a bit without a name";
    EXPECT_EQ(roundTrip(L"D:(A;;GRGX;;;BU)"), L"D:(A;;GXGR;;;BU)") << "names in rising bit order";
    EXPECT_EQ(roundTrip(L"D:(A;;KX;;;BU)"), L"D:(A;;KR;;;BU)") << "KR and KX share a mask";
    EXPECT_EQ(roundTrip(L"D:(A;;0xF01FF;;;BA)"), L"D:(A;;CCDCLCSWRPWPDTLOCRSDRCWDWO;;;BA)");
    EXPECT_EQ(roundTrip(L"D:(A;;983052;;;SY)"), L"D:(A;;LCSWSDRCWDWO;;;SY)") << "decimal";
    EXPECT_EQ(roundTrip(L"D:(A;;010;;;SY)"), L"D:(A;;SW;;;SY)") << "octal";
    EXPECT_EQ(roundTrip(L"D:(A;;;;;WD)"), L"D:(A;;;;;WD)") << "no rights";
    EXPECT_EQ(roundTrip(L"D:(A;;0x80000000;;;WD)"), L"D:(A;;GR;;;WD)");
    EXPECT_EQ(roundTrip(L"D:(A;;0x00200000;;;WD)"), L"D:(A;;0x200000;;;WD)");
}

TEST_F(Advapi32SddlText, FlagsAreWrittenInCanonicalOrder) {
    EXPECT_EQ(roundTrip(L"D:(A;IOCIOI;GA;;;CO)"), L"D:(A;OICIIO;GA;;;CO)");
    EXPECT_EQ(roundTrip(L"D:(A;IDNPCI;GA;;;CO)"), L"D:(A;CINPID;GA;;;CO)");
    EXPECT_EQ(roundTrip(L"D:AIARP(A;;GA;;;SY)"), L"D:PARAI(A;;GA;;;SY)");
    EXPECT_EQ(roundTrip(L"S:(AU;FASA;GA;;;WD)"), L"S:(AU;SAFA;GA;;;WD)");
}

TEST_F(Advapi32SddlText, NullAndEmptyListsComeBack) {
    EXPECT_EQ(roundTrip(L"D:NO_ACCESS_CONTROL"), L"D:NO_ACCESS_CONTROL");
    EXPECT_EQ(roundTrip(L"D:PNO_ACCESS_CONTROL"), L"D:PNO_ACCESS_CONTROL");
    EXPECT_EQ(roundTrip(L"D:"), L"D:");
    EXPECT_EQ(roundTrip(L"O:SY"), L"O:SY") << "no D: without a DACL";
}

TEST_F(Advapi32SddlText, ComponentsInAnyOrderAreWrittenInTheirOrder) {
    EXPECT_EQ(roundTrip(L"D:(A;;GA;;;SY)G:BAO:SY"), L"O:SYG:BAD:(A;;GA;;;SY)");
}

TEST_F(Advapi32SddlText, DeniedAndObjectAllowedEntries) {
    EXPECT_EQ(roundTrip(L"D:(D;;WD;;;BU)(A;;GA;;;BU)"), L"D:(D;;WD;;;BU)(A;;GA;;;BU)");
    EXPECT_EQ(roundTrip(L"D:(OA;;GA;;;BU)"), L"D:(A;;GA;;;BU)") << "no GUIDs: a plain allowed entry";
}

TEST_F(Advapi32SddlText, LabelAndAuditEntriesOfTheSacl) {
    const std::wstring sddl = L"O:SYG:SYD:(A;;GA;;;SY)S:(AU;SA;GA;;;WD)(ML;;NW;;;LW)";
    Bytes descriptor = descriptorOf(sddl);
    EXPECT_EQ(wordAt(descriptor, 2), SE_SELF_RELATIVE | SE_DACL_PRESENT | SE_SACL_PRESENT);
    EXPECT_EQ(dwordAt(descriptor, 12), 20u) << "the SACL comes first";
    EXPECT_EQ(sddlOf(descriptor.data(), kAllParts), sddl);
    EXPECT_EQ(sddlOf(descriptor.data(), kOwnerGroupDaclLabel), L"O:SYG:SYD:(A;;GA;;;SY)S:(ML;;NW;;;LW)");
    EXPECT_EQ(sddlOf(descriptor.data(), OWNER_SECURITY_INFORMATION | DACL_SECURITY_INFORMATION),
              L"O:SYD:(A;;GA;;;SY)");
    EXPECT_EQ(roundTrip(L"S:(ML;;NWNR;;;HI)"), L"S:(ML;;NWNR;;;HI)");
    EXPECT_EQ(roundTrip(L"S:(AU;SA;GA;;;WD)", kOwnerGroupDaclLabel), L"") << "no label to write";
}

TEST_F(Advapi32SddlText, LengthCountsTheTerminatingNul) {
    Bytes descriptor = descriptorOf(L"O:SY");
    LPWSTR text = nullptr;
    ULONG length = 0;
    ASSERT_TRUE(ConvertSecurityDescriptorToStringSecurityDescriptorW(descriptor.data(), SDDL_REVISION_1,
                                                                     OWNER_SECURITY_INFORMATION, &text, &length));
    EXPECT_EQ(length, 5u);
    EXPECT_EQ(std::wstring(text), L"O:SY");
    EXPECT_EQ(text[4], L'\0');
    LocalFree(text);
}

TEST_F(Advapi32SddlText, BackupInformationAnswersANullString) {
    Bytes descriptor = descriptorOf(kPrinterSddl);
    LPWSTR text = reinterpret_cast<LPWSTR>(0x1234);
    ULONG length = 9;
    EXPECT_TRUE(ConvertSecurityDescriptorToStringSecurityDescriptorW(descriptor.data(), SDDL_REVISION_1,
                                                                     BACKUP_SECURITY_INFORMATION, &text, &length));
    EXPECT_EQ(text, nullptr);
    EXPECT_EQ(length, 0u);
}

TEST_F(Advapi32SddlText, MalformedEntriesAreInvalidAcl) {
    const wchar_t* texts[] = {
        L"D:(A;;GA;;;SY",          // missing parenthesis
        L"D:A;;GA;;;SY)",          // no opening parenthesis
        L"D:(A;;XY;;;SY)",         // unknown right
        L"D:(A;;GAX;;;SY)",        // a right cut short
        L"D:(A;;0x;;;SY)",         // no hexadecimal digit
        L"D:(A;;0x100000000;;;SY)",  // more than 32 bits
        L"D:(Q;;GA;;;SY)",         // unknown type
        L"D:(A;QQ;GA;;;SY)",       // unknown flag
        L"D:(A;;GA;;SY)",          // a field too few
        L"D:(A;;GA;;;SY;x)",       // a field too many
        L"D:(A;;GA;a;;SY)",        // a GUID on an entry that takes none
        L"D:QP(A;;GA;;;SY)",       // unknown list flag
        L"D:(A;;GA;;;SY)junk",     // text after the entries
        L"D:NO_ACCESS_CONTROL(A;;GA;;;SY)",
    };
    for (const wchar_t* text : texts)
        EXPECT_EQ(sddlError(text), static_cast<DWORD>(ERROR_INVALID_ACL)) << std::wstring(text).size();
}

TEST_F(Advapi32SddlText, UnreadableSidsAreInvalidSid) {
    EXPECT_EQ(sddlError(L"O:QQ"), static_cast<DWORD>(ERROR_INVALID_SID));
    EXPECT_EQ(sddlError(L"O:"), static_cast<DWORD>(ERROR_INVALID_SID));
    EXPECT_EQ(sddlError(L"G:S-1-5-"), static_cast<DWORD>(ERROR_INVALID_SID));
    EXPECT_EQ(sddlError(L"D:(A;;GA;;;QQ)"), static_cast<DWORD>(ERROR_INVALID_SID)) << "unknown abbreviation";
    EXPECT_EQ(sddlError(L"D:(A;;GA;;;)"), static_cast<DWORD>(ERROR_INVALID_SID)) << "empty trustee";
    EXPECT_EQ(sddlError(L"D:(A;;GA;;;S-1-5-18-)"), static_cast<DWORD>(ERROR_INVALID_SID));
    EXPECT_EQ(sddlError(L"O:DA"), static_cast<DWORD>(ERROR_NONE_MAPPED)) << "a domain group";
}

TEST_F(Advapi32SddlText, TextOutsideTheComponentsIsInvalidParameter) {
    EXPECT_EQ(sddlError(L"SY"), static_cast<DWORD>(ERROR_INVALID_PARAMETER));
    EXPECT_EQ(sddlError(L"X:SY"), static_cast<DWORD>(ERROR_INVALID_PARAMETER));
    EXPECT_EQ(sddlError(L" O:SY"), static_cast<DWORD>(ERROR_INVALID_PARAMETER));
    EXPECT_EQ(sddlError(L"O:SYO:BA"), static_cast<DWORD>(ERROR_INVALID_PARAMETER)) << "an owner twice";
    EXPECT_EQ(sddlError(nullptr), static_cast<DWORD>(ERROR_INVALID_PARAMETER));
    EXPECT_FALSE(ConvertStringSecurityDescriptorToSecurityDescriptorW(L"O:SY", SDDL_REVISION_1, nullptr, nullptr));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_PARAMETER));
}

TEST_F(Advapi32SddlText, OnlyRevisionOneIsKnown) {
    EXPECT_EQ(sddlError(kPrinterSddl.c_str(), 2), static_cast<DWORD>(ERROR_UNKNOWN_REVISION));
    EXPECT_EQ(sddlError(kPrinterSddl.c_str(), 0), static_cast<DWORD>(ERROR_UNKNOWN_REVISION));
    Bytes descriptor = descriptorOf(kPrinterSddl);
    LPWSTR text = nullptr;
    EXPECT_FALSE(ConvertSecurityDescriptorToStringSecurityDescriptorW(descriptor.data(), 2, kAllParts, &text,
                                                                      nullptr));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_UNKNOWN_REVISION));
}

TEST_F(Advapi32SddlText, SizeOutputIsOptional) {
    PSECURITY_DESCRIPTOR descriptor = nullptr;
    ASSERT_TRUE(ConvertStringSecurityDescriptorToSecurityDescriptorW(L"O:SY", SDDL_REVISION_1, &descriptor, nullptr));
    EXPECT_EQ(GetSecurityDescriptorLength(descriptor), 32u);
    LocalFree(descriptor);
}

TEST_F(Advapi32SddlText, HostApiRunsTheSameConversions) {
    Bytes descriptor = simhost::sddlToDescriptor(kSessionPrinterSddl);
    EXPECT_EQ(descriptor, descriptorOf(kSessionPrinterSddl));
    EXPECT_EQ(simhost::descriptorToSddl(descriptor.data(), kOwnerGroupDaclLabel), kSessionPrinterSddl);
    try {
        simhost::sddlToDescriptor(L"D:(A;;GA;;;SY");
        ADD_FAILURE() << "no exception";
    } catch (const simhost::SecurityTextError& error) {
        EXPECT_EQ(error.error(), static_cast<DWORD>(ERROR_INVALID_ACL));
    }
    descriptor[0] = 3;
    EXPECT_THROW(simhost::descriptorToSddl(descriptor.data(), kAllParts), simhost::SecurityTextError);
    EXPECT_EQ(GetLastError(), kUntouched) << "the host API leaves the last error alone";
}

TEST_F(Advapi32SddlText, HostApiIgnoresInjectedFaults) {
    simhost::Host::get().faults().failCall("ConvertStringSecurityDescriptorToSecurityDescriptorW",
                                           ERROR_NOT_ENOUGH_MEMORY);
    EXPECT_EQ(simhost::descriptorToSddl(simhost::sddlToDescriptor(kPrinterSddl).data(), kAllParts), kPrinterSddl);
}

// ---- Access check ----

std::vector<Bytes> tokenOf(std::initializer_list<const wchar_t*> sids) {
    std::vector<Bytes> token;
    for (const wchar_t* sid : sids) token.push_back(simhost::sidFromText(sid));
    return token;
}

TEST_F(Advapi32SecurityAccessCheck, PrinterDescriptorGrantsAdministratorsAndUsers) {
    Bytes printer = simhost::sddlToDescriptor(kPrinterSddl);
    std::vector<Bytes> administrator = tokenOf({L"S-1-5-21-1-2-3-500", L"BA", L"WD", L"AU"});
    std::vector<Bytes> user = tokenOf({L"S-1-5-21-1-2-3-1001", L"BU", L"WD", L"AU", L"S-1-5-5-0-999"});
    EXPECT_TRUE(simhost::accessGranted(printer.data(), administrator, PRINTER_ALL_ACCESS));
    EXPECT_TRUE(simhost::accessGranted(printer.data(), user, PRINTER_ACCESS_USE));
    EXPECT_TRUE(simhost::accessGranted(printer.data(), user, PRINTER_READ));
    EXPECT_FALSE(simhost::accessGranted(printer.data(), user, PRINTER_ACCESS_ADMINISTER));
    EXPECT_FALSE(simhost::accessGranted(printer.data(), user, PRINTER_ALL_ACCESS));
}

TEST_F(Advapi32SecurityAccessCheck, InheritOnlyEntriesGrantNothing) {
    Bytes printer = simhost::sddlToDescriptor(kPrinterSddl);
    EXPECT_FALSE(simhost::accessGranted(printer.data(), tokenOf({L"CO"}), GENERIC_ALL));
    EXPECT_FALSE(simhost::accessGranted(printer.data(), tokenOf({L"BU"}), PRINTER_ACCESS_USE));
}

TEST_F(Advapi32SecurityAccessCheck, SessionPrinterGrantsItsLogonSid) {
    Bytes printer = simhost::sddlToDescriptor(kSessionPrinterSddl);
    EXPECT_TRUE(simhost::accessGranted(printer.data(), tokenOf({L"BU", kLogonSid.c_str()}), PRINTER_ACCESS_USE));
    EXPECT_FALSE(simhost::accessGranted(printer.data(), tokenOf({L"BU", L"S-1-5-5-0-999"}), PRINTER_ACCESS_USE));
}

TEST_F(Advapi32SecurityAccessCheck, NullDaclGrantsAllAndEmptyDaclNothing) {
    std::vector<Bytes> token = tokenOf({L"BU", L"WD"});
    EXPECT_TRUE(simhost::accessGranted(simhost::sddlToDescriptor(L"D:NO_ACCESS_CONTROL").data(), token,
                                       PRINTER_ALL_ACCESS));
    EXPECT_TRUE(simhost::accessGranted(simhost::sddlToDescriptor(L"O:SY").data(), token, PRINTER_ALL_ACCESS));
    EXPECT_FALSE(simhost::accessGranted(simhost::sddlToDescriptor(L"D:").data(), token, READ_CONTROL));
}

TEST_F(Advapi32SecurityAccessCheck, DeniedEntriesCountInOrder) {
    std::vector<Bytes> token = tokenOf({L"BU", L"WD"});
    Bytes denyFirst = simhost::sddlToDescriptor(L"D:(D;;SW;;;BU)(A;;SWRC;;;WD)");
    EXPECT_FALSE(simhost::accessGranted(denyFirst.data(), token, PRINTER_ACCESS_USE));
    EXPECT_TRUE(simhost::accessGranted(denyFirst.data(), token, READ_CONTROL));
    Bytes allowFirst = simhost::sddlToDescriptor(L"D:(A;;SWRC;;;WD)(D;;SW;;;BU)");
    EXPECT_TRUE(simhost::accessGranted(allowFirst.data(), token, PRINTER_ACCESS_USE));
}

TEST_F(Advapi32SecurityAccessCheck, OwnerMayReadAndChangeTheDacl) {
    std::vector<Bytes> token = tokenOf({L"S-1-5-21-1-2-3-1001", L"BU"});
    Bytes owned = simhost::sddlToDescriptor(L"O:S-1-5-21-1-2-3-1001D:");
    EXPECT_TRUE(simhost::accessGranted(owned.data(), token, READ_CONTROL | WRITE_DAC));
    EXPECT_FALSE(simhost::accessGranted(owned.data(), token, WRITE_OWNER));
    Bytes ownerRights = simhost::sddlToDescriptor(L"O:S-1-5-21-1-2-3-1001D:(A;;RC;;;OW)");
    EXPECT_FALSE(simhost::accessGranted(ownerRights.data(), token, WRITE_DAC)) << "OWNER RIGHTS speaks instead";
    EXPECT_TRUE(simhost::accessGranted(ownerRights.data(), token, READ_CONTROL)) << "the owner holds OWNER RIGHTS";
}

TEST_F(Advapi32SecurityAccessCheck, NoRightOrMaximumAllowedIsNotGranted) {
    Bytes open = simhost::sddlToDescriptor(L"D:NO_ACCESS_CONTROL");
    EXPECT_FALSE(simhost::accessGranted(open.data(), tokenOf({L"WD"}), 0));
    EXPECT_FALSE(simhost::accessGranted(open.data(), tokenOf({L"WD"}), MAXIMUM_ALLOWED));
}

}  // namespace
