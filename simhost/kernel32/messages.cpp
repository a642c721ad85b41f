// The system message table: the English text of every error code the host
// reports, exactly as Windows words it (the system error code and Windows
// Sockets error code references). Each text is stored without the "\r\n"
// that ends every system message; the lookup adds it. Keep the table sorted
// by code: the lookup is a binary search and a check below refuses to compile
// an unsorted table.
#include "simhost/kernel32/system_messages.h"

#include <algorithm>
#include <iterator>

namespace simhost {
namespace kernel32 {
namespace {

struct SystemMessage {
    DWORD code;
    const wchar_t* text;
};

constexpr SystemMessage kSystemMessages[] = {
    {0, L"The operation completed successfully."},
    {1, L"Incorrect function."},
    {2, L"The system cannot find the file specified."},
    {3, L"The system cannot find the path specified."},
    {5, L"Access is denied."},
    {6, L"The handle is invalid."},
    {8, L"Not enough memory resources are available to process this command."},
    {13, L"The data is invalid."},
    {14, L"Not enough storage is available to complete this operation."},
    {18, L"There are no more files."},
    {21, L"The device is not ready."},
    {24, L"The program issued a command but the command length is incorrect."},
    {31, L"A device attached to the system is not functioning."},
    {32, L"The process cannot access the file because it is being used by another process."},
    {50, L"The request is not supported."},
    {80, L"The file exists."},
    {87, L"The parameter is incorrect."},
    {109, L"The pipe has been ended."},
    {122, L"The data area passed to a system call is too small."},
    {123, L"The filename, directory name, or volume label syntax is incorrect."},
    {124, L"The system call level is not correct."},
    {126, L"The specified module could not be found."},
    {127, L"The specified procedure could not be found."},
    {160, L"One or more arguments are not correct."},
    {170, L"The requested resource is in use."},
    {183, L"Cannot create a file when that file already exists."},
    {203, L"The system could not find the environment option that was entered."},
    {234, L"More data is available."},
    {258, L"The wait operation timed out."},
    {259, L"No more data is available."},
    {288, L"Attempt to release mutex not owned by caller."},
    {299, L"Only part of a ReadProcessMemory or WriteProcessMemory request was completed."},
    {317, L"The system cannot find message text for message number 0x%1 in the message file for %2."},
    {487, L"Attempt to access invalid address."},
    {735, L"ERROR_ABANDONED_WAIT_0"},
    {998, L"Invalid access to memory location."},
    {1004, L"Invalid flags."},
    {1008, L"An attempt was made to reference a token that does not exist."},
    {1009, L"The configuration registry database is corrupt."},
    {1010, L"The configuration registry key is invalid."},
    {1011, L"The configuration registry key could not be opened."},
    {1012, L"The configuration registry key could not be read."},
    {1013, L"The configuration registry key could not be written."},
    {1018, L"Illegal operation attempted on a registry key that has been marked for deletion."},
    {1053, L"The service did not respond to the start or control request in a timely fashion."},
    {1054, L"A thread could not be created for the service."},
    {1055, L"The service database is locked."},
    {1056, L"An instance of the service is already running."},
    {1057, L"The account name is invalid or does not exist, or the password is invalid for the account name "
           L"specified."},
    {1058, L"The service cannot be started, either because it is disabled or because it has no enabled devices "
           L"associated with it."},
    {1060, L"The specified service does not exist as an installed service."},
    {1061, L"The service cannot accept control messages at this time."},
    {1062, L"The service has not been started."},
    {1063, L"The service process could not connect to the service controller."},
    {1064, L"An exception occurred in the service when handling the control request."},
    {1066, L"The service has returned a service-specific error code."},
    {1067, L"The process terminated unexpectedly."},
    {1072, L"The specified service has been marked for deletion."},
    {1073, L"The specified service already exists."},
    {1078, L"The name is already in use as either a service name or a service display name."},
    {1113, L"No mapping for the Unicode character exists in the target multi-byte code page."},
    {1115, L"A system shutdown is in progress."},
    {1168, L"Element not found."},
    {1223, L"The operation was canceled by the user."},
    {1300, L"Not all privileges or groups referenced are assigned to the caller."},
    {1314, L"A required privilege is not held by the client."},
    {1332, L"No mapping between account names and security IDs was done."},
    {1336, L"The access control list (ACL) structure is invalid."},
    {1337, L"The security ID structure is invalid."},
    {1338, L"The security descriptor structure is invalid."},
    {1346, L"Either a required impersonation level was not provided, or the provided impersonation level is "
           L"invalid."},
    {1347, L"Cannot open an anonymous level security token."},
    {1349, L"The type of the token is inappropriate for its attempted use."},
    {1460, L"This operation returned because the timeout period expired."},
    {1722, L"The RPC server is unavailable."},
    {1780, L"A null reference pointer was passed to the stub."},
    {1784, L"The supplied user buffer is not valid for the requested operation."},
    {1796, L"The specified port is unknown."},
    {1797, L"The printer driver is unknown."},
    {1798, L"The print processor is unknown."},
    {1801, L"The printer name is invalid."},
    {1802, L"The printer already exists."},
    {1803, L"The printer command is invalid."},
    {1804, L"The specified datatype is invalid."},
    {1805, L"The environment specified is invalid."},
    {1905, L"The specified printer has been deleted."},
    {1906, L"The state of the printer is invalid."},
    {3001, L"The specified printer driver is currently in use."},
    {3006, L"The specified print monitor has already been installed."},
    {3012, L"No printers were found."},
    {10004, L"A blocking operation was interrupted by a call to WSACancelBlockingCall."},
    {10009, L"The file handle supplied is not valid."},
    {10013, L"An attempt was made to access a socket in a way forbidden by its access permissions."},
    {10014, L"The system detected an invalid pointer address in attempting to use a pointer argument in a call."},
    {10022, L"An invalid argument was supplied."},
    {10024, L"Too many open sockets."},
    {10035, L"A non-blocking socket operation could not be completed immediately."},
    {10036, L"A blocking operation is currently executing."},
    {10038, L"An operation was attempted on something that is not a socket."},
    {10040, L"A message sent on a datagram socket was larger than the internal message buffer or some other "
            L"network limit, or the buffer used to receive a datagram into was smaller than the datagram itself."},
    {10048, L"Only one usage of each socket address (protocol/network address/port) is normally permitted."},
    {10049, L"The requested address is not valid in its context."},
    {10050, L"A socket operation encountered a dead network."},
    {10051, L"A socket operation was attempted to an unreachable network."},
    {10053, L"An established connection was aborted by the software in your host machine."},
    {10054, L"An existing connection was forcibly closed by the remote host."},
    {10055, L"An operation on a socket could not be performed because the system lacked sufficient buffer space "
            L"or because a queue was full."},
    {10056, L"A connect request was made on an already connected socket."},
    {10057, L"A request to send or receive data was disallowed because the socket is not connected and (when "
            L"sending on a datagram socket using a sendto call) no address was supplied."},
    {10058, L"A request to send or receive data was disallowed because the socket had already been shut down in "
            L"that direction with a previous shutdown call."},
    {10060, L"A connection attempt failed because the connected party did not properly respond after a period of "
            L"time, or established connection failed because connected host has failed to respond."},
    {10061, L"No connection could be made because the target machine actively refused it."},
    {10091, L"WSAStartup cannot function at this time because the underlying system it uses to provide network "
            L"services is currently unavailable."},
    {10092, L"The Windows Sockets version requested is not supported."},
    {10093, L"Either the application has not called WSAStartup, or WSAStartup failed."},
};

constexpr bool sortedByCode() {
    for (size_t i = 1; i < std::size(kSystemMessages); ++i)
        if (kSystemMessages[i - 1].code >= kSystemMessages[i].code) return false;
    return true;
}
static_assert(sortedByCode(), "the system message table must be sorted by code, without duplicates");

}  // namespace

bool systemMessageText(DWORD code, std::wstring& text) {
    auto entry = std::lower_bound(std::begin(kSystemMessages), std::end(kSystemMessages), code,
                                  [](const SystemMessage& message, DWORD wanted) { return message.code < wanted; });
    if (entry == std::end(kSystemMessages) || entry->code != code) return false;
    text = entry->text;
    text += L"\r\n";
    return true;
}

}  // namespace kernel32
}  // namespace simhost
