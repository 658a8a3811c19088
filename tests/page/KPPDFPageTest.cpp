#include "kppdf/page/KPPDFPage.h"

#include <gtest/gtest.h>

#include <string>

#include "kppdf/document/KPPDFDocument.h"
#include "kppdf/imprints/KPPDFImprint.h"
#include "kppdf/objects/KPPDFObjectArray.h"
#include "kppdf/objects/KPPDFObjectDictionary.h"
#include "kppdf/objects/KPPDFObjectInteger.h"
#include "kppdf/platform/KPPDFPrintInfo.h"
#include "support/LogCapture.h"
#include "support/TestAnnotation.h"
#include "support/TestHelpers.h"
#include "support/TestPDFBuilder.h"

namespace {

KPPDFRef<KPPDFPage> pageWithEntries(const std::string& entries) {
    return KPPDFPage::pageWithDocument(nullptr, 0, dictionaryFromText("<< " + entries + " >>"));
}

// Equal to any other of its kind with the same tag.
class TaggedImprint : public KPPDFImprint {
public:
    explicit TaggedImprint(int tag) : tag_(tag) {}
    bool isEqual(const KPPDFImprint& other) const override {
        auto* tagged = dynamic_cast<const TaggedImprint*>(&other);
        return tagged && tagged->tag_ == tag_;
    }

private:
    int tag_;
};

} // namespace

TEST(KPPDFPage, RotationIsReducedAndCached) {
    uint32_t rotation = 7;
    EXPECT_FALSE(pageWithEntries("/MediaBox [0 0 10 10]")->rotate(&rotation));
    EXPECT_EQ(rotation, 7u);

    // Reduced to 90, 180, 270 or 360 (none), the same again from the cache.
    for (const auto& [entry, reported] : {std::pair{"/Rotate 720", 360u},
                                          {"/Rotate -90", 270u},
                                          {"/Rotate 450", 90u},
                                          {"/Rotate 90.0", 90u}}) {
        auto page = pageWithEntries(entry);
        for (int call = 0; call < 2; call++) {
            rotation = 7;
            EXPECT_TRUE(page->rotate(&rotation)) << entry;
            EXPECT_EQ(rotation, reported) << entry << " call " << call;
        }
    }
    // A Rotate that is no number is no rotation.
    EXPECT_FALSE(pageWithEntries("/Rotate /East")->rotate(&rotation));

    // setRotate writes the reduced value on the page and forgets the cached one.
    auto page = pageWithEntries("/Rotate 180");
    EXPECT_TRUE(page->rotate(&rotation));
    page->setRotate(450);
    EXPECT_EQ(page->pageDictionary()->resolvedObjectForKey("Rotate")->longLongValue(), 90);
    EXPECT_TRUE(page->rotate(&rotation));
    EXPECT_EQ(rotation, 90u);
}

TEST(KPPDFPage, BoxesAreReadCachedAndFilledIn) {
    auto page = pageWithEntries("/MediaBox [612 792 0 0] /CropBox [10 20 110 220]");
    EXPECT_EQ(page->mediaBox(), KPPDFMakeRect(612, 792, 612, 792));
    KPPDFRect crop;
    EXPECT_TRUE(page->cropBox(&crop));
    EXPECT_EQ(crop, KPPDFMakeRect(10, 20, 100, 200));

    // The answer is cached until a dictionary is installed.
    page = pageWithEntries("/MediaBox [0 0 300 400]");
    EXPECT_FALSE(page->cropBox(&crop));
    page->pageDictionary()->setObject(KPPDFPage::makePDFRect(KPPDFMakeRect(0, 0, 50, 50)),
                                      "CropBox");
    EXPECT_FALSE(page->cropBox(&crop));
    page->setPageDictionary(page->pageDictionary());
    EXPECT_TRUE(page->cropBox(&crop));
    EXPECT_EQ(crop, KPPDFMakeRect(0, 0, 50, 50));

    EXPECT_EQ(KPPDFPage::makePDFRect(KPPDFMakeRect(10, 20, 30.5f, 40))->directObject(),
              "[ 10 20 40.500000 60 ]");

    // A short box reads as none, so the paper size steps in.
    LogCapture log;
    page = pageWithEntries("/MediaBox [0 0 100]");
    EXPECT_EQ(page->mediaBox(), KPPDFMakeRect(0, 0, 612, 792));
    EXPECT_TRUE(log.contains("Rectangle array has 3 elements instead of 4"));

    // A missing box is written into the page's dictionary.
    page = pageWithEntries("/Type /Page /Rotate 90");
    EXPECT_EQ(page->mediaBox(), KPPDFMakeRect(0, 0, 612, 792));
    auto box = page->pageDictionary()->resolvedObjectForKey<KPPDFObjectArray>("MediaBox");
    ASSERT_TRUE(box);
    EXPECT_EQ(box->directObject(), "[ 0 0 612 792 ]");
    // Other entries survive the new dictionary.
    uint32_t rotation = 0;
    EXPECT_TRUE(page->rotate(&rotation));
    EXPECT_EQ(rotation, 90u);

    // Landscape paper: the box written is kept when the paper size changes back.
    KPPDFPrintInfo::setPaperSize({842, 595});
    page = pageWithEntries("/Type /Page");
    EXPECT_EQ(page->mediaBox(), KPPDFMakeRect(0, 0, 842, 595));
    KPPDFPrintInfo::setPaperSize(KPPDFPrintInfo::kDefaultPaperSize);
    EXPECT_EQ(page->pageDictionary()->resolvedObjectForKey("MediaBox")->directObject(),
              "[ 0 0 842 595 ]");
}

