#pragma once
#include "kppdf/platform/KPPDFGeometry.h"

// Process-wide print settings. Thread-safe.
class KPPDFPrintInfo {
public:
    KPPDFPrintInfo() = delete;

    // US Letter, 612 by 792 points.
    static constexpr KPPDFSize kDefaultPaperSize = {612, 792};

    // The paper size pages are made with when nothing else gives one; in points.
    static KPPDFSize paperSize();
    // A size that is not finite and positive in both directions is refused with a log line.
    static void setPaperSize(KPPDFSize size);
};
