// Reading a page's Annots into annotation imprints.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "kppdf/document/KPPDFDocument.h"
#include "kppdf/imprints/KPPDFAnnotation.h"
#include "kppdf/objects/KPPDFObjectArray.h"
#include "kppdf/objects/KPPDFObjectDictionary.h"
#include "kppdf/objects/KPPDFObjectName.h"
#include "kppdf/page/KPPDFPage.h"
#include "support/LogCapture.h"
#include "support/TestHelpers.h"

namespace {

// The Subtype of each annotation imprint, "(none)" where it has no name there.
std::vector<std::string> subtypes(const std::vector<KPPDFRef<KPPDFImprint>>& imprints) {
    std::vector<std::string> result;
    for (const auto& imprint : imprints) {
        KPPDFAnnotation* annotation = imprint->asAnnotation();
        auto subtype =
            annotation && annotation->annotDict()
                ? annotation->annotDict()->resolvedObjectForKey<KPPDFObjectName>("Subtype")
                : nullptr;
        result.push_back(subtype ? subtype->value() : "(none)");
    }
    return result;
}

} // namespace

TEST(KPPDFPageImprints, AnnotationsOfARealFileInAnnotsOrder) {
    KPPDFRef<KPPDFDocument> document = openFile(dataPath("imprints/annotations.pdf"));
    ASSERT_TRUE(document);
    KPPDFRef<KPPDFPage> page = document->pageAtIndex(0);
    EXPECT_FALSE(page->processedAnnotations());
    std::vector<KPPDFRef<KPPDFImprint>> imprints = page->annotationImprints();
    EXPECT_TRUE(page->processedAnnotations());
    EXPECT_EQ(subtypes(imprints),
              (std::vector<std::string>{"Widget", "Widget", "Widget", "Widget", "Square",
                                        "FreeText", "Widget", "Text", "Popup", "Popup"}));
    auto annots = page->pageDictionary()->resolvedObjectForKey<KPPDFObjectArray>("Annots");
    ASSERT_TRUE(annots);
    ASSERT_EQ(annots->count(), imprints.size());
    for (size_t i = 0; i < imprints.size(); i++) {
        uint32_t number = annots->resolvedObjectAtIndex(i)->objectNumber();
        KPPDFAnnotation* annotation = imprints[i]->asAnnotation();
        ASSERT_TRUE(annotation) << i;
        EXPECT_EQ(annotation->originalObjectNumber(), number) << i;
        EXPECT_EQ(annotation->annotDict(), document->objectWithNumber(number)) << i;
    }
    // A Square has no class of its own, nor has a signature field: plain annotations, kept.
    EXPECT_EQ(imprints[4]->annotationType(), KPPDFAnnotationTypeGeneric);
    EXPECT_EQ(imprints[6]->annotationType(), KPPDFAnnotationTypeGeneric);
    EXPECT_EQ(imprints[4]->asAnnotation()->rect(), KPPDFMakeRect(300, 600, 100, 80));
    // None of them is drawn into the content as an overlay.
    EXPECT_TRUE(page->contentImprints().empty());

    // Asking again reads nothing twice, so nothing is written twice.
    EXPECT_EQ(page->imprints().size(), 10u);
    page->processAnnotations();
    EXPECT_EQ(page->annotationImprints().size(), 10u);

    // sample.pdf: two links, a note and its pop-up.
    KPPDFRef<KPPDFDocument> sample = openFile(dataPath("sample.pdf"));
    ASSERT_TRUE(sample);
    KPPDFRef<KPPDFPage> first = sample->pageAtIndex(0);
    EXPECT_EQ(subtypes(first->imprints()),
              (std::vector<std::string>{"Link", "Link", "Text", "Popup"}));
    EXPECT_TRUE(sample->pageAtIndex(1)->imprints().empty());
}

TEST(KPPDFPageImprints, BrokenAnnotsEntriesAreSkipped) {
    TestPDFBuilder builder;
    builder.add(1, "<< /Type /Catalog /Pages 2 0 R >>");
    builder.add(2, "<< /Type /Pages /Kids [3 0 R 4 0 R] /Count 2 >>");
    builder.add(3, "<< /Type /Page /Parent 2 0 R /MediaBox [0 0 612 792] "
                   "/Annots [5 0 R 99 0 R (text) << /Subtype /Link /Rect [1 1 2 2] >> 6 0 R] >>");
    builder.add(4, "<< /Type /Page /Parent 2 0 R /MediaBox [0 0 612 792] /Annots 7 0 R >>");
    builder.add(5, "<< /Subtype /Widget /Parent 8 0 R /Rect [0 0 10 10] >>");
    builder.add(6, "<< /Subtype 12 /Rect [0 0 10 10] >>");
    builder.add(7, "<< /Not /AnArray >>");
    builder.add(8, "<< /FT /Btn /Kids [5 0 R] >>");
    KPPDFRef<KPPDFDocument> document = openBytes(builder.build("/Root 1 0 R"));
    ASSERT_TRUE(document);
    LogCapture log;
    std::vector<KPPDFRef<KPPDFImprint>> imprints = document->pageAtIndex(0)->imprints();
    ASSERT_EQ(imprints.size(), 3u);
    EXPECT_EQ(subtypes(imprints), (std::vector<std::string>{"Widget", "Link", "(none)"}));
    // A direct annotation dictionary is used as it is.
    EXPECT_EQ(imprints[1]->asAnnotation()->originalObjectNumber(), 0u);
    EXPECT_TRUE(log.contains("Annots entry 1 of page 0 is not a dictionary"));
    EXPECT_TRUE(log.contains("Annots entry 2 of page 0 is not a dictionary"));
    EXPECT_TRUE(document->pageAtIndex(1)->imprints().empty());
}
