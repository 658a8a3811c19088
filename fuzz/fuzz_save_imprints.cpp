// Saving arbitrary documents with imprints: a small content imprint is placed on the first
// page, every page reads its annotations, and the complete rewrite (page transplant, forms of
// the imprint document copied along, Annots rebuilt) must give bytes that open again; so must
// a second save of the reopened file, which takes the imprint back from its private record.
// Seeds: the corpus/open fixtures and the files of tests/data/imprints.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include "kppdf/document/KPPDFDocument.h"
#include "kppdf/imprints/KPPDFImprint.h"
#include "kppdf/page/KPPDFPage.h"
#include "kppdf/platform/KPPDFData.h"
#include "kppdf/platform/KPPDFLog.h"
#include "kppdf/platform/KPPDFPropertyList.h"

namespace {
// A one-page PDF of 20 by 10 points that fills itself with blue, with correct offsets.
std::string stampFile() {
    const std::vector<std::string> bodies = {
        "<< /Type /Catalog /Pages 2 0 R >>",
        "<< /Type /Pages /Kids [3 0 R] /Count 1 >>",
        "<< /Type /Page /Parent 2 0 R /MediaBox [0 0 20 10] /Resources << >> /Contents 4 0 R >>",
        "<< /Length 23 >>\nstream\n0 0 1 rg 0 0 20 10 re f\nendstream",
    };
    std::string out = "%PDF-1.4\n";
    std::vector<size_t> offsets;
    for (size_t i = 0; i < bodies.size(); i++) {
        offsets.push_back(out.size());
        out += std::to_string(i + 1) + " 0 obj\n" + bodies[i] + "\nendobj\n";
    }
    size_t xref = out.size();
    out += "xref\n0 " + std::to_string(bodies.size() + 1) + "\n0000000000 65535 f \n";
    char entry[32];
    for (size_t offset : offsets) {
        std::snprintf(entry, sizeof entry, "%010zu 00000 n \n", offset);
        out += entry;
    }
    out += "trailer\n<< /Size " + std::to_string(bodies.size() + 1) +
           " /Root 1 0 R >>\nstartxref\n" + std::to_string(xref) + "\n%%EOF\n";
    return out;
}

void readAnnotations(KPPDFDocument& document) {
    for (uint32_t i = 0; i < document.pageCount(); i++)
        if (KPPDFRef<KPPDFPage> page = document.pageAtIndex(i))
            page->imprints();
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size) {
    static const bool quiet = [] {
        KPPDFSetLogHandler([](const std::string&) {});
        return true;
    }();
    (void)quiet;
    static const KPPDFData stamp = KPPDFData(stampFile());

    int32_t result = -1;
    KPPDFRef<KPPDFDocument> document =
        KPPDFDocument::documentWithData(KPPDFData::dataWithBytes(bytes, size), &result);
    if (!document || result != KPPDFDocumentOpened)
        return 0;
    if (KPPDFRef<KPPDFPage> first = document->pageAtIndex(0)) {
        KPPDFRef<KPPDFImprint> imprint = KPPDFImprint::imprintWithData(stamp, {10, 20});
        if (!imprint->document() || imprint->document()->pageCount() != 1)
            __builtin_trap();
        imprint->setSize({20, 10});
        KPPDFPropertyList properties;
        properties.setObject(KPPDFPropertyList::string("fuzz"), "kind");
        imprint->setDictionary(std::move(properties));
        first->addImprint(imprint);
    }
    readAnnotations(*document);
    std::string saved = document->currentDataWithImprints(true);
    if (saved.empty())
        return 0;

    // What the writer made must open, and saving it again must work too.
    int32_t reopenedResult = -1;
    KPPDFRef<KPPDFDocument> reopened =
        KPPDFDocument::documentWithData(KPPDFData(std::move(saved)), &reopenedResult);
    if (!reopened || reopenedResult != KPPDFDocumentOpened)
        __builtin_trap();
    if (document->pageCount() > 0 && reopened->pageCount() != document->pageCount())
        __builtin_trap();
    readAnnotations(*reopened);
    std::string again = reopened->currentDataWithImprints(true);
    int32_t lastResult = -1;
    KPPDFRef<KPPDFDocument> last =
        KPPDFDocument::documentWithData(KPPDFData(std::move(again)), &lastResult);
    if (!last || lastResult != KPPDFDocumentOpened)
        __builtin_trap();
    return 0;
}
