#include "kppdf/page/KPPDFPageLock.h"

KPPDFPageLock& KPPDFPageLock::sharedLock() {
    // Never destroyed, so a thread that prepares text while the process exits finds it intact.
    static KPPDFPageLock* lock = new KPPDFPageLock;
    return *lock;
}
