// A new printer's access list, tied to the sender's logon session, and the
// add itself, which the spooler may never finish: it runs on a thread of its
// own that the command worker waits for 30 seconds and then ends.
#pragma once

#include "platform/win32.h"

#include <json/json.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>

namespace PrinterUtil {

// The SDDL text of a printer of the session whose logon SID is `sessionSid`:
// a discretionary list only, the session named in three entries (use,
// reading the printer, and administering its documents). An empty SID leaves
// those trustees empty, which the platform refuses to convert.
std::wstring printerSddlForSession(const std::wstring& sessionSid);

// The self-relative descriptor of a printer of the sender's logon session
// (give it back with LocalFree), or null with the reply's `err` set. The log
// lines are those of `handler`, the printer creation that asks for it.
PSECURITY_DESCRIPTOR createSessionPrinterDescriptor(DWORD senderPid, Json::Value& reply, const char* handler);

// AddPrinterW at level 2 on a thread of its own, waited for at most 30
// seconds; the thread is ended when the time runs out. The printer's handle,
// or null when the add failed or was given up. Throws std::system_error when
// the thread library fails.
HANDLE addPrinterNonBlocking(PRINTER_INFO_2W* printerInfo);

// What one addPrinterNonBlocking shares with its add thread. Both own it, so
// a thread that outlives the call still writes into live memory, never into
// the caller's frame.
struct PendingAdd {
    explicit PendingAdd(PRINTER_INFO_2W* info) : printerInfo(info) {}
    std::atomic<HANDLE> hAddedPrinter{nullptr};
    std::atomic<bool> addDone{false};
    std::mutex addMutex;
    std::condition_variable addCondition;
    PRINTER_INFO_2W* const printerInfo;
};

// The caller's wait, `lock` holding `pending.addMutex`: true when the add has
// come back. `addDone` is tested before each wait and once more after the
// deadline, so an add that finishes as the time runs out counts as finished.
bool waitForAdd(PendingAdd& pending, std::unique_lock<std::mutex>& lock,
                std::chrono::steady_clock::time_point deadline);

}  // namespace PrinterUtil
