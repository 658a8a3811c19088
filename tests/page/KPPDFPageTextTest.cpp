#include <gtest/gtest.h>

#include <sstream>
#include <string>

#include "kppdf/document/KPPDFDocument.h"
#include "kppdf/page/KPPDFBaseline.h"
#include "kppdf/page/KPPDFPage.h"
#include "kppdf/page/KPPDFTextBlob.h"
#include "support/TestHelpers.h"

namespace {

// "Boxy": every character 500 units wide (5.0 at size 10, exact in binary), ascent 800 and
// descent -200, so that positions in the tests are exact.
std::string boxyFont() {
    std::string widths;
    for (int i = 32; i <= 255; i++)
        widths += "500 ";
    return "<< /Type /Font /Subtype /Type1 /BaseFont /Boxy /FirstChar 32 /LastChar 255 "
           "/Widths [" +
           widths + "] /Encoding /WinAnsiEncoding /FontDescriptor 7 0 R >>";
}

struct OpenPage {
    KPPDFRef<KPPDFDocument> document;
    KPPDFRef<KPPDFPage> page;
};

// The page of a one-page document whose content can use /F1 (Boxy), /F2 (Helvetica), /F3 (a
// subset of a serif font), /F4 (an alias of Helvetica-Bold) and /F5 (a fixed-pitch font).
OpenPage pageWithContent(const std::string& content) {
    TestPDFBuilder b;
    b.add(1, "<< /Type /Catalog /Pages 2 0 R >>");
    b.add(2, "<< /Type /Pages /Kids [3 0 R] /Count 1 >>");
    b.add(3, "<< /Type /Page /Parent 2 0 R /MediaBox [0 0 612 792] /Resources << /Font << "
             "/F1 5 0 R /F2 6 0 R /F3 8 0 R /F4 9 0 R /F5 10 0 R >> >> /Contents 4 0 R >>");
    b.addStream(4, "", content);
    b.add(5, boxyFont());
    b.add(6, "<< /Type /Font /Subtype /Type1 /BaseFont /Helvetica /Encoding /WinAnsiEncoding >>");
    b.add(7, "<< /Type /FontDescriptor /FontName /Boxy /Flags 32 /FontBBox [0 -200 500 800] "
             "/ItalicAngle 0 /Ascent 800 /Descent -200 /CapHeight 700 /StemV 80 >>");
    b.add(8, "<< /Type /Font /Subtype /TrueType /BaseFont /ABCDEF+DejaVuSerif-BoldItalic "
             "/FirstChar 32 /LastChar 32 /Widths [500] /Encoding /WinAnsiEncoding "
             "/FontDescriptor 11 0 R >>");
    b.add(9, "<< /Type /Font /Subtype /TrueType /BaseFont /XYZABC+Arial,Bold "
             "/Encoding /WinAnsiEncoding >>");
    b.add(10, "<< /Type /Font /Subtype /TrueType /BaseFont /Mono /FirstChar 32 /LastChar 32 "
              "/Widths [600] /FontDescriptor 12 0 R >>");
    b.add(11, "<< /Type /FontDescriptor /FontName /ABCDEF+DejaVuSerif-BoldItalic /Flags 34 "
              "/Ascent 900 /Descent -250 >>");
    b.add(12, "<< /Type /FontDescriptor /FontName /Mono /Flags 33 /Ascent 800 /Descent -200 >>");
    auto document = openBytes(b.build("/Root 1 0 R"));
    return {document, document ? document->pageAtIndex(0) : nullptr};
}

// One BT..ET that shows text with /F1 at size 10 at (x, y).
std::string show(float x, float y, const std::string& text, const std::string& font = "/F1 10") {
    std::ostringstream out;
    out << "BT " << font << " Tf 1 0 0 1 " << x << " " << y << " Tm (" << text << ") Tj ET\n";
    return out.str();
}

} // namespace

