#include <gtest/gtest.h>

#include <string>

#include "kppdf/page/KPPDFCMap.h"
#include "kppdf/platform/KPPDFResources.h"
#include "tests/support/LogCapture.h"

namespace {

// The code unit a map gives a code, or -1 when it has none.
int unitOf(const KPPDFCMap& cmap, uint32_t code) {
    uint16_t unit;
    return cmap.unicodeForCode(code, &unit) ? unit : -1;
}

KPPDFCMap parsed(std::string_view text) {
    KPPDFCMap cmap;
    cmap.processCMapString(text);
    return cmap;
}

} // namespace

TEST(KPPDFCMap, CharsAndRanges) {
    KPPDFCMap cmap = parsed("/CIDInit /ProcSet findresource begin\n"
                            "1 begincodespacerange\n<0000> <FFFF>\nendcodespacerange\n"
                            "3 beginbfchar\n"
                            "<0003> <0020>\n"
                            "<00b1> <00e9>\n"
                            "<0010> <00660069>\n" // a ligature: the first unit is kept
                            "endbfchar\n"
                            "2 beginbfrange\n"
                            "<0041> <0043> <0061>\n"
                            "<00FE> <0101> <12FF>\n"
                            "endbfrange\n");
    // The offset is added to the whole unit: 0x12FF + 2 carries into the high byte at 0x100.
    const std::pair<uint32_t, int> units[] = {{0x03, 0x20}, {0xB1, 0xE9}, {0x10, 0x66},
                                              {0x41, 0x61}, {0x42, 0x62}, {0x43, 0x63},
                                              {0x44, -1},   {0x40, -1},   {0x100, 0x1301}};
    for (const auto& [code, unit] : units)
        EXPECT_EQ(unitOf(cmap, code), unit) << code;
    EXPECT_EQ(cmap.stringDataForGlyph(0x42), std::string("\x00\x62", 2));
    EXPECT_EQ(cmap.stringDataForGlyph(0x100), std::string("\x13\x01", 2));
    EXPECT_EQ(cmap.stringDataForGlyph(0x10041), "");
}

TEST(KPPDFCMap, OneByteSourcesAndLineEnds) {
    // Simple fonts' maps (LibreOffice, reportlab) use two-digit codes; files come with any of
    // the three line ends.
    for (std::string eol : {"\n", "\r\n", "\r"}) {
        std::string text = "2 beginbfchar" + eol + "<01> <0054>" + eol + "<0A> <03A9>" + eol +
                           "endbfchar" + eol + "1 beginbfrange" + eol + "<20> <7e> <0020>" + eol +
                           "endbfrange" + eol;
        KPPDFCMap cmap = parsed(text);
        EXPECT_EQ(unitOf(cmap, 0x01), 0x54) << eol.size();
        EXPECT_EQ(unitOf(cmap, 0x0A), 0x3A9) << eol.size();
        EXPECT_EQ(unitOf(cmap, 0x7E), 0x7E) << eol.size();
        EXPECT_EQ(unitOf(cmap, 0x7F), -1) << eol.size();
    }
}

TEST(KPPDFCMap, LaterCharsReplaceEarlierAndFirstRangeWins) {
    KPPDFCMap cmap = parsed("2 beginbfchar\n<0005> <0041>\n<0005> <0042>\nendbfchar\n"
                            "1 beginbfchar\n<0006> <0043>\nendbfchar\n"
                            "3 beginbfrange\n<0010> <0020> <0100>\n<0018> <0030> <0200>\n"
                            "<0005> <0006> <0300>\nendbfrange\n");
    EXPECT_EQ(unitOf(cmap, 5), 0x42);
    // A single entry comes before any range.
    EXPECT_EQ(unitOf(cmap, 6), 0x43);
    // Overlapping ranges: the one read first.
    EXPECT_EQ(unitOf(cmap, 0x18), 0x108);
    EXPECT_EQ(unitOf(cmap, 0x21), 0x209);
    EXPECT_EQ(unitOf(cmap, 0x30), 0x218);

    // A second text adds to the map; a range's array destination reads from its first
    // element.
    cmap.processCMapString("1 beginbfchar\n<0007> <0044>\nendbfchar\n"
                           "1 beginbfrange\n<0001> <0003> [<0041> <0058> <0059>]\nendbfrange\n");
    EXPECT_EQ(unitOf(cmap, 7), 0x44);
    EXPECT_EQ(unitOf(cmap, 5), 0x42);
    EXPECT_EQ(unitOf(cmap, 2), 0x42);
}

