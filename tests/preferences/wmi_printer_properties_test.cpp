// A printer property through management instrumentation, on printers of the
// simulated spooler: the exact match of the name, the read as text, the
// write that always stores true, the objects left referenced, COM set up and
// torn down on each call, and every line.
#include "preferences/WmiPrinterProperties.h"
#include "simhost/core/host.h"
#include "simhost/kernel32/memory.h"
#include "simhost/ole32/com_objects.h"
#include "simhost/winspool/spooler.h"
#include "support/LogCapture.h"
#include "support/PluginRequests.h"
#include "support/SpoolerArrangement.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

namespace spooler = simhost::winspool;
using simhost::ole32::liveObjects;

const int kError = static_cast<int>(kLogError);
const int kNormal = static_cast<int>(kLogNormal);
constexpr const char* kRequest = "PrinterUtil::WMIPrinterRequest";
// What the thread's last error reads as when nothing set it: the lines
// "with the system error text" carry it.
const std::string kNoError = " Err:0:The operation completed successfully.";

class WmiPrinterProperties : public ::testing::Test {
protected:
    void SetUp() override {
        testsupport::addTestDriver();
        testsupport::addRawTcpPort(L"VexorPort_50123", 50123);
        testsupport::addTestPrinter(L"Local Desk", L"VexorPort_50123");
        testsupport::addTestPrinter(L"Local Hall", L"VexorPort_50123");
    }
    void TearDown() override {
        EXPECT_EQ(simhost::ole32::initializationCount(), 0) << "COM is left as it was found";
        EXPECT_EQ(simhost::kernel32::liveBlockCount(simhost::kernel32::Allocator::SysString), 0u);
        simhost::Host::get().faults().clearAll();
    }

    std::wstring request(const wchar_t* printer, const wchar_t* property, const wchar_t* value = nullptr) {
        SetLastError(ERROR_SUCCESS);
        return PrinterUtil::WMIPrinterRequest(printer, property, value);
    }
    void expectLine(const std::string& message, uint32_t level, int channel) const {
        testsupport::expectOneLine(log_, message, level, channel, kRequest);
    }
    bool logged(const std::string& message) const { return log_.contains(message); }
    static DWORD attributesOf(const wchar_t* printer) { return spooler::findPrinter(printer)->attributes; }
    static size_t calls(const char* call) { return simhost::Host::get().faults().callCount(call); }
    static void fail(const char* call, HRESULT result, int times = 1, int passing = 0) {
        simhost::Host::get().faults().failCall(call, static_cast<DWORD>(result), times, passing);
    }
    // The Win32_Printer objects still referenced, by the printers they stand for.
    static std::vector<std::wstring> keptPrinters() {
        std::vector<std::wstring> kept;
        for (const simhost::ole32::LiveObject& object : liveObjects()) {
            EXPECT_EQ(object.interfaceName, "IWbemClassObject") << "only the rows stay";
            EXPECT_EQ(object.references, 1u);
            kept.push_back(object.description);
        }
        return kept;
    }

    testsupport::LogCapture log_;
};

// ---- The edge cases ----

TEST_F(WmiPrinterProperties, ANameInAnotherCaseIsNoMatchAndEveryRowIsWalked) {
    EXPECT_EQ(request(L"LOCAL HALL", L"EnableBIDI", L"-1"), L"");
    EXPECT_FALSE(logged("Found printer:LOCAL HALL"));
    EXPECT_FALSE(logged("Found printer:Local Hall"));
    EXPECT_EQ(calls("IEnumWbemClassObject::Next"), 3u) << "two rows, and the answer that there are no more";
    EXPECT_EQ(calls("IWbemClassObject::Put"), 0u);
    EXPECT_EQ(attributesOf(L"Local Hall"), PRINTER_ATTRIBUTE_LOCAL);
    EXPECT_EQ(keptPrinters(), (std::vector<std::wstring>{L"Win32_Printer.DeviceID=\"Local Desk\"",
                                                          L"Win32_Printer.DeviceID=\"Local Hall\""}));
}

