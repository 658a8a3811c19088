#include <gtest/gtest.h>

#include <chrono>
#include <cmath>
#include <numeric>
#include <string>
#include <vector>

#include "kppdf/document/KPPDFDocument.h"
#include "kppdf/objects/KPPDFObjectStream.h"
#include "kppdf/page/KPPDFFont.h"
#include "kppdf/page/KPPDFGraphicsState.h"
#include "kppdf/page/KPPDFImage.h"
#include "kppdf/page/KPPDFPage.h"
#include "kppdf/page/KPPDFTextBlob.h"
#include "tests/support/LogCapture.h"
#include "tests/support/TestHelpers.h"

namespace {

// Helvetica widths (AFM, per 1000): H 722, e 556, l 222, o 556, space 278.
constexpr const char* kHelvetica =
    "<< /Type /Font /Subtype /Type1 /BaseFont /Helvetica /Encoding /WinAnsiEncoding >>";
constexpr const char* kCourier =
    "<< /Type /Font /Subtype /Type1 /BaseFont /Courier /Encoding /WinAnsiEncoding >>";
constexpr const char* kResources = "<< /Font << /F1 5 0 R /F2 6 0 R >> >>";

// A one-page document whose page (object 3) draws content (object 4) with resources; fonts F1
// (Helvetica, object 5) and F2 (Courier, object 6). Callers add objects from 7 on.
TestPDFBuilder pageBuilder(const std::string& content, const std::string& resources = kResources,
                           const std::string& contents = "4 0 R") {
    TestPDFBuilder builder;
    builder.add(1, "<< /Type /Catalog /Pages 2 0 R >>");
    builder.add(2, "<< /Type /Pages /Kids [3 0 R] /Count 1 >>");
    builder.add(3, "<< /Type /Page /Parent 2 0 R /MediaBox [0 0 612 792] /Resources " + resources +
                       " /Contents " + contents + " >>");
    builder.addStream(4, "", content);
    builder.add(5, kHelvetica);
    builder.add(6, kCourier);
    return builder;
}

struct OpenPage {
    KPPDFRef<KPPDFDocument> document;
    KPPDFRef<KPPDFPage> page;
};

// Parses the content of the document's page at pageIndex.
OpenPage parsedPage(KPPDFRef<KPPDFDocument> document, uint32_t pageIndex = 0) {
    OpenPage result{std::move(document), nullptr};
    if (!result.document)
        return result;
    result.page = result.document->pageAtIndex(pageIndex);
    EXPECT_TRUE(result.page) << pageIndex;
    if (result.page)
        result.page->parseContent();
    return result;
}

OpenPage parsed(TestPDFBuilder& builder) {
    return parsedPage(openBytes(builder.build("/Root 1 0 R")));
}

OpenPage parsedContent(const std::string& content, const std::string& resources = kResources) {
    TestPDFBuilder builder = pageBuilder(content, resources);
    return parsed(builder);
}

OpenPage parsedFile(const std::string& name, uint32_t pageIndex = 0) {
    return parsedPage(openFile(dataPath(name)), pageIndex);
}

std::vector<std::string> strings(const KPPDFPage& page) {
    std::vector<std::string> out;
    for (const auto& blob : const_cast<KPPDFPage&>(page).textBlobs())
        out.push_back(blob->string());
    return out;
}

KPPDFRef<KPPDFTextBlob> blobWithText(KPPDFPage& page, const std::string& text) {
    for (const auto& blob : page.textBlobs())
        if (blob->string() == text)
            return blob;
    ADD_FAILURE() << "no blob '" << text << "'";
    return nullptr;
}

// The widths of a blob sum to its width and come one per character.
void expectWidthsInStep(const KPPDFTextBlob& blob) {
    uint32_t characters = 0;
    for (char c : blob.string())
        if ((static_cast<uint8_t>(c) & 0xC0) != 0x80)
            characters++;
    EXPECT_EQ(blob.nWidths(), characters) << blob.description();
    float sum = std::accumulate(blob.widths().begin(), blob.widths().end(), 0.0f);
    EXPECT_NEAR(sum, blob.width(), 0.01f) << blob.description();
}

// The operand's bytes as the blob records them.
std::string operandBytes(const KPPDFTextBlob& blob) {
    KPPDFData data = blob.contentObject()->decodedData();
    return std::string(data.view().substr(blob.dataRange().location, blob.dataRange().length));
}

} // namespace

