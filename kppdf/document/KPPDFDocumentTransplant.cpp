// Copying a page into a complete new file, with its imprints written in.
#include <algorithm>
#include <cstdio>

#include "kppdf/document/KPPDFDocument.h"
#include "kppdf/document/internal/KPPDFWriteSession.h"
#include "kppdf/imprints/KPPDFAnnotation.h"
#include "kppdf/imprints/KPPDFImprint.h"
#include "kppdf/objects/KPPDFObjectArray.h"
#include "kppdf/objects/KPPDFObjectBoolean.h"
#include "kppdf/objects/KPPDFFilter.h"
#include "kppdf/objects/KPPDFObjectDictionary.h"
#include "kppdf/objects/KPPDFObjectInteger.h"
#include "kppdf/objects/KPPDFObjectName.h"
#include "kppdf/objects/KPPDFObjectReal.h"
#include "kppdf/objects/KPPDFObjectReference.h"
#include "kppdf/objects/KPPDFObjectStream.h"
#include "kppdf/page/KPPDFPage.h"
#include "kppdf/platform/KPPDFArchiver.h"
#include "kppdf/platform/KPPDFLog.h"

namespace {
bool isFlattened(KPPDFObjectStream& placement) {
    KPPDFRef<KPPDFObject> flattened = placement.resolvedObjectForKey("Flattened");
    return flattened && flattened->asBoolean() && flattened->asBoolean()->boolValue();
}

// Stream dictionary entries that name data kept outside the file (ISO 32000-1, 7.3.8.2).
constexpr const char* kExternalStreamKeys[] = {"F", "FFilter", "FDecodeParms", "FDecodeParams"};
// Names tried beyond the ones a page already holds before giving up on a free one.
constexpr uint32_t kMaxNameAttempts = 64;

// A quarter-turn matrix prints -0 for its zero entries; written as 0.
float plainZero(float value) {
    return value == 0 ? 0.0f : value;
}

// The content of the imprint document's first page as one run of bytes, with the filters that
// decode it: a single stream keeps its encoded bytes and filters; several are decoded and
// joined, and compressed again. False when the imprint has no page to draw.
bool imprintContent(KPPDFPage& imprintPage, KPPDFData* data, KPPDFRef<KPPDFObject>* filter,
                    KPPDFRef<KPPDFObject>* decodeParms) {
    KPPDFRef<KPPDFObjectDictionary> dictionary = imprintPage.pageDictionary();
    if (!dictionary)
        return false;
    std::vector<KPPDFRef<KPPDFObjectStream>> streams;
    KPPDFRef<KPPDFObject> contents = dictionary->resolvedObjectForKey("Contents");
    if (contents && contents->asStream()) {
        streams.push_back(KPPDFCast<KPPDFObjectStream>(contents));
    } else if (contents && contents->asArray()) {
        KPPDFObjectArray& array = *contents->asArray();
        for (size_t i = 0; i < array.count(); i++)
            if (auto stream = KPPDFCast<KPPDFObjectStream>(array.resolvedObjectAtIndex(i)))
                streams.push_back(stream);
    }
    for (const auto& stream : streams) {
        if (!stream->dictionary())
            continue;
        for (const char* key : kExternalStreamKeys)
            if (stream->dictionary()->objectForKey(key)) {
                KPPDFLog("External file streams not supported");
                break;
            }
    }
    if (streams.size() == 1 && streams[0]->dictionary()) {
        KPPDFObjectDictionary& streamDictionary = *streams[0]->dictionary();
        *data = streams[0]->rawData();
        *filter = streamDictionary.resolvedObjectForKey("Filter");
        *decodeParms = streamDictionary.resolvedObjectForKey("DecodeParms");
        if (!*decodeParms)
            *decodeParms = streamDictionary.resolvedObjectForKey("DP");
        return true;
    }
    std::string joined;
    for (const auto& stream : streams) {
        // A page's content streams split between tokens only (ISO 32000-1, 7.8.2): a line end
        // keeps the last token of one apart from the first of the next.
        joined.append(stream->decodedData().view());
        joined.push_back('\n');
    }
    if (auto compressed = KPPDFObjectStream::streamByDeflatingData(joined)) {
        *data = compressed->rawData();
        *filter = KPPDFObjectName::nameWithString("FlateDecode");
    } else {
        *data = KPPDFData(std::move(joined));
    }
    return true;
}

// Resources for an imprint made from an image file: when the file is a JPEG, the imprint's
// image is written as that file's bytes, as they stand, instead of the image the imprint
// document holds (usually the same picture decoded and compressed again, and larger). The
// imprint document itself is left as it is: the form gets copies of the dictionaries on the way
// to the image. Returns resources unchanged when there is nothing to replace.
KPPDFRef<KPPDFObject> resourcesWithImageFile(const KPPDFImprint& imprint,
                                             const KPPDFRef<KPPDFObject>& resources) {
    const KPPDFPropertyList* filename =
        imprint.dictionary() ? imprint.dictionary()->objectForKey(KPPDFImprint::kFilenameKey)
                             : nullptr;
    auto resourceDictionary = KPPDFResolve<KPPDFObjectDictionary>(resources);
    auto xobjects = resourceDictionary
                        ? resourceDictionary->resolvedObjectForKey<KPPDFObjectDictionary>("XObject")
                        : nullptr;
    if (!filename || !filename->isString() || !xobjects)
        return resources;
    // What isJPEG checks, read once: the header also gives the image's size and colours.
    KPPDFData file = KPPDFData::dataWithContentsOfFile(filename->stringValue());
    int width = 0, height = 0, components = 0;
    if (file.isNull() || file.length() > UINT32_MAX ||
        !KPPDFReadJPEGHeader(file.bytes(), file.length(), &width, &height, &components))
        return resources;
    for (auto& [name, entry] : xobjects->value()) {
        auto image = KPPDFResolve<KPPDFObjectStream>(entry);
        if (!image || !image->dictionary() || !image->dictionary()->hasName("Subtype", "Image"))
            continue;
        // The image's own entries (its mask, its intent) stay; what describes the samples
        // comes from the file, so that the stream is consistent whatever the old image was.
        auto imageDictionary = std::make_shared<KPPDFObjectDictionary>(KPPDFObjectMap{});
        imageDictionary->value() = image->dictionary()->value();
        KPPDFObjectMap& entries = imageDictionary->value();
        for (const char* key : {"DecodeParms", "Decode", "ImageMask"})
            entries.erase(key);
        entries["Filter"] = KPPDFObjectName::nameWithString("DCTDecode");
        entries["Length"] = KPPDFObjectInteger::integerWithLongLong(static_cast<long long>(file.length()));
        entries["Width"] = KPPDFObjectInteger::integerWithLongLong(width);
        entries["Height"] = KPPDFObjectInteger::integerWithLongLong(height);
        entries["BitsPerComponent"] = KPPDFObjectInteger::integerWithLongLong(8);
        entries["ColorSpace"] = KPPDFObjectName::nameWithString(
            components == 1 ? "DeviceGray" : components == 4 ? "DeviceCMYK" : "DeviceRGB");
        KPPDFRef<KPPDFObjectStream> replacement = KPPDFObjectStream::streamWithDictionary(
            imageDictionary, file, {0, static_cast<uint32_t>(file.length())});
        auto newXObjects = std::make_shared<KPPDFObjectDictionary>(KPPDFObjectMap{});
        newXObjects->value() = xobjects->value();
        newXObjects->value()[name] = KPPDFObjectReference::referenceWithObject(replacement);
        auto newResources = std::make_shared<KPPDFObjectDictionary>(KPPDFObjectMap{});
        newResources->value() = resourceDictionary->value();
        newResources->value()["XObject"] = newXObjects;
        return newResources;
    }
    return resources;
}

// Writes one content imprint into the page being copied: its form XObject under a fresh name
// in xobjects, and the placement stream that draws it, appended to contents and to records
// (the page's new ParvelImprints). False, with a log line, when it cannot be written.
bool writeContentImprint(KPPDFDocument& document, KPPDFImprint& imprint,
                         KPPDFWriteSession& session, KPPDFObjectDictionary& xobjects,
                         const KPPDFAffineTransform& rotation, KPPDFObjectList& contents,
                         KPPDFObjectList& records) {
    KPPDFRef<KPPDFDocument> imprintDocument = imprint.document();
    KPPDFRef<KPPDFPage> imprintPage = imprintDocument ? imprintDocument->pageAtIndex(0) : nullptr;
    if (!imprintPage || !imprintPage->pageDictionary()) {
        KPPDFLog("Imprint without a page to draw; not written");
        return false;
    }
    KPPDFData data;
    KPPDFRef<KPPDFObject> filter, decodeParms;
    if (!imprintContent(*imprintPage, &data, &filter, &decodeParms))
        return false;

    // The form shares the imprint document's resources, which the session copies along.
    auto formDictionary = std::make_shared<KPPDFObjectDictionary>(KPPDFObjectMap{});
    KPPDFObjectMap& form = formDictionary->value();
    form["Type"] = KPPDFObjectName::nameWithString("XObject");
    form["Subtype"] = KPPDFObjectName::nameWithString("Form");
    form["FormType"] = KPPDFObjectInteger::integerWithLongLong(1);
    form["BBox"] = KPPDFPage::makePDFRect(imprintPage->mediaBox());
    KPPDFRef<KPPDFObject> resources =
        imprintPage->pageDictionary()->objectFromAncestorsForKey("Resources");
    resources = resourcesWithImageFile(imprint, resources);
    form["Resources"] =
        resources ? resources : std::make_shared<KPPDFObjectDictionary>(KPPDFObjectMap{});
    if (filter)
        form["Filter"] = filter;
    if (decodeParms)
        form["DecodeParms"] = decodeParms;
    form["Length"] = KPPDFObjectInteger::integerWithLongLong(static_cast<long long>(data.length()));
    form["ParvelLocation"] =
        KPPDFObjectArray::arrayWithArray({KPPDFObjectReal::realWithFloat(imprint.location().x),
                                          KPPDFObjectReal::realWithFloat(imprint.location().y)});
    bool flattened = imprint.flatten();
    if (!flattened && imprint.dictionary()) {
        // The source file name belongs to this machine; the properties travel without it.
        KPPDFPropertyList properties = *imprint.dictionary();
        properties.removeObjectForKey(KPPDFImprint::kFilenameKey);
        std::string archived = KPPDFArchiver::archive(properties);
        if (!archived.empty())
            if (auto stream = KPPDFObjectStream::streamByDeflatingData(archived))
                form["ParvelDictionary"] = session.referenceTo(stream);
    }
    KPPDFRef<KPPDFObjectStream> formStream = KPPDFObjectStream::streamWithDictionary(
        formDictionary, data, {0, static_cast<uint32_t>(data.length())});

    // A name no form of the page has yet: a reopened file keeps its flattened forms in the
    // resources but no longer counts them.
    std::string name = document.createName(flattened);
    for (uint32_t attempt = 0; xobjects.value().count(name); attempt++) {
        if (attempt == kMaxNameAttempts + xobjects.value().size()) {
            KPPDFLog("No free resource name for an imprint; not written");
            return false;
        }
        name = document.createName(flattened);
    }
    xobjects.value()[name] = session.referenceTo(formStream);

    // Drawn in the unrotated page space the user saw, shifted to the imprint's location.
    std::string eol(document.EOL(), static_cast<size_t>(document.EOLLength()));
    char text[512];
    int length = std::snprintf(
        text, sizeof text, "q%s\t\t\t\t%f %f %f %f %f %f cm%s\t\t\t\t1 0 0 1 %f %f cm%s\t\t\t\t/%s Do%sQ",
        eol.c_str(), plainZero(rotation.a), plainZero(rotation.b), plainZero(rotation.c),
        plainZero(rotation.d), plainZero(rotation.tx), plainZero(rotation.ty), eol.c_str(),
        plainZero(imprint.location().x), plainZero(imprint.location().y), eol.c_str(), name.c_str(),
        eol.c_str());
    if (length < 0 || static_cast<size_t>(length) >= sizeof text) {
        KPPDFLog("Imprint placement does not fit its buffer; not written");
        return false;
    }
    auto placementDictionary = std::make_shared<KPPDFObjectDictionary>(KPPDFObjectMap{});
    placementDictionary->value()["Length"] = KPPDFObjectInteger::integerWithLongLong(length);
    placementDictionary->value()["ParvelImprint"] = session.referenceTo(formStream);
    if (flattened)
        placementDictionary->value()["Flattened"] = KPPDFObjectBoolean::boolWithBool(true);
    KPPDFRef<KPPDFObjectStream> placement = KPPDFObjectStream::streamWithDictionary(
        placementDictionary, KPPDFData(std::string(text, static_cast<size_t>(length))),
        {0, static_cast<uint32_t>(length)});
    contents.push_back(session.referenceTo(placement));
    records.push_back(session.referenceTo(placement));
    return true;
}
} // namespace

