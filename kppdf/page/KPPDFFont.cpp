#include "kppdf/page/KPPDFFont.h"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstring>
#include <limits>
#include <mutex>

#include "kppdf/objects/KPPDFObjectArray.h"
#include "kppdf/objects/KPPDFObjectDictionary.h"
#include "kppdf/objects/KPPDFObjectInteger.h"
#include "kppdf/objects/KPPDFObjectName.h"
#include "kppdf/objects/KPPDFObjectStream.h"
#include "kppdf/page/KPPDFCMap.h"
#include "kppdf/page/internal/KPPDFFontTables.h"
#include "kppdf/page/internal/KPPDFFontTablesData.h"
#include "kppdf/platform/KPPDFLog.h"

using namespace kppdf_tables;

namespace {

// Code points the glyph names of the Adobe Glyph List map to, at most.
constexpr size_t kMaxGlyphCodePoints = 8;
constexpr float kGlyphSpaceUnits = 1000.0f;

// WinAnsi's unused codes above 32 come out as the bullet: ISO 32000-1, Annex D.2 maps them so,
// and producers (reportlab among them) write bullets there.
std::array<uint16_t, 256> makeBaseTable(Encoding encoding, bool controlsMapToThemselves) {
    std::array<uint16_t, 256> table{};
    const GlyphIndex* glyphs = encodingGlyphs(encoding);
    for (size_t code = 0; code < 256; code++)
        table[code] = glyphs[code] == kNotDefGlyph ? 0 : glyphUnicode(glyphs[code]);
    if (controlsMapToThemselves)
        for (uint16_t code = 0; code < 32; code++)
            table[code] = code;
    return table;
}

// The code unit a Differences glyph name stands for: the glyph list, then the "uniXXXX" and
// "uXXXX" forms and ligature components (the first is kept, one unit per code). False for a
// name that maps to nothing or beyond the basic plane.
bool unitForGlyphName(std::string_view name, uint16_t* unit) {
    if (name == ".notdef") {
        *unit = 0;
        return true;
    }
    char32_t codePoints[kMaxGlyphCodePoints];
    if (glyphNameToUnicode(name, codePoints, kMaxGlyphCodePoints) == 0 || codePoints[0] > 0xFFFF)
        return false;
    *unit = static_cast<uint16_t>(codePoints[0]);
    return true;
}

constexpr char32_t kReplacementCharacter = 0xFFFD;

void appendUTF8(std::string& out, char32_t c) {
    if (c < 0x80) {
        out += static_cast<char>(c);
    } else if (c < 0x800) {
        out += static_cast<char>(0xC0 | (c >> 6));
        out += static_cast<char>(0x80 | (c & 0x3F));
    } else if (c < 0x10000) {
        out += static_cast<char>(0xE0 | (c >> 12));
        out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (c & 0x3F));
    } else {
        out += static_cast<char>(0xF0 | (c >> 18));
        out += static_cast<char>(0x80 | ((c >> 12) & 0x3F));
        out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (c & 0x3F));
    }
}

std::string lowercase(std::string_view text) {
    std::string out(text);
    for (char& c : out)
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return out;
}

bool numberValue(const KPPDFRef<KPPDFObject>& object, float* value) {
    if (!object || !object->isNumber())
        return false;
    *value = object->realValue();
    return true;
}

// A number as an integer, truncated; reals beyond the 64-bit range are clamped (a file may say
// 1e30 where an integer belongs), NaN and non-numbers give false.
bool integerValue(const KPPDFRef<KPPDFObject>& object, long long* value) {
    if (!object || !object->isNumber())
        return false;
    if (object->objectType() == KPPDFObjectTypeInteger) {
        *value = object->longLongValue();
        return true;
    }
    double real = object->realValue();
    if (std::isnan(real))
        return false;
    // 2^62: exactly representable, and far beyond any code a font can have.
    constexpr double kLimit = 4611686018427387904.0;
    *value = static_cast<long long>(std::clamp(real, -kLimit, kLimit));
    return true;
}

