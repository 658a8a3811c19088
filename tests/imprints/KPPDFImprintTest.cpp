#include "kppdf/imprints/KPPDFImprint.h"

#include <gtest/gtest.h>

#include <string>

#include "kppdf/document/KPPDFDocument.h"
#include "kppdf/imprints/KPPDFAnnotation.h"
#include "kppdf/objects/KPPDFObjectArray.h"
#include "kppdf/objects/KPPDFObjectDictionary.h"
#include "kppdf/page/KPPDFPage.h"
#include "support/LogCapture.h"
#include "support/TestHelpers.h"

namespace {

KPPDFPropertyList properties(std::initializer_list<std::pair<const char*, const char*>> entries) {
    KPPDFPropertyList dictionary;
    for (const auto& [key, value] : entries)
        dictionary.setObject(KPPDFPropertyList::string(value), key);
    return dictionary;
}

std::string rectText(const KPPDFRef<KPPDFObjectDictionary>& dictionary) {
    KPPDFRef<KPPDFObject> rect = dictionary->objectForKey("Rect");
    return rect ? rect->directObject() : "(none)";
}

// A document with one page whose Annots holds the annotation dictionary 5.
KPPDFRef<KPPDFDocument> documentWithAnnotation(const std::string& annotation) {
    TestPDFBuilder builder;
    builder.add(1, "<< /Type /Catalog /Pages 2 0 R >>");
    builder.add(2, "<< /Type /Pages /Kids [3 0 R] /Count 1 >>");
    builder.add(3, "<< /Type /Page /Parent 2 0 R /MediaBox [0 0 612 792] /Annots [5 0 R] >>");
    builder.add(5, annotation);
    builder.add(6, "<< /Type /Annot /Subtype /Popup /Parent 5 0 R /Rect [0 0 1 1] >>");
    return openBytes(builder.build("/Root 1 0 R"));
}

} // namespace

TEST(KPPDFImprint, FilenameSurvivesEveryNewDictionary) {
    KPPDFImprint imprint;
    imprint.setDictionary(properties({{"filename", "A.png"}, {"x", "1"}}));
    imprint.setDictionary(properties({{"filename", "B.png"}, {"y", "2"}}));
    EXPECT_TRUE(*imprint.dictionary() == properties({{"filename", "A.png"}, {"y", "2"}}));
    imprint.setDictionary(std::nullopt);
    EXPECT_TRUE(*imprint.dictionary() == properties({{"filename", "A.png"}}));

    // Without a file name the new dictionary is stored as given; a non-dictionary is none.
    KPPDFImprint other;
    other.setDictionary(properties({{"y", "2"}}));
    other.setDictionary(properties({{"z", "3"}}));
    EXPECT_TRUE(*other.dictionary() == properties({{"z", "3"}}));
    LogCapture log;
    other.setDictionary(KPPDFPropertyList::string("not a dictionary"));
    EXPECT_FALSE(other.dictionary());
    EXPECT_TRUE(log.contains("must be a dictionary"));
}

TEST(KPPDFAnnotation, RectIsWrittenBackAsReadNotNormalised) {
    KPPDFRef<KPPDFDocument> document =
        documentWithAnnotation("<< /Type /Annot /Subtype /Square /Rect [100 200 50 20] >>");
    ASSERT_TRUE(document);
    KPPDFRef<KPPDFPage> page = document->pageAtIndex(0);
    ASSERT_EQ(page->imprints().size(), 1u);
    KPPDFAnnotation* annotation = page->imprints()[0]->asAnnotation();
    ASSERT_TRUE(annotation);
    EXPECT_EQ(annotation->location(), (KPPDFPoint{100, 200}));
    EXPECT_EQ(annotation->size(), (KPPDFSize{-50, -180}));
    KPPDFRef<KPPDFObjectArray> rect =
        annotation->annotDict()->resolvedObjectForKey<KPPDFObjectArray>("Rect");
    ASSERT_TRUE(rect);
    EXPECT_EQ(rect->directObject(), "[ 100 200 50 20 ]");

    // The annotation and the document's table hold one dictionary, so edits reach the file.
    EXPECT_EQ(document->objectWithNumber(5), annotation->annotDict());
    annotation->setLocation({10, 20});
    EXPECT_EQ(rectText(annotation->annotDict()), "[ 10 20 -40 -160 ]");
    annotation->setSize({5.5f, 6});
    EXPECT_NE(document->objectWithNumber(5)->directObject().find("/Rect [ 10 20 15.500000 26 ]"),
              std::string::npos);

    // No Rect, or a short one: zero, or what the elements there give; written back at once.
    KPPDFAnnotation bare(dictionaryFromText("<< /Subtype /Square >>"), nullptr);
    EXPECT_EQ(bare.rect(), KPPDFRect());
    EXPECT_EQ(rectText(bare.annotDict()), "[ 0 0 0 0 ]");
    KPPDFAnnotation shortRect(dictionaryFromText("<< /Rect [1 2 (x)] >>"), nullptr);
    EXPECT_EQ(shortRect.rect(), KPPDFMakeRect(1, 2, -1, -2));
    KPPDFAnnotation none(nullptr, nullptr);
    EXPECT_EQ(none.dictionaryRect(), KPPDFRect());
    none.setLocation({1, 1});
    EXPECT_FALSE(none.flagPrint());
}

