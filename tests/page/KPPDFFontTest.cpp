#include <gtest/gtest.h>

#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "kppdf/document/KPPDFDocument.h"
#include "kppdf/objects/KPPDFObjectArray.h"
#include "kppdf/objects/KPPDFObjectDictionary.h"
#include "kppdf/objects/KPPDFObjectName.h"
#include "kppdf/page/KPPDFFont.h"
#include "kppdf/page/internal/KPPDFFontTables.h"
#include "kppdf/platform/KPPDFData.h"
#include "tests/support/LogCapture.h"
#include "tests/support/TestHelpers.h"

using namespace kppdf_tables;

namespace {

KPPDFRef<KPPDFFont> font(const std::string& text) {
    return KPPDFFont::fontWithFontDictionary(dictionaryFromText(text));
}

std::string fromHex(const std::string& hex) {
    std::string bytes;
    for (size_t i = 0; i + 1 < hex.size(); i += 2)
        bytes += static_cast<char>(std::stoi(hex.substr(i, 2), nullptr, 16));
    return bytes;
}

std::string trimmed(std::string text) {
    while (!text.empty() && text.back() == ' ')
        text.pop_back();
    return text;
}

// A real too large for a float: it reads as infinity.
const std::string kHugeReal = "999999999999999999999999999999999999999999.0";

// Expects the font's glyph width (in thousandths of the size) for each code.
void expectWidths(KPPDFFont& font, std::initializer_list<std::pair<uint32_t, float>> widths) {
    for (const auto& [code, width] : widths)
        EXPECT_FLOAT_EQ(font.glyphWidth(code), width) << code;
}

} // namespace

TEST(KPPDFFont, NamedEncodingsDecode) {
    auto win = font("<< /Type /Font /Subtype /Type1 /BaseFont /Helvetica "
                    "/Encoding /WinAnsiEncoding >>");
    ASSERT_TRUE(win);
    EXPECT_EQ(win->stringForData("\x80 caf\xE9"), "\u20ac caf\u00e9");
    auto mac = font("<< /Type /Font /Subtype /Type1 /BaseFont /Times-Roman "
                    "/Encoding /MacRomanEncoding >>");
    EXPECT_EQ(mac->stringForData("\x80\x8E"), "\u00c4\u00e9");

    // No Encoding, and names that are not base encodings, read as the standard encoding.
    for (const char* encoding : {"", "/Encoding /StandardEncoding", "/Encoding /90ms-RKSJ-H",
                                 "/Encoding << /Differences [] >>", "/Encoding 12"}) {
        auto standard = font(std::string("<< /Type /Font /Subtype /Type1 /BaseFont /Courier ") +
                             encoding + " >>");
        ASSERT_TRUE(standard) << encoding;
        EXPECT_FALSE(standard->isTwoByte()) << encoding;
        EXPECT_EQ(standard->stringForData("It's `q`"), "It\u2019s \u2018q\u2018") << encoding;
    }
}

TEST(KPPDFFont, Differences) {
    // Over WinAnsi, 39 and 96 already are the ASCII quotes: the table stays WinAnsi.
    auto over =
        font("<< /Type /Font /Subtype /Type1 /BaseFont /Helvetica /Encoding "
             "<< /BaseEncoding /WinAnsiEncoding /Differences [ 39 /quotesingle 96 /grave ] >> >>");
    ASSERT_TRUE(over);
    // Over the standard encoding they change 39 and 96 and nothing else.
    auto standard = font("<< /Type /Font /Subtype /Type1 /BaseFont /Helvetica /Encoding "
                         "<< /Differences [ 39 /quotesingle 96 /grave ] >> >>");
    // Fonts get their own copy: the shared standard table still has quoteright at 39.
    EXPECT_EQ(KPPDFFontStdToUnicode[39], 0x2019);
    for (int code = 0; code < 256; code++) {
        EXPECT_EQ(over->encodingTable()[code], KPPDFFontWinToUnicode[code]) << code;
        uint16_t expected = code == 39 ? 0x27 : code == 96 ? 0x60 : KPPDFFontStdToUnicode[code];
        EXPECT_EQ(standard->encodingTable()[code], expected) << code;
    }

    // Runs, names the list lacks, "uniXXXX" forms, escapes, codes out of range.
    auto mixed = font("<< /Type /Font /Subtype /Type1 /BaseFont /Helvetica /Encoding "
                      "<< /BaseEncoding /MacRomanEncoding /Differences [ 65 /Alpha /Beta /g123 "
                      "/uni263A 200 /E#75ro 254 /a /b /c /d -5 /x /y /z /w /v /u /t 1 /.notdef "
                      "3.0 /one /two (junk) /three [ 4 ] /four 99999999999 /five ] >> >>");
    ASSERT_TRUE(mixed);
    const uint16_t* table = mixed->encodingTable();
    // "g123" means nothing: the base encoding keeps 67. Negative codes are skipped while the
    // current code counts up: "u" lands on 0; 1 gets "t" first, then ".notdef" clears it.
    const std::pair<int, uint16_t> expected[] = {
        {65, 0x391}, {66, 0x392}, {67, 'C'}, {68, 0x263A}, {200, 0x20AC}, {254, 'a'}, {255, 'b'},
        {0, 'u'},    {1, 0},      {2, 2},    {3, '1'},     {4, '2'},      {5, '3'},   {6, '4'}};
    for (const auto& [code, unicode] : expected)
        EXPECT_EQ(table[code], unicode) << code;
    EXPECT_EQ(mixed->stringForData("AB\xC8"), "\u0391\u0392\u20ac");
}

