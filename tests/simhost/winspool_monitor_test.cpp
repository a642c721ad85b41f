// The TCP/IP port monitor behind XcvDataW: opening it and a port's
// interface, AddPort, DeletePort and GetConfigInfo with good and bad
// records, and the call's failure kept apart from the monitor's status.
#include "winspool_test_helpers.h"

#include <cstring>
#include <cwchar>

using namespace winspool_test;

namespace {

class SpoolerMonitor : public Spooler {
protected:
    void SetUp() override {
        Spooler::SetUp();
        installDriver();
    }
};

HANDLE openXcv(const std::wstring& name, ACCESS_MASK access = SERVER_ACCESS_ADMINISTER) {
    PRINTER_DEFAULTSW defaults{nullptr, nullptr, access};
    HANDLE handle = INVALID_HANDLE_VALUE;
    EXPECT_TRUE(OpenPrinter2W(name.c_str(), &handle, &defaults, nullptr)) << "open " << GetLastError();
    return handle;
}

PORT_DATA_1 rawPort(const std::wstring& name, const std::wstring& address, DWORD port) {
    PORT_DATA_1 data{};
    std::wcsncpy(data.sztPortName, name.c_str(), MAX_PORTNAME_LEN - 1);
    data.dwVersion = 1;
    data.dwProtocol = PROTOCOL_RAWTCP_TYPE;
    data.cbSize = sizeof(PORT_DATA_1);
    std::wcsncpy(data.sztHostAddress, address.c_str(), MAX_NETWORKNAME_LEN - 1);
    std::wcsncpy(data.sztIPAddress, address.c_str(), MAX_IPADDR_STR_LEN - 1);
    data.dwPortNumber = port;
    return data;
}

DELETE_PORT_DATA_1 portToDelete(const std::wstring& name) {
    DELETE_PORT_DATA_1 data{};
    std::wcsncpy(data.psztPortName, name.c_str(), MAX_PORTNAME_LEN - 1);
    data.dwVersion = 1;
    return data;
}

// The monitor's status of one command whose call must succeed.
template <class Record>
DWORD status(HANDLE xcv, const wchar_t* command, Record& record, DWORD size = sizeof(Record)) {
    DWORD needed = 0xDEAD, result = 0xDEAD;
    EXPECT_TRUE(XcvDataW(xcv, command, reinterpret_cast<PBYTE>(&record), size, nullptr, 0, &needed, &result))
        << GetLastError();
    return result;
}

}  // namespace

TEST_F(SpoolerMonitor, AddPortMakesARawTcpPortAndASecondAddIsAlreadyExists) {
    HANDLE monitor = openXcv(kTcpMonitorXcv);
    PORT_DATA_1 data = rawPort(L"VexorPort_50123", L"127.0.1.20", 50123);
    EXPECT_EQ(status(monitor, L"AddPort", data), 0u);
    auto port = simhost::winspool::findPort(L"VexorPort_50123");
    ASSERT_TRUE(port);
    EXPECT_EQ(port->monitorName, L"TCPMON.DLL");
    EXPECT_EQ(port->tcp->hostAddress, L"127.0.1.20");
    EXPECT_EQ(port->tcp->portNumber, 50123u);
    EXPECT_EQ(port->tcp->protocol, static_cast<DWORD>(PROTOCOL_RAWTCP_TYPE));
    SetLastError(4321);
    EXPECT_EQ(status(monitor, L"AddPort", data), static_cast<DWORD>(ERROR_ALREADY_EXISTS));
    EXPECT_EQ(GetLastError(), 4321u);  // the status is not the call's last error
    PORT_DATA_1 local = rawPort(L"lpt1:", L"127.0.0.1", 1);
    EXPECT_EQ(status(monitor, L"AddPort", local), static_cast<DWORD>(ERROR_ALREADY_EXISTS));
    EXPECT_TRUE(ClosePrinter(monitor));
}

