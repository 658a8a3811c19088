#include "kppdf/imprints/KPPDFAnnotation.h"

#include <cmath>
#include <cstdio>

#include "kppdf/document/KPPDFDocument.h"
#include "kppdf/objects/KPPDFObjectArray.h"
#include "kppdf/objects/KPPDFObjectDictionary.h"
#include "kppdf/objects/KPPDFObjectReal.h"
#include "kppdf/page/KPPDFPage.h"

namespace {

// Each element read as a real; anything that is no finite number reads as 0.
float elementValue(KPPDFObjectArray& array, size_t index) {
    KPPDFRef<KPPDFObject> element = array.resolvedObjectAtIndex(index);
    float value = element ? element->realValue() : 0.0f;
    return std::isfinite(value) ? value : 0.0f;
}

} // namespace

KPPDFAnnotation::KPPDFAnnotation() = default;
KPPDFAnnotation::~KPPDFAnnotation() = default;

KPPDFAnnotation::KPPDFAnnotation(const KPPDFRef<KPPDFObjectDictionary>& dictionary,
                                 KPPDFPage* page) {
    page_ = page;
    KPPDFRef<KPPDFObjectDictionary> opened = dictionary;
    if (dictionary) {
        originalObjectNumber_ = dictionary->objectNumber();
        KPPDFDocument* document = dictionary->document();
        uint32_t number = dictionary->objectNumber();
        uint32_t generation = dictionary->generation();
        if (number && document) {
            // The table may still hold a placeholder or a parse of its own: the annotation and
            // the table must share one dictionary, or edits would not reach the written file.
            if (auto tabled = KPPDFResolve<KPPDFObjectDictionary>(
                    document->objectWithNumber(number, generation))) {
                document->setObject(tabled, number, generation);
                opened = tabled;
            }
        }
    }
    annotDict_ = std::move(opened);
    KPPDFRect rect = dictionaryRect();
    setLocation(rect.origin);
    setSize(rect.size);
}

KPPDFRef<KPPDFAnnotation>
KPPDFAnnotation::annotationWithDictionary(const KPPDFRef<KPPDFObjectDictionary>& dictionary,
                                          KPPDFPage* page) {
    return std::make_shared<KPPDFAnnotation>(dictionary, page);
}

KPPDFRect KPPDFAnnotation::dictionaryRect() const {
    if (!annotDict_)
        return KPPDFRect();
    auto array = annotDict_->resolvedObjectForKey<KPPDFObjectArray>("Rect");
    if (!array)
        return KPPDFRect();
    float a = elementValue(*array, 0), b = elementValue(*array, 1);
    float c = elementValue(*array, 2), d = elementValue(*array, 3);
    return KPPDFMakeRect(a, b, c - a, d - b);
}

void KPPDFAnnotation::setLocation(KPPDFPoint location) {
    KPPDFImprint::setLocation(location);
    writeRect();
}

void KPPDFAnnotation::setSize(KPPDFSize size) {
    KPPDFImprint::setSize(size);
    writeRect();
}

void KPPDFAnnotation::writeRect() {
    setEntry("Rect", arrayForRect(rect()));
}

void KPPDFAnnotation::setEntry(std::string_view key, KPPDFRef<KPPDFObject> value) {
    if (annotDict_)
        annotDict_->setObject(std::move(value), key);
}

KPPDFRef<KPPDFObjectArray> KPPDFAnnotation::arrayForRect(KPPDFRect rect) {
    return KPPDFPage::makePDFRect(rect);
}

KPPDFRef<KPPDFObjectArray> KPPDFAnnotation::arrayFromColor(const KPPDFAnnotationColor& color) {
    auto array = std::make_shared<KPPDFObjectArray>();
    if (color.space() == KPPDFAnnotationColor::Space::CMYK) {
        // Cyan, yellow, magenta, black: the order annotations of this system have always been
        // written in, kept so that their colours stay what they were.
        for (size_t index : {0, 2, 1, 3})
            array->addObject(KPPDFObjectReal::realWithFloat(color.component(index)));
        return array;
    }
    for (size_t i = 0; i < color.componentCount(); i++)
        array->addObject(KPPDFObjectReal::realWithFloat(color.component(i)));
    return array;
}