std::string nameValue(const KPPDFRef<KPPDFObject>& object) {
    auto name = KPPDFCast<KPPDFObjectName>(object);
    return name ? name->value() : std::string();
}

// Clamps a number from a file into the 32-bit code space.
uint32_t codeValue(long long value) {
    return static_cast<uint32_t>(
        std::clamp<long long>(value, 0, std::numeric_limits<uint32_t>::max()));
}

KPPDFRef<KPPDFObjectDictionary> buildEncodingObject() {
    auto differences = std::make_shared<KPPDFObjectArray>();
    int previous = -2;
    for (const EncodingDifference& difference : pdfDocDifferences()) {
        if (difference.code != previous + 1)
            differences->addObject(KPPDFObjectInteger::integerWithLongLong(difference.code));
        differences->addObject(
            KPPDFObjectName::nameWithString(std::string(glyphName(difference.glyph))));
        previous = difference.code;
    }
    auto encoding = std::make_shared<KPPDFObjectDictionary>();
    // "Encodings", not "Encoding": the files this library has always written carry it so.
    encoding->setObject(KPPDFObjectName::nameWithString("Encodings"), "Type");
    encoding->setObject(differences, "Differences");
    return encoding;
}

} // namespace

const std::array<uint16_t, 256> KPPDFFontStdToUnicode = makeBaseTable(Encoding::kStandard, false);
const std::array<uint16_t, 256> KPPDFFontMacToUnicode = makeBaseTable(Encoding::kMacRoman, true);
const std::array<uint16_t, 256> KPPDFFontWinToUnicode = makeBaseTable(Encoding::kWinAnsi, true);

const std::map<std::string, std::string, std::less<>>& KPPDFFontNormalizedNames() {
    static const auto* names = [] {
        auto* map = new std::map<std::string, std::string, std::less<>>;
        for (const generated::FontAlias& alias : generated::kFontAliases)
            map->emplace(alias.name, generated::kStandardFonts[alias.font].name);
        return map;
    }();
    return *names;
}

const std::map<std::string, std::string, std::less<>>& KPPDFFontStdAbbreviations() {
    static const auto* abbreviations = [] {
        auto* map = new std::map<std::string, std::string, std::less<>>;
        for (const KPPDFStandardFontMetrics& font : standardFonts())
            map->emplace(font.name, font.abbreviation);
        return map;
    }();
    return *abbreviations;
}

KPPDFFont::KPPDFFont() = default;
KPPDFFont::~KPPDFFont() = default;

void KPPDFFont::initialize() {
    KPPDFFontNormalizedNames();
    KPPDFFontStdAbbreviations();
}

KPPDFRef<KPPDFFont> KPPDFFont::fontWithFontDictionary(const KPPDFRef<KPPDFObject>& fontDictionary) {
    auto font = std::make_shared<KPPDFFont>();
    if (!font->initWithFontDictionary(fontDictionary))
        return nullptr;
    return font;
}

