#include "kppdf/page/KPPDFGraphicsState.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <memory>

namespace {

constexpr std::string_view kColorSpaceNames[] = {"DeviceGray", "DeviceRGB", "CalGray",   "CalRGB",
                                                 "Lab",        "ICCBased",  "Pattern",   "Indexed",
                                                 "Separation", "DeviceN",   "DeviceCMYK"};
constexpr int32_t kColorSpaceCodes[] = {
    KPPDFColorSpaceDeviceGray, KPPDFColorSpaceDeviceRGB, KPPDFColorSpaceCalGray,
    KPPDFColorSpaceCalRGB,     KPPDFColorSpaceLab,       KPPDFColorSpaceICCBased,
    KPPDFColorSpacePattern,    KPPDFColorSpaceIndexed,   KPPDFColorSpaceSeparation,
    KPPDFColorSpaceDeviceN,    KPPDFColorSpaceDeviceCMYK};
static_assert(std::size(kColorSpaceNames) == std::size(kColorSpaceCodes));

// The D50 white point that ISO 32000-1, 8.6.5.4, takes as the usual WhitePoint of Lab spaces.
constexpr float kWhiteX = 0.9642f, kWhiteY = 1.0f, kWhiteZ = 0.8249f;

float labInverse(float t) {
    constexpr float delta = 6.0f / 29.0f;
    return t > delta ? t * t * t : 3 * delta * delta * (t - 4.0f / 29.0f);
}

float srgbCompand(float linear) {
    linear = std::clamp(linear, 0.0f, 1.0f);
    return linear <= 0.0031308f ? 12.92f * linear : 1.055f * std::pow(linear, 1 / 2.4f) - 0.055f;
}

KPPDFColor labColor(float l, float a, float b) {
    float fy = (l + 16) / 116;
    float x = kWhiteX * labInverse(fy + a / 500);
    float y = kWhiteY * labInverse(fy);
    float z = kWhiteZ * labInverse(fy - b / 200);
    // XYZ (D50) to linear sRGB, with the Bradford adaptation to D65 folded in.
    float red = 3.1338561f * x - 1.6168667f * y - 0.4906146f * z;
    float green = -0.9787684f * x + 1.9161415f * y + 0.0334540f * z;
    float blue = 0.0719453f * x - 0.2289914f * y + 1.4052427f * z;
    return KPPDFColor::colorWithRed(srgbCompand(red), srgbCompand(green), srgbCompand(blue));
}

std::optional<KPPDFColor> colorByCount(const float* e, uint32_t count) {
    if (count >= 4)
        return KPPDFColor::colorWithCyan(e[0], e[1], e[2], e[3]);
    if (count == 3)
        return KPPDFColor::colorWithRed(e[0], e[1], e[2]);
    if (count >= 1)
        return KPPDFColor::colorWithWhite(e[0]);
    return std::nullopt;
}

} // namespace

KPPDFRef<KPPDFGraphicsState> KPPDFGraphicsState::copy() const {
    return std::make_shared<KPPDFGraphicsState>(*this);
}

int32_t KPPDFGraphicsState::colorSpaceForName(std::string_view name) {
    for (size_t i = 0; i < std::size(kColorSpaceNames); i++)
        if (kColorSpaceNames[i] == name)
            return kColorSpaceCodes[i];
    return -1;
}

bool KPPDFGraphicsState::setColorSpaceName(std::string_view name, bool forStroke) {
    int32_t space = colorSpaceForName(name);
    if (space < 0)
        return false;
    (forStroke ? strokeColorSpace_ : nonstrokeColorSpace_) = space;
    return true;
}

void KPPDFGraphicsState::setStrokeColorFromElements(const float* elements, uint32_t count) {
    if (auto color = colorFromElements(elements, count, strokeColorSpace_))
        strokeColor_ = color;
}

void KPPDFGraphicsState::setNonstrokeColorFromElements(const float* elements, uint32_t count) {
    if (auto color = colorFromElements(elements, count, nonstrokeColorSpace_))
        nonstrokeColor_ = color;
}

std::optional<KPPDFColor> KPPDFGraphicsState::colorFromElements(const float* e, uint32_t count,
                                                                int32_t space) {
    if (!e || count == 0)
        return std::nullopt;
    switch (space) {
    case KPPDFColorSpaceDeviceGray:
    case KPPDFColorSpaceCalGray:
        return KPPDFColor::colorWithWhite(e[0]);
    case KPPDFColorSpaceDeviceRGB:
    case KPPDFColorSpaceCalRGB:
        if (count < 3)
            return std::nullopt;
        return KPPDFColor::colorWithRed(e[0], e[1], e[2]);
    case KPPDFColorSpaceDeviceCMYK:
        if (count < 4)
            return std::nullopt;
        return KPPDFColor::colorWithCyan(e[0], e[1], e[2], e[3]);
    case KPPDFColorSpaceLab:
        if (count < 3)
            return std::nullopt;
        return labColor(e[0], e[1], e[2]);
    case KPPDFColorSpaceICCBased:
        return colorByCount(e, count);
    case KPPDFColorSpaceSeparation:
    case KPPDFColorSpaceDeviceN: {
        // Without the tint transform the best guess is ink on white: full tint is black.
        float tint = 0;
        for (uint32_t i = 0; i < count; i++)
            if (std::isfinite(e[i]))
                tint = std::max(tint, e[i]);
        return KPPDFColor::colorWithWhite(1 - std::min(tint, 1.0f));
    }
    default:
        return std::nullopt;
    }
}

std::string KPPDFGraphicsState::description() const {
    char text[512];
    std::snprintf(text, sizeof text, "CTM %f %f %f %f %f %f", CTM_.a, CTM_.b, CTM_.c, CTM_.d,
                  CTM_.tx, CTM_.ty);
    return text;
}
