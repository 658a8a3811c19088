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

TEST(KPPDFGraphicsState, InitialStateScalingAndCopies) {
    KPPDFGraphicsState state;
    EXPECT_EQ(state.CTM(), KPPDFAffineTransform());
    EXPECT_EQ(state.ThorizontalScaling(), 1.0f);
    EXPECT_TRUE(state.Tknockout());
    EXPECT_TRUE(state.Tfont().empty());
    EXPECT_FALSE(state.strokeColor().has_value());
    EXPECT_FALSE(state.nonstrokeColor().has_value());
    EXPECT_EQ(state.description(), "CTM 1.000000 0.000000 0.000000 1.000000 0.000000 0.000000");

    // Tz takes percent.
    state.setThorizontalScaling(150);
    EXPECT_FLOAT_EQ(state.ThorizontalScaling(), 1.5f);

    state.setTfont("F1");
    state.setNonstrokeColor(KPPDFColor::redColor());
    state.setCTM({2, 0, 0, 2, 5, 6});
    KPPDFRef<KPPDFGraphicsState> copy = state.copy();
    copy->setTfont("F2");
    copy->setNonstrokeColor(KPPDFColor::blueColor());
    copy->setTextMatrix({1, 0, 0, 1, 9, 9});
    EXPECT_EQ(state.Tfont(), "F1");
    EXPECT_EQ(state.nonstrokeColor(), KPPDFColor::redColor());
    EXPECT_EQ(state.textMatrix(), KPPDFAffineTransform());
    EXPECT_EQ(copy->CTM(), state.CTM());
    EXPECT_FLOAT_EQ(copy->ThorizontalScaling(), 1.5f);
    EXPECT_EQ(copy->description(), "CTM 2.000000 0.000000 0.000000 2.000000 5.000000 6.000000");
}

TEST(KPPDFGraphicsState, ColorSpaceNames) {
    const char* names[] = {"DeviceGray", "DeviceRGB", "DeviceCMYK", "CalGray",    "CalRGB", "Lab",
                           "ICCBased",   "Pattern",   "Indexed",    "Separation", "DeviceN"};
    KPPDFGraphicsState state;
    for (int32_t code = 0; code < 11; code++) {
        EXPECT_TRUE(state.setNonstrokeColorSpaceName(names[code])) << names[code];
        EXPECT_EQ(state.nonstrokeColorSpace(), code) << names[code];
    }
    EXPECT_TRUE(state.setStrokeColorSpaceName("DeviceCMYK"));
    EXPECT_FALSE(state.setStrokeColorSpaceName("DeviceRG"));
    EXPECT_FALSE(state.setStrokeColorSpaceName("CS0"));
    EXPECT_EQ(state.strokeColorSpace(), KPPDFColorSpaceDeviceCMYK);
    EXPECT_EQ(state.nonstrokeColorSpace(), KPPDFColorSpaceDeviceN);
}

TEST(KPPDFGraphicsState, ColorsFromComponents) {
    const float gray[] = {0.25f};
    const float rgb[] = {0.2f, 0.4f, 0.6f};
    const float cmyk[] = {0, 1, 1, 0};
    expectColor(KPPDFGraphicsState::colorFromElements(gray, 1, KPPDFColorSpaceDeviceGray), 0.25f,
                0.25f, 0.25f);
    expectColor(KPPDFGraphicsState::colorFromElements(rgb, 3, KPPDFColorSpaceCalRGB), 0.2f, 0.4f,
                0.6f);
    expectColor(KPPDFGraphicsState::colorFromElements(cmyk, 4, KPPDFColorSpaceDeviceCMYK), 1, 0, 0);
    // ICC-based spaces go by the number of components.
    expectColor(KPPDFGraphicsState::colorFromElements(rgb, 3, KPPDFColorSpaceICCBased), 0.2f, 0.4f,
                0.6f);
    expectColor(KPPDFGraphicsState::colorFromElements(cmyk, 4, KPPDFColorSpaceICCBased), 1, 0, 0);
    // Lab: L 100 is the white point, L 0 black; a positive a* is reddish.
    const float labWhite[] = {100, 0, 0};
    const float labBlack[] = {0, 0, 0};
    const float labRed[] = {54, 80, 67};
    expectColor(KPPDFGraphicsState::colorFromElements(labWhite, 3, KPPDFColorSpaceLab), 1, 1, 1);
    expectColor(KPPDFGraphicsState::colorFromElements(labBlack, 3, KPPDFColorSpaceLab), 0, 0, 0);
    auto red = KPPDFGraphicsState::colorFromElements(labRed, 3, KPPDFColorSpaceLab);
    ASSERT_TRUE(red);
    EXPECT_GT(red->red(), 0.9f);
    EXPECT_LT(red->green(), 0.2f);
    // A full tint of a separation is ink: black.
    const float tint[] = {1};
    expectColor(KPPDFGraphicsState::colorFromElements(tint, 1, KPPDFColorSpaceSeparation), 0, 0, 0);

    // Too few components, patterns and indexed spaces give no colour.
    EXPECT_FALSE(KPPDFGraphicsState::colorFromElements(rgb, 2, KPPDFColorSpaceDeviceRGB));
    EXPECT_FALSE(KPPDFGraphicsState::colorFromElements(cmyk, 3, KPPDFColorSpaceDeviceCMYK));
    EXPECT_FALSE(KPPDFGraphicsState::colorFromElements(gray, 1, KPPDFColorSpacePattern));
    EXPECT_FALSE(KPPDFGraphicsState::colorFromElements(gray, 1, KPPDFColorSpaceIndexed));
    EXPECT_FALSE(KPPDFGraphicsState::colorFromElements(nullptr, 0, KPPDFColorSpaceDeviceGray));

    // The setters use the current space and keep the colour when none results.
    KPPDFGraphicsState state;
    state.setNonstrokeColorSpace(KPPDFColorSpaceDeviceRGB);
    state.setNonstrokeColorFromElements(rgb, 3);
    expectColor(state.nonstrokeColor(), 0.2f, 0.4f, 0.6f);
    state.setNonstrokeColorFromElements(gray, 1);
    expectColor(state.nonstrokeColor(), 0.2f, 0.4f, 0.6f);
    state.setStrokeColorFromElements(gray, 1);
    expectColor(state.strokeColor(), 0.25f, 0.25f, 0.25f);
}
