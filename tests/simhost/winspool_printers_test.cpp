// Printers of the simulated spooler: adding them with the refusals a real
// spooler gives, their records through GetPrinterW's size protocol,
// SetPrinterW's commands and levels, deletion that waits for the last handle
// and the queue, and the handles that reach them.
#include "simhost/advapi32/security.h"
#include "winspool_test_helpers.h"

#include <cstring>

using namespace winspool_test;
using simhost::winspool::findPrinter;
using simhost::winspool::PrintJob;

namespace {

PrinterRequest requestFor(const std::wstring& name, const std::wstring& port = L"VexorPort_1") {
    PrinterRequest request;
    request.name = name;
    request.port = port;
    return request;
}

class SpoolerPrinters : public Spooler {
protected:
    void SetUp() override {
        Spooler::SetUp();
        installDriver();
        addRawPort(L"VexorPort_1");
    }
};

DWORD addFails(PrinterRequest request) {
    SetLastError(0);
    HANDLE handle = addPrinter(std::move(request));
    EXPECT_EQ(handle, nullptr);
    return GetLastError();
}

}  // namespace

// ---- AddPrinterW ----

TEST_F(SpoolerPrinters, AddPrinterAnswersAnOpenHandleWithAllAccessAndKeepsTheLastError) {
    SetLastError(1234);
    HANDLE printer = addPrinter(requestFor(L"Local Printer"));
    ASSERT_NE(printer, nullptr);
    EXPECT_NE(printer, INVALID_HANDLE_VALUE);
    EXPECT_EQ(GetLastError(), 1234u);
    EXPECT_EQ(simhost::winspool::openSpoolerHandleCount(), 1u);
    auto stored = findPrinter(L"local printer");
    ASSERT_TRUE(stored);
    EXPECT_EQ(stored->name, L"Local Printer");
    EXPECT_EQ(stored->attributes, PRINTER_ATTRIBUTE_NETWORK | PRINTER_ATTRIBUTE_RAW_ONLY);
    EXPECT_EQ(stored->openHandles, 1u);
    // PRINTER_ALL_ACCESS lets the handle administer and delete the printer.
    EXPECT_TRUE(SetPrinterW(printer, 0, nullptr, PRINTER_CONTROL_PURGE));
    EXPECT_TRUE(DeletePrinter(printer));
    EXPECT_TRUE(ClosePrinter(printer));
    EXPECT_FALSE(findPrinter(L"Local Printer"));
}

TEST_F(SpoolerPrinters, AddPrinterRefusesWhatTheSpoolerRefuses) {
    PrinterRequest unknownDriver = requestFor(L"P1");
    unknownDriver.driver = L"No Such Driver";
    EXPECT_EQ(addFails(unknownDriver), static_cast<DWORD>(ERROR_UNKNOWN_PRINTER_DRIVER));
    EXPECT_EQ(addFails(requestFor(L"P1", L"NoSuchPort")), static_cast<DWORD>(ERROR_UNKNOWN_PORT));
    EXPECT_EQ(addFails(requestFor(L"")), static_cast<DWORD>(ERROR_INVALID_PRINTER_NAME));
    EXPECT_EQ(addFails(requestFor(L"a,b")), static_cast<DWORD>(ERROR_INVALID_PRINTER_NAME));
    EXPECT_EQ(addFails(requestFor(L"a\\b")), static_cast<DWORD>(ERROR_INVALID_PRINTER_NAME));
    EXPECT_EQ(addFails(requestFor(std::wstring(221, L'x'))), static_cast<DWORD>(ERROR_INVALID_PRINTER_NAME));
    PrinterRequest processor = requestFor(L"P1");
    processor.processor = L"nosuchprint";
    EXPECT_EQ(addFails(processor), static_cast<DWORD>(ERROR_UNKNOWN_PRINTPROCESSOR));
    PrinterRequest datatype = requestFor(L"P1");
    datatype.datatype = L"PDF";
    EXPECT_EQ(addFails(datatype), static_cast<DWORD>(ERROR_INVALID_DATATYPE));
    EXPECT_TRUE(simhost::winspool::printers().empty());

    HANDLE first = addPrinter(requestFor(std::wstring(220, L'x')));
    ASSERT_NE(first, nullptr);
    EXPECT_EQ(addFails(requestFor(std::wstring(220, L'X'))), static_cast<DWORD>(ERROR_PRINTER_ALREADY_EXISTS));
    ClosePrinter(first);
}

