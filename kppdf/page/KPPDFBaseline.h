#pragma once
#include <cstdint>
#include <string>
#include <vector>

#include "kppdf/page/KPPDFGap.h"
#include "kppdf/platform/KPPDFAttributedString.h"
#include "kppdf/platform/KPPDFGeometry.h"
#include "kppdf/platform/KPPDFRef.h"

class KPPDFTextBlob;

// One line of a page's text: the blobs that share a baseline, left to right, and where the line
// lies in the page string. Ranges and positions here count bytes of the page string (UTF-8), as
// the blobs' ranges do; KPPDFPage converts them to UTF-16 positions for its callers.
class KPPDFBaseline {
public:
    using BlobList = std::vector<KPPDFRef<KPPDFTextBlob>>;

    KPPDFBaseline(BlobList blobs, KPPDFRange rangeInPageString);
    KPPDFBaseline(const KPPDFBaseline&) = delete;
    KPPDFBaseline& operator=(const KPPDFBaseline&) = delete;

    // A line of the blobs (none of them null) over range; needsNewline false, bounds not yet
    // calculated. The caller owns it.
    static KPPDFRef<KPPDFBaseline> baselineWithBlobs(BlobList blobs, KPPDFRange rangeInPageString);

    const BlobList& blobs() const { return blobs_; }
    // Replaces the blobs and forgets the bounds.
    void setBlobs(BlobList blobs);
    // The union box of the line, calculated on first use (calculateBounds).
    KPPDFRect bounds();
    // Installs bounds as calculated.
    void setBounds(KPPDFRect bounds);
    bool boundsCalculated() const { return boundsCalculated_; }
    // The line's bytes in the page string, its newline included.
    KPPDFRange rangeInPageString() const { return rangeInPageString_; }
    void setRangeInPageString(KPPDFRange range) { rangeInPageString_ = range; }
    // The line was split and has to end in a newline when the page string is rebuilt.
    bool needsNewline() const { return needsNewline_; }
    void setNeedsNewline(bool needsNewline) { needsNewline_ = needsNewline; }
    float minX() { return bounds().origin.x; }
    float maxX() { return bounds().origin.x + bounds().size.width; }
    bool isEmpty() const { return blobs_.empty(); }

    // x from the first blob to the last blob's end; y the first blob's baseline moved down by
    // the deepest descent (none below 0); height the tallest blob's, not the span of all of
    // them. An empty line has the zero rectangle.
    void calculateBounds();
    // The point lies in bounds: left and bottom edges inside, right and top edges outside.
    bool hitTest(KPPDFPoint point);
    // The byte position in the page string of the character under point.x (y is not looked
    // at): the last blob starting left of the point, then that blob's characters while the
    // point lies right of their start. -1 when the point is left of every blob.
    int64_t charPositionForPoint(KPPDFPoint point) const;
    // The blobs from the one holding byte position from to the one holding to (clipped to the
    // line's last byte), inclusive; empty when either position is in no blob of the line.
    BlobList blobsFromCharPosition(int64_t from, int64_t to) const;
    // The first space between neighbouring blobs at least width wide, as (end of the left blob,
    // distance to the next); KPPDFEmptyGap when there is none.
    KPPDFGap findFirstGapOfWidth(float width) const;
    // gap itself when the line leaves it free (the line ends before gap's last width units,
    // or starts after gap); else the part of gap that the line's first gap of width overlaps,
    // empty when the line has no such gap.
    KPPDFGap findGapInGap(KPPDFGap gap, float width);
    // Cuts the line before the blobs that end at or right of x: they move to a new line (the
    // result, which runs from the first moved blob's start to this line's end), this line
    // keeps the rest, ends where the moved part began and needs a newline. Null when no blob
    // would move or none would stay.
    KPPDFRef<KPPDFBaseline> splitBaselineAtXPos(float x);
    // Appends each blob's text from oldString (at the blob's range) to newString, moving the
    // blob's range there; ends the line in a newline if needsNewline (a trailing whitespace
    // character becomes it, else one is added to the last blob), clears needsNewline and sets
    // the line's range to what was appended.
    void addBaselineBlobsToPageString(KPPDFAttributedString& newString,
                                      const KPPDFAttributedString& oldString);
    // The union of the rectangles the blobs give for the bytes of range; zero when no blob
    // holds any of them.
    KPPDFRect rectForRangeInPageString(KPPDFRange range) const;

    // "KPPDFBaseline <address>: {{x, y}, {width, height}} {location, length} blobs:(...)".
    std::string description();

private:
    bool boundsCalculated_ = false;
    KPPDFRect bounds_;
    BlobList blobs_;
    KPPDFRange rangeInPageString_;
    bool needsNewline_ = false;
};

// The smallest rectangle holding both; a rectangle of zero width or height does not count.
KPPDFRect KPPDFUnionRect(KPPDFRect a, KPPDFRect b);
// The common part; the zero rectangle when they do not overlap (touching edges do not).
KPPDFRect KPPDFIntersectionRect(KPPDFRect a, KPPDFRect b);
// Whether the two overlap in an area of more than zero.
bool KPPDFIntersectsRect(KPPDFRect a, KPPDFRect b);