TEST(KPPDFPageTextTest, LinesByExactBaseline) {
    // Shown out of order: a blob a hundredth higher starts a line of its own above; blobs of
    // equal y share a line, left to right; a blob that goes on where the last one ended joins
    // its text, one set apart by a gap gets a space.
    auto [document, page] =
        pageWithContent(show(100, 700, "B") + show(50, 700, "A") + show(50, 700.01f, "Up") +
                        "BT /F1 10 Tf 1 0 0 1 50 650 Tm (Hel) Tj (lo) Tj ET\n");
    ASSERT_NE(page, nullptr);
    page->prepareForSearch();
    EXPECT_EQ(page->pageString(), "Up\nA B\nHello\n");
    ASSERT_EQ(page->baselines().size(), 3u);
    const auto& middle = page->baselines()[1]->blobs();
    ASSERT_EQ(middle.size(), 2u);
    EXPECT_EQ(middle[0]->string(), "A");
    // The space between the words belongs to the blob before it, the newline to the last blob.
    EXPECT_EQ(middle[0]->rangeInPageString(), KPPDFMakeRange(3, 2));
    EXPECT_EQ(middle[1]->rangeInPageString(), KPPDFMakeRange(5, 2));
    EXPECT_EQ(page->baselines()[0]->rangeInPageString(), KPPDFMakeRange(0, 3));
    EXPECT_EQ(page->baselines()[1]->rangeInPageString(), KPPDFMakeRange(3, 4));
    EXPECT_EQ(page->baselines()[2]->rangeInPageString(), KPPDFMakeRange(7, 6));
    // The page's blob list is in reading order now.
    ASSERT_EQ(page->textBlobs().size(), 5u);
    EXPECT_EQ(page->textBlobs()[0]->string(), "Up");
    EXPECT_EQ(page->textBlobs()[1]->string(), "A");

    // Preparing again changes nothing.
    page->prepareForSearch();
    EXPECT_EQ(page->pageString(), "Up\nA B\nHello\n");
    EXPECT_EQ(page->baselines().size(), 3u);
}

TEST(KPPDFPageTextTest, PageStringAttributes) {
    auto [document, page] =
        pageWithContent("1 0 0 rg\n" + show(50, 700, "Red") + "0 0 1 rg 2 0 0 2 0 0 cm\n" +
                        show(25, 300, "Big", "/F2 10") + show(25, 280, " ", "/F3 6") +
                        show(25, 260, "A", "/F4 6") + show(25, 240, " ", "/F5 6"));
    page->prepareForSearch();
    const KPPDFAttributedString& text = page->richPageString();
    const KPPDFTextAttributes& red = text.attributesAtIndex(0);
    EXPECT_EQ(red.foregroundColor, KPPDFColor::redColor());
    EXPECT_EQ(red.fontName, "Helvetica"); // not a standard font, and its flags say sans serif
    EXPECT_EQ(red.fontSize, 10.0f);
    size_t big = page->pageString().find("Big");
    ASSERT_NE(big, std::string::npos);
    const KPPDFTextAttributes& blue = text.attributesAtIndex(big);
    EXPECT_EQ(blue.foregroundColor, KPPDFColor::blueColor());
    EXPECT_EQ(blue.fontName, "Helvetica");
    EXPECT_EQ(blue.fontSize, 20.0f); // through the CTM
    ASSERT_EQ(page->baselines().size(), 5u);
    auto nameOfLine = [&](size_t i) {
        return text.attributesAtIndex(page->baselines()[i]->rangeInPageString().location).fontName;
    };
    // Serif by its flags, bold and italic by its name, the subset prefix dropped.
    EXPECT_EQ(nameOfLine(2), "Times-BoldItalic");
    // An alias of a standard font is that font.
    EXPECT_EQ(nameOfLine(3), "Helvetica-Bold");
    // Fixed pitch is Courier.
    EXPECT_EQ(nameOfLine(4), "Courier");
}

TEST(KPPDFPageTextTest, SelectionSplitsLinesAtWideGaps) {
    // "ab" ends at 110. The first line's next blob is 8.0 further, the second's 7.9.
    auto [document, page] = pageWithContent(show(100, 700, "ab") + show(118, 700, "cd") +
                                            show(100, 680, "ab") + show(117.9f, 680, "cd"));
    page->prepareForSearch();
    EXPECT_EQ(page->pageString(), "ab cd\nab cd\n");
    ASSERT_EQ(page->baselines().size(), 2u);
    page->prepareForSelection();
    ASSERT_EQ(page->baselines().size(), 3u);
    EXPECT_EQ(page->baselines()[0]->blobs().size(), 1u);
    EXPECT_EQ(page->baselines()[1]->blobs().size(), 1u);
    EXPECT_EQ(page->baselines()[1]->minX(), 118);
    EXPECT_EQ(page->baselines()[2]->blobs().size(), 2u);
    // The cut lines are not in columns (the left group reaches over the cut-off part), so the
    // page string is not rebuilt and the first line still waits for its newline.
    EXPECT_FALSE(page->hasColumns());
    EXPECT_TRUE(page->baselines()[0]->needsNewline());
    EXPECT_EQ(page->pageString(), "ab cd\nab cd\n");
    EXPECT_EQ(page->baselines()[0]->rangeInPageString(), KPPDFMakeRange(0, 3));
    EXPECT_EQ(page->baselines()[1]->rangeInPageString(), KPPDFMakeRange(3, 3));
}

