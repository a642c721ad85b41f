// The media table against an independent reading of its keys: every width
// and length follows from the numbers that end the key, every constant
// stands at the key it belongs to, and the rows without one are the
// listed ones, in their order.
#include "preferences/MacPaper.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace {

using PrinterUtil::kMacPaperTableSize;
using PrinterUtil::MacPaperEntry;
using PrinterUtil::macPaperTable;

// The sizes the platform has a paper constant for, with that constant.
const std::vector<std::pair<std::string, int32_t>> kConstants = {
    {"na_personal_3.625x6.5in", 38},
    {"na_monarch_3.875x7.5in", 37},
    {"na_number-9_3.875x8.875in", 19},
    {"na_number-10_4.125x9.5in", 20},
    {"na_number-11_4.5x10.375in", 21},
    {"na_number-12_4.75x11in", 22},
    {"na_number-14_5x11.5in", 23},
    {"na_invoice_5.5x8.5in", 6},
    {"na_executive_7.25x10.5in", 7},
    {"na_quarto_8.5x10.83in", 15},
    {"na_letter_8.5x11in", 1},
    {"na_fanfold-eur_8.5x12in", 40},
    {"na_letter-plus_8.5x12.69in", 59},
    {"na_foolscap_8.5x13in", 41},
    {"na_legal_8.5x14in", 5},
    {"na_super-a_8.94x14in", 57},
    {"na_9x11_9x11in", 44},
    {"na_letter-extra_9.5x12in", 50},
    {"na_legal-extra_9.5x15in", 51},
    {"na_10x11_10x11in", 45},
    {"na_10x14_10x14in", 44},
    {"na_ledger_11x17in", 3},
    {"na_b-plus_12x19.17in", 58},
    {"na_arch-c_18x24in", 24},
    {"na_arch-d_24x36in", 25},
    {"na_e_34x44in", 26},
    {"iso_a6_105x148mm", 70},
    {"iso_a5_148x210mm", 11},
    {"iso_a5-extra_174x235mm", 64},
    {"iso_a4_210x297mm", 9},
    {"iso_a4-extra_235.5x322.3mm", 53},
    {"iso_a3_297x420mm", 8},
    {"iso_a3-extra_322x445mm", 63},
    {"iso_a2_420x594mm", 66},
    {"iso_b5-extra_201x276mm", 65},
    {"iso_b4_250x353mm", 42},
    {"iso_c6_114x162mm", 31},
    {"iso_c6c5_114x229mm", 32},
    {"iso_c5_162x229mm", 28},
    {"iso_c4_229x324mm", 30},
    {"iso_c3_324x458mm", 29},
    {"iso_dl_110x220mm", 27},
    {"jis_b6_128x182mm", 88},
    {"jis_b5_182x257mm", 13},
    {"jis_b4_257x364mm", 12},
    {"jpn_chou4_90x205mm", 74},
    {"jpn_hagaki_100x148mm", 43},
    {"jpn_you4_105x235mm", 91},
    {"jpn_chou3_120x235mm", 73},
    {"jpn_oufuku_148x200mm", 82},
    {"jpn_kaku2_240x332mm", 71},
    {"prc_32k_97x151mm", 94},
    {"prc_1_102x165mm", 96},
    {"prc_2_102x176mm", 97},
    {"prc_4_110x208mm", 99},
    {"prc_5_110x220mm", 100},
    {"prc_8_120x309mm", 103},
    {"prc_16k_146x215mm", 93},
    {"om_italian_110x230mm", 36},
    {"om_folio_210x330mm", 14},
    {"om_invite_220x220mm", 47},
};

