#pragma once
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>

// Built-in data for simple fonts: the Adobe Glyph List, the base encodings of ISO 32000-1
// Annex D, and the metrics of the 14 standard Type 1 fonts (ISO 32000-1, section 9.6.2.2).
// Everything lives in constant arrays made by tools/gen/gen_font_tables.py; nothing is built at
// run time, nothing allocates (except the std::u32string overload), and every function may be
// called from any thread.
namespace kppdf_tables {

// Index into the one shared table of glyph names, which is sorted in byte order.
using GlyphIndex = uint16_t;
// ".notdef" sorts first; encodings use it for the codes they leave undefined.
inline constexpr GlyphIndex kNotDefGlyph = 0;

// Font descriptor flags (ISO 32000-1, section 9.8.2, Table 123).
inline constexpr uint32_t kFontFlagFixedPitch = 1u << 0;
inline constexpr uint32_t kFontFlagSerif = 1u << 1;
inline constexpr uint32_t kFontFlagSymbolic = 1u << 2;
inline constexpr uint32_t kFontFlagScript = 1u << 3;
inline constexpr uint32_t kFontFlagNonsymbolic = 1u << 5;
inline constexpr uint32_t kFontFlagItalic = 1u << 6;
inline constexpr uint32_t kFontFlagAllCap = 1u << 16;
inline constexpr uint32_t kFontFlagSmallCap = 1u << 17;
inline constexpr uint32_t kFontFlagForceBold = 1u << 18;

// The base encodings, in the order of the generated tables.
enum class Encoding : uint8_t {
    kStandard,
    kMacRoman,
    kWinAnsi,
    kPDFDoc,
    kMacExpert,
    kSymbol,
    kZapfDingbats,
};
inline constexpr size_t kEncodingCount = 7;

// One entry of a Differences array: the glyph at a code.
struct EncodingDifference {
    uint8_t code;
    GlyphIndex glyph;
};

// What a standard font stands for when a font has to be substituted.
enum class FontClass : uint8_t { kSansSerif, kSerif, kFixedPitch, kSymbolic };

struct GlyphWidth {
    GlyphIndex glyph;
    uint16_t width;
};

struct UnicodeWidth {
    uint16_t unicode;
    uint16_t width;
};

// Metrics of one standard font, in glyph space units (1000 per em).
struct KPPDFStandardFontMetrics {
    const char* name;         // PostScript name, "Helvetica-Bold"
    const char* abbreviation; // four letters, "HeBo"
    FontClass fontClass;
    bool bold;
    bool italic;
    uint32_t flags;    // font descriptor flags a descriptor for this font would carry
    int16_t ascent;    // AFM Ascender; the bounding box top for the symbol fonts
    int16_t descent;   // AFM Descender (negative); the bounding box bottom for the symbol fonts
    int16_t capHeight; // these four from the metric-compatible URW design
    int16_t xHeight;
    float italicAngle; // degrees, counter-clockwise from vertical
    int16_t bbox[4];   // llx, lly, urx, ury over the font's glyphs
    Encoding builtinEncoding;
    const GlyphWidth* glyphWidths; // sorted by glyph
    uint16_t glyphWidthCount;
    const UnicodeWidth* unicodeWidths; // sorted by code point
    uint16_t unicodeWidthCount;
};

// Glyph names.

// Number of names in the shared table.
size_t glyphCount();
// The name at index, empty when out of range; the view's data is NUL-terminated.
std::string_view glyphName(GlyphIndex index);
// Exact lookup of a name in the shared table; false (index untouched) when absent.
bool findGlyph(std::string_view name, GlyphIndex* index);
// First code point of the name's Adobe Glyph List entry, 0 when the name is not in the list
// (".notdef" included). This is the plain list lookup, without the rules below.
uint16_t glyphUnicode(GlyphIndex index);

// Maps a glyph name to Unicode by the Adobe Glyph List's published mapping rules: the part
// from the first "." on is dropped, the rest is split at "_", and each component maps through
// the ITC Zapf Dingbats list ("a1" ...) when zapfDingbats is set, else the glyph list (an entry
// may give several code points), else "uniXXXX..." (groups of four hex digits, no surrogates),
// else "uXXXX" to "uXXXXXX", else to nothing. Hex digits of either case are accepted.
// Writes at most capacity code points to out and returns how many it wrote; 0 means no mapping.
size_t glyphNameToUnicode(std::string_view glyph, char32_t* out, size_t capacity,
                          bool zapfDingbats = false);
// The same, appending every code point to *out; false when the name maps to nothing.
bool glyphNameToUnicode(std::string_view glyph, std::u32string* out, bool zapfDingbats = false);

// Base encodings.

// "StandardEncoding", "MacRomanEncoding", "WinAnsiEncoding", "PDFDocEncoding",
// "MacExpertEncoding", "SymbolEncoding", "ZapfDingbatsEncoding"; false for any other name.
bool encodingForName(std::string_view name, Encoding* encoding);
// The PDF name of the encoding (without the slash).
std::string_view encodingName(Encoding encoding);
// 256 glyph indices by byte code; kNotDefGlyph where the encoding defines nothing.
const GlyphIndex* encodingGlyphs(Encoding encoding);
// 256 UTF-16 code units by byte code, 0 where nothing is defined. Codes 0 to 31 map to
// themselves in MacRoman and WinAnsi, tab, line feed and carriage return in PDFDoc; codes that
// WinAnsi leaves unused above 32 hold the bullet, as ISO 32000-1 Annex D notes.
const uint16_t* encodingUnicode(Encoding encoding);
// encodingGlyphs of the named encoding, nullptr for an unknown name.
const GlyphIndex* encodingByName(std::string_view name);
// The Differences that turn StandardEncoding into PDFDocEncoding for fonts this system writes,
// sorted by code; a code that does not follow its predecessor starts a new run. Runs start at
// 24, 39, 96, 128, 160, 164, 166, 168, 172, 183 and 192; code 173 is ".notdef".
std::span<const EncodingDifference> pdfDocDifferences();

// Standard fonts.

// All 14, Courier, Helvetica and Times families (regular, bold, italic, bold italic), Symbol,
// ZapfDingbats. Pointers into this table stay valid for the life of the process.
std::span<const KPPDFStandardFontMetrics> standardFonts();
// The font a name stands for through the fixed table of common names (the standard names,
// "Arial", "TimesNewRoman,Bold", "CourierNewPS-BoldMT", ...); nullptr for any other name.
const KPPDFStandardFontMetrics* normalizedStandardFont(std::string_view name);
// Like normalizedStandardFont, then as PDF readers resolve names: a subset tag ("ABCDEF+") and
// spaces are dropped, and a family (Helvetica, Arial, Times, TimesNewRoman, Courier,
// CourierNew, Symbol, ZapfDingbats) followed by style words (Bold, Italic, Oblique, Roman,
// Regular, MT, PS, separated by nothing, "," or "-") is matched. nullptr when nothing matches.
const KPPDFStandardFontMetrics* standardFontMetrics(std::string_view baseFontName);
// The font whose abbreviation is the argument ("HeBo"), nullptr for none.
const KPPDFStandardFontMetrics* standardFontForAbbreviation(std::string_view abbreviation);
// The standard font that stands in for a font of the class and style; Symbol for kSymbolic.
const KPPDFStandardFontMetrics* standardFontForClass(FontClass fontClass, bool bold, bool italic);

// Advance width of a glyph by exact name; 0 and *found = false (when found is given) for a
// null font or a glyph the font lacks.
int standardFontWidth(const KPPDFStandardFontMetrics* font, std::string_view glyph,
                      bool* found = nullptr);
// The same by glyph index.
int standardFontWidthForGlyph(const KPPDFStandardFontMetrics* font, GlyphIndex glyph,
                              bool* found = nullptr);
// Width of the glyph the font draws for a code point (glyph list names; ZapfDingbats through
// its own list), as a system font would measure a one-character string.
int standardFontWidthForUnicode(const KPPDFStandardFontMetrics* font, char32_t unicode,
                                bool* found = nullptr);
// Width of the glyph at a byte code of the font's built-in encoding.
int standardFontWidthForCode(const KPPDFStandardFontMetrics* font, uint8_t code,
                             bool* found = nullptr);

} // namespace kppdf_tables