bool KPPDFFont::initWithFontDictionary(const KPPDFRef<KPPDFObject>& fontDictionary) {
    initialize();
    fontDictionary_ = KPPDFResolve<KPPDFObjectDictionary>(fontDictionary);
    if (!fontDictionary_) {
        KPPDFLog("Font is not a dictionary: %s",
                 fontDictionary ? fontDictionary->description().c_str() : "(null)");
        return false;
    }
    fontDescriptor_ =
        fontDictionary_->resolvedObjectForKey<KPPDFObjectDictionary>("FontDescriptor");

    std::string subtype = nameValue(fontDictionary_->resolvedObjectForKey("Subtype"));
    if (subtype == "Type0")
        fontType_ = KPPDFFontTypeType0;
    if (subtype.ends_with("Type1"))
        fontType_ = KPPDFFontTypeType1;
    if (subtype == "Type3")
        fontType_ = KPPDFFontTypeType3;
    if (subtype == "TrueType")
        fontType_ = KPPDFFontTypeTrueType;
    if (subtype.starts_with("CIDFontType"))
        fontType_ = KPPDFFontTypeCIDFont;

    if (fontType_ == KPPDFFontTypeType3) {
        auto matrix = fontDictionary_->resolvedObjectForKey<KPPDFObjectArray>("FontMatrix");
        float m[6];
        bool valid = matrix && matrix->count() == 6;
        for (size_t i = 0; valid && i < 6; i++)
            valid = numberValue(matrix->resolvedObjectAtIndex(i), &m[i]);
        if (valid) {
            fontMatrix_ = {m[0], m[1], m[2], m[3], m[4], m[5]};
            hasFontMatrix_ = true;
        } else {
            KPPDFLog("Type 3 font without a usable FontMatrix");
        }
    }

    std::string descriptorName =
        fontDescriptor_ ? nameValue(fontDescriptor_->resolvedObjectForKey("FontName")) : "";
    fontName_ = !descriptorName.empty()
                    ? descriptorName
                    : nameValue(fontDictionary_->resolvedObjectForKey("BaseFont"));

    readEncoding();
    if (fontType_ >= KPPDFFontTypeType1 && fontType_ <= KPPDFFontTypeTrueType)
        setupWidths();
    setupCMap();
    if (fontType_ == KPPDFFontTypeType0)
        setupCIDWidths();
    setupCodeText();
    return true;
}

void KPPDFFont::setupCodeText() {
    hasCodeText_ = false;
    if (isTwoByte_ || !encodingTable_)
        return;
    std::array<CodeText, 256> table{};
    for (uint32_t code = 0; code < 256; code++) {
        uint16_t unit;
        if (!cmap_ || !cmap_->unicodeForCode(code, &unit))
            unit = encodingTable_[code];
        // Half a pair may join the next code's half; such fonts take the general path.
        if (unit >= 0xD800 && unit <= 0xDFFF)
            return;
        std::string text;
        appendUTF8(text, unit);
        table[code].length = static_cast<uint8_t>(text.size());
        std::memcpy(table[code].bytes, text.data(), text.size());
    }
    codeText_ = table;
    hasCodeText_ = true;
}

void KPPDFFont::readEncoding() {
    encodingTable_ = KPPDFFontStdToUnicode.data();
    KPPDFRef<KPPDFObject> encoding = fontDictionary_->resolvedObjectForKey("Encoding");
    KPPDFRef<KPPDFObject> base;
    KPPDFRef<KPPDFObjectArray> differences;
    if (auto dictionary = KPPDFCast<KPPDFObjectDictionary>(encoding)) {
        base = dictionary->resolvedObjectForKey("BaseEncoding");
        differences = dictionary->resolvedObjectForKey<KPPDFObjectArray>("Differences");
    } else {
        base = encoding;
    }

    const uint16_t* table = KPPDFFontStdToUnicode.data();
    if (auto name = KPPDFCast<KPPDFObjectName>(base)) {
        const std::string& baseName = name->value();
        if (baseName == "MacRomanEncoding") {
            table = KPPDFFontMacToUnicode.data();
        } else if (baseName == "WinAnsiEncoding") {
            table = KPPDFFontWinToUnicode.data();
        } else if (baseName == "MacExpertEncoding") {
            // Expert glyphs (small capitals, old-style figures) are rare in text; MacRoman
            // gives their plain letters and digits a reading at least.
            KPPDFLog("TBI: MacExpertEncoding");
            table = KPPDFFontMacToUnicode.data();
        } else if (baseName.starts_with("Identity")) {
            isTwoByte_ = true;
            if (baseName.ends_with("-V"))
                isVerticalMode_ = true;
            // Two-byte codes have no table for Differences to change.
            encodingTable_ = nullptr;
            return;
        }
        // Any other name, the predefined CJK CMaps among them, reads one byte per code through
        // the standard table.
    }
    if (!differences) {
        encodingTable_ = table;
        return;
    }
    std::copy(table, table + 256, encodingTableData_.begin());
    encodingTable_ = encodingTableData_.data();
    applyDifferences(*differences);
}

