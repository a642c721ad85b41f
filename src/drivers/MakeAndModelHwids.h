// Hardware ids for clients that describe a printer by make and model, or by
// an IEEE-1284 device id, instead of offering a Windows hardware id. Pure
// string and JSON logic: the ids have the shape that the platform's printer
// bus enumerators generate, so they can be matched against driver INF files.
#pragma once

#include <json/json.h>

#include <string>

namespace PrinterUtil {

// The enumerator-style id of a device: `first` and `second` joined in UTF-8,
// blanks turned into "_", cut to 20 bytes, followed by the four upper-case
// hexadecimal digits of the 16-bit checksum of the joined text.
std::wstring checksummedHwid(const std::wstring& first, const std::wstring& second);

// Takes manufacturer ("MFG:") and model ("MDL:") out of the request's
// "device-id". True only if both were found; fills each one it found.
bool getMacManufacturerModelStr(const Json::Value& request, std::wstring& manufacturer, std::wstring& model);

// The checksummed id of the request's device id, or empty without one.
std::wstring deviceIdToChecksummedHwid(const Json::Value& request);

// The distinct make-and-model strings of a request, trimmed, in byte order.
Json::Value getMakeAndModelStrings(const Json::Value& request);

// Appends one checksummed id per blank of `makeAndModel`, each blank taken in
// turn as the border between manufacturer and model.
void addChecksummedMakeAndModelHwids(std::wstring makeAndModel, Json::Value& ids);

// Appends the 2^n spellings of `makeAndModel` with each of its n blanks
// either turned into "_" or removed, underscores first.
void addMakeAndModelHwids(std::wstring makeAndModel, Json::Value& ids);

}  // namespace PrinterUtil
