// Imprints written by the complete rewrite: content imprints as form XObjects placed at the end
// of the page content with their private record, annotations as the page's Annots; read back
// by this library and checked by qpdf, pdftotext and pdftoppm.
#include <gtest/gtest.h>

#include <array>
#include <cstdlib>
#include <initializer_list>
#include <iterator>
#include <regex>
#include <string>
#include <vector>

#include "kppdf/document/KPPDFDocument.h"
#include "kppdf/imprints/KPPDFAnnotation.h"
#include "kppdf/imprints/KPPDFImprint.h"
#include "kppdf/objects/KPPDFObjectArray.h"
#include "kppdf/objects/KPPDFObjectDictionary.h"
#include "kppdf/objects/KPPDFObjectName.h"
#include "kppdf/objects/KPPDFObjectStream.h"
#include "kppdf/objects/KPPDFObjectString.h"
#include "kppdf/page/KPPDFPage.h"
#include "support/LogCapture.h"
#include "support/TestHelpers.h"
#include "support/ToolRunner.h"

namespace {
using tool_runner::quote;
using tool_runner::run;

const std::string kImprints = std::string(KPPDF_TEST_DATA) + "/imprints";

// The stamp: 100 by 50 points of red with a word in black.
KPPDFRef<KPPDFImprint> stamp(KPPDFPoint location, bool flatten = false) {
    KPPDFRef<KPPDFImprint> imprint = KPPDFImprint::imprintWithData(
        KPPDFData::dataWithContentsOfFile(kImprints + "/stamp.pdf"), location);
    imprint->setSize({100, 50});
    imprint->setFlatten(flatten);
    return imprint;
}

// Writes bytes as name in folder and expects qpdf --check to find nothing (no warning either).
void writeChecked(const tool_runner::TemporaryFolder& folder, const std::string& name,
                  const std::string& bytes, const std::string& password = "") {
    EXPECT_TRUE(folder.write(name, bytes)) << name;
    std::string options = password.empty() ? "" : " --password=" + quote(password);
    EXPECT_EQ(run("qpdf --check" + options + " " + quote(folder.file(name))), 0) << name;
}

std::string text(const std::string& path, const std::string& password = "") {
    std::string out;
    std::string options = password.empty() ? "" : " -upw " + quote(password);
    run("pdftotext -q" + options + " " + quote(path) + " -", &out);
    return out;
}

// One page rendered by pdftoppm at 72 dpi: width, height and RGB samples.
struct Picture {
    int width = 0;
    int height = 0;
    std::string samples;
    // The sample at x, y from the top-left corner; black outside.
    std::array<int, 3> at(int x, int y) const {
        if (x < 0 || y < 0 || x >= width || y >= height)
            return {0, 0, 0};
        size_t i =
            (static_cast<size_t>(y) * static_cast<size_t>(width) + static_cast<size_t>(x)) * 3;
        return {uint8_t(samples[i]), uint8_t(samples[i + 1]), uint8_t(samples[i + 2])};
    }
    bool isRed(int x, int y) const {
        auto [r, g, b] = at(x, y);
        return r > 200 && g < 60 && b < 60;
    }
    bool isWhite(int x, int y) const {
        auto [r, g, b] = at(x, y);
        return r > 230 && g > 230 && b > 230;
    }
    // Points as x, y pairs from the page's lower-left corner: the red ones, then the white ones.
    void expectRedAndWhite(std::initializer_list<int> red, std::initializer_list<int> white) const {
        for (const int* p = red.begin(); p + 1 < red.end(); p += 2)
            EXPECT_TRUE(isRed(p[0], height - p[1])) << p[0] << " " << p[1];
        for (const int* p = white.begin(); p + 1 < white.end(); p += 2)
            EXPECT_TRUE(isWhite(p[0], height - p[1])) << p[0] << " " << p[1];
    }
};

Picture render(const std::string& path, int page, const tool_runner::TemporaryFolder& folder,
               const std::string& password = "") {
    std::string options = password.empty() ? "" : " -upw " + quote(password);
    std::string output = folder.file("render.ppm");
    run("pdftoppm -r 72 -singlefile -f " + std::to_string(page) + " -l " + std::to_string(page) +
        options + " " + quote(path) + " " + quote(folder.file("render")));
    std::string bytes = readFile(output);
    std::remove(output.c_str());
    Picture picture;
    // Binary PPM: "P6", width, height, maxval 255, one white-space byte, then the samples.
    std::smatch header;
    std::string head = bytes.substr(0, 64);
    if (!std::regex_search(head, header, std::regex("^P6\\s+(\\d+)\\s+(\\d+)\\s+255\\s")))
        return picture;
    picture.width = std::atoi(header[1].str().c_str());
    picture.height = std::atoi(header[2].str().c_str());
    picture.samples = bytes.substr(static_cast<size_t>(header[0].length()));
    if (picture.samples.size() != static_cast<size_t>(picture.width * picture.height * 3))
        picture = Picture();
    return picture;
}

size_t countOf(const std::string& bytes, const std::string& what) {
    size_t count = 0;
    for (size_t at = bytes.find(what); at != std::string::npos; at = bytes.find(what, at + 1))
        count++;
    return count;
}

// The placement lines that draw an overlay or a flattened form.
size_t placements(const std::string& bytes) {
    std::regex draw("/Parvel(Imprint|Flattened)[0-9]+ Do");
    return static_cast<size_t>(std::distance(std::sregex_iterator(bytes.begin(), bytes.end(), draw),
                                             std::sregex_iterator()));
}

// Each test stamps imprints/target.pdf and checks what it saves with qpdf, poppler's tools and
// by reading it back; without the tools it is skipped.
class KPPDFImprintWriter : public ::testing::Test {
protected:
    void SetUp() override {
        if (!tool_runner::available("qpdf") || !tool_runner::available("pdftotext") ||
            !tool_runner::available("pdftoppm"))
            GTEST_SKIP() << "qpdf, pdftotext and pdftoppm are needed";
        document_ = openFile(kImprints + "/target.pdf");
        ASSERT_TRUE(document_);
    }
    tool_runner::TemporaryFolder folder_;
    LogCapture log_;
    KPPDFRef<KPPDFDocument> document_;
};

KPPDFPropertyList stampProperties() {
    KPPDFPropertyList nested;
    nested.setObject(KPPDFPropertyList::string("Ada"), "by");
    nested.setObject(KPPDFPropertyList::integer(3), "count");
    KPPDFPropertyList properties;
    properties.setObject(KPPDFPropertyList::string("/home/ada/stamp.pdf"), "filename");
    properties.setObject(KPPDFPropertyList::string("approved"), "kind");
    properties.setObject(nested, "signature");
    return properties;
}
} // namespace