TEST(KPPDFFont, IdentityEncodingsAreTwoByte) {
    auto horizontal = font("<< /Type /Font /Subtype /Type0 /BaseFont /X /Encoding /Identity-H >>");
    ASSERT_TRUE(horizontal);
    EXPECT_TRUE(horizontal->isTwoByte());
    EXPECT_FALSE(horizontal->isVerticalMode());
    // Without a CMap the codes are taken as UTF-16; an odd last byte is dropped.
    EXPECT_EQ(horizontal->stringForData(std::string("\x00\x41\x04\x10\x00", 5)), "A\u0410");
    EXPECT_EQ(horizontal->stringForData(std::string("\xD8\x3D\xDE\x00", 4)), "\U0001F600");
    // Unpaired surrogates become replacement characters.
    EXPECT_EQ(horizontal->stringForData(std::string("\xD8\x3D\x00\x41\xDC\x00\xD8\x00", 8)),
              "\ufffdA\ufffd\ufffd");
    auto vertical = font("<< /Type /Font /Subtype /Type0 /BaseFont /X /Encoding /Identity-V >>");
    EXPECT_TRUE(vertical->isTwoByte());
    EXPECT_TRUE(vertical->isVerticalMode());
}

TEST(KPPDFFont, CompositeWidths) {
    auto composite = font("<< /Type /Font /Subtype /Type0 /BaseFont /X /Encoding /Identity-H "
                          "/DescendantFonts [ << /Type /Font /Subtype /CIDFontType2 /DW 300 "
                          "/W [ 1 [ 500 600 ] 10 20 700 ] >> ] >>");
    ASSERT_TRUE(composite);
    expectWidths(*composite, {{1, 0.5f}, {2, 0.6f}, {3, 0.3f}, {5, 0.3f}, {10, 0.7f}});
    expectWidths(*composite, {{15, 0.7f}, {20, 0.7f}, {21, 0.3f}, {0xFFFFFFFF, 0.3f}});

    // Without DW a code outside W is 0 wide; out of order runs: the first one listed wins.
    auto unordered = font("<< /Subtype /Type0 /Encoding /Identity-H /DescendantFonts [ << "
                          "/W [ 50 60 100 40 55 200 1 [ 10 ] ] >> ] >>");
    expectWidths(*unordered, {{45, 0.2f}, {55, 0.1f}, {1, 0.01f}, {70, 0.0f}});

    // Garbage in W ends the reading there; what came before it stays.
    LogCapture log;
    for (const char* w :
         {"[ 1 [ 500 ] /x 3 ]", "[ 1 [ 500 ] 5 ]", "[ 1 [ 500 ] 9223372036854775807 [ 1 2 ] ]"}) {
        auto broken = font(std::string("<< /Subtype /Type0 /Encoding /Identity-H "
                                       "/DescendantFonts [ << /DW 100 /W ") +
                           w + " >> ] >>");
        ASSERT_TRUE(broken) << w;
        EXPECT_FLOAT_EQ(broken->glyphWidth(1), 0.5f) << w;
        EXPECT_FLOAT_EQ(broken->glyphWidth(6), 0.1f) << w;
    }
}

