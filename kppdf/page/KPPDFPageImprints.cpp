// A page's imprints: reading its annotations, the filtered imprint lists, and restoring the
// content imprints that a save kept in the page's private record.
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <string>
#include <string_view>
#include <vector>

#include "kppdf/document/KPPDFDocument.h"
#include "kppdf/imprints/KPPDFAnnotation.h"
#include "kppdf/imprints/KPPDFImprint.h"
#include "kppdf/objects/KPPDFObjectArray.h"
#include "kppdf/objects/KPPDFObjectDictionary.h"
#include "kppdf/objects/KPPDFObjectInteger.h"
#include "kppdf/objects/KPPDFObjectName.h"
#include "kppdf/objects/KPPDFObjectNull.h"
#include "kppdf/objects/KPPDFObjectReference.h"
#include "kppdf/objects/KPPDFObjectStream.h"
#include "kppdf/page/KPPDFPage.h"
#include "kppdf/platform/KPPDFArchiver.h"
#include "kppdf/platform/KPPDFLog.h"

namespace {

// ---- Annotation kinds ----

// How an annotation kind takes part in linking pop-ups to the annotations they belong to.
enum class PopupRole { None, Parent, Popup };

// One kind of annotation, by its Subtype (ISO 32000-1, 12.5.6). A kind without a factory, or
// whose factory gives null, is read as a plain KPPDFAnnotation, which is written back unchanged;
// each class plugs in by naming its annotationWithDictionary here.
struct AnnotationKind {
    std::string_view subtype;
    KPPDFRef<KPPDFAnnotation> (*factory)(const KPPDFRef<KPPDFObjectDictionary>&, KPPDFPage*);
    PopupRole role;
};

KPPDFRef<KPPDFAnnotation> widgetWithDictionary(const KPPDFRef<KPPDFObjectDictionary>& dictionary,
                                               KPPDFPage* page);

// Notes (Text) and free text carry pop-ups; their classes are not written yet.
const AnnotationKind kAnnotationKinds[] = {
    {"Link", nullptr, PopupRole::None},   {"Widget", widgetWithDictionary, PopupRole::None},
    {"Text", nullptr, PopupRole::Parent}, {"FreeText", nullptr, PopupRole::Parent},
    {"Popup", nullptr, PopupRole::Popup},
};

// Form fields by field type (ISO 32000-1, 12.7.3.1). Choice fields are edited as text fields,
// deliberately; signature fields and unknown types have no widget class.
struct FieldKind {
    std::string_view fieldType;
    KPPDFRef<KPPDFAnnotation> (*factory)(const KPPDFRef<KPPDFObjectDictionary>&, KPPDFPage*);
};

const FieldKind kFieldKinds[] = {
    {"Tx", nullptr},  // text field widget
    {"Btn", nullptr}, // button widget
    {"Ch", nullptr},  // text field widget
};

std::string_view nameValue(const KPPDFRef<KPPDFObject>& object) {
    KPPDFObjectName* name = object ? object->asName() : nullptr;
    return name ? std::string_view(name->value()) : std::string_view();
}

// The widget of the field type that the widget or, for a kid of a terminal field, its Parent
// (one level only) names; null when there is no class for it.
KPPDFRef<KPPDFAnnotation> widgetWithDictionary(const KPPDFRef<KPPDFObjectDictionary>& dictionary,
                                               KPPDFPage* page) {
    KPPDFRef<KPPDFObject> fieldType = dictionary->resolvedObjectForKey("FT");
    if (auto parent = dictionary->resolvedObjectForKey<KPPDFObjectDictionary>("Parent"))
        if (KPPDFRef<KPPDFObject> inherited = parent->resolvedObjectForKey("FT"))
            fieldType = inherited;
    std::string_view type = nameValue(fieldType);
    for (const FieldKind& kind : kFieldKinds)
        if (kind.fieldType == type)
            return kind.factory ? kind.factory(dictionary, page) : nullptr;
    return nullptr;
}

bool hasType(const KPPDFRef<KPPDFImprint>& imprint, int32_t imprintType) {
    return imprint && imprint->imprintType() == imprintType;
}

std::vector<KPPDFRef<KPPDFImprint>>
annotationsOfType(const std::vector<KPPDFRef<KPPDFImprint>>& imprints, int32_t annotationType) {
    std::vector<KPPDFRef<KPPDFImprint>> result;
    for (const auto& imprint : imprints)
        if (hasType(imprint, KPPDFImprintTypeAnnotation) &&
            imprint->annotationType() == annotationType)
            result.push_back(imprint);
    return result;
}

// ---- The private imprint record ----

// The form XObjects of overlays are named with this prefix and a number.
constexpr std::string_view kImprintPrefix = "ParvelImprint";
// Records beyond this many on one page are not read (each one opens a document).
constexpr size_t kMaxImprintRecords = 4096;
// Generations above this are not valid (ISO 32000-1, 7.5.4) and are not renumbered.
constexpr uint32_t kMaxGeneration = 65535;
// Keys of the form XObject that do not go into the rebuilt content stream.
constexpr std::string_view kFormOnlyKeys[] = {
    "Type", "Subtype", "ParvelResourceRefs", "ParvelLocation", "ParvelDictionary", "Resources",
    "BBox", "FormType"};

bool isDigit(char c) {
    return c >= '0' && c <= '9';
}

// Orders strings as text, except that runs of digits compare by their value, so "Key2" comes
// before "Key10". -1, 0 or 1.
int compareNumeric(std::string_view a, std::string_view b) {
    size_t i = 0, j = 0;
    while (i < a.size() && j < b.size()) {
        if (isDigit(a[i]) && isDigit(b[j])) {
            size_t startA = i, startB = j;
            while (i < a.size() && isDigit(a[i]))
                i++;
            while (j < b.size() && isDigit(b[j]))
                j++;
            std::string_view digitsA = a.substr(startA, i - startA);
            std::string_view digitsB = b.substr(startB, j - startB);
            while (digitsA.size() > 1 && digitsA.front() == '0')
                digitsA.remove_prefix(1);
            while (digitsB.size() > 1 && digitsB.front() == '0')
                digitsB.remove_prefix(1);
            if (digitsA.size() != digitsB.size())
                return digitsA.size() < digitsB.size() ? -1 : 1;
            if (int order = digitsA.compare(digitsB))
                return order < 0 ? -1 : 1;
            continue;
        }
        if (a[i] != b[j])
            return static_cast<unsigned char>(a[i]) < static_cast<unsigned char>(b[j]) ? -1 : 1;
        i++;
        j++;
    }
    if (i < a.size())
        return 1;
    return j < b.size() ? -1 : 0;
}

// The direct parts of an object that may hold references: a dictionary's values in key order,
// an array's elements, a stream's dictionary values.
KPPDFObjectList directChildren(KPPDFObject& object) {
    if (KPPDFObjectStream* stream = object.asStream())
        return stream->dictionary() ? directChildren(*stream->dictionary()) : KPPDFObjectList{};
    KPPDFObjectList children;
    if (KPPDFObjectDictionary* dictionary = object.asDictionary()) {
        for (auto& [key, value] : dictionary->value())
            if (value)
                children.push_back(value);
    } else if (KPPDFObjectArray* array = object.asArray()) {
        for (auto& element : array->value())
            if (element)
                children.push_back(element);
    }
    return children;
}

// The indirect objects reachable from root through references, each once, depth first in entry
// order (as subobjects lists them), without recursion, since a file can chain references as
// deep as it likes.
KPPDFObjectList reachableObjects(const KPPDFRef<KPPDFObject>& root) {
    struct Frame {
        KPPDFObjectList children;
        size_t next = 0;
    };
    KPPDFObjectList result;
    KPPDFVisitedSet visited{root.get()};
    std::vector<Frame> stack;
    stack.push_back({directChildren(*root)});
    while (!stack.empty()) {
        Frame& frame = stack.back();
        if (frame.next == frame.children.size()) {
            stack.pop_back();
            continue;
        }
        KPPDFRef<KPPDFObject> child = frame.children[frame.next++];
        if (child->objectType() == KPPDFObjectTypeReference) {
            KPPDFRef<KPPDFObject> target = KPPDFObject::resolve(child);
            if (!target || !visited.insert(target.get()).second)
                continue;
            result.push_back(target);
            stack.push_back({directChildren(*target)});
        } else {
            stack.push_back({directChildren(*child)});
        }
    }
    return result;
}

// Replaces every reference inside object's direct parts that does not lead to a numbered object
// of document by null; true when one was replaced.
bool cutForeignReferences(const KPPDFRef<KPPDFObject>& object, KPPDFDocument* document) {
    bool cut = false;
    auto keep = [&](KPPDFRef<KPPDFObject>& entry) {
        KPPDFObjectReference* reference = entry ? entry->asReference() : nullptr;
        if (!reference)
            return true;
        const KPPDFRef<KPPDFObject>& target = reference->value();
        if (target && target->document() == document && target->objectNumber())
            return true;
        entry = KPPDFObjectNull::nullObject();
        cut = true;
        return false;
    };
    std::vector<KPPDFObject*> pending{object.get()};
    while (!pending.empty()) {
        KPPDFObject* current = pending.back();
        pending.pop_back();
        if (KPPDFObjectStream* stream = current->asStream()) {
            if (stream->dictionary())
                pending.push_back(stream->dictionary().get());
        } else if (KPPDFObjectDictionary* dictionary = current->asDictionary()) {
            for (auto& [key, value] : dictionary->value())
                if (keep(value) && value)
                    pending.push_back(value.get());
        } else if (KPPDFObjectArray* array = current->asArray()) {
            for (auto& element : array->value())
                if (keep(element) && element)
                    pending.push_back(element.get());
        }
    }
    return cut;
}

// Reads count finite numbers from array; false when it is missing, shorter or holds others.
bool readNumbers(const KPPDFRef<KPPDFObjectArray>& array, size_t count, float* numbers) {
    if (!array || array->count() < count)
        return false;
    for (size_t i = 0; i < count; i++) {
        KPPDFRef<KPPDFObject> element = array->resolvedObjectAtIndex(i);
        if (!element || !element->isNumber() || !std::isfinite(element->realValue()))
            return false;
        numbers[i] = element->realValue();
    }
    return true;
}

// The bytes of a one-page PDF file that shows the form: copies of the objects its Resources
// reach, the resources, the content stream (the form's data, still encoded), page, page tree
// node and catalog, numbered from 1 in that order.
std::string imprintFileFromForm(KPPDFObjectStream& form, const float bbox[4],
                                const std::string& key) {
    auto document = std::make_shared<KPPDFDocument>();
    KPPDFObjectList objects;
    // Originals by document, generation and number, to their copies: references into the old
    // document are redirected through it.
    KPPDFReferenceFixMap copies;
    auto enter = [&](const KPPDFRef<KPPDFObject>& original, KPPDFRef<KPPDFObject> copy) {
        uint32_t generation = original->generation();
        if (original->objectNumber() && generation <= kMaxGeneration) {
            auto& byGeneration = copies[original->document()];
            if (byGeneration.size() <= generation)
                byGeneration.resize(generation + 1);
            byGeneration[generation][original->objectNumber()] = copy;
        }
        objects.push_back(std::move(copy));
    };

    KPPDFRef<KPPDFObject> resourcesCopy;
    if (auto resources =
            form.dictionary()->resolvedObjectForKey<KPPDFObjectDictionary>("Resources")) {
        for (const KPPDFRef<KPPDFObject>& object : reachableObjects(resources))
            enter(object, object->copy());
        resourcesCopy = resources->copy();
        enter(resources, resourcesCopy);
    } else {
        resourcesCopy = std::make_shared<KPPDFObjectDictionary>();
        objects.push_back(resourcesCopy);
    }

    auto contentDictionary = std::make_shared<KPPDFObjectDictionary>();
    for (auto& [name, value] : form.dictionary()->value()) {
        bool formOnly = std::find(std::begin(kFormOnlyKeys), std::end(kFormOnlyKeys), name) !=
                        std::end(kFormOnlyKeys);
        if (value && !formOnly)
            contentDictionary->setObject(value->copy(), name);
    }
    KPPDFData data = form.rawData();
    // Written directly: the form's own Length may be a reference to an object left behind.
    contentDictionary->setObject(
        KPPDFObjectInteger::integerWithLongLong(static_cast<long long>(data.length())), "Length");
    KPPDFRef<KPPDFObjectStream> content = KPPDFObjectStream::streamWithDictionary(
        contentDictionary, data, {0, static_cast<uint32_t>(data.length())});
    objects.push_back(content);

    auto page = std::make_shared<KPPDFObjectDictionary>();
    auto pages = std::make_shared<KPPDFObjectDictionary>();
    auto catalog = std::make_shared<KPPDFObjectDictionary>();
    page->setObject(KPPDFObjectName::nameWithString("Page"), "Type");
    page->setObject(KPPDFObjectReference::referenceWithObject(resourcesCopy), "Resources");
    page->setObject(KPPDFObjectReference::referenceWithObject(content), "Contents");
    page->setObject(KPPDFObjectReference::referenceWithObject(pages), "Parent");
    KPPDFRect mediaBox = KPPDFMakeRect(bbox[0], bbox[1], bbox[2] - bbox[0], bbox[3] - bbox[1]);
    page->setObject(KPPDFPage::makePDFRect(mediaBox), "MediaBox");
    pages->setObject(KPPDFObjectName::nameWithString("Pages"), "Type");
    pages->setObject(
        KPPDFObjectArray::arrayWithArray({KPPDFObjectReference::referenceWithObject(page)}),
        "Kids");
    pages->setObject(KPPDFObjectInteger::integerWithLongLong(1), "Count");
    catalog->setObject(KPPDFObjectName::nameWithString("Catalog"), "Type");
    catalog->setObject(KPPDFObjectName::nameWithString("1.4"), "Version");
    catalog->setObject(KPPDFObjectReference::referenceWithObject(pages), "Pages");
    objects.push_back(page);
    objects.push_back(pages);
    objects.push_back(catalog);

    uint32_t number = 1;
    for (const KPPDFRef<KPPDFObject>& object : objects) {
        object->fixReferences(copies);
        object->setDocument(document.get());
        document->setObject(object, number++, 0);
    }
    bool cut = false;
    for (const KPPDFRef<KPPDFObject>& object : objects)
        cut |= cutForeignReferences(object, document.get());
    if (cut)
        KPPDFLog("Imprint record %s refers to objects outside its resources; written as null",
                 key.c_str());

    std::string eol(document->EOL(), static_cast<size_t>(document->EOLLength()));
    std::string out = "%PDF-1.3" + eol;
    std::string xref = "xref" + eol;
    char line[64];
    std::snprintf(line, sizeof line, "%lu %lu%s", 1ul, static_cast<unsigned long>(objects.size()),
                  eol.c_str());
    xref += line;
    for (const KPPDFRef<KPPDFObject>& object : objects) {
        std::snprintf(line, sizeof line, "%010llu %05lu n \n",
                      static_cast<unsigned long long>(out.size()), 0ul);
        xref += line;
        if (!object->appendIndirectObject(out))
            out += std::to_string(object->objectNumber()) + " 0 obj" + eol + "null" + eol +
                   "endobj" + eol;
    }
    size_t startxref = out.size();
    out += xref;
    out += "trailer" + eol;
    auto trailer = std::make_shared<KPPDFObjectDictionary>();
    trailer->setObject(
        KPPDFObjectInteger::integerWithLongLong(static_cast<long long>(objects.size() + 1)),
        "Size");
    trailer->setObject(KPPDFObjectReference::referenceWithObject(catalog), "Root");
    trailer->appendDirectObject(out);
    out += eol + "startxref" + eol + std::to_string(startxref) + eol + "%%EOF" + eol;
    return out;
}

} // namespace

