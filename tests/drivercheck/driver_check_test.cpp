// vexor-driver-check as an administrator runs it: on the demonstration host
// and on a folder of INF files, for Windows and Mac descriptions, with its
// report, its reply record, its exit status, and nothing left behind.
#include "support/ProgramRun.h"

#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <string>
#include <utility>
#include <vector>

namespace fs = std::filesystem;

namespace {

using testsupport::ProgramResult;
using testsupport::readFile;
using testsupport::runCommand;

// A maker's package of two PCL and two PostScript models: one manufacturer
// with an amd64 models section, an install section for each model, and data
// and file sections they share.
const char* const kHalvardInf =
    "; Halvard Imaging printer drivers for 64-bit Windows.\r\n"
    "[Version]\r\n"
    "Signature=\"$Windows NT$\"\r\n"
    "Class=Printer\r\n"
    "ClassGuid={4D36E979-E325-11CE-BFC1-08002BE10318}\r\n"
    "Provider=%Halvard%\r\n"
    "DriverVer=03/14/2025,6.2.1.40\r\n"
    "CatalogFile=halvard.cat\r\n"
    "PnpLockdown=1\r\n"
    "\r\n"
    "[Manufacturer]\r\n"
    "%Halvard%=Halvard,NTamd64\r\n"
    "\r\n"
    "[Halvard.NTamd64]\r\n"
    "\"Halvard Lumen P420 PCL6\" = P420_PCL6, USBPRINT\\HalvardLumen_P42074C1, WSDPRINT\\HalvardLumen_P42074C1\r\n"
    "\"Halvard Lumen P420 PS\"   = P420_PS, USBPRINT\\HalvardLumen_P420_PS2B0E\r\n"
    "\"Halvard Lumen M510 PCL6\" = M510_PCL6, USBPRINT\\HalvardLumen_M510E7D3, HalvardLumen_M510E7D3\r\n"
    "\"Halvard Lumen M510 PS\"   = M510_PS, USBPRINT\\HalvardLumen_M510_PSC95A\r\n"
    "\r\n"
    "[P420_PCL6]\r\n"
    "CopyFiles=PCL6_FILES,COMMON_FILES\r\n"
    "DataSection=PCL6_DATA\r\n"
    "DataFile=HALVP420.GPD\r\n"
    "Include=ntprint.inf\r\n"
    "Needs=UNIDRV.OEM,UNIDRVUI.OEM\r\n"
    "\r\n"
    "[M510_PCL6]\r\n"
    "CopyFiles=PCL6_FILES,COMMON_FILES\r\n"
    "DataSection=PCL6_DATA\r\n"
    "DataFile=HALVM510.GPD\r\n"
    "Include=ntprint.inf\r\n"
    "Needs=UNIDRV.OEM,UNIDRVUI.OEM\r\n"
    "\r\n"
    "[P420_PS]\r\n"
    "CopyFiles=PS_FILES,COMMON_FILES\r\n"
    "DataFile=HALVP420.PPD\r\n"
    "Include=ntprint.inf\r\n"
    "Needs=PSCRIPT.OEM,PSCRIPT_DATA\r\n"
    "\r\n"
    "[M510_PS]\r\n"
    "CopyFiles=PS_FILES,COMMON_FILES\r\n"
    "DataFile=HALVM510.PPD\r\n"
    "Include=ntprint.inf\r\n"
    "Needs=PSCRIPT.OEM,PSCRIPT_DATA\r\n"
    "\r\n"
    "[PCL6_DATA]\r\n"
    "DriverFile=unidrv.dll\r\n"
    "ConfigFile=unidrvui.dll\r\n"
    "HelpFile=unidrv.hlp\r\n"
    "\r\n"
    "[PCL6_FILES]\r\n"
    "HALVP420.GPD\r\n"
    "HALVM510.GPD\r\n"
    "HALVRES.DLL\r\n"
    "\r\n"
    "[PS_FILES]\r\n"
    "HALVP420.PPD\r\n"
    "HALVM510.PPD\r\n"
    "\r\n"
    "[COMMON_FILES]\r\n"
    "HALVUI.DLL\r\n"
    "HALVCFG.INI\r\n"
    "\r\n"
    "[DestinationDirs]\r\n"
    "DefaultDestDir=66000\r\n"
    "\r\n"
    "[SourceDisksNames.amd64]\r\n"
    "1=%Disk1%,,,\r\n"
    "\r\n"
    "[SourceDisksFiles]\r\n"
    "HALVP420.GPD=1\r\n"
    "HALVM510.GPD=1\r\n"
    "HALVP420.PPD=1\r\n"
    "HALVM510.PPD=1\r\n"
    "HALVRES.DLL=1\r\n"
    "HALVUI.DLL=1\r\n"
    "HALVCFG.INI=1\r\n"
    "\r\n"
    "[Strings]\r\n"
    "Halvard=\"Halvard Imaging\"\r\n"
    "Disk1=\"Halvard Imaging Driver Disc\"\r\n";

// A second maker's package, with a models section for newer systems beside
// the plain amd64 one.
const char* const kPellucidInf =
    "; Pellucid Systems label printers.\r\n"
    "[Version]\r\n"
    "Signature=\"$Windows NT$\"\r\n"
    "Class=Printer\r\n"
    "ClassGuid={4D36E979-E325-11CE-BFC1-08002BE10318}\r\n"
    "Provider=%Pellucid%\r\n"
    "DriverVer=11/02/2024,3.0.7.0\r\n"
    "CatalogFile=pellucid.cat\r\n"
    "\r\n"
    "[Manufacturer]\r\n"
    "%Pellucid%=Pellucid,NTamd64.10.0,NTamd64\r\n"
    "\r\n"
    "[Pellucid.NTamd64]\r\n"
    "\"Pellucid Quill 30\" = QUILL30, USBPRINT\\PellucidQuill_3091B2\r\n"
    "\r\n"
    "[Pellucid.NTamd64.10.0]\r\n"
    "\"Pellucid Quill 30\" = QUILL30, USBPRINT\\PellucidQuill_3091B2, PellucidQuill_3091B2\r\n"
    "\"Pellucid Quill 50\" = QUILL50, USBPRINT\\PellucidQuill_50A4E0, LPTENUM\\PellucidQuill_50A4E0\r\n"
    "\r\n"
    "[QUILL30]\r\n"
    "CopyFiles=QUILL_FILES\r\n"
    "DataFile=QUILL30.GPD\r\n"
    "Include=ntprint.inf\r\n"
    "Needs=UNIDRV.OEM\r\n"
    "\r\n"
    "[QUILL50]\r\n"
    "CopyFiles=QUILL_FILES\r\n"
    "DataFile=QUILL50.GPD\r\n"
    "Include=ntprint.inf\r\n"
    "Needs=UNIDRV.OEM\r\n"
    "\r\n"
    "[QUILL_FILES]\r\n"
    "QUILL30.GPD\r\n"
    "QUILL50.GPD\r\n"
    "QUILLRES.DLL\r\n"
    "\r\n"
    "[DestinationDirs]\r\n"
    "DefaultDestDir=66000\r\n"
    "\r\n"
    "[SourceDisksNames.amd64]\r\n"
    "1=%Disk1%,,,\r\n"
    "\r\n"
    "[SourceDisksFiles]\r\n"
    "QUILL30.GPD=1\r\n"
    "QUILL50.GPD=1\r\n"
    "QUILLRES.DLL=1\r\n"
    "\r\n"
    "[Strings]\r\n"
    "Pellucid=\"Pellucid Systems\"\r\n"
    "Disk1=\"Pellucid Driver Disc\"\r\n";

std::string quoted(const std::string& text) { return "'" + text + "'"; }

class DriverCheck : public ::testing::Test {
protected:
    void SetUp() override {
        std::string pattern = (fs::temp_directory_path() / "vexor-driver-check-test-XXXXXX").string();
        ASSERT_TRUE(mkdtemp(pattern.data()));
        root_ = pattern;
        fs::create_directories(scratch());
    }
    void TearDown() override { fs::remove_all(root_); }

