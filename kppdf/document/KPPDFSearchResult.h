#pragma once
#include <cstdint>
#include <vector>

#include "kppdf/platform/KPPDFGeometry.h"

// Options of KPPDFDocument's text search, or-ed together.
enum : uint32_t {
    // Letters match whatever their case (Unicode simple case folding).
    KPPDFSearchCaseInsensitive = 1,
};

// One occurrence of a searched text: the page it is on, where it lies in that page's string, and
// what it covers on the page.
struct KPPDFSearchResult {
    // Index of the page in the document (0 is the first page).
    uint32_t pageIndex = 0;
    // The occurrence in the page string, in UTF-16 code units (KPPDFPage's positions).
    KPPDFRange range;
    // One rectangle per line the occurrence runs over, in page space, in reading order.
    std::vector<KPPDFRect> rects;
    bool operator==(const KPPDFSearchResult&) const = default;
};