TEST_F(WmiPrinterProperties, WithoutANewValueThePropertyIsReadAndNothingWritten) {
    spooler::changePrinterAttributes(L"Local Hall", PRINTER_ATTRIBUTE_ENABLE_BIDI, 0);
    EXPECT_EQ(request(L"Local Hall", L"EnableBIDI"), L"-1");
    EXPECT_EQ(request(L"Local Desk", L"EnableBIDI"), L"0");
    expectLine("Found printer:Local Hall", 2, kNormal);
    expectLine("Found value:-1 for property:EnableBIDI of Printer:Local Hall", 2, kNormal);
    expectLine("Found value:0 for property:EnableBIDI of Printer:Local Desk", 2, kNormal);
    EXPECT_EQ(calls("IWbemClassObject::Put"), 0u);
    EXPECT_EQ(calls("IWbemServices::PutInstance"), 0u);
    EXPECT_EQ(attributesOf(L"Local Desk"), PRINTER_ATTRIBUTE_LOCAL);
}

TEST_F(WmiPrinterProperties, APropertyTheObjectLacksFailsTheReadAndTheWriteIsStillTried) {
    EXPECT_EQ(request(L"Local Desk", L"NoSuchProperty", L"-1"), L"");
    expectLine("Found printer:Local Desk", 2, kNormal);
    expectLine("failed to get printer property for:NoSuchProperty" + kNoError, 4, kError);
    EXPECT_EQ(calls("IWbemClassObject::Put"), 1u);
    expectLine("failed to set printer property for:NoSuchProperty" + kNoError, 4, kError);
    EXPECT_EQ(calls("IWbemServices::PutInstance"), 0u);
}

TEST_F(WmiPrinterProperties, TheTextMinusOneIsLoggedAndTheBooleanTrueStored) {
    EXPECT_EQ(request(L"Local Desk", L"EnableBIDI", L"-1"), L"0") << "the value before the change";
    expectLine("Set value:-1 for property:EnableBIDI of Printer:Local Desk", 2, kNormal);
    EXPECT_EQ(attributesOf(L"Local Desk"), PRINTER_ATTRIBUTE_LOCAL | PRINTER_ATTRIBUTE_ENABLE_BIDI);
    EXPECT_EQ(attributesOf(L"Local Hall"), PRINTER_ATTRIBUTE_LOCAL);
    EXPECT_EQ(request(L"Local Desk", L"EnableBIDI"), L"-1");
}

TEST_F(WmiPrinterProperties, EveryWriteStoresTrueWhateverTheText) {
    EXPECT_EQ(request(L"Local Hall", L"EnableBIDI", L"0"), L"0");
    expectLine("Set value:0 for property:EnableBIDI of Printer:Local Hall", 2, kNormal);
    EXPECT_EQ(attributesOf(L"Local Hall"), PRINTER_ATTRIBUTE_LOCAL | PRINTER_ATTRIBUTE_ENABLE_BIDI);
}

TEST_F(WmiPrinterProperties, AFailedPutCommitsNothingAndTheReadValueStillComesBack) {
    fail("IWbemClassObject::Put", WBEM_E_FAILED);
    EXPECT_EQ(request(L"Local Desk", L"EnableBIDI", L"-1"), L"0");
    expectLine("failed to set printer property for:EnableBIDI" + kNoError, 4, kError);
    EXPECT_EQ(calls("IWbemServices::PutInstance"), 0u);
    EXPECT_FALSE(logged("Set value:-1 for property:EnableBIDI of Printer:Local Desk"));
    EXPECT_EQ(attributesOf(L"Local Desk"), PRINTER_ATTRIBUTE_LOCAL);
}

// ---- What stays behind ----