TEST(KPPDFContent, MatricesAndStateStack) {
    // cm concatenates before the CTM: scale 2, then a translation by 10 in the scaled space.
    OpenPage open = parsedContent("2 0 0 2 0 0 cm 1 0 0 1 10 10 cm");
    ASSERT_TRUE(open.page);
    EXPECT_EQ(open.page->gstate()->CTM(), (KPPDFAffineTransform{2, 0, 0, 2, 20, 20}));

    // q/Q restore; a Q with nothing saved keeps the state instead of losing it.
    open = parsedContent("q 3 0 0 3 0 0 cm Q Q Q 1 0 0 1 5 6 cm");
    ASSERT_TRUE(open.page && open.page->gstate());
    EXPECT_EQ(open.page->gstate()->CTM(), (KPPDFAffineTransform{1, 0, 0, 1, 5, 6}));

    // Operators with missing or non-numeric operands change nothing.
    open = parsedContent("1 0 0 cm /A /B /C /D /E /F cm 1 0 0 1 1e5 0 cm 3 Tr 2 Ts");
    const KPPDFGraphicsState& gs = *open.page->gstate();
    EXPECT_EQ(gs.CTM(), KPPDFAffineTransform());
    EXPECT_EQ(gs.Tmode(), 3);
    EXPECT_EQ(gs.Trise(), 2);
}

TEST(KPPDFContent, LineMovesAndContinuedText) {
    // TD and T* use the same sign: the third line is 12 below the second.
    OpenPage open = parsedContent("BT /F1 10 Tf 10 20 Td (a) Tj 0 -12 TD (b) Tj T* (c) Tj ET");
    ASSERT_TRUE(open.page);
    ASSERT_EQ(strings(*open.page), (std::vector<std::string>{"a", "b", "c"}));
    auto& blobs = open.page->textBlobs();
    EXPECT_EQ(blobs[0]->location(), (KPPDFPoint{10, 20}));
    EXPECT_EQ(blobs[1]->location(), (KPPDFPoint{10, 8}));
    EXPECT_EQ(blobs[2]->location(), (KPPDFPoint{10, -4}));

    // A Tj after a Tj continues where the first ended: "Hello" is 0.5*(722+556+222+222+556).
    open = parsedContent("BT /F1 10 Tf 1 0 0 1 100 700 Tm (Hello) Tj ( ) Tj (o) Tj ET");
    ASSERT_EQ(open.page->textBlobs().size(), 3u);
    const auto& hello = *open.page->textBlobs()[0];
    EXPECT_NEAR(hello.width(), 22.78f, 0.001f);
    EXPECT_NEAR(open.page->textBlobs()[1]->location().x, 122.78f, 0.001f);
    EXPECT_NEAR(open.page->textBlobs()[2]->location().x, 122.78f + 2.78f, 0.001f);
    expectWidthsInStep(hello);
    EXPECT_NEAR(hello.widths()[0], 7.22f, 0.001f);
    // Helvetica's ascent and descent (718, -207) at 10 points.
    EXPECT_NEAR(hello.ascent(), 7.18f, 0.01f);
    EXPECT_NEAR(hello.descent(), -2.07f, 0.01f);
    EXPECT_EQ(operandBytes(hello), "(Hello)");

    // Character and word spacing and horizontal scaling: (Tc + w*size [+ Tw for 32]) * Th.
    open = parsedContent("BT /F2 10 Tf 1 Tc 2 Tw 200 Tz 0 0 Td (a b) Tj ET");
    ASSERT_EQ(open.page->textBlobs().size(), 1u);
    const auto& spaced = *open.page->textBlobs()[0];
    EXPECT_NEAR(spaced.widths()[0], (6 + 1) * 2.0f, 0.001f);
    EXPECT_NEAR(spaced.widths()[1], (6 + 1 + 2) * 2.0f, 0.001f);
    EXPECT_NEAR(spaced.width(), 14 + 18 + 14, 0.001f);
}

