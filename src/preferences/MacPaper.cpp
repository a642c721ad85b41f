#include "preferences/MacPaper.h"

#include "foundation/JsonGetters.h"
#include "foundation/SpoolerAccess.h"
#include "foundation/StaticLogger.h"

#include <cstring>

namespace PrinterUtil {

// The rows with a platform constant come first, then those without. Width
// and length follow from the numbers that end each key, width first:
// inches times 254, millimetres times 10, truncated; numbers without a unit
// are millimetres. Two sizes carry the constant of another sheet and stand
// as they are: na_10x14_10x14in has 44, the platform's 9 by 11 inch sheet,
// and na_arch-c_18x24in and na_arch-d_24x36in the platform's C and D sheets.
const MacPaperEntry macPaperTable[kMacPaperTableSize] = {
    {"na_personal_3.625x6.5in", nullptr, nullptr, 920, 1651, 38},
    {"na_monarch_3.875x7.5in", nullptr, nullptr, 984, 1905, 37},
    {"na_number-9_3.875x8.875in", nullptr, nullptr, 984, 2254, 19},
    {"na_number-10_4.125x9.5in", nullptr, nullptr, 1047, 2413, 20},
    {"na_number-11_4.5x10.375in", nullptr, nullptr, 1143, 2635, 21},
    {"na_number-12_4.75x11in", nullptr, nullptr, 1206, 2794, 22},
    {"na_number-14_5x11.5in", nullptr, nullptr, 1270, 2921, 23},
    {"na_invoice_5.5x8.5in", nullptr, nullptr, 1397, 2159, 6},
    {"na_executive_7.25x10.5in", nullptr, nullptr, 1841, 2667, 7},
    {"na_quarto_8.5x10.83in", nullptr, nullptr, 2159, 2750, 15},
    {"na_letter_8.5x11in", "na-letter", "Letter", 2159, 2794, 1},
    {"na_fanfold-eur_8.5x12in", nullptr, nullptr, 2159, 3048, 40},
    {"na_letter-plus_8.5x12.69in", nullptr, nullptr, 2159, 3223, 59},
    {"na_foolscap_8.5x13in", nullptr, nullptr, 2159, 3302, 41},
    {"na_legal_8.5x14in", nullptr, nullptr, 2159, 3556, 5},
    {"na_super-a_8.94x14in", nullptr, nullptr, 2270, 3556, 57},
    {"na_9x11_9x11in", nullptr, nullptr, 2286, 2794, 44},
    {"na_letter-extra_9.5x12in", nullptr, nullptr, 2413, 3048, 50},
    {"na_legal-extra_9.5x15in", nullptr, nullptr, 2413, 3810, 51},
    {"na_10x11_10x11in", nullptr, nullptr, 2540, 2794, 45},
    {"na_10x14_10x14in", nullptr, nullptr, 2540, 3556, 44},
    {"na_ledger_11x17in", "tabloid", "Tabloid", 2794, 4318, 3},
    {"na_b-plus_12x19.17in", nullptr, nullptr, 3048, 4869, 58},
    {"na_arch-c_18x24in", nullptr, nullptr, 4572, 6096, 24},
    {"na_arch-d_24x36in", nullptr, nullptr, 6096, 9144, 25},
    {"na_e_34x44in", nullptr, nullptr, 8636, 11176, 26},
    {"iso_a6_105x148mm", nullptr, nullptr, 1050, 1480, 70},
    {"iso_a5_148x210mm", nullptr, nullptr, 1480, 2100, 11},
    {"iso_a5-extra_174x235mm", nullptr, nullptr, 1740, 2350, 64},
    {"iso_a4_210x297mm", "iso-a4", "A4", 2100, 2970, 9},
    {"iso_a4-extra_235.5x322.3mm", nullptr, nullptr, 2355, 3223, 53},
    {"iso_a3_297x420mm", nullptr, nullptr, 2970, 4200, 8},
    {"iso_a3-extra_322x445mm", nullptr, nullptr, 3220, 4450, 63},
    {"iso_a2_420x594mm", nullptr, nullptr, 4200, 5940, 66},
    {"iso_b5-extra_201x276mm", nullptr, nullptr, 2010, 2760, 65},
    {"iso_b4_250x353mm", nullptr, nullptr, 2500, 3530, 42},
    {"iso_c6_114x162mm", nullptr, nullptr, 1140, 1620, 31},
    {"iso_c6c5_114x229mm", nullptr, nullptr, 1140, 2290, 32},
    {"iso_c5_162x229mm", nullptr, nullptr, 1620, 2290, 28},
    {"iso_c4_229x324mm", nullptr, nullptr, 2290, 3240, 30},
    {"iso_c3_324x458mm", nullptr, nullptr, 3240, 4580, 29},
    {"iso_dl_110x220mm", nullptr, nullptr, 1100, 2200, 27},
    {"jis_b6_128x182mm", nullptr, nullptr, 1280, 1820, 88},
    {"jis_b5_182x257mm", nullptr, nullptr, 1820, 2570, 13},
    {"jis_b4_257x364mm", nullptr, nullptr, 2570, 3640, 12},
    {"jpn_chou4_90x205mm", nullptr, nullptr, 900, 2050, 74},
    {"jpn_hagaki_100x148mm", nullptr, nullptr, 1000, 1480, 43},
    {"jpn_you4_105x235mm", nullptr, nullptr, 1050, 2350, 91},
    {"jpn_chou3_120x235mm", nullptr, nullptr, 1200, 2350, 73},
    {"jpn_oufuku_148x200mm", nullptr, "DoublePostcardRotated", 1480, 2000, 82},
    {"jpn_kaku2_240x332mm", nullptr, nullptr, 2400, 3320, 71},
    {"prc_32k_97x151mm", nullptr, nullptr, 970, 1510, 94},
    {"prc_1_102x165mm", nullptr, nullptr, 1020, 1650, 96},
    {"prc_2_102x176mm", nullptr, nullptr, 1020, 1760, 97},
    {"prc_4_110x208mm", nullptr, nullptr, 1100, 2080, 99},
    {"prc_5_110x220mm", nullptr, nullptr, 1100, 2200, 100},
    {"prc_8_120x309mm", nullptr, nullptr, 1200, 3090, 103},
    {"prc_16k_146x215mm", nullptr, nullptr, 1460, 2150, 93},
    {"om_italian_110x230mm", nullptr, nullptr, 1100, 2300, 36},
    {"om_folio_210x330mm", nullptr, nullptr, 2100, 3300, 14},
    {"om_invite_220x220mm", nullptr, nullptr, 2200, 2200, 47},
    {"na_index-3x5_3x5in", nullptr, "3x5", 762, 1270, 65535},
    {"na_index-4x6_4x6in", nullptr, nullptr, 1016, 1524, 65535},
    {"na_a2_4.375x5.75in", nullptr, nullptr, 1111, 1460, 65535},
    {"na_5x7_5x7in", nullptr, nullptr, 1270, 1778, 65535},
    {"na_index-5x8_5x8in", nullptr, nullptr, 1270, 2032, 65535},
    {"na_index-4x6-ext_6x8in", nullptr, nullptr, 1524, 2032, 65535},
    {"na_6x9_6x9in", nullptr, nullptr, 1524, 2286, 65535},
    {"na_c5_6.5x9.5in", nullptr, nullptr, 1651, 2413, 65535},
    {"na_7x9_7x9in", nullptr, nullptr, 1778, 2286, 65535},
    {"na_govt-letter_8x10in", nullptr, nullptr, 2032, 2540, 65535},
    {"na_govt-legal_8x13in", nullptr, nullptr, 2032, 3302, 65535},
    {"na_arch-a_9x12in", nullptr, nullptr, 2286, 3048, 65535},
    {"na_10x13_10x13in", nullptr, nullptr, 2540, 3302, 65535},
    {"na_10x15_10x15in", nullptr, nullptr, 2540, 3810, 65535},
    {"na_11x12_11x12in", nullptr, nullptr, 2794, 3048, 65535},
    {"na_edp_11x14in", nullptr, nullptr, 2794, 3556, 65535},
    {"na_fanfold-us_11x14.875in", nullptr, nullptr, 2794, 3778, 65535},
    {"na_11x15_11x15in", nullptr, nullptr, 2794, 3810, 65535},
    {"na_eur-edp_12x14in", nullptr, nullptr, 3048, 3556, 65535},
    {"na_arch-b_12x18in", nullptr, nullptr, 3048, 4572, 65535},
    {"na_12x19_12x19in", nullptr, nullptr, 3048, 4826, 65535},
    {"na_super-b_13x19in", nullptr, nullptr, 3302, 4826, 65535},
    {"na_c_17x22in", nullptr, nullptr, 4318, 5588, 65535},
    {"na_d_22x34in", nullptr, nullptr, 5588, 8636, 65535},
    {"asme_f_28x40in", nullptr, nullptr, 7112, 10160, 65535},
    {"na_wide-format_30x42in", nullptr, nullptr, 7620, 10668, 65535},
    {"na_arch-e_36x48in", nullptr, nullptr, 9144, 12192, 65535},
    {"na_f_44x68in", nullptr, nullptr, 11176, 17272, 65535},
    {"roc_16k_7.75x10.75in", nullptr, nullptr, 1968, 2730, 65535},
    {"roc_8k_10.75x15.5in", nullptr, nullptr, 2730, 3937, 65535},
    {"iso_a10_26x37mm", nullptr, nullptr, 260, 370, 65535},
    {"iso_a9_37x52mm", nullptr, nullptr, 370, 520, 65535},
    {"iso_a8_52x74mm", nullptr, nullptr, 520, 740, 65535},
    {"iso_a7_74x105mm", nullptr, nullptr, 740, 1050, 65535},
    {"iso_a4-tab_225x297mm", nullptr, nullptr, 2250, 2970, 65535},
    {"iso_a4x3_297x630mm", nullptr, nullptr, 2970, 6300, 65535},
    {"iso_a4x4_297x841mm", nullptr, nullptr, 2970, 8410, 65535},
    {"iso_a4x5_297x1051mm", nullptr, nullptr, 2970, 10510, 65535},
    {"iso_a4x6_297x1261mm", nullptr, nullptr, 2970, 12610, 65535},
    {"iso_a4x7_297x1471mm", nullptr, nullptr, 2970, 14710, 65535},
    {"iso_a4x8_297x1682mm", nullptr, nullptr, 2970, 16820, 65535},
    {"iso_a4x9_297x1892mm", nullptr, nullptr, 2970, 18920, 65535},
    {"iso_a3x3_420x891mm", nullptr, nullptr, 4200, 8910, 65535},
    {"iso_a3x4_420x1189mm", nullptr, nullptr, 4200, 11890, 65535},
    {"iso_a3x5_420x1486mm", nullptr, nullptr, 4200, 14860, 65535},
    {"iso_a3x6_420x1783mm", nullptr, nullptr, 4200, 17830, 65535},
    {"iso_a3x7_420x2080mm", nullptr, nullptr, 4200, 20800, 65535},
    {"iso_a1_594x841mm", "iso-a1", "A1", 5940, 8410, 65535},
    {"iso_a2x3_594x1261mm", nullptr, nullptr, 5940, 12610, 65535},
    {"iso_a2x4_594x1682mm", nullptr, nullptr, 5940, 16820, 65535},
    {"iso_a2x5_594x2102mm", nullptr, nullptr, 5940, 21020, 65535},
    {"iso_a0_841x1189mm", nullptr, nullptr, 8410, 11890, 65535},
    {"iso_a1x3_841x1783mm", nullptr, nullptr, 8410, 17830, 65535},
    {"iso_a1x4_841x2378mm", nullptr, nullptr, 8410, 23780, 65535},
    {"iso_2a0_1189x1682mm", nullptr, nullptr, 11890, 16820, 65535},
    {"iso_a0x3_1189x2523mm", nullptr, nullptr, 11890, 25230, 65535},
    {"iso_b10_31x44mm", nullptr, nullptr, 310, 440, 65535},
    {"iso_b9_44x62mm", nullptr, nullptr, 440, 620, 65535},
    {"iso_b8_62x88mm", nullptr, nullptr, 620, 880, 65535},
    {"iso_b7_88x125mm", nullptr, nullptr, 880, 1250, 65535},
    {"iso_b6_125x176mm", nullptr, nullptr, 1250, 1760, 65535},
    {"iso_b6c4_125x324mm", nullptr, nullptr, 1250, 3240, 65535},
    {"iso_b5_176x250mm", nullptr, nullptr, 1760, 2500, 65535},
    {"iso_b3_353x500mm", nullptr, nullptr, 3530, 5000, 65535},
    {"iso_b2_500x707mm", nullptr, nullptr, 5000, 7070, 65535},
    {"iso_b1_707x1000mm", nullptr, nullptr, 7070, 10000, 65535},
    {"iso_b0_1000x1414mm", nullptr, nullptr, 10000, 14140, 65535},
    {"iso_c10_28x40mm", nullptr, nullptr, 280, 400, 65535},
    {"iso_c9_40x57mm", nullptr, nullptr, 400, 570, 65535},
    {"iso_c8_57x81mm", nullptr, nullptr, 570, 810, 65535},
    {"iso_c7_81x114mm", nullptr, nullptr, 810, 1140, 65535},
    {"iso_c7c6_81x162mm", nullptr, nullptr, 810, 1620, 65535},
    {"iso_c2_458x648mm", nullptr, nullptr, 4580, 6480, 65535},
    {"iso_c1_648x917mm", nullptr, nullptr, 6480, 9170, 65535},
    {"iso_c0_917x1297mm", nullptr, nullptr, 9170, 12970, 65535},
    {"iso_ra2_430x610mm", nullptr, nullptr, 4300, 6100, 65535},
    {"iso_sra2_450x640mm", nullptr, nullptr, 4500, 6400, 65535},
    {"iso_ra1_610x860mm", nullptr, nullptr, 6100, 8600, 65535},
    {"iso_sra1_640x900mm", nullptr, nullptr, 6400, 9000, 65535},
    {"iso_ra0_860x1220mm", nullptr, nullptr, 8600, 12200, 65535},
    {"iso_sra0_900x1280mm", nullptr, nullptr, 9000, 12800, 65535},
    {"jis_b10_32x45mm", nullptr, nullptr, 320, 450, 65535},
    {"jis_b9_45x64mm", nullptr, nullptr, 450, 640, 65535},
    {"jis_b8_64x91mm", nullptr, nullptr, 640, 910, 65535},
    {"jis_b7_91x128mm", nullptr, nullptr, 910, 1280, 65535},
    {"jis_b3_364x515mm", nullptr, nullptr, 3640, 5150, 65535},
    {"jis_b2_515x728mm", nullptr, nullptr, 5150, 7280, 65535},
    {"jis_b1_728x1030mm", nullptr, nullptr, 7280, 10300, 65535},
    {"jis_b0_1030x1456mm", nullptr, nullptr, 10300, 14560, 65535},
    {"jis_exec_216x330mm", nullptr, nullptr, 2160, 3300, 65535},
    {"jpn_chou2_111.1x146mm", nullptr, nullptr, 1111, 1460, 65535},
    {"jpn_kahu_240x322.1mm", nullptr, nullptr, 2400, 3221, 65535},
    {"prc_6_120x320mm", nullptr, nullptr, 1200, 3200, 65535},
    {"prc_3_125x176mm", nullptr, nullptr, 1250, 1760, 65535},
    {"prc_7_160x230mm", nullptr, nullptr, 1600, 2300, 65535},
    {"om_juuro-ku-kai_198x275mm", nullptr, nullptr, 1980, 2750, 65535},
    {"om_pa-kai_267x389mm", nullptr, nullptr, 2670, 3890, 65535},
    {"om_dai-pa-kai_275x395mm", nullptr, nullptr, 2750, 3950, 65535},
    {"prc_10_324x458mm", nullptr, nullptr, 3240, 4580, 65535},
    {"om_small-photo_100x150mm", nullptr, nullptr, 1000, 1500, 65535},
    {"om_postfix_114x229mm", nullptr, nullptr, 1140, 2290, 65535},
    {"om_large-photo_200x300", nullptr, nullptr, 2000, 3000, 65535},
    {"om_folio-sp_215x315mm", nullptr, nullptr, 2150, 3150, 65535},
};

}  // namespace PrinterUtil