TEST(KPPDFFont, SimpleWidths) {
    auto simple = font("<< /Type /Font /Subtype /TrueType /BaseFont /ABCDEF+Custom "
                       "/FirstChar 65 /LastChar 67 /Widths [ 600 650.5 700 ] >>");
    ASSERT_TRUE(simple);
    EXPECT_EQ(simple->fontType(), KPPDFFontTypeTrueType);
    expectWidths(*simple, {{65, 0.6f}, {66, 0.6505f}, {67, 0.7f}, {68, 0.0f}, {64, 0.0f}});

    // A standard name: codes outside Widths are measured by the code's own character.
    auto arial = font("<< /Subtype /TrueType /BaseFont /Arial,Bold /FirstChar 32 /LastChar 32 "
                      "/Widths [ 250 ] >>");
    expectWidths(*arial, {{32, 0.25f}, {'A', 0.722f}, {0x20AC, 0.556f}});
    // Standard fonts without widths: the encoded character's width.
    auto helvetica = font("<< /Subtype /Type1 /BaseFont /Helvetica /Encoding /WinAnsiEncoding >>");
    expectWidths(*helvetica, {{'A', 0.667f}, {0x80, 0.556f}, {0x4E00, 0.0f}});
    EXPECT_FLOAT_EQ(font("<< /Subtype /Type1 /BaseFont /CourierNew >>")->glyphWidth('i'), 0.6f);

    LogCapture log;
    // Short Widths: the rest take MissingWidth.
    auto shortWidths = font("<< /Subtype /Type1 /BaseFont /Foo /FirstChar 10 /LastChar 13 "
                            "/Widths [ 100 /x ] /FontDescriptor << /MissingWidth 333 >> >>");
    expectWidths(*shortWidths, {{10, 0.1f}, {11, 0.333f}, {13, 0.333f}, {14, 0.0f}});

    // Absurd ranges are clipped, reversed ones are empty, negative ones start at 0.
    auto huge = font("<< /Subtype /Type1 /BaseFont /Foo /FirstChar 0 /LastChar 4000000000 "
                     "/Widths [ 500 ] >>");
    EXPECT_EQ(huge->nWidths(), KPPDFFont::kMaxSimpleWidths);
    EXPECT_FLOAT_EQ(huge->glyphWidth(0), 0.5f);
    EXPECT_FLOAT_EQ(huge->glyphWidth(4000000000u), 0.0f);
    auto reversed = font("<< /Subtype /Type1 /BaseFont /Foo /FirstChar 90 /LastChar 10 "
                         "/Widths [ 500 ] >>");
    EXPECT_EQ(reversed->nWidths(), 0u);
    auto negative = font("<< /Subtype /Type1 /BaseFont /Foo /FirstChar -5 /LastChar 1 "
                         "/Widths [ 1 2 ] >>");
    EXPECT_EQ(negative->firstChar(), 0u);
    EXPECT_FLOAT_EQ(negative->glyphWidth(0), 0.001f);
    // Reals where integers belong, infinite ones too, are truncated and clamped.
    auto reals = font("<< /Subtype /Type1 /BaseFont /Foo /FirstChar " + kHugeReal +
                      " /LastChar 2.9 /Widths [ 500 ] /Encoding << /Differences [ " + kHugeReal +
                      " /a 65.7 /B -" + kHugeReal + " /C ] >> /FontDescriptor << /Flags " +
                      kHugeReal + " >> >>");
    ASSERT_TRUE(reals);
    EXPECT_EQ(reals->nWidths(), 0u);
    EXPECT_EQ(reals->stringForData("AB"), "BB");
    EXPECT_EQ(reals->descriptorFlags(), 0u);
}