TEST(KPPDFContent, StringTokensArraysAndMoves) {
    LogCapture log;
    // Escapes, nested parentheses, comments, a "]" inside a string of an array, hex strings,
    // an unbalanced ")" and a "]TJ" written without a space.
    OpenPage open =
        parsedContent("BT /F1 12 Tf % (hidden) Tj\n"
                      "(\\(x\\) \\101\\\nB (n)) Tj <4142 4> Tj [(a]b) -300 (c)]TJ ) ET");
    ASSERT_TRUE(open.page);
    EXPECT_EQ(strings(*open.page), (std::vector<std::string>{"(x) AB (n)", "AB@", "a]b c"}));
    EXPECT_TRUE(log.contains("inString set, openStringChar not set"));

    // -250 is a word space (a move right of a quarter of the size); -50 and 120 are kerning.
    open = parsedContent("BT /F1 10 Tf 100 100 Td [(one) -250 (two) -50 (three)] TJ "
                         "0 -20 Td [(T) 120 (o)] TJ 0 -20 Td [-1000 (x) -2000] TJ (y) Tj ET");
    ASSERT_TRUE(open.page);
    ASSERT_EQ(strings(*open.page), (std::vector<std::string>{"one twothree", "To", "x", "y"}));
    const auto& words = *open.page->textBlobs()[0];
    expectWidthsInStep(words);
    // The inserted space is as wide as the move.
    EXPECT_NEAR(words.widths()[3], 2.5f, 0.001f);
    ASSERT_EQ(words.adjustments().size(), 2u);
    EXPECT_EQ(words.adjustments()[0], (KPPDFTextBlob::Adjustment{3, 3, -250, true}));
    EXPECT_EQ(words.adjustments()[1], (KPPDFTextBlob::Adjustment{6, 7, -50, false}));
    EXPECT_EQ(operandBytes(words), "[(one) -250 (two) -50 (three)]");

    // Kerning to the left narrows the run: T 611 + o 556 - 120, at 10 points.
    const auto& kerned = *open.page->textBlobs()[1];
    EXPECT_NEAR(kerned.width(), 10.47f, 0.001f);
    expectWidthsInStep(kerned);

    // A number before the first string moves the start; one after the last moves what
    // follows, but is not part of the run.
    const auto& x = *open.page->textBlobs()[2];
    EXPECT_NEAR(x.location().x, 110, 0.001f);
    EXPECT_NEAR(x.width(), 5, 0.001f);
    EXPECT_NEAR(open.page->textBlobs()[3]->location().x, 135, 0.001f);
}

TEST(KPPDFContent, TwoByteFontAndMissingFont) {
    TestPDFBuilder builder = pageBuilder(
        "BT /F3 10 Tf 100 100 Td <00010002> Tj <000100> Tj ET BT /F9 10 Tf 0 0 Td (ab) Tj ET",
        "<< /Font << /F3 7 0 R >> >>");
    builder.add(7, "<< /Type /Font /Subtype /Type0 /BaseFont /Test /Encoding /Identity-H "
                   "/DescendantFonts [8 0 R] /ToUnicode 9 0 R >>");
    builder.add(8, "<< /Type /Font /Subtype /CIDFontType2 /BaseFont /Test /CIDSystemInfo "
                   "<< /Registry (Adobe) /Ordering (Identity) /Supplement 0 >> /DW 1000 "
                   "/W [1 [500 600]] /FontDescriptor 10 0 R >>");
    builder.addStream(9, "", "2 beginbfchar\n<0001> <0041>\n<0002> <0042>\nendbfchar\n");
    builder.add(10, "<< /Type /FontDescriptor /FontName /Test /Ascent 800 /Descent -200 >>");
    OpenPage open = parsed(builder);
    ASSERT_TRUE(open.page);
    ASSERT_EQ(strings(*open.page), (std::vector<std::string>{"AB", "A", "ab"}));
    const auto& ab = *open.page->textBlobs()[0];
    ASSERT_EQ(ab.nWidths(), 2u);
    EXPECT_NEAR(ab.widths()[0], 5, 0.001f);
    EXPECT_NEAR(ab.widths()[1], 6, 0.001f);
    // The odd byte is half a code and is dropped.
    EXPECT_EQ(open.page->textBlobs()[1]->codes(), std::string("\0\1", 2));
    EXPECT_NEAR(open.page->textBlobs()[1]->location().x, 111, 0.001f);
    // A font the page does not have: Latin-1 text and a stand-in width.
    const auto& missing = *open.page->textBlobs()[2];
    EXPECT_EQ(missing.font(), nullptr);
    EXPECT_NEAR(missing.width(), 10, 0.001f);
}

