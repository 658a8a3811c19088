#include "kppdf/platform/KPPDFPrintInfo.h"

#include <cmath>
#include <mutex>

#include "kppdf/platform/KPPDFLog.h"

namespace {

std::mutex paperMutex;
KPPDFSize currentPaperSize = KPPDFPrintInfo::kDefaultPaperSize;

bool isUsableLength(float length) {
    return std::isfinite(length) && length > 0;
}

} // namespace

KPPDFSize KPPDFPrintInfo::paperSize() {
    std::lock_guard<std::mutex> lock(paperMutex);
    return currentPaperSize;
}

void KPPDFPrintInfo::setPaperSize(KPPDFSize size) {
    if (!isUsableLength(size.width) || !isUsableLength(size.height)) {
        KPPDFLog("Ignoring paper size %g x %g", double(size.width), double(size.height));
        return;
    }
    std::lock_guard<std::mutex> lock(paperMutex);
    currentPaperSize = size;
}