TEST_F(KPPDFImprintWriter, ContentImprintsComeBackAfterASaveAndAreNotDoubled) {
    KPPDFRef<KPPDFImprint> imprint = stamp({40, 60});
    imprint->setDictionary(stampProperties());
    document_->pageAtIndex(0)->addImprint(imprint);
    // A stamp drawn in two content streams is joined into one form.
    KPPDFRef<KPPDFImprint> split = KPPDFImprint::imprintWithData(
        KPPDFData::dataWithContentsOfFile(kImprints + "/stamp_split.pdf"), {100, 200});
    split->setSize({100, 50});
    document_->pageAtIndex(0)->addImprint(split);
    // The second page is a media box of 400 by 300 turned by 90 degrees: the user sees it 300
    // wide and 400 high, and the imprint is drawn where the user saw it.
    document_->pageAtIndex(1)->addImprint(stamp({150, 200}));

    std::string first = document_->currentDataWithImprints(true);
    writeChecked(folder_, "first.pdf", first);
    // The first name of a fresh document, names running on across pages, and the placements
    // exactly as written.
    EXPECT_NE(first.find("/ParvelImprint0 "), std::string::npos);
    EXPECT_NE(first.find("q\n\t\t\t\t1.000000 0.000000 0.000000 1.000000 0.000000 0.000000 cm\n"
                         "\t\t\t\t1 0 0 1 40.000000 60.000000 cm\n\t\t\t\t/ParvelImprint0 Do\nQ"),
              std::string::npos);
    EXPECT_NE(first.find("q\n\t\t\t\t0.000000 1.000000 -1.000000 0.000000 400.000000 0.000000 cm\n"
                         "\t\t\t\t1 0 0 1 150.000000 200.000000 cm\n\t\t\t\t/ParvelImprint2 Do\nQ"),
              std::string::npos);
    EXPECT_EQ(placements(first), 3u);
    // The source file name stays on this machine.
    EXPECT_EQ(first.find("/home/ada"), std::string::npos);
    std::string words = text(folder_.file("first.pdf"));
    EXPECT_NE(words.find("Target page one"), std::string::npos) << words;
    EXPECT_EQ(countOf(words, "STAMPED"), 3u) << words;
    Picture picture = render(folder_.file("first.pdf"), 1, folder_);
    ASSERT_EQ(picture.width, 300);
    ASSERT_EQ(picture.height, 400);
    // The stamp's lower-left corner at (40, 60), the split one's at (100, 200).
    picture.expectRedAndWhite({45, 65, 135, 105, 105, 205}, {35, 65, 145, 65, 45, 115, 95, 205});
    Picture rotated = render(folder_.file("first.pdf"), 2, folder_);
    ASSERT_EQ(rotated.width, 300);
    ASSERT_EQ(rotated.height, 400);
    rotated.expectRedAndWhite({155, 205, 245, 245}, {145, 205, 255, 205, 155, 255, 155, 195});

    // Saving twice in a row gives the same file.
    EXPECT_EQ(document_->currentDataWithImprints(true), first);

    KPPDFRef<KPPDFDocument> reopened = openBytes(first);
    ASSERT_TRUE(reopened);
    std::vector<KPPDFRef<KPPDFImprint>> found = reopened->pageAtIndex(0)->contentImprints();
    ASSERT_EQ(found.size(), 2u);
    EXPECT_EQ(found[0]->imprintType(), KPPDFImprintTypeContent);
    EXPECT_EQ(found[0]->location(), (KPPDFPoint{40, 60}));
    EXPECT_EQ(found[0]->size(), (KPPDFSize{100, 50}));
    ASSERT_TRUE(found[0]->dictionary());
    KPPDFPropertyList expected = stampProperties();
    expected.removeObjectForKey("filename");
    EXPECT_TRUE(*found[0]->dictionary() == expected);
    // The split stamp's form comes back as one content stream holding both parts.
    ASSERT_TRUE(found[1]->document());
    auto content = found[1]
                       ->document()
                       ->pageAtIndex(0)
                       ->pageDictionary()
                       ->resolvedObjectForKey<KPPDFObjectStream>("Contents");
    ASSERT_TRUE(content);
    std::string drawing(content->decodedData().view());
    EXPECT_NE(drawing.find("re f Q\n"), std::string::npos) << drawing;
    EXPECT_NE(drawing.find("(STAMPED) Tj ET\n"), std::string::npos) << drawing;
    // The rotated page's imprint keeps the location the user gave it.
    ASSERT_EQ(reopened->pageAtIndex(1)->contentImprints().size(), 1u);
    EXPECT_EQ(reopened->pageAtIndex(1)->contentImprints()[0]->location(), (KPPDFPoint{150, 200}));
    // Text of the page leaves the overlays out.
    reopened->pageAtIndex(0)->prepareForSearch();
    EXPECT_EQ(reopened->pageAtIndex(0)->pageString().find("STAMPED"), std::string::npos);

    // The reopened document writes its imprints once, not on top of the earlier ones.
    std::string second = reopened->currentDataWithImprints(true);
    writeChecked(folder_, "second.pdf", second);
    EXPECT_EQ(placements(second), 3u);
    EXPECT_EQ(countOf(text(folder_.file("second.pdf")), "STAMPED"), 3u);
    EXPECT_EQ(render(folder_.file("second.pdf"), 1, folder_).samples, picture.samples);
    KPPDFRef<KPPDFDocument> third = openBytes(second);
    ASSERT_TRUE(third);
    ASSERT_EQ(third->pageAtIndex(0)->contentImprints().size(), 2u);
    EXPECT_TRUE(*third->pageAtIndex(0)->contentImprints()[0]->dictionary() == expected);

    // Without imprints, the working bytes lose the overlays and keep the page.
    std::string plain = third->currentDataWithImprints(false);
    writeChecked(folder_, "plain.pdf", plain);
    EXPECT_EQ(text(folder_.file("plain.pdf")).find("STAMPED"), std::string::npos);
    EXPECT_NE(text(folder_.file("plain.pdf")).find("Target page one"), std::string::npos);
}