TEST(KPPDFPage, InheritedAttributesAndStableObjectNumber) {
    TestPDFBuilder builder;
    builder.add(1, "<< /Type /Catalog /Pages 2 0 R >>");
    builder.add(2, "<< /Type /Pages /Kids [3 0 R] /Count 2 /MediaBox [0 0 595 842] /Rotate 90 >>");
    builder.add(3, "<< /Type /Pages /Parent 2 0 R /Kids [4 0 R 5 0 R] /Count 2 "
                   "/CropBox [20 20 575 822] >>");
    builder.add(4, "<< /Type /Page /Parent 3 0 R >>");
    builder.add(5, "<< /Type /Page /Parent 3 0 R /MediaBox [0 0 400 400] /Rotate 0 >>");
    auto document = tableDocument(builder, 5);
    auto inheriting = KPPDFPage::pageWithDocument(document.get(), 0, tableDictionary(*document, 4));
    auto own = KPPDFPage::pageWithDocument(document.get(), 1, tableDictionary(*document, 5));

    // (Real files with inherited boxes: KPPDFDocumentPageTreeFixtures.)
    EXPECT_EQ(KPPDFDocument::pageSizeForPage(*inheriting), (KPPDFSize{802, 555}));
    EXPECT_EQ(KPPDFDocument::pageSizeForPage(*own), (KPPDFSize{555, 802}));

    // A rotation set on the page is its own from then on, and the page stays object 4.
    inheriting->setRotate(270);
    EXPECT_EQ(inheriting->pageDictionary()->objectNumber(), 4u);
    EXPECT_EQ(inheriting->pageDictionary()->resolvedObjectForKey("Rotate")->longLongValue(), 270);
    EXPECT_EQ(inheriting->mediaBox(), KPPDFMakeRect(0, 0, 595, 842));
    auto parent = tableDictionary(*document, 2);
    EXPECT_EQ(parent->resolvedObjectForKey("Rotate")->longLongValue(), 90);
}

TEST(KPPDFPage, ImprintListKeepsBackPointersRight) {
    KPPDFPage page;
    auto a = std::make_shared<TaggedImprint>(1);
    auto b = std::make_shared<TaggedImprint>(2);
    auto c = std::make_shared<TaggedImprint>(1);
    page.addImprint(a);
    page.insertImprint(b, 0);
    page.insertImprint(c, 99);
    page.addImprint(nullptr);
    ASSERT_EQ(page.imprints().size(), 3u);
    EXPECT_EQ(page.imprints()[0], b);
    EXPECT_EQ(a->page(), &page);

    // Every equal imprint goes, not only the one given.
    page.removeImprint(std::make_shared<TaggedImprint>(1));
    ASSERT_EQ(page.imprints().size(), 1u);
    EXPECT_EQ(page.imprints()[0], b);
    EXPECT_EQ(a->page(), nullptr);
    EXPECT_EQ(c->page(), nullptr);

    LogCapture log;
    page.removeImprintAtIndex(1);
    page.removeImprintAtIndex(0);
    EXPECT_TRUE(page.imprints().empty());
    EXPECT_EQ(b->page(), nullptr);

    // An imprint that outlives its page does not point at it.
    auto survivor = std::make_shared<TaggedImprint>(3);
    {
        KPPDFPage shortLived;
        shortLived.addImprint(survivor);
    }
    EXPECT_EQ(survivor->page(), nullptr);
}

