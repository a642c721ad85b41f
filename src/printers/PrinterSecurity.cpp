// The access list of a session's printer and the guarded add.
#include "printers/PrinterSecurity.h"

#include "foundation/StaticLogger.h"
#include "foundation/TextConversion.h"
#include "platform/platform.h"
#include "printers/SessionIdentity.h"

#include <memory>
#include <thread>

namespace {

constexpr int kAddPrinterLimitSeconds = 30;

// System and printer operators keep their usual rights and creators own
// their documents; the session may use the printer, read it, and administer
// the documents it prints; the local administrator may delete documents. No
// other trustee has an entry.
constexpr const wchar_t* kPrinterSddlHead =
    L"D:(A;;LCSWSDRCWDWO;;;SY)(A;OIIO;RPWPSDRCWDWO;;;SY)(A;;SWRC;;;PO)(A;;WO;;;PO)(A;OIIO;RC;;;CO)"
    L"(A;OIIO;RPWPSDRCWDWO;;;CO)(A;;SWRC;;;";
constexpr const wchar_t* kPrinterSddlAfterUse = L")(A;CIIO;RC;;;";
constexpr const wchar_t* kPrinterSddlAfterRead = L")(A;OIIO;RPWPSDRCWDWO;;;";
constexpr const wchar_t* kPrinterSddlTail = L")(A;OIIO;SD;;;LA)";

}  // namespace

namespace PrinterUtil {

std::wstring printerSddlForSession(const std::wstring& sessionSid) {
    return kPrinterSddlHead + sessionSid + kPrinterSddlAfterUse + sessionSid + kPrinterSddlAfterRead + sessionSid +
           kPrinterSddlTail;
}

PSECURITY_DESCRIPTOR createSessionPrinterDescriptor(DWORD senderPid, Json::Value& reply, const char* handler) {
    // A sender of unknown session goes on with empty trustees, which the
    // conversion below refuses: that is where such a sender is turned away.
    const std::wstring sessionSid = utf8ToWide(processIdToSessionSecurityId(senderPid));
    if (sessionSid.empty())
        VX_LOG_AS(handler, kLogError, kNoLastError, 5, "Couldn't get the session security Id of sender.");
    else
        VX_LOG_AS(handler, kLogNormal, kNoLastError, 2, "Got session SID:%ls", sessionSid.c_str());
    const std::wstring printerSddl = printerSddlForSession(sessionSid);
    if (printerSddl.empty()) {
        reply["err"] = "no SecurityDescriptor";
        return nullptr;
    }
    PSECURITY_DESCRIPTOR descriptor = nullptr;
    if (!ConvertStringSecurityDescriptorToSecurityDescriptorW(printerSddl.c_str(), SDDL_REVISION_1, &descriptor,
                                                              nullptr)) {
        VX_LOG_AS(handler, kLogError, kWithLastError, 4, "ConvertStringSecurityDescriptorToSecurityDescriptor");
        VX_LOG_AS(handler, kLogNormal, kNoLastError, 4, "bad SecurityDescriptor:%ls", printerSddl.c_str());
        reply["err"] = "bad SecurityDescriptor";
        return nullptr;
    }
    return descriptor;
}

bool waitForAdd(PendingAdd& pending, std::unique_lock<std::mutex>& lock,
                std::chrono::steady_clock::time_point deadline) {
    while (!pending.addDone.load()) {
        if (pending.addCondition.wait_until(lock, deadline) == std::cv_status::timeout) break;
    }
    return pending.addDone.load();
}

HANDLE addPrinterNonBlocking(PRINTER_INFO_2W* printerInfo) {
    auto pending = std::make_shared<PendingAdd>(printerInfo);
    // Held from before the add thread starts, so that its finish cannot be
    // missed; released only inside the wait and at the end.
    std::unique_lock<std::mutex> lock(pending->addMutex);
    std::thread worker([pending] {
        VX_LOG(kLogNormal, kNoLastError, 2, "Adding printer");
        HANDLE added = AddPrinterW(nullptr, 2, reinterpret_cast<LPBYTE>(pending->printerInfo));
        // Stored before the lock is taken, so that a handle that comes as the
        // time runs out is still seen after the thread was ended.
        pending->hAddedPrinter.store(added, std::memory_order_relaxed);
        {
            std::lock_guard<std::mutex> done(pending->addMutex);
            pending->addDone.exchange(true);
        }
        VX_LOG(kLogNormal, kNoLastError, 2, "Added printer");
        pending->addCondition.notify_all();
    });
    const auto limit = platform::hostDuration(std::chrono::seconds(kAddPrinterLimitSeconds));
    if (waitForAdd(*pending, lock, std::chrono::steady_clock::now() + limit)) {
        VX_LOG(kLogNormal, kNoLastError, 2, "Detected adding of printer");
    } else {
        VX_LOG(kLogNormal, kNoLastError, 2, "Timed out trying to add printer, killing thread 0x%p",
               platform::threadHandle(worker));
        if (platform::endAbandonedThread(worker))
            VX_LOG(kLogNormal, kNoLastError, 3, "Failed to AddPrinter within %d seconds", kAddPrinterLimitSeconds);
    }
    VX_LOG(kLogNormal, kNoLastError, 2, "Joining...");
    if (worker.joinable()) worker.join();
    HANDLE added = pending->hAddedPrinter.load(std::memory_order_relaxed);
    VX_LOG(kLogNormal, kNoLastError, 2, "hPrinter = 0x%p", added);
    return added;
}

}  // namespace PrinterUtil
