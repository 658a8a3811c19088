#include <gtest/gtest.h>

#include "kppdf/page/KPPDFGraphicsState.h"

namespace {

void expectColor(const std::optional<KPPDFColor>& color, float red, float green, float blue) {
    ASSERT_TRUE(color.has_value());
    EXPECT_NEAR(color->red(), red, 0.01f) << color->description();
    EXPECT_NEAR(color->green(), green, 0.01f) << color->description();
    EXPECT_NEAR(color->blue(), blue, 0.01f) << color->description();
}

} // namespace

TEST(KPPDFGraphicsState, ColorsFromComponents) {
    const float gray[] = {0.25f};
    const float rgb[] = {0.2f, 0.4f, 0.6f};
    const float cmyk[] = {0, 1, 1, 0};
    // ICC-based spaces go by the number of components; Lab L 100 is the white point; a full
    // tint of a separation is ink: black.
    const float labWhite[] = {100, 0, 0};
    const float tint[] = {1};
    struct Case {
        const float* components;
        uint32_t count;
        int32_t space;
        float red, green, blue;
    };
    const Case cases[] = {{gray, 1, KPPDFColorSpaceDeviceGray, 0.25f, 0.25f, 0.25f},
                          {rgb, 3, KPPDFColorSpaceCalRGB, 0.2f, 0.4f, 0.6f},
                          {cmyk, 4, KPPDFColorSpaceDeviceCMYK, 1, 0, 0},
                          {rgb, 3, KPPDFColorSpaceICCBased, 0.2f, 0.4f, 0.6f},
                          {cmyk, 4, KPPDFColorSpaceICCBased, 1, 0, 0},
                          {labWhite, 3, KPPDFColorSpaceLab, 1, 1, 1},
                          {tint, 1, KPPDFColorSpaceSeparation, 0, 0, 0}};
    for (const Case& c : cases) {
        SCOPED_TRACE(c.space);
        expectColor(KPPDFGraphicsState::colorFromElements(c.components, c.count, c.space), c.red,
                    c.green, c.blue);
    }
    const float labRed[] = {54, 80, 67};
    auto red = KPPDFGraphicsState::colorFromElements(labRed, 3, KPPDFColorSpaceLab);
    ASSERT_TRUE(red);
    EXPECT_GT(red->red(), 0.9f);
    EXPECT_LT(red->green(), 0.2f);

    // Too few components, patterns and indexed spaces give no colour; the setters then keep
    // the colour.
    EXPECT_FALSE(KPPDFGraphicsState::colorFromElements(cmyk, 3, KPPDFColorSpaceDeviceCMYK));
    EXPECT_FALSE(KPPDFGraphicsState::colorFromElements(nullptr, 0, KPPDFColorSpaceDeviceGray));
    EXPECT_FALSE(KPPDFGraphicsState::colorFromElements(gray, 1, KPPDFColorSpacePattern));
    EXPECT_FALSE(KPPDFGraphicsState::colorFromElements(gray, 1, KPPDFColorSpaceIndexed));
    KPPDFGraphicsState state;
    state.setNonstrokeColorSpace(KPPDFColorSpaceDeviceRGB);
    state.setNonstrokeColorFromElements(rgb, 3);
    state.setNonstrokeColorFromElements(gray, 1);
    expectColor(state.nonstrokeColor(), 0.2f, 0.4f, 0.6f);
}