TEST(KPPDFAnnotation, ColoursToArraysAndOperators) {
    using Color = KPPDFAnnotationColor;
    // CMYK is written cyan, yellow, magenta, black and read back in PDF's order.
    Color cmyk = Color::colorWithCyan(0.1f, 0.2f, 0.3f, 0.4f);
    KPPDFRef<KPPDFObjectArray> array = KPPDFAnnotation::arrayFromColor(cmyk);
    EXPECT_EQ(array->directObject(), "[ 0.100000 0.300000 0.200000 0.400000 ]");
    EXPECT_EQ(KPPDFAnnotation::stringFromColor(cmyk, false),
              "0.100000 0.300000 0.200000 0.400000 k");
    std::optional<Color> back = KPPDFAnnotation::colorFromArray(array);
    ASSERT_TRUE(back);
    EXPECT_EQ(back->space(), Color::Space::CMYK);
    EXPECT_FLOAT_EQ(back->component(1), 0.3f); // magenta
    EXPECT_FLOAT_EQ(back->component(2), 0.2f); // yellow

    Color gray = Color::colorWithWhite(0.5f, 0.25f);
    EXPECT_EQ(KPPDFAnnotation::arrayFromColor(gray)->directObject(), "[ 0.500000 ]");
    EXPECT_EQ(KPPDFAnnotation::stringFromColor(std::nullopt, gray), " 0.500000 g");
    EXPECT_EQ(KPPDFAnnotation::stringFromColor(Color::colorWithWhite(0), gray),
              "0.000000 G 0.500000 g");
    EXPECT_EQ(KPPDFAnnotation::stringFromColor(Color::colorWithRed(1, 0, 0.5f), std::nullopt),
              "1.000000 0.000000 0.500000 RG");
    EXPECT_EQ(KPPDFAnnotation::arrayFromColor(Color::colorWithColor(KPPDFColor::blueColor()))
                  ->directObject(),
              "[ 0 0 1 ]");

    struct Case {
        const char* text;
        std::optional<Color> color;
    };
    const Case cases[] = {
        {"[]", std::nullopt},
        {"[0.2 0.3]", std::nullopt},
        {"[0.25]", Color::colorWithWhite(0.25f)},
        {"[1 0.5 0]", Color::colorWithRed(1, 0.5f, 0)},
        {"[0 1 0 1 0.7]", Color::colorWithCyan(0, 1, 0, 1)},
        {"[2 -1 /Name]", Color::colorWithRed(1, 0, 0)},
    };
    for (const Case& c : cases) {
        auto parsed = KPPDFCast<KPPDFObjectArray>(
            KPPDFDocument::parseObject(nullptr, 0, KPPDFData(std::string(c.text)), true, true));
        EXPECT_EQ(KPPDFAnnotation::colorFromArray(parsed), c.color) << c.text;
    }
    EXPECT_FALSE(KPPDFAnnotation::colorFromArray(nullptr));
}

TEST(KPPDFAnnotation, PrintFlagAndCopy) {
    struct Case {
        const char* flags;
        bool prints;
    };
    for (const Case& c : {Case{"/F 4", true}, Case{"/F 2", false}, Case{"", false},
                          Case{"/F 4.0", true}, Case{"/F (4)", false}}) {
        KPPDFAnnotation annotation(
            dictionaryFromText(std::string("<< /Rect [0 0 1 1] ") + c.flags + " >>"), nullptr);
        EXPECT_EQ(annotation.flagPrint(), c.prints) << c.flags;
    }

    KPPDFRef<KPPDFDocument> document = documentWithAnnotation(
        "<< /Type /Annot /Subtype /Text /Rect [1 2 21 22] /Popup 6 0 R /Contents (note) >>");
    KPPDFAnnotation* annotation = document->pageAtIndex(0)->imprints()[0]->asAnnotation();
    ASSERT_TRUE(annotation);
    // As the writers ask: the dictionary itself counts as visited (the pop-up refers back to it).
    KPPDFVisitedSet visited{annotation->annotDict().get()};
    KPPDFObjectList reached = annotation->subobjects(visited);
    ASSERT_EQ(reached.size(), 1u);
    EXPECT_EQ(reached[0]->objectNumber(), 6u);

    // The copy is a new dictionary outside the document, so it is not written over the original.
    KPPDFRef<KPPDFImprint> copied = annotation->copy();
    KPPDFAnnotation* copy = copied->asAnnotation();
    ASSERT_TRUE(copy);
    EXPECT_NE(copy->annotDict(), annotation->annotDict());
    EXPECT_EQ(copy->annotDict()->objectNumber(), 0u);
    EXPECT_EQ(copy->annotDict()->document(), nullptr);
    // The copy's Popup still leads to the pop-up, and moving it leaves the original alone.
    KPPDFRef<KPPDFObject> popup = copy->annotDict()->resolvedObjectForKey("Popup");
    ASSERT_TRUE(popup);
    EXPECT_EQ(popup->objectNumber(), 6u);
    copy->setLocation({100, 100});
    EXPECT_EQ(rectText(annotation->annotDict()), "[ 1 2 21 22 ]");
    EXPECT_EQ(rectText(copy->annotDict()), "[ 100 100 120 120 ]");
}