TEST(KPPDFPage, CopyKeepsObjectsAndImprints) {
    KPPDFDocument document;
    auto dictionary = dictionaryFromText("<< /Type /Page /MediaBox [0 0 200 300] /Rotate 90 >>");
    dictionary->setObjectNumber(12);
    dictionary->setGeneration(1);
    auto page = KPPDFPage::pageWithDocument(&document, 4, dictionary);
    auto content = std::make_shared<KPPDFImprint>();
    content->setLocation({5, 6});
    page->addImprint(content);
    page->addImprint(std::make_shared<TestAnnotation>(KPPDFAnnotationTypeLink));
    page->addImprint(std::make_shared<TestAnnotation>(KPPDFAnnotationTypePopup));
    auto extra = KPPDFObjectInteger::integerWithLongLong(1);
    page->addExtraObject(extra);

    // Imprints are copied and point at the copy; links are not carried over. The dictionary is
    // a copy that keeps the object's number and generation.
    auto copy = page->copy();
    ASSERT_EQ(copy->imprints().size(), 2u);
    EXPECT_NE(copy->imprints()[0], content);
    EXPECT_EQ(copy->imprints()[0]->location(), (KPPDFPoint{5, 6}));
    EXPECT_EQ(copy->imprints()[0]->page(), copy.get());
    EXPECT_EQ(copy->imprints()[1]->annotationType(), KPPDFAnnotationTypePopup);
    EXPECT_EQ(page->imprints().size(), 3u);
    ASSERT_NE(copy->pageDictionary(), dictionary);
    EXPECT_EQ(copy->pageDictionary()->objectNumber(), 12u);
    EXPECT_EQ(copy->pageDictionary()->generation(), 1u);
    EXPECT_EQ(copy->pageDictionary()->directObject(), dictionary->directObject());
    ASSERT_EQ(copy->extraObjects().size(), 1u);
    EXPECT_EQ(copy->extraObjects()[0], extra);

    // Extra objects go by identity.
    page->removeExtraObject(KPPDFObjectInteger::integerWithLongLong(1));
    EXPECT_EQ(page->extraObjects().size(), 1u);
    page->removeExtraObject(extra);
    EXPECT_TRUE(page->extraObjects().empty());
    EXPECT_EQ(copy->extraObjects().size(), 1u);
}

TEST(KPPDFPage, StreamIndex) {
    // Offsets in a gap or past the end fall back to the first stream.
    std::vector<KPPDFRange> ranges = {{0, 10}, {10, 5}, {20, 8}};
    for (const auto& [offset, index] :
         {std::pair{0u, 0u}, {12u, 1u}, {27u, 2u}, {17u, 0u}, {28u, 0u}})
        EXPECT_EQ(KPPDFPage::streamIndex(ranges, offset), index) << offset;
    EXPECT_EQ(KPPDFPage::streamIndex({}, 3), 0u);
}

TEST(KPPDFPage, CopyAndResetOfPreparedText) {
    auto document = openFile(dataPath("open/classic_lf.pdf"));
    ASSERT_TRUE(document);
    ASSERT_EQ(document->pageCount(), 2u);
    auto page = document->pageAtIndex(0);
    page->prepareForSearch();
    ASSERT_NE(page->pageString().find("quick brown fox"), std::string::npos);
    ASSERT_FALSE(page->textBlobs().empty());

    auto copy = page->copy();
    EXPECT_TRUE(copy->preparedForSearch());
    EXPECT_EQ(copy->pageString(), page->pageString());
    EXPECT_EQ(copy->textBlobs(), page->textBlobs());
    EXPECT_EQ(copy->baselines(), page->baselines());
    EXPECT_EQ(copy->pageFonts(), page->pageFonts());
    // The copy reads with a state of its own.
    EXPECT_NE(copy->gstate(), page->gstate());
    ASSERT_EQ(copy->gstateStack().size(), 1u);
    EXPECT_EQ(copy->gstateStack()[0], copy->gstate());

    page->resetContent();
    EXPECT_FALSE(page->preparedForSearch());
    EXPECT_TRUE(page->textBlobs().empty());
    EXPECT_TRUE(page->pageFonts().empty());
    ASSERT_EQ(page->gstateStack().size(), 1u);
    EXPECT_EQ(page->gstateStack()[0], page->gstate());
    // The next request reads the content again, to the same text.
    page->prepareForSearch();
    EXPECT_EQ(page->pageString(), copy->pageString());
    EXPECT_FALSE(copy->textBlobs().empty());
}
