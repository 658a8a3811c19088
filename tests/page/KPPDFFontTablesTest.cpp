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
        {kWinAnsi, 0x80, "Euro", 0x20AC},
        {kWinAnsi, 0x27, "quotesingle", 0x27},
        {kWinAnsi, 0xA0, "space", 0x20},
        {kMacRoman, 0xA5, "bullet", 0x2022},
        {kMacRoman, 0x80, "Adieresis", 0xC4},
        {kMacRoman, 0xDB, "currency", 0xA4},
        {kMacRoman, 0xE4, "perthousand", 0x2030},
        {kMacRoman, 0xAD, "", 0},
        {kMacRoman, 0xB9, "", 0},
        {kStandard, 0x27, "quoteright", 0x2019},
        {kStandard, 0x60, "quoteleft", 0x2018},
        {kStandard, 0xA4, "fraction", 0x2044},
        {kStandard, 0x20, "space", 0x20},
        {kStandard, 0x80, "", 0},
        {kStandard, 0xA0, "", 0},
        {kPDFDoc, 0x18, "breve", 0x2D8},
        {kPDFDoc, 0xA0, "Euro", 0x20AC},
        {kMacExpert, 0x61, "Asmall", 0xF761},
        {kSymbol, 0x61, "alpha", 0x3B1},
        {kSymbol, 0xA0, "Euro", 0x20AC},
        {kSymbol, 0xFE, "bracerightbt", 0xF8FE},
        {kZapfDingbats, 0x21, "a1", 0x2701},
        {kZapfDingbats, 0xFE, "a191", 0x27BE},
        {kZapfDingbats, 0x20, "space", 0x20},
    };
    for (const Code& c : codes) {
        SCOPED_TRACE(std::string(encodingName(c.encoding)) + " " + std::to_string(c.code));
        EXPECT_EQ(glyphAt(c.encoding, c.code), *c.glyph ? c.glyph : ".notdef");
        EXPECT_EQ(encodingUnicode(c.encoding)[c.code], c.unicode);
    }

    // Control codes map to themselves in the platform encodings only; WinAnsi's unused codes
    // are bullets (ISO 32000-1, Annex D.2).
    for (int code = 0; code < 32; ++code) {
        EXPECT_EQ(encodingUnicode(Encoding::kWinAnsi)[code], code);
        EXPECT_EQ(encodingUnicode(Encoding::kMacRoman)[code], code);
        EXPECT_EQ(encodingUnicode(Encoding::kStandard)[code], 0);
    }
    for (int code : {127, 129, 141, 143, 144, 149, 157})
        EXPECT_EQ(encodingUnicode(Encoding::kWinAnsi)[code], 0x2022) << code;
    EXPECT_EQ(encodingUnicode(Encoding::kPDFDoc)[0x0A], 0x0A);
    EXPECT_EQ(encodingUnicode(Encoding::kPDFDoc)[0x01], 0);

    // By name.
    Encoding encoding;
    ASSERT_TRUE(encodingForName("MacRomanEncoding", &encoding));
    EXPECT_EQ(encoding, Encoding::kMacRoman);
    for (size_t i = 0; i < kEncodingCount; ++i) {
        ASSERT_TRUE(encodingForName(encodingName(Encoding(i)), &encoding));
        EXPECT_EQ(size_t(encoding), i);
    }
    EXPECT_EQ(encodingByName("WinAnsiEncoding"), encodingGlyphs(Encoding::kWinAnsi));
    EXPECT_EQ(encodingByName("Identity-H"), nullptr);
    EXPECT_EQ(encodingByName("WinAnsi"), nullptr);
    EXPECT_EQ(encodingByName(""), nullptr);
}

