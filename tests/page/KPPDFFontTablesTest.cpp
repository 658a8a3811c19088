#include <gtest/gtest.h>

#include <set>
#include <string>
#include <vector>

#include "kppdf/page/internal/KPPDFFontTables.h"

using namespace kppdf_tables;

namespace {

std::string_view glyphAt(Encoding encoding, int code) {
    return glyphName(encodingGlyphs(encoding)[code]);
}

std::u32string unicodeOf(std::string_view glyph, bool zapfDingbats = false) {
    std::u32string out;
    glyphNameToUnicode(glyph, &out, zapfDingbats);
    return out;
}

std::string fontName(const KPPDFStandardFontMetrics* font) {
    return font ? font->name : "(none)";
}

} // namespace

TEST(KPPDFFontTablesEncodings, CodesOfTheBaseEncodings) {
    // Each code's glyph name ("": .notdef) and Unicode value; PDF's MacRoman has no "pi" at
    // 0xB9.
    struct Code {
        Encoding encoding;
        int code;
        const char* glyph;
        uint16_t unicode;
    };
    using enum Encoding;
    const Code codes[] = {
        {kWinAnsi, 0x80, "Euro", 0x20AC},        {kWinAnsi, 0xA0, "space", 0x20},
        {kMacRoman, 0xDB, "currency", 0xA4},     {kMacRoman, 0xB9, "", 0},
        {kStandard, 0x27, "quoteright", 0x2019}, {kStandard, 0x80, "", 0},
        {kPDFDoc, 0x18, "breve", 0x2D8},         {kMacExpert, 0x61, "Asmall", 0xF761},
        {kSymbol, 0xFE, "bracerightbt", 0xF8FE}, {kZapfDingbats, 0xFE, "a191", 0x27BE},
    };
    for (const Code& c : codes) {
        SCOPED_TRACE(std::string(encodingName(c.encoding)) + " " + std::to_string(c.code));
        EXPECT_EQ(glyphAt(c.encoding, c.code), *c.glyph ? c.glyph : ".notdef");
        EXPECT_EQ(encodingUnicode(c.encoding)[c.code], c.unicode);
    }

    // Control codes map to themselves in the platform encodings only; WinAnsi's unused codes
    // are bullets.
    for (int code = 0; code < 32; ++code) {
        EXPECT_EQ(encodingUnicode(Encoding::kWinAnsi)[code], code);
        EXPECT_EQ(encodingUnicode(Encoding::kMacRoman)[code], code);
        EXPECT_EQ(encodingUnicode(Encoding::kStandard)[code], 0);
    }
    for (int code : {127, 129, 157})
        EXPECT_EQ(encodingUnicode(Encoding::kWinAnsi)[code], 0x2022) << code;
    EXPECT_EQ(encodingUnicode(Encoding::kPDFDoc)[0x0A], 0x0A);
    EXPECT_EQ(encodingUnicode(Encoding::kPDFDoc)[0x01], 0);

    // By name (the fonts' own names: KPPDFFont.NamedEncodingsDecode).
    EXPECT_EQ(encodingByName("WinAnsiEncoding"), encodingGlyphs(Encoding::kWinAnsi));
    EXPECT_EQ(encodingByName("WinAnsi"), nullptr);
}

TEST(KPPDFFontTablesEncodings, PDFDocDifferencesOverStandard) {
    // In code order (their runs as written: KPPDFFont.FontsTheLibraryWrites). Applied to the
    // standard encoding they give PDFDocEncoding from 24 on (173 stays empty).
    std::span<const EncodingDifference> differences = pdfDocDifferences();
    ASSERT_FALSE(differences.empty());
    for (size_t i = 1; i < differences.size(); ++i)
        ASSERT_GT(differences[i].code, differences[i - 1].code);
    const GlyphIndex* standard = encodingGlyphs(Encoding::kStandard);
    std::vector<GlyphIndex> table(standard, standard + 256);
    for (const EncodingDifference& d : differences)
        table[d.code] = d.glyph;
    EXPECT_EQ(glyphName(table[173]), ".notdef");
    const GlyphIndex* pdfDoc = encodingGlyphs(Encoding::kPDFDoc);
    for (int code = 24; code < 256; ++code)
        EXPECT_EQ(glyphName(table[code]), glyphName(pdfDoc[code])) << "code " << code;
}

