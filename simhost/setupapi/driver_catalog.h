// The drivers the machine's INF files offer for a setup class, as a class
// driver list holds them: one per line of the models section each
// manufacturer names for this host, an amd64 machine running Windows 10.0.
#pragma once

#include "simhost/setupapi/inf_parser.h"
#include "simhost/setupapi/setupapi.h"

#include <string>
#include <vector>

namespace simhost {
namespace setupapi {

struct DriverInfo {
    std::wstring description;   // the model line's key
    std::wstring mfgName;       // the manufacturer line's key
    std::wstring providerName;  // [Version] Provider
    std::wstring sectionName;   // the model's install section
    std::wstring infFileName;   // the Windows path of the INF file
    // The hardware id (empty when the line gives none), then the compatible
    // ids, as the model line lists them.
    std::vector<std::wstring> ids;
    FILETIME driverDate{};  // from [Version] DriverVer; zero without one
    DWORDLONG driverVersion = 0;
    FILETIME infDate{};  // the INF file's last write time
    // What SP_DRVINFO_DATA_V2_W.Reserved carries; given when a list is built.
    ULONG_PTR token = 0;
};

// The drivers of one parsed INF file, in the order of its manufacturer lines
// and their models lines. The file's class is not looked at here.
std::vector<DriverInfo> infDrivers(const InfFile& file, const std::wstring& windowsPath, const FILETIME& infDate);

// The drivers of every INF file of this class in C:\Windows\INF and in the
// packages of the driver store, in that order, each folder by name. Files
// that do not parse, or are not WIN4 files, are left out.
std::vector<DriverInfo> classDrivers(const GUID& classGuid);

// Whether a parsed INF file is of the class: its [Version] Class names the
// class, or its ClassGuid is the class's GUID.
bool infIsOfClass(const InfFile& file, const GUID& classGuid);

}  // namespace setupapi
}  // namespace simhost