TEST_F(SpoolerMonitor, AddPortAnswersBadRecordsAsTheMonitorDocumentsThem) {
    HANDLE monitor = openXcv(kTcpMonitorXcv);
    PORT_DATA_1 data = rawPort(L"VexorPort_1", L"127.0.1.20", 9100);
    EXPECT_EQ(status(monitor, L"AddPort", data, sizeof(PORT_DATA_1) - 1), static_cast<DWORD>(ERROR_INVALID_DATA));
    DWORD needed = 0, result = 0;
    EXPECT_TRUE(XcvDataW(monitor, L"AddPort", nullptr, 0, nullptr, 0, &needed, &result));
    EXPECT_EQ(result, static_cast<DWORD>(ERROR_INVALID_DATA));
    data.dwVersion = 2;
    EXPECT_EQ(status(monitor, L"AddPort", data), static_cast<DWORD>(ERROR_INVALID_LEVEL));
    data.dwVersion = 1;
    data.dwProtocol = 7;
    EXPECT_EQ(status(monitor, L"AddPort", data), static_cast<DWORD>(ERROR_INVALID_PARAMETER));
    EXPECT_EQ(status(monitor, L"NoSuchCommand", data), static_cast<DWORD>(ERROR_INVALID_PARAMETER));
    EXPECT_FALSE(simhost::winspool::findPort(L"VexorPort_1"));
    ClosePrinter(monitor);
}

TEST_F(SpoolerMonitor, TheCallsOwnFailuresLeaveTheStatusAlone) {
    HANDLE monitor = openXcv(kTcpMonitorXcv);
    PORT_DATA_1 data = rawPort(L"VexorPort_1", L"127.0.1.20", 9100);
    DWORD needed = 0, result = 0xBEEF;
    EXPECT_FALSE(XcvDataW(monitor, nullptr, reinterpret_cast<PBYTE>(&data), sizeof data, nullptr, 0, &needed, &result));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(RPC_X_NULL_REF_POINTER));
    EXPECT_FALSE(XcvDataW(monitor, L"AddPort", reinterpret_cast<PBYTE>(&data), sizeof data, nullptr, 0, nullptr,
                          &result));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(RPC_X_NULL_REF_POINTER));
    EXPECT_FALSE(XcvDataW(monitor, L"AddPort", nullptr, sizeof data, nullptr, 0, &needed, &result));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_USER_BUFFER));
    simhost::Host::get().faults().failCall("XcvDataW", RPC_S_SERVER_UNAVAILABLE, 1);
    EXPECT_FALSE(XcvDataW(monitor, L"AddPort", reinterpret_cast<PBYTE>(&data), sizeof data, nullptr, 0, &needed,
                          &result));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(RPC_S_SERVER_UNAVAILABLE));
    EXPECT_EQ(result, 0xBEEFu);
    EXPECT_FALSE(simhost::winspool::findPort(L"VexorPort_1"));
    ClosePrinter(monitor);
}

TEST_F(SpoolerMonitor, DeletePortRemovesAFreePortAndIsBusyWhileAPrinterUsesIt) {
    addRawPort(L"VexorPort_1");
    addRawPort(L"VexorPort_2");
    addPrinterOn(L"Local Printer", L"VexorPort_2");
    HANDLE port = openXcv(L",XcvPort VexorPort_1");
    DELETE_PORT_DATA_1 free = portToDelete(L"VexorPort_1");
    EXPECT_EQ(status(port, L"DeletePort", free), 0u);
    EXPECT_FALSE(simhost::winspool::findPort(L"VexorPort_1"));
    EXPECT_EQ(status(port, L"DeletePort", free), static_cast<DWORD>(ERROR_UNKNOWN_PORT));

    HANDLE monitor = openXcv(kTcpMonitorXcv);
    DELETE_PORT_DATA_1 used = portToDelete(L"VexorPort_2");
    EXPECT_EQ(status(monitor, L"DeletePort", used), static_cast<DWORD>(ERROR_BUSY));
    EXPECT_TRUE(simhost::winspool::findPort(L"VexorPort_2"));
    EXPECT_EQ(status(monitor, L"DeletePort", used, sizeof used - 1), static_cast<DWORD>(ERROR_INVALID_DATA));
    used.dwVersion = 0;
    EXPECT_EQ(status(monitor, L"DeletePort", used), static_cast<DWORD>(ERROR_INVALID_LEVEL));
    DELETE_PORT_DATA_1 local = portToDelete(L"LPT1:");
    EXPECT_EQ(status(monitor, L"DeletePort", local), static_cast<DWORD>(ERROR_UNKNOWN_PORT));
    ClosePrinter(port);
    ClosePrinter(monitor);
}

