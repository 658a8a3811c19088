#include "kppdf/imprints/KPPDFAnnotationColor.h"

#include <algorithm>
#include <cstdio>

namespace {

float unitClamp(float value) {
    if (!(value >= 0)) // NaN as well
        return 0;
    return std::min(value, 1.0f);
}

} // namespace

KPPDFAnnotationColor KPPDFAnnotationColor::colorWithWhite(float white, float alpha) {
    KPPDFAnnotationColor color;
    color.space_ = Space::Gray;
    color.components_[0] = unitClamp(white);
    color.alpha_ = unitClamp(alpha);
    return color;
}

KPPDFAnnotationColor KPPDFAnnotationColor::colorWithRed(float red, float green, float blue,
                                                        float alpha) {
    KPPDFAnnotationColor color;
    color.space_ = Space::RGB;
    color.components_[0] = unitClamp(red);
    color.components_[1] = unitClamp(green);
    color.components_[2] = unitClamp(blue);
    color.alpha_ = unitClamp(alpha);
    return color;
}

KPPDFAnnotationColor KPPDFAnnotationColor::colorWithCyan(float cyan, float magenta, float yellow,
                                                         float black, float alpha) {
    KPPDFAnnotationColor color;
    color.space_ = Space::CMYK;
    color.components_[0] = unitClamp(cyan);
    color.components_[1] = unitClamp(magenta);
    color.components_[2] = unitClamp(yellow);
    color.components_[3] = unitClamp(black);
    color.alpha_ = unitClamp(alpha);
    return color;
}

KPPDFAnnotationColor KPPDFAnnotationColor::colorWithColor(const KPPDFColor& color) {
    return colorWithRed(color.red(), color.green(), color.blue(), color.alpha());
}

size_t KPPDFAnnotationColor::componentCount() const {
    switch (space_) {
    case Space::Gray:
        return 1;
    case Space::RGB:
        return 3;
    case Space::CMYK:
        return 4;
    }
    return 0;
}

float KPPDFAnnotationColor::component(size_t index) const {
    return index < componentCount() ? components_[index] : 0.0f;
}

KPPDFColor KPPDFAnnotationColor::rgbColor() const {
    switch (space_) {
    case Space::Gray:
        return KPPDFColor::colorWithWhite(components_[0], alpha_);
    case Space::RGB:
        return KPPDFColor::colorWithRed(components_[0], components_[1], components_[2], alpha_);
    case Space::CMYK:
        return KPPDFColor::colorWithCyan(components_[0], components_[1], components_[2],
                                         components_[3], alpha_);
    }
    return KPPDFColor();
}

std::string KPPDFAnnotationColor::description() const {
    static const char* const kSpaceNames[] = {"gray", "rgb", "cmyk"};
    std::string text = "KPPDFAnnotationColor(";
    text += kSpaceNames[static_cast<int>(space_)];
    char number[32];
    for (size_t i = 0; i < componentCount(); i++) {
        std::snprintf(number, sizeof number, " %g", components_[i]);
        text += number;
    }
    std::snprintf(number, sizeof number, " %g)", alpha_);
    return text + number;
}
