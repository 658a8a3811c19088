#include "kppdf/page/KPPDFImage.h"

#include <cstdio>
#include <memory>

#include "kppdf/objects/KPPDFObjectStream.h"
#include "kppdf/objects/KPPDFObjectString.h"
#include "kppdf/page/KPPDFGraphicsState.h"

KPPDFImage::KPPDFImage(KPPDFRef<KPPDFObjectStream> xObject) : xObject_(std::move(xObject)) {
    if (!xObject_)
        return;
    if (KPPDFRef<KPPDFObject> width = xObject_->resolvedObjectForKey("Width"))
        width_ = width->realValue();
    if (KPPDFRef<KPPDFObject> height = xObject_->resolvedObjectForKey("Height"))
        height_ = height->realValue();
    urlString_ = KPPDFCast<KPPDFObjectString>(xObject_->resolvedObjectForKey("ParvelURL"));
}

KPPDFRef<KPPDFImage> KPPDFImage::imageWithXObject(KPPDFRef<KPPDFObjectStream> xObject) {
    if (!xObject)
        return nullptr;
    return std::make_shared<KPPDFImage>(std::move(xObject));
}

std::string KPPDFImage::description() const {
    char text[160];
    std::snprintf(text, sizeof text, "<KPPDFImage %gx%g at (%g, %g)>", width_, height_, x_, y_);
    return text;
}