TEST(KPPDFPageTextTest, ColumnsAreReadOneAfterTheOther) {
    auto [document, page] =
        pageWithContent(show(72, 700, "L1") + show(300, 700, "R1") + show(72, 680, "L2") +
                        show(300, 680, "R2") + show(300, 660, "R3"));
    page->prepareForSearch();
    EXPECT_EQ(page->pageString(), "L1 R1\nL2 R2\nR3\n");
    page->prepareForSelection();
    EXPECT_TRUE(page->hasColumns());
    // The spaces before the cuts became the lines' newlines.
    EXPECT_EQ(page->pageString(), "L1\nL2\nR1\nR2\nR3\n");
    ASSERT_EQ(page->baselines().size(), 5u);
    const char* const expected[] = {"L1", "L2", "R1", "R2", "R3"};
    uint32_t start = 0;
    for (size_t i = 0; i < 5; i++) {
        const auto& line = page->baselines()[i];
        EXPECT_EQ(line->blobs().front()->string(), expected[i]);
        EXPECT_EQ(line->rangeInPageString(), KPPDFMakeRange(start, 3)) << i;
        EXPECT_EQ(line->blobs().front()->rangeInPageString(), KPPDFMakeRange(start, 3)) << i;
        start += 3;
    }
    // Lookups follow the new order.
    KPPDFRef<KPPDFBaseline> hit;
    EXPECT_EQ(page->charPositionForPoint({306, 701}, &hit), 7);
    EXPECT_EQ(hit, page->baselines()[2]);
}

TEST(KPPDFPageTextTest, ColumnOrderNeedsFewLeftEdges) {
    // Ten lines from top to bottom; their left edges step through five (or six) places.
    auto staircase = [](int places) {
        std::string content;
        for (int i = 0; i < 10; i++)
            content += show(50 + 90 * (i % places), 700 - 20 * i,
                            std::string("w").append(std::to_string(i)));
        return content;
    };
    auto [documentFive, five] = pageWithContent(staircase(5));
    five->prepareForSearch();
    std::string byHeight = five->pageString();
    EXPECT_EQ(byHeight, "w0\nw1\nw2\nw3\nw4\nw5\nw6\nw7\nw8\nw9\n");
    five->prepareForSelection();
    EXPECT_TRUE(five->hasColumns());
    EXPECT_EQ(five->pageString(), "w0\nw5\nw1\nw6\nw2\nw7\nw3\nw8\nw4\nw9\n");

    auto [documentSix, six] = pageWithContent(staircase(6));
    six->prepareForSelection();
    EXPECT_FALSE(six->hasColumns());
    EXPECT_EQ(six->pageString(), byHeight);
}

TEST(KPPDFPageTextTest, PointsToCharacters) {
    // Three lines of Boxy at size 10: characters 5 wide, lines 10 high from 2 below the
    // baseline. Page string "alpha\nbeta\ngamma\n".
    auto [document, page] =
        pageWithContent(show(100, 700, "alpha") + show(100, 680, "beta") + show(100, 660, "gamma"));
    page->prepareForSelection();
    ASSERT_EQ(page->pageString(), "alpha\nbeta\ngamma\n");

    KPPDFRef<KPPDFBaseline> hit;
    EXPECT_EQ(page->charPositionForPoint({112, 685}, &hit), 8); // "t" of beta
    EXPECT_EQ(hit, page->baselines()[1]);
    // On the left edge no blob starts left of the point.
    EXPECT_EQ(page->charPositionForPoint({100, 700}, nullptr), -1);
    hit = nullptr;
    EXPECT_EQ(page->charPositionForPoint({50, 700}, &hit), KPPDFPage::kCharPositionNotFound);
    EXPECT_EQ(page->charPositionForPoint({110, 690}, &hit), 2147483647); // between lines
    EXPECT_EQ(hit, nullptr);

    const std::pair<KPPDFPoint, int> closest[] = {
        // At or below the last line's top and right of its start: the end of the text, even
        // inside the last line.
        {{150, 600}, 16},
        {{105, 662}, 16},
        // Left of a line: its first character; right of it: its newline.
        {{50, 703}, 0},
        {{200, 703}, 5},
        // Between two lines the nearer one (by the middle of the line) wins, at the point's x;
        // nearer the first line but below its box: that line's newline.
        {{112, 690}, 8},
        {{112, 697}, 5},
        // Above everything: the first line, at the point's x; left of the last line, below it.
        {{112, 750}, 2},
        {{50, 600}, 11},
        // Inside a line: the character there.
        {{107, 682}, 7}};
    for (const auto& [point, position] : closest)
        EXPECT_EQ(page->closestCharPositionForPoint(point), position) << point.x << " " << point.y;

    EXPECT_TRUE(page->baselinesFromCharPosition(-3, 0).empty());
    EXPECT_EQ(page->baselinesFromCharPosition(0, 6),
              (KPPDFPage::BaselineList{page->baselines()[0], page->baselines()[1]}));
    EXPECT_EQ(page->baselinesFromCharPosition(3, 13), page->baselines());
    EXPECT_TRUE(page->baselinesFromCharPosition(3, 17).empty());

    // Rectangles of a range, one per line.
    auto rects = page->rectsForCharRange({3, 5}); // "ha\nbe"
    ASSERT_EQ(rects.size(), 2u);
    EXPECT_EQ(rects[0], KPPDFMakeRect(115, 698, 10, 10));
    EXPECT_EQ(rects[1], KPPDFMakeRect(100, 678, 10, 10));
}

