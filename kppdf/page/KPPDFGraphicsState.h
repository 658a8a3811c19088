#pragma once
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "kppdf/platform/KPPDFColor.h"
#include "kppdf/platform/KPPDFGeometry.h"
#include "kppdf/platform/KPPDFRef.h"

// Colour space families of the graphics state (strokeColorSpace(), nonstrokeColorSpace()).
enum : int32_t {
    KPPDFColorSpaceDeviceGray = 0,
    KPPDFColorSpaceDeviceRGB = 1,
    KPPDFColorSpaceDeviceCMYK = 2,
    KPPDFColorSpaceCalGray = 3,
    KPPDFColorSpaceCalRGB = 4,
    KPPDFColorSpaceLab = 5,
    KPPDFColorSpaceICCBased = 6,
    KPPDFColorSpacePattern = 7,
    KPPDFColorSpaceIndexed = 8,
    KPPDFColorSpaceSeparation = 9,
    KPPDFColorSpaceDeviceN = 10,
};

// The part of the PDF graphics state (ISO 32000-1, 8.4 and 9.3) that text extraction and image
// listing need: the matrices, the text state parameters and the two colours. A plain value:
// copying copies every field.
class KPPDFGraphicsState {
public:
    KPPDFGraphicsState() = default;
    KPPDFGraphicsState(const KPPDFGraphicsState&) = default;
    KPPDFGraphicsState& operator=(const KPPDFGraphicsState&) = default;

    // A new state equal to this one; the caller owns it.
    KPPDFRef<KPPDFGraphicsState> copy() const;

    const KPPDFAffineTransform& CTM() const { return CTM_; }
    void setCTM(const KPPDFAffineTransform& ctm) { CTM_ = ctm; }
    // Tc, in unscaled text space units.
    float TcharSpacing() const { return TcharSpacing_; }
    void setTcharSpacing(float spacing) { TcharSpacing_ = spacing; }
    // Tw, added for every single-byte code 32.
    float TwordSpacing() const { return TwordSpacing_; }
    void setTwordSpacing(float spacing) { TwordSpacing_ = spacing; }
    // Tz as a factor (1.0 is 100 percent).
    float ThorizontalScaling() const { return ThorizontalScaling_; }
    // Takes the Tz operand in percent and stores it divided by 100.
    void setThorizontalScaling(float percent) { ThorizontalScaling_ = percent / 100.0f; }
    // The vertical offset T* moves the line by: TD's ty as written, or TL's operand negated
    // (so a positive TL leading moves down, as ISO 32000-1, 9.3.5, has it).
    float Tleading() const { return Tleading_; }
    void setTleading(float leading) { Tleading_ = leading; }
    // The resource name of the current font (a key of the page's fonts); empty before Tf.
    const std::string& Tfont() const { return Tfont_; }
    void setTfont(std::string_view font) { Tfont_.assign(font); }
    float TfontSize() const { return TfontSize_; }
    void setTfontSize(float size) { TfontSize_ = size; }
    // Tr, the text rendering mode.
    int32_t Tmode() const { return Tmode_; }
    void setTmode(int32_t mode) { Tmode_ = mode; }
    // Ts, the text rise.
    float Trise() const { return Trise_; }
    void setTrise(float rise) { Trise_ = rise; }
    bool Tknockout() const { return Tknockout_; }
    void setTknockout(bool knockout) { Tknockout_ = knockout; }
    // Tm and Tlm.
    const KPPDFAffineTransform& textMatrix() const { return textMatrix_; }
    void setTextMatrix(const KPPDFAffineTransform& matrix) { textMatrix_ = matrix; }
    const KPPDFAffineTransform& textLineMatrix() const { return textLineMatrix_; }
    void setTextLineMatrix(const KPPDFAffineTransform& matrix) { textLineMatrix_ = matrix; }
    // The CTM in force where the enclosing form XObject was drawn (identity on the page).
    const KPPDFAffineTransform& outerCTM() const { return outerCTM_; }
    void setOuterCTM(const KPPDFAffineTransform& matrix) { outerCTM_ = matrix; }

    int32_t strokeColorSpace() const { return strokeColorSpace_; }
    void setStrokeColorSpace(int32_t space) { strokeColorSpace_ = space; }
    // Empty until a colour operator gave one.
    const std::optional<KPPDFColor>& strokeColor() const { return strokeColor_; }
    void setStrokeColor(std::optional<KPPDFColor> color) { strokeColor_ = color; }
    int32_t nonstrokeColorSpace() const { return nonstrokeColorSpace_; }
    void setNonstrokeColorSpace(int32_t space) { nonstrokeColorSpace_ = space; }
    const std::optional<KPPDFColor>& nonstrokeColor() const { return nonstrokeColor_; }
    void setNonstrokeColor(std::optional<KPPDFColor> color) { nonstrokeColor_ = color; }

    // The family code of a colour space name ("DeviceRGB" -> 1); -1 for other names.
    static int32_t colorSpaceForName(std::string_view name);
    // Sets the stroke or non-stroke space by family name; false (space unchanged) for a name
    // that is no family. The colour is left as it is.
    bool setColorSpaceName(std::string_view name, bool forStroke);
    bool setStrokeColorSpaceName(std::string_view name) { return setColorSpaceName(name, true); }
    bool setNonstrokeColorSpaceName(std::string_view name) {
        return setColorSpaceName(name, false);
    }
    // Sets the colour made from the components for the current space; unchanged when they make
    // none. elements may be null when count is 0.
    void setStrokeColorFromElements(const float* elements, uint32_t count);
    void setNonstrokeColorFromElements(const float* elements, uint32_t count);
    // A colour for components in a space: gray, RGB and CMYK families (and ICC-based spaces by
    // component count) convert directly, Lab through CIE XYZ, a Separation or DeviceN tint as
    // gray ink; empty for too few components, patterns and indexed spaces (whose lookup table
    // the state does not know).
    static std::optional<KPPDFColor> colorFromElements(const float* elements, uint32_t count,
                                                       int32_t space);

    // "CTM a b c d tx ty".
    std::string description() const;

private:
    KPPDFAffineTransform CTM_;
    float TcharSpacing_ = 0;
    float TwordSpacing_ = 0;
    float ThorizontalScaling_ = 1.0f;
    float Tleading_ = 0;
    std::string Tfont_;
    float TfontSize_ = 0;
    int32_t Tmode_ = 0;
    float Trise_ = 0;
    bool Tknockout_ = true;
    KPPDFAffineTransform textMatrix_;
    KPPDFAffineTransform textLineMatrix_;
    KPPDFAffineTransform outerCTM_;
    int32_t strokeColorSpace_ = KPPDFColorSpaceDeviceGray;
    std::optional<KPPDFColor> strokeColor_;
    int32_t nonstrokeColorSpace_ = KPPDFColorSpaceDeviceGray;
    std::optional<KPPDFColor> nonstrokeColor_;
};
