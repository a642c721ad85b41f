// The ids made from a client's description of its printer: the input is the
// JSON text of a request. Its device id gives the checksummed id, its
// make-and-model texts give the checksummed ids and the spellings, as the
// driver ladder makes them.
//
// The spellings double with every blank of a text, by design, and a request
// may hold texts of any length (docs/fuzzing.md has the figures). A text
// with more than kMaxSpelledBlanks blanks gets its checksummed ids only, so
// that the target spends its time on new inputs rather than on that known
// growth; up to that bound the growth itself is reached.
#include "drivers/MakeAndModelHwids.h"
#include "foundation/ClassicJson.h"
#include "foundation/TextConversion.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <exception>
#include <string>

namespace {

constexpr std::ptrdiff_t kMaxSpelledBlanks = 10;

bool parseRequest(const uint8_t* data, size_t size, Json::Value& request) {
    try {
        return parseWithClassicReader(std::string(reinterpret_cast<const char*>(data), size), request) &&
               request.isObject();
    } catch (const std::exception&) {
        return false;
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    Json::Value request;
    if (!parseRequest(data, size, request)) return 0;
    PrinterUtil::deviceIdToChecksummedHwid(request);

    Json::Value ids(Json::arrayValue);
    for (const Json::Value& text : PrinterUtil::getMakeAndModelStrings(request)) {
        const std::wstring makeAndModel = utf8ToWide(text.asString());
        PrinterUtil::addChecksummedMakeAndModelHwids(makeAndModel, ids);
        if (std::count(makeAndModel.begin(), makeAndModel.end(), L' ') <= kMaxSpelledBlanks)
            PrinterUtil::addMakeAndModelHwids(makeAndModel, ids);
    }
    return 0;
}
