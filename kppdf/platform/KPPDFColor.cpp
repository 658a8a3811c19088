#include "kppdf/platform/KPPDFColor.h"

#include <algorithm>
#include <cstdio>

namespace {

float unitClamp(float value) {
    if (!(value >= 0)) // NaN as well
        return 0;
    return std::min(value, 1.0f);
}

} // namespace

KPPDFColor KPPDFColor::colorWithRed(float red, float green, float blue, float alpha) {
    KPPDFColor color;
    color.red_ = unitClamp(red);
    color.green_ = unitClamp(green);
    color.blue_ = unitClamp(blue);
    color.alpha_ = unitClamp(alpha);
    return color;
}

KPPDFColor KPPDFColor::colorWithWhite(float white, float alpha) {
    return colorWithRed(white, white, white, alpha);
}

KPPDFColor KPPDFColor::colorWithCyan(float cyan, float magenta, float yellow, float black,
                                     float alpha) {
    cyan = unitClamp(cyan);
    magenta = unitClamp(magenta);
    yellow = unitClamp(yellow);
    black = unitClamp(black);
    return colorWithRed(1 - std::min(1.0f, cyan + black), 1 - std::min(1.0f, magenta + black),
                        1 - std::min(1.0f, yellow + black), alpha);
}

std::string KPPDFColor::description() const {
    char text[96];
    std::snprintf(text, sizeof text, "KPPDFColor(%g %g %g %g)", double(red_), double(green_),
                  double(blue_), double(alpha_));
    return text;
}