    // Where the program makes its temporary folder; empty after every run.
    fs::path scratch() const { return root_ / "tmp"; }
    static std::string demoHost() { return quoted(std::string(VEXOR_SOURCE_DIR) + "/examples/hosts/demo.json"); }

    // A folder with the two makers' INF files and a file that is no INF.
    std::string infFolder() const {
        const fs::path folder = root_ / "infs";
        fs::create_directories(folder);
        std::ofstream(folder / "halvard.inf", std::ios::binary) << kHalvardInf;
        std::ofstream(folder / "PELLUCID.INF", std::ios::binary) << kPellucidInf;
        std::ofstream(folder / "readme.txt") << "Install with the setup program.";
        return quoted(folder.string());
    }

    std::string writeDescription(const std::string& json) const {
        const fs::path file = root_ / "printer.json";
        std::ofstream(file) << json;
        return quoted(file.string());
    }

    // Runs the program with `arguments`; its standard error goes to `errors_`.
    ProgramResult check(const std::string& arguments) {
        const fs::path errorFile = root_ / "errors.txt";
        ProgramResult result =
            runCommand("TMPDIR=" + quoted(scratch().string()) + " " + quoted(VEXOR_DRIVER_CHECK_EXE) + " " + arguments +
                       " 2>" + quoted(errorFile.string()));
        errors_ = readFile(errorFile);
        EXPECT_TRUE(fs::is_empty(scratch())) << "the temporary folder outlived the run";
        return result;
    }

