#pragma once
#include <array>
#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "kppdf/objects/KPPDFObject.h"
#include "kppdf/platform/KPPDFGeometry.h"
#include "kppdf/platform/KPPDFRef.h"

class KPPDFCMap;
class KPPDFObjectArray;
class KPPDFObjectDictionary;
class KPPDFObjectName;
namespace kppdf_tables {
struct KPPDFStandardFontMetrics;
}

// Font kinds (fontType()), from the font dictionary's Subtype.
enum : int32_t {
    KPPDFFontTypeUnknown = 0,
    KPPDFFontTypeType0 = 1, // composite font
    KPPDFFontTypeType1 = 2, // Type1 and MMType1
    KPPDFFontTypeType3 = 3,
    KPPDFFontTypeTrueType = 4,
    KPPDFFontTypeCIDFont = 5, // a descendant CIDFontType0/2 used directly
};

// Byte code to UTF-16 code unit for the base encodings of ISO 32000-1, Annex D: 0 where the
// encoding defines nothing, except that WinAnsi's unused codes above 32 are bullets as Annex D
// notes. In the WinAnsi and MacRoman tables codes 0 to 31 map to themselves; in the standard
// table they hold 0. Built before main, never freed.
extern const std::array<uint16_t, 256> KPPDFFontStdToUnicode;
extern const std::array<uint16_t, 256> KPPDFFontMacToUnicode;
extern const std::array<uint16_t, 256> KPPDFFontWinToUnicode;

// A font as the text code uses it: decodes the bytes of shown strings to text and gives each
// code its advance width, ascent and descent (ISO 32000-1, section 9). Widths and metrics are
// in text space units per unit font size (glyph space / 1000).
class KPPDFFont {
public:
    // Simple fonts with FirstChar/LastChar spanning more codes than this are clipped to it.
    static constexpr uint32_t kMaxSimpleWidths = 65536;

    KPPDFFont();
    ~KPPDFFont();
    KPPDFFont(const KPPDFFont&) = delete;
    KPPDFFont& operator=(const KPPDFFont&) = delete;

    // Builds the name and abbreviation tables; the other entry points call it themselves.
    static void initialize();

    // A font for a font dictionary or a reference to one; null (and a log line) when it does
    // not resolve to a dictionary.
    static KPPDFRef<KPPDFFont> fontWithFontDictionary(const KPPDFRef<KPPDFObject>& fontDictionary);
    // Reads the font dictionary into this (fresh) font; false when it is no dictionary.
    bool initWithFontDictionary(const KPPDFRef<KPPDFObject>& fontDictionary);

    // A new simple Type 1 font dictionary for fonts the library writes: Type /Font, Subtype
    // /Type1, Name /<name>, BaseFont /<base>, Encoding the shared encodingObject().
    static KPPDFRef<KPPDFObjectDictionary> fontWithName(const std::string& name,
                                                        const std::string& base);
    // The one shared direct encoding dictionary for written fonts: Type /Encodings (so spelled
    // in the files this library has always written) and the Differences from the standard
    // encoding to PDFDocEncoding. Callers must not edit it.
    static KPPDFRef<KPPDFObjectDictionary> encodingObject();
    // The four-letter abbreviation of a standard font's name ("HeBo"), else the name itself.
    static KPPDFRef<KPPDFObjectName> abbreviatedNameForFont(const KPPDFFont& font);
    // The standard font name whose abbreviation is name, else name.
    static std::string regularName(const std::string& name);
    // The standard font name a font name stands for ("Arial,Bold" -> "Helvetica-Bold"); empty
    // when it is not one of the known names.
    static std::string normalizedName(std::string_view name);
    // The abbreviation of a standard font name; empty for other names.
    static std::string standardAbbreviation(std::string_view standardName);

    // Advance width of a code (a byte for simple fonts, a CID for composite ones); 0 when
    // nothing gives one.
    float glyphWidth(uint32_t code);
    // Ascent and descent per unit font size (descent is negative); computed once.
    float ascent();
    float descent();
    // The descriptor's Flags (a composite font's from its descendant); 0 without a descriptor.
    uint32_t descriptorFlags() const;
    // The text the bytes of a shown string stand for, in UTF-8, one character per code: one-byte
    // codes through the CMap where it maps them, else the encoding table (0 where it defines
    // nothing); two-byte codes through the CMap, else taken as UTF-16 themselves.
    std::string stringForData(std::string_view data) const;
    // The same text appended to out, which keeps its capacity: what a caller decoding many
    // strings uses so that no string is made per code.
    void appendStringForData(std::string_view data, std::string& out) const;
    // The CMap's 2-byte big-endian UTF-16 for a code; empty without a CMap or a mapping.
    std::string dataForGlyph(uint16_t code) const;