TEST_F(SpoolerPrinters, AddPrinterChecksLevelServerAndRequiredMembers) {
    PRINTER_INFO_2W info = requestFor(L"P1").info();
    EXPECT_EQ(AddPrinterW(nullptr, 1, reinterpret_cast<LPBYTE>(&info)), nullptr);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_LEVEL));
    std::wstring server = L"\\\\elsewhere";
    EXPECT_EQ(AddPrinterW(server.data(), 2, reinterpret_cast<LPBYTE>(&info)), nullptr);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_NAME));
    info.pPrintProcessor = nullptr;
    EXPECT_EQ(AddPrinterW(nullptr, 2, reinterpret_cast<LPBYTE>(&info)), nullptr);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_PARAMETER));
}

TEST_F(SpoolerPrinters, ADriverOfAnotherEnvironmentOnlyIsUnknownToAddPrinter) {
    installDriver(L"Old Driver", L"Windows NT x86");
    PrinterRequest request = requestFor(L"P1");
    request.driver = L"Old Driver";
    EXPECT_EQ(addFails(request), static_cast<DWORD>(ERROR_UNKNOWN_PRINTER_DRIVER));
}

TEST_F(SpoolerPrinters, ANullDescriptorGivesTheSpoolersDefaultAndAGivenOneIsKept) {
    HANDLE defaulted = addPrinter(requestFor(L"Defaulted"));
    std::vector<BYTE> session = simhost::sddlToDescriptor(L"D:(A;;LCSWSDRCWDWO;;;SY)(A;;SWRC;;;S-1-5-5-0-1234)");
    PrinterRequest request = requestFor(L"Secured");
    request.descriptor = session.data();
    HANDLE secured = addPrinter(request);
    ASSERT_NE(defaulted, nullptr);
    ASSERT_NE(secured, nullptr);
    EXPECT_EQ(simhost::winspool::sddlOfDescriptor(findPrinter(L"Defaulted")->securityDescriptor),
              std::wstring(simhost::winspool::kDefaultPrinterSddl));
    EXPECT_EQ(simhost::winspool::sddlOfDescriptor(findPrinter(L"Secured")->securityDescriptor),
              L"D:(A;;LCSWSDRCWDWO;;;SY)(A;;SWRC;;;S-1-5-5-0-1234)");
    ClosePrinter(defaulted);
    ClosePrinter(secured);
}

TEST_F(SpoolerPrinters, ANullDeviceModeGivesTheDriversNamedAfterThePrinter) {
    HANDLE printer = addPrinter(requestFor(L"Named"));
    DEVMODEW mode = simhost::winspool::devModeRecord(findPrinter(L"Named")->devMode);
    EXPECT_STREQ(mode.dmDeviceName, L"Named");
    EXPECT_EQ(mode.dmSize, sizeof(DEVMODEW));
    EXPECT_EQ(mode.dmPaperSize, DMPAPER_LETTER);
    ClosePrinter(printer);
}

// ---- GetPrinterW ----