void KPPDFFont::applyDifferences(KPPDFObjectArray& differences) {
    long long code = 0;
    for (const KPPDFRef<KPPDFObject>& element : differences.value()) {
        KPPDFRef<KPPDFObject> entry = KPPDFObject::resolve(element);
        if (!entry)
            continue;
        if (integerValue(entry, &code))
            continue;
        auto name = KPPDFCast<KPPDFObjectName>(entry);
        if (!name)
            continue;
        uint16_t unit;
        // A name the glyph list does not know (subset glyphs such as "g23") leaves the code
        // reading as the base encoding has it.
        if (code >= 0 && code < 256 && unitForGlyphName(name->decodedValue(), &unit))
            encodingTableData_[static_cast<size_t>(code)] = unit;
        if (code < 256)
            code++;
    }
}

const KPPDFStandardFontMetrics* KPPDFFont::substituteFont() const {
    uint32_t flags = descriptorFlags();
    FontClass fontClass = (flags & kFontFlagFixedPitch) ? FontClass::kFixedPitch
                          : (flags & kFontFlagSerif)    ? FontClass::kSerif
                                                        : FontClass::kSansSerif;
    std::string name = lowercase(fontName_);
    bool bold = (flags & kFontFlagForceBold) || name.find("bold") != std::string::npos;
    bool italic = (flags & kFontFlagItalic) || name.find("italic") != std::string::npos ||
                  name.find("oblique") != std::string::npos;
    return standardFontForClass(fontClass, bold, italic);
}

float KPPDFFont::standardWidth(uint32_t unicode) const {
    if (!fontForWidths_)
        return 0;
    return standardFontWidthForUnicode(fontForWidths_, unicode) / kGlyphSpaceUnits;
}

void KPPDFFont::setupWidths() {
    fontForWidths_ = normalizedStandardFont(fontName_);
    long long first = 0;
    bool hasWidths = integerValue(fontDictionary_->resolvedObjectForKey("FirstChar"), &first);
    if (hasWidths) {
        long long last = 0;
        integerValue(fontDictionary_->resolvedObjectForKey("LastChar"), &last);
        firstChar_ = codeValue(first);
        lastChar_ = codeValue(last);
        uint64_t count = lastChar_ >= firstChar_ ? uint64_t(lastChar_) - firstChar_ + 1 : 0;
        if (lastChar_ < firstChar_)
            KPPDFLog("Font %s: LastChar %u before FirstChar %u", fontName_.c_str(), lastChar_,
                     firstChar_);
        if (count > kMaxSimpleWidths) {
            KPPDFLog("Font %s: %llu widths clipped to %u", fontName_.c_str(),
                     static_cast<unsigned long long>(count), kMaxSimpleWidths);
            count = kMaxSimpleWidths;
        }
        auto widthsArray = fontDictionary_->resolvedObjectForKey<KPPDFObjectArray>("Widths");
        size_t given = widthsArray ? widthsArray->count() : 0;
        if (given < count)
            KPPDFLog("Font %s: %zu widths for %llu codes", fontName_.c_str(), given,
                     static_cast<unsigned long long>(count));
        float missingWidth = 0;
        if (fontDescriptor_)
            numberValue(fontDescriptor_->resolvedObjectForKey("MissingWidth"), &missingWidth);
        widths_.resize(count);
        for (size_t i = 0; i < count; i++) {
            float width;
            if (i < given && numberValue(widthsArray->resolvedObjectAtIndex(i), &width))
                widths_[i] = width / kGlyphSpaceUnits;
            else
                widths_[i] = missingWidth / kGlyphSpaceUnits;
        }
        return;
    }

    if (!fontForWidths_) {
        KPPDFLog("%s\n%s", fontDictionary_->description().c_str(),
                 fontDescriptor_ ? fontDescriptor_->description().c_str() : "(null)");
        KPPDFLog("%s, %s", fontName_.c_str(), "(null)");
        // Measured as the standard font of its kind rather than not at all.
        fontForWidths_ = substituteFont();
    }
    if (encodingTable_) {
        widths_.resize(256);
        for (size_t i = 0; i < 256; i++)
            widths_[i] = standardWidth(encodingTable_[i]);
    }
}

