#pragma once
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "kppdf/platform/KPPDFRef.h"

class KPPDFObject;
class KPPDFObjectDictionary;
class KPPDFObjectStream;

// A character map from codes to UTF-16 code units: a font's ToUnicode stream or a registry
// CMap (ISO 32000-1, sections 9.7.5 and 9.10.3). Only the bfchar and bfrange blocks are read,
// one entry per line, with source codes of one or two bytes and the first code unit of each
// destination; that is all the text code needs and it keeps the parser small.
class KPPDFCMap {
public:
    // Entry counts above this in a "beginbfchar"/"beginbfrange" line are clipped to it; ISO
    // 32000-1 allows at most 100 per block, and the lines that follow bound the work anyway.
    static constexpr uint32_t kMaxBlockEntries = 65536;

    KPPDFCMap();
    ~KPPDFCMap();

    // A CMap parsed from a stream's decoded bytes read as Latin-1 text; never null (a stream
    // that is null or does not decode gives an empty map).
    static KPPDFRef<KPPDFCMap> cmapWithStream(const KPPDFRef<KPPDFObjectStream>& stream);
    // A stream object, or a reference to one; an empty map for anything else.
    static KPPDFRef<KPPDFCMap> cmapWithStreamObject(const KPPDFRef<KPPDFObject>& stream);
    // The registry CMap "<Registry>-<Ordering>-UCS2" for a CIDSystemInfo dictionary, read once
    // per process and cached (a fresh copy each call); never null (empty when the file is
    // missing).
    static KPPDFRef<KPPDFCMap> cmapWithCIDSystemInfo(const KPPDFRef<KPPDFObjectDictionary>& info);
    // The same by CMap name ("Adobe-Japan1-UCS2"); empty when the file is missing.
    static KPPDFRef<KPPDFCMap> cmapWithName(const std::string& name);

    // Adds the bfchar and bfrange entries of a CMap's text to this map. Source codes have one
    // to four hex digits; longer destinations keep their first code unit; an array destination
    // of a range is read from its first element on. Malformed lines are skipped.
    void processCMapString(std::string_view text);
    // The value of the four hex digits at p (either case); other characters are not checked,
    // so callers validate first. p must point at four readable bytes.
    static uint16_t getTwoByteHexChar(const char* p);

    // The code's destination as 2 bytes of big-endian UTF-16; empty when unmapped.
    std::string stringDataForGlyph(uint32_t code) const;
    // The code's destination code unit; false (unit untouched) when unmapped.
    bool unicodeForCode(uint32_t code, uint16_t* unit) const;

    // Number of single-code entries and of ranges read.
    size_t bfCharCount() const { return bfChars_.size(); }
    size_t bfRangeCount() const { return bfRanges_.size(); }
    bool isEmpty() const { return bfChars_.empty() && bfRanges_.empty(); }

private:
    struct BFChar {
        uint16_t code;
        uint16_t unit;
    };
    struct BFRange {
        uint32_t low;
        uint32_t length; // codes low .. low + length - 1
        uint16_t destination;
    };
    // Sorts the single-code entries for binary search (a later entry for a code replaces an
    // earlier one) and indexes the ranges.
    void sortEntries();

    std::vector<BFChar> bfChars_;       // sorted by code, one entry per code
    std::vector<BFRange> bfRanges_;     // in the order read: the first match wins
    std::vector<BFRange> sortedRanges_; // by low code, searched when they do not overlap
    bool rangesDisjoint_ = true;
};