TEST(KPPDFContent, FormsAndImages) {
    // The form names Courier F1 like the page names Helvetica; its text is read with its own
    // resources and its matrix, and the page's F1 is Helvetica again after it.
    TestPDFBuilder builder =
        pageBuilder("q 1 0 0 1 10 0 cm /Fm1 Do Q BT /F1 10 Tf 0 0 Td (after) Tj ET "
                    "q 200 0 0 100 50 60 cm /Im1 Do Q /Missing Do",
                    "<< /Font << /F1 5 0 R >> /XObject << /Fm1 7 0 R /Im1 8 0 R >> >>");
    builder.addStream(7,
                      "/Type /XObject /Subtype /Form /BBox [0 0 500 500] /Matrix [1 0 0 1 100 200] "
                      "/Resources << /Font << /F1 6 0 R >> >>",
                      "BT /F1 10 Tf (inside) Tj ET 5 0 0 5 0 0 cm");
    builder.addStream(8,
                      "/Type /XObject /Subtype /Image /Width 4 /Height 2 /ColorSpace /DeviceGray "
                      "/BitsPerComponent 8",
                      "01234567");
    OpenPage open = parsed(builder);
    ASSERT_TRUE(open.page);
    ASSERT_EQ(strings(*open.page), (std::vector<std::string>{"inside", "after"}));
    const auto& inside = *open.page->textBlobs()[0];
    EXPECT_EQ(inside.location(), (KPPDFPoint{110, 200}));
    EXPECT_EQ(inside.font()->fontName(), "Courier");
    EXPECT_NEAR(inside.width(), 36, 0.001f);
    EXPECT_EQ(inside.contentObject()->objectNumber(), 7u);
    EXPECT_EQ(operandBytes(inside), "(inside)");
    EXPECT_EQ(inside.gstate()->outerCTM(), (KPPDFAffineTransform{1, 0, 0, 1, 10, 0}));
    const auto& after = *open.page->textBlobs()[1];
    EXPECT_EQ(after.font()->fontName(), "Helvetica");
    EXPECT_EQ(after.location(), (KPPDFPoint{0, 0}));
    EXPECT_EQ(open.page->pageFonts()["F1"]->fontName(), "Helvetica");

    ASSERT_EQ(open.page->images().size(), 1u);
    const KPPDFImage& image = *open.page->images()[0];
    EXPECT_EQ(image.xObject()->objectNumber(), 8u);
    EXPECT_EQ(KPPDFMakeRect(image.x(), image.y(), image.width(), image.height()),
              KPPDFMakeRect(50, 60, 200, 100));
    EXPECT_EQ(image.gstate()->CTM(), (KPPDFAffineTransform{200, 0, 0, 100, 50, 60}));
    EXPECT_EQ(open.page->gstate()->CTM(), KPPDFAffineTransform());
}

