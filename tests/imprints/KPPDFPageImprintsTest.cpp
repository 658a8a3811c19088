// Reading a page's Annots into annotation imprints, the filtered lists, and annotations kept
// through a save.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "kppdf/document/KPPDFDocument.h"
#include "kppdf/imprints/KPPDFAnnotation.h"
#include "kppdf/objects/KPPDFObjectArray.h"
#include "kppdf/objects/KPPDFObjectDictionary.h"
#include "kppdf/objects/KPPDFObjectName.h"
#include "kppdf/page/KPPDFPage.h"
#include "kppdf/platform/KPPDFResources.h"
#include "support/LogCapture.h"
#include "support/TestHelpers.h"
#include "support/ToolRunner.h"

namespace {

std::string subtypeOf(const KPPDFRef<KPPDFImprint>& imprint) {
    KPPDFAnnotation* annotation = imprint ? imprint->asAnnotation() : nullptr;
    if (!annotation || !annotation->annotDict())
        return "(none)";
    KPPDFRef<KPPDFObject> subtype = annotation->annotDict()->resolvedObjectForKey("Subtype");
    return subtype && subtype->asName() ? subtype->asName()->value() : "(none)";
}

std::vector<std::string> subtypes(const std::vector<KPPDFRef<KPPDFImprint>>& imprints) {
    std::vector<std::string> result;
    for (const auto& imprint : imprints)
        result.push_back(subtypeOf(imprint));
    return result;
}

// Object numbers of the page's Annots references, in order.
std::vector<uint32_t> annotsNumbers(KPPDFPage& page) {
    std::vector<uint32_t> numbers;
    auto annots = page.pageDictionary()->resolvedObjectForKey<KPPDFObjectArray>("Annots");
    if (annots)
        for (size_t i = 0; i < annots->count(); i++)
            numbers.push_back(annots->resolvedObjectAtIndex(i)->objectNumber());
    return numbers;
}

// An annotation of a kind the factories do not make yet, for the filtered lists.
class KindedAnnotation : public KPPDFAnnotation {
public:
    explicit KindedAnnotation(int32_t kind) : kind_(kind) {}
    int32_t annotationType() const override { return kind_; }

private:
    int32_t kind_;
};

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
    std::vector<uint32_t> numbers = annotsNumbers(*page);
    ASSERT_EQ(numbers.size(), imprints.size());
    for (size_t i = 0; i < imprints.size(); i++) {
        KPPDFAnnotation* annotation = imprints[i]->asAnnotation();
        ASSERT_TRUE(annotation) << i;
        EXPECT_EQ(annotation->imprintType(), KPPDFImprintTypeAnnotation);
        EXPECT_EQ(annotation->page(), page.get());
        EXPECT_EQ(annotation->originalObjectNumber(), numbers[i]) << i;
        EXPECT_EQ(annotation->annotDict(), document->objectWithNumber(numbers[i])) << i;
    }
    // A Square has no class of its own, nor has a signature field: plain annotations, kept.
    EXPECT_EQ(imprints[4]->annotationType(), KPPDFAnnotationTypeGeneric);
    EXPECT_EQ(imprints[6]->annotationType(), KPPDFAnnotationTypeGeneric);
    EXPECT_EQ(imprints[4]->asAnnotation()->rect(), KPPDFMakeRect(300, 600, 100, 80));
    EXPECT_TRUE(imprints[4]->flagPrint());
    EXPECT_FALSE(imprints[8]->flagPrint());

    // Asking again reads nothing twice.
    EXPECT_EQ(page->imprints().size(), 10u);
    page->processAnnotations();
    EXPECT_EQ(page->annotationImprints().size(), 10u);