std::optional<KPPDFAnnotationColor>
KPPDFAnnotation::colorFromArray(const KPPDFRef<KPPDFObjectArray>& array) {
    if (!array)
        return std::nullopt;
    switch (array->count()) {
    case 0:
    case 2:
        return std::nullopt;
    case 1:
        return KPPDFAnnotationColor::colorWithWhite(elementValue(*array, 0));
    case 3:
        return KPPDFAnnotationColor::colorWithRed(elementValue(*array, 0), elementValue(*array, 1),
                                                  elementValue(*array, 2));
    default:
        return KPPDFAnnotationColor::colorWithCyan(elementValue(*array, 0), elementValue(*array, 1),
                                                   elementValue(*array, 2),
                                                   elementValue(*array, 3));
    }
}

std::string KPPDFAnnotation::stringFromColor(const KPPDFAnnotationColor& color, bool stroke) {
    KPPDFRef<KPPDFObjectArray> array = arrayFromColor(color);
    size_t count = array->count();
    const char* op;
    switch (count) {
    case 1:
        op = stroke ? "G" : "g";
        break;
    case 3:
        op = stroke ? "RG" : "rg";
        break;
    case 4:
        op = stroke ? "K" : "k";
        break;
    default:
        return std::string();
    }
    std::string text;
    char number[48];
    for (size_t i = 0; i < count; i++) {
        std::snprintf(number, sizeof number, "%f ", static_cast<double>(elementValue(*array, i)));
        text += number;
    }
    return text + op;
}

std::string KPPDFAnnotation::stringFromColor(const std::optional<KPPDFAnnotationColor>& stroke,
                                             const std::optional<KPPDFAnnotationColor>& nonstroke) {
    std::string text;
    if (stroke)
        text += stringFromColor(*stroke, true);
    if (nonstroke) {
        text += ' ';
        text += stringFromColor(*nonstroke, false);
    }
    return text;
}

bool KPPDFAnnotation::flagPrint() const {
    if (!annotDict_)
        return false;
    KPPDFRef<KPPDFObject> flags = annotDict_->resolvedObjectForKey("F");
    if (!flags || !flags->isNumber())
        return false;
    return (flags->longLongValue() >> 2) & 1;
}

KPPDFObjectList KPPDFAnnotation::subobjects(KPPDFVisitedSet& visited) {
    return annotDict_ ? annotDict_->subobjects(visited) : KPPDFObjectList{};
}

void KPPDFAnnotation::linkParent(KPPDFAnnotation&) {}

KPPDFRef<KPPDFImprint> KPPDFAnnotation::copy() const {
    auto annotation = std::make_shared<KPPDFAnnotation>();
    copyInto(*annotation);
    return annotation;
}

void KPPDFAnnotation::copyInto(KPPDFAnnotation& copy) const {
    KPPDFImprint::copyInto(copy);
    copy.page_ = page_;
    copy.oldDict_ = oldDict_;
    if (!annotDict_)
        return;
    // Entries are resolved first so that the copy's references keep their targets.
    annotDict_->resolveEntries();
    auto dictionary = KPPDFCast<KPPDFObjectDictionary>(annotDict_->copy());
    if (!dictionary)
        return;
    dictionary->setObjectNumber(0);
    dictionary->setGeneration(0);
    // Only the dictionary itself leaves the document (it is a new object of none yet); its
    // entries keep theirs, so that strings still decrypt and references still resolve.
    dictionary->KPPDFObject::setDocument(nullptr);
    copy.annotDict_ = std::move(dictionary);
}
