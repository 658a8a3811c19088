#pragma once
#include <string>

// An RGB colour with opacity, each component in 0..1. Components given outside that range are
// clamped (as ISO 32000-1, section 8.6.4, does for device colours); NaN counts as 0.
class KPPDFColor {
public:
    // Opaque black.
    KPPDFColor() = default;

    static KPPDFColor colorWithRed(float red, float green, float blue, float alpha = 1);
    static KPPDFColor colorWithWhite(float white, float alpha = 1);
    // The naive conversion: red = 1 - min(1, cyan + black), and so on.
    static KPPDFColor colorWithCyan(float cyan, float magenta, float yellow, float black,
                                    float alpha = 1);

    static KPPDFColor blackColor() { return colorWithRed(0, 0, 0); }
    static KPPDFColor whiteColor() { return colorWithRed(1, 1, 1); }
    static KPPDFColor blueColor() { return colorWithRed(0, 0, 1); }
    static KPPDFColor yellowColor() { return colorWithRed(1, 1, 0); }
    static KPPDFColor redColor() { return colorWithRed(1, 0, 0); }

    float red() const { return red_; }
    float green() const { return green_; }
    float blue() const { return blue_; }
    float alpha() const { return alpha_; }

    bool operator==(const KPPDFColor&) const = default;

    // "KPPDFColor(r g b a)" with each component printed by %g, for logs and test messages.
    std::string description() const;

private:
    float red_ = 0, green_ = 0, blue_ = 0, alpha_ = 1;
};