TEST(KPPDFFontTablesGlyphNames, NamesToUnicode) {
    // A glyph list entry with two code points keeps both; surrogates, values beyond Unicode,
    // digit counts other than four (uni) or four to six (u) and unknown names give nothing.
    // Suffixes are dropped and ligature components joined.
    const std::pair<const char*, std::u32string> names[] = {
        {"Aacute", U"\u00C1"},     {"dalethatafpatah", U"\u05D3\u05B2"},
        {"uni20ac", U"\u20AC"},    {"uni00410042", U"AB"},
        {"u1F600", U"\U0001F600"}, {"u10FFFF", U"\U0010FFFF"},
        {"uniD83D", U""},          {"u110000", U""},
        {"uni20A", U""},           {"u1F6000", U""},
        {"uniGGGG", U""},          {"uni0041.alt", U"A"},
        {"f_f_l.liga", U"ffl"},    {"f__i", U"fi"},
        {"unknownglyph", U""},     {".", U""}};
    for (const auto& [name, unicode] : names)
        EXPECT_EQ(unicodeOf(name), unicode) << name;
    // Appends, and only on success.
    std::u32string out = U"x";
    EXPECT_FALSE(glyphNameToUnicode("unknownglyph", &out));
    EXPECT_TRUE(glyphNameToUnicode("B", &out));
    EXPECT_EQ(out, U"xB");

    // Zapf Dingbats names only with the flag.
    EXPECT_EQ(unicodeOf("a1"), U"");
    EXPECT_EQ(unicodeOf("a206", true), U"\u2770");
    EXPECT_EQ(unicodeOf("a207", true), U"");
    EXPECT_EQ(unicodeOf("A", true), U"A");

    // The bounded form writes no more than asked.
    char32_t buffer[2] = {0, 0};
    EXPECT_EQ(glyphNameToUnicode("uni004100420043", buffer, 2), 2u);
    EXPECT_EQ(buffer[1], U'B');
    EXPECT_EQ(glyphNameToUnicode("dalethatafpatah", buffer, 1), 1u);
    EXPECT_EQ(buffer[0], U'\u05D3');
    // A long name costs no more than its length.
    std::string longName = "uni";
    for (int i = 0; i < 1000; ++i)
        longName += "0041";
    EXPECT_EQ(glyphNameToUnicode(longName, buffer, 2), 2u);
    EXPECT_EQ(unicodeOf(longName).size(), 1000u);

    // The plain list lookup the encodings are built with takes no suffixes.
    GlyphIndex index = 0;
    EXPECT_FALSE(findGlyph("quoteright.alt", &index));
    EXPECT_EQ(glyphName(GlyphIndex(glyphCount())), "");
}

