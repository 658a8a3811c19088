#pragma once

// A horizontal stretch of a text line that holds no glyph: where it starts and how wide it is,
// in page space. Lines are split and columns told apart at such gaps.
struct KPPDFGap {
    float x = 0;
    float width = 0;
    bool operator==(const KPPDFGap&) const = default;
};

// The gap of width 0 at x 0; every gap of width 0 counts as empty.
inline constexpr KPPDFGap KPPDFEmptyGap{0, 0};

// True when the gap has width 0.
inline bool KPPDFIsEmptyGap(KPPDFGap gap) {
    return gap.width == 0;
}

// Where the gap ends.
inline float KPPDFGapMax(KPPDFGap gap) {
    return gap.x + gap.width;
}

// The stretch both gaps cover; the empty gap when they do not overlap (touching at one point
// is no overlap).
inline KPPDFGap KPPDFIntersectGaps(KPPDFGap a, KPPDFGap b) {
    float start = a.x > b.x ? a.x : b.x;
    float endA = KPPDFGapMax(a);
    float endB = KPPDFGapMax(b);
    if (start >= endA || start >= endB)
        return KPPDFEmptyGap;
    float width = endA - start < endB - start ? endA - start : endB - start;
    return {start, width};
}