TEST_F(SpoolerMonitor, APortWhosePrinterIsGoneCanBeDeleted) {
    addRawPort(L"VexorPort_3");
    addPrinterOn(L"Local Gone", L"VexorPort_3");
    HANDLE printer = openPrinter(L"Local Gone", PRINTER_ALL_ACCESS);
    ASSERT_TRUE(DeletePrinter(printer));
    HANDLE monitor = openXcv(kTcpMonitorXcv);
    DELETE_PORT_DATA_1 data = portToDelete(L"VexorPort_3");
    EXPECT_EQ(status(monitor, L"DeletePort", data), static_cast<DWORD>(ERROR_BUSY));  // still held open
    ClosePrinter(printer);
    EXPECT_EQ(status(monitor, L"DeletePort", data), 0u);
    ClosePrinter(monitor);
}

TEST_F(SpoolerMonitor, GetConfigInfoAnswersThePortsPortData) {
    addRawPort(L"VexorPort_4", L"127.0.1.20", 50200);
    HANDLE port = openXcv(L",XcvPort VexorPort_4");
    CONFIG_INFO_DATA_1 config{};
    config.dwVersion = 1;
    PORT_DATA_1 data{};
    DWORD needed = 0, result = 0xDEAD;
    ASSERT_TRUE(XcvDataW(port, L"GetConfigInfo", reinterpret_cast<PBYTE>(&config), sizeof config,
                         reinterpret_cast<PBYTE>(&data), sizeof data, &needed, &result));
    EXPECT_EQ(result, 0u);
    EXPECT_EQ(needed, sizeof(PORT_DATA_1));
    EXPECT_STREQ(data.sztPortName, L"VexorPort_4");
    EXPECT_STREQ(data.sztHostAddress, L"127.0.1.20");
    EXPECT_STREQ(data.sztIPAddress, L"127.0.1.20");
    EXPECT_EQ(data.dwPortNumber, 50200u);
    EXPECT_EQ(data.dwProtocol, static_cast<DWORD>(PROTOCOL_RAWTCP_TYPE));
    EXPECT_EQ(data.dwVersion, 1u);
    EXPECT_EQ(data.cbSize, sizeof(PORT_DATA_1));
    ClosePrinter(port);
}

TEST_F(SpoolerMonitor, GetConfigInfoWithWrongSizesAndVersions) {
    addRawPort(L"VexorPort_5");
    HANDLE port = openXcv(L",XcvPort VexorPort_5");
    CONFIG_INFO_DATA_1 config{};
    config.dwVersion = 1;
    PORT_DATA_1 data{};
    DWORD needed = 0, result = 0;
    ASSERT_TRUE(XcvDataW(port, L"GetConfigInfo", reinterpret_cast<PBYTE>(&config), sizeof config,
                         reinterpret_cast<PBYTE>(&data), sizeof data - 4, &needed, &result));
    EXPECT_EQ(result, static_cast<DWORD>(ERROR_INSUFFICIENT_BUFFER));
    EXPECT_EQ(needed, sizeof(PORT_DATA_1));
    ASSERT_TRUE(XcvDataW(port, L"GetConfigInfo", reinterpret_cast<PBYTE>(&config), sizeof config - 1,
                         reinterpret_cast<PBYTE>(&data), sizeof data, &needed, &result));
    EXPECT_EQ(result, static_cast<DWORD>(ERROR_INVALID_DATA));
    config.dwVersion = 2;
    ASSERT_TRUE(XcvDataW(port, L"GetConfigInfo", reinterpret_cast<PBYTE>(&config), sizeof config,
                         reinterpret_cast<PBYTE>(&data), sizeof data, &needed, &result));
    EXPECT_EQ(result, static_cast<DWORD>(ERROR_INVALID_LEVEL));
    ClosePrinter(port);

    HANDLE monitor = openXcv(kTcpMonitorXcv);
    config.dwVersion = 1;
    ASSERT_TRUE(XcvDataW(monitor, L"GetConfigInfo", reinterpret_cast<PBYTE>(&config), sizeof config,
                         reinterpret_cast<PBYTE>(&data), sizeof data, &needed, &result));
    EXPECT_EQ(result, static_cast<DWORD>(ERROR_INVALID_PARAMETER));  // the monitor's handle names no port
    ClosePrinter(monitor);
}

