// A user's override settings: the input is the text of a printer's comment
// as a client sends it. It goes through the unescaping alone, then through
// the whole laying-over on a request, as printer creation does it, and the
// request that results is written back as a reply would be.
#include "foundation/ClassicJson.h"
#include "printers/OverrideSettings.h"
#include "service/VexorPrintingService.h"

#include <cstddef>
#include <cstdint>
#include <string>

namespace {

// One service object for the process: the laying-over is one of its methods
// and reads the host's switch for it once. Constructing it opens no socket;
// with no drive mapped, its log lines are formatted and go nowhere.
VexorPrintingService& service() {
    static VexorPrintingService* const instance = new VexorPrintingService();
    return *instance;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    unescapeOverrideText(text);

    Json::Value request(Json::objectValue);
    request["msg"] = "createPrinter";
    request["pComment"] = text;
    service().applyOverrideSettings(request);
    writeCompact(request);
    return 0;
}
