// Restoring content imprints from the private record that a save keeps in a page.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "kppdf/document/KPPDFDocument.h"
#include "kppdf/imprints/KPPDFImprint.h"
#include "kppdf/objects/KPPDFObjectDictionary.h"
#include "kppdf/objects/KPPDFObjectStream.h"
#include "kppdf/page/KPPDFPage.h"
#include "kppdf/platform/KPPDFArchiver.h"
#include "support/LogCapture.h"
#include "support/TestHelpers.h"
#include "support/ToolRunner.h"

namespace {

std::string archived(std::initializer_list<std::pair<const char*, const char*>> entries) {
    KPPDFPropertyList dictionary;
    for (const auto& [key, value] : entries)
        dictionary.setObject(KPPDFPropertyList::string(value), key);
    return KPPDFArchiver::archive(dictionary);
}

constexpr char kTenContent[] = "BT /F1 12 Tf (ten) Tj ET";
constexpr char kTwoContent[] = "0 0 1 rg 0 0 100 50 re f";

// A page as a save leaves it: its own content, two overlays drawn by placement streams listed
// in ParvelImprints, their forms under ParvelImprint10 and ParvelImprint2, a flattened form and
// an unrelated form. extraXObjects and extraObjects add more records.
std::string recordFile(const std::string& extraXObjects = "",
                       const std::vector<std::pair<unsigned, std::string>>& extraObjects = {}) {
    TestPDFBuilder builder;
    builder.add(1, "<< /Type /Catalog /Pages 2 0 R >>");
    builder.add(2, "<< /Type /Pages /Kids [3 0 R] /Count 1 >>");
    builder.add(3, "<< /Type /Page /Parent 2 0 R /MediaBox [0 0 612 792] /Contents [6 0 R 7 0 R "
                   "8 0 R] /ParvelImprints [7 0 R 8 0 R] /Resources << /XObject << "
                   "/ParvelImprint10 10 0 R /ParvelImprint2 20 0 R /Other 30 0 R "
                   "/ParvelFlattened0 30 0 R " +
                       extraXObjects + " >> >> >>");
    builder.addStream(6, "", "0 0 m 10 10 l S");
    builder.addStream(7, "/ParvelImprint 10 0 R", "q 1 0 0 1 50 60 cm /ParvelImprint10 Do Q");
    builder.addStream(8, "/ParvelImprint 20 0 R", "q 1 0 0 1 1.5 2.5 cm /ParvelImprint2 Do Q");
    // The form of imprint 10: resources reaching a font and its encoding, an indirect Length,
    // and archived properties, compressed as the writer stores them.
    builder.add(10, std::string("<< /Type /XObject /Subtype /Form /FormType 1 /BBox [0 0 200 100] "
                                "/Resources << /Font << /F1 11 0 R >> /ProcSet [/PDF /Text] >> "
                                "/ParvelLocation [50 60] /ParvelDictionary 12 0 R /Length 13 0 R "
                                ">>\nstream\n") +
                        kTenContent + "\nendstream");
    builder.add(11, "<< /Type /Font /Subtype /Type1 /BaseFont /Helvetica /Encoding 14 0 R >>");
    std::string properties = deflated(archived({{"filename", "ten.png"}, {"kind", "ten"}}));
    builder.addStream(12, "/Filter /FlateDecode", properties);
    builder.add(13, std::to_string(std::string(kTenContent).size()));
    builder.add(14, "<< /Type /Encoding /Differences [32 /space] >>");
    // The form of imprint 2: indirect resources, no properties.
    builder.addStream(20,
                      "/Type /XObject /Subtype /Form /BBox [10 20 110 70] /Resources 21 0 R "
                      "/ParvelLocation [1.5 2.5]",
                      kTwoContent);
    builder.add(21, "<< /ProcSet [/PDF] >>");
    builder.addStream(30, "/Type /XObject /Subtype /Form /BBox [0 0 1 1] /ParvelLocation [0 0]",
                      "");
    for (const auto& [number, body] : extraObjects)
        builder.add(number, body);
    return builder.build("/Root 1 0 R");
}

} // namespace

