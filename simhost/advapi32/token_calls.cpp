// Opening, duplicating and impersonating tokens.
//
// Token handles are kernel handles of the host's table: CloseHandle closes
// them, and a closed handle is ERROR_INVALID_HANDLE. The service runs as the
// local system account, which may open the token of every process it can
// open: the rights asked are granted, generic ones and MAXIMUM_ALLOWED mapped
// onto the token rights. A null output pointer is ERROR_NOACCESS, as the
// system refuses to write through it. Successful calls leave the last error
// as it was.
#include "simhost/advapi32/advapi32_internal.h"
#include "simhost/advapi32/tokens_internal.h"
#include "simhost/core/host.h"
#include "simhost/kernel32/process_table.h"

using namespace simhost::advapi32;

namespace {

// While a thread impersonates it holds an impersonation token: a primary
// token is taken at SecurityImpersonation level, as ImpersonateLoggedOnUser
// duplicates one.
TokenPtr impersonationTokenFrom(const TokenPtr& token) {
    if (token->type == TokenImpersonation) return token;
    return std::make_shared<AccessToken>(AccessToken{token->identity, TokenImpersonation, SecurityImpersonation});
}

bool knownLevel(SECURITY_IMPERSONATION_LEVEL level) {
    const int value = static_cast<int>(level);
    return value >= SecurityAnonymous && value <= SecurityDelegation;
}

// Why a token cannot be duplicated as asked, or 0. An impersonation token
// cannot be raised above its own level, nor make a primary token below
// SecurityImpersonation.
DWORD duplicationRefusal(const AccessToken& source, SECURITY_IMPERSONATION_LEVEL level, TOKEN_TYPE type) {
    if ((type != TokenPrimary && type != TokenImpersonation) || !knownLevel(level)) return ERROR_INVALID_PARAMETER;
    if (source.type != TokenImpersonation) return 0;
    if (type == TokenImpersonation && level > source.level) return ERROR_BAD_IMPERSONATION_LEVEL;
    if (type == TokenPrimary && source.level < SecurityImpersonation) return ERROR_BAD_IMPERSONATION_LEVEL;
    return 0;
}

}  // namespace

// The token of the process behind the handle, which needs one of the query
// rights (PROCESS_QUERY_LIMITED_INFORMATION is enough, as documented).
// GetCurrentProcess() stands for the service's own process. A handle opened
// before the process exited still gives its token: the token lives with the
// process object.
BOOL WINAPI OpenProcessToken(HANDLE processHandle, DWORD desiredAccess, PHANDLE tokenHandle) {
    if (DWORD e = simhost::injectedFailure("OpenProcessToken")) return succeedOrFail(e);
    if (!tokenHandle) return succeedOrFail(ERROR_NOACCESS);
    std::shared_ptr<simhost::kernel32::ProcessHandle> process = simhost::kernel32::processHandleOf(processHandle);
    if (!process) return succeedOrFail(ERROR_INVALID_HANDLE);
    if (!(process->access() & simhost::kernel32::kProcessQueryRights)) return succeedOrFail(ERROR_ACCESS_DENIED);
    *tokenHandle = registerToken(primaryTokenOf(process->process().record()), mapTokenAccess(desiredAccess));
    return TRUE;
}

// The impersonation token of the calling thread, through GetCurrentThread()'s
// pseudo-handle: handles of other threads are not modelled
// (ERROR_INVALID_HANDLE). A thread that does not impersonate has none:
// ERROR_NO_TOKEN. The service's account may open it either way, so
// openAsSelf changes nothing.
BOOL WINAPI OpenThreadToken(HANDLE threadHandle, DWORD desiredAccess, BOOL openAsSelf, PHANDLE tokenHandle) {
    (void)openAsSelf;
    if (DWORD e = simhost::injectedFailure("OpenThreadToken")) return succeedOrFail(e);
    if (!tokenHandle) return succeedOrFail(ERROR_NOACCESS);
    if (threadHandle != GetCurrentThread()) return succeedOrFail(ERROR_INVALID_HANDLE);
    TokenPtr token = impersonationToken();
    if (!token) return succeedOrFail(ERROR_NO_TOKEN);
    *tokenHandle = registerToken(std::move(token), mapTokenAccess(desiredAccess));
    return TRUE;
}

// A new token of the same identity, of the type and level asked. Needs
// TOKEN_DUPLICATE on the source. A desired access of 0 gives the new handle
// the source handle's rights. The security attributes are not modelled: the
// new handle is not inheritable either way.
BOOL WINAPI DuplicateTokenEx(HANDLE existingToken, DWORD desiredAccess, LPSECURITY_ATTRIBUTES tokenAttributes,
                             SECURITY_IMPERSONATION_LEVEL impersonationLevel, TOKEN_TYPE tokenType,
                             PHANDLE newToken) {
    (void)tokenAttributes;
    if (DWORD e = simhost::injectedFailure("DuplicateTokenEx")) return succeedOrFail(e);
    if (!newToken) return succeedOrFail(ERROR_NOACCESS);
    std::shared_ptr<TokenHandle> source = simhost::lookupHandle<TokenHandle>(existingToken);
    if (!source) return succeedOrFail(ERROR_INVALID_HANDLE);
    if (!grants(source->access(), TOKEN_DUPLICATE)) return succeedOrFail(ERROR_ACCESS_DENIED);
    if (DWORD refusal = duplicationRefusal(source->token(), impersonationLevel, tokenType))
        return succeedOrFail(refusal);
    SECURITY_IMPERSONATION_LEVEL level = tokenType == TokenImpersonation ? impersonationLevel : SecurityAnonymous;
    auto copy = std::make_shared<AccessToken>(AccessToken{source->token().identity, tokenType, level});
    *newToken = registerToken(std::move(copy), desiredAccess ? mapTokenAccess(desiredAccess) : source->access());
    return TRUE;
}

// The calling thread acts for the token's user and groups until it reverts,
// another thread of the process going on as before. A primary token's handle
// needs TOKEN_QUERY and TOKEN_DUPLICATE, an impersonation token's TOKEN_QUERY
// and TOKEN_IMPERSONATE, else ERROR_ACCESS_DENIED. Levels below
// SecurityImpersonation are taken as they come: the host's objects do not
// refuse an identification token.
BOOL WINAPI ImpersonateLoggedOnUser(HANDLE token) {
    if (DWORD e = simhost::injectedFailure("ImpersonateLoggedOnUser")) return succeedOrFail(e);
    std::shared_ptr<TokenHandle> handle = simhost::lookupHandle<TokenHandle>(token);
    if (!handle) return succeedOrFail(ERROR_INVALID_HANDLE);
    ACCESS_MASK needed = TOKEN_QUERY | (handle->token().type == TokenPrimary ? TOKEN_DUPLICATE : TOKEN_IMPERSONATE);
    if (!grants(handle->access(), needed)) return succeedOrFail(ERROR_ACCESS_DENIED);
    setImpersonationToken(impersonationTokenFrom(handle->shared()));
    return TRUE;
}

// The calling thread acts for its process again; a thread that does not
// impersonate succeeds as well.
BOOL WINAPI RevertToSelf() {
    if (DWORD e = simhost::injectedFailure("RevertToSelf")) return succeedOrFail(e);
    setImpersonationToken(nullptr);
    return TRUE;
}
