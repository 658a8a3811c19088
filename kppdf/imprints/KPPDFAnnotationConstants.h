#pragma once

// Text templates shared by the annotation kinds. The formats are printf formats: each "%s"
// takes a string, each "%f" a double.

// The style string ("DS") of free-text annotations: font name, font size, then the red, green
// and blue bytes of the text colour.
extern const char KPPDFAnnotationFreeTextDS[];
// The default appearance string ("DA") of free-text annotations: red, green, blue, then the
// font resource name and the font size.
extern const char KPPDFAnnotationFreeTextDA[];

// The content stream of the note icon, a speech bubble about 19.3 by 16.5 units drawn in a
// y-flipped space: the first "%s" takes the colour operators of the filled bubble, the second
// those of its outline. The open and the closed icon are one template (they differ only in the
// colours put into it), so both names point at the same text.
extern const char* const KPPDFAnnotationTextButtonOpen;
extern const char* const KPPDFAnnotationTextButtonClosed;

// Path templates of form buttons in the unit square (x 0 to 1 rightwards, y 0 to -1 downwards
// from the top-left corner), one operator per line: a stroked square frame (check box), a
// filled check mark, a stroked circle (radio button) and the filled dot inside it. The frames
// set their own line width of 0.05 with miter joins, butt caps and no dash.
extern const char KPPDFAnnotationWidgetButtonCheckboxBox[];
extern const char KPPDFAnnotationWidgetButtonCheckboxCheck[];
extern const char KPPDFAnnotationWidgetButtonRadioBox[];
extern const char KPPDFAnnotationWidgetButtonRadioCheck[];
