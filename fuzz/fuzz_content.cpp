// The content stream interpreter: the input is the content of a page of a small fixed document
// whose resources hold a simple font, a two-byte font with a ToUnicode map, a Type 3 font, an
// image, a colour space, and forms that draw text and each other. Every input gets a fresh page,
// so blobs and states from one input never reach the next.
#include <cstddef>
#include <cstdint>
#include <string>

#include "kppdf/document/KPPDFDocument.h"
#include "kppdf/objects/KPPDFObjectDictionary.h"
#include "kppdf/objects/KPPDFObjectStream.h"
#include "kppdf/page/KPPDFPage.h"
#include "kppdf/page/KPPDFTextBlob.h"
#include "kppdf/platform/KPPDFData.h"
#include "kppdf/platform/KPPDFLog.h"
#include "tests/support/TestPDFBuilder.h"

namespace {

KPPDFData fixedDocument() {
    TestPDFBuilder builder;
    builder.add(1, "<< /Type /Catalog /Pages 2 0 R >>");
    builder.add(2, "<< /Type /Pages /Kids [3 0 R] /Count 1 >>");
    builder.add(3,
                "<< /Type /Page /Parent 2 0 R /MediaBox [0 0 612 792] /Resources << "
                "/Font << /F1 5 0 R /F2 6 0 R /F3 10 0 R >> "
                "/XObject << /Fm1 11 0 R /Fm2 12 0 R /Im1 13 0 R >> "
                "/ColorSpace << /CS0 [/ICCBased 14 0 R] /CS1 [/Separation /Spot /DeviceCMYK 0] >> "
                ">> /Contents 4 0 R >>");
    builder.addStream(4, "", "BT /F1 12 Tf 72 720 Td (Hello) Tj ET");
    builder.add(5, "<< /Type /Font /Subtype /Type1 /BaseFont /Helvetica /Encoding "
                   "<< /Differences [65 /B /A] >> >>");
    builder.add(6, "<< /Type /Font /Subtype /Type0 /BaseFont /Test /Encoding /Identity-H "
                   "/DescendantFonts [7 0 R] /ToUnicode 8 0 R >>");
    builder.add(7, "<< /Type /Font /Subtype /CIDFontType2 /BaseFont /Test /CIDSystemInfo "
                   "<< /Registry (Adobe) /Ordering (Identity) /Supplement 0 >> /DW 1000 "
                   "/W [1 [500 600] 10 20 700] /FontDescriptor 9 0 R >>");
    builder.addStream(8, "",
                      "1 begincodespacerange\n<0000> <FFFF>\nendcodespacerange\n"
                      "1 beginbfchar\n<0001> <0041>\nendbfchar\n"
                      "1 beginbfrange\n<0010> <0020> <0061>\nendbfrange\n");
    builder.add(9,
                "<< /Type /FontDescriptor /FontName /Test /Flags 4 /Ascent 800 /Descent -200 >>");
    builder.add(10, "<< /Type /Font /Subtype /Type3 /FontMatrix [0.001 0 0 0.001 0 0] "
                    "/FontBBox [0 0 1000 1000] /FirstChar 32 /LastChar 34 /Widths [250 500 750] "
                    "/CharProcs << >> /Encoding << /Differences [32 /space /a /b] >> >>");
    builder.addStream(11,
                      "/Type /XObject /Subtype /Form /BBox [0 0 100 100] "
                      "/Matrix [2 0 0 2 10 10] /Resources << /Font << /F1 6 0 R >> "
                      "/XObject << /Fm2 12 0 R >> >>",
                      "BT /F1 10 Tf <00010011> Tj ET q 0 0 1 rg /Fm2 Do Q");
    builder.addStream(12,
                      "/Type /XObject /Subtype /Form /BBox [0 0 100 100] /Resources << "
                      "/Font << /F1 5 0 R >> /XObject << /Fm1 11 0 R >> >>",
                      "BT /F1 8 Tf [(AB) -300 (C)] TJ ET /Fm1 Do Q Q Q");
    builder.addStream(13,
                      "/Type /XObject /Subtype /Image /Width 2 /Height 2 "
                      "/ColorSpace /DeviceGray /BitsPerComponent 8",
                      "abcd");
    builder.addStream(14, "/N 3", "");
    return builder.buildData("/Root 1 0 R");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size) {
    static KPPDFRef<KPPDFDocument> document = [] {
        KPPDFSetLogHandler([](const std::string&) {});
        int32_t result = 0;
        KPPDFRef<KPPDFDocument> opened = KPPDFDocument::documentWithData(fixedDocument(), &result);
        if (opened && opened->pageCount() == 0)
            opened->prepPages();
        return opened;
    }();
    if (!document || document->pageCount() == 0)
        __builtin_trap();
    KPPDFRef<KPPDFPage> fixedPage = document->pageAtIndex(0);

    KPPDFRef<KPPDFPage> page =
        KPPDFPage::pageWithDocument(document.get(), 0, fixedPage->pageDictionary());
    KPPDFData data = KPPDFData::dataWithBytes(bytes, size);
    KPPDFRef<KPPDFObjectStream> stream =
        KPPDFObjectStream::streamWithData(data, KPPDFMakeRange(0, static_cast<uint32_t>(size)));
    page->setupFontInfo(KPPDFResolve<KPPDFObjectDictionary>(
        page->pageDictionary()->objectFromAncestorsForKey("Resources")));
    page->parseContentStreams({stream});

    // Every blob must point at bytes of its stream and keep its widths in step with its text.
    for (const auto& blob : page->textBlobs()) {
        if (!blob || !blob->gstate() || !blob->contentObject())
            __builtin_trap();
        if (blob->dataRange().end() > blob->contentObject()->decodedData().length())
            __builtin_trap();
        size_t characters = 0;
        for (char c : blob->string())
            if ((static_cast<uint8_t>(c) & 0xC0) != 0x80)
                characters++;
        if (characters != blob->nWidths())
            __builtin_trap();
        blob->description();
    }
    if (!page->gstate())
        __builtin_trap();

    // Released, the page holds nothing; read again (the forms' bytes decoded anew), it makes
    // the same text.
    std::string first;
    for (const auto& blob : page->textBlobs())
        first += blob->string() + '\n';
    size_t images = page->images().size();
    page->releaseContent();
    if (!page->textBlobs().empty() || !page->images().empty() || !page->pageFonts().empty())
        __builtin_trap();
    page->setupFontInfo(KPPDFResolve<KPPDFObjectDictionary>(
        page->pageDictionary()->objectFromAncestorsForKey("Resources")));
    page->parseContentStreams({stream});
    std::string second;
    for (const auto& blob : page->textBlobs())
        second += blob->string() + '\n';
    if (second != first || page->images().size() != images)
        __builtin_trap();
    return 0;
}