// The sizes without a constant, in the table's order.
const std::vector<std::string> kWithoutConstant = {
    "na_index-3x5_3x5in", "na_index-4x6_4x6in", "na_a2_4.375x5.75in", "na_5x7_5x7in", "na_index-5x8_5x8in",
    "na_index-4x6-ext_6x8in", "na_6x9_6x9in", "na_c5_6.5x9.5in", "na_7x9_7x9in", "na_govt-letter_8x10in",
    "na_govt-legal_8x13in", "na_arch-a_9x12in", "na_10x13_10x13in", "na_10x15_10x15in", "na_11x12_11x12in",
    "na_edp_11x14in", "na_fanfold-us_11x14.875in", "na_11x15_11x15in", "na_eur-edp_12x14in", "na_arch-b_12x18in",
    "na_12x19_12x19in", "na_super-b_13x19in", "na_c_17x22in", "na_d_22x34in", "asme_f_28x40in",
    "na_wide-format_30x42in", "na_arch-e_36x48in", "na_f_44x68in", "roc_16k_7.75x10.75in", "roc_8k_10.75x15.5in",
    "iso_a10_26x37mm", "iso_a9_37x52mm", "iso_a8_52x74mm", "iso_a7_74x105mm", "iso_a4-tab_225x297mm",
    "iso_a4x3_297x630mm", "iso_a4x4_297x841mm", "iso_a4x5_297x1051mm", "iso_a4x6_297x1261mm", "iso_a4x7_297x1471mm",
    "iso_a4x8_297x1682mm", "iso_a4x9_297x1892mm", "iso_a3x3_420x891mm", "iso_a3x4_420x1189mm", "iso_a3x5_420x1486mm",
    "iso_a3x6_420x1783mm", "iso_a3x7_420x2080mm", "iso_a1_594x841mm", "iso_a2x3_594x1261mm", "iso_a2x4_594x1682mm",
    "iso_a2x5_594x2102mm", "iso_a0_841x1189mm", "iso_a1x3_841x1783mm", "iso_a1x4_841x2378mm", "iso_2a0_1189x1682mm",
    "iso_a0x3_1189x2523mm", "iso_b10_31x44mm", "iso_b9_44x62mm", "iso_b8_62x88mm", "iso_b7_88x125mm",
    "iso_b6_125x176mm", "iso_b6c4_125x324mm", "iso_b5_176x250mm", "iso_b3_353x500mm", "iso_b2_500x707mm",
    "iso_b1_707x1000mm", "iso_b0_1000x1414mm", "iso_c10_28x40mm", "iso_c9_40x57mm", "iso_c8_57x81mm",
    "iso_c7_81x114mm", "iso_c7c6_81x162mm", "iso_c2_458x648mm", "iso_c1_648x917mm", "iso_c0_917x1297mm",
    "iso_ra2_430x610mm", "iso_sra2_450x640mm", "iso_ra1_610x860mm", "iso_sra1_640x900mm", "iso_ra0_860x1220mm",
    "iso_sra0_900x1280mm", "jis_b10_32x45mm", "jis_b9_45x64mm", "jis_b8_64x91mm", "jis_b7_91x128mm",
    "jis_b3_364x515mm", "jis_b2_515x728mm", "jis_b1_728x1030mm", "jis_b0_1030x1456mm", "jis_exec_216x330mm",
    "jpn_chou2_111.1x146mm", "jpn_kahu_240x322.1mm", "prc_6_120x320mm", "prc_3_125x176mm", "prc_7_160x230mm",
    "om_juuro-ku-kai_198x275mm", "om_pa-kai_267x389mm", "om_dai-pa-kai_275x395mm", "prc_10_324x458mm",
    "om_small-photo_100x150mm", "om_postfix_114x229mm", "om_large-photo_200x300", "om_folio-sp_215x315mm",
};

// A decimal number of the key ("8.875") times `factor`, truncated toward
// zero, in whole numbers only: digits after the point divide once at the
// end.
int32_t scaled(const std::string& number, int32_t factor) {
    int64_t digits = 0;
    int64_t divisor = 1;
    bool afterPoint = false;
    for (char c : number) {
        if (c == '.') {
            afterPoint = true;
            continue;
        }
        digits = digits * 10 + (c - '0');
        if (afterPoint) divisor *= 10;
    }
    return static_cast<int32_t>(digits * factor / divisor);
}

struct Dimensions {
    int32_t width;
    int32_t length;
};

// The part after the key's last underscore is "<width>x<length>" and a unit:
// "in" (times 254), "mm" or none (times 10), in tenths of a millimetre.
Dimensions dimensionsOfKey(const std::string& key) {
    std::string size = key.substr(key.rfind('_') + 1);
    int32_t factor = 10;
    if (size.size() > 2 && size.compare(size.size() - 2, 2, "in") == 0) {
        factor = 254;
        size.erase(size.size() - 2);
    } else if (size.size() > 2 && size.compare(size.size() - 2, 2, "mm") == 0) {
        size.erase(size.size() - 2);
    }
    const size_t x = size.find('x');
    return {scaled(size.substr(0, x), factor), scaled(size.substr(x + 1), factor)};
}

const MacPaperEntry* rowOf(const std::string& key) {
    for (const MacPaperEntry& entry : macPaperTable)
        if (key == entry.pwgName) return &entry;
    return nullptr;
}

size_t indexOf(const std::string& key) { return static_cast<size_t>(rowOf(key) - macPaperTable); }

TEST(MacPaperTable, HoldsOneHundredSixtyFourDistinctKeys) {
    EXPECT_EQ(sizeof(macPaperTable) / sizeof(macPaperTable[0]), 164u);
    std::set<std::string> keys;
    for (const MacPaperEntry& entry : macPaperTable) {
        ASSERT_NE(entry.pwgName, nullptr);
        keys.insert(entry.pwgName);
    }
    EXPECT_EQ(keys.size(), kMacPaperTableSize);
}

