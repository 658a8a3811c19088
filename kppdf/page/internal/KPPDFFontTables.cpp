#include "kppdf/page/internal/KPPDFFontTables.h"

#include <algorithm>

#include "kppdf/page/internal/KPPDFFontTablesData.h"
#include "kppdf/platform/KPPDFAssert.h"

namespace kppdf_tables {

namespace g = generated;

static_assert(g::kGeneratedEncodingCount == kEncodingCount,
              "the generated encodings follow kppdf_tables::Encoding");

namespace {

// Font names longer than this are not matched by family and style; PDF names stay within 127
// bytes (ISO 32000-1, Annex C).
constexpr size_t kMaxFontNameLength = 127;
// "uni" is followed by groups of this many hex digits, one code point each.
constexpr size_t kUniGroupDigits = 4;
// "u" is followed by this many hex digits, at least and at most.
constexpr size_t kUMinDigits = 4;
constexpr size_t kUMaxDigits = 6;
// "a1" to "a206" in the Zapf Dingbats list.
constexpr size_t kMaxDingbatDigits = 3;
constexpr char32_t kMaxCodePoint = 0x10FFFF;
constexpr size_t kSubsetTagLength = 6;

std::string_view nameAt(size_t i) {
    uint32_t start = g::kGlyphNameOffsets[i];
    return {g::kGlyphNamePool + start, g::kGlyphNameOffsets[i + 1] - start - 1};
}

bool isSurrogate(char32_t c) {
    return c >= 0xD800 && c <= 0xDFFF;
}

int hexDigit(char c) {
    if (c >= '0' && c <= '9')
        return c - '0';
    if (c >= 'A' && c <= 'F')
        return c - 'A' + 10;
    if (c >= 'a' && c <= 'f')
        return c - 'a' + 10;
    return -1;
}

// The value of a run of hex digits, or -1 when one is not a hex digit. The caller bounds the
// length, so the value fits.
int32_t hexValue(std::string_view digits) {
    int32_t value = 0;
    for (char c : digits) {
        int d = hexDigit(c);
        if (d < 0)
            return -1;
        value = value * 16 + d;
    }
    return value;
}

uint16_t dingbatUnicode(std::string_view component) {
    if (component.size() < 2 || component.size() > 1 + kMaxDingbatDigits || component[0] != 'a')
        return 0;
    size_t n = 0;
    for (char c : component.substr(1)) {
        if (c < '0' || c > '9')
            return 0;
        n = n * 10 + size_t(c - '0');
    }
    return n < g::kZapfDingbatsCount ? g::kZapfDingbatsUnicode[n] : 0;
}

const g::MultiUnicode* multiUnicode(GlyphIndex glyph) {
    std::span<const g::MultiUnicode> multi(g::kMultiUnicode);
    auto it = std::ranges::lower_bound(multi, glyph, {}, &g::MultiUnicode::glyph);
    return it != multi.end() && it->glyph == glyph ? &*it : nullptr;
}

// One "_"-separated component of a glyph name, through the Adobe Glyph List's mapping rules in
// their order.
template <typename Emit>
void mapComponent(std::string_view component, bool zapfDingbats, Emit& emit) {
    if (component.empty())
        return;
    if (zapfDingbats) {
        if (uint16_t u = dingbatUnicode(component)) {
            emit(u);
            return;
        }
    }
    GlyphIndex glyph;
    if (findGlyph(component, &glyph) && g::kGlyphUnicode[glyph] != 0) {
        if (const g::MultiUnicode* multi = multiUnicode(glyph)) {
            for (uint16_t i = 0; i < multi->count; ++i)
                emit(multi->codePoints[i]);
        } else {
            emit(g::kGlyphUnicode[glyph]);
        }
        return;
    }
    if (component.size() > 3 && component.starts_with("uni") &&
        (component.size() - 3) % kUniGroupDigits == 0) {
        std::string_view digits = component.substr(3);
        bool valid = true;
        for (size_t i = 0; i < digits.size() && valid; i += kUniGroupDigits) {
            int32_t v = hexValue(digits.substr(i, kUniGroupDigits));
            valid = v >= 0 && !isSurrogate(char32_t(v));
        }
        if (valid) {
            for (size_t i = 0; i < digits.size(); i += kUniGroupDigits)
                emit(char32_t(hexValue(digits.substr(i, kUniGroupDigits))));
            return;
        }
    }
    if (component.size() >= 1 + kUMinDigits && component.size() <= 1 + kUMaxDigits &&
        component[0] == 'u') {
        int32_t v = hexValue(component.substr(1));
        if (v >= 0 && char32_t(v) <= kMaxCodePoint && !isSurrogate(char32_t(v)))
            emit(char32_t(v));
    }
}

template <typename Emit> void mapGlyphName(std::string_view glyph, bool zapfDingbats, Emit& emit) {
    glyph = glyph.substr(0, glyph.find('.'));
    while (true) {
        size_t underscore = glyph.find('_');
        mapComponent(glyph.substr(0, underscore), zapfDingbats, emit);
        if (underscore == std::string_view::npos)
            break;
        glyph.remove_prefix(underscore + 1);
    }
}

const KPPDFStandardFontMetrics* fontNamed(std::string_view name) {
    for (const KPPDFStandardFontMetrics& font : g::kStandardFonts) {
        if (name == font.name)
            return &font;
    }
    return nullptr;
}

struct FontFamily {
    std::string_view prefix;
    FontClass fontClass;
    const char* onlyFace; // the one font of a family without styles, else nullptr
};

// Longer names first where one begins with another.
constexpr FontFamily kFontFamilies[] = {
    {"TimesNewRoman", FontClass::kSerif, nullptr},
    {"Times", FontClass::kSerif, nullptr},
    {"CourierNew", FontClass::kFixedPitch, nullptr},
    {"Courier", FontClass::kFixedPitch, nullptr},
    {"Helvetica", FontClass::kSansSerif, nullptr},
    {"Arial", FontClass::kSansSerif, nullptr},
    {"Symbol", FontClass::kSymbolic, "Symbol"},
    {"ZapfDingbats", FontClass::kSymbolic, "ZapfDingbats"},
};

struct StyleWord {
    std::string_view word;
    bool bold;
    bool italic;
};

constexpr StyleWord kStyleWords[] = {
    {"Bold", true, false},   {"Italic", false, true},   {"Oblique", false, true},
    {"Roman", false, false}, {"Regular", false, false}, {"MT", false, false},
    {"PS", false, false},    {",", false, false},       {"-", false, false},
};

const KPPDFStandardFontMetrics* matchFamilyAndStyle(std::string_view name) {
    for (const FontFamily& family : kFontFamilies) {
        if (!name.starts_with(family.prefix))
            continue;
        std::string_view style = name.substr(family.prefix.size());
        bool bold = false, italic = false;
        while (!style.empty()) {
            const StyleWord* match = nullptr;
            for (const StyleWord& word : kStyleWords) {
                if (style.starts_with(word.word)) {
                    match = &word;
                    break;
                }
            }
            if (!match)
                return nullptr;
            bold = bold || match->bold;
            italic = italic || match->italic;
            style.remove_prefix(match->word.size());
        }
        if (family.onlyFace)
            return fontNamed(family.onlyFace);
        return standardFontForClass(family.fontClass, bold, italic);
    }
    return nullptr;
}

void setFound(bool* found, bool value) {
    if (found)
        *found = value;
}

} // namespace

size_t glyphCount() {
    return g::kGlyphCount;
}

std::string_view glyphName(GlyphIndex index) {
    return index < g::kGlyphCount ? nameAt(index) : std::string_view();
}

bool findGlyph(std::string_view name, GlyphIndex* index) {
    size_t low = 0, high = g::kGlyphCount;
    while (low < high) {
        size_t middle = low + (high - low) / 2;
        if (nameAt(middle) < name)
            low = middle + 1;
        else
            high = middle;
    }
    if (low == g::kGlyphCount || nameAt(low) != name)
        return false;
    *index = GlyphIndex(low);
    return true;
}

uint16_t glyphUnicode(GlyphIndex index) {
    return index < g::kGlyphCount ? g::kGlyphUnicode[index] : 0;
}

size_t glyphNameToUnicode(std::string_view glyph, char32_t* out, size_t capacity,
                          bool zapfDingbats) {
    size_t count = 0;
    auto emit = [&](char32_t c) {
        if (count < capacity)
            out[count++] = c;
    };
    mapGlyphName(glyph, zapfDingbats, emit);
    return count;
}

bool glyphNameToUnicode(std::string_view glyph, std::u32string* out, bool zapfDingbats) {
    size_t before = out->size();
    auto emit = [&](char32_t c) { out->push_back(c); };
    mapGlyphName(glyph, zapfDingbats, emit);
    return out->size() > before;
}

bool encodingForName(std::string_view name, Encoding* encoding) {
    for (size_t i = 0; i < kEncodingCount; ++i) {
        if (name == g::kEncodingNames[i]) {
            *encoding = Encoding(i);
            return true;
        }
    }
    return false;
}

std::string_view encodingName(Encoding encoding) {
    KPPDF_ASSERT(size_t(encoding) < kEncodingCount);
    return g::kEncodingNames[size_t(encoding)];
}

const GlyphIndex* encodingGlyphs(Encoding encoding) {
    KPPDF_ASSERT(size_t(encoding) < kEncodingCount);
    return g::kEncodingGlyphs[size_t(encoding)];
}

const uint16_t* encodingUnicode(Encoding encoding) {
    KPPDF_ASSERT(size_t(encoding) < kEncodingCount);
    return g::kEncodingUnicode[size_t(encoding)];
}

const GlyphIndex* encodingByName(std::string_view name) {
    Encoding encoding;
    return encodingForName(name, &encoding) ? encodingGlyphs(encoding) : nullptr;
}

std::span<const EncodingDifference> pdfDocDifferences() {
    return g::kPDFDocDifferences;
}

std::span<const KPPDFStandardFontMetrics> standardFonts() {
    return g::kStandardFonts;
}

const KPPDFStandardFontMetrics* normalizedStandardFont(std::string_view name) {
    std::span<const g::FontAlias> aliases(g::kFontAliases);
    auto it = std::ranges::lower_bound(
        aliases, name, {}, [](const g::FontAlias& a) { return std::string_view(a.name); });
    if (it == aliases.end() || name != it->name)
        return nullptr;
    return &g::kStandardFonts[it->font];
}

const KPPDFStandardFontMetrics* standardFontMetrics(std::string_view baseFontName) {
    if (const KPPDFStandardFontMetrics* font = normalizedStandardFont(baseFontName))
        return font;
    std::string_view name = baseFontName;
    if (name.size() > kSubsetTagLength + 1 && name[kSubsetTagLength] == '+' &&
        std::all_of(name.begin(), name.begin() + kSubsetTagLength,
                    [](char c) { return c >= 'A' && c <= 'Z'; }))
        name.remove_prefix(kSubsetTagLength + 1);
    if (name.size() > kMaxFontNameLength)
        return nullptr;
    char compact[kMaxFontNameLength];
    size_t length = 0;
    for (char c : name) {
        if (c != ' ')
            compact[length++] = c;
    }
    std::string_view compactName(compact, length);
    if (const KPPDFStandardFontMetrics* font = normalizedStandardFont(compactName))
        return font;
    return matchFamilyAndStyle(compactName);
}

const KPPDFStandardFontMetrics* standardFontForAbbreviation(std::string_view abbreviation) {
    for (const KPPDFStandardFontMetrics& font : g::kStandardFonts) {
        if (abbreviation == font.abbreviation)
            return &font;
    }
    return nullptr;
}

const KPPDFStandardFontMetrics* standardFontForClass(FontClass fontClass, bool bold, bool italic) {
    for (const KPPDFStandardFontMetrics& font : g::kStandardFonts) {
        if (font.fontClass != fontClass)
            continue;
        if (fontClass == FontClass::kSymbolic || (font.bold == bold && font.italic == italic))
            return &font;
    }
    return nullptr;
}

int standardFontWidth(const KPPDFStandardFontMetrics* font, std::string_view glyph, bool* found) {
    GlyphIndex index;
    if (!font || !findGlyph(glyph, &index)) {
        setFound(found, false);
        return 0;
    }
    return standardFontWidthForGlyph(font, index, found);
}

int standardFontWidthForGlyph(const KPPDFStandardFontMetrics* font, GlyphIndex glyph, bool* found) {
    if (font) {
        std::span<const GlyphWidth> widths(font->glyphWidths, font->glyphWidthCount);
        auto it = std::ranges::lower_bound(widths, glyph, {}, &GlyphWidth::glyph);
        if (it != widths.end() && it->glyph == glyph) {
            setFound(found, true);
            return it->width;
        }
    }
    setFound(found, false);
    return 0;
}

int standardFontWidthForUnicode(const KPPDFStandardFontMetrics* font, char32_t unicode,
                                bool* found) {
    // Every standard font glyph lies in the Basic Multilingual Plane.
    if (font && unicode <= 0xFFFF) {
        std::span<const UnicodeWidth> widths(font->unicodeWidths, font->unicodeWidthCount);
        auto it = std::ranges::lower_bound(widths, uint16_t(unicode), {}, &UnicodeWidth::unicode);
        if (it != widths.end() && it->unicode == unicode) {
            setFound(found, true);
            return it->width;
        }
    }
    setFound(found, false);
    return 0;
}

int standardFontWidthForCode(const KPPDFStandardFontMetrics* font, uint8_t code, bool* found) {
    if (!font) {
        setFound(found, false);
        return 0;
    }
    GlyphIndex glyph = encodingGlyphs(font->builtinEncoding)[code];
    if (glyph == kNotDefGlyph) {
        setFound(found, false);
        return 0;
    }
    return standardFontWidthForGlyph(font, glyph, found);
}

} // namespace kppdf_tables