TEST(KPPDFFontTablesEncodings, PDFDocDifferencesOverStandard) {
    std::span<const EncodingDifference> differences = pdfDocDifferences();
    ASSERT_FALSE(differences.empty());
    std::vector<int> runStarts;
    int previous = -2;
    for (const EncodingDifference& d : differences) {
        ASSERT_GT(int(d.code), previous);
        if (d.code != previous + 1)
            runStarts.push_back(d.code);
        previous = d.code;
    }
    EXPECT_EQ(runStarts, (std::vector<int>{24, 39, 96, 128, 160, 164, 166, 168, 172, 183, 192}));
    EXPECT_EQ(glyphName(differences.front().glyph), "breve");
    EXPECT_EQ(differences.back().code, 255);
    EXPECT_EQ(glyphName(differences.back().glyph), "ydieresis");

    // Applied to the standard encoding they give PDFDocEncoding from 24 on (173 stays empty).
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
    const std::pair<const char*, std::u32string> names[] = {{"A", U"A"},
                                                            {"Aacute", U"\u00C1"},
                                                            {"fi", U"\uFB01"},
                                                            {"Euro", U"\u20AC"},
                                                            {"space", U" "},
                                                            {"dalethatafpatah", U"\u05D3\u05B2"},
                                                            {"uni20AC", U"\u20AC"},
                                                            {"uni20ac", U"\u20AC"},
                                                            {"uni00410042", U"AB"},
                                                            {"u1F600", U"\U0001F600"},
                                                            {"u0041", U"A"},
                                                            {"u10FFFF", U"\U0010FFFF"},
                                                            {"uniD83D", U""},
                                                            {"uD800", U""},
                                                            {"u110000", U""},
                                                            {"uni20A", U""},
                                                            {"u1F6000", U""},
                                                            {"uniGGGG", U""},
                                                            {"a.sc", U"a"},
                                                            {"uni0041.alt", U"A"},
                                                            {"f_i", U"fi"},
                                                            {"f_f_l.liga", U"ffl"},
                                                            {"f__i", U"fi"},
                                                            {"unknownglyph", U""},
                                                            {".notdef", U""},
                                                            {"", U""},
                                                            {".", U""}};
    for (const auto& [name, unicode] : names)
        EXPECT_EQ(unicodeOf(name), unicode) << name;
    std::u32string out = U"x";
    EXPECT_FALSE(glyphNameToUnicode("unknownglyph", &out));
    EXPECT_EQ(out, U"x");
    EXPECT_TRUE(glyphNameToUnicode("B", &out));
    EXPECT_EQ(out, U"xB");

    // Zapf Dingbats names only with the flag.
    EXPECT_EQ(unicodeOf("a1"), U"");
    EXPECT_EQ(unicodeOf("a1", true), U"\u2701");
    EXPECT_EQ(unicodeOf("a206", true), U"\u2770");
    EXPECT_EQ(unicodeOf("a207", true), U"");
    EXPECT_EQ(unicodeOf("a", true), U"a");
    EXPECT_EQ(unicodeOf("A", true), U"A");

    // The bounded form writes no more than asked.
    char32_t buffer[2] = {0, 0};
    EXPECT_EQ(glyphNameToUnicode("uni004100420043", buffer, 2), 2u);
    EXPECT_EQ(buffer[0], U'A');
    EXPECT_EQ(buffer[1], U'B');
    EXPECT_EQ(glyphNameToUnicode("dalethatafpatah", buffer, 1), 1u);
    EXPECT_EQ(buffer[0], U'\u05D3');
    EXPECT_EQ(glyphNameToUnicode("A", buffer, 0), 0u);
    // A long name costs no more than its length.
    std::string longName = "uni";
    for (int i = 0; i < 1000; ++i)
        longName += "0041";
    EXPECT_EQ(glyphNameToUnicode(longName, buffer, 2), 2u);
    EXPECT_EQ(unicodeOf(longName).size(), 1000u);

    // The plain list lookup the encodings are built with.
    GlyphIndex index = 0;
    ASSERT_TRUE(findGlyph("quoteright", &index));
    EXPECT_EQ(glyphUnicode(index), 0x2019);
    EXPECT_EQ(glyphUnicode(kNotDefGlyph), 0);
    EXPECT_EQ(glyphName(kNotDefGlyph), ".notdef");
    EXPECT_FALSE(findGlyph("quoteright.alt", &index));
    EXPECT_FALSE(findGlyph("", &index));
    EXPECT_EQ(glyphName(GlyphIndex(glyphCount())), "");
}

