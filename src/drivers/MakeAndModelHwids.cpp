#include "drivers/MakeAndModelHwids.h"

#include "foundation/JsonGetters.h"
#include "foundation/StaticLogger.h"
#include "foundation/TextConversion.h"

#include <cstddef>
#include <cstdint>
#include <set>

namespace {

// Longest text part of a checksummed id, in UTF-8 bytes.
constexpr size_t kMaxIdTextBytes = 20;

// The checksum is table-driven over the reflected polynomial 0xA001, one
// table per half of the byte.
constexpr uint16_t kLowNibbleTable[16] = {0x0000, 0xC0C1, 0xC181, 0x0140, 0xC301, 0x03C0, 0x0280, 0xC241,
                                          0xC601, 0x06C0, 0x0780, 0xC741, 0x0500, 0xC5C1, 0xC481, 0x0440};
// Entry 15 differs from the polynomial's 0x4400 on purpose: the ids in
// driver INF files were generated with 0x4600, and only this table
// reproduces them.
constexpr uint16_t kHighNibbleTable[16] = {0x0000, 0xCC01, 0xD801, 0x1400, 0xF001, 0x3C00, 0x2800, 0xE401,
                                           0xA001, 0x6C00, 0x7800, 0xB401, 0x5000, 0x9C01, 0x8801, 0x4600};

uint16_t hwidChecksum(const std::string& bytes) {
    uint16_t crc = 0;
    for (unsigned char byte : bytes) {
        unsigned index = (crc ^ byte) & 0xFFu;
        crc = static_cast<uint16_t>(kHighNibbleTable[index >> 4] ^ kLowNibbleTable[index & 0x0Fu] ^ (crc >> 8));
    }
    return crc;
}

// Four upper-case hexadecimal digits, high byte first.
std::string hexDigits(uint16_t value) {
    static const char kDigits[] = "0123456789ABCDEF";
    std::string text;
    for (int shift = 12; shift >= 0; shift -= 4) text += kDigits[(value >> shift) & 0xF];
    return text;
}

// The trimmed text between `key` and the next ';' of a device id. Plain
// substring searches: a longer key that ends in the same letters matches,
// and a value without its closing ';' is not found.
bool findDeviceIdField(const std::wstring& deviceId, const std::wstring& key, std::wstring& value) {
    size_t keyAt = deviceId.find(key);
    if (keyAt == std::wstring::npos) return false;
    size_t valueAt = keyAt + key.size();
    size_t end = deviceId.find(L';', valueAt);
    if (end == std::wstring::npos) return false;
    value = trimmed(deviceId.substr(valueAt, end - valueAt));
    return true;
}

void insertIfNotEmpty(std::set<std::string>& strings, const std::string& text) {
    if (!text.empty()) strings.insert(trimmed(text));
}

// A make-and-model attribute of a CUPS client may name its driver after the
// model ("Acme Box CUPS driver"); the part before " CUPS" is the model alone.
void insertPrinterMakeAndModel(std::set<std::string>& strings, const std::string& text) {
    static const std::string kCupsMarker = " CUPS";
    if (text.empty()) return;
    std::string whole = trimmed(text);
    strings.insert(whole);
    size_t marker = whole.find(kCupsMarker);
    if (marker != std::string::npos) strings.insert(trimmed(whole.substr(0, marker)));
}

}  // namespace

namespace PrinterUtil {

std::wstring checksummedHwid(const std::wstring& first, const std::wstring& second) {
    std::string joined = wideToUtf8(first) + wideToUtf8(second);
    uint16_t crc = hwidChecksum(joined);
    for (char& byte : joined)
        if (byte == ' ') byte = '_';
    // The cut counts bytes and may split a multi-byte sequence; the
    // conversion back to wide text decides what the partial sequence becomes.
    if (joined.size() > kMaxIdTextBytes) joined.resize(kMaxIdTextBytes);
    return utf8ToWide(joined + hexDigits(crc));
}

bool getMacManufacturerModelStr(const Json::Value& request, std::wstring& manufacturer, std::wstring& model) {
    std::wstring deviceId = getJsonWString("device-id", request, L"");
    if (deviceId.empty()) {
        VX_LOG(kLogNormal, kNoLastError, 3, "No device-id in Json. Device probably not attached.");
        return false;
    }
    bool haveModel = findDeviceIdField(deviceId, L"MDL:", model);
    if (haveModel) VX_LOG(kLogNormal, kNoLastError, 2, "Got model:%ls from device-id", model.c_str());
    bool haveManufacturer = findDeviceIdField(deviceId, L"MFG:", manufacturer);
    if (haveManufacturer)
        VX_LOG(kLogNormal, kNoLastError, 2, "Got Manufacturer:%ls from device-id", manufacturer.c_str());
    return haveModel && haveManufacturer;
}

std::wstring deviceIdToChecksummedHwid(const Json::Value& request) {
    std::wstring manufacturer;
    std::wstring model;
    if (!getMacManufacturerModelStr(request, manufacturer, model)) return L"";
    return checksummedHwid(manufacturer, model);
}

Json::Value getMakeAndModelStrings(const Json::Value& request) {
    std::set<std::string> strings;
    std::string deviceMakeAndModel = getJsonString("device_make_and_model", request, "");
    if (deviceMakeAndModel.find("unknown") == std::string::npos) insertIfNotEmpty(strings, deviceMakeAndModel);
    insertPrinterMakeAndModel(strings, getJsonString("printer-make-and-model", request, ""));
    insertIfNotEmpty(strings, getJsonString("device-info", request, ""));
    insertIfNotEmpty(strings, getJsonString("device-make-and-model", request, ""));

    Json::Value result(Json::arrayValue);
    for (const std::string& text : strings) result.append(text);
    return result;
}

void addChecksummedMakeAndModelHwids(std::wstring makeAndModel, Json::Value& ids) {
    for (size_t blank = makeAndModel.find(L' '); blank != std::wstring::npos;
         blank = makeAndModel.find(L' ', blank)) {
        ids.append(wideToUtf8(checksummedHwid(makeAndModel.substr(0, blank), makeAndModel.substr(blank + 1))));
        makeAndModel.erase(blank, 1);
    }
}

void addMakeAndModelHwids(std::wstring makeAndModel, Json::Value& ids) {
    size_t blank = makeAndModel.find(L' ');
    if (blank == std::wstring::npos) {
        ids.append(wideToUtf8(makeAndModel));
        return;
    }
    makeAndModel[blank] = L'_';
    addMakeAndModelHwids(makeAndModel, ids);
    makeAndModel.erase(blank, 1);
    addMakeAndModelHwids(makeAndModel, ids);
}

}  // namespace PrinterUtil
