#include "CheckOptions.h"

#include "foundation/ClassicJson.h"

#include <cstdlib>
#include <fstream>
#include <functional>
#include <iostream>
#include <iterator>

namespace driver_check {

const char* const kUsageText =
    "usage: vexor-driver-check [--host FILE] [--inf-dir DIR] [--installed NAME[=HWID]]... [--mode N]\n"
    "                          [PRINTER.json | -] [--hardware-id ID] [--make-and-model TEXT]\n"
    "                          [--device-id TEXT] [--os OS] [--driver-name NAME] [--compat-id ID]...\n"
    "                          [--json] [--verbose]\n"
    "Tells which driver the printing service gives a client printer on a host, and why,\n"
    "by running the service's driver selection on a simulated copy of the host.\n"
    "Host (--host, --inf-dir or both):\n"
    "  --host FILE          a host file: the host's driver store and installed drivers\n"
    "  --inf-dir DIR        every *.inf file of DIR, staged in C:\\Windows\\INF (with --host: added)\n"
    "  --installed NAME     a driver to count as installed; NAME=HWID gives its hardware id (repeatable)\n"
    "  --mode N             the printing mode, policy value vexor.remote_printing_enabled\n"
    "                       (without it: the host file's, else the service's default, 1)\n"
    "Printer (a plugin's request: a file, flags or both; the flags override the file's keys):\n"
    "  PRINTER.json | -     the request as a JSON object, from a file or standard input\n"
    "  --hardware-id ID     hardwareId\n"
    "  --make-and-model T   printer-make-and-model\n"
    "  --device-id TEXT     device-id, the IEEE-1284 device id (MFG:...;MDL:...;)\n"
    "  --os OS              OS: Windows, OSX or another\n"
    "  --driver-name NAME   driverName, the driver the client asks for\n"
    "  --compat-id ID       one of compatHwids (repeatable)\n"
    "  printerName is \"Client printer\" unless the file gives one.\n"
    "Report:\n"
    "  --json               print the reply record alone, as compact JSON\n"
    "  --verbose            also print every log line of the selection\n"
    "Exit status: 0 a driver was chosen, 1 none was, 2 bad usage, host or printer description.\n";

namespace {

constexpr const char* kDefaultPrinterName = "Client printer";

// The flags that set one string key of the request.
struct DescriptionFlag {
    const char* option;
    const char* key;
};
constexpr DescriptionFlag kDescriptionFlags[] = {
    {"--hardware-id", "hardwareId"}, {"--make-and-model", "printer-make-and-model"},
    {"--device-id", "device-id"},    {"--os", "OS"},
    {"--driver-name", "driverName"},
};

using NextValue = std::function<std::string()>;

InstalledDriver installedDriverOf(const std::string& text) {
    const size_t equals = text.find('=');
    InstalledDriver driver{text.substr(0, equals), equals == std::string::npos ? "" : text.substr(equals + 1)};
    if (driver.name.empty()) throw UsageError("--installed needs a driver name, not \"" + text + "\"");
    return driver;
}

uint32_t printingModeOf(const std::string& text) {
    const bool digitsOnly = !text.empty() && text.find_first_not_of("0123456789") == std::string::npos;
    const unsigned long long mode = digitsOnly ? std::strtoull(text.c_str(), nullptr, 10) : ~0ull;
    if (mode > 0xFFFFFFFFull)
        throw UsageError("--mode needs a whole number from 0 to 4294967295, not \"" + text + "\"");
    return static_cast<uint32_t>(mode);
}

bool applySwitch(const std::string& argument, CheckOptions& options) {
    if (argument == "--json")
        options.json = true;
    else if (argument == "--verbose")
        options.verbose = true;
    else if (argument == "--help" || argument == "-h")
        options.help = true;
    else
        return false;
    return true;
}

bool applyHostOption(const std::string& argument, const NextValue& value, CheckOptions& options) {
    if (argument == "--host")
        options.hostFile = value();
    else if (argument == "--inf-dir")
        options.infDirectory = value();
    else if (argument == "--installed")
        options.installed.push_back(installedDriverOf(value()));
    else if (argument == "--mode")
        options.printingMode = printingModeOf(value());
    else
        return false;
    return true;
}

bool applyDescriptionOption(const std::string& argument, const NextValue& value, CheckOptions& options) {
    if (argument == "--compat-id") {
        options.descriptionKeys["compatHwids"].append(value());
        return true;
    }
    for (const DescriptionFlag& flag : kDescriptionFlags) {
        if (argument != flag.option) continue;
        options.descriptionKeys[flag.key] = value();
        return true;
    }
    return false;
}

void takeDescriptionFile(const std::string& argument, CheckOptions& options) {
    if (argument.size() > 1 && argument[0] == '-') throw UsageError("unknown option " + argument);
    if (!options.descriptionFile.empty())
        throw UsageError("one printer description only, not both " + options.descriptionFile + " and " + argument);
    options.descriptionFile = argument;
}

void requireHostAndPrinter(const CheckOptions& options) {
    if (options.hostFile.empty() && options.infDirectory.empty())
        throw UsageError("no host: give --host FILE, --inf-dir DIR or both");
    if (options.descriptionFile.empty() && options.descriptionKeys.empty())
        throw UsageError(
            "no printer: give its request as a JSON file (- for standard input), or --hardware-id, "
            "--make-and-model, --device-id, --os, --driver-name or --compat-id");
}

std::string descriptionName(const std::string& file) { return file == "-" ? "standard input" : file; }

std::string readDescriptionText(const std::string& file) {
    if (file == "-") return std::string(std::istreambuf_iterator<char>(std::cin), std::istreambuf_iterator<char>());
    std::ifstream in(file, std::ios::binary);
    if (!in) throw UsageError("cannot read the printer description " + file);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

// Read as the service reads a request, with the wire protocol's reader.
Json::Value readDescription(const std::string& file) {
    Json::Value request;
    bool parsed = false;
    try {
        parsed = parseWithClassicReader(readDescriptionText(file), request);
    } catch (const Json::Exception&) {
        parsed = false;
    }
    if (!parsed || !request.isObject())
        throw UsageError("the printer description " + descriptionName(file) + " is not a JSON object");
    return request;
}

}  // namespace

CheckOptions parseCheckOptions(const std::vector<std::string>& arguments) {
    CheckOptions options;
    for (size_t i = 0; i < arguments.size(); ++i) {
        const std::string& argument = arguments[i];
        const NextValue value = [&] {
            if (i + 1 >= arguments.size()) throw UsageError("option " + argument + " needs a value");
            return arguments[++i];
        };
        if (applySwitch(argument, options) || applyHostOption(argument, value, options) ||
            applyDescriptionOption(argument, value, options))
            continue;
        takeDescriptionFile(argument, options);
    }
    if (!options.help) requireHostAndPrinter(options);
    return options;
}

Json::Value printerRequest(const CheckOptions& options) {
    Json::Value request =
        options.descriptionFile.empty() ? Json::Value(Json::objectValue) : readDescription(options.descriptionFile);
    for (const std::string& key : options.descriptionKeys.getMemberNames()) request[key] = options.descriptionKeys[key];
    if (!request.isMember("printerName")) request["printerName"] = kDefaultPrinterName;
    return request;
}

}  // namespace driver_check