TEST_F(SpoolerMonitor, ALocalPortsMonitorHasNoConfigInfo) {
    HANDLE port = openXcv(L",XcvPort LPT1:");
    CONFIG_INFO_DATA_1 config{};
    config.dwVersion = 1;
    PORT_DATA_1 data{};
    DWORD needed = 0, result = 0;
    ASSERT_TRUE(XcvDataW(port, L"GetConfigInfo", reinterpret_cast<PBYTE>(&config), sizeof config,
                         reinterpret_cast<PBYTE>(&data), sizeof data, &needed, &result));
    EXPECT_NE(result, 0u);
    ClosePrinter(port);
}

TEST_F(SpoolerMonitor, MonitorUiFollowsTheOutputSizeProtocol) {
    HANDLE monitor = openXcv(kTcpMonitorXcv);
    DWORD needed = 0, result = 0;
    ASSERT_TRUE(XcvDataW(monitor, L"MonitorUI", nullptr, 0, nullptr, 0, &needed, &result));
    EXPECT_EQ(result, static_cast<DWORD>(ERROR_INSUFFICIENT_BUFFER));
    std::vector<WCHAR> name(needed / sizeof(WCHAR));
    ASSERT_TRUE(XcvDataW(monitor, L"MonitorUI", nullptr, 0, reinterpret_cast<PBYTE>(name.data()), needed, &needed,
                         &result));
    EXPECT_EQ(result, 0u);
    EXPECT_STREQ(name.data(), L"tcpmonui.dll");
    ClosePrinter(monitor);
}

TEST_F(SpoolerMonitor, AnAccountWithoutTheRightToAdministerCannotOpenTheMonitor) {
    addRawPort(L"VexorPort_6");
    simhost::winspool::denyMonitorAdministration();
    PRINTER_DEFAULTSW defaults{nullptr, nullptr, SERVER_ACCESS_ADMINISTER};
    HANDLE handle = INVALID_HANDLE_VALUE;
    EXPECT_FALSE(OpenPrinter2W(kTcpMonitorXcv, &handle, &defaults, nullptr));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_ACCESS_DENIED));
    std::wstring port = L",XcvPort VexorPort_6";
    EXPECT_FALSE(OpenPrinterW(port.data(), &handle, &defaults));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_ACCESS_DENIED));
    EXPECT_EQ(handle, INVALID_HANDLE_VALUE);
    // Without asking to administer, the interface opens; its commands refuse.
    HANDLE reader = openXcv(kTcpMonitorXcv, SERVER_ACCESS_ENUMERATE);
    PORT_DATA_1 data = rawPort(L"VexorPort_7", L"127.0.1.20", 9100);
    EXPECT_EQ(status(reader, L"AddPort", data), static_cast<DWORD>(ERROR_ACCESS_DENIED));
    ClosePrinter(reader);
}

TEST_F(SpoolerMonitor, UnknownMonitorsAndPortsAreUnknownNames) {
    HANDLE handle = INVALID_HANDLE_VALUE;
    EXPECT_FALSE(OpenPrinter2W(L",XcvMonitor No Such Monitor", &handle, nullptr, nullptr));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_PRINTER_NAME));
    EXPECT_FALSE(OpenPrinter2W(L",XcvPort NoSuchPort", &handle, nullptr, nullptr));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_PRINTER_NAME));
    EXPECT_FALSE(OpenPrinter2W(L"", &handle, nullptr, nullptr));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_PRINTER_NAME));
    EXPECT_EQ(handle, INVALID_HANDLE_VALUE);
}

TEST_F(SpoolerMonitor, XcvHandlesAreRefusedByPrinterCalls) {
    HANDLE monitor = openXcv(kTcpMonitorXcv);
    DWORD needed = 0;
    EXPECT_FALSE(GetPrinterW(monitor, 2, nullptr, 0, &needed));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_PARAMETER));
    EXPECT_FALSE(DeletePrinter(monitor));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_PARAMETER));
    EXPECT_TRUE(ClosePrinter(monitor));
    EXPECT_FALSE(ClosePrinter(monitor));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_HANDLE));
}