TEST_F(SpoolerPrinters, GetPrinterLevel2PutsTheRecordAndEverythingItPointsToInOneBlock) {
    PrinterRequest request = requestFor(L"Block Printer");
    request.comment = L"a comment";
    request.location = L"Vexor >> here";
    HANDLE printer = addPrinter(request);
    simhost::winspool::addJob(L"Block Printer", PrintJob{0, L"user", L"doc", {1, 2, 3}});

    DWORD needed = 0;
    SetLastError(0);
    EXPECT_FALSE(GetPrinterW(printer, 2, nullptr, 0, &needed));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INSUFFICIENT_BUFFER));
    EXPECT_GT(needed, sizeof(PRINTER_INFO_2W));
    std::vector<BYTE> shortBlock(needed - 1);
    EXPECT_FALSE(GetPrinterW(printer, 2, shortBlock.data(), needed - 1, &needed));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INSUFFICIENT_BUFFER));

    std::vector<BYTE> block = getPrinter(printer, 2);
    const PRINTER_INFO_2W& info = *recordsOf<PRINTER_INFO_2W>(block);
    EXPECT_EQ(info.pServerName, nullptr);
    for (const void* pointer : {static_cast<const void*>(info.pPrinterName), static_cast<const void*>(info.pPortName),
                                static_cast<const void*>(info.pDriverName), static_cast<const void*>(info.pComment),
                                static_cast<const void*>(info.pLocation), static_cast<const void*>(info.pDevMode),
                                static_cast<const void*>(info.pSecurityDescriptor)})
        EXPECT_TRUE(inside(pointer, block));
    EXPECT_STREQ(info.pPrinterName, L"Block Printer");
    EXPECT_STREQ(info.pPortName, L"VexorPort_1");
    EXPECT_STREQ(info.pDriverName, kDriver);
    EXPECT_STREQ(info.pComment, L"a comment");
    EXPECT_STREQ(info.pLocation, L"Vexor >> here");
    EXPECT_STREQ(info.pPrintProcessor, L"winprint");
    EXPECT_STREQ(info.pDatatype, L"RAW");
    EXPECT_STREQ(info.pDevMode->dmDeviceName, L"Block Printer");
    EXPECT_EQ(info.cJobs, 1u);
    EXPECT_EQ(info.Attributes, PRINTER_ATTRIBUTE_NETWORK | PRINTER_ATTRIBUTE_RAW_ONLY);
    EXPECT_TRUE(IsValidSecurityDescriptor(info.pSecurityDescriptor));
    ClosePrinter(printer);
}

TEST_F(SpoolerPrinters, GetPrinterShowsTheDescriptorOnlyToAHandleWithReadControl) {
    addPrinterOn(L"Shared Printer", L"VexorPort_1");
    HANDLE use = openPrinter(L"Shared Printer", PRINTER_ACCESS_USE);
    HANDLE all = openPrinter(L"Shared Printer", PRINTER_ALL_ACCESS);

    std::vector<BYTE> plain = getPrinter(use, 2);
    EXPECT_EQ(recordsOf<PRINTER_INFO_2W>(plain)->pSecurityDescriptor, nullptr);
    DWORD needed = 0;
    EXPECT_FALSE(GetPrinterW(use, 3, nullptr, 0, &needed));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_ACCESS_DENIED));

    std::vector<BYTE> secured = getPrinter(all, 3);
    const PRINTER_INFO_3& info3 = *recordsOf<PRINTER_INFO_3>(secured);
    ASSERT_TRUE(inside(info3.pSecurityDescriptor, secured));
    EXPECT_EQ(simhost::descriptorToSddl(static_cast<const BYTE*>(info3.pSecurityDescriptor),
                                        OWNER_SECURITY_INFORMATION | GROUP_SECURITY_INFORMATION |
                                            DACL_SECURITY_INFORMATION),
              std::wstring(simhost::winspool::kDefaultPrinterSddl));
    ClosePrinter(use);
    ClosePrinter(all);
}

TEST_F(SpoolerPrinters, GetPrinterLevel6AndUnservedLevels) {
    addPrinterOn(L"P6", L"VexorPort_1");
    HANDLE printer = openPrinter(L"P6", PRINTER_ALL_ACCESS);
    PRINTER_INFO_6 status{0xFFFF};
    EXPECT_TRUE(SetPrinterW(printer, 0, nullptr, PRINTER_CONTROL_PAUSE));
    DWORD needed = 0;
    EXPECT_TRUE(GetPrinterW(printer, 6, reinterpret_cast<LPBYTE>(&status), sizeof status, &needed));
    EXPECT_EQ(needed, sizeof status);
    EXPECT_EQ(status.dwStatus, PRINTER_STATUS_PAUSED);
    EXPECT_FALSE(GetPrinterW(printer, 5, nullptr, 0, &needed));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_LEVEL));
    EXPECT_FALSE(GetPrinterW(printer, 2, nullptr, 10, &needed));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_USER_BUFFER));
    EXPECT_FALSE(GetPrinterW(printer, 2, nullptr, 0, nullptr));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(RPC_X_NULL_REF_POINTER));
    ClosePrinter(printer);
}

// ---- SetPrinterW ----

