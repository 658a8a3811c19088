#pragma once
#include <cstdint>
#include <string>
#include <vector>

#include "kppdf/platform/KPPDFGeometry.h"
#include "kppdf/platform/KPPDFRef.h"

class KPPDFFont;
class KPPDFGraphicsState;
class KPPDFObjectStream;

// One string shown by Tj or TJ (ISO 32000-1, 9.4.3): where it starts on its baseline in page
// space, how tall it is, its text, the state it was shown with, and the content stream and byte
// range of its operand, so that it can be found again in the content.
//
// Characters are Unicode code points of string(); widths() holds one advance per character, in
// page units along the baseline, and sums to width(). A TJ move wide enough to part words
// (kWordGapMove) puts a space into string(), whose width is that move.
class KPPDFTextBlob {
public:
    // A TJ number at or below this (thousandths of the font size: a move right of a tenth of
    // the size or more) parts two words, as common extractors (pdftotext) read such moves.
    static constexpr float kWordGapMove = -100.0f;

    // A number of a TJ array: it moves what follows it by -amount/1000 of the font size.
    struct Adjustment {
        uint32_t codeIndex = 0;     // codes shown before it (see codes())
        uint32_t charIndex = 0;     // characters of string() before it, inserted spaces included
        float amount = 0;           // the number as written
        bool insertedSpace = false; // a space was put into string() at charIndex for it
        bool operator==(const Adjustment&) const = default;
    };

    KPPDFTextBlob(KPPDFPoint location, float ascent, float descent,
                  KPPDFRef<KPPDFGraphicsState> gstate, KPPDFRef<KPPDFObjectStream> contentObject,
                  KPPDFRange dataRange, std::string string);
    KPPDFTextBlob(const KPPDFTextBlob&) = delete;
    KPPDFTextBlob& operator=(const KPPDFTextBlob&) = delete;

    // A blob holding the values given; the state, stream and string are kept, not copied.
    static KPPDFRef<KPPDFTextBlob> textBlobAt(KPPDFPoint location, float ascent, float descent,
                                              KPPDFRef<KPPDFGraphicsState> gstate,
                                              KPPDFRef<KPPDFObjectStream> contentObject,
                                              KPPDFRange dataRange, std::string string);

    // Start of the text on its baseline, page space.
    KPPDFPoint location() const { return location_; }
    // The state the text was shown with (a copy the blob owns); never null for blobs made by
    // the page.
    const KPPDFRef<KPPDFGraphicsState>& gstate() const { return gstate_; }
    // The content stream (or form XObject) whose decoded data holds the operand.
    const KPPDFRef<KPPDFObjectStream>& contentObject() const { return contentObject_; }
    // The operand's bytes in contentObject()'s decoded data: the string of Tj, the array of TJ.
    KPPDFRange dataRange() const { return dataRange_; }
    // The decoded text, UTF-8.
    const std::string& string() const { return string_; }
    // Above the baseline (positive) and below it (zero or negative), page units.
    float ascent() const { return ascent_; }
    float descent() const { return descent_; }
    float height() const { return ascent_ - descent_; }
    // Advance of the whole run, page units.
    float width() const { return width_; }
    void setWidth(float width) { width_ = width; }
    float maxX() const { return location_.x + width_; }
    // One advance per character of string(), page units.
    const std::vector<float>& widths() const { return widths_; }
    void setWidths(std::vector<float> widths) { widths_ = std::move(widths); }
    uint32_t nWidths() const { return static_cast<uint32_t>(widths_.size()); }
    // Byte range of this blob's text in the page string (its newline included, if it ends a
    // line).
    KPPDFRange rangeInPageString() const { return rangeInPageString_; }
    void setRangeInPageString(KPPDFRange range) { rangeInPageString_ = range; }

    // ---- How the operand was shown, to measure it again ----
    // The font it was shown in; null when the page had no font of the state's Tfont name.
    const KPPDFRef<KPPDFFont>& font() const { return font_; }
    void setFont(KPPDFRef<KPPDFFont> font) { font_ = std::move(font); }
    // True for TJ, false for Tj.
    bool isArray() const { return isArray_; }
    void setIsArray(bool isArray) { isArray_ = isArray; }
    // The shown code bytes in order (string escapes resolved, TJ numbers left out): one byte per
    // code, two for a font that isTwoByte().
    const std::string& codes() const { return codes_; }
    void setCodes(std::string codes) { codes_ = std::move(codes); }
    // The TJ numbers in order (empty for Tj); a number before the first code is folded into
    // location() and not listed.
    const std::vector<Adjustment>& adjustments() const { return adjustments_; }
    void setAdjustments(std::vector<Adjustment> adjustments) {
        adjustments_ = std::move(adjustments);
    }
    // Page units per unscaled text space unit along the baseline (the length of the x axis of
    // the text matrix times the CTM): text space advances times this give widths().
    float textScale() const { return textScale_; }
    void setTextScale(float scale) { textScale_ = scale; }

    // Reading order: -1 when this blob is higher on the page (larger y), 1 when lower; on the
    // same y (exactly) the one further left comes first; 0 for the same point.
    int compare(const KPPDFTextBlob& other) const;
    // The rectangle of the characters of range (bytes of the page string) that lie in this
    // blob: x from the widths of the characters before them, y from the descent, height the
    // blob's. Zero width when none of them lies here.
    KPPDFRect rectForRangeInPageString(KPPDFRange range) const;

    // "KPPDFTextBlob <address>: 'text' {x, y} width {location, length}".
    std::string description() const;

private:
    KPPDFPoint location_;
    KPPDFRef<KPPDFGraphicsState> gstate_;
    KPPDFRef<KPPDFObjectStream> contentObject_;
    KPPDFRange dataRange_;
    std::string string_;
    float ascent_ = 0;
    float descent_ = 0;
    float width_ = 0;
    std::vector<float> widths_;
    KPPDFRange rangeInPageString_;

    KPPDFRef<KPPDFFont> font_;
    bool isArray_ = false;
    std::string codes_;
    std::vector<Adjustment> adjustments_;
    float textScale_ = 1.0f;
};