namespace {

constexpr DWORD kPrinterInfoLevel = 2;

const PrinterUtil::MacPaperEntry* findMacPaper(const char* mediaName) {
    for (const PrinterUtil::MacPaperEntry& entry : PrinterUtil::macPaperTable)
        if (std::strcmp(entry.pwgName, mediaName) == 0) return &entry;
    return nullptr;
}

// The first element of a list, or the value itself, as text. A list
// without elements gives no name; a text is not split, so a comma-separated
// list stays one name.
std::string firstMediaName(const Json::Value& request, const char* key) {
    const Json::Value value = request.get(key, Json::Value(""));
    if (!value.isArray()) return value.asString();
    return value.empty() ? std::string() : value[0u].asString();
}

}  // namespace

namespace PrinterUtil {

int UpdateDevmodeWithMacPaper(const char* mediaName, DEVMODEW* devMode) {
    const MacPaperEntry* entry = findMacPaper(mediaName);
    if (!entry) {
        VX_LOG(kLogError, kNoLastError, 4, "Failed to find Windows version of Mac paper size:%s", mediaName);
        return 0;
    }
    const WORD constant = static_cast<WORD>(entry->paperConstant & 0xFFFF);
    if (constant != 0xFFFF) {
        VX_LOG(kLogNormal, kNoLastError, 3, "Found Windows version constant for Mac paper size:%s, constant:%hi",
               mediaName, static_cast<short>(constant));
        devMode->dmFields |= DM_PAPERSIZE;
        devMode->dmPaperSize = static_cast<short>(constant);
        return 1;
    }
    VX_LOG(kLogError, kNoLastError, 3,
           "Didn't find Windows version constant for Mac paper size:%s. Going with dimensions:%dx%d", mediaName,
           static_cast<int>(entry->width), static_cast<int>(entry->length));
    devMode->dmFields |= DM_PAPERWIDTH | DM_PAPERLENGTH;
    devMode->dmPaperWidth = static_cast<short>(entry->width & 0xFFFF);
    devMode->dmPaperLength = static_cast<short>(entry->length & 0xFFFF);
    return 1;
}

std::string chooseMacMediaName(const Json::Value& request, const char* handler) {
    std::string name = getJsonString("media", request, "");
    if (!name.empty()) {
        VX_LOG_AS(handler, kLogNormal, kNoLastError, 2, "Got 'media' string:%s", name.c_str());
        return name;
    }
    name = getJsonString("media-default", request, "");
    if (!name.empty()) return name;
    name = firstMediaName(request, "media-available");
    VX_LOG_AS(handler, kLogNormal, kNoLastError, 2, "media-available string:%s", name.c_str());
    if (!name.empty()) return name;
    name = firstMediaName(request, "media-supported");
    VX_LOG_AS(handler, kLogNormal, kNoLastError, 2, "media-supported string:%s", name.c_str());
    return name;
}

void setMacPaper(const Json::Value& request, HANDLE hPrinter, const char* handler) {
    const std::string name = chooseMacMediaName(request, handler);
    if (name.empty()) return;
    VX_LOG_AS(handler, kLogNormal, kNoLastError, 2, "Attempting to set paper size using Mac preference of:%s",
              name.c_str());
    auto* info = reinterpret_cast<PRINTER_INFO_2W*>(getPrinter(hPrinter, kPrinterInfoLevel));
    if (!info) return;
    if (UpdateDevmodeWithMacPaper(name.c_str(), info->pDevMode)) {
        if (SetPrinterW(hPrinter, kPrinterInfoLevel, reinterpret_cast<LPBYTE>(info), 0))
            VX_LOG_AS(handler, kLogNormal, kNoLastError, 2, "Set printer page size to Mac spec.");
        else
            VX_LOG_AS(handler, kLogError, kWithLastError, 4, "SetPrinter 2 error:");
    }
    GlobalFree(info);
}

}  // namespace PrinterUtil