TEST(KPPDFFontTablesStandardFonts, Metrics) {
    const KPPDFStandardFontMetrics* helvetica = standardFontMetrics("Helvetica");
    ASSERT_NE(helvetica, nullptr);
    bool found = false;
    EXPECT_EQ(standardFontWidth(helvetica, "space", &found), 278);
    EXPECT_TRUE(found);
    EXPECT_EQ(standardFontWidth(helvetica, "alpha", &found), 0);
    EXPECT_FALSE(found);
    EXPECT_EQ(standardFontWidthForCode(helvetica, 0x27), 222); // quoteright
    EXPECT_EQ(standardFontWidthForCode(helvetica, 0xA0, &found), 0);
    EXPECT_FALSE(found);
    EXPECT_EQ(standardFontWidth(nullptr, "A", &found), 0);

    // Every Courier glyph is 600 wide.
    for (const char* name : {"Courier", "Courier-Bold", "Courier-Oblique", "Courier-BoldOblique"}) {
        const KPPDFStandardFontMetrics* courier = standardFontMetrics(name);
        ASSERT_NE(courier, nullptr) << name;
        ASSERT_GT(courier->glyphWidthCount, 200);
        for (uint16_t i = 0; i < courier->glyphWidthCount; ++i)
            EXPECT_EQ(courier->glyphWidths[i].width, 600)
                << glyphName(courier->glyphWidths[i].glyph);
    }

    // The symbol fonts measure codes through their own encodings.
    const KPPDFStandardFontMetrics* symbol = standardFontMetrics("Symbol");
    ASSERT_NE(symbol, nullptr);
    EXPECT_EQ(standardFontWidthForCode(symbol, 0x61), 631);
    const KPPDFStandardFontMetrics* dingbats = standardFontMetrics("ZapfDingbats");
    ASSERT_NE(dingbats, nullptr);
    EXPECT_EQ(standardFontWidthForCode(dingbats, 0x21), 974);

    // No Ascender in the symbol fonts' metrics: the box stands in. Boxes are boxes.
    EXPECT_EQ(symbol->ascent, symbol->bbox[3]);
    EXPECT_EQ(symbol->descent, symbol->bbox[1]);
    for (const KPPDFStandardFontMetrics& font : standardFonts()) {
        EXPECT_LT(font.bbox[0], font.bbox[2]) << font.name;
        EXPECT_LT(font.bbox[1], font.bbox[3]) << font.name;
        EXPECT_GT(font.ascent, 0) << font.name;
        EXPECT_LT(font.descent, 0) << font.name;
    }
}

TEST(KPPDFFontTablesStandardFonts, NameResolution) {
    // The fixed table.
    const std::pair<const char*, const char*> table[] = {
        {"ArialMT", "Helvetica"},
        {"Arial-BoldMT", "Helvetica-Bold"},
        {"Helvetica,Italic", "Helvetica-Oblique"},
        {"Arial,BoldItalic", "Helvetica-BoldOblique"},
        {"Times New Roman", "Times-Roman"},
        {"TimesNewRomanPS-ItalicMT", "Times-Italic"},
        {"TimesNewRoman,BoldItalic", "Times-BoldItalic"},
        {"CourierNewPS-BoldMT", "Courier-Bold"},
        {"Courier,BoldItalic", "Courier-BoldOblique"}};
    for (const auto& [alias, standard] : table) {
        EXPECT_EQ(fontName(normalizedStandardFont(alias)), standard) << alias;
        EXPECT_EQ(fontName(standardFontMetrics(alias)), standard) << alias;
    }

    // Beyond the table, as readers resolve names.
    const std::pair<const char*, const char*> lenient[] = {
        {"ABCDEF+Arial-BoldMT", "Helvetica-Bold"},
        {"ArialMT,Bold", "Helvetica-Bold"},
        {"Arial Bold Italic", "Helvetica-BoldOblique"},
        {"TimesNewRomanPSMT,Italic", "Times-Italic"},
        {"Times-Roman,Bold", "Times-Bold"},
        {"Courier-Italic", "Courier-Oblique"},
        {"Symbol,Bold", "Symbol"}};
    for (const auto& [alias, standard] : lenient) {
        EXPECT_EQ(normalizedStandardFont(alias), nullptr) << alias;
        EXPECT_EQ(fontName(standardFontMetrics(alias)), standard) << alias;
    }

    for (const char* other :
         {"Verdana", "Arial-Black", "Helvetica-Narrow", "helvetica", "", "abcdef+Arial", "Cour"})
        EXPECT_EQ(standardFontMetrics(other), nullptr) << other;
    EXPECT_EQ(standardFontMetrics(std::string(4000, 'A')), nullptr);

    // Abbreviations, both ways.
    std::set<std::string> abbreviations;
    for (const KPPDFStandardFontMetrics& font : standardFonts()) {
        abbreviations.insert(font.abbreviation);
        EXPECT_EQ(standardFontForAbbreviation(font.abbreviation), &font);
        EXPECT_EQ(normalizedStandardFont(font.name), &font);
    }
    EXPECT_EQ(abbreviations.size(), 14u);
    EXPECT_EQ(standardFontForAbbreviation("Helvetica"), nullptr);

    // Stand-ins by class.
    EXPECT_EQ(fontName(standardFontForClass(FontClass::kSerif, true, true)), "Times-BoldItalic");
    EXPECT_EQ(fontName(standardFontForClass(FontClass::kFixedPitch, false, false)), "Courier");
    EXPECT_EQ(fontName(standardFontForClass(FontClass::kSymbolic, true, false)), "Symbol");
}