TEST_F(SpoolerPrinters, SetPrinterLevel2KeepsSecurityAndDeviceModeWhenTheirPointersAreNull) {
    std::vector<BYTE> session = simhost::sddlToDescriptor(L"D:(A;;SWRC;;;S-1-5-5-0-99)");
    PrinterRequest request = requestFor(L"Kept");
    request.descriptor = session.data();
    HANDLE printer = addPrinter(request);
    std::vector<BYTE> before = findPrinter(L"Kept")->devMode;

    request.descriptor = nullptr;
    request.comment = L"changed";
    request.attributes = 2;
    PRINTER_INFO_2W info = request.info();
    info.Status = PRINTER_STATUS_ERROR;  // ignored, as documented
    ASSERT_TRUE(SetPrinterW(printer, 2, reinterpret_cast<LPBYTE>(&info), 0));

    auto stored = findPrinter(L"Kept");
    EXPECT_EQ(stored->comment, L"changed");
    EXPECT_EQ(stored->attributes, 2u);
    EXPECT_EQ(stored->status, 0u);
    EXPECT_EQ(simhost::winspool::sddlOfDescriptor(stored->securityDescriptor), L"D:(A;;SWRC;;;S-1-5-5-0-99)");
    EXPECT_EQ(stored->devMode, before);
    ClosePrinter(printer);
}

TEST_F(SpoolerPrinters, SetPrinterLevel2StoresAChangedDeviceModeWithItsPrivateBytes) {
    HANDLE printer = addPrinter(requestFor(L"Paper"));
    std::vector<BYTE> block = getPrinter(printer, 2);
    PRINTER_INFO_2W info = *recordsOf<PRINTER_INFO_2W>(block);
    std::vector<BYTE> mode = simhost::winspool::devModeBlock(*info.pDevMode, {9, 8, 7});
    reinterpret_cast<DEVMODEW*>(mode.data())->dmPaperSize = DMPAPER_A4;
    info.pDevMode = reinterpret_cast<DEVMODEW*>(mode.data());
    ASSERT_TRUE(SetPrinterW(printer, 2, reinterpret_cast<LPBYTE>(&info), 0));
    auto stored = findPrinter(L"Paper");
    EXPECT_EQ(simhost::winspool::devModeRecord(stored->devMode).dmPaperSize, DMPAPER_A4);
    EXPECT_EQ(simhost::winspool::devModePrivateBytes(stored->devMode), (std::vector<BYTE>{9, 8, 7}));
    ClosePrinter(printer);
}

TEST_F(SpoolerPrinters, SetPrinterLevel3ReplacesThePartsItHoldsAndNeedsTheRightsForThem) {
    addPrinterOn(L"Guarded", L"VexorPort_1");
    std::vector<BYTE> dacl = simhost::sddlToDescriptor(L"D:(A;;LCSWSDRCWDWO;;;SY)");
    PRINTER_INFO_3 info{dacl.data()};
    HANDLE administer = openPrinter(L"Guarded", PRINTER_ACCESS_ADMINISTER);
    EXPECT_FALSE(SetPrinterW(administer, 3, reinterpret_cast<LPBYTE>(&info), 0));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_ACCESS_DENIED));
    HANDLE dac = openPrinter(L"Guarded", WRITE_DAC);
    ASSERT_TRUE(SetPrinterW(dac, 3, reinterpret_cast<LPBYTE>(&info), 0));
    EXPECT_EQ(simhost::winspool::sddlOfDescriptor(findPrinter(L"Guarded")->securityDescriptor),
              L"O:SYG:SYD:(A;;LCSWSDRCWDWO;;;SY)");
    ClosePrinter(administer);
    ClosePrinter(dac);
}

