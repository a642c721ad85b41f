// The printer cleanup thread: once at its start and then every 24 hours it
// walks the present devices of the machine and removes the service's own
// leftover nodes, those with one of its two descriptions and no hardware id.
#include "foundation/StaticLogger.h"
#include "service/VexorPrintingService.h"

#include <exception>
#include <string>
#include <vector>

namespace {

constexpr DWORD kCleanupPeriodMs = 86400000;
constexpr DWORD kFirstPropertyBufferBytes = 2048;
constexpr DWORD kDeviceInfoDataSize = 32;
const wchar_t* const kServiceDeviceDescriptions[] = {L"Quillion Client Render XPS", L"dorvan description"};

// One property as text up to its first NUL (a multi-string reads as its first
// string). A property that cannot be read reads as empty.
std::wstring readDeviceProperty(HDEVINFO devices, SP_DEVINFO_DATA* device, DWORD property) {
    std::vector<BYTE> buffer(kFirstPropertyBufferBytes, 0);
    DWORD required = 0;
    BOOL read = SetupDiGetDeviceRegistryPropertyW(devices, device, property, nullptr, buffer.data(),
                                                 static_cast<DWORD>(buffer.size()), &required);
    if (!read && GetLastError() == ERROR_INSUFFICIENT_BUFFER) {
        buffer.assign(required, 0);
        read = SetupDiGetDeviceRegistryPropertyW(devices, device, property, nullptr, buffer.data(),
                                                 static_cast<DWORD>(buffer.size()), &required);
    }
    if (!read) return std::wstring();
    const wchar_t* text = reinterpret_cast<const wchar_t*>(buffer.data());
    size_t length = 0;
    while ((length + 1) * sizeof(wchar_t) <= buffer.size() && text[length]) ++length;
    return std::wstring(text, length);
}

bool isServiceDeviceDescription(const std::wstring& description) {
    for (const wchar_t* text : kServiceDeviceDescriptions)
        if (description == text) return true;
    return false;
}

}  // namespace

void VexorPrintingService::removeStalePrinters() {
    HDEVINFO devices = SetupDiGetClassDevsW(nullptr, nullptr, nullptr, DIGCF_PRESENT | DIGCF_ALLCLASSES);
    if (devices == INVALID_HANDLE_VALUE) {
        VX_LOG(kLogError, kWithLastError, 4, "Failed to get device information set.");
        return;
    }
    unsigned removed = 0;
    for (DWORD index = 0;; ++index) {
        if (cleanupStopping.load()) {
            VX_LOG(kLogNormal, kNoLastError, 3,
                   "Printer clean up in progress but need to stop due to service stop or shutdown.");
            break;
        }
        SP_DEVINFO_DATA device = {};
        device.cbSize = kDeviceInfoDataSize;
        if (!SetupDiEnumDeviceInfo(devices, index, &device)) {
            VX_LOG(kLogNormal, kNoLastError, 3, "Done retrieving device info. Last error [%u].",
                   static_cast<unsigned>(GetLastError()));
            break;
        }
        if (!isServiceDeviceDescription(readDeviceProperty(devices, &device, SPDRP_DEVICEDESC))) continue;
        // A node that still has a hardware id is in use.
        if (!readDeviceProperty(devices, &device, SPDRP_HARDWAREID).empty()) continue;
        SetupDiRemoveDevice(devices, &device);
        ++removed;
    }
    if (!SetupDiDestroyDeviceInfoList(devices))
        VX_LOG(kLogError, kNoLastError, 4, "Failed to destroy device info list.");
    VX_LOG(kLogNormal, kNoLastError, 3, "Number of stale printers removed [%u].", removed);
}

void VexorPrintingService::PrinterCleanupThread() {
    VX_LOG(kLogNormal, kNoLastError, 4, "Printer cleanup thread started.");
    for (;;) {
        try {
            removeStalePrinters();
        } catch (const std::exception& e) {
            VX_LOG(kLogError, kNoLastError, 5, "exception in removeStalePrinters() caught:%s", e.what());
        }
        if (cleanupStopping.load()) break;
        // Only the time-out starts another pass; a wake-up or a failed wait
        // ends the thread.
        DWORD waitResult = WaitForSingleObject(cleanupWakeEvent, kCleanupPeriodMs);
        if (waitResult == WAIT_TIMEOUT) continue;
        if (waitResult == WAIT_OBJECT_0)
            VX_LOG(kLogNormal, kNoLastError, 3, "Printer clean up thread received wake up event.");
        else
            VX_LOG(kLogError, kWithLastError, 4, "WaitForSingleObject() failed on wait for wake up. waitResult [%u].",
                   static_cast<unsigned>(waitResult));
        break;
    }
    SetEvent(cleanupStoppedEvent);
    VX_LOG(kLogNormal, kNoLastError, 4, "Printer cleanup thread exiting.");
}
