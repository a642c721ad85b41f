// The command line of vexor-driver-check: the host to check on, the printer
// to check for, and how to report.
#pragma once

#include <json/json.h>

#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace driver_check {

// A command line, host or printer description the check cannot use; its
// text names the option or file at fault.
class UsageError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// A driver to count as installed: "Name" or "Name=HWID".
struct InstalledDriver {
    std::string name;
    std::string hardwareId;
};

struct CheckOptions {
    std::string hostFile;
    std::string infDirectory;
    std::vector<InstalledDriver> installed;
    std::optional<uint32_t> printingMode;
    // A JSON file of the request, "-" for standard input, empty for none.
    std::string descriptionFile;
    // Request keys given by flags; they override the file's.
    Json::Value descriptionKeys{Json::objectValue};
    bool json = false;
    bool verbose = false;
    bool help = false;
};

extern const char* const kUsageText;

// Throws UsageError for an unknown option, a missing or bad value, or a
// command line without host or printer.
CheckOptions parseCheckOptions(const std::vector<std::string>& arguments);

// The request a plugin would send: the description file's object, with the
// flags' keys over it and a printer name when it has none.
Json::Value printerRequest(const CheckOptions& options);

}  // namespace driver_check