TEST_F(SpoolerPrinters, SetPrinterLevel0CommandsAndTheirRefusals) {
    addPrinterOn(L"Commanded", L"VexorPort_1");
    HANDLE printer = openPrinter(L"Commanded", PRINTER_ALL_ACCESS);
    DWORD status = PRINTER_STATUS_OFFLINE;
    EXPECT_TRUE(SetPrinterW(printer, 0, reinterpret_cast<LPBYTE>(&status), PRINTER_CONTROL_SET_STATUS));
    EXPECT_EQ(findPrinter(L"Commanded")->status, PRINTER_STATUS_OFFLINE);
    status = PRINTER_STATUS_PAUSED;
    EXPECT_FALSE(SetPrinterW(printer, 0, reinterpret_cast<LPBYTE>(&status), PRINTER_CONTROL_SET_STATUS));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_PARAMETER));
    EXPECT_TRUE(SetPrinterW(printer, 0, nullptr, PRINTER_CONTROL_PAUSE));
    EXPECT_EQ(findPrinter(L"Commanded")->status, PRINTER_STATUS_OFFLINE | PRINTER_STATUS_PAUSED);
    EXPECT_TRUE(SetPrinterW(printer, 0, nullptr, PRINTER_CONTROL_RESUME));
    EXPECT_EQ(findPrinter(L"Commanded")->status, PRINTER_STATUS_OFFLINE);
    EXPECT_FALSE(SetPrinterW(printer, 0, nullptr, 9));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_PRINTER_COMMAND));
    EXPECT_FALSE(SetPrinterW(printer, 2, nullptr, PRINTER_CONTROL_PURGE));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_PARAMETER));
    ClosePrinter(printer);

    HANDLE user = openPrinter(L"Commanded", PRINTER_ACCESS_USE);
    EXPECT_FALSE(SetPrinterW(user, 0, nullptr, PRINTER_CONTROL_PURGE));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_ACCESS_DENIED));
    ClosePrinter(user);
}

TEST_F(SpoolerPrinters, PurgeDropsEveryJob) {
    addPrinterOn(L"Queue", L"VexorPort_1", {PrintJob{0, L"a", L"one", {1}}, PrintJob{0, L"b", L"two", {2}}});
    HANDLE printer = openPrinter(L"Queue", PRINTER_ALL_ACCESS);
    EXPECT_EQ(recordsOf<PRINTER_INFO_2W>(getPrinter(printer, 2))->cJobs, 2u);
    EXPECT_TRUE(SetPrinterW(printer, 0, nullptr, PRINTER_CONTROL_PURGE));
    EXPECT_EQ(recordsOf<PRINTER_INFO_2W>(getPrinter(printer, 2))->cJobs, 0u);
    ClosePrinter(printer);
}

TEST_F(SpoolerPrinters, SetPrinterLevel6SetsTheStatus) {
    addPrinterOn(L"Status", L"VexorPort_1");
    HANDLE printer = openPrinter(L"Status", PRINTER_ALL_ACCESS);
    PRINTER_INFO_6 info{PRINTER_STATUS_ERROR};
    EXPECT_TRUE(SetPrinterW(printer, 6, reinterpret_cast<LPBYTE>(&info), 0));
    EXPECT_EQ(findPrinter(L"Status")->status, PRINTER_STATUS_ERROR);
    ClosePrinter(printer);
}

// ---- DeletePrinter ----

TEST_F(SpoolerPrinters, ADeletedPrinterWaitsForItsLastHandle) {
    addPrinterOn(L"Going", L"VexorPort_1");
    HANDLE first = openPrinter(L"Going", PRINTER_ALL_ACCESS);
    HANDLE second = openPrinter(L"Going", PRINTER_ACCESS_USE);
    ASSERT_TRUE(DeletePrinter(first));
    EXPECT_TRUE(findPrinter(L"Going")->pendingDeletion);
    PRINTER_INFO_6 status{};
    DWORD needed = 0;
    EXPECT_TRUE(GetPrinterW(second, 6, reinterpret_cast<LPBYTE>(&status), sizeof status, &needed));
    EXPECT_EQ(status.dwStatus, PRINTER_STATUS_PENDING_DELETION);

    // Hidden from opens, though its handles still work.
    std::wstring name = L"Going";
    HANDLE another = nullptr;
    EXPECT_FALSE(OpenPrinterW(name.data(), &another, nullptr));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_PRINTER_NAME));
    EXPECT_EQ(another, nullptr);

    EXPECT_TRUE(ClosePrinter(first));
    EXPECT_TRUE(findPrinter(L"Going"));
    EXPECT_TRUE(ClosePrinter(second));
    EXPECT_FALSE(findPrinter(L"Going"));
}