    bool isTwoByte() const { return isTwoByte_; }
    bool isVerticalMode() const { return isVerticalMode_; }
    const KPPDFRef<KPPDFObjectDictionary>& fontDictionary() const { return fontDictionary_; }
    // Null without a FontDescriptor.
    const KPPDFRef<KPPDFObjectDictionary>& fontDescriptor() const { return fontDescriptor_; }
    const std::string& fontName() const { return fontName_; }
    int32_t fontType() const { return fontType_; }
    uint32_t firstChar() const { return firstChar_; }
    uint32_t lastChar() const { return lastChar_; }
    uint32_t nWidths() const { return static_cast<uint32_t>(widths_.size()); }
    // The Type 3 FontMatrix; identity (and hasFontMatrix() false) for other fonts.
    const KPPDFAffineTransform& fontMatrix() const { return fontMatrix_; }
    bool hasFontMatrix() const { return hasFontMatrix_; }
    // The standard font that measures what the file does not; null when there is none.
    const kppdf_tables::KPPDFStandardFontMetrics* fontForWidths() const { return fontForWidths_; }
    // 256 UTF-16 code units by byte code; null for two-byte fonts and fonts without a table.
    const uint16_t* encodingTable() const { return encodingTable_; }
    // The font's ToUnicode map, or for a composite font without one its registry CMap; null
    // when there is neither.
    const KPPDFRef<KPPDFCMap>& cmap() const { return cmap_; }
    // The descendant font's W array (composite fonts); null when absent.
    const KPPDFRef<KPPDFObjectArray>& w() const { return w_; }
    float dw() const { return dw_; }

    // Equal font dictionaries.
    bool isEqual(const KPPDFFont& other) const;
    // "<font name> <subtype>".
    std::string description() const;

private:
    // One run of a W array: codes first..last take one width, or consecutive entries of
    // listWidths_ from listStart on.
    struct WidthRun {
        int64_t first;
        int64_t last;
        float width;
        uint32_t listStart;
        bool isList;
    };

    void readEncoding();
    void applyDifferences(KPPDFObjectArray& differences);
    void setupWidths();
    void setupCIDWidths();
    void setupCMap();
    // The first descendant of a composite font; null for other fonts.
    KPPDFRef<KPPDFObjectDictionary> descendantFont() const;
    // The standard font that measures a simple font the file gives no widths for.
    const kppdf_tables::KPPDFStandardFontMetrics* substituteFont() const;
    float standardWidth(uint32_t unicode) const;
    float cidWidth(uint32_t code) const;
    float metric(bool wantAscent);

    KPPDFRef<KPPDFObjectDictionary> fontDictionary_;
    KPPDFRef<KPPDFObjectDictionary> fontDescriptor_;
    KPPDFAffineTransform fontMatrix_;
    bool hasFontMatrix_ = false;
    const kppdf_tables::KPPDFStandardFontMetrics* fontForWidths_ = nullptr; // static table
    std::string fontName_;
    int32_t fontType_ = KPPDFFontTypeUnknown;
    uint32_t firstChar_ = 0;
    uint32_t lastChar_ = 0;
    float ascent_ = 0;
    float descent_ = 0;
    std::vector<float> widths_;
    std::array<uint16_t, 256> encodingTableData_{};
    const uint16_t* encodingTable_ = nullptr; // a shared table or encodingTableData_
    KPPDFRef<KPPDFObjectArray> w_;
    std::vector<WidthRun> widthRuns_;
    std::vector<float> listWidths_;
    bool widthRunsSorted_ = true; // ascending and disjoint, so a binary search finds the match
    float dw_ = 0;
    bool isTwoByte_ = false;
    KPPDFRef<KPPDFCMap> cmap_;
    bool isVerticalMode_ = false;
    // The UTF-8 text of each one-byte code, worked out once when the encoding and CMap are
    // known; used while hasCodeText_ (no code of the font decodes to half a surrogate pair).
    struct CodeText {
        uint8_t length = 0;
        char bytes[3] = {};
    };
    std::array<CodeText, 256> codeText_{};
    bool hasCodeText_ = false;
    void setupCodeText();
};

// Font name to the standard font name it stands for; every standard name maps to itself.
// Built once, never freed.
const std::map<std::string, std::string, std::less<>>& KPPDFFontNormalizedNames();
// Standard font name to its four-letter abbreviation ("Times-Italic" -> "TiOb").
const std::map<std::string, std::string, std::less<>>& KPPDFFontStdAbbreviations();
