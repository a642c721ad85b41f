// The token model shared by advapi32's token calls: tokens as values, the
// handles that hold them with their rights, and the token each thread
// impersonates.
#pragma once

#include "simhost/advapi32/tokens.h"
#include "simhost/kernel32/objects.h"

#include <memory>
#include <utility>

namespace simhost {
namespace advapi32 {

// A token never changes once made: duplicating makes another.
struct AccessToken {
    TokenIdentity identity;
    TOKEN_TYPE type = TokenPrimary;
    // Meaningful for impersonation tokens only.
    SECURITY_IMPERSONATION_LEVEL level = SecurityAnonymous;
};
using TokenPtr = std::shared_ptr<const AccessToken>;

// One handle to a token: the rights belong to the handle, as on Windows.
class TokenHandle : public KernelObject {
public:
    TokenHandle(TokenPtr token, ACCESS_MASK access) : token_(std::move(token)), access_(access) {}
    const char* typeName() const override { return "Token"; }

    const AccessToken& token() const { return *token_; }
    const TokenPtr& shared() const { return token_; }
    ACCESS_MASK access() const { return access_; }

private:
    const TokenPtr token_;
    const ACCESS_MASK access_;
};

// A new handle of the host's handle table to the token.
HANDLE registerToken(TokenPtr token, ACCESS_MASK access);
// A request's generic rights and MAXIMUM_ALLOWED as token rights.
ACCESS_MASK mapTokenAccess(ACCESS_MASK desired);

// The primary token of a process, from its record.
TokenPtr primaryTokenOf(const kernel32::ProcessRecord& process);

// The token the calling thread impersonates; null while it acts for its
// process. Setting null reverts.
TokenPtr impersonationToken();
void setImpersonationToken(TokenPtr token);

}  // namespace advapi32
}  // namespace simhost
