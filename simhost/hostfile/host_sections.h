// The sections of a host file, each read into one component of the machine
// and, where the state file reports it, described back from it.
#pragma once

#include "simhost/wintypes.h"

#include <json/json.h>

#include <functional>
#include <string>
#include <vector>

namespace simhost {

struct HostSection {
    const char* key;
    // Arranges the component from the section; throws HostFileError.
    std::function<void(const Json::Value& section, const std::string& baseDirectory)> apply;
    // The component's state for the state file; empty for sections that are
    // arrangements only.
    std::function<Json::Value()> describe;
};

// All sections, in the order they are applied.
const std::vector<HostSection>& hostSections();
bool isHostSection(const std::string& key);

// When the host says the process was started by the control manager,
// SIGTERM and SIGINT become stop controls for the service. With a state
// file named, SIGUSR1 writes the machine's state there at once, so that a
// running service's spooler can be looked at.
void startControlSignalBridge(const std::string& stateFilePath);

// The directory of the host file being applied, which "copyFiles" sources
// are relative to.
const std::string& hostFileDirectory();

// Readers that name what is wrong, for the sections.
std::string requireString(const Json::Value& value, const std::string& what);
std::wstring requireWideString(const Json::Value& value, const std::string& what);
DWORD requireDword(const Json::Value& value, const std::string& what);
std::vector<std::wstring> requireWideStrings(const Json::Value& value, const std::string& what);
void requireObject(const Json::Value& value, const std::string& what);
void requireArray(const Json::Value& value, const std::string& what);
// Refuses a key of `entry` that is not among `known`, naming it and `what`.
void requireKnownKeys(const Json::Value& entry, const std::vector<std::string>& known, const std::string& what);

// The section of a key the state file reports and a host file cannot set.
void reportOnly(const Json::Value& section, const std::string& baseDirectory);

// The sections of the printer installation tool (installer_sections.cpp).
void applyInstaller(const Json::Value& installer, const std::string& baseDirectory);
Json::Value describeInstallerRuns();

// The sections of the print spooler (spooler_sections.cpp) and of injected
// faults (fault_section.cpp).
void applyDrivers(const Json::Value& drivers, const std::string& baseDirectory);
Json::Value describeDrivers();
void applyPorts(const Json::Value& ports, const std::string& baseDirectory);
Json::Value describePorts();
void applyPrinters(const Json::Value& printers, const std::string& baseDirectory);
Json::Value describePrinters();
void applyDefaultPrinters(const Json::Value& defaults, const std::string& baseDirectory);
Json::Value describeDefaultPrinters();
void applyFaults(const Json::Value& faults, const std::string& baseDirectory);

// The COM objects not yet released, for the state file (com_section.cpp).
Json::Value describeComObjects();

}  // namespace simhost
