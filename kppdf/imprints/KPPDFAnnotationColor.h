#pragma once
#include <cstddef>
#include <string>

#include "kppdf/platform/KPPDFColor.h"

// A colour as annotations keep it: components in a device colour space (gray, RGB or CMYK, as
// the C entries of ISO 32000-1, 12.5.2, distinguish them by their count) and an opacity, each
// in 0..1. Components given outside that range are clamped; NaN counts as 0.
class KPPDFAnnotationColor {
public:
    enum class Space { Gray, RGB, CMYK };

    // Opaque black in the gray space.
    KPPDFAnnotationColor() = default;
    static KPPDFAnnotationColor colorWithWhite(float white, float alpha = 1);
    static KPPDFAnnotationColor colorWithRed(float red, float green, float blue, float alpha = 1);
    static KPPDFAnnotationColor colorWithCyan(float cyan, float magenta, float yellow, float black,
                                              float alpha = 1);
    // The same colour in the RGB space.
    static KPPDFAnnotationColor colorWithColor(const KPPDFColor& color);

    Space space() const { return space_; }
    // 1, 3 or 4 by space.
    size_t componentCount() const;
    // Component i in the space's own order (white; red green blue; cyan magenta yellow black);
    // 0 past the count.
    float component(size_t index) const;
    float alpha() const { return alpha_; }
    // The colour in RGB; CMYK by the naive conversion of KPPDFColor::colorWithCyan.
    KPPDFColor rgbColor() const;

    bool operator==(const KPPDFAnnotationColor&) const = default;
    // "KPPDFAnnotationColor(gray|rgb|cmyk c... a)", for logs and test messages.
    std::string description() const;

private:
    Space space_ = Space::Gray;
    float components_[4] = {0, 0, 0, 0};
    float alpha_ = 1;
};