TEST(KPPDFFont, UnknownFontsWithoutWidthsUseAStandardStandIn) {
    struct Case {
        const char* dictionary;
        float widthOfi; // Courier 600, Times 278, Helvetica 222, Helvetica-Bold 278
        const char* standIn;
    };
    // Fixed pitch, serif, plain, bold by name, bold by the ForceBold flag, italic.
    const Case cases[] = {
        {"/Type1 /BaseFont /LetterGothic /FontDescriptor << /Flags 33 >>", 0.6f, "Courier"},
        {"/Type1 /BaseFont /Garamond /FontDescriptor << /Flags 34 >>", 0.278f, "Times-Roman"},
        {"/TrueType /BaseFont /Verdana", 0.222f, "Helvetica"},
        {"/TrueType /BaseFont /Verdana-Bold", 0.278f, "Helvetica-Bold"},
        {"/TrueType /BaseFont /Frutiger /FontDescriptor << /Flags 262144 >>", 0.278f,
         "Helvetica-Bold"},
        {"/Type1 /BaseFont /Garamond-Italic /FontDescriptor << /Flags 98 >>", 0.278f,
         "Times-Italic"}};
    LogCapture log;
    for (const Case& c : cases) {
        SCOPED_TRACE(c.dictionary);
        auto unknown = font(std::string("<< /Subtype ") + c.dictionary + " >>");
        ASSERT_TRUE(unknown);
        ASSERT_TRUE(unknown->fontForWidths());
        EXPECT_EQ(KPPDFFont::normalizedName(unknown->fontForWidths()->name), c.standIn);
        EXPECT_FLOAT_EQ(unknown->glyphWidth('i'), c.widthOfi);
    }
}

TEST(KPPDFFont, Type3AndMeasuredFonts) {
    // Type 3 widths are scaled by the font matrix, then again by the thousandths.
    auto type3 = font("<< /Type /Font /Subtype /Type3 /FontMatrix [ 0.001 0 0 0.001 0 0 ] "
                      "/FirstChar 1 /LastChar 2 /Widths [ 500 1000 ] /Encoding << /Differences "
                      "[ 1 /g1 /a ] >> >>");
    ASSERT_TRUE(type3);
    EXPECT_NEAR(type3->glyphWidth(1), 0.0005f, 1e-9);
    EXPECT_NEAR(type3->glyphWidth(2), 0.001f, 1e-9);
    auto shifted = font("<< /Subtype /Type3 /FontMatrix [ 2 0 0 2 0.5 0 ] /FirstChar 0 "
                        "/LastChar 0 /Widths [ 250 ] >>");
    EXPECT_FLOAT_EQ(shifted->glyphWidth(0), 1.0f);
    LogCapture log;
    auto broken = font("<< /Subtype /Type3 /FontMatrix [ 1 0 0 ] /FirstChar 0 /LastChar 0 "
                       "/Widths [ 250 ] >>");
    EXPECT_FLOAT_EQ(broken->glyphWidth(0), 0.25f);

    // Ascent and descent: the descriptor's, the standard font's, or 1 and 0 when neither is
    // known.
    const std::tuple<std::string, float, float> cases[] = {
        {"/Subtype /TrueType /BaseFont /X /FirstChar 0 /LastChar 0 /Widths [ 0 ] "
         "/FontDescriptor << /Ascent 905 /Descent -212 >>",
         0.905f, -0.212f},
        {"/Subtype /Type1 /BaseFont /Times-Roman", 0.683f, -0.217f},
        {"/Subtype /TrueType /BaseFont /X /FirstChar 0 /LastChar 0 /Widths [ 0 ]", 1.0f, 0.0f},
        {"/Subtype /Type0 /Encoding /Identity-H /DescendantFonts [ << "
         "/FontDescriptor << /Ascent 880 /Descent -120 /Flags 4 >> >> ]",
         0.88f, -0.12f}};
    for (const auto& [entries, ascent, descent] : cases) {
        auto measured = font("<< " + entries + " >>");
        EXPECT_FLOAT_EQ(measured->ascent(), ascent) << entries;
        EXPECT_FLOAT_EQ(measured->descent(), descent) << entries;
    }
}

