// A service object on a simulated host whose installed drivers, staged INF
// files and printing policy each test arranges, with the service's catalogue
// built from them; and readers of what a selection left: the reply, the
// `detail` record, the comment, the trail of DRV_MATCH lines and the
// installer's runs.
#pragma once

#include "foundation/ClassicJson.h"
#include "service/VexorPrintingService.h"
#include "simhost/advapi32/advapi32.h"
#include "simhost/core/host.h"
#include "simhost/kernel32/programs.h"
#include "simhost/printui/printui.h"
#include "simhost/winspool/spooler.h"
#include "support/LogCapture.h"
#include "support/PluginRequests.h"
#include "support/ServiceHarness.h"

#include <gtest/gtest.h>
#include <json/json.h>

#include <fstream>
#include <string>
#include <utility>
#include <vector>

namespace selection_test {

const int kError = static_cast<int>(kLogError);
const int kNormal = static_cast<int>(kLogNormal);
constexpr const char* kSelect = "VexorPrintingService::selectDriver";
constexpr const char* kMatch = "VexorPrintingService::_matchDriverByHwid";
constexpr const char* kForce = "VexorPrintingService::forceClientSideRendering";
constexpr const char* kFallback = "VexorPrintingService::GetFallbackDriver";
constexpr const char* kClientOs = "VexorPrintingService::GetClientOS";
constexpr const wchar_t* kXpsDriver = L"Quillion Client Render XPS";
constexpr const wchar_t* kImagesetter = L"MS Publisher Imagesetter";
// The checksummed id of "MFG:Acme;MDL:LaserBox 2000;".
constexpr const char* kAcmeChecksummedId = "AcmeLaserBox_2000EA13";

// One model line of an INF file: its display name and its ids.
struct Model {
    std::string name;
    std::vector<std::string> ids;
};

// An amd64 INF file in the shape printer makers write: one manufacturer, a
// decorated models section, each model its own install section.
inline std::string infOf(const std::vector<Model>& models) {
    std::string text =
        "[Version]\r\nSignature=\"$Windows NT$\"\r\nClass=Printer\r\nProvider=%Maker%\r\n\r\n"
        "[Manufacturer]\r\n%Maker%=Models,NTamd64\r\n\r\n[Models.NTamd64]\r\n";
    int section = 0;
    for (const Model& model : models) {
        text += "\"" + model.name + "\" = Install" + std::to_string(section++);
        for (const std::string& id : model.ids) text += ", " + id;
        text += "\r\n";
    }
    return text + "\r\n[Strings]\r\nMaker=\"Maker\"\r\n";
}

struct Selection {
    std::wstring driver;
    Json::Value response{Json::objectValue};
    Json::Value detail{Json::objectValue};
    std::wstring comment;
};

class SelectionHost : public ::testing::Test {
protected:
    static constexpr const wchar_t* kPolicyKey = L"Software\\Policies\\Quillion\\Vexor\\vexor_admin";

    void SetUp() override { log().drive().makeDirectory("Windows\\INF"); }
    void TearDown() override { simhost::Host::get().faults().clearAll(); }

    VexorPrintingService& service() { return harness_.service(); }
    const testsupport::LogCapture& log() const { return harness_.log(); }

    // The printing mode of the policy ("vexor.remote_printing_enabled").
    void setPrintingMode(DWORD mode) {
        simhost::advapi32::setRegistryDword(HKEY_LOCAL_MACHINE, kPolicyKey, L"vexor.remote_printing_enabled", mode);
    }
    void disableSeriesSteps() {
        simhost::advapi32::setRegistryDword(HKEY_LOCAL_MACHINE, L"SYSTEM\\CurrentControlSet\\Services\\Vexor_Printing",
                                            L"DisableSeriesMatch", 1);
    }
    static void install(const std::wstring& name, const std::wstring& hardwareId = L"") {
        simhost::winspool::addDriver({name, simhost::winspool::kLocalEnvironment, hardwareId, L"", {}});
    }
    static bool installed(const std::wstring& name) {
        for (const simhost::winspool::PrinterDriver& driver : simhost::winspool::drivers())
            if (driver.name == name) return true;
        return false;
    }
    static void installerFails(const std::wstring& name) {
        simhost::printui::setInstallerBehaviour(name, {simhost::printui::InstallerOutcome::Fails, 0});
    }
    // Stages C:\Windows\INF\<name> and builds the catalogue anew from every
    // file staged so far.
    void stage(const std::string& name, const std::vector<Model>& models) {
        std::ofstream(log().drive().native("Windows\\INF\\" + name), std::ios::binary | std::ios::trunc)
            << infOf(models);
    }
    void loadCatalogue() { service().loadDriverCatalogue(); }

    Selection select(const Json::Value& request) {
        Selection selection;
        selection.response["status"] = "fail";
        selection.driver = service().selectDriver(request, selection.response, selection.detail, selection.comment);
        return selection;
    }

    // The messages of the lines that report a decision, in order.
    std::vector<std::string> trail() const {
        std::vector<std::string> lines;
        for (const std::string& message : log().messages())
            if (message.rfind("DRV_MATCH", 0) == 0) lines.push_back(message);
        return lines;
    }
    size_t installerRuns() const { return simhost::kernel32::processRuns().size(); }
    void expectLine(const std::string& message, uint32_t level, int channel, const std::string& function) const {
        testsupport::expectOneLine(log(), message, level, channel, function);
    }
    bool logged(const std::string& message) const { return log().contains(message); }

    testsupport::ServiceHarness harness_{0.001};
};

// A JSON object from its text.
inline Json::Value json(const std::string& text) {
    Json::Value value;
    EXPECT_TRUE(parseWithClassicReader(text, value)) << text;
    return value;
}

}  // namespace selection_test
