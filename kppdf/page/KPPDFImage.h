#pragma once
#include <string>

#include "kppdf/platform/KPPDFRef.h"

class KPPDFGraphicsState;
class KPPDFObjectStream;
class KPPDFObjectString;

// An image XObject as a page's content draws it (ISO 32000-1, 8.9.5): the stream, where it is
// placed on the page and the graphics state it was drawn with.
class KPPDFImage {
public:
    // width and height start as the stream's Width and Height (0 when missing), the link
    // target as its ParvelURL string.
    explicit KPPDFImage(KPPDFRef<KPPDFObjectStream> xObject);
    KPPDFImage(const KPPDFImage&) = delete;
    KPPDFImage& operator=(const KPPDFImage&) = delete;

    // Null for a null stream.
    static KPPDFRef<KPPDFImage> imageWithXObject(KPPDFRef<KPPDFObjectStream> xObject);

    const KPPDFRef<KPPDFObjectStream>& xObject() const { return xObject_; }
    // Placed size and position, page units.
    float width() const { return width_; }
    void setWidth(float width) { width_ = width; }
    float height() const { return height_; }
    void setHeight(float height) { height_ = height; }
    float x() const { return x_; }
    void setX(float x) { x_ = x; }
    float y() const { return y_; }
    void setY(float y) { y_ = y; }
    // A link target attached to the image; null when it has none.
    const KPPDFRef<KPPDFObjectString>& urlString() const { return urlString_; }
    // The state the image was drawn with (a copy the image owns); null until set.
    const KPPDFRef<KPPDFGraphicsState>& gstate() const { return gstate_; }
    void setGstate(KPPDFRef<KPPDFGraphicsState> gstate) { gstate_ = std::move(gstate); }
    bool hasBeenBlankedOut() const { return blankedOut_; }

    // "<KPPDFImage WxH at (x, y)>".
    std::string description() const;

private:
    KPPDFRef<KPPDFObjectStream> xObject_;
    float height_ = 0;
    float width_ = 0;
    float x_ = 0;
    float y_ = 0;
    KPPDFRef<KPPDFObjectString> urlString_;
    KPPDFRef<KPPDFGraphicsState> gstate_;
    bool blankedOut_ = false;
};