TEST(KPPDFFont, ToUnicodeMaps) {
    TestPDFBuilder builder;
    builder.addStream(1, "", "2 beginbfchar\n<01> <0048>\n<02> <0069>\nendbfchar\n");
    builder.addStream(2, "", "1 beginbfrange\n<0010> <0012> <03B1>\nendbfrange\n");
    builder.add(3, "<< /Type /Font /Subtype /TrueType /BaseFont /ABCDEF+Sub /FirstChar 1 "
                   "/LastChar 2 /Widths [ 500 500 ] /ToUnicode 1 0 R >>");
    builder.add(4, "<< /Type /Font /Subtype /Type0 /BaseFont /Wide /Encoding /Identity-H "
                   "/ToUnicode 2 0 R /DescendantFonts [ << /WMode 1 /CIDSystemInfo << "
                   "/Registry (Adobe) /Ordering (Japan1) >> >> ] >>");
    builder.add(5, "<< /Type /Font /Subtype /Type0 /BaseFont /Wide /Encoding /Identity-H "
                   "/DescendantFonts [ << /WMode 1 >> ] >>");
    // Codes mapped to the two halves of a surrogate pair: shown together they make one
    // character, alone each is a replacement character.
    builder.addStream(6, "", "2 beginbfchar\n<41> <D835>\n<42> <DC00>\nendbfchar\n");
    builder.add(7, "<< /Type /Font /Subtype /Type1 /BaseFont /Halves /ToUnicode 6 0 R >>");
    auto document = tableDocument(builder, 7);

    // A simple subset font: mapped codes through the map, the rest through the encoding.
    auto simple = KPPDFFont::fontWithFontDictionary(document->objectWithNumber(3));
    ASSERT_TRUE(simple);
    ASSERT_TRUE(simple->cmap());
    EXPECT_EQ(simple->stringForData("\x01\x02!\x27"), "Hi!\u2019");
    EXPECT_EQ(simple->dataForGlyph(2), std::string("\x00\x69", 2));
    EXPECT_EQ(simple->dataForGlyph(3), "");
    auto halves = KPPDFFont::fontWithFontDictionary(document->objectWithNumber(7));
    ASSERT_TRUE(halves);
    EXPECT_EQ(halves->stringForData("AB"), "\U0001D400");
    EXPECT_EQ(halves->stringForData("BAc"), "\uFFFD\uFFFDc");

    auto composite = KPPDFFont::fontWithFontDictionary(document->objectWithNumber(4));
    ASSERT_TRUE(composite);
    EXPECT_EQ(composite->stringForData(std::string("\x00\x10\x00\x12\x00\x41", 6)),
              "\u03b1\u03b3A");
    // WMode counts only for fonts without ToUnicode.
    EXPECT_FALSE(composite->isVerticalMode());
    auto vertical = KPPDFFont::fontWithFontDictionary(document->objectWithNumber(5));
    EXPECT_TRUE(vertical->isVerticalMode());
    EXPECT_EQ(vertical->dataForGlyph(0x10), "");

    // The document's list hands out the font made for a dictionary.
    EXPECT_EQ(document->lookupFont(simple->fontDictionary()), nullptr);
    document->addFont(simple);
    document->addFont(composite);
    document->addFont(nullptr);
    EXPECT_EQ(document->docFonts().size(), 2u);
    EXPECT_EQ(
        document->lookupFont(KPPDFResolve<KPPDFObjectDictionary>(document->objectWithNumber(4))),
        composite);
    EXPECT_EQ(document->lookupFont(dictionaryFromText("<< /Type /Font >>")), nullptr);
}

TEST(KPPDFFont, FontsTheLibraryWrites) {
    auto written = KPPDFFont::fontWithName("F1", "Helvetica-Bold");
    ASSERT_TRUE(written);
    std::string text = written->directObject();
    for (const char* entry :
         {"/Type /Font", "/Subtype /Type1", "/Name /F1", "/BaseFont /Helvetica-Bold"})
        EXPECT_NE(text.find(entry), std::string::npos) << text;
    auto encoding = written->resolvedObjectForKey<KPPDFObjectDictionary>("Encoding");
    ASSERT_TRUE(encoding);
    EXPECT_TRUE(encoding->hasName("Type", "Encodings"));

    // The Differences array starts its runs where PDFDocEncoding leaves the standard encoding.
    auto differences = encoding->resolvedObjectForKey<KPPDFObjectArray>("Differences");
    ASSERT_TRUE(differences);
    std::vector<long long> runs;
    for (size_t i = 0; i < differences->count(); i++)
        if (auto entry = differences->resolvedObjectAtIndex(i); entry->isNumber())
            runs.push_back(entry->longLongValue());
    EXPECT_EQ(runs, (std::vector<long long>{24, 39, 96, 128, 160, 164, 166, 168, 172, 183, 192}));

    // A font read back from what was written decodes PDFDocEncoding's codes.
    auto reread = KPPDFFont::fontWithFontDictionary(written);
    std::string expected = "\u02d8'\u2022\u20ac";
    expected += '\0'; // 173 is .notdef
    expected += "\u00ff";
    EXPECT_EQ(reread->stringForData("\x18\x27\x80\xA0\xAD\xFF"), expected);

    // Names as the library writes them in appearance strings, and reads them back.
    EXPECT_EQ(KPPDFFont::regularName("HeBO"), "Helvetica-BoldOblique");
    EXPECT_EQ(KPPDFFont::regularName("Xyz"), "Xyz");
    auto courier = font("<< /Subtype /Type1 /BaseFont /Courier-Oblique >>");
    EXPECT_EQ(KPPDFFont::abbreviatedNameForFont(*courier)->value(), "CoOb");
    auto other = font("<< /Subtype /TrueType /BaseFont /Arial /FirstChar 0 /LastChar 0 "
                      "/Widths [ 0 ] >>");
    EXPECT_EQ(KPPDFFont::abbreviatedNameForFont(*other)->value(), "Arial");
}

