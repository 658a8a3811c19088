#include "kppdf/page/KPPDFTextBlob.h"

#include <cstdio>
#include <memory>

#include "kppdf/objects/KPPDFObjectStream.h"
#include "kppdf/page/KPPDFFont.h"
#include "kppdf/page/KPPDFGraphicsState.h"

KPPDFTextBlob::KPPDFTextBlob(KPPDFPoint location, float ascent, float descent,
                             KPPDFRef<KPPDFGraphicsState> gstate,
                             KPPDFRef<KPPDFObjectStream> contentObject, KPPDFRange dataRange,
                             std::string string)
    : location_(location), gstate_(std::move(gstate)), contentObject_(std::move(contentObject)),
      dataRange_(dataRange), string_(std::move(string)), ascent_(ascent), descent_(descent) {}

KPPDFRef<KPPDFTextBlob> KPPDFTextBlob::textBlobAt(KPPDFPoint location, float ascent, float descent,
                                                  KPPDFRef<KPPDFGraphicsState> gstate,
                                                  KPPDFRef<KPPDFObjectStream> contentObject,
                                                  KPPDFRange dataRange, std::string string) {
    return std::make_shared<KPPDFTextBlob>(location, ascent, descent, std::move(gstate),
                                           std::move(contentObject), dataRange, std::move(string));
}

int KPPDFTextBlob::compare(const KPPDFTextBlob& other) const {
    if (location_.y > other.location_.y)
        return -1;
    if (location_.y < other.location_.y)
        return 1;
    if (location_.x < other.location_.x)
        return -1;
    if (location_.x > other.location_.x)
        return 1;
    return 0;
}

KPPDFRect KPPDFTextBlob::rectForRangeInPageString(KPPDFRange range) const {
    KPPDFRect rect = KPPDFMakeRect(location_.x, location_.y + descent_, 0, height());
    uint64_t first = range.location;
    uint64_t end = range.end();
    uint64_t position = rangeInPageString_.location;
    float x = location_.x;
    bool started = false;
    size_t character = 0;
    // Walk the characters by their UTF-8 lead bytes, so a range boundary inside a character
    // counts that character as covered.
    for (size_t i = 0; i < string_.size(); character++) {
        size_t length = 1;
        while (i + length < string_.size() &&
               (static_cast<uint8_t>(string_[i + length]) & 0xC0) == 0x80)
            length++;
        float advance = character < widths_.size() ? widths_[character] : 0.0f;
        bool covered = position + length > first && position < end;
        if (covered) {
            if (!started) {
                rect.origin.x = x;
                started = true;
            }
            rect.size.width += advance;
        } else if (started) {
            break;
        }
        x += advance;
        position += length;
        i += length;
    }
    return rect;
}

std::string KPPDFTextBlob::description() const {
    char head[64];
    std::snprintf(head, sizeof head, "KPPDFTextBlob <%08X>: '",
                  static_cast<unsigned>(reinterpret_cast<uintptr_t>(this)));
    char tail[160];
    std::snprintf(tail, sizeof tail, "' {%g, %g} %0.1f {%u, %u}", location_.x, location_.y, width_,
                  rangeInPageString_.location, rangeInPageString_.length);
    return head + string_ + tail;
}