TEST(KPPDFFontTablesConsistency, TablesAgree) {
    // The shared names are unique, in byte order, and found again by name.
    ASSERT_GT(glyphCount(), 4000u);
    for (size_t i = 0; i < glyphCount(); ++i) {
        std::string_view name = glyphName(GlyphIndex(i));
        ASSERT_FALSE(name.empty());
        EXPECT_EQ(name.data()[name.size()], '\0');
        if (i > 0) {
            ASSERT_LT(glyphName(GlyphIndex(i - 1)), name);
        }
        GlyphIndex index = 0;
        ASSERT_TRUE(findGlyph(name, &index)) << name;
        EXPECT_EQ(index, i);
    }

    // Every encoding names glyphs of the table, and its Unicode table follows the glyph list.
    for (size_t e = 0; e < kEncodingCount; ++e) {
        Encoding encoding = Encoding(e);
        const GlyphIndex* glyphs = encodingGlyphs(encoding);
        const uint16_t* unicode = encodingUnicode(encoding);
        int defined = 0;
        for (int code = 0; code < 256; ++code) {
            ASSERT_LT(glyphs[code], glyphCount());
            if (glyphs[code] == kNotDefGlyph)
                continue;
            ++defined;
            std::string_view name = glyphName(glyphs[code]);
            std::u32string mapped = unicodeOf(name, encoding == Encoding::kZapfDingbats);
            ASSERT_FALSE(mapped.empty()) << encodingName(encoding) << " " << name;
            EXPECT_EQ(unicode[code], mapped[0]) << encodingName(encoding) << " " << code;
        }
        EXPECT_GT(defined, 140) << encodingName(encoding);
    }

    // The Latin fonts have a width for every glyph of the Latin encodings, and the symbol
    // fonts for every glyph of their own.
    for (const KPPDFStandardFontMetrics& font : standardFonts()) {
        std::vector<Encoding> encodings = {font.builtinEncoding};
        if (font.fontClass != FontClass::kSymbolic)
            encodings = {Encoding::kStandard, Encoding::kWinAnsi, Encoding::kMacRoman,
                         Encoding::kPDFDoc};
        for (Encoding encoding : encodings) {
            for (int code = 0; code < 256; ++code) {
                GlyphIndex glyph = encodingGlyphs(encoding)[code];
                if (glyph == kNotDefGlyph)
                    continue;
                bool found = false;
                int width = standardFontWidthForGlyph(&font, glyph, &found);
                EXPECT_TRUE(found) << font.name << " " << glyphName(glyph);
                EXPECT_GT(width, 0) << font.name << " " << glyphName(glyph);
                EXPECT_EQ(standardFontWidthForUnicode(&font, encodingUnicode(encoding)[code]),
                          width)
                    << font.name << " " << glyphName(glyph);
            }
        }
        for (uint16_t i = 1; i < font.glyphWidthCount; ++i)
            EXPECT_LT(font.glyphWidths[i - 1].glyph, font.glyphWidths[i].glyph) << font.name;
        for (uint16_t i = 1; i < font.unicodeWidthCount; ++i)
            EXPECT_LT(font.unicodeWidths[i - 1].unicode, font.unicodeWidths[i].unicode)
                << font.name;
    }
}