TEST(KPPDFContent, FormsThatDrawThemselvesStop) {
    LogCapture log;
    // A draws itself; B and C draw each other.
    TestPDFBuilder builder =
        pageBuilder("/A Do /B Do BT /F1 10 Tf (end) Tj ET",
                    "<< /Font << /F1 5 0 R >> /XObject << /A 7 0 R /B 8 0 R /C 9 0 R >> >>");
    const std::string form = "/Type /XObject /Subtype /Form /BBox [0 0 1 1] "
                             "/Resources << /Font << /F1 5 0 R >> "
                             "/XObject << /A 7 0 R /B 8 0 R /C 9 0 R >> >>";
    builder.addStream(7, form, "BT /F1 10 Tf (a) Tj ET /A Do");
    builder.addStream(8, form, "BT /F1 10 Tf (b) Tj ET /C Do");
    builder.addStream(9, form, "BT /F1 10 Tf (c) Tj ET /B Do");
    OpenPage open = parsed(builder);
    ASSERT_TRUE(open.page);
    EXPECT_EQ(strings(*open.page), (std::vector<std::string>{"a", "b", "c", "end"}));
    EXPECT_TRUE(log.contains("draws itself"));

    // Forms that each draw the next one eight times, twelve deep: 8^12 draws unless the work is
    // bounded.
    std::string resources = "<< /Font << /F1 5 0 R >> /XObject << /L0 7 0 R >> >>";
    builder = pageBuilder("/L0 Do", resources);
    for (unsigned level = 0; level < 12; level++) {
        std::string next = "/L" + std::to_string(level + 1);
        std::string entries = "/Type /XObject /Subtype /Form /BBox [0 0 1 1] /Resources << "
                              "/Font << /F1 5 0 R >> /XObject << " +
                              next + " " + std::to_string(8 + level) + " 0 R >> >>";
        std::string draws = "BT /F1 1 Tf (x) Tj ET";
        for (int i = 0; i < 8; i++)
            draws += " " + next + " Do";
        builder.addStream(7 + level, entries, draws);
    }
    builder.addStream(19, "/Type /XObject /Subtype /Form /BBox [0 0 1 1]", "");
    auto started = std::chrono::steady_clock::now();
    open = parsed(builder);
    ASSERT_TRUE(open.page);
    EXPECT_LT(std::chrono::steady_clock::now() - started, std::chrono::seconds(60));
    EXPECT_TRUE(log.contains("more than"));
    EXPECT_FALSE(open.page->textBlobs().empty());
}

TEST(KPPDFContent, ContentSelectionInlineImagesAndColours) {
    LogCapture log;
    // Imprint streams are left out unless flattened; each blob points into its own stream.
    TestPDFBuilder builder =
        pageBuilder("BT /F1 10 Tf 0 0 Td (first) Tj", kResources, "[4 0 R 7 0 R 8 0 R 9 0 R]");
    builder.addStream(7, "/ParvelImprint 1", "(imprint) Tj");
    builder.addStream(8, "/ParvelImprint 1 /Flattened true", "(flattened) Tj");
    builder.addStream(9, "", "(second) Tj ET");
    OpenPage open = parsed(builder);
    ASSERT_TRUE(open.page);
    ASSERT_EQ(strings(*open.page), (std::vector<std::string>{"first", "flattened", "second"}));
    const auto& second = *open.page->textBlobs()[2];
    EXPECT_EQ(second.contentObject()->objectNumber(), 9u);
    EXPECT_EQ(second.dataRange(), KPPDFMakeRange(0, 8));
    EXPECT_EQ(operandBytes(second), "(second)");

    // Inline images are skipped, data and all, also when "EI" occurs inside them or lacks the
    // whitespace before it; one without EI runs to the end.
    open = parsedContent("BI /W 2 /H 2 /BPC 8 /CS /G ID \x01"
                         "EIx\x02 EI BT /F1 10 Tf (a) Tj ET "
                         "BI /W 1 /H 1 ID xyzEI BT /F1 10 Tf (b) Tj ET BI /W 1 ID (c) Tj");
    EXPECT_EQ(strings(*open.page), (std::vector<std::string>{"a", "b"}));
    EXPECT_TRUE(log.contains("Found EI w/o preceeding whitespace in inline image"));

    // Colours: device operators, and named spaces through the ColorSpace resources.
    TestPDFBuilder colours = pageBuilder(
        "BT /F1 10 Tf 1 0 0 rg 0 0 1 RG (red) Tj 1 0 0 0 k (cyan) Tj /CS0 cs 0.25 sc (icc) Tj "
        "/CS1 cs 0 1 0 scn (alt) Tj /Pattern cs /P1 scn /Nowhere cs (pattern) Tj ET",
        "<< /Font << /F1 5 0 R >> /ColorSpace << /CS0 [/ICCBased 7 0 R] /CS1 [/ICCBased 8 0 R] "
        ">> >>");
    colours.addStream(7, "/N 1", "");
    colours.addStream(8, "/N 4 /Alternate /DeviceRGB", "");
    open = parsed(colours);
    ASSERT_EQ(open.page->textBlobs().size(), 5u);
    // ICC spaces go by their number of components or their alternate; a pattern keeps the
    // colour, and an unknown name keeps the space.
    const std::pair<int32_t, KPPDFColor> expected[] = {
        {KPPDFColorSpaceDeviceRGB, KPPDFColor::redColor()},
        {KPPDFColorSpaceDeviceCMYK, KPPDFColor::colorWithRed(0, 1, 1)},
        {KPPDFColorSpaceDeviceGray, KPPDFColor::colorWithWhite(0.25f)},
        {KPPDFColorSpaceDeviceRGB, KPPDFColor::colorWithRed(0, 1, 0)},
        {KPPDFColorSpacePattern, KPPDFColor::colorWithRed(0, 1, 0)}};
    for (size_t i = 0; i < 5; i++) {
        SCOPED_TRACE(i);
        EXPECT_EQ(open.page->textBlobs()[i]->gstate()->nonstrokeColorSpace(), expected[i].first);
        EXPECT_EQ(*open.page->textBlobs()[i]->gstate()->nonstrokeColor(), expected[i].second);
    }
    EXPECT_EQ(*open.page->textBlobs()[0]->gstate()->strokeColor(), KPPDFColor::blueColor());
}

