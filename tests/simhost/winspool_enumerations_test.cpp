// The spooler's enumerations: EnumPrintersW with its race between the size
// query and the fetch, EnumPortsW's levels and type bits, and
// EnumPrinterDriversW by environment.
#include "winspool_test_helpers.h"

#include <set>

using namespace winspool_test;

namespace {

constexpr DWORD kLocalAndConnections = PRINTER_ENUM_LOCAL | PRINTER_ENUM_CONNECTIONS;

class SpoolerEnumerations : public Spooler {
protected:
    void SetUp() override {
        Spooler::SetUp();
        installDriver();
        addRawPort(L"VexorPort_1");
    }
};

BOOL enumPrinters(DWORD level, LPBYTE buffer, DWORD size, LPDWORD needed, LPDWORD returned) {
    return EnumPrintersW(kLocalAndConnections, nullptr, level, buffer, size, needed, returned);
}

Listing printerListing() {
    return enumerate([](LPBYTE buffer, DWORD size, LPDWORD needed, LPDWORD returned) {
        return enumPrinters(2, buffer, size, needed, returned);
    });
}

Listing portListing(DWORD level) {
    return enumerate([&](LPBYTE buffer, DWORD size, LPDWORD needed, LPDWORD returned) {
        return EnumPortsW(nullptr, level, buffer, size, needed, returned);
    });
}

Listing driverListing(LPWSTR environment, DWORD level) {
    return enumerate([&](LPBYTE buffer, DWORD size, LPDWORD needed, LPDWORD returned) {
        return EnumPrinterDriversW(nullptr, environment, level, buffer, size, needed, returned);
    });
}

}  // namespace

// ---- EnumPrintersW ----

TEST_F(SpoolerEnumerations, NoPrintersIsASuccessOfNothing) {
    DWORD needed = 99, returned = 99;
    SetLastError(1234);
    EXPECT_TRUE(enumPrinters(2, nullptr, 0, &needed, &returned));
    EXPECT_EQ(needed, 0u);
    EXPECT_EQ(returned, 0u);
    EXPECT_EQ(GetLastError(), 1234u);
}

TEST_F(SpoolerEnumerations, EnumPrintersListsRecordsAndStringsInOneBlockWithoutDescriptors) {
    addPrinterOn(L"First Local", L"VexorPort_1");
    addPrinterOn(L"Second Local", L"VexorPort_1", {simhost::winspool::PrintJob{0, L"u", L"d", {1}}});
    Listing listing = printerListing();
    ASSERT_EQ(listing.count, 2u);
    const PRINTER_INFO_2W* records = recordsOf<PRINTER_INFO_2W>(listing.block);
    EXPECT_STREQ(records[0].pPrinterName, L"First Local");
    EXPECT_STREQ(records[1].pPrinterName, L"Second Local");
    EXPECT_EQ(records[1].cJobs, 1u);
    for (DWORD i = 0; i < listing.count; ++i) {
        EXPECT_TRUE(inside(records[i].pPrinterName, listing.block));
        EXPECT_TRUE(inside(records[i].pPortName, listing.block));
        EXPECT_TRUE(inside(records[i].pDevMode, listing.block));
        EXPECT_EQ(records[i].pSecurityDescriptor, nullptr);
        EXPECT_STREQ(records[i].pPortName, L"VexorPort_1");
    }
}

TEST_F(SpoolerEnumerations, APrinterAddedBetweenTheTwoCallsMakesTheFetchAskForMore) {
    addPrinterOn(L"Early", L"VexorPort_1");
    DWORD needed = 0, returned = 0;
    EXPECT_FALSE(enumPrinters(2, nullptr, 0, &needed, &returned));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INSUFFICIENT_BUFFER));
    const DWORD first = needed;
    std::vector<BYTE> block(first);

    addPrinterOn(L"Late", L"VexorPort_1");  // as another session would, between the calls

    SetLastError(0);
    EXPECT_FALSE(enumPrinters(2, block.data(), first, &needed, &returned));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INSUFFICIENT_BUFFER));
    EXPECT_GT(needed, first);
    EXPECT_EQ(returned, 0u);
    block.resize(needed);
    EXPECT_TRUE(enumPrinters(2, block.data(), needed, &needed, &returned));
    EXPECT_EQ(returned, 2u);
}

TEST_F(SpoolerEnumerations, PrintersPendingDeletionAreNotListed) {
    addPrinterOn(L"Staying", L"VexorPort_1");
    addPrinterOn(L"Leaving", L"VexorPort_1");
    HANDLE leaving = openPrinter(L"Leaving", PRINTER_ALL_ACCESS);
    ASSERT_TRUE(DeletePrinter(leaving));
    Listing listing = printerListing();
    ASSERT_EQ(listing.count, 1u);
    EXPECT_STREQ(recordsOf<PRINTER_INFO_2W>(listing.block)[0].pPrinterName, L"Staying");
    ClosePrinter(leaving);
}

TEST_F(SpoolerEnumerations, EnumPrintersLevelsFlagsAndArguments) {
    addPrinterOn(L"Only", L"VexorPort_1");
    Listing level4 = enumerate([](LPBYTE buffer, DWORD size, LPDWORD needed, LPDWORD returned) {
        return enumPrinters(4, buffer, size, needed, returned);
    });
    ASSERT_EQ(level4.count, 1u);
    EXPECT_STREQ(recordsOf<PRINTER_INFO_4W>(level4.block)->pPrinterName, L"Only");
    DWORD needed = 0, returned = 0;
    EXPECT_TRUE(EnumPrintersW(PRINTER_ENUM_CONNECTIONS, nullptr, 2, nullptr, 0, &needed, &returned));
    EXPECT_EQ(returned, 0u);
    EXPECT_FALSE(EnumPrintersW(kLocalAndConnections, nullptr, 3, nullptr, 0, &needed, &returned));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_LEVEL));
    EXPECT_FALSE(EnumPrintersW(kLocalAndConnections, nullptr, 2, nullptr, 0, &needed, nullptr));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(RPC_X_NULL_REF_POINTER));
    simhost::Host::get().faults().failCall("EnumPrintersW", ERROR_ACCESS_DENIED, 1);
    EXPECT_FALSE(enumPrinters(2, nullptr, 0, &needed, &returned));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_ACCESS_DENIED));
}