TEST_F(KPPDFImprintWriter, FlattenedImprintStaysInTheContentForGood) {
    KPPDFRef<KPPDFImprint> flat = stamp({20, 20}, true);
    flat->setDictionary(stampProperties());
    document_->pageAtIndex(0)->addImprint(flat);
    std::string first = document_->currentDataWithImprints(true);
    writeChecked(folder_, "first.pdf", first);
    EXPECT_NE(first.find("\t\t\t\t/ParvelFlattened0 Do"), std::string::npos);
    EXPECT_NE(first.find("/Flattened true"), std::string::npos);
    // No private properties for what is no overlay any more.
    EXPECT_EQ(first.find("/ParvelDictionary"), std::string::npos);

    KPPDFRef<KPPDFDocument> reopened = openBytes(first);
    ASSERT_TRUE(reopened);
    EXPECT_TRUE(reopened->pageAtIndex(0)->contentImprints().empty());
    // Flattened content is the page's own text now.
    reopened->pageAtIndex(0)->prepareForSearch();
    EXPECT_NE(reopened->pageAtIndex(0)->pageString().find("STAMPED"), std::string::npos);

    // Saved again with a new flattened imprint beside it: the old one stays under its name,
    // the new one gets a name of its own.
    reopened->pageAtIndex(0)->addImprint(stamp({150, 300}, true));
    std::string second = reopened->currentDataWithImprints(true);
    writeChecked(folder_, "second.pdf", second);
    EXPECT_EQ(countOf(second, "/ParvelFlattened0 Do"), 1u);
    EXPECT_EQ(placements(second), 2u);
    EXPECT_EQ(countOf(text(folder_.file("second.pdf")), "STAMPED"), 2u);
    Picture picture = render(folder_.file("second.pdf"), 1, folder_);
    ASSERT_EQ(picture.height, 400);
    picture.expectRedAndWhite({25, 25, 155, 305}, {});

    // And once more from the file: both stay, nothing comes back as an overlay.
    KPPDFRef<KPPDFDocument> last = openBytes(second);
    ASSERT_TRUE(last);
    EXPECT_TRUE(last->pageAtIndex(0)->contentImprints().empty());
    std::string third = last->currentDataWithImprints(true);
    writeChecked(folder_, "third.pdf", third);
    EXPECT_EQ(placements(third), 2u);
    EXPECT_EQ(render(folder_.file("third.pdf"), 1, folder_).samples, picture.samples);
}