TEST(KPPDFFontTablesStandardFonts, Metrics) {
    const KPPDFStandardFontMetrics* helvetica = standardFontMetrics("Helvetica");
    ASSERT_NE(helvetica, nullptr);
    EXPECT_EQ(standardFontWidth(helvetica, "A"), 667);
    bool found = false;
    EXPECT_EQ(standardFontWidth(helvetica, "space", &found), 278);
    EXPECT_TRUE(found);
    EXPECT_EQ(standardFontWidth(helvetica, "fraction"), 167);
    EXPECT_EQ(standardFontWidth(helvetica, "alpha", &found), 0);
    EXPECT_FALSE(found);
    EXPECT_EQ(standardFontWidth(helvetica, "nosuchglyph", &found), 0);
    EXPECT_FALSE(found);
    EXPECT_EQ(standardFontWidthForUnicode(helvetica, U'A'), 667);
    EXPECT_EQ(standardFontWidthForUnicode(helvetica, 0x20AC), 556);
    EXPECT_EQ(standardFontWidthForUnicode(helvetica, 0x1F600, &found), 0);
    EXPECT_FALSE(found);
    EXPECT_EQ(standardFontWidthForCode(helvetica, 0x27), 222); // quoteright
    EXPECT_EQ(standardFontWidthForCode(helvetica, 0xA0, &found), 0);
    EXPECT_FALSE(found);
    EXPECT_EQ(helvetica->fontClass, FontClass::kSansSerif);
    EXPECT_EQ(helvetica->flags, kFontFlagNonsymbolic);
    EXPECT_STREQ(helvetica->abbreviation, "Helv");
    EXPECT_EQ(helvetica->builtinEncoding, Encoding::kStandard);
    EXPECT_EQ(standardFontWidth(nullptr, "A", &found), 0);
    EXPECT_FALSE(found);

    const KPPDFStandardFontMetrics* times = standardFontMetrics("Times-Roman");
    ASSERT_NE(times, nullptr);
    EXPECT_EQ(times->ascent, 683);
    EXPECT_EQ(times->descent, -217);
    EXPECT_EQ(times->fontClass, FontClass::kSerif);
    EXPECT_TRUE(times->flags & kFontFlagSerif);
    EXPECT_EQ(standardFontWidth(times, "A"), 722);
    const KPPDFStandardFontMetrics* timesItalic = standardFontMetrics("Times-Italic");
    ASSERT_NE(timesItalic, nullptr);
    EXPECT_TRUE(timesItalic->italic);
    EXPECT_TRUE(timesItalic->flags & kFontFlagItalic);
    EXPECT_LT(timesItalic->italicAngle, 0);
    EXPECT_STREQ(timesItalic->abbreviation, "TiOb");

    // Every Courier glyph is 600 wide.
    for (const char* name : {"Courier", "Courier-Bold", "Courier-Oblique", "Courier-BoldOblique"}) {
        const KPPDFStandardFontMetrics* courier = standardFontMetrics(name);
        ASSERT_NE(courier, nullptr) << name;
        EXPECT_TRUE(courier->flags & kFontFlagFixedPitch);
        EXPECT_EQ(courier->fontClass, FontClass::kFixedPitch);
        ASSERT_GT(courier->glyphWidthCount, 200);
        for (uint16_t i = 0; i < courier->glyphWidthCount; ++i)
            EXPECT_EQ(courier->glyphWidths[i].width, 600)
                << glyphName(courier->glyphWidths[i].glyph);
    }

    const KPPDFStandardFontMetrics* symbol = standardFontMetrics("Symbol");
    ASSERT_NE(symbol, nullptr);
    EXPECT_EQ(symbol->builtinEncoding, Encoding::kSymbol);
    EXPECT_EQ(symbol->flags, kFontFlagSymbolic);
    EXPECT_EQ(standardFontWidth(symbol, "alpha"), 631);
    EXPECT_EQ(standardFontWidthForCode(symbol, 0x61), 631);
    EXPECT_EQ(standardFontWidthForUnicode(symbol, 0x03B1), 631);
    // No Ascender in the symbol fonts' metrics: the box stands in.
    EXPECT_EQ(symbol->ascent, symbol->bbox[3]);
    EXPECT_EQ(symbol->descent, symbol->bbox[1]);
    EXPECT_GT(symbol->ascent, 0);
    EXPECT_LT(symbol->descent, 0);

    const KPPDFStandardFontMetrics* dingbats = standardFontMetrics("ZapfDingbats");
    ASSERT_NE(dingbats, nullptr);
    EXPECT_EQ(dingbats->builtinEncoding, Encoding::kZapfDingbats);
    EXPECT_EQ(standardFontWidth(dingbats, "a1"), 974);
    EXPECT_EQ(standardFontWidthForCode(dingbats, 0x21), 974);
    EXPECT_EQ(standardFontWidthForUnicode(dingbats, 0x2701), 974);

    // Boxes are boxes.
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
        {"Helvetica", "Helvetica"},
        {"Arial", "Helvetica"},
        {"ArialMT", "Helvetica"},
        {"Arial,Bold", "Helvetica-Bold"},
        {"Arial-BoldMT", "Helvetica-Bold"},
        {"Helvetica,Italic", "Helvetica-Oblique"},
        {"Helvetica-Italic", "Helvetica-Oblique"},
        {"Arial,BoldItalic", "Helvetica-BoldOblique"},
        {"TimesNewRoman", "Times-Roman"},
        {"Times New Roman", "Times-Roman"},
        {"Times", "Times-Roman"},
        {"TimesNewRoman,Bold", "Times-Bold"},
        {"TimesNewRomanPS-ItalicMT", "Times-Italic"},
        {"TimesNewRoman,BoldItalic", "Times-BoldItalic"},
        {"CourierNew", "Courier"},
        {"CourierNew,Italic", "Courier-Oblique"},
        {"CourierNewPS-BoldMT", "Courier-Bold"},
        {"Courier,BoldItalic", "Courier-BoldOblique"},
        {"Symbol", "Symbol"},
        {"ZapfDingbats", "ZapfDingbats"}};
    for (const auto& [alias, standard] : table) {
        EXPECT_EQ(fontName(normalizedStandardFont(alias)), standard) << alias;
        EXPECT_EQ(fontName(standardFontMetrics(alias)), standard) << alias;
    }

    // Beyond the table, as readers resolve names.
    const std::pair<const char*, const char*> lenient[] = {
        {"ABCDEF+Arial-BoldMT", "Helvetica-Bold"},
        {"ABCDEF+Helvetica", "Helvetica"},
        {"ArialMT,Bold", "Helvetica-Bold"},
        {"Arial Bold Italic", "Helvetica-BoldOblique"},
        {"ArialBold", "Helvetica-Bold"},
        {"Helvetica-BoldItalicMT", "Helvetica-BoldOblique"},
        {"TimesNewRomanPSMT,Italic", "Times-Italic"},
        {"Times-Roman,Bold", "Times-Bold"},
        {"TimesRoman", "Times-Roman"},
        {"CourierNewPSMT", "Courier"},
        {"Courier-Italic", "Courier-Oblique"},
        {"SymbolMT", "Symbol"},
        {"Symbol,Bold", "Symbol"}};
    for (const auto& [alias, standard] : lenient) {
        EXPECT_EQ(normalizedStandardFont(alias), nullptr) << alias;
        EXPECT_EQ(fontName(standardFontMetrics(alias)), standard) << alias;
    }

    for (const char* other : {"Verdana", "Arial-Black", "ArialNarrow", "Helvetica-Narrow",
                              "helvetica", "", "+Arial", "abcdef+Arial", "Cour"})
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
    EXPECT_EQ(fontName(standardFontForAbbreviation("HeBo")), "Helvetica-Bold");
    EXPECT_EQ(fontName(standardFontForAbbreviation("ZaDb")), "ZapfDingbats");
    EXPECT_EQ(standardFontForAbbreviation("Helvetica"), nullptr);

    // Stand-ins by class.
    EXPECT_EQ(fontName(standardFontForClass(FontClass::kSerif, true, true)), "Times-BoldItalic");
    EXPECT_EQ(fontName(standardFontForClass(FontClass::kSansSerif, false, true)),
              "Helvetica-Oblique");
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