// ---- EnumPortsW ----

TEST_F(SpoolerEnumerations, TcpPortsReportTheirMonitorAndTheNetworkBitLocalPortsTheirs) {
    Listing listing = portListing(2);
    const PORT_INFO_2W* ports = recordsOf<PORT_INFO_2W>(listing.block);
    std::set<std::wstring> names;
    bool sawTcp = false;
    for (DWORD i = 0; i < listing.count; ++i) {
        names.insert(ports[i].pPortName);
        EXPECT_TRUE(inside(ports[i].pMonitorName, listing.block));
        EXPECT_EQ(ports[i].Reserved, 0u);
        if (std::wstring(ports[i].pPortName) == L"VexorPort_1") {
            sawTcp = true;
            EXPECT_STREQ(ports[i].pMonitorName, L"TCPMON.DLL");
            EXPECT_TRUE(ports[i].fPortType & PORT_TYPE_NET_ATTACHED);
            EXPECT_TRUE(ports[i].fPortType & PORT_TYPE_WRITE);
        } else {
            EXPECT_STREQ(ports[i].pMonitorName, L"Local Port");
            EXPECT_FALSE(ports[i].fPortType & PORT_TYPE_NET_ATTACHED);
        }
    }
    EXPECT_TRUE(sawTcp);
    for (const wchar_t* local : {L"LPT1:", L"COM1:", L"FILE:", L"PORTPROMPT:"}) EXPECT_TRUE(names.count(local)) << local;
}

TEST_F(SpoolerEnumerations, EnumPortsLevel1NamesAndRefusals) {
    Listing listing = portListing(1);
    ASSERT_EQ(listing.count, simhost::winspool::ports().size());
    EXPECT_STREQ(recordsOf<PORT_INFO_1W>(listing.block)[listing.count - 1].pName, L"VexorPort_1");
    DWORD needed = 0, returned = 0;
    EXPECT_FALSE(EnumPortsW(nullptr, 3, nullptr, 0, &needed, &returned));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_LEVEL));
    std::vector<BYTE> tooSmall(8);
    EXPECT_FALSE(EnumPortsW(nullptr, 2, tooSmall.data(), 8, &needed, &returned));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INSUFFICIENT_BUFFER));
    EXPECT_EQ(needed, static_cast<DWORD>(portListing(2).block.size()));
}

// ---- EnumPrinterDriversW ----

TEST_F(SpoolerEnumerations, DriversOfTheLocalEnvironmentByDefaultAndOfEveryOneForAll) {
    installDriver(L"Old Driver", L"Windows NT x86");
    installDriver(L"Bidi Driver", simhost::winspool::kLocalEnvironment, L"PJL Language Monitor", L"USBPRINT\\ACMEBIDI");

    Listing local = driverListing(nullptr, 1);
    ASSERT_EQ(local.count, 2u);
    EXPECT_STREQ(recordsOf<DRIVER_INFO_1W>(local.block)[0].pName, kDriver);
    EXPECT_STREQ(recordsOf<DRIVER_INFO_1W>(local.block)[1].pName, L"Bidi Driver");

    std::wstring all = L"all";
    Listing every = driverListing(all.data(), 3);
    ASSERT_EQ(every.count, 3u);
    const DRIVER_INFO_3W* info3 = recordsOf<DRIVER_INFO_3W>(every.block);
    EXPECT_STREQ(info3[1].pName, L"Old Driver");
    EXPECT_STREQ(info3[1].pEnvironment, L"Windows NT x86");
    EXPECT_EQ(info3[0].pMonitorName, nullptr);
    EXPECT_STREQ(info3[2].pMonitorName, L"PJL Language Monitor");
    EXPECT_TRUE(inside(info3[2].pMonitorName, every.block));

    std::wstring x86 = L"windows nt X86";
    EXPECT_EQ(driverListing(x86.data(), 1).count, 1u);

    Listing level8 = driverListing(all.data(), 8);
    const DRIVER_INFO_8W* info8 = recordsOf<DRIVER_INFO_8W>(level8.block);
    EXPECT_EQ(info8[0].pszHardwareID, nullptr);
    EXPECT_STREQ(info8[2].pszHardwareID, L"USBPRINT\\ACMEBIDI");
    EXPECT_TRUE(inside(info8[2].pszHardwareID, level8.block));
}

TEST_F(SpoolerEnumerations, EnumPrinterDriversRefusesUnknownEnvironmentsAndLevels) {
    DWORD needed = 0, returned = 0;
    std::wstring mars = L"Windows Mars";
    EXPECT_FALSE(EnumPrinterDriversW(nullptr, mars.data(), 1, nullptr, 0, &needed, &returned));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_ENVIRONMENT));
    EXPECT_FALSE(EnumPrinterDriversW(nullptr, nullptr, 2, nullptr, 0, &needed, &returned));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_LEVEL));
    EXPECT_FALSE(EnumPrinterDriversW(nullptr, nullptr, 3, nullptr, 0, &needed, &returned));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INSUFFICIENT_BUFFER));
    EXPECT_GT(needed, sizeof(DRIVER_INFO_3W));
}