void KPPDFPage::processAnnotations() {
    if (processedAnnotations_)
        return;
    // Set first: a factory that asks for the page's imprints must not read Annots again.
    processedAnnotations_ = true;
    if (!pageDictionary_)
        return;
    auto annots = pageDictionary_->resolvedObjectForKey<KPPDFObjectArray>("Annots");
    if (!annots)
        return;
    std::vector<KPPDFRef<KPPDFAnnotation>> popups, parents;
    size_t count = annots->count();
    for (size_t i = 0; i < count; i++) {
        auto dictionary = KPPDFCast<KPPDFObjectDictionary>(annots->resolvedObjectAtIndex(i));
        if (!dictionary) {
            KPPDFLog("Annots entry %zu of page %u is not a dictionary; skipped", i,
                     pageNumberInDocument_);
            continue;
        }
        std::string_view subtype = nameValue(dictionary->resolvedObjectForKey("Subtype"));
        const AnnotationKind* kind = nullptr;
        for (const AnnotationKind& candidate : kAnnotationKinds)
            if (candidate.subtype == subtype)
                kind = &candidate;
        KPPDFRef<KPPDFAnnotation> annotation;
        if (kind && kind->factory)
            annotation = kind->factory(dictionary, this);
        if (!annotation)
            annotation = KPPDFAnnotation::annotationWithDictionary(dictionary, this);
        if (kind && kind->role == PopupRole::Parent)
            parents.push_back(annotation);
        else if (kind && kind->role == PopupRole::Popup)
            popups.push_back(annotation);
        addImprint(annotation);
    }
    // Every annotation whose dictionary the pop-up's Parent names is linked, not only the first.
    for (const KPPDFRef<KPPDFAnnotation>& popup : popups) {
        if (!popup->annotDict())
            continue;
        KPPDFRef<KPPDFObject> parent = popup->annotDict()->resolvedObjectForKey("Parent");
        uint32_t number = parent ? parent->objectNumber() : 0;
        if (!number)
            continue;
        for (const KPPDFRef<KPPDFAnnotation>& candidate : parents)
            if (candidate->originalObjectNumber() == number)
                popup->linkParent(*candidate);
    }
}