TEST(KPPDFContent, ParseTextBlobsRefusesBadRanges) {
    LogCapture log;
    OpenPage open = parsedContent("BT /F1 10 Tf (abc) Tj ET");
    ASSERT_TRUE(open.page);
    ASSERT_EQ(open.page->textBlobs().size(), 1u);
    KPPDFRef<KPPDFObjectStream> stream = open.page->textBlobs()[0]->contentObject();
    size_t length = stream->decodedData().length();
    open.page->parseTextBlobs(stream, KPPDFMakeRange(static_cast<uint32_t>(length) - 2, 5));
    open.page->parseTextBlobs(stream, KPPDFMakeRange(UINT32_MAX, 2));
    open.page->parseTextBlobs(stream, KPPDFMakeRange(0, 0));
    open.page->parseTextBlobs(nullptr, KPPDFMakeRange(0, 1));
    EXPECT_EQ(open.page->textBlobs().size(), 1u);
    EXPECT_TRUE(log.contains("outside its content stream"));
    // "ET" is no operand; a string cut short at the end of the data is read as far as it goes.
    open.page->parseTextBlobs(stream, KPPDFMakeRange(static_cast<uint32_t>(length) - 2, 2));
    open.page->parseTextBlobs(
        KPPDFObjectStream::streamWithData(KPPDFData::dataWithString("(ab"), KPPDFMakeRange(0, 3)),
        KPPDFMakeRange(0, 3));
    ASSERT_EQ(open.page->textBlobs().size(), 2u);
    EXPECT_EQ(open.page->textBlobs()[1]->string(), "ab");
}