TEST_F(KPPDFImprintWriter, AnnotationsAreWrittenFromTheirImprints) {
    std::string input = kImprints + "/annotations.pdf";

    struct Seen {
        std::string subtype;
        KPPDFRect rect;
        std::string contents;
    };
    auto annotationsOf = [](KPPDFPage& page) {
        std::vector<Seen> seen;
        for (const auto& imprint : page.annotationImprints()) {
            KPPDFAnnotation* annotation = imprint->asAnnotation();
            Seen entry;
            auto subtype =
                annotation->annotDict()->resolvedObjectForKey<KPPDFObjectName>("Subtype");
            entry.subtype = subtype ? subtype->value() : "";
            entry.rect = annotation->dictionaryRect();
            auto contents =
                annotation->annotDict()->resolvedObjectForKey<KPPDFObjectString>("Contents");
            entry.contents = contents ? contents->stringValue() : "";
            seen.push_back(entry);
        }
        return seen;
    };

    // Unread annotations are written as the page has them.
    KPPDFRef<KPPDFDocument> untouched = openFile(input);
    ASSERT_TRUE(untouched);
    std::string unread = untouched->currentDataWithImprints(true);
    ASSERT_FALSE(untouched->pageAtIndex(0)->processedAnnotations());

    KPPDFRef<KPPDFDocument> document = openFile(input);
    ASSERT_TRUE(document);
    KPPDFRef<KPPDFPage> page = document->pageAtIndex(0);
    std::vector<Seen> before = annotationsOf(*page);
    ASSERT_EQ(before.size(), 10u);
    KPPDFAnnotation* square = page->annotationImprints()[4]->asAnnotation();
    ASSERT_EQ(before[4].subtype, "Square");
    square->setLocation({50, 60});
    before[4].rect.origin = {50, 60};

    std::string saved = document->currentDataWithImprints(true);
    writeChecked(folder_, "annotations.pdf", saved);
    // Read or not, the same objects are written, each once.
    EXPECT_EQ(countOf(saved, " 0 obj"), countOf(unread, " 0 obj"));
    EXPECT_EQ(document->currentDataWithImprints(true), saved);

    for (const std::string& bytes : {saved, unread}) {
        KPPDFRef<KPPDFDocument> reopened = openBytes(bytes);
        ASSERT_TRUE(reopened);
        std::vector<Seen> after = annotationsOf(*reopened->pageAtIndex(0));
        ASSERT_EQ(after.size(), before.size());
        for (size_t i = 0; i < after.size(); i++) {
            SCOPED_TRACE(i);
            EXPECT_EQ(after[i].subtype, before[i].subtype);
            EXPECT_EQ(after[i].contents, before[i].contents);
            if (&bytes == &saved || i != 4) {
                EXPECT_FLOAT_EQ(after[i].rect.origin.x, before[i].rect.origin.x);
                EXPECT_FLOAT_EQ(after[i].rect.origin.y, before[i].rect.origin.y);
                EXPECT_FLOAT_EQ(after[i].rect.size.width, before[i].rect.size.width);
                EXPECT_FLOAT_EQ(after[i].rect.size.height, before[i].rect.size.height);
            }
        }
        // The pop-ups still belong to the note, and the note to the page.
        auto dictionary = reopened->pageAtIndex(0)->pageDictionary();
        auto annots = dictionary->resolvedObjectForKey<KPPDFObjectArray>("Annots");
        ASSERT_TRUE(annots);
        auto note = KPPDFCast<KPPDFObjectDictionary>(annots->resolvedObjectAtIndex(7));
        auto popup = KPPDFCast<KPPDFObjectDictionary>(annots->resolvedObjectAtIndex(9));
        ASSERT_TRUE(note && popup);
        EXPECT_EQ(popup->resolvedObjectForKey("Parent"), note);
        EXPECT_EQ(note->resolvedObjectForKey("Popup"), popup);
    }
    // The moved square is at its new place for pikepdf too.
    std::string rect;
    int status =
        run("/usr/bin/python3 -c 'import sys, pikepdf; "
            "print([float(v) for v in pikepdf.open(sys.argv[1]).pages[0].Annots[4].Rect])' " +
                quote(folder_.file("annotations.pdf")),
            &rect);
    if (status == 0) {
        EXPECT_EQ(rect, "[50.0, 60.0, 150.0, 140.0]\n");
    }
}