KPPDFRef<KPPDFObjectDictionary> KPPDFFont::descendantFont() const {
    if (fontType_ != KPPDFFontTypeType0)
        return nullptr;
    auto descendants = fontDictionary_->resolvedObjectForKey<KPPDFObjectArray>("DescendantFonts");
    if (!descendants)
        return nullptr;
    return KPPDFCast<KPPDFObjectDictionary>(descendants->resolvedObjectAtIndex(0));
}

void KPPDFFont::setupCIDWidths() {
    KPPDFRef<KPPDFObjectDictionary> descendant = descendantFont();
    if (!descendant)
        return;
    float dw = 0;
    // Without DW every code not in W is 0 wide; text placement copes with that.
    if (numberValue(descendant->resolvedObjectForKey("DW"), &dw))
        dw_ = dw / kGlyphSpaceUnits;
    w_ = descendant->resolvedObjectForKey<KPPDFObjectArray>("W");
    if (!w_)
        return;

    KPPDFObjectList& elements = w_->value();
    size_t i = 0;
    while (i + 1 < elements.size()) {
        long long first;
        KPPDFRef<KPPDFObject> next = KPPDFObject::resolve(elements[i + 1]);
        if (!integerValue(KPPDFObject::resolve(elements[i]), &first) || !next)
            break;
        WidthRun run{first, 0, 0, 0, false};
        if (auto list = KPPDFCast<KPPDFObjectArray>(next)) {
            run.isList = true;
            run.listStart = static_cast<uint32_t>(listWidths_.size());
            for (const KPPDFRef<KPPDFObject>& widthEntry : list->value()) {
                float width = 0;
                numberValue(KPPDFObject::resolve(widthEntry), &width);
                listWidths_.push_back(width / kGlyphSpaceUnits);
            }
            int64_t count = static_cast<int64_t>(list->value().size());
            if (run.first > std::numeric_limits<int64_t>::max() - count)
                break;
            run.last = run.first + count - 1;
            i += 2;
        } else {
            float width;
            long long last;
            if (!integerValue(next, &last) || i + 2 >= elements.size() ||
                !numberValue(KPPDFObject::resolve(elements[i + 2]), &width))
                break;
            run.last = last;
            run.width = width / kGlyphSpaceUnits;
            i += 3;
        }
        if (run.last < run.first)
            continue;
        if (!widthRuns_.empty() && run.first <= widthRuns_.back().last)
            widthRunsSorted_ = false;
        widthRuns_.push_back(run);
    }
    if (i < elements.size())
        KPPDFLog("Font %s: W array unreadable after element %zu", fontName_.c_str(), i);
}

void KPPDFFont::setupCMap() {
    KPPDFRef<KPPDFObject> toUnicode = fontDictionary_->resolvedObjectForKey("ToUnicode");
    if (KPPDFCast<KPPDFObjectStream>(toUnicode)) {
        cmap_ = KPPDFCMap::cmapWithStreamObject(toUnicode);
        return;
    }
    KPPDFRef<KPPDFObjectDictionary> descendant = descendantFont();
    if (!descendant)
        return;
    if (auto info = descendant->resolvedObjectForKey<KPPDFObjectDictionary>("CIDSystemInfo"))
        cmap_ = KPPDFCMap::cmapWithCIDSystemInfo(info);
    // Only here, without a ToUnicode map, does the descendant's WMode count.
    long long mode = 0;
    if (integerValue(descendant->resolvedObjectForKey("WMode"), &mode) && mode == 1)
        isVerticalMode_ = true;
}