    fs::path root_;
    std::string errors_;
};

bool holds(const std::string& text, const std::string& part) { return text.find(part) != std::string::npos; }

TEST_F(DriverCheck, StagedDriverOfTheDemoHostIsInstalledForItsHardwareId) {
    const ProgramResult result = check("--host " + demoHost() + " --hardware-id 'USBPRINT\\AcmeInkJet_3005B2E'");
    EXPECT_EQ(result.exitCode, 0) << errors_;
    EXPECT_EQ(result.output,
              "Driver:         Acme InkJet 300 Series\n"
              "Decided by:     step 3: the client's hardware id\n"
              "Matched id:     USBPRINT\\AcmeInkJet_3005B2E (bus part compared)\n"
              "Installed:      by this run\n"
              "Installer runs:\n"
              "  rundll32 printui.dll,PrintUIEntry /ia /u /q /f \"C:\\Windows\\INF\\oem7.inf\" /m \"Acme InkJet 300 "
              "Series\"\n"
              "Warning:        _addPrinter called with no driverName (possibly CUPS printer)\n"
              "Detail:         {\"driverNamePicked\":\"Acme InkJet 300 Series\",\"driverNameReq\":\"\","
              "\"hwid\":\"USBPRINT\\\\AcmeInkJet_3005B2E\",\"matchedBus\":true,"
              "\"matchedHwid\":\"USBPRINT\\\\AcmeInkJet_3005B2E\",\"preinstalled\":false,"
              "\"printerName\":\"Client printer\",\"to\":\"hwid\"}\n"
              "Trail:\n"
              "  DRV_MATCH_DETAIL:Matched hardwareId:USBPRINT\\AcmeInkJet_3005B2E to compatible hwid staged "
              "driverName:Acme InkJet 300 Series\n");
    EXPECT_EQ(errors_, "");
}

TEST_F(DriverCheck, NothingIsWrittenBesideTheHostFile) {
    const fs::path hostFolder = root_ / "host";
    fs::create_directories(hostFolder);
    fs::copy(std::string(VEXOR_SOURCE_DIR) + "/examples/hosts/demo.json", hostFolder / "demo.json");
    fs::copy(std::string(VEXOR_SOURCE_DIR) + "/examples/hosts/inf", hostFolder / "inf");
    auto listing = [&] {
        std::vector<std::string> names;
        for (const auto& entry : fs::recursive_directory_iterator(hostFolder)) names.push_back(entry.path().string());
        std::sort(names.begin(), names.end());
        return names;
    };
    const std::vector<std::string> before = listing();
    const ProgramResult result = check("--host " + quoted((hostFolder / "demo.json").string()) +
                                       " --hardware-id 'USBPRINT\\AcmeInkJet_3005B2E'");
    EXPECT_EQ(result.exitCode, 0) << errors_;
    EXPECT_EQ(listing(), before);
}

// The host's listeners stand for plugins of a running service; the check
// holds none, so an address in use elsewhere does not stop it.
TEST_F(DriverCheck, HostListenersAreNotHeld) {
    const int listener = socket(AF_INET, SOCK_STREAM, 0);
    ASSERT_GE(listener, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    ASSERT_EQ(bind(listener, reinterpret_cast<sockaddr*>(&address), length), 0);
    ASSERT_EQ(listen(listener, 1), 0);
    ASSERT_EQ(getsockname(listener, reinterpret_cast<sockaddr*>(&address), &length), 0);
    const fs::path host = root_ / "listening.json";
    std::ofstream(host) << R"({"listeners": ["127.0.0.1:)" << ntohs(address.sin_port) << R"("]})";
    const ProgramResult result = check("--host " + quoted(host.string()) + " --inf-dir " + infFolder() +
                                       " --hardware-id 'USBPRINT\\HalvardLumen_M510E7D3'");
    close(listener);
    EXPECT_EQ(result.exitCode, 0) << errors_;
}

TEST_F(DriverCheck, InfFolderIsStagedAndItsDriverInstalledForItsHardwareId) {
    const ProgramResult result = check("--inf-dir " + infFolder() + " --hardware-id 'USBPRINT\\HalvardLumen_M510E7D3'");
    EXPECT_EQ(result.exitCode, 0) << errors_;
    EXPECT_TRUE(holds(result.output, "Driver:         Halvard Lumen M510 PCL6\n")) << result.output;
    EXPECT_TRUE(holds(result.output, "Decided by:     step 3: the client's hardware id\n"));
    EXPECT_TRUE(holds(result.output, "Installed:      by this run\n"));
    EXPECT_TRUE(
        holds(result.output,
              "Installer runs:\n  rundll32 printui.dll,PrintUIEntry /ia /u /q /f \"C:\\Windows\\INF\\halvard.inf\" "
              "/m \"Halvard Lumen M510 PCL6\"\n"));
}

TEST_F(DriverCheck, CompatibleIdOfTheSecondInfIsMatchedInStepFivePassOne) {
    const ProgramResult result = check(
        "--inf-dir " + infFolder() + " --hardware-id 'USBPRINT\\Unknown' --compat-id 'LPTENUM\\PellucidQuill_50A4E0'");
    EXPECT_EQ(result.exitCode, 0) << errors_;
    EXPECT_TRUE(holds(result.output, "Driver:         Pellucid Quill 50\n")) << result.output;
    EXPECT_TRUE(holds(result.output, "Decided by:     step 5, pass 1: the client's compatible ids\n"));
    EXPECT_TRUE(holds(result.output, "/f \"C:\\Windows\\INF\\PELLUCID.INF\" /m \"Pellucid Quill 50\"\n"));
}

TEST_F(DriverCheck, JsonPrintsTheReplyRecordAloneAndFlagsOverrideTheDescription) {
    const std::string description = R"({"printerName":"Front desk","OS":"Windows","ClientRenderSupported":["XPS"],)"
                                    R"("hardwareId":"USBPRINT\\Unknown"})";
    const ProgramResult result = check("--host " + demoHost() + " " + writeDescription(description) +
                                       " --hardware-id 'USBPRINT\\AcmeLaserBox_2000EA13' --mode 2 --json");
    EXPECT_EQ(result.exitCode, 0) << errors_;
    EXPECT_EQ(result.output,
              R"({"detail":{"driverNamePicked":"Acme LaserBox 2000","driverNameReq":"",)"
              R"("hwid":"USBPRINT\\AcmeLaserBox_2000EA13","matchedBus":true,)"
              R"("matchedHwid":"USBPRINT\\AcmeLaserBox_2000EA13","preinstalled":true,"printerName":"Front desk",)"
              R"j("to":"compatHwid"},"warn":"_addPrinter called with no driverName (possibly CUPS printer)"})j"
              "\n");
}

TEST_F(DriverCheck, DescriptionIsReadFromStandardInput) {
    const ProgramResult result = check("--host " + demoHost() + " --json - < " +
                                       writeDescription(R"({"driverName":"Acme LaserBox 2000","OS":"Linux"})"));
    EXPECT_EQ(result.exitCode, 0) << errors_;
    EXPECT_EQ(result.output,
              R"({"detail":{"driverNamePicked":"Acme LaserBox 2000","driverNameReq":"Acme LaserBox 2000",)"
              R"("from":"DriverName","hwid":"","preinstalled":true,"printerName":"Client printer","to":"DriverName"}})"
              "\n");
}

TEST_F(DriverCheck, WindowsClientInBasicModeGetsTheInstalledXpsDriverWithTheMark) {
    const ProgramResult result = check("--host " + demoHost() +
                                       " --mode 1 --os Windows --installed 'Quillion Client Render XPS'"
                                       " --hardware-id 'USBPRINT\\AcmeLaserBox_2000EA13'");
    EXPECT_EQ(result.exitCode, 0) << errors_;
    EXPECT_TRUE(holds(result.output, "Driver:         Quillion Client Render XPS\n")) << result.output;
    EXPECT_TRUE(holds(result.output, "Decided by:     step 1: forced client rendering, with the fallback driver\n"));
    EXPECT_TRUE(holds(result.output, "Installed:      already, on the host\nInstaller runs: none\n"));
    EXPECT_TRUE(holds(result.output, "Comment mark:   \"(Client Rendered) \"\n"));
    EXPECT_TRUE(holds(result.output, "Trail:\n  DRV_MATCH: Forced client render with:Quillion Client Render XPS\n"));
}

TEST_F(DriverCheck, MacDescriptionIsMatchedThroughItsMakeAndModel) {
    const ProgramResult result =
        check("--host " + demoHost() + " --os OSX --make-and-model 'Acme LaserBox 2000' --verbose");
    EXPECT_EQ(result.exitCode, 0) << errors_;
    EXPECT_TRUE(holds(result.output, "Driver:         Acme LaserBox 2000\n")) << result.output;
    EXPECT_TRUE(holds(result.output, "Decided by:     step 5, pass 2: checksummed make-and-model ids\n"));
    EXPECT_TRUE(holds(result.output, "Warning:        no hardwareId supplied\n"));
    EXPECT_TRUE(holds(result.output, "\"from\":\"checksummedMakeAndModelHwid\""));
    EXPECT_FALSE(holds(result.output, "Comment mark:")) << "the forced fallback could not be had";
    EXPECT_TRUE(holds(result.output, "Log of the selection:\n  VexorPrintingService::GetClientOS: Client OS is:OSX\n"));
    EXPECT_TRUE(holds(result.output, "  VexorPrintingService::selectDriver: no hardwareId supplied\n"));
}

TEST_F(DriverCheck, MacClientGetsTheImagesetterWhenTheHostHasIt) {
    const ProgramResult result = check("--host " + demoHost() +
                                       " --os OSX --make-and-model 'Acme LaserBox 2000'"
                                       " --installed 'MS Publisher Imagesetter'");
    EXPECT_EQ(result.exitCode, 0) << errors_;
    EXPECT_TRUE(holds(result.output, "Driver:         MS Publisher Imagesetter\n")) << result.output;
    EXPECT_TRUE(holds(result.output, "Decided by:     step 1: forced client rendering, with the fallback driver\n"));
    EXPECT_TRUE(holds(result.output, "Comment mark:   \"(Client Rendered) \"\n"));
}

TEST_F(DriverCheck, SeriesNameIsToldApartFromThePlainName) {
    const std::string printer = " --os Linux --make-and-model 'Halvard Lumen P420'";
    const ProgramResult plain = check("--inf-dir " + infFolder() + printer + " --installed 'Halvard Lumen P420'");
    EXPECT_TRUE(holds(plain.output, "Decided by:     step 7: make-and-model strings as driver names\n"))
        << plain.output;
    const ProgramResult series =
        check("--inf-dir " + infFolder() + printer + " --installed 'Halvard Lumen P420 Series'");
    EXPECT_TRUE(holds(series.output, "Driver:         Halvard Lumen P420 Series\n")) << series.output;
    EXPECT_TRUE(
        holds(series.output, "Decided by:     step 9: make-and-model strings with \" Series\" as driver names\n"));
}

TEST_F(DriverCheck, NoDriverExitsWithOneAndTheServicesText) {
    const ProgramResult result = check("--host " + demoHost() + " --os Linux --hardware-id 'USBPRINT\\Nothing'");
    EXPECT_EQ(result.exitCode, 1) << errors_;
    EXPECT_EQ(result.output,
              "No driver:      Could not find a driver for the printer\n"
              "Decided by:     step 11: no step found a driver\n"
              "Installer runs: none\n"
              "Warning:        _addPrinter called with no driverName (possibly CUPS printer)\n"
              "Detail:         {\"driverNameReq\":\"\",\"hwid\":\"USBPRINT\\\\Nothing\",\"printerName\":\"Client "
              "printer\"}\n"
              "Trail:\n"
              "  DRV_MATCH:Failed to find driver for printer.\n");
    const ProgramResult json = check("--host " + demoHost() + " --os Linux --hardware-id 'USBPRINT\\Nothing' --json");
    EXPECT_EQ(json.exitCode, 1);
    EXPECT_TRUE(holds(json.output, R"("err":"Could not find a driver for the printer")")) << json.output;
}

TEST_F(DriverCheck, BadUsageExitsWithTwoNamingTheOptionOrFile) {
    const std::vector<std::pair<std::string, std::string>> cases = {
        {"--host " + demoHost() + " --os OSX --mode basic", "--mode needs a whole number"},
        {"--host " + demoHost() + " --os OSX --frobnicate", "unknown option --frobnicate"},
        {"--host " + demoHost() + " --hardware-id", "option --hardware-id needs a value"},
        {"--host " + demoHost(), "no printer"},
        {"--os OSX", "no host"},
        {"--host " + quoted((root_ / "missing.json").string()) + " --os OSX",
         "cannot read the host file " + (root_ / "missing.json").string()},
        {"--inf-dir " + quoted(root_.string()) + " --os OSX", "--inf-dir " + root_.string() + " holds no .inf file"},
        {"--host " + demoHost() + " " + writeDescription("[1]"),
         "the printer description " + (root_ / "printer.json").string() + " is not a JSON object"},
    };
    for (const auto& [arguments, complaint] : cases) {
        const ProgramResult result = check(arguments);
        EXPECT_EQ(result.exitCode, 2) << arguments;
        EXPECT_EQ(result.output, "") << arguments;
        EXPECT_TRUE(holds(errors_, "vexor-driver-check: " + complaint)) << arguments << "\n" << errors_;
    }
}

TEST_F(DriverCheck, HelpTellsEveryOption) {
    const ProgramResult result = check("--help");
    EXPECT_EQ(result.exitCode, 0);
    for (const char* option : {"--host FILE", "--inf-dir DIR", "--installed NAME", "--mode N", "PRINTER.json | -",
                               "--hardware-id ID", "--make-and-model T", "--device-id TEXT", "--os OS",
                               "--driver-name NAME", "--compat-id ID", "--json", "--verbose"})
        EXPECT_TRUE(holds(result.output, "\n  " + std::string(option))) << option;
}

TEST_F(DriverCheck, BadHostFileIsNamed) {
    const fs::path host = root_ / "bad.json";
    std::ofstream(host) << R"({"drives": {"C": "c"}, "drivez": []})";
    const ProgramResult result = check("--host " + quoted(host.string()) + " --os OSX");
    EXPECT_EQ(result.exitCode, 2);
    EXPECT_TRUE(holds(errors_, "the host file " + host.string() + ": unknown key \"drivez\"")) << errors_;
}

}  // namespace
