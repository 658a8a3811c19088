#include "kppdf/document/KPPDFDocument.h"
#include "kppdf/objects/KPPDFObjectDictionary.h"
#include "kppdf/page/KPPDFFont.h"

// Pages share fonts through this list, so that one font dictionary is read once per document.
// Callers hold the page lock around both calls.

void KPPDFDocument::addFont(const KPPDFRef<KPPDFFont>& font) {
    if (font)
        docFonts_.push_back(font);
}

KPPDFRef<KPPDFFont>
KPPDFDocument::lookupFont(const KPPDFRef<KPPDFObjectDictionary>& fontDictionary) const {
    if (!fontDictionary)
        return nullptr;
    for (const KPPDFRef<KPPDFFont>& font : docFonts_) {
        if (font->fontDictionary() && font->fontDictionary()->isEqual(*fontDictionary))
            return font;
    }
    return nullptr;
}