float KPPDFFont::cidWidth(uint32_t code) const {
    int64_t c = code;
    const WidthRun* match = nullptr;
    if (widthRunsSorted_) {
        auto next =
            std::upper_bound(widthRuns_.begin(), widthRuns_.end(), c,
                             [](int64_t value, const WidthRun& run) { return value < run.first; });
        if (next != widthRuns_.begin() && c <= (next - 1)->last)
            match = &*(next - 1);
    } else {
        for (const WidthRun& run : widthRuns_) {
            if (run.first <= c && c <= run.last) {
                match = &run;
                break;
            }
        }
    }
    if (!match)
        return dw_;
    return match->isList ? listWidths_[match->listStart + static_cast<size_t>(c - match->first)]
                         : match->width;
}

float KPPDFFont::glyphWidth(uint32_t code) {
    float width;
    if (fontType_ == KPPDFFontTypeType0)
        width = cidWidth(code);
    else if (!widths_.empty() && code >= firstChar_ && code - firstChar_ < widths_.size())
        width = widths_[code - firstChar_];
    else
        // The code itself, not its encoded character, as the width lookup has always done.
        width = standardWidth(code);
    if (hasFontMatrix_) {
        // The stored widths are already in text space and the font matrix scales them again;
        // text layout of Type 3 fonts has been tuned to this.
        KPPDFAffineTransform advance{1, 0, 0, 1, width, 0};
        width = advance.concat(fontMatrix_).tx;
    }
    return width;
}

float KPPDFFont::metric(bool wantAscent) {
    KPPDFRef<KPPDFObjectDictionary> descriptor = fontDescriptor_;
    if (fontType_ == KPPDFFontTypeType0) {
        KPPDFRef<KPPDFObjectDictionary> descendant = descendantFont();
        descriptor = descendant
                         ? descendant->resolvedObjectForKey<KPPDFObjectDictionary>("FontDescriptor")
                         : nullptr;
    }
    float value;
    if (descriptor &&
        numberValue(descriptor->resolvedObjectForKey(wantAscent ? "Ascent" : "Descent"), &value))
        return value / kGlyphSpaceUnits;
    if (fontForWidths_)
        return (wantAscent ? fontForWidths_->ascent : fontForWidths_->descent) / kGlyphSpaceUnits;
    return wantAscent ? 1.0f : 0.0f;
}

float KPPDFFont::ascent() {
    if (ascent_ == 0)
        ascent_ = metric(true);
    return ascent_;
}

float KPPDFFont::descent() {
    if (descent_ == 0)
        descent_ = metric(false);
    return descent_;
}

uint32_t KPPDFFont::descriptorFlags() const {
    KPPDFRef<KPPDFObjectDictionary> descriptor = fontDescriptor_;
    if (!descriptor) {
        if (KPPDFRef<KPPDFObjectDictionary> descendant = descendantFont())
            descriptor = descendant->resolvedObjectForKey<KPPDFObjectDictionary>("FontDescriptor");
    }
    if (!descriptor)
        return 0;
    long long flags = 0;
    integerValue(descriptor->resolvedObjectForKey("Flags"), &flags);
    return static_cast<uint32_t>(flags);
}

std::string KPPDFFont::stringForData(std::string_view data) const {
    std::string text;
    text.reserve(data.size() * 3);
    appendStringForData(data, text);
    return text;
}

