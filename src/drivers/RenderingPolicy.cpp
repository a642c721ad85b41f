// Which rendering a client gets, and which driver stands in for its printer
// when the host does not render for it. Windows clients follow the printing
// mode of the policy, read afresh on every call so that a policy change
// reaches the next printer; Mac clients follow what they say they accept.
#include "drivers/InstalledDrivers.h"
#include "foundation/JsonGetters.h"
#include "foundation/PolicySettings.h"
#include "foundation/StaticLogger.h"
#include "service/VexorPrintingService.h"

namespace {

constexpr const char* kWindows = "Windows";
constexpr const char* kMac = "OSX";
constexpr const wchar_t* kWindowsFallback = L"Quillion Client Render XPS";
constexpr const wchar_t* kMacFallback = L"MS Publisher Imagesetter";

// Keys whose presence alone tells a client's OS.
constexpr const char* kMacKeys[] = {"device-info", "device-uri", "printer-uri-supported", "printer-make-and-model"};
constexpr const char* kWindowsKeys[] = {"pDevMode", "pPrintProcessor"};

template <size_t N>
bool hasAnyKey(const Json::Value& request, const char* const (&keys)[N]) {
    for (const char* key : keys)
        if (request.isMember(key)) return true;
    return false;
}

// Basic printing mode: Windows clients are rendered for on their side.
bool basicPrintingMode() { return getGPOValue(kRemotePrintingEnabled, kRemotePrintingEnabledDefault) == 1; }

}  // namespace

std::string VexorPrintingService::GetClientOS(const Json::Value& request) {
    std::string os = getJsonString("OS", request, "");
    if (os.empty() && hasAnyKey(request, kMacKeys)) os = kMac;
    if (os.empty() && hasAnyKey(request, kWindowsKeys)) os = kWindows;
    VX_LOG(kLogNormal, kNoLastError, 2, "Client OS is:%s", os.c_str());
    return os;
}

bool VexorPrintingService::forceClientSideRendering(const Json::Value& request) {
    const std::string os = GetClientOS(request);
    VX_LOG(kLogNormal, kNoLastError, 2, "Checking forceClientSideRendering for:%s", os.c_str());
    if (os == kWindows) {
        const bool basic = basicPrintingMode();
        if (basic) {
            VX_LOG(kLogNormal, kNoLastError, 3, "forceing client side rendering explicitly enabled");
            return true;
        }
        VX_LOG(kLogNormal, kNoLastError, 3, "forceing client side rendering explicitly disabled with:%u",
               static_cast<unsigned>(basic));
        return false;
    }
    // No key is opened: the line stands for every client that is not Windows.
    VX_LOG(kLogNormal, kNoLastError, 3,
           "Failed to open registry key for forceing client side rendering. "
           "Use:'HKLM\\SYSTEM\\CurrentControlSet\\Services\\Vexor_Printing\\forceClientSideRendering\\%s'",
           os.c_str());
    if (os == kMac) {
        if (getJsonInt("HostRenderSupported", request, -1) >= 1) {
            VX_LOG(kLogNormal, kNoLastError, 3,
                   "Force client side rendering for OS X is unspecified, but Client specificly states "
                   "HostRenderSupported. So we will not force.");
            return false;
        }
        VX_LOG(kLogNormal, kNoLastError, 3,
               "Forcing client side rendering for OS X by default. Client HostRenderSupported unspecified");
        return true;
    }
    VX_LOG(kLogNormal, kNoLastError, 3, "NOT forcing client side rendering by default");
    return false;
}

std::wstring VexorPrintingService::GetFallbackDriver(const Json::Value& request) {
    VX_LOG(kLogNormal, kNoLastError, 2, "Checking fallbackDriver");
    const std::string os = GetClientOS(request);
    std::wstring name;
    if (os == kWindows && basicPrintingMode()) {
        name = kWindowsFallback;
    } else {
        // No key is opened here either.
        VX_LOG(kLogNormal, kNoLastError, 3,
               "Failed to open registry key for fallback driver. "
               "use:'HKLM\\SYSTEM\\CurrentControlSet\\Services\\Vexor_Printing\\fallbackDriver\\%s'",
               os.c_str());
        if (os == kMac) {
            name = kMacFallback;
            VX_LOG(kLogNormal, kNoLastError, 3, "Using OSX hardcoded fallback driver");
        } else if (os == kWindows && request.isMember("ClientRenderSupported")) {
            const Json::Value& supported = request["ClientRenderSupported"];
            if (!supported.isArray()) {
                VX_LOG(kLogError, kNoLastError, 5, "bad ClientRenderSupported value");
            } else {
                for (const Json::Value& format : supported) {
                    if (!format.isString() || format.asString() != "XPS") continue;
                    name = kWindowsFallback;
                    VX_LOG(kLogNormal, kNoLastError, 3, "Using Windows hardcoded XPS fallback driver");
                    break;
                }
            }
        }
    }
    if (!name.empty()) {
        // Whether it is there changes nothing: installing it is the caller's
        // business.
        if (PrinterUtil::printerDriverInstalled(name))
            VX_LOG(kLogNormal, kNoLastError, 3, "fallback driver%ls already installed", name.c_str());
    } else {
        // Only ever reached with no name, so the install always fails; its
        // lines are kept as they are.
        VX_LOG(kLogNormal, kNoLastError, 4, "fallback driver%ls NOT already installed", name.c_str());
        if (PrinterUtil::installDriverByName(name, driverInfoMap))
            VX_LOG(kLogNormal, kNoLastError, 4, "fallback driver%ls was installed", name.c_str());
        else
            VX_LOG(kLogError, kNoLastError, 5, "fallback driver%ls could not be installed", name.c_str());
    }
    VX_LOG(kLogNormal, kNoLastError, 3, "Using fallback driver:%ls", name.c_str());
    return name;
}
