// A printer of the simulated spooler whose driver keeps a device mode of its
// own (members, dmFields and private bytes a test can tell apart), opened as
// printer creation has it, and the log the preferences write.
#pragma once

#include "foundation/ClassicJson.h"
#include "platform/win32.h"
#include "simhost/core/host.h"
#include "simhost/kernel32/memory.h"
#include "simhost/winspool/spooler.h"
#include "support/LogCapture.h"
#include "support/PluginRequests.h"
#include "support/SpoolerArrangement.h"

#include <gtest/gtest.h>

#include <json/json.h>

#include <string>
#include <vector>

namespace preferencestest {

namespace spooler = simhost::winspool;

constexpr const wchar_t* kPrinter = L"Local Desk";
constexpr const char* kAddPrinter = "VexorPrintingService::_addPrinter";
const int kError = static_cast<int>(kLogError);
const int kNormal = static_cast<int>(kLogNormal);
// The driver's private bytes behind its record.
const std::vector<BYTE> kPrivateBytes = {0xD1, 0xD2, 0xD3, 0xD4};
// The bits the driver sets: orientation, paper size, copies, colour.
constexpr DWORD kDriverFields = DM_ORIENTATION | DM_PAPERSIZE | DM_COPIES | DM_COLOR;

inline DEVMODEW driverDevMode() {
    DEVMODEW mode = spooler::typicalDevMode(testsupport::kTestDriver);
    mode.dmFields = kDriverFields;
    mode.dmDriverVersion = 0x0603;
    mode.dmReserved1 = 7;
    mode.dmReserved2 = 8;
    mode.dmPanningWidth = 9;
    mode.dmPanningHeight = 10;
    mode.dmPelsWidth = 1024;
    return mode;
}

class PreferencesTest : public ::testing::Test {
protected:
    void SetUp() override {
        testsupport::addRawTcpPort(kPort, 50123);
        addPrinterWithDriverMode(kPrinter, testsupport::kTestDriver, driverDevMode());
    }
    void TearDown() override {
        ClosePrinter(printer_);
        EXPECT_EQ(spooler::openSpoolerHandleCount(), 0u);
        EXPECT_EQ(simhost::kernel32::liveBlockCount(simhost::kernel32::Allocator::Global), 0u) << "a record kept";
        simhost::Host::get().faults().clearAll();
    }

    // Puts another printer under test, whose driver keeps `mode` and the
    // same private bytes.
    void usePrinterWithDriverMode(const DEVMODEW& mode) {
        ClosePrinter(printer_);
        const std::wstring number = std::to_wstring(++variants_);
        addPrinterWithDriverMode(L"Local Desk " + number, L"Variant Driver " + number, mode);
    }

    // The device mode the spooler keeps for the printer now.
    std::vector<BYTE> storedBlock() const { return spooler::findPrinter(printerName_)->devMode; }
    DEVMODEW stored() const { return spooler::devModeRecord(storedBlock()); }
    static size_t calls(const char* call) { return simhost::Host::get().faults().callCount(call); }

    void expectLine(const std::string& message, uint32_t level, int channel, const std::string& function) const {
        testsupport::expectOneLine(log_, message, level, channel, function);
    }
    bool logged(const std::string& message) const { return log_.contains(message); }

    testsupport::LogCapture log_;
    std::wstring printerName_;
    HANDLE printer_ = nullptr;
    // The printer's device mode as the driver gave it.
    std::vector<BYTE> driverBlock_;

private:
    static constexpr const wchar_t* kPort = L"VexorPort_50123";

    // Opened with every right, as the handle of printer creation's add.
    void addPrinterWithDriverMode(const std::wstring& printer, const std::wstring& driver, const DEVMODEW& mode) {
        spooler::addDriver({driver, spooler::kLocalEnvironment, L"", L"", spooler::devModeBlock(mode, kPrivateBytes)});
        spooler::SpoolerPrinter added;
        added.name = printer;
        added.portName = kPort;
        added.driverName = driver;
        spooler::addPrinter(added);
        printerName_ = printer;
        PRINTER_DEFAULTSW defaults = {nullptr, nullptr, PRINTER_ALL_ACCESS};
        ASSERT_TRUE(OpenPrinterW(const_cast<LPWSTR>(printer.c_str()), &printer_, &defaults));
        driverBlock_ = storedBlock();
    }

    int variants_ = 0;
};

inline Json::Value parse(const std::string& text) {
    Json::Value value;
    EXPECT_TRUE(parseWithClassicReader(text, value)) << text;
    return value;
}

}  // namespace preferencestest
