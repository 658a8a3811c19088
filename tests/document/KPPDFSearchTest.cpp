#include <gtest/gtest.h>

#include <sstream>
#include <string>

#include "kppdf/document/KPPDFDocument.h"
#include "kppdf/document/KPPDFSearchResult.h"
#include "kppdf/page/KPPDFPage.h"
#include "kppdf/platform/KPPDFTextEncoding.h"
#include "support/TestHelpers.h"

namespace {

const std::string kAccuracy = std::string(KPPDF_TEST_DATA) + "/text/accuracy/";

// Pages of text in a font whose characters are all 5 wide at size 10 (ascent 8, descent 2);
// each string of a page is one line, from y 700 down in steps of 20, starting at x 100.
KPPDFRef<KPPDFDocument> documentWithPages(const std::vector<std::vector<std::string>>& pages) {
    TestPDFBuilder b;
    std::string kids;
    unsigned next = 10;
    for (const auto& lines : pages) {
        std::string content;
        int y = 700;
        for (const auto& line : lines) {
            content += "BT /F1 10 Tf 100 " + std::to_string(y) + " Td (" + line + ") Tj ET\n";
            y -= 20;
        }
        b.add(next, "<< /Type /Page /Parent 2 0 R /MediaBox [0 0 612 792] /Resources << /Font "
                    "<< /F1 3 0 R >> >> /Contents " +
                        std::to_string(next + 1) + " 0 R >>");
        b.addStream(next + 1, "", content);
        kids += std::to_string(next) + " 0 R ";
        next += 2;
    }
    std::string widths;
    for (int i = 32; i <= 255; i++)
        widths += "500 ";
    b.add(1, "<< /Type /Catalog /Pages 2 0 R >>");
    b.add(2, "<< /Type /Pages /Kids [" + kids + "] /Count " + std::to_string(pages.size()) + " >>");
    b.add(3,
          "<< /Type /Font /Subtype /Type1 /BaseFont /Boxy /FirstChar 32 /LastChar 255 /Widths [" +
              widths + "] /Encoding /WinAnsiEncoding /FontDescriptor 4 0 R >>");
    b.add(4, "<< /Type /FontDescriptor /FontName /Boxy /Flags 32 /Ascent 800 /Descent -200 >>");
    return openBytes(b.build("/Root 1 0 R"));
}

// The page string's characters at a UTF-16 range, as UTF-8.
std::string textAt(KPPDFDocument& document, const KPPDFSearchResult& hit) {
    std::u16string units =
        KPPDFTextEncoding::utf8ToUTF16Units(document.pageAtIndex(hit.pageIndex)->pageString());
    return KPPDFTextEncoding::utf16UnitsToUTF8(units.substr(hit.range.location, hit.range.length));
}

size_t countIn(const std::string& text, const std::string& what) {
    size_t count = 0;
    for (size_t at = text.find(what); at != std::string::npos;
         at = text.find(what, at + what.size()))
        count++;
    return count;
}

// Every white-space run as one space.
std::string collapsed(const std::string& text) {
    std::istringstream in(text);
    std::string word, out;
    while (in >> word)
        out += (out.empty() ? "" : " ") + word;
    return out;
}

} // namespace