TEST(KPPDFPageTextTest, PositionsCountUTF16Units) {
    // "caf\u00e9 bar": the accented letter is two bytes of UTF-8 but one UTF-16 unit.
    auto [document, page] = pageWithContent(show(100, 700, "caf\\351 bar"));
    page->prepareForSelection();
    ASSERT_EQ(page->pageString(), "caf\xC3\xA9 bar\n");
    EXPECT_EQ(page->charPositionForPoint({127, 700}, nullptr), 5); // over "b"
    EXPECT_EQ(page->charPositionForPoint({117, 700}, nullptr), 3); // over the accented letter
    EXPECT_EQ(page->closestCharPositionForPoint({500, 700}), 8);
    EXPECT_EQ(page->byteRangeForCharRange({5, 3}), KPPDFMakeRange(6, 3));
    EXPECT_EQ(page->charRangeForByteRange({6, 3}), KPPDFMakeRange(5, 3));
    EXPECT_EQ(page->charRangeForByteRange({4, 1}), KPPDFMakeRange(3, 1)); // inside the letter
    EXPECT_EQ(page->byteRangeForCharRange({100, 5}), KPPDFMakeRange(10, 0));
    EXPECT_EQ(page->rectsForCharRange({3, 1}),
              (std::vector<KPPDFRect>{KPPDFMakeRect(115, 698, 5, 10)}));
    EXPECT_EQ(page->baselinesFromCharPosition(4, 8).size(), 1u);
}

TEST(KPPDFPageTextTest, EmptyAndBrokenPages) {
    auto [empty, page] = pageWithContent("");
    page->prepareForSelection();
    EXPECT_EQ(page->pageString(), "");
    EXPECT_TRUE(page->baselines().empty());
    EXPECT_EQ(page->closestCharPositionForPoint({1, 1}), 0);
    EXPECT_TRUE(page->rectsForCharRange({0, 10}).empty());

    // Matrices that put text at infinity or NaN still give lines, and lookups stay defined.
    auto [broken, brokenPage] =
        pageWithContent("BT /F1 10 Tf 1e38 0 0 1e38 1e38 1e38 Tm 1e38 1e38 Td (x) Tj ET\n"
                        "BT /F1 10 Tf 0 0 0 0 0 0 Tm (y) Tj ET\n" +
                        show(100, 700, "ok") +
                        "BT /F1 10 Tf 1 0 0 1 100 700 Tm 1e38 1e38 TD (z) Tj T* (w) Tj ET\n");
    brokenPage->prepareForSelection();
    EXPECT_NE(brokenPage->pageString().find("ok"), std::string::npos);
    brokenPage->closestCharPositionForPoint({100, 700});
    brokenPage->charPositionForPoint({100, 700}, nullptr);
}

TEST(KPPDFPageTextTest, TwoColumnFileReadsInColumnOrder) {
    // reportlab draws the left frame, then the right one, so pdftotext's raw order is the
    // column order; the lines of both columns share their baselines.
    const std::string dir = std::string(KPPDF_TEST_DATA) + "/text/accuracy/";
    auto document = openFile(dir + "twocolumn.pdf");
    ASSERT_NE(document, nullptr);
    auto page = document->pageAtIndex(0);
    page->prepareForSelection();
    EXPECT_TRUE(page->hasColumns());
    std::string oracle = readFile(dir + "twocolumn.txt");
    ASSERT_FALSE(oracle.empty());
    EXPECT_EQ(words(page->pageString()), words(oracle));
}