TEST_F(SpoolerPrinters, ADeletedPrinterWithJobsStaysUntilItsQueueIsEmpty) {
    addPrinterOn(L"Busy", L"VexorPort_1", {PrintJob{0, L"a", L"one", {1}}});
    HANDLE printer = openPrinter(L"Busy", PRINTER_ALL_ACCESS);
    ASSERT_TRUE(DeletePrinter(printer));
    std::wstring name = L"Busy";
    HANDLE other = INVALID_HANDLE_VALUE;
    EXPECT_FALSE(OpenPrinterW(name.data(), &other, nullptr));  // not reachable by name any more
    EXPECT_TRUE(ClosePrinter(printer));
    ASSERT_TRUE(findPrinter(L"Busy"));  // the job still holds it
    EXPECT_TRUE(findPrinter(L"Busy")->pendingDeletion);
}

TEST_F(SpoolerPrinters, PurgeThenDeleteThenCloseRemovesThePrinter) {
    addPrinterOn(L"Reaped", L"VexorPort_1", {PrintJob{0, L"a", L"one", {1}}});
    HANDLE printer = openPrinter(L"Reaped", PRINTER_ALL_ACCESS);
    EXPECT_TRUE(DeletePrinter(printer));
    EXPECT_TRUE(SetPrinterW(printer, 0, nullptr, PRINTER_CONTROL_PURGE));
    EXPECT_TRUE(findPrinter(L"Reaped"));
    EXPECT_TRUE(ClosePrinter(printer));
    EXPECT_FALSE(findPrinter(L"Reaped"));
}

TEST_F(SpoolerPrinters, DeleteNeedsDeleteAccessAndAPausedPrinterWithJobsRefuses) {
    addPrinterOn(L"Held", L"VexorPort_1", {PrintJob{0, L"a", L"one", {1}}});
    HANDLE weak = openPrinter(L"Held", SERVER_ACCESS_ADMINISTER);
    EXPECT_FALSE(DeletePrinter(weak));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_ACCESS_DENIED));
    HANDLE strong = openPrinter(L"Held", PRINTER_ALL_ACCESS);
    EXPECT_TRUE(SetPrinterW(strong, 0, nullptr, PRINTER_CONTROL_PAUSE));
    EXPECT_FALSE(DeletePrinter(strong));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_ACCESS_DENIED));
    EXPECT_FALSE(findPrinter(L"Held")->pendingDeletion);
    ClosePrinter(weak);
    ClosePrinter(strong);
}

TEST_F(SpoolerPrinters, AddingANamePendingDeletionRevivesThePrinterWithTheNewSettings) {
    addPrinterOn(L"Again", L"VexorPort_1", {PrintJob{0, L"a", L"one", {1}}});
    HANDLE old = openPrinter(L"Again", PRINTER_ALL_ACCESS);
    ASSERT_TRUE(DeletePrinter(old));
    ClosePrinter(old);
    PrinterRequest request = requestFor(L"Again");
    request.comment = L"second life";
    HANDLE revived = addPrinter(request);
    ASSERT_NE(revived, nullptr);
    auto stored = findPrinter(L"Again");
    EXPECT_FALSE(stored->pendingDeletion);
    EXPECT_EQ(stored->comment, L"second life");
    EXPECT_EQ(stored->jobs.size(), 1u);
    EXPECT_EQ(simhost::winspool::printers().size(), 1u);
    ClosePrinter(revived);
}

// ---- Handles ----

TEST_F(SpoolerPrinters, AClosedHandleIsRefusedEverywhere) {
    HANDLE printer = addPrinter(requestFor(L"Closed"));
    ASSERT_TRUE(ClosePrinter(printer));
    DWORD needed = 0;
    EXPECT_FALSE(ClosePrinter(printer));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_HANDLE));
    EXPECT_FALSE(GetPrinterW(printer, 2, nullptr, 0, &needed));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_HANDLE));
    EXPECT_FALSE(SetPrinterW(printer, 0, nullptr, PRINTER_CONTROL_PURGE));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_HANDLE));
    EXPECT_FALSE(DeletePrinter(printer));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_HANDLE));
    DWORD status = 0;
    EXPECT_FALSE(XcvDataW(printer, L"AddPort", nullptr, 0, nullptr, 0, &needed, &status));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_HANDLE));
}

TEST_F(SpoolerPrinters, XcvDataOnAPrinterHandleFailsTheCall) {
    HANDLE printer = addPrinter(requestFor(L"Not Xcv"));
    PORT_DATA_1 data{};
    data.dwVersion = 1;
    DWORD needed = 7, status = 0xBEEF;
    EXPECT_FALSE(XcvDataW(printer, L"AddPort", reinterpret_cast<PBYTE>(&data), sizeof data, nullptr, 0, &needed,
                          &status));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_PARAMETER));
    EXPECT_EQ(status, 0xBEEFu);
    ClosePrinter(printer);
}