TEST(KPPDFSearchTest, FindsOnPagesWithAndWithoutCaseAndAcrossLines) {
    auto document = documentWithPages({{"Hello World", "hello   again"}, {"world aaaa ends"}});
    ASSERT_NE(document, nullptr);
    ASSERT_EQ(document->pageCount(), 2u);

    auto exact = document->findString("hello");
    ASSERT_EQ(exact.size(), 1u);
    EXPECT_EQ(exact[0].pageIndex, 0u);
    EXPECT_EQ(exact[0].range, KPPDFMakeRange(12, 5));
    // "hello" on the second line: x 100 to 125, y 678 to 688.
    EXPECT_EQ(exact[0].rects, (std::vector<KPPDFRect>{KPPDFMakeRect(100, 678, 25, 10)}));

    auto any = document->findString("WORLD", KPPDFSearchCaseInsensitive);
    ASSERT_EQ(any.size(), 2u);
    EXPECT_EQ(any[0].pageIndex, 0u);
    EXPECT_EQ(any[0].range, KPPDFMakeRange(6, 5));
    EXPECT_EQ(any[0].rects, (std::vector<KPPDFRect>{KPPDFMakeRect(130, 698, 25, 10)}));
    EXPECT_EQ(any[1].pageIndex, 1u);
    EXPECT_EQ(any[1].range, KPPDFMakeRange(0, 5));
    EXPECT_TRUE(document->findString("WORLD").empty());

    // Occurrences do not overlap.
    auto pairs = document->findStringOnPage("aa", 1);
    ASSERT_EQ(pairs.size(), 2u);
    EXPECT_EQ(pairs[0].range, KPPDFMakeRange(6, 2));
    EXPECT_EQ(pairs[1].range, KPPDFMakeRange(8, 2));
    EXPECT_TRUE(document->findStringOnPage("aa", 0).empty());

    EXPECT_TRUE(document->findString("").empty());
    EXPECT_TRUE(document->findString(" \n ").empty());
    EXPECT_TRUE(document->findStringOnPage("world", 7).empty());

    // The query's spaces match the line break, and one space matches three.
    auto phrase = document->findString("world hello again", KPPDFSearchCaseInsensitive);
    ASSERT_EQ(phrase.size(), 1u);
    EXPECT_EQ(textAt(*document, phrase[0]), "World\nhello   again");
    ASSERT_EQ(phrase[0].rects.size(), 2u);
    EXPECT_EQ(phrase[0].rects[0], KPPDFMakeRect(130, 698, 25, 10)); // the newline has no width
    EXPECT_EQ(phrase[0].rects[1], KPPDFMakeRect(100, 678, 65, 10));
    EXPECT_EQ(document->findString("World\t\n hello").size(), 1u);
    EXPECT_TRUE(document->findString("Worldhello").empty());
}

TEST(KPPDFSearchTest, UnicodeCaseAndUTF16Positions) {
    auto document = openFile(kAccuracy + "truetype.pdf");
    ASSERT_NE(document, nullptr);
    struct Case {
        const char* query;
        const char* found;
    };
    const Case cases[] = {
        {"\xCE\xB5\xCE\xBB\xCE\xBB\xCE\xB7\xCE\xBD\xCE\xB9\xCE\xBA\xCE\xAC",  // ελληνικά
         "\xCE\x95\xCE\xBB\xCE\xBB\xCE\xB7\xCE\xBD\xCE\xB9\xCE\xBA\xCE\xAC"}, // Ελληνικά
        {"\xCE\xA3\xCE\xA4\xCE\x8A\xCE\x9E\xCE\x97\xCE\xA3",                  // ΣΤΊΞΗΣ
         "\xCF\x83\xCF\x84\xCE\xAF\xCE\xBE\xCE\xB7\xCF\x82"},                 // στίξης
        {"GR\xC3\x9C\xC3\x9F"
         "E",
         "Gr\xC3\xBC\xC3\x9F"
         "e"}, // GRÜßE
    };
    for (const Case& c : cases) {
        auto hits = document->findString(c.query, KPPDFSearchCaseInsensitive);
        ASSERT_GE(hits.size(), 1u) << c.found;
        EXPECT_EQ(textAt(*document, hits[0]), c.found);
        ASSERT_FALSE(hits[0].rects.empty());
        for (const KPPDFRect& r : hits[0].rects) {
            EXPECT_GT(r.size.width, 0);
            EXPECT_GT(r.size.height, 0);
            EXPECT_GE(r.origin.x, 0);
            EXPECT_LE(r.origin.x + r.size.width, 596);
        }
        // Without the option the other case is not found.
        EXPECT_TRUE(document->findString(c.query).empty()) << c.found;
    }
}

TEST(KPPDFSearchTest, CountsAgreeWithPdftotext) {
    // Phrases counted in pdftotext's text of the same file, its line breaks read as spaces.
    auto document = openFile(kAccuracy + "standard.pdf");
    ASSERT_NE(document, nullptr);
    std::string oracle = collapsed(readFile(kAccuracy + "standard.txt"));
    for (const char* phrase :
         {"levee", "the miller", "the levee higher", "every spring", "r\xC3\xA9sum\xC3\xA9",
          "\xE2\x80\x9Cquoted\xE2\x80\x9D words", "o'clock that afternoon"}) {
        size_t expected = countIn(oracle, phrase);
        ASSERT_GT(expected, 0u) << phrase;
        auto hits = document->findString(phrase);
        EXPECT_EQ(hits.size(), expected) << phrase;
        for (const auto& hit : hits)
            EXPECT_EQ(collapsed(textAt(*document, hit)), phrase);
    }
}