void KPPDFFont::appendStringForData(std::string_view data, std::string& text) const {
    if (hasCodeText_) {
        for (char byte : data) {
            const CodeText& piece = codeText_[static_cast<uint8_t>(byte)];
            text.append(piece.bytes, piece.length);
        }
        return;
    }
    uint16_t pendingHigh = 0; // a high surrogate waiting for its low half
    auto append = [&](uint16_t unit) {
        char32_t codePoint = unit;
        if (pendingHigh && unit >= 0xDC00 && unit <= 0xDFFF) {
            codePoint = 0x10000 + ((char32_t(pendingHigh) - 0xD800) << 10) + (unit - 0xDC00);
            pendingHigh = 0;
        } else {
            if (pendingHigh)
                appendUTF8(text, kReplacementCharacter);
            pendingHigh = 0;
            if (unit >= 0xD800 && unit <= 0xDBFF) {
                pendingHigh = unit;
                return;
            }
            if (unit >= 0xDC00 && unit <= 0xDFFF)
                codePoint = kReplacementCharacter;
        }
        appendUTF8(text, codePoint);
    };
    uint16_t unit;
    if (!isTwoByte_ && encodingTable_) {
        for (char byte : data) {
            uint8_t code = static_cast<uint8_t>(byte);
            if (!cmap_ || !cmap_->unicodeForCode(code, &unit))
                unit = encodingTable_[code];
            append(unit);
        }
    } else {
        // An odd last byte is no code and is dropped.
        for (size_t i = 0; i + 1 < data.size(); i += 2) {
            uint16_t code = static_cast<uint16_t>(static_cast<uint8_t>(data[i]) << 8 |
                                                  static_cast<uint8_t>(data[i + 1]));
            if (!cmap_ || !cmap_->unicodeForCode(code, &unit))
                unit = code;
            append(unit);
        }
    }
    if (pendingHigh)
        appendUTF8(text, kReplacementCharacter);
}

std::string KPPDFFont::dataForGlyph(uint16_t code) const {
    return cmap_ ? cmap_->stringDataForGlyph(code) : std::string();
}

KPPDFRef<KPPDFObjectDictionary> KPPDFFont::encodingObject() {
    // Built once and never freed; fonts written at exit may still ask for it.
    static const KPPDFRef<KPPDFObjectDictionary>* encoding =
        new KPPDFRef<KPPDFObjectDictionary>(buildEncodingObject());
    return *encoding;
}

KPPDFRef<KPPDFObjectDictionary> KPPDFFont::fontWithName(const std::string& name,
                                                        const std::string& base) {
    auto font = std::make_shared<KPPDFObjectDictionary>();
    font->setObject(KPPDFObjectName::nameWithString("Font"), "Type");
    font->setObject(KPPDFObjectName::nameWithString("Type1"), "Subtype");
    font->setObject(KPPDFObjectName::nameWithString(name), "Name");
    font->setObject(KPPDFObjectName::nameWithString(base), "BaseFont");
    // Each font holds its own copy: an object has one container, and fonts may be made on
    // several threads.
    font->setObject(encodingObject()->copy(), "Encoding");
    return font;
}

KPPDFRef<KPPDFObjectName> KPPDFFont::abbreviatedNameForFont(const KPPDFFont& font) {
    std::string abbreviation = standardAbbreviation(font.fontName());
    return KPPDFObjectName::nameWithString(abbreviation.empty() ? font.fontName() : abbreviation);
}

std::string KPPDFFont::regularName(const std::string& name) {
    const KPPDFStandardFontMetrics* font = standardFontForAbbreviation(name);
    return font ? font->name : name;
}

std::string KPPDFFont::normalizedName(std::string_view name) {
    const auto& names = KPPDFFontNormalizedNames();
    auto found = names.find(name);
    return found != names.end() ? found->second : std::string();
}

std::string KPPDFFont::standardAbbreviation(std::string_view standardName) {
    const auto& abbreviations = KPPDFFontStdAbbreviations();
    auto found = abbreviations.find(standardName);
    return found != abbreviations.end() ? found->second : std::string();
}

bool KPPDFFont::isEqual(const KPPDFFont& other) const {
    if (!fontDictionary_ || !other.fontDictionary_)
        return fontDictionary_ == other.fontDictionary_;
    return fontDictionary_->isEqual(*other.fontDictionary_);
}

std::string KPPDFFont::description() const {
    std::string subtype =
        fontDictionary_ ? nameValue(fontDictionary_->resolvedObjectForKey("Subtype")) : "";
    return fontName_ + " " + (subtype.empty() ? "(null)" : subtype);
}