// Positions and widths against pdftotext -bbox-layout on the reportlab fixtures and
// tests/data/sample.pdf.
TEST(KPPDFContent, BlobsFromRealFiles) {
    constexpr float kAny = NAN; // not checked
    struct Placed {
        const char* file;
        uint32_t page;
        const char* text;
        float x, y, maxX, width;
    };
    const Placed placed[] = {
        {"text/fonts.pdf", 0, "Helvetica at twelve points", 72, 720, 207.384f, kAny},
        {"text/fonts.pdf", 0, "Times Roman at fourteen", kAny, kAny, 214.702f, kAny},
        {"text/fonts.pdf", 0, "Courier ten", kAny, kAny, kAny, 66},
        // A text object of lines moved with TL and T*.
        {"text/fonts.pdf", 0, "first line", 72, 600, kAny, kAny},
        {"text/fonts.pdf", 0, "second line", 72, 585, kAny, kAny},
        {"text/fonts.pdf", 0, "third line", 72, 570, kAny, kAny},
        {"text/fonts.pdf", 0, " world", 102.672f, kAny, 134.676f, kAny},
        {"text/kerning.pdf", 0, "indented", 84, kAny, kAny, kAny},
        // Widths run along the baseline, whatever the matrices.
        {"text/rotated.pdf", 0, "turned a quarter", 300, 300, kAny, 12 * 0.001f * 7115},
        {"text/rotated.pdf", 0, "doubled", 72, 600, kAny, kAny},
        {"text/rotated.pdf", 0, "2", kAny, 405, kAny, kAny},
        // Page 3 turns its text a quarter (0 1 -1 0 612 0 cm): Tm 54 540 lands at 72 54, and
        // the Courier table keeps its runs of spaces.
        {"sample.pdf", 2, "Table of Paper Sizes", 72, 54, kAny, kAny},
        {"sample.pdf", 2, "Name        Width x Height (mm)   Width x Height (pt)   Used for", kAny,
         kAny, kAny, 64 * 6},
    };
    OpenPage open;
    std::string openName;
    for (const Placed& p : placed) {
        SCOPED_TRACE(p.text);
        std::string name = std::string(p.file) + "#" + std::to_string(p.page);
        if (name != openName) {
            open = parsedFile(p.file, p.page);
            openName = name;
            ASSERT_TRUE(open.page);
            for (const auto& blob : open.page->textBlobs())
                expectWidthsInStep(*blob);
        }
        auto blob = blobWithText(*open.page, p.text);
        ASSERT_TRUE(blob);
        const float found[] = {blob->location().x, blob->location().y, blob->maxX(), blob->width()};
        const float wanted[] = {p.x, p.y, p.maxX, p.width};
        for (int i = 0; i < 4; i++) {
            // Positions set by the content exactly, or read from pdftotext to three places.
            float tolerance = i < 2 && wanted[i] == std::round(wanted[i]) ? 0.001f : 0.01f;
            if (!std::isnan(wanted[i])) {
                EXPECT_NEAR(found[i], wanted[i], tolerance) << i;
            }
        }
    }

    // Moves of a tenth of the size or more part words, as pdftotext reads them.
    open = parsedFile("text/kerning.pdf");
    ASSERT_TRUE(open.page);
    std::vector<std::string> expected(7, "one twothree");
    expected.insert(expected.end(), {"onetwothree", "Waves and Toy", "indented"});
    EXPECT_EQ(strings(*open.page), expected);

    // Heights run across the baseline; a raised "2" starts where its base ends.
    open = parsedFile("text/rotated.pdf");
    ASSERT_TRUE(open.page);
    auto doubled = blobWithText(*open.page, "doubled");
    auto matrixSized = blobWithText(*open.page, "matrix sized");
    auto squared = blobWithText(*open.page, "2");
    auto base = blobWithText(*open.page, "E = mc");
    ASSERT_TRUE(doubled && matrixSized && squared && base);
    EXPECT_NEAR(doubled->height(), 2 * 12 * (0.718f + 0.207f), 0.01f);
    EXPECT_NEAR(matrixSized->height(), 12 * (0.718f + 0.207f), 0.01f);
    EXPECT_NEAR(squared->location().x, base->maxX(), 0.001f);

    // A form drawn twice, translated and then doubled.
    open = parsedFile("text/form.pdf");
    ASSERT_TRUE(open.page);
    ASSERT_EQ(strings(*open.page),
              (std::vector<std::string>{"Page text before the form", "Inside the form",
                                        "Inside the form", "Page text after the form"}));
    const auto& blobs = open.page->textBlobs();
    EXPECT_EQ(blobs[1]->location(), (KPPDFPoint{100, 500}));
    EXPECT_NEAR(blobs[1]->width(), 90, 0.001f);
    EXPECT_EQ(blobs[2]->location(), (KPPDFPoint{100, 400}));
    EXPECT_NEAR(blobs[2]->width(), 180, 0.001f);
    EXPECT_EQ(blobs[3]->font()->fontName(), "Helvetica");
    EXPECT_EQ(blobs[3]->location(), (KPPDFPoint{72, 300}));
}