TEST(MacPaperTable, EveryWidthAndLengthFollowsFromItsKey) {
    for (const MacPaperEntry& entry : macPaperTable) {
        const Dimensions expected = dimensionsOfKey(entry.pwgName);
        EXPECT_EQ(entry.width, expected.width) << entry.pwgName;
        EXPECT_EQ(entry.length, expected.length) << entry.pwgName;
    }
}

TEST(MacPaperTable, TheRuleTruncatesAndTakesMillimetresWhereNoUnitIsGiven) {
    EXPECT_EQ(rowOf("na_personal_3.625x6.5in")->width, 920) << "920.75 truncated";
    EXPECT_EQ(rowOf("na_personal_3.625x6.5in")->length, 1651);
    EXPECT_EQ(rowOf("iso_a4-extra_235.5x322.3mm")->width, 2355);
    EXPECT_EQ(rowOf("iso_a4-extra_235.5x322.3mm")->length, 3223);
    EXPECT_EQ(rowOf("om_large-photo_200x300")->width, 2000);
    EXPECT_EQ(rowOf("om_large-photo_200x300")->length, 3000);
}

TEST(MacPaperTable, EveryConstantStandsAtItsKey) {
    ASSERT_EQ(kConstants.size(), 61u);
    for (const auto& [key, constant] : kConstants) {
        const MacPaperEntry* row = rowOf(key);
        ASSERT_NE(row, nullptr) << key;
        EXPECT_EQ(row->paperConstant, constant) << key;
    }
}

TEST(MacPaperTable, TheOtherKeysHaveNoConstantAndKeepTheirOrder) {
    ASSERT_EQ(kWithoutConstant.size(), 103u);
    size_t previous = 0;
    for (const std::string& key : kWithoutConstant) {
        const MacPaperEntry* row = rowOf(key);
        ASSERT_NE(row, nullptr) << key;
        EXPECT_EQ(row->paperConstant, PrinterUtil::kNoPaperConstant) << key;
        EXPECT_EQ(row->paperConstant, 65535);
        EXPECT_GE(indexOf(key), previous) << key;
        previous = indexOf(key);
    }
    size_t withConstant = 0;
    for (const MacPaperEntry& entry : macPaperTable) withConstant += entry.paperConstant != 65535;
    EXPECT_EQ(withConstant, 61u) << "the two lists are the whole table";
}

TEST(MacPaperTable, TwoSizesShareTheConstantOfTheNineByElevenSheet) {
    std::vector<std::string> sharing;
    for (const MacPaperEntry& entry : macPaperTable)
        if (entry.paperConstant == 44) sharing.push_back(entry.pwgName);
    EXPECT_EQ(sharing, (std::vector<std::string>{"na_9x11_9x11in", "na_10x14_10x14in"}));
    EXPECT_EQ(rowOf("na_arch-c_18x24in")->paperConstant, 24);
    EXPECT_EQ(rowOf("na_arch-d_24x36in")->paperConstant, 25);
}

TEST(MacPaperTable, TheRowsGivenInFullHaveTheirOtherNames) {
    struct Full {
        const char* key;
        const char* legacy;
        const char* ppd;
        int32_t width, length, constant;
    };
    const Full rows[] = {
        {"na_letter_8.5x11in", "na-letter", "Letter", 2159, 2794, 1},
        {"iso_a4_210x297mm", "iso-a4", "A4", 2100, 2970, 9},
        {"na_ledger_11x17in", "tabloid", "Tabloid", 2794, 4318, 3},
        {"na_index-3x5_3x5in", nullptr, "3x5", 762, 1270, 65535},
        {"iso_a1_594x841mm", "iso-a1", "A1", 5940, 8410, 65535},
        {"jpn_oufuku_148x200mm", nullptr, "DoublePostcardRotated", 1480, 2000, 82},
        {"om_large-photo_200x300", nullptr, nullptr, 2000, 3000, 65535},
    };
    auto same = [](const char* a, const char* b) { return a == b || (a && b && std::strcmp(a, b) == 0); };
    for (const Full& full : rows) {
        const MacPaperEntry* row = rowOf(full.key);
        ASSERT_NE(row, nullptr) << full.key;
        EXPECT_TRUE(same(row->legacyName, full.legacy)) << full.key;
        EXPECT_TRUE(same(row->ppdName, full.ppd)) << full.key;
        EXPECT_EQ(row->width, full.width) << full.key;
        EXPECT_EQ(row->length, full.length) << full.key;
        EXPECT_EQ(row->paperConstant, full.constant) << full.key;
    }
}

}  // namespace
