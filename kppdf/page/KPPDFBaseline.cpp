#include "kppdf/page/KPPDFBaseline.h"

#include <algorithm>
#include <cstdio>
#include <limits>

#include "kppdf/page/KPPDFTextBlob.h"
#include "kppdf/page/internal/KPPDFTextUnicode.h"

namespace {

bool isEmptyRect(KPPDFRect r) {
    return r.size.width == 0 || r.size.height == 0;
}

// Byte offset of character index within UTF-8 text; the text's length past its last character.
size_t byteOffsetOfCharacter(const std::string& text, int64_t index) {
    size_t offset = 0;
    for (int64_t i = 0; i < index && offset < text.size(); i++)
        offset += kppdf_text::utf8SequenceLength(text, offset);
    return offset;
}

// Appends old's bytes [location, location + length) to into with their attributes.
void appendSubstring(KPPDFAttributedString& into, const KPPDFAttributedString& old,
                     uint64_t location, uint64_t length) {
    uint64_t end = std::min<uint64_t>(location + length, old.length());
    while (location < end) {
        KPPDFRange run;
        const KPPDFTextAttributes& attributes = old.attributesAtIndex(location, &run);
        uint64_t pieceEnd = std::min<uint64_t>(end, run.end());
        into.append(std::string_view(old.string()).substr(location, pieceEnd - location),
                    attributes);
        location = pieceEnd;
    }
}

} // namespace

KPPDFRect KPPDFUnionRect(KPPDFRect a, KPPDFRect b) {
    if (isEmptyRect(a))
        return b;
    if (isEmptyRect(b))
        return a;
    float minX = std::min(a.minX(), b.minX());
    float minY = std::min(a.minY(), b.minY());
    float maxX = std::max(a.maxX(), b.maxX());
    float maxY = std::max(a.maxY(), b.maxY());
    return KPPDFMakeRect(minX, minY, maxX - minX, maxY - minY);
}

KPPDFRect KPPDFIntersectionRect(KPPDFRect a, KPPDFRect b) {
    float minX = std::max(a.minX(), b.minX());
    float minY = std::max(a.minY(), b.minY());
    float maxX = std::min(a.maxX(), b.maxX());
    float maxY = std::min(a.maxY(), b.maxY());
    if (maxX <= minX || maxY <= minY)
        return KPPDFRect{};
    return KPPDFMakeRect(minX, minY, maxX - minX, maxY - minY);
}

bool KPPDFIntersectsRect(KPPDFRect a, KPPDFRect b) {
    return !isEmptyRect(KPPDFIntersectionRect(a, b));
}

KPPDFBaseline::KPPDFBaseline(BlobList blobs, KPPDFRange rangeInPageString)
    : blobs_(std::move(blobs)), rangeInPageString_(rangeInPageString) {}

KPPDFRef<KPPDFBaseline> KPPDFBaseline::baselineWithBlobs(BlobList blobs,
                                                         KPPDFRange rangeInPageString) {
    return std::make_shared<KPPDFBaseline>(std::move(blobs), rangeInPageString);
}

void KPPDFBaseline::setBlobs(BlobList blobs) {
    blobs_ = std::move(blobs);
    boundsCalculated_ = false;
}

KPPDFRect KPPDFBaseline::bounds() {
    if (!boundsCalculated_)
        calculateBounds();
    return bounds_;
}

void KPPDFBaseline::setBounds(KPPDFRect bounds) {
    bounds_ = bounds;
    boundsCalculated_ = true;
}

void KPPDFBaseline::calculateBounds() {
    boundsCalculated_ = true;
    if (blobs_.empty()) {
        bounds_ = KPPDFRect{};
        return;
    }
    const KPPDFTextBlob& first = *blobs_.front();
    const KPPDFTextBlob& last = *blobs_.back();
    float descent = 0;
    float height = 0;
    for (const auto& blob : blobs_) {
        descent = std::min(descent, blob->descent());
        height = std::max(height, blob->height());
    }
    bounds_ = KPPDFMakeRect(first.location().x, first.location().y + descent,
                            last.location().x + last.width() - first.location().x, height);
}

bool KPPDFBaseline::hitTest(KPPDFPoint point) {
    KPPDFRect box = bounds();
    return point.x >= box.minX() && point.x < box.maxX() && point.y >= box.minY() &&
           point.y < box.maxY();
}

int64_t KPPDFBaseline::charPositionForPoint(KPPDFPoint point) const {
    for (auto it = blobs_.rbegin(); it != blobs_.rend(); ++it) {
        const KPPDFTextBlob& blob = **it;
        if (!(blob.location().x < point.x))
            continue;
        const std::vector<float>& widths = blob.widths();
        float x = blob.location().x;
        int64_t added = 0;
        while (point.x > x && added < static_cast<int64_t>(widths.size()))
            x += widths[added++];
        // With no widths at all the position is the byte before the blob, as the count says.
        if (added == 0)
            return int64_t(blob.rangeInPageString().location) - 1;
        return int64_t(blob.rangeInPageString().location) +
               int64_t(byteOffsetOfCharacter(blob.string(), added - 1));
    }
    return -1;
}