std::vector<KPPDFRef<KPPDFImprint>> KPPDFPage::annotationImprints() {
    std::vector<KPPDFRef<KPPDFImprint>> result;
    for (const auto& imprint : imprints())
        if (hasType(imprint, KPPDFImprintTypeAnnotation))
            result.push_back(imprint);
    return result;
}

std::vector<KPPDFRef<KPPDFImprint>> KPPDFPage::contentImprints() {
    // Before Annots is read the list can only hold content imprints, and reading it is not
    // worth doing for them.
    if (!processedAnnotations_)
        return imprints_;
    std::vector<KPPDFRef<KPPDFImprint>> result;
    for (const auto& imprint : imprints_)
        if (hasType(imprint, KPPDFImprintTypeContent))
            result.push_back(imprint);
    return result;
}

std::vector<KPPDFRef<KPPDFImprint>> KPPDFPage::links() {
    return annotationsOfType(imprints(), KPPDFAnnotationTypeLink);
}

std::vector<KPPDFRef<KPPDFImprint>> KPPDFPage::widgets() {
    return annotationsOfType(imprints(), KPPDFAnnotationTypeWidget);
}

bool KPPDFPage::setupImprints() {
    if (!pageDictionary_ || !pageDictionary_->objectForKey("ParvelImprints"))
        return false;
    auto resources = KPPDFResolve<KPPDFObjectDictionary>(
        pageDictionary_->objectFromAncestorsForKey("Resources"));
    auto xobjects =
        resources ? resources->resolvedObjectForKey<KPPDFObjectDictionary>("XObject") : nullptr;
    if (!xobjects)
        return false;
    std::vector<std::string> keys;
    for (const auto& [name, value] : xobjects->value())
        if (name.starts_with(kImprintPrefix))
            keys.push_back(name);
    std::sort(keys.begin(), keys.end(), [](const std::string& a, const std::string& b) {
        int order = compareNumeric(a, b);
        return order ? order < 0 : a < b;
    });
    if (keys.size() > kMaxImprintRecords) {
        KPPDFLog("Page %u has %zu imprint records; only the first %zu are read",
                 pageNumberInDocument_, keys.size(), kMaxImprintRecords);
        keys.resize(kMaxImprintRecords);
    }

    for (const std::string& key : keys) {
        auto form = xobjects->resolvedObjectForKey<KPPDFObjectStream>(key);
        if (!form || !form->dictionary()) {
            KPPDFLog("Imprint record %s is not a stream; skipped", key.c_str());
            continue;
        }
        float location[2], box[4];
        if (!readNumbers(
                form->dictionary()->resolvedObjectForKey<KPPDFObjectArray>("ParvelLocation"), 2,
                location)) {
            KPPDFLog("Imprint record %s has no usable ParvelLocation; skipped", key.c_str());
            continue;
        }
        if (!readNumbers(form->dictionary()->resolvedObjectForKey<KPPDFObjectArray>("BBox"), 4,
                         box)) {
            KPPDFLog("Imprint record %s has no usable BBox; skipped", key.c_str());
            continue;
        }
        std::string file = imprintFileFromForm(*form, box, key);
        KPPDFRef<KPPDFImprint> imprint =
            KPPDFImprint::imprintWithData(KPPDFData(std::move(file)), {location[0], location[1]});
        addImprint(imprint);
        imprint->setSize({box[2] - box[0], box[3] - box[1]});

        auto archived =
            form->dictionary()->resolvedObjectForKey<KPPDFObjectStream>("ParvelDictionary");
        if (!archived)
            continue;
        KPPDFData bytes = archived->decodedData();
        std::optional<KPPDFPropertyList> properties = KPPDFArchiver::unarchive(bytes.view());
        if (!properties)
            KPPDFLog("Imprint record %s: its properties are not readable", key.c_str());
        // A record marked so stands for an imprint that must not come back as an overlay.
        if (properties && properties->hasString("Parvel", "Parvel"))
            removeImprint(imprint);
        imprint->setDictionary(std::move(properties));
    }
    return !keys.empty();
}