KPPDFRef<KPPDFObjectDictionary> KPPDFDocument::transplantPage(
    KPPDFPage& page, bool withImprints, KPPDFWriteSession& session,
    const KPPDFRef<KPPDFObjectDictionary>& newPagesObject, float compression) {
    (void)compression;
    KPPDFRef<KPPDFObjectDictionary> old = page.pageDictionary();
    if (!old)
        return nullptr;
    // Names are counted per written file, so that saving twice in a row gives the same bytes.
    if (!pages_.empty() && pages_.front().get() == &page)
        nameCount_ = 0;
    // Inherited attributes are read before anything changes.
    KPPDFRef<KPPDFObject> inheritedResources = old->objectFromAncestorsForKey("Resources");

    // Contents, less the overlays an earlier save drew into them. Flattened ones stay for good
    // and keep their record, so later saves still count their names.
    KPPDFObjectList contents;
    KPPDFObjectList records;
    KPPDFRef<KPPDFObject> contentsEntry = old->objectForKey("Contents");
    KPPDFRef<KPPDFObject> contentsValue = KPPDFObject::resolve(contentsEntry);
    if (contentsValue && contentsValue->asStream())
        contents.push_back(contentsEntry);
    else if (contentsValue && contentsValue->asArray())
        contents = contentsValue->asArray()->value();
    if (auto stored = old->resolvedObjectForKey<KPPDFObjectArray>("ParvelImprints")) {
        // New names must not clash with the flattened forms that stay in the page.
        nameCount_ += static_cast<uint32_t>(stored->count());
        for (auto& record : stored->value()) {
            KPPDFRef<KPPDFObjectStream> placement = KPPDFResolve<KPPDFObjectStream>(record);
            if (!placement)
                continue;
            if (isFlattened(*placement)) {
                records.push_back(record);
                continue;
            }
            std::erase_if(contents, [&](const KPPDFRef<KPPDFObject>& element) {
                return KPPDFObject::resolve(element) == placement;
            });
        }
    }

    // Resources carried by the page itself, without the forms of earlier overlays.
    KPPDFRef<KPPDFObjectDictionary> resources;
    KPPDFRef<KPPDFObjectDictionary> xobjects;
    if (auto oldResources = KPPDFResolve<KPPDFObjectDictionary>(inheritedResources)) {
        resources = std::make_shared<KPPDFObjectDictionary>();
        resources->value() = oldResources->value();
        if (auto oldXObjects =
                oldResources->resolvedObjectForKey<KPPDFObjectDictionary>("XObject")) {
            xobjects = std::make_shared<KPPDFObjectDictionary>();
            for (auto& [name, form] : oldXObjects->value())
                if (name.rfind("ParvelImprint", 0) != 0)
                    xobjects->value().emplace(name, form);
            resources->value()["XObject"] = xobjects;
        }
    }

    // The copy shares the old entries without taking them over, so strings keep decrypting
    // with their own object's key.
    auto copy = std::make_shared<KPPDFObjectDictionary>();
    copy->setDocument(this);
    KPPDFObjectMap& entries = copy->value();
    entries = old->value();
    entries.erase("Annots");
    entries.erase("ParvelImprints");
    // The old tree's nodes are not written: what the page inherited from them, it now holds.
    // (A null entry, or one referring to nothing, is none: the inherited value takes its place.)
    for (const char* key : {"MediaBox", "CropBox", "Rotate"})
        if (!old->hasValueForKey(key))
            if (KPPDFRef<KPPDFObject> inherited = old->objectFromAncestorsForKey(key))
                entries[key] = inherited;
    entries["Parent"] = session.referenceTo(newPagesObject);
    session.substitute(old.get(), copy);

    // Content imprints, drawn after the page's own content in list order. Before Annots is
    // read the list holds what the application added, which may be annotations too.
    bool annotationsRead = page.processedAnnotations();
    std::vector<KPPDFRef<KPPDFImprint>> imprints =
        withImprints ? (annotationsRead ? page.imprints() : page.contentImprints())
                     : std::vector<KPPDFRef<KPPDFImprint>>{};
    KPPDFAffineTransform rotation;
    bool placed = false;
    for (const KPPDFRef<KPPDFImprint>& imprint : imprints) {
        if (!imprint || imprint->imprintType() != KPPDFImprintTypeContent)
            continue;
        if (!placed) {
            uint32_t degrees = 0;
            if (page.rotate(&degrees) && degrees % 360)
                rotation = pageTransformForRotation(static_cast<float>(degrees),
                                                    pageSizeForPage(page));
            if (!resources)
                resources = std::make_shared<KPPDFObjectDictionary>(KPPDFObjectMap{});
            if (!xobjects) {
                xobjects = std::make_shared<KPPDFObjectDictionary>(KPPDFObjectMap{});
                resources->value()["XObject"] = xobjects;
            }
            placed = true;
        }
        writeContentImprint(*this, *imprint, session, *xobjects, rotation, contents, records);
    }
    entries["Contents"] = KPPDFObjectArray::arrayWithArray(std::move(contents));
    if (resources)
        entries["Resources"] = resources;
    if (!records.empty())
        entries["ParvelImprints"] = KPPDFObjectArray::arrayWithArray(std::move(records));

    // Annotations: once read, the page's annotation imprints in list order, each dictionary
    // written once with what it reaches (appearances, fonts, pop-ups) under its new number.
    // Unread, Annots stays as the page has it, with what the application added behind it.
    KPPDFObjectList annots;
    if (annotationsRead && withImprints) {
        for (const KPPDFRef<KPPDFImprint>& imprint : imprints) {
            KPPDFAnnotation* annotation = imprint ? imprint->asAnnotation() : nullptr;
            if (annotation && annotation->annotDict())
                annots.push_back(session.referenceTo(annotation->annotDict()));
        }
    } else {
        KPPDFRef<KPPDFObject> oldAnnots = old->objectForKey("Annots");
        bool added = false;
        for (const KPPDFRef<KPPDFImprint>& imprint : imprints) {
            KPPDFAnnotation* annotation = imprint ? imprint->asAnnotation() : nullptr;
            if (!annotation || !annotation->annotDict())
                continue;
            if (!added) {
                if (auto array = KPPDFResolve<KPPDFObjectArray>(oldAnnots))
                    annots = array->value();
                added = true;
            }
            annots.push_back(session.referenceTo(annotation->annotDict()));
        }
        if (!added) {
            if (oldAnnots)
                entries["Annots"] = oldAnnots;
            return copy;
        }
    }
    if (!annots.empty())
        entries["Annots"] = KPPDFObjectArray::arrayWithArray(std::move(annots));
    return copy;
}