TEST(KPPDFImprintRecord, ImprintsComeBackInNumericOrderAsFilesOfTheirOwn) {
    KPPDFRef<KPPDFDocument> document = openBytes(recordFile());
    ASSERT_TRUE(document);
    std::vector<KPPDFRef<KPPDFImprint>> imprints = document->pageAtIndex(0)->contentImprints();
    ASSERT_EQ(imprints.size(), 2u);

    // ParvelImprint2 before ParvelImprint10; Other and the flattened form are no overlays.
    EXPECT_EQ(imprints[0]->location(), (KPPDFPoint{1.5f, 2.5f}));
    EXPECT_EQ(imprints[0]->size(), (KPPDFSize{100, 50}));
    EXPECT_FALSE(imprints[0]->dictionary());
    EXPECT_EQ(imprints[1]->location(), (KPPDFPoint{50, 60}));
    EXPECT_EQ(imprints[1]->size(), (KPPDFSize{200, 100}));
    ASSERT_TRUE(imprints[1]->dictionary());
    EXPECT_TRUE(imprints[1]->dictionary()->hasString("filename", "ten.png"));
    EXPECT_TRUE(imprints[1]->dictionary()->hasString("kind", "ten"));

    // Each imprint is a one-page document drawing the form's content on a page of its box.
    struct Expected {
        const char* content;
        KPPDFRect mediaBox;
    };
    const Expected expected[] = {{kTwoContent, KPPDFMakeRect(10, 20, 100, 50)},
                                 {kTenContent, KPPDFMakeRect(0, 0, 200, 100)}};
    for (size_t i = 0; i < 2; i++) {
        const KPPDFRef<KPPDFDocument>& own = imprints[i]->document();
        ASSERT_TRUE(own) << i;
        EXPECT_FALSE(own->isRepaired()) << i;
        ASSERT_EQ(own->pageCount(), 1u) << i;
        KPPDFRef<KPPDFPage> ownPage = own->pageAtIndex(0);
        EXPECT_EQ(ownPage->mediaBox(), expected[i].mediaBox) << i;
        auto contents =
            ownPage->pageDictionary()->resolvedObjectForKey<KPPDFObjectStream>("Contents");
        ASSERT_TRUE(contents) << i;
        EXPECT_EQ(contents->decodedData().view(), expected[i].content) << i;
        EXPECT_TRUE(
            ownPage->pageDictionary()->resolvedObjectForKey<KPPDFObjectDictionary>("Resources"))
            << i;
        tool_runner::expectQpdfAccepts(own->docData().string());
    }
    // The document knows that its page carried stored imprints, and its working bytes now
    // hold the page without them.
    EXPECT_EQ(document->pageAtIndex(0)->pageDictionary()->objectForKey("ParvelImprints"), nullptr);

    // The rebuilt file of imprint 10: font, encoding (the objects its resources reach, in that
    // order), resources, content stream, page, page tree node, catalog.
    std::string ten = imprints[1]->document()->docData().string();
    EXPECT_TRUE(ten.starts_with("%PDF-1.3\n1 0 obj\n<<")) << ten.substr(0, 40);
    size_t objects[8];
    for (unsigned n = 1; n <= 7; n++) {
        objects[n] = ten.find(std::string("\n").append(std::to_string(n)).append(" 0 obj\n"));
        ASSERT_NE(objects[n], std::string::npos) << n;
        if (n > 1) {
            EXPECT_LT(objects[n - 1], objects[n]) << n;
        }
    }
    EXPECT_EQ(ten.find("8 0 obj"), std::string::npos);
    auto objectText = [&](unsigned n) {
        size_t end = ten.substr(objects[n] + 1).find("endobj");
        return ten.substr(objects[n] + 1, end);
    };
    const std::vector<std::string> entries[8] = {{},
                                                 {"/BaseFont /Helvetica", "/Encoding 2 0 R"},
                                                 {"/Differences [ 32 /space ]"},
                                                 {"/F1 1 0 R"},
                                                 {"/Length 24", kTenContent},
                                                 {"/Type /Page", "/Resources 3 0 R",
                                                  "/Contents 4 0 R", "/Parent 6 0 R",
                                                  "/MediaBox [ 0 0 200 100 ]"},
                                                 {"/Kids [ 5 0 R ]", "/Count 1"},
                                                 {"/Version /1.4", "/Pages 6 0 R"}};
    // The content stream keeps only what is no form key; its Length is written directly.
    for (const char* gone : {"/Type", "/Subtype", "/FormType", "/BBox", "/Resources",
                             "/ParvelLocation", "/ParvelDictionary"})
        EXPECT_EQ(objectText(4).find(gone), std::string::npos) << gone;

    // One subsection from 1, entries pointing at each object (which holds what it should), the
    // trailer, startxref.
    size_t xref = ten.find("xref\n1 7\n");
    ASSERT_NE(xref, std::string::npos);
    for (unsigned n = 1; n <= 7; n++) {
        char entry[32];
        std::snprintf(entry, sizeof entry, "%010zu 00000 n \n", objects[n] + 1);
        EXPECT_EQ(ten.substr(xref + 9 + (n - 1) * 20, 20), entry) << n;
        for (const std::string& wanted : entries[n])
            EXPECT_NE(objectText(n).find(wanted), std::string::npos) << wanted;
    }
    size_t trailer = ten.find("trailer\n<<");
    EXPECT_EQ(trailer, xref + 9 + 7 * 20);
    EXPECT_NE(ten.find("/Size 8", trailer), std::string::npos);
    EXPECT_NE(ten.find("/Root 7 0 R", trailer), std::string::npos);
    EXPECT_TRUE(ten.ends_with(">>\nstartxref\n" + std::to_string(xref) + "\n%%EOF\n"))
        << ten.substr(trailer);

    // Imprint 2 reaches nothing through its resources: five objects, Size 6.
    std::string two = imprints[0]->document()->docData().string();
    EXPECT_NE(two.find("xref\n1 5\n"), std::string::npos);
    EXPECT_NE(two.find("/Size 6"), std::string::npos);
    EXPECT_NE(two.find("2 0 obj\n<< /Length 24>>\nstream"), std::string::npos) << two;
}