TEST_F(KPPDFImprintWriter, EncryptedDocumentSavesItsImprintEncrypted) {
    KPPDFRef<KPPDFDocument> document =
        openEncrypted(std::string(KPPDF_TEST_DATA) + "/open/rc4_128_user.pdf", "user");
    ASSERT_TRUE(document);
    ASSERT_EQ(document->encryptionStatus(), 2);
    KPPDFRef<KPPDFImprint> imprint = stamp({30, 40});
    imprint->setDictionary(stampProperties());
    document->pageAtIndex(0)->addImprint(imprint);
    std::string bytes = document->currentDataWithImprints(true);
    writeChecked(folder_, "encrypted.pdf", bytes, "user");
    EXPECT_NE(text(folder_.file("encrypted.pdf"), "user").find("STAMPED"), std::string::npos);
    Picture picture = render(folder_.file("encrypted.pdf"), 1, folder_, "user");
    ASSERT_GT(picture.height, 50);
    picture.expectRedAndWhite({35, 45}, {});

    KPPDFRef<KPPDFDocument> reopened = openEncrypted(folder_.file("encrypted.pdf"), "user");
    ASSERT_TRUE(reopened);
    std::vector<KPPDFRef<KPPDFImprint>> found = reopened->pageAtIndex(0)->contentImprints();
    ASSERT_EQ(found.size(), 1u);
    EXPECT_FLOAT_EQ(found[0]->location().x, 30);
    ASSERT_TRUE(found[0]->dictionary());
    EXPECT_TRUE(found[0]->dictionary()->hasString("kind", "approved"));
}

