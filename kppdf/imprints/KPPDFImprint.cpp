#include "kppdf/imprints/KPPDFImprint.h"

KPPDFRef<KPPDFImprint> KPPDFImprint::copy() const {
    auto imprint = std::make_shared<KPPDFImprint>();
    copyInto(*imprint);
    return imprint;
}

void KPPDFImprint::copyInto(KPPDFImprint& copy) const {
    copy.location_ = location_;
    copy.size_ = size_;
}