    // sample.pdf: two links, a note and its pop-up.
    KPPDFRef<KPPDFDocument> sample = openFile(dataPath("sample.pdf"));
    ASSERT_TRUE(sample);
    KPPDFRef<KPPDFPage> first = sample->pageAtIndex(0);
    EXPECT_EQ(subtypes(first->imprints()),
              (std::vector<std::string>{"Link", "Link", "Text", "Popup"}));
    EXPECT_EQ(subtypes(sample->pageAtIndex(4)->imprints()), (std::vector<std::string>{"Link"}));
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

TEST(KPPDFPageImprints, FilteredLists) {
    KPPDFRef<KPPDFDocument> document = openFile(dataPath("sample.pdf"));
    ASSERT_TRUE(document);
    KPPDFRef<KPPDFPage> page = document->pageAtIndex(0);

    // Before Annots is read, contentImprints is the whole list and does not read it.
    KPPDFRef<KPPDFImprint> content = KPPDFImprint::imprint();
    page->addImprint(content);
    std::vector<KPPDFRef<KPPDFImprint>> before = page->contentImprints();
    EXPECT_FALSE(page->processedAnnotations());
    ASSERT_EQ(before.size(), 1u);
    EXPECT_EQ(before[0], content);

    // Reading appends the annotations after what the list held.
    std::vector<KPPDFRef<KPPDFImprint>> annotations = page->annotationImprints();
    EXPECT_EQ(annotations.size(), 4u);
    ASSERT_EQ(page->imprints().size(), 5u);
    EXPECT_EQ(page->imprints()[0], content);
    auto link = std::make_shared<KindedAnnotation>(KPPDFAnnotationTypeLink);
    auto widget = std::make_shared<KindedAnnotation>(KPPDFAnnotationTypeWidget);
    page->addImprint(widget);
    page->addImprint(KPPDFImprint::imprint());
    page->addImprint(link);
    std::vector<KPPDFRef<KPPDFImprint>> after = page->contentImprints();
    ASSERT_EQ(after.size(), 2u);
    EXPECT_EQ(after[0], content);
    EXPECT_EQ(page->annotationImprints().size(), 6u);

    size_t linksFromFile = 0;
    for (const auto& imprint : annotations)
        linksFromFile += imprint->annotationType() == KPPDFAnnotationTypeLink;
    std::vector<KPPDFRef<KPPDFImprint>> links = page->links();
    ASSERT_EQ(links.size(), linksFromFile + 1);
    EXPECT_EQ(links.back(), link);
    std::vector<KPPDFRef<KPPDFImprint>> widgets = page->widgets();
    ASSERT_EQ(widgets.size(), 1u);
    EXPECT_EQ(widgets[0], widget);

    // links and widgets read Annots on their own.
    KPPDFRef<KPPDFPage> last = document->pageAtIndex(4);
    last->widgets();
    EXPECT_TRUE(last->processedAnnotations());
    EXPECT_EQ(last->imprints().size(), 1u);
}

TEST(KPPDFPageImprints, AnnotationsSurviveASave) {
    for (const char* name : {"sample.pdf", "imprints/annotations.pdf"}) {
        SCOPED_TRACE(name);
        KPPDFRef<KPPDFDocument> document = openFile(dataPath(name));
        ASSERT_TRUE(document);
        KPPDFRef<KPPDFPage> page = document->pageAtIndex(0);
        std::vector<KPPDFRef<KPPDFImprint>> imprints = page->annotationImprints();
        ASSERT_FALSE(imprints.empty());
        std::vector<KPPDFRect> rects;
        for (const auto& imprint : imprints)
            rects.push_back(imprint->asAnnotation()->rect());
        // A moved annotation is saved where it was moved to.
        imprints[0]->setLocation({33, 44});
        rects[0].origin = {33, 44};

        std::string saved = document->currentDataWithImprints(true);
        ASSERT_FALSE(saved.empty());
        tool_runner::expectQpdfAccepts(saved);
        KPPDFRef<KPPDFDocument> reopened = openBytes(saved);
        ASSERT_TRUE(reopened);
        std::vector<KPPDFRef<KPPDFImprint>> again = reopened->pageAtIndex(0)->annotationImprints();
        EXPECT_EQ(subtypes(again), subtypes(imprints));
        ASSERT_EQ(again.size(), rects.size());
        // Rect is written with six decimals, so sizes come back to within a millionth.
        for (size_t i = 0; i < again.size(); i++) {
            KPPDFRect rect = again[i]->asAnnotation()->rect();
            EXPECT_EQ(rect.origin, rects[i].origin) << i;
            EXPECT_NEAR(rect.size.width, rects[i].size.width, 1e-4) << i;
            EXPECT_NEAR(rect.size.height, rects[i].size.height, 1e-4) << i;
        }
    }
}