KPPDFBaseline::BlobList KPPDFBaseline::blobsFromCharPosition(int64_t from, int64_t to) const {
    int64_t lastByte = int64_t(rangeInPageString_.end()) - 1;
    if (to > lastByte)
        to = lastByte;
    auto holds = [](const KPPDFRef<KPPDFTextBlob>& blob, int64_t position) {
        KPPDFRange range = blob->rangeInPageString();
        return position >= int64_t(range.location) && position < int64_t(range.end());
    };
    auto first = std::find_if(blobs_.begin(), blobs_.end(),
                              [&](const auto& blob) { return holds(blob, from); });
    auto last = std::find_if(blobs_.begin(), blobs_.end(),
                             [&](const auto& blob) { return holds(blob, to); });
    if (first == blobs_.end() || last == blobs_.end() || last < first)
        return {};
    return BlobList(first, last + 1);
}

KPPDFGap KPPDFBaseline::findFirstGapOfWidth(float width) const {
    for (size_t i = 0; i + 1 < blobs_.size(); i++) {
        float start = blobs_[i]->maxX();
        float gap = blobs_[i + 1]->location().x - start;
        if (gap >= width)
            return {start, gap};
    }
    return KPPDFEmptyGap;
}

KPPDFGap KPPDFBaseline::findGapInGap(KPPDFGap gap, float width) {
    if (KPPDFGapMax(gap) - width >= maxX() || minX() >= KPPDFGapMax(gap))
        return gap;
    KPPDFGap own = findFirstGapOfWidth(width);
    if (KPPDFIsEmptyGap(own))
        return KPPDFEmptyGap;
    return KPPDFIntersectGaps(own, gap);
}

KPPDFRef<KPPDFBaseline> KPPDFBaseline::splitBaselineAtXPos(float x) {
    size_t keep = blobs_.size();
    for (size_t i = blobs_.size(); i-- > 0;) {
        if (blobs_[i]->maxX() < x) {
            keep = i + 1;
            break;
        }
    }
    if (keep == blobs_.size() || keep == 0)
        return nullptr;
    BlobList moved(blobs_.begin() + static_cast<std::ptrdiff_t>(keep), blobs_.end());
    uint32_t cut = moved.front()->rangeInPageString().location;
    uint64_t end = rangeInPageString_.end();
    // The blobs keep their page-string order, so the cut lies inside this line's range; clamp
    // all the same so that a line whose ranges were tampered with cannot wrap around.
    cut = static_cast<uint32_t>(std::clamp<uint64_t>(cut, rangeInPageString_.location, end));
    auto tail =
        baselineWithBlobs(std::move(moved), KPPDFMakeRange(cut, static_cast<uint32_t>(end - cut)));
    blobs_.resize(keep);
    rangeInPageString_.length = cut - rangeInPageString_.location;
    boundsCalculated_ = false;
    needsNewline_ = true;
    return tail;
}

void KPPDFBaseline::addBaselineBlobsToPageString(KPPDFAttributedString& newString,
                                                 const KPPDFAttributedString& oldString) {
    const uint64_t lineStart = newString.length();
    for (const auto& blob : blobs_) {
        KPPDFRange range = blob->rangeInPageString();
        uint64_t start = newString.length();
        bool endsLine = needsNewline_ && blob == blobs_.back();
        uint64_t length = std::min<uint64_t>(
            range.length,
            oldString.length() - std::min<uint64_t>(range.location, oldString.length()));
        if (endsLine) {
            // The string can only grow, so a trailing whitespace character is left out here and
            // the newline takes its place (with its attributes).
            std::string_view text =
                std::string_view(oldString.string()).substr(range.location, length);
            size_t lastStart = kppdf_text::lastCharacterStart(text);
            if (lastStart < text.size() &&
                kppdf_text::isWhitespace(kppdf_text::decodeUTF8(text, lastStart))) {
                appendSubstring(newString, oldString, range.location, lastStart);
                newString.append("\n", oldString.attributesAtIndex(range.location + lastStart));
            } else {
                appendSubstring(newString, oldString, range.location, length);
                newString.append("\n",
                                 length ? oldString.attributesAtIndex(range.location + length - 1)
                                        : KPPDFTextAttributes{});
            }
        } else {
            appendSubstring(newString, oldString, range.location, length);
        }
        blob->setRangeInPageString(KPPDFMakeRange(
            static_cast<uint32_t>(start), static_cast<uint32_t>(newString.length() - start)));
    }
    if (needsNewline_ && blobs_.empty())
        newString.append("\n");
    needsNewline_ = false;
    rangeInPageString_ = KPPDFMakeRange(static_cast<uint32_t>(lineStart),
                                        static_cast<uint32_t>(newString.length() - lineStart));
}

KPPDFRect KPPDFBaseline::rectForRangeInPageString(KPPDFRange range) const {
    KPPDFRect result{};
    for (const auto& blob : blobs_) {
        KPPDFRange own = blob->rangeInPageString();
        if (own.end() <= range.location || range.end() <= own.location)
            continue;
        KPPDFRect rect = blob->rectForRangeInPageString(range);
        if (rect.size.width > 0)
            result = KPPDFUnionRect(result, rect);
    }
    return result;
}

std::string KPPDFBaseline::description() {
    KPPDFRect box = bounds();
    char head[160];
    std::snprintf(head, sizeof head, "KPPDFBaseline <%08X>: {{%g, %g}, {%g, %g}} {%u, %u} blobs:(",
                  static_cast<unsigned>(reinterpret_cast<uintptr_t>(this)), box.origin.x,
                  box.origin.y, box.size.width, box.size.height, rangeInPageString_.location,
                  rangeInPageString_.length);
    std::string text = head;
    for (size_t i = 0; i < blobs_.size(); i++) {
        text += i ? ",\n    " : "\n    ";
        text += blobs_[i]->description();
    }
    text += blobs_.empty() ? ")" : "\n)";
    return text;
}