TEST_F(WmiPrinterProperties, OnlyTheRowsWalkedStayReferencedAndTheWalkStopsAtTheMatch) {
    EXPECT_EQ(request(L"Local Desk", L"EnableBIDI", L"-1"), L"0");
    EXPECT_EQ(calls("IEnumWbemClassObject::Next"), 1u);
    EXPECT_EQ(keptPrinters(), (std::vector<std::wstring>{L"Win32_Printer.DeviceID=\"Local Desk\""}))
        << "the match is not released: its release stands behind an inverted test";
    EXPECT_EQ(request(L"Local Hall", L"EnableBIDI", L"-1"), L"0");
    EXPECT_EQ(keptPrinters().size(), 3u) << "one reference per row walked, call after call";
}

TEST_F(WmiPrinterProperties, TheFirstCallSetsTheProcessSecurityAndLaterOnesFindItSet) {
    EXPECT_EQ(request(L"Local Desk", L"EnableBIDI"), L"0");
    EXPECT_FALSE(logged("Failed to initialize security. Error code 2147549465" + kNoError));
    simhost::ole32::SecurityLevels security = simhost::ole32::processSecurity();
    EXPECT_EQ(security.authenticationLevel, RPC_C_AUTHN_LEVEL_DEFAULT);
    EXPECT_EQ(security.impersonationLevel, RPC_C_IMP_LEVEL_IMPERSONATE);
    EXPECT_EQ(security.capabilities, EOAC_NONE);
    simhost::ole32::SecurityLevels blanket = simhost::ole32::lastProxyBlanket();
    EXPECT_EQ(blanket.authenticationService, RPC_C_AUTHN_WINNT);
    EXPECT_EQ(blanket.authorizationService, RPC_C_AUTHZ_NONE);
    EXPECT_EQ(blanket.authenticationLevel, RPC_C_AUTHN_LEVEL_CALL);
    EXPECT_EQ(blanket.impersonationLevel, RPC_C_IMP_LEVEL_IMPERSONATE);
    expectLine("Connected to ROOT\\CIMV2 WMI namespace", 2, kNormal);

    EXPECT_EQ(request(L"Local Hall", L"EnableBIDI", L"-1"), L"0");
    expectLine("Failed to initialize security. Error code 2147549465" + kNoError, 4, kError);
    EXPECT_EQ(attributesOf(L"Local Hall"), PRINTER_ATTRIBUTE_LOCAL | PRINTER_ATTRIBUTE_ENABLE_BIDI)
        << "the failure is expected and the call goes on";
}

TEST_F(WmiPrinterProperties, AnAllocationFailureWhileConnectingRaisesAComErrorAndLeavesComInitialised) {
    fail("SysAllocString", ERROR_NOT_ENOUGH_MEMORY);
    try {
        request(L"Local Desk", L"EnableBIDI", L"-1");
        ADD_FAILURE() << "no _com_error";
    } catch (const _com_error& error) {
        EXPECT_EQ(error.Error(), E_OUTOFMEMORY);
    }
    EXPECT_EQ(simhost::ole32::initializationCount(), 1);
    ASSERT_EQ(liveObjects().size(), 1u);
    EXPECT_EQ(liveObjects()[0].interfaceName, "IWbemLocator") << "the locator is not given back either";
    CoUninitialize();
}

TEST_F(WmiPrinterProperties, AnAllocationFailureForTheQueryRaisesAfterTheConnection) {
    fail("SysAllocString", ERROR_NOT_ENOUGH_MEMORY, 1, 1);
    EXPECT_THROW(request(L"Local Desk", L"EnableBIDI"), _com_error);
    expectLine("Connected to ROOT\\CIMV2 WMI namespace", 2, kNormal);
    EXPECT_FALSE(logged("Query for Win32_Printer failed." + kNoError));
    EXPECT_EQ(liveObjects().size(), 2u) << "the locator and the services";
    CoUninitialize();
}

// ---- Every failure line ----

TEST_F(WmiPrinterProperties, WithoutComNothingElseIsTried) {
    fail("CoInitializeEx", E_OUTOFMEMORY);
    EXPECT_EQ(request(L"Local Desk", L"EnableBIDI", L"-1"), L"");
    expectLine("Failed to initialize COM library" + kNoError, 4, kError);
    EXPECT_EQ(calls("CoInitializeSecurity"), 0u);
    EXPECT_EQ(calls("CoUninitialize"), 0u);
}

