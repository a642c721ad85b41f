// Device modes as the spooler keeps them: one block holding the DEVMODEW
// record and the driver's private bytes behind it (dmSize bytes of record,
// then dmDriverExtra bytes).
#include "simhost/winspool/spooler.h"

#include <algorithm>
#include <cstring>
#include <cwchar>

namespace simhost {
namespace winspool {

std::vector<BYTE> devModeBlock(DEVMODEW publicPart, const std::vector<BYTE>& privateBytes) {
    publicPart.dmSize = sizeof(DEVMODEW);
    publicPart.dmDriverExtra = static_cast<WORD>(privateBytes.size());
    std::vector<BYTE> block(sizeof(DEVMODEW) + privateBytes.size());
    std::memcpy(block.data(), &publicPart, sizeof(DEVMODEW));
    if (!privateBytes.empty()) std::memcpy(block.data() + sizeof(DEVMODEW), privateBytes.data(), privateBytes.size());
    return block;
}

DEVMODEW devModeRecord(const std::vector<BYTE>& block) {
    DEVMODEW record{};
    std::memcpy(&record, block.data(), std::min(block.size(), sizeof(DEVMODEW)));
    return record;
}

std::vector<BYTE> devModePrivateBytes(const std::vector<BYTE>& block) {
    if (block.size() <= sizeof(DEVMODEW)) return {};
    return std::vector<BYTE>(block.begin() + sizeof(DEVMODEW), block.end());
}

DEVMODEW typicalDevMode(const std::wstring& deviceName) {
    DEVMODEW mode{};
    std::wcsncpy(mode.dmDeviceName, deviceName.c_str(), CCHDEVICENAME - 1);
    mode.dmSpecVersion = DM_SPECVERSION;
    mode.dmDriverVersion = 0x0600;
    mode.dmSize = sizeof(DEVMODEW);
    mode.dmFields = DM_ORIENTATION | DM_PAPERSIZE | DM_COPIES | DM_DEFAULTSOURCE | DM_PRINTQUALITY | DM_COLOR |
                    DM_DUPLEX | DM_YRESOLUTION | DM_COLLATE | DM_FORMNAME;
    mode.dmOrientation = DMORIENT_PORTRAIT;
    mode.dmPaperSize = DMPAPER_LETTER;
    mode.dmScale = 100;
    mode.dmCopies = 1;
    mode.dmDefaultSource = DMBIN_AUTO;
    mode.dmPrintQuality = 600;
    mode.dmColor = DMCOLOR_COLOR;
    mode.dmDuplex = DMDUP_SIMPLEX;
    mode.dmYResolution = 600;
    mode.dmCollate = DMCOLLATE_TRUE;
    std::wcsncpy(mode.dmFormName, L"Letter", CCHFORMNAME - 1);
    return mode;
}

}  // namespace winspool
}  // namespace simhost
