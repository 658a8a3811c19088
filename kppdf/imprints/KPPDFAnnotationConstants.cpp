#include "kppdf/imprints/KPPDFAnnotationConstants.h"

const char KPPDFAnnotationFreeTextDS[] =
    "font: %s,sans-serif %fpt; text-align:left; color:#%02x%02x%02x";
const char KPPDFAnnotationFreeTextDA[] = "%f %f %f rg /%s %f Tf";

namespace {
// One outline, filled and then stroked: a rounded box with its tail pointing to the lower left
// of the page (y is flipped, so negative y is up the page). Eleven curve segments from the tail
// tip, the straight edges drawn as degenerate curves.
#define KPPDF_NOTE_OUTLINE                                                                         \
    "3.5166 -1.14258 m 4.9 -2.4 6.2 -3.8 7.4 -4.6 c 10.5 -4.6 13.7 -4.6 16.83008 -4.6 c "          \
    "18.21 -4.6 19.33008 -5.72 19.33008 -7.1 c 19.33008 -9.4 19.33008 -11.7 19.33008 -13.96631 c " \
    "19.33008 -15.35 18.21 -16.46631 16.83008 -16.46631 c "                                        \
    "12.2 -16.46631 7.7 -16.46631 3.08398 -16.46631 c "                                            \
    "1.7 -16.46631 0.58398 -15.35 0.58398 -13.96631 c 0.58398 -11.7 0.58398 -9.4 0.58398 -7.1 c "  \
    "0.58398 -5.72 1.7 -4.6 3.08398 -4.6 c 3.5 -4.6 3.9 -4.6 4.3 -4.6 c "                          \
    "4.2 -3.5 3.9 -2.2 3.5166 -1.14258 c h"

const char kNoteIcon[] = "%s 1 0 0 -1 0 0 cm 0 i " KPPDF_NOTE_OUTLINE
                         " f %s 1 w 4 M 0 j 0 J []0 d " KPPDF_NOTE_OUTLINE " S";
#undef KPPDF_NOTE_OUTLINE
} // namespace

const char* const KPPDFAnnotationTextButtonOpen = kNoteIcon;
const char* const KPPDFAnnotationTextButtonClosed = kNoteIcon;

// The frame is inset by half its line width so that it stays inside the square.
const char KPPDFAnnotationWidgetButtonCheckboxBox[] = "0.05 w 4 M 0 j 0 J []0 d\n"
                                                      "0.025 -0.025 m\n"
                                                      "0.975 -0.025 l\n"
                                                      "0.975 -0.975 l\n"
                                                      "0.025 -0.975 l\n"
                                                      "h\n"
                                                      "S";

const char KPPDFAnnotationWidgetButtonCheckboxCheck[] = "0.12 -0.55 m\n"
                                                        "0.22 -0.45 l\n"
                                                        "0.4 -0.63 l\n"
                                                        "0.8 -0.17 l\n"
                                                        "0.9 -0.27 l\n"
                                                        "0.4 -0.85 l\n"
                                                        "h\n"
                                                        "f";

// Circles as four Bezier quarters (control points at 0.5523 of the radius).
const char KPPDFAnnotationWidgetButtonRadioBox[] = "0.05 w 4 M 0 j 0 J []0 d\n"
                                                   "0.956 -0.5 m\n"
                                                   "0.956 -0.24815 0.75185 -0.044 0.5 -0.044 c\n"
                                                   "0.24815 -0.044 0.044 -0.24815 0.044 -0.5 c\n"
                                                   "0.044 -0.75185 0.24815 -0.956 0.5 -0.956 c\n"
                                                   "0.75185 -0.956 0.956 -0.75185 0.956 -0.5 c\n"
                                                   "h\n"
                                                   "S";

const char KPPDFAnnotationWidgetButtonRadioCheck[] = "0.75 -0.5 m\n"
                                                     "0.75 -0.36192 0.63808 -0.25 0.5 -0.25 c\n"
                                                     "0.36192 -0.25 0.25 -0.36192 0.25 -0.5 c\n"
                                                     "0.25 -0.63808 0.36192 -0.75 0.5 -0.75 c\n"
                                                     "0.63808 -0.75 0.75 -0.63808 0.75 -0.5 c\n"
                                                     "h\n"
                                                     "f";