TEST_F(KPPDFImprintWriter, ImprintsThatCannotBeDrawnAreLeftOut) {
    // No document, and a document that is no PDF.
    document_->pageAtIndex(0)->addImprint(KPPDFImprint::imprint());
    document_->pageAtIndex(0)->addImprint(
        KPPDFImprint::imprintWithData(KPPDFData::dataWithString("not a PDF"), {1, 1}));
    document_->pageAtIndex(0)->addImprint(stamp({5, 5}));
    std::string bytes = document_->currentDataWithImprints(true);
    writeChecked(folder_, "partial.pdf", bytes);
    EXPECT_EQ(placements(bytes), 1u);
    EXPECT_TRUE(log_.contains("Imprint without a page to draw"));
}

TEST_F(KPPDFImprintWriter, ImageImprintOfAJPEGFileIsWrittenAsThatFile) {
    // The imprint document draws a blue image; the JPEG file it names is green. Saved, the
    // page shows green, and the file's bytes are in the output as they stand.
    const std::string jpegPath = kImprints + "/green.jpg";
    EXPECT_TRUE(KPPDFDocument::isJPEG(jpegPath));
    EXPECT_FALSE(KPPDFDocument::isJPEG(kImprints + "/image_stamp.pdf"));
    EXPECT_FALSE(KPPDFDocument::isJPEG(kImprints + "/no such file.jpg"));
    const std::string jpeg = readFile(jpegPath);
    // Starts like a JPEG and is none: libjpeg's complaint is a log line, not an exit.
    ASSERT_TRUE(folder_.write("not.jpg", "\xFF\xD8\xFF garbage"));
    EXPECT_FALSE(KPPDFDocument::isJPEG(folder_.file("not.jpg")));

    auto imageImprint = [&](KPPDFPoint location, const std::string& file) {
        KPPDFRef<KPPDFImprint> imprint = KPPDFImprint::imprintWithData(
            KPPDFData::dataWithContentsOfFile(kImprints + "/image_stamp.pdf"), location);
        imprint->setSize({40, 40});
        KPPDFPropertyList properties;
        properties.setObject(KPPDFPropertyList::string(file), "filename");
        imprint->setDictionary(properties);
        return imprint;
    };
    document_->pageAtIndex(0)->addImprint(imageImprint({100, 200}, jpegPath));
    // A file that is no JPEG leaves the image as the imprint document has it.
    document_->pageAtIndex(0)->addImprint(imageImprint({200, 200}, kImprints + "/image_stamp.pdf"));
    std::string bytes = document_->currentDataWithImprints(true);
    writeChecked(folder_, "jpeg.pdf", bytes);
    EXPECT_EQ(countOf(bytes, jpeg), 1u);
    EXPECT_EQ(countOf(bytes, "/DCTDecode"), 1u);
    Picture picture = render(folder_.file("jpeg.pdf"), 1, folder_);
    ASSERT_EQ(picture.height, 400);
    auto [r, g, b] = picture.at(120, 400 - 220);
    EXPECT_TRUE(r < 40 && g > 200 && b < 40) << r << " " << g << " " << b;
    auto [r2, g2, b2] = picture.at(220, 400 - 220);
    EXPECT_TRUE(r2 < 40 && g2 < 40 && b2 > 200) << r2 << " " << g2 << " " << b2;
    // The imprint document is left as it was: saving again writes the same bytes.
    KPPDFRef<KPPDFDocument> imprintDocument =
        document_->pageAtIndex(0)->contentImprints()[0]->document();
    EXPECT_EQ(countOf(imprintDocument->currentDataWithImprints(true), "/DCTDecode"), 0u);
}
