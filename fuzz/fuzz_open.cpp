// Opening a document from arbitrary bytes: header, cross-reference tables and streams, the
// Prev chain, scan-mode repair, object streams and the security handler's password checks.
// Then what a viewer reads of it: every page's boxes, rotation, size and annotations, the
// outline with its destinations, and every named destination resolved; finally every object
// of the table is resolved and written. The seeds in corpus/open are fixtures from
// tests/data/open.
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "kppdf/document/KPPDFDestination.h"
#include "kppdf/document/KPPDFDocument.h"
#include "kppdf/document/KPPDFOutline.h"
#include "kppdf/imprints/KPPDFAnnotation.h"
#include "kppdf/imprints/KPPDFImprint.h"
#include "kppdf/objects/KPPDFObject.h"
#include "kppdf/objects/KPPDFObjectArray.h"
#include "kppdf/objects/KPPDFObjectString.h"
#include "kppdf/page/KPPDFPage.h"
#include "kppdf/platform/KPPDFData.h"
#include "kppdf/platform/KPPDFLog.h"

namespace {
// Reads what a destination offers; a page it names must be one of the document's pages.
void touchDestination(const KPPDFRef<KPPDFDestination>& destination, KPPDFDocument& document) {
    if (!destination)
        return;
    if (KPPDFRef<KPPDFPage> page = destination->page()) {
        uint32_t index = page->pageNumberInDocument();
        if (document.pageAtIndex(index) != page) {
            bool found = false;
            for (const auto& listed : document.pages())
                found = found || listed == page;
            if (!found)
                __builtin_trap();
        }
    }
    (void)destination->description();
}

void walkOutline(const KPPDFRef<KPPDFOutline>& root, KPPDFDocument& document) {
    // Without recursion: the outline is as deep as the file makes it (within the reader's bound).
    std::vector<KPPDFRef<KPPDFOutline>> pending{root};
    while (!pending.empty()) {
        KPPDFRef<KPPDFOutline> item = std::move(pending.back());
        pending.pop_back();
        if (!item)
            continue;
        (void)item->title().size();
        (void)item->colorIsBlack();
        touchDestination(item->destination(), document);
        for (const auto& child : item->children())
            pending.push_back(child);
    }
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size) {
    static const bool quiet = [] {
        KPPDFSetLogHandler([](const std::string&) {});
        return true;
    }();
    (void)quiet;

    int32_t result = -1;
    KPPDFRef<KPPDFDocument> document =
        KPPDFDocument::documentWithData(KPPDFData::dataWithBytes(bytes, size), &result);
    if (result < 0 || result > 3)
        __builtin_trap();
    if (!document)
        return 0;
    // An encrypted file that wants a password gets two tries, one of them the qpdf fixtures'.
    if (result == KPPDFDocumentPasswordNeeded) {
        document->validatePassword("wrong");
        document->validatePassword("user");
    }

    for (uint32_t i = 0; i < document->pageCount(); i++) {
        KPPDFRef<KPPDFPage> page = document->pageAtIndex(i);
        if (!page)
            __builtin_trap();
        KPPDFRect media = page->mediaBox();
        KPPDFRect crop;
        page->cropBox(&crop);
        uint32_t rotation = 0;
        if (page->rotate(&rotation) && (rotation == 0 || rotation > 360))
            __builtin_trap();
        KPPDFSize visible = KPPDFDocument::pageSizeForPage(*page);
        (void)KPPDFDocument::pageTransformForRotation(static_cast<float>(rotation), visible);
        (void)media;
        for (const auto& imprint : page->imprints()) {
            if (!imprint)
                __builtin_trap();
            if (imprint->imprintType() != KPPDFImprintTypeAnnotation)
                continue;
            auto& annotation = static_cast<KPPDFAnnotation&>(*imprint);
            (void)annotation.rect();
            // Where a link leads, as a viewer asks when it is clicked.
            if (annotation.annotationType() == KPPDFAnnotationTypeLink && annotation.annotDict())
                touchDestination(
                    KPPDFDestination::destinationFromDictionary(annotation.annotDict(), *document),
                    *document);
        }
    }

    if (const KPPDFRef<KPPDFOutline>& outline = document->outlines())
        walkOutline(outline, *document);
    std::vector<std::string> names;
    for (const auto& [name, value] : document->dests())
        names.push_back(name);
    for (const std::string& name : names) {
        KPPDFRef<KPPDFObject> target =
            document->resolveDestination(KPPDFObjectString::stringWithString(name));
        if (target)
            (void)target->directObject();
        KPPDFObjectArray* array = target ? target->asArray() : nullptr;
        if (array && array->count() > 0)
            (void)document->pageForReference(array->value()[0]);
    }

    for (uint32_t number = 1; number < document->tableSize(); number++) {
        KPPDFRef<KPPDFObject> object = KPPDFObject::resolve(document->objectWithNumber(number));
        if (object)
            object->directObject();
    }
    return 0;
}
