// A session printer's access list, and the add that is given up after 30
// seconds (here on a small time scale), against the simulated host.
#include "platform/platform.h"
#include "printers/PrinterSecurity.h"
#include "printers/SessionIdentity.h"
#include "simhost/advapi32/security.h"
#include "simhost/core/host.h"
#include "simhost/core/thread_ending.h"
#include "simhost/kernel32/objects.h"
#include "simhost/kernel32/processes.h"
#include "simhost/winspool/spooler.h"
#include "support/LogCapture.h"
#include "support/PluginRequests.h"
#include "support/SpoolerArrangement.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdio>
#include <memory>
#include <string>
#include <thread>
#include <vector>

using testsupport::LogCapture;
using testsupport::LogLine;

namespace {

namespace spooler = simhost::winspool;

const int kError = static_cast<int>(kLogError);
const int kNormal = static_cast<int>(kLogNormal);
constexpr const char* kAdd = "PrinterUtil::addPrinterNonBlocking";
constexpr const char* kHandler = "VexorPrintingService::_addPrinter";
constexpr DWORD kSenderPid = 5000;

std::string narrow(const std::wstring& wide) { return std::string(wide.begin(), wide.end()); }

std::string pointerText(const void* pointer) {
    char text[32];
    std::snprintf(text, sizeof text, "%016llX", static_cast<unsigned long long>(reinterpret_cast<uintptr_t>(pointer)));
    return text;
}

// The texts of one printer's record, owned here so that a test can drop them
// while an abandoned add might still look at them.
struct PrinterRecord {
    explicit PrinterRecord(const std::wstring& printerName) : name(printerName) {
        info.pPrinterName = &name[0];
        info.pPortName = &port[0];
        info.pDriverName = &driver[0];
        info.pPrintProcessor = &processor[0];
        info.pDatatype = &datatype[0];
    }
    std::wstring name;
    std::wstring port = L"P1";
    std::wstring driver = testsupport::kTestDriver;
    std::wstring processor = L"winprint";
    std::wstring datatype = L"RAW";
    PRINTER_INFO_2W info{};
};

class PrinterSecurity : public ::testing::Test {
protected:
    void SetUp() override {
        testsupport::addTestDriver();
        testsupport::addRawTcpPort(L"P1");
    }
    void TearDown() override {
        simhost::Host::get().faults().clearAll();
        EXPECT_TRUE(simhost::pollUntil([] { return simhost::threadsStillToEnd() == 0; }, 10000));
        simhost::Host::get().setTimeScale(1.0);
    }

    void expectLine(const std::string& message, uint32_t level, int channel, const std::string& function) {
        testsupport::expectOneLine(log_, message, level, channel, function);
    }
    size_t indexOf(const std::string& message) const {
        std::vector<std::string> messages = log_.messages();
        for (size_t i = 0; i < messages.size(); ++i)
            if (messages[i] == message) return i;
        ADD_FAILURE() << "no line \"" << message << "\"\n" << log_.contents();
        return messages.size();
    }
    std::vector<LogLine> linesStartingWith(const std::string& start) const {
        std::vector<LogLine> found;
        for (const LogLine& line : log_.lines())
            if (line.message.rfind(start, 0) == 0) found.push_back(line);
        return found;
    }
    void addSender(DWORD session) { simhost::kernel32::addProcess({kSenderPid, 4, session, L"C:\\loader.exe"}); }