TEST(KPPDFFont, ObjectsThatAreNoFonts) {
    LogCapture log;
    EXPECT_EQ(KPPDFFont::fontWithFontDictionary(nullptr), nullptr);
    EXPECT_EQ(KPPDFFont::fontWithFontDictionary(KPPDFDocument::parseObject(
                  nullptr, 0, KPPDFData::dataWithString("[ 1 2 ]"), true, true)),
              nullptr);
    EXPECT_TRUE(log.contains("Font is not a dictionary"));
    // Odd kinds of values where names, numbers and arrays belong: a font of no known kind that
    // reads the standard encoding.
    auto odd = font("<< /Subtype (Type1) /BaseFont 5 /FirstChar /x /Widths 7 /Encoding [ 1 ] "
                    "/FontDescriptor [ ] /DescendantFonts << >> /ToUnicode (x) /FontMatrix 3 >>");
    ASSERT_TRUE(odd);
    EXPECT_EQ(odd->fontType(), KPPDFFontTypeUnknown);
    EXPECT_EQ(odd->stringForData("'"), "\u2019");
    EXPECT_EQ(odd->cmap(), nullptr);
}

// Real files: the text of every shown string, as pdftotext reads it, and the widths that the
// fonts' metrics give (see tests/data/fonts/make_fonts.py).
TEST(KPPDFFont, RealFilesDecodeAsPdftotextReads) {
    for (const char* name : {"standard", "truetype", "composite"}) {
        std::string base = std::string(KPPDF_TEST_DATA) + "/fonts/" + name;
        auto document = openFile(base + ".pdf");
        ASSERT_TRUE(document) << name;
        std::ifstream expect(base + ".expect");
        ASSERT_TRUE(expect) << name;
        std::string line, expected, decoded;
        int blocks = 0, widths = 0;
        auto finishBlock = [&] {
            if (blocks > 0) {
                EXPECT_EQ(trimmed(decoded), expected) << name << " block " << blocks;
            }
        };
        while (std::getline(expect, line)) {
            std::istringstream fields(line);
            std::string kind, hex;
            unsigned number;
            fields >> kind;
            if (kind == "B") {
                finishBlock();
                fields >> hex;
                expected = fromHex(hex);
                decoded.clear();
                blocks++;
            } else if (kind == "S") {
                fields >> number >> hex;
                auto shown = KPPDFFont::fontWithFontDictionary(document->objectWithNumber(number));
                ASSERT_TRUE(shown) << name << " font " << number;
                decoded += shown->stringForData(fromHex(hex));
            } else if (kind == "W") {
                unsigned code;
                float width;
                fields >> number >> code >> width;
                auto measured =
                    KPPDFFont::fontWithFontDictionary(document->objectWithNumber(number));
                ASSERT_TRUE(measured);
                EXPECT_NEAR(measured->glyphWidth(code) * 1000, width, 0.01)
                    << name << " font " << number << " code " << code;
                widths++;
            }
        }
        finishBlock();
        EXPECT_GE(blocks, 3) << name;
        EXPECT_GT(widths, 5) << name;
    }
}
