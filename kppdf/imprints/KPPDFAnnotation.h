#pragma once
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "kppdf/imprints/KPPDFAnnotationColor.h"
#include "kppdf/imprints/KPPDFImprint.h"
#include "kppdf/objects/KPPDFObject.h"

class KPPDFObjectArray;
class KPPDFObjectDictionary;

// An annotation imprint: one annotation dictionary of a page's Annots (ISO 32000-1, 12.5). All
// its properties live in annotDict; setters write their key into it at once, so the dictionary
// always is what will be written. This base class stands for every kind without a class of its
// own and is written back unchanged; the kinds with classes derive from it.
class KPPDFAnnotation : public KPPDFImprint {
public:
    // An annotation without a dictionary, on no page.
    KPPDFAnnotation();
    // Opens the annotation on dictionary (null gives one without a dictionary). A numbered
    // dictionary is taken from its document's table and put back there, so that the table and
    // the annotation hold one object; location and size come from its Rect, which is written
    // back at once as four reals (not normalised). page is not owned.
    KPPDFAnnotation(const KPPDFRef<KPPDFObjectDictionary>& dictionary, KPPDFPage* page);
    ~KPPDFAnnotation() override;

    // A plain annotation (always this class, whatever the dictionary's Subtype); never null.
    static KPPDFRef<KPPDFAnnotation>
    annotationWithDictionary(const KPPDFRef<KPPDFObjectDictionary>& dictionary, KPPDFPage* page);

    int32_t imprintType() const override { return KPPDFImprintTypeAnnotation; }
    int32_t annotationType() const override { return KPPDFAnnotationTypeGeneric; }
    KPPDFAnnotation* asAnnotation() override { return this; }

    // The annotation dictionary; null only for an annotation made without one.
    const KPPDFRef<KPPDFObjectDictionary>& annotDict() const { return annotDict_; }
    void setAnnotDict(KPPDFRef<KPPDFObjectDictionary> dictionary) {
        annotDict_ = std::move(dictionary);
    }
    // The dictionary as it was before editing, set by the kinds that edit; the writers compare
    // against it to tell a changed annotation. May be null.
    const KPPDFRef<KPPDFObjectDictionary>& oldDict() const { return oldDict_; }
    void setOldDict(KPPDFRef<KPPDFObjectDictionary> dictionary) {
        oldDict_ = std::move(dictionary);
    }
    // An appearance dictionary built for writing by the kinds that draw one; may be null.
    const KPPDFRef<KPPDFObjectDictionary>& appearance() const { return appearance_; }
    void setAppearance(KPPDFRef<KPPDFObjectDictionary> appearance) {
        appearance_ = std::move(appearance);
    }
    // The object number the dictionary had when the annotation was opened (0 for a direct or
    // new one): how pop-ups find the annotation they belong to.
    uint32_t originalObjectNumber() const { return originalObjectNumber_; }

    // Rect as stored: origin (a, b), size (c - a, d - b), so swapped corners give a negative
    // width or height. The zero rectangle without a dictionary or without an array under Rect;
    // missing or non-numeric elements read as 0.
    KPPDFRect dictionaryRect() const;
    // location and size as one rectangle.
    KPPDFRect rect() const { return {location_, size_}; }
    // Store the value, then write Rect (arrayForRect of rect()) into the dictionary.
    void setLocation(KPPDFPoint location) override;
    void setSize(KPPDFSize size) override;

    // [x y x+width y+height] as four reals.
    static KPPDFRef<KPPDFObjectArray> arrayForRect(KPPDFRect rect);
    // The components as reals, without alpha: [white], [red green blue], or for CMYK
    // [cyan yellow magenta black]: yellow before magenta, deliberately, while colorFromArray
    // reads PDF's order, so a CMYK colour written and read back has the two exchanged.
    static KPPDFRef<KPPDFObjectArray> arrayFromColor(const KPPDFAnnotationColor& color);
    // By element count: 1 gray, 3 RGB, 4 or more CMYK (cyan, magenta, yellow, black; further
    // elements ignored), alpha 1; nullopt for a null array or 0 or 2 elements.
    static std::optional<KPPDFAnnotationColor>
    colorFromArray(const KPPDFRef<KPPDFObjectArray>& array);
    // Content-stream colour operator of arrayFromColor's components with six decimals each:
    // "%f G"/"%f g", "%f %f %f RG"/"rg", "%f %f %f %f K"/"k" (stroke or not).
    static std::string stringFromColor(const KPPDFAnnotationColor& color, bool stroke);
    // The stroke operator (when given), then a space and the fill operator (when given). The
    // space is written even without a stroke colour, so a fill-only text starts with it.
    static std::string stringFromColor(const std::optional<KPPDFAnnotationColor>& stroke,
                                       const std::optional<KPPDFAnnotationColor>& nonstroke);

    // The Print flag (value 4) of the dictionary's F; false without F.
    bool flagPrint() const override;
    // The indirect objects the dictionary refers to and that visited does not hold yet (for
    // writing); empty without a dictionary.
    KPPDFObjectList subobjects(KPPDFVisitedSet& visited);

    // Links this pop-up-like annotation to the annotation it belongs to, found through Parent
    // when the page reads its annotations. Kinds without a parent ignore it.
    virtual void linkParent(KPPDFAnnotation& parent);

    // The imprint copy, with a copy of the dictionary that is written as a new object (number 0,
    // no document), the same page and the same oldDict; appearance is not copied. The caller
    // owns it.
    KPPDFRef<KPPDFImprint> copy() const override;

protected:
    using KPPDFImprint::copyInto;
    // What copy() does, into an annotation of the caller's kind.
    void copyInto(KPPDFAnnotation& copy) const;
    // Writes one entry into the dictionary at once (a null value removes it); does nothing
    // without a dictionary.
    void setEntry(std::string_view key, KPPDFRef<KPPDFObject> value);

    KPPDFRef<KPPDFObjectDictionary> annotDict_;
    KPPDFRef<KPPDFObjectDictionary> oldDict_;
    KPPDFRef<KPPDFObjectDictionary> appearance_;
    uint32_t originalObjectNumber_ = 0;

private:
    void writeRect();
};