    LogCapture log_;
};

// ---- The access list ----

TEST_F(PrinterSecurity, DescriptorTextNamesTheSessionInItsSeventhToNinthEntries) {
    const std::wstring sid = L"S-1-5-5-0-1002";
    const std::wstring text = PrinterUtil::printerSddlForSession(sid);
    EXPECT_EQ(text,
              L"D:(A;;LCSWSDRCWDWO;;;SY)(A;OIIO;RPWPSDRCWDWO;;;SY)(A;;SWRC;;;PO)(A;;WO;;;PO)(A;OIIO;RC;;;CO)"
              L"(A;OIIO;RPWPSDRCWDWO;;;CO)(A;;SWRC;;;S-1-5-5-0-1002)(A;CIIO;RC;;;S-1-5-5-0-1002)"
              L"(A;OIIO;RPWPSDRCWDWO;;;S-1-5-5-0-1002)(A;OIIO;SD;;;LA)");
    std::vector<std::wstring> entries;
    for (size_t at = text.find(L'('); at != std::wstring::npos; at = text.find(L'(', at + 1))
        entries.push_back(text.substr(at + 1, text.find(L')', at) - at - 1));
    ASSERT_EQ(entries.size(), 10u);
    for (size_t i = 0; i < entries.size(); ++i) {
        const bool namesSession = entries[i].find(sid) != std::wstring::npos;
        EXPECT_EQ(namesSession, i >= 6 && i <= 8) << narrow(entries[i]);
    }
}

TEST_F(PrinterSecurity, SendersDescriptorConvertsAndReadsBackInCanonicalForm) {
    addSender(2);
    Json::Value reply(Json::objectValue);
    PSECURITY_DESCRIPTOR descriptor = PrinterUtil::createSessionPrinterDescriptor(kSenderPid, reply, kHandler);
    ASSERT_NE(descriptor, nullptr) << log_.contents();
    EXPECT_FALSE(reply.isMember("err"));
    const std::wstring session = simhost::sessionLogonSid(2);
    LPWSTR text = nullptr;
    ASSERT_TRUE(ConvertSecurityDescriptorToStringSecurityDescriptorW(descriptor, SDDL_REVISION_1, 23, &text, nullptr));
    EXPECT_EQ(std::wstring(text), PrinterUtil::printerSddlForSession(session));
    LocalFree(text);
    EXPECT_EQ(LocalFree(descriptor), nullptr);
    expectLine("Got session SID:" + narrow(session), 2, kNormal, kHandler);
}

TEST_F(PrinterSecurity, SenderOfUnknownSessionIsRefusedAtTheConversion) {
    Json::Value reply(Json::objectValue);
    EXPECT_EQ(PrinterUtil::createSessionPrinterDescriptor(kSenderPid, reply, kHandler), nullptr);
    EXPECT_EQ(reply["err"].asString(), "bad SecurityDescriptor");
    expectLine("Couldn't get the session security Id of sender.", 5, kError, kHandler);
    expectLine("ConvertStringSecurityDescriptorToSecurityDescriptor Err:1337:The security ID structure is invalid.",
               4, kError, kHandler);
    expectLine("bad SecurityDescriptor:" + narrow(PrinterUtil::printerSddlForSession(L"")), 4, kNormal, kHandler);
}

TEST_F(PrinterSecurity, ConversionThatFailsIsABadDescriptor) {
    addSender(2);
    simhost::Host::get().faults().failCall("ConvertStringSecurityDescriptorToSecurityDescriptorW",
                                           ERROR_NOT_ENOUGH_MEMORY);
    Json::Value reply(Json::objectValue);
    EXPECT_EQ(PrinterUtil::createSessionPrinterDescriptor(kSenderPid, reply, kHandler), nullptr);
    EXPECT_EQ(reply["err"].asString(), "bad SecurityDescriptor");
    expectLine("bad SecurityDescriptor:" + narrow(PrinterUtil::printerSddlForSession(simhost::sessionLogonSid(2))), 4,
               kNormal, kHandler);
}

// ---- The guarded add ----

TEST_F(PrinterSecurity, AddThatReturnsAtOnceIsDetectedAndItsHandleReturned) {
    PrinterRecord record(L"Client printer");
    HANDLE printer = PrinterUtil::addPrinterNonBlocking(&record.info);
    ASSERT_NE(printer, nullptr) << log_.contents();
    EXPECT_TRUE(spooler::findPrinter(L"Client printer"));
    expectLine("Adding printer", 2, kNormal, kAdd);
    expectLine("Added printer", 2, kNormal, kAdd);
    expectLine("Detected adding of printer", 2, kNormal, kAdd);
    expectLine("Joining...", 2, kNormal, kAdd);
    expectLine("hPrinter = 0x" + pointerText(printer), 2, kNormal, kAdd);
    EXPECT_LT(indexOf("Detected adding of printer"), indexOf("Joining..."));
    EXPECT_LT(indexOf("Joining..."), indexOf("hPrinter = 0x" + pointerText(printer)));
    EXPECT_TRUE(linesStartingWith("Timed out").empty());
    EXPECT_TRUE(ClosePrinter(printer));
}

TEST_F(PrinterSecurity, AddThatFailsAtOnceGivesANullHandleWithTheSameLines) {
    simhost::Host::get().faults().failCall("AddPrinterW", ERROR_INVALID_PRINTER_NAME);
    PrinterRecord record(L"Client printer");
    EXPECT_EQ(PrinterUtil::addPrinterNonBlocking(&record.info), nullptr);
    expectLine("Detected adding of printer", 2, kNormal, kAdd);
    expectLine("Joining...", 2, kNormal, kAdd);
    expectLine("hPrinter = 0x0000000000000000", 2, kNormal, kAdd);
    EXPECT_LT(indexOf("Detected adding of printer"), indexOf("Joining..."));
    EXPECT_TRUE(spooler::printers().empty());
}

// At a time scale of 1/1000 the 30-second limit lasts 30 ms.
TEST_F(PrinterSecurity, AddThatHangsIsGivenUpAndNeverComesBack) {
    simhost::Host::get().setTimeScale(0.001);
    simhost::Host::get().faults().blockCall("AddPrinterW");
    {
        PrinterRecord record(L"Client printer");
        EXPECT_EQ(PrinterUtil::addPrinterNonBlocking(&record.info), nullptr);
    }
    std::vector<LogLine> killing = linesStartingWith("Timed out trying to add printer, killing thread 0x");
    ASSERT_EQ(killing.size(), 1u) << log_.contents();
    EXPECT_EQ(killing[0].level, 2u);
    EXPECT_EQ(killing[0].function, kAdd);
    expectLine("Failed to AddPrinter within 30 seconds", 3, kNormal, kAdd);
    expectLine("hPrinter = 0x0000000000000000", 2, kNormal, kAdd);
    EXPECT_FALSE(log_.contains("Detected adding of printer"));
    EXPECT_LT(indexOf("Failed to AddPrinter within 30 seconds"), indexOf("Joining..."));
    // The record is gone; the add, released now, must neither read it nor
    // write into the caller's state.
    simhost::Host::get().faults().releaseCall("AddPrinterW");
    ASSERT_TRUE(simhost::pollUntil([] { return simhost::threadsStillToEnd() == 0; }, 10000));
    EXPECT_FALSE(log_.contains("Added printer"));
    EXPECT_TRUE(spooler::printers().empty());
}

TEST_F(PrinterSecurity, AddThatFinishesAsTheTimeRunsOutCountsAsFinished) {
    PrinterUtil::PendingAdd pending(nullptr);
    std::unique_lock<std::mutex> lock(pending.addMutex);
    pending.addDone = true;
    const auto passed = std::chrono::steady_clock::now() - std::chrono::seconds(1);
    EXPECT_TRUE(PrinterUtil::waitForAdd(pending, lock, passed));
    pending.addDone = false;
    EXPECT_FALSE(PrinterUtil::waitForAdd(pending, lock, passed));
}

TEST_F(PrinterSecurity, AddThatFinishesWhileTheCallerWaitsWakesIt) {
    PrinterUtil::PendingAdd pending(nullptr);
    std::unique_lock<std::mutex> lock(pending.addMutex);
    std::thread worker([&pending] {
        {
            std::lock_guard<std::mutex> done(pending.addMutex);
            pending.addDone.exchange(true);
        }
        pending.addCondition.notify_all();
    });
    EXPECT_TRUE(PrinterUtil::waitForAdd(pending, lock, std::chrono::steady_clock::now() + std::chrono::minutes(5)));
    lock.unlock();
    worker.join();
}

// ---- Ending a thread on the simulated host ----

TEST_F(PrinterSecurity, ThreadWaitingInAHostCallEndsThereAndCanBeJoined) {
    simhost::Host::get().faults().blockCall("OpenProcess");
    std::atomic<bool> cameBack{false};
    std::thread thread([&cameBack] {
        OpenProcess(MAXIMUM_ALLOWED, FALSE, kSenderPid);
        cameBack = true;
    });
    ASSERT_TRUE(simhost::Host::get().faults().waitUntilBlocked("OpenProcess"));
    EXPECT_TRUE(platform::endAbandonedThread(thread));
    ASSERT_TRUE(thread.joinable());
    thread.join();
    EXPECT_FALSE(cameBack);
    EXPECT_EQ(simhost::threadsStillToEnd(), 0u);
}

TEST_F(PrinterSecurity, ThreadRunningItsOwnCodeIsLetGoAndEndsAtItsNextHostCall) {
    std::atomic<bool> mayCall{false};
    std::atomic<bool> cameBack{false};
    std::thread thread([&] {
        while (!mayCall) std::this_thread::yield();
        OpenProcess(MAXIMUM_ALLOWED, FALSE, kSenderPid);
        cameBack = true;
    });
    EXPECT_TRUE(platform::endAbandonedThread(thread));
    EXPECT_FALSE(thread.joinable());
    mayCall = true;
    ASSERT_TRUE(simhost::pollUntil([] { return simhost::threadsStillToEnd() == 0; }, 10000));
    EXPECT_FALSE(cameBack);
}

}  // namespace
