// Copying a page into a complete new file, with its imprints written in.
#include <algorithm>
#include <cstdio>

#include "kppdf/document/KPPDFDocument.h"
#include "kppdf/document/internal/KPPDFWriteSession.h"
#include "kppdf/imprints/KPPDFImprint.h"
#include "kppdf/objects/KPPDFObjectArray.h"
#include "kppdf/objects/KPPDFObjectBoolean.h"
#include "kppdf/objects/KPPDFObjectDictionary.h"
#include "kppdf/objects/KPPDFObjectName.h"
#include "kppdf/objects/KPPDFObjectReference.h"
#include "kppdf/objects/KPPDFObjectStream.h"
#include "kppdf/page/KPPDFPage.h"

namespace {
KPPDFRef<KPPDFObjectReference> plainReferenceTo(const KPPDFRef<KPPDFObject>& object) {
    return KPPDFObjectReference::referenceWithObject(object);
}

bool isFlattened(KPPDFObjectStream& placement) {
    KPPDFRef<KPPDFObject> flattened = placement.resolvedObjectForKey("Flattened");
    return flattened && flattened->asBoolean() && flattened->asBoolean()->boolValue();
}
} // namespace

KPPDFRef<KPPDFObjectDictionary> KPPDFDocument::transplantPage(
    KPPDFPage& page, bool withImprints, KPPDFWriteSession& session,
    const KPPDFRef<KPPDFObjectDictionary>& newPagesObject, float compression) {
    (void)compression;
    KPPDFRef<KPPDFObjectDictionary> old = page.pageDictionary();
    if (!old)
        return nullptr;
    // Inherited attributes are read before anything changes.
    KPPDFRef<KPPDFObject> inheritedResources = old->objectFromAncestorsForKey("Resources");

    // Contents, less the overlays an earlier save drew into them.
    KPPDFObjectList contents;
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
            if (!placement || isFlattened(*placement))
                continue;
            std::erase_if(contents, [&](const KPPDFRef<KPPDFObject>& element) {
                return KPPDFObject::resolve(element) == placement;
            });
        }
    }

    // Resources carried by the page itself, without the forms of earlier overlays.
    KPPDFRef<KPPDFObjectDictionary> resources;
    if (auto oldResources = KPPDFResolve<KPPDFObjectDictionary>(inheritedResources)) {
        resources = std::make_shared<KPPDFObjectDictionary>();
        resources->value() = oldResources->value();
        if (auto xobjects = oldResources->resolvedObjectForKey<KPPDFObjectDictionary>("XObject")) {
            auto kept = std::make_shared<KPPDFObjectDictionary>();
            for (auto& [name, form] : xobjects->value())
                if (name.rfind("ParvelImprint", 0) != 0)
                    kept->value().emplace(name, form);
            resources->value()["XObject"] = kept;
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
    entries["Contents"] = KPPDFObjectArray::arrayWithArray(contents);
    if (resources)
        entries["Resources"] = resources;
    // The old tree's nodes are not written: what the page inherited from them, it now holds.
    for (const char* key : {"MediaBox", "CropBox", "Rotate"})
        if (!entries.count(key))
            if (KPPDFRef<KPPDFObject> inherited = old->objectFromAncestorsForKey(key))
                entries[key] = inherited;
    entries["Parent"] = session.referenceTo(newPagesObject);
    session.substitute(old.get(), copy);

    // Annotations stay as the page has them.
    if (KPPDFRef<KPPDFObject> annots = old->objectForKey("Annots"))
        entries["Annots"] = annots;
    (void)withImprints;
    return copy;
}
