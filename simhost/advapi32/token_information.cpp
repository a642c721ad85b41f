// GetTokenInformation: a token's user, groups, type, session and logon SID,
// in the records and the one-block layout Windows gives them.
#include "simhost/advapi32/advapi32_internal.h"
#include "simhost/advapi32/security.h"
#include "simhost/advapi32/tokens_internal.h"
#include "simhost/core/host.h"

#include <cstdint>
#include <cstring>

namespace simhost {
namespace advapi32 {
namespace {

// One class's answer laid out for the caller's buffer at `base`: the records
// first, then the SIDs they point to. Pointers come from the address alone,
// so the block is built, and measured, before the buffer is known to take it.
// Records are 8-byte multiples and SIDs 4-byte ones, so every SID is aligned.
class InformationBlock {
public:
    InformationBlock(uintptr_t base, size_t recordBytes) : base_(base), bytes_(recordBytes) {}

    template <class Record>
    void put(size_t offset, const Record& record) {
        std::memcpy(bytes_.data() + offset, &record, sizeof record);
    }
    // Places the SID behind what the block holds; answers where it will be.
    PSID appendSid(const std::wstring& text) {
        std::vector<BYTE> sid = sidFromText(text);
        const size_t offset = bytes_.size();
        bytes_.insert(bytes_.end(), sid.begin(), sid.end());
        return reinterpret_cast<PSID>(base_ + offset);
    }
    std::vector<BYTE> take() { return std::move(bytes_); }

private:
    const uintptr_t base_;
    std::vector<BYTE> bytes_;
};

std::vector<BYTE> userBlock(const TokenIdentity& identity, uintptr_t base) {
    InformationBlock block(base, sizeof(TOKEN_USER));
    TOKEN_USER user{};
    user.User.Sid = block.appendSid(identity.userSid);
    block.put(0, user);
    return block.take();
}

// TOKEN_GROUPS: the count, the array of SID_AND_ATTRIBUTES, then the SIDs.
std::vector<BYTE> groupsBlock(const std::vector<TokenGroup>& groups, uintptr_t base) {
    InformationBlock block(base, offsetof(TOKEN_GROUPS, Groups) + groups.size() * sizeof(SID_AND_ATTRIBUTES));
    block.put(offsetof(TOKEN_GROUPS, GroupCount), static_cast<DWORD>(groups.size()));
    for (size_t index = 0; index < groups.size(); ++index) {
        SID_AND_ATTRIBUTES entry{block.appendSid(groups[index].sid), groups[index].attributes};
        block.put(offsetof(TOKEN_GROUPS, Groups) + index * sizeof entry, entry);
    }
    return block.take();
}

template <class Value>
std::vector<BYTE> valueBlock(Value value) {
    std::vector<BYTE> bytes(sizeof value);
    std::memcpy(bytes.data(), &value, sizeof value);
    return bytes;
}

std::vector<TokenGroup> logonGroups(const TokenIdentity& identity) {
    std::vector<TokenGroup> logon;
    for (const TokenGroup& group : identity.groups)
        if ((group.attributes & SE_GROUP_LOGON_ID) == SE_GROUP_LOGON_ID) logon.push_back(group);
    return logon;
}

// The answer for one class, or the error for it. A token without a logon SID
// has no TokenLogonSid: ERROR_NOT_FOUND. The other classes are not modelled.
DWORD informationOf(const AccessToken& token, TOKEN_INFORMATION_CLASS kind, uintptr_t base,
                    std::vector<BYTE>& answer) {
    switch (kind) {
        case TokenUser:
            answer = userBlock(token.identity, base);
            return 0;
        case TokenGroups:
            answer = groupsBlock(token.identity.groups, base);
            return 0;
        case TokenType:
            answer = valueBlock(token.type);
            return 0;
        case TokenSessionId:
            answer = valueBlock(token.identity.sessionId);
            return 0;
        case TokenLogonSid: {
            std::vector<TokenGroup> logon = logonGroups(token.identity);
            if (logon.empty()) return ERROR_NOT_FOUND;
            answer = groupsBlock(logon, base);
            return 0;
        }
        default:
            return ERROR_INVALID_PARAMETER;
    }
}

// The token behind a handle that may be queried, or the error.
std::shared_ptr<TokenHandle> queryableToken(HANDLE tokenHandle, DWORD& error) {
    std::shared_ptr<TokenHandle> handle = lookupHandle<TokenHandle>(tokenHandle);
    error = !handle ? ERROR_INVALID_HANDLE : !grants(handle->access(), TOKEN_QUERY) ? ERROR_ACCESS_DENIED : 0;
    return error ? nullptr : handle;
}

}  // namespace
}  // namespace advapi32
}  // namespace simhost

using namespace simhost::advapi32;

// Needs TOKEN_QUERY. The size protocol: a buffer smaller than the answer
// (null with a length of 0 included) is ERROR_INSUFFICIENT_BUFFER with the
// size needed in *returnLength and nothing written; on success
// *returnLength is the size written. A null returnLength, or a null buffer
// with a length, is ERROR_NOACCESS. Classes other than TokenUser,
// TokenGroups, TokenType, TokenSessionId and TokenLogonSid:
// ERROR_INVALID_PARAMETER.
BOOL WINAPI GetTokenInformation(HANDLE tokenHandle, TOKEN_INFORMATION_CLASS tokenInformationClass,
                                LPVOID tokenInformation, DWORD tokenInformationLength, PDWORD returnLength) {
    if (DWORD e = simhost::injectedFailure("GetTokenInformation")) return succeedOrFail(e);
    if (!returnLength || (!tokenInformation && tokenInformationLength)) return succeedOrFail(ERROR_NOACCESS);
    DWORD error = 0;
    std::shared_ptr<TokenHandle> handle = queryableToken(tokenHandle, error);
    if (!handle) return succeedOrFail(error);
    std::vector<BYTE> answer;
    uintptr_t base = reinterpret_cast<uintptr_t>(tokenInformation);
    if (DWORD refusal = informationOf(handle->token(), tokenInformationClass, base, answer))
        return succeedOrFail(refusal);
    *returnLength = static_cast<DWORD>(answer.size());
    if (answer.size() > tokenInformationLength) return succeedOrFail(ERROR_INSUFFICIENT_BUFFER);
    std::memcpy(tokenInformation, answer.data(), answer.size());
    return TRUE;
}