TEST_F(SpoolerPrinters, OpenPrinterGrantsWhatWasAskedForAndUseWithoutDefaults) {
    addPrinterOn(L"Rights", L"VexorPort_1");
    std::wstring name = L"Rights";
    HANDLE plain = nullptr;
    ASSERT_TRUE(OpenPrinterW(name.data(), &plain, nullptr));
    EXPECT_FALSE(SetPrinterW(plain, 0, nullptr, PRINTER_CONTROL_PAUSE));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_ACCESS_DENIED));
    HANDLE generic = openPrinter(L"Rights", GENERIC_ALL);
    EXPECT_TRUE(SetPrinterW(generic, 0, nullptr, PRINTER_CONTROL_PAUSE));
    EXPECT_NE(plain, generic);
    ClosePrinter(plain);
    ClosePrinter(generic);
    EXPECT_EQ(simhost::winspool::openSpoolerHandleCount(), 0u);
}

TEST_F(SpoolerPrinters, OpenPrinter2RefusesClientChangeAndUnknownPrinters) {
    addPrinterOn(L"Two", L"VexorPort_1");
    HANDLE handle = INVALID_HANDLE_VALUE;
    PRINTER_OPTIONSW options{sizeof(PRINTER_OPTIONSW), PRINTER_OPTION_CLIENT_CHANGE};
    EXPECT_FALSE(OpenPrinter2W(L"Two", &handle, nullptr, &options));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_ACCESS_DENIED));
    options.dwFlags = PRINTER_OPTION_NO_CACHE;
    EXPECT_TRUE(OpenPrinter2W(L"Two", &handle, nullptr, &options));
    ClosePrinter(handle);
    handle = INVALID_HANDLE_VALUE;
    EXPECT_FALSE(OpenPrinter2W(L"Three", &handle, nullptr, nullptr));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_PRINTER_NAME));
    EXPECT_EQ(handle, INVALID_HANDLE_VALUE);
}

TEST_F(SpoolerPrinters, EachCallFailsWithAnInjectedError) {
    simhost::Host::get().faults().failCall("AddPrinterW", ERROR_UNKNOWN_PRINTER_DRIVER, 1);
    EXPECT_EQ(addFails(requestFor(L"Faulty")), static_cast<DWORD>(ERROR_UNKNOWN_PRINTER_DRIVER));
    HANDLE printer = addPrinter(requestFor(L"Faulty"));
    ASSERT_NE(printer, nullptr);
    simhost::Host::get().faults().failCall("SetPrinterW", ERROR_ACCESS_DENIED, 1);
    EXPECT_FALSE(SetPrinterW(printer, 0, nullptr, PRINTER_CONTROL_PURGE));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_ACCESS_DENIED));
    simhost::Host::get().faults().failCall("ClosePrinter", ERROR_INVALID_HANDLE, 1);
    EXPECT_FALSE(ClosePrinter(printer));
    EXPECT_TRUE(ClosePrinter(printer));
}

TEST_F(SpoolerPrinters, SetPrinterLevel2RenamesAndTheDefaultFollows) {
    HANDLE printer = addPrinter(requestFor(L"Old Name"));
    ASSERT_TRUE(SetDefaultPrinterW(L"Old Name"));
    PrinterRequest request = requestFor(L"New Name");
    PRINTER_INFO_2W info = request.info();
    ASSERT_TRUE(SetPrinterW(printer, 2, reinterpret_cast<LPBYTE>(&info), 0));
    EXPECT_FALSE(findPrinter(L"Old Name"));
    EXPECT_TRUE(findPrinter(L"new name"));
    EXPECT_EQ(simhost::winspool::defaultPrinterOf(L"S-1-5-18"), std::wstring(L"New Name"));
    addPrinterOn(L"Taken", L"VexorPort_1");
    PrinterRequest clash = requestFor(L"TAKEN");
    info = clash.info();
    EXPECT_FALSE(SetPrinterW(printer, 2, reinterpret_cast<LPBYTE>(&info), 0));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_PRINTER_ALREADY_EXISTS));
    ClosePrinter(printer);
}