TEST(KPPDFImprintRecord, MarkedAndMalformedRecords) {
    std::string marker = archived({{"Parvel", "Parvel"}, {"filename", "gone.png"}});
    LogCapture log;
    KPPDFRef<KPPDFDocument> document = openBytes(recordFile(
        "/ParvelImprint3 40 0 R /ParvelImprint4 41 0 R /ParvelImprint5 42 0 R "
        "/ParvelImprint6 43 0 R /ParvelImprint7 44 0 R /ParvelImprint8 45 0 R "
        "/ParvelImprint9 46 0 R",
        {
            {40, "<< /BBox [0 0 5 5] /ParvelLocation [7 7] /ParvelDictionary 47 0 R /Length 0 "
                 ">>\nstream\n\nendstream"},
            {41, "<< /BBox [0 0 5 5] /Length 0 >>\nstream\n\nendstream"},
            {42, "<< /BBox [0 0 5] /ParvelLocation [1 1] /Length 0 >>\nstream\n\nendstream"},
            {43, "<< /BBox [0 0 5 5] /ParvelLocation [(x) 1] /Length 0 >>\nstream\n\nendstream"},
            {44, "<< /BBox [0 0 5 5] /ParvelLocation [8 8] >>"},
            {45, "<< /BBox [0 0 5 5] /ParvelLocation [9 9] /ParvelDictionary 48 0 R "
                 "/Resources << /XObject << /Lost 99 0 R /Self 45 0 R >> >> /Length 0 "
                 ">>\nstream\n\nendstream"},
            {46, "<< /BBox [0 0 5 5] /ParvelLocation [6 6] /ParvelDictionary 12 0 R /Length 0 "
                 ">>\nstream\n\nendstream"},
            {47, "<< /Length " + std::to_string(marker.size()) + " >>\nstream\n" + marker +
                     "\nendstream"},
            {48, "<< /Length 9 >>\nstream\nnot xml!!\nendstream"},
        }));
    ASSERT_TRUE(document);
    std::vector<KPPDFRef<KPPDFImprint>> imprints = document->pageAtIndex(0)->contentImprints();
    // 2, 8, 9 (which reads the same properties as 10), 10; 3 is marked to stay away; 4 to 7
    // are skipped.
    ASSERT_EQ(imprints.size(), 4u);
    EXPECT_EQ(imprints[0]->location(), (KPPDFPoint{1.5f, 2.5f}));
    EXPECT_EQ(imprints[1]->location(), (KPPDFPoint{9, 9}));
    EXPECT_EQ(imprints[2]->location(), (KPPDFPoint{6, 6}));
    EXPECT_EQ(imprints[3]->location(), (KPPDFPoint{50, 60}));
    EXPECT_FALSE(imprints[1]->dictionary());
    ASSERT_TRUE(imprints[2]->dictionary());
    EXPECT_TRUE(imprints[2]->dictionary()->hasString("kind", "ten"));
    EXPECT_TRUE(log.contains("ParvelImprint4 has no usable ParvelLocation"));
    EXPECT_TRUE(log.contains("ParvelImprint5 has no usable BBox"));
    EXPECT_TRUE(log.contains("ParvelImprint6 has no usable ParvelLocation"));
    EXPECT_TRUE(log.contains("ParvelImprint7 is not a stream"));
    EXPECT_TRUE(log.contains("ParvelImprint8: its properties are not readable"));
    EXPECT_TRUE(log.contains("ParvelImprint8 refers to objects outside its resources"));
    // The form that draws itself is copied into its own document, which still opens.
    ASSERT_TRUE(imprints[1]->document());
    EXPECT_EQ(imprints[1]->document()->pageCount(), 1u);

    // Without the page mark the forms are left alone.
    TestPDFBuilder plain;
    plain.add(1, "<< /Type /Catalog /Pages 2 0 R >>");
    plain.add(2, "<< /Type /Pages /Kids [3 0 R] /Count 1 >>");
    plain.add(3, "<< /Type /Page /Parent 2 0 R /MediaBox [0 0 612 792] /Resources << /XObject "
                 "<< /ParvelImprint0 4 0 R >> >> >>");
    plain.addStream(4, "/BBox [0 0 5 5] /ParvelLocation [1 1]", "");
    KPPDFRef<KPPDFDocument> unmarked = openBytes(plain.build("/Root 1 0 R"));
    ASSERT_TRUE(unmarked);
    EXPECT_FALSE(unmarked->pageAtIndex(0)->setupImprints());
    EXPECT_TRUE(unmarked->pageAtIndex(0)->contentImprints().empty());
}