TEST(KPPDFCMap, LargeMapsLookUpEveryEntry) {
    std::string text = "100 beginbfrange\n";
    char line[64];
    for (int i = 0; i < 100; i++) {
        std::snprintf(line, sizeof line, "<%04X> <%04X> <%04X>\n", i * 16, i * 16 + 9,
                      0x4E00 + i * 10);
        text += line;
    }
    text += "endbfrange\n";
    KPPDFCMap cmap = parsed(text);
    for (int i = 0; i < 100; i++) {
        EXPECT_EQ(unitOf(cmap, i * 16 + 3), 0x4E00 + i * 10 + 3);
        EXPECT_EQ(unitOf(cmap, i * 16 + 12), -1);
    }
}

TEST(KPPDFCMap, RegistryMapsFromPopplerData) {
    if (KPPDFResources::pathForCMap("Adobe-Japan1-UCS2").empty())
        GTEST_SKIP() << "poppler-data is not installed";
    KPPDFRef<KPPDFCMap> japan1 = KPPDFCMap::cmapWithName("Adobe-Japan1-UCS2");
    ASSERT_TRUE(japan1);
    EXPECT_GT(japan1->bfCharCount(), 1000u);
    // CID 34 lies in the range "<0001> <003c> <0020>": "A". CID 0x3d is the yen sign.
    EXPECT_EQ(unitOf(*japan1, 34), 0x41);
    EXPECT_EQ(unitOf(*japan1, 0x3D), 0xA5);

    // The cache hands out copies: adding to one map leaves the next one alone.
    japan1->processCMapString("1 beginbfchar\n<0022> <0042>\nendbfchar\n");
    EXPECT_EQ(unitOf(*japan1, 34), 0x42);
    EXPECT_EQ(unitOf(*KPPDFCMap::cmapWithName("Adobe-Japan1-UCS2"), 34), 0x41);

    LogCapture log;
    KPPDFRef<KPPDFCMap> missing = KPPDFCMap::cmapWithName("Nobody-Nothing-UCS2");
    ASSERT_TRUE(missing);
    EXPECT_TRUE(missing->isEmpty());
    EXPECT_TRUE(log.contains("Nobody-Nothing-UCS2"));
    EXPECT_TRUE(KPPDFCMap::cmapWithName("../etc-passwd-UCS2")->isEmpty());
}

// (Broken text read within its bounds on every input: fuzz_cmap.)
TEST(KPPDFCMap, MalformedTextIsSkippedWithinItsBounds) {
    // Every line below is broken in a different way; none may be read past its end.
    const char* texts[] = {
        "",
        "beginbfchar",
        "5 beginbfchar",
        "5 beginbfchar\n",
        "99999999999999999999 beginbfchar\n<0001> <0041>\n",
        "2 beginbfchar\n<\n<00\n",
        "2 beginbfchar\n<0001\n<0002> <\n",
        "2 beginbfchar\n<0001> 0041\n<zzzz> <0041>\n",
        "1 beginbfchar\n<000102030405> <0041>\n",
        "1 beginbfchar\n<> <>\n",
        "3 beginbfrange\n<0001>\n<0001> <0002>\n<0005> <0001> <0041>\n",
        "1 beginbfrange\n<0001> <0002> [<0041>\n",
        "1 beginbfrange\n<0001> <0002> <\n",
        "2 beginbfchar\r\n<01> <0041>\r\n",
        "-3 beginbfchar\n<0001> <0041>\n",
        "1 beginbfchar <0001> <0041>\n",
    };
    for (const char* text : texts) {
        std::string copy(text); // its own allocation, so that an overread is caught
        KPPDFCMap cmap;
        cmap.processCMapString(copy);
        // What does get read is right: the texts map code 1 to "A" and 2 to "B" at most.
        for (uint32_t code = 0; code < 8; code++) {
            uint16_t unit;
            if (cmap.unicodeForCode(code, &unit)) {
                EXPECT_EQ(unit, 0x40 + code) << text;
            }
        }
    }
    // A count larger than the block stops at its end line, so the next block is read.
    KPPDFCMap cmap = parsed("9 beginbfchar\n<0001> <0041>\nendbfchar\n"
                            "1 beginbfrange\n<0010> <0011> <0061>\nendbfrange\n");
    EXPECT_EQ(unitOf(cmap, 1), 0x41);
    EXPECT_EQ(unitOf(cmap, 0x11), 0x62);
    // A reversed range is empty.
    EXPECT_TRUE(parsed("1 beginbfrange\n<0005> <0001> <0041>\nendbfrange\n").isEmpty());
}