TEST_F(WmiPrinterProperties, WithoutALocatorComIsUndone) {
    fail("CoCreateInstance", REGDB_E_CLASSNOTREG);
    EXPECT_EQ(request(L"Local Desk", L"EnableBIDI", L"-1"), L"");
    expectLine("Failed to create IWbemLocator object." + kNoError, 4, kError);
    EXPECT_EQ(calls("CoUninitialize"), 1u);
    EXPECT_TRUE(liveObjects().empty());
}

TEST_F(WmiPrinterProperties, WithoutAConnectionTheLocatorIsReleased) {
    fail("IWbemLocator::ConnectServer", WBEM_E_ACCESS_DENIED);
    EXPECT_EQ(request(L"Local Desk", L"EnableBIDI", L"-1"), L"");
    expectLine("Could not connect" + kNoError, 4, kError);
    EXPECT_FALSE(logged("Connected to ROOT\\CIMV2 WMI namespace"));
    EXPECT_TRUE(liveObjects().empty());
}

TEST_F(WmiPrinterProperties, WithoutABlanketTheServicesAndLocatorAreReleased) {
    fail("CoSetProxyBlanket", E_INVALIDARG);
    EXPECT_EQ(request(L"Local Desk", L"EnableBIDI", L"-1"), L"");
    expectLine("Could not set proxy blanket" + kNoError, 4, kError);
    EXPECT_EQ(calls("IWbemServices::ExecQuery"), 0u);
    EXPECT_TRUE(liveObjects().empty());
}

TEST_F(WmiPrinterProperties, AFailedQueryReleasesTheServicesAndLocator) {
    fail("IWbemServices::ExecQuery", WBEM_E_FAILED);
    EXPECT_EQ(request(L"Local Desk", L"EnableBIDI", L"-1"), L"");
    expectLine("Query for Win32_Printer failed." + kNoError, 4, kError);
    EXPECT_TRUE(liveObjects().empty());
    EXPECT_EQ(attributesOf(L"Local Desk"), PRINTER_ATTRIBUTE_LOCAL);
}

TEST_F(WmiPrinterProperties, ARowWhoseNameCannotBeReadIsPassedBy) {
    fail("IWbemClassObject::Get", WBEM_E_FAILED);
    EXPECT_EQ(request(L"Local Hall", L"EnableBIDI"), L"0");
    expectLine("failed to get printer name" + kNoError, 4, kError);
    expectLine("Found printer:Local Hall", 2, kNormal);
}

TEST_F(WmiPrinterProperties, AValueThatIsNoTextIsLoggedAndTheWriteStillHappens) {
    EXPECT_EQ(request(L"Local Desk", L"Comment", L"-1"), L"") << "a printer without comment has a null one";
    expectLine("Requested printer property:Comment could not be converted to a string." + kNoError, 4, kError);
    expectLine("failed to set printer property for:Comment" + kNoError, 4, kError);  // true is no comment
    fail("VariantChangeType", DISP_E_TYPEMISMATCH);
    EXPECT_EQ(request(L"Local Hall", L"EnableBIDI", L"-1"), L"");
    expectLine("Requested printer property:EnableBIDI could not be converted to a string." + kNoError, 4, kError);
    expectLine("Set value:-1 for property:EnableBIDI of Printer:Local Hall", 2, kNormal);
}

TEST_F(WmiPrinterProperties, AFailedCommitIsLoggedWithItsCode) {
    fail("IWbemServices::PutInstance", WBEM_E_ACCESS_DENIED);
    EXPECT_EQ(request(L"Local Desk", L"EnableBIDI", L"-1"), L"0");
    expectLine("failed to commit printer object with:2147749891" + kNoError, 4, kError);
    EXPECT_FALSE(logged("Set value:-1 for property:EnableBIDI of Printer:Local Desk"));
    EXPECT_EQ(attributesOf(L"Local Desk"), PRINTER_ATTRIBUTE_LOCAL);
}

}  // namespace
