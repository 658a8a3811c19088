#include <gtest/gtest.h>

#include <fstream>
#include <map>
#include <sstream>
#include <string>

#include "kppdf/page/KPPDFBaseline.h"
#include "kppdf/page/KPPDFGap.h"
#include "kppdf/page/KPPDFTextBlob.h"
#include "kppdf/page/internal/KPPDFTextUnicode.h"

namespace {

// A blob of text at (x, y) whose characters are each `advance` wide, at range in the page string.
KPPDFRef<KPPDFTextBlob> makeBlob(float x, float y, const std::string& text, float advance,
                                 KPPDFRange range, float ascent = 8, float descent = -2) {
    auto blob = KPPDFTextBlob::textBlobAt({x, y}, ascent, descent, nullptr, nullptr, {}, text);
    size_t characters = 0;
    for (size_t i = 0; i < text.size(); i += kppdf_text::utf8SequenceLength(text, i))
        characters++;
    blob->setWidths(std::vector<float>(characters, advance));
    blob->setWidth(advance * float(characters));
    blob->setRangeInPageString(range);
    return blob;
}

} // namespace

TEST(KPPDFBaselineTest, BoundsAndHitTest) {
    auto line = KPPDFBaseline::baselineWithBlobs(
        {makeBlob(10, 100, "abc", 10, {0, 3}), makeBlob(50, 100, "de\n", 10, {3, 3}, 12, -4)},
        {0, 6});
    // Width runs to the last blob's end; height is the tallest blob, not the span of both.
    EXPECT_EQ(line->bounds(), KPPDFMakeRect(10, 96, 70, 16));
    EXPECT_TRUE(line->hitTest({10, 96}));
    EXPECT_TRUE(line->hitTest({79.9f, 111.9f}));
    EXPECT_FALSE(line->hitTest({80, 100}));
    EXPECT_FALSE(line->hitTest({20, 112}));

    // Descents above zero do not lift the box; no blobs give the zero rectangle.
    auto raised = KPPDFBaseline::baselineWithBlobs({makeBlob(0, 50, "x", 5, {0, 1}, 8, 0)}, {0, 1});
    EXPECT_EQ(raised->bounds(), KPPDFMakeRect(0, 50, 5, 8));
    auto empty = KPPDFBaseline::baselineWithBlobs({}, {0, 0});
    EXPECT_EQ(empty->bounds(), KPPDFRect{});
    EXPECT_FALSE(empty->hitTest({0, 0}));
    // New blobs drop the bounds that were set.
    line->setBounds(KPPDFMakeRect(0, 0, 1, 1));
    line->setBlobs(line->blobs());
    EXPECT_EQ(line->bounds(), KPPDFMakeRect(10, 96, 70, 16));
}

TEST(KPPDFBaselineTest, CharacterPositionsCountBytesOfThePageString) {
    // "abc" then "d\u00e9f\n": the accented letter takes two bytes of the page string.
    auto first = makeBlob(10, 100, "abc", 10, {0, 3});
    auto second = makeBlob(50, 100,
                           "d\xC3\xA9"
                           "f\n",
                           10, {3, 5});
    auto line = KPPDFBaseline::baselineWithBlobs({first, second}, {0, 8});
    // Not right of any blob's start: -1; in the gap: the first blob's last character; past the
    // accented letter: after its two bytes; the newline has no width of its own; y is not
    // looked at.
    const std::pair<float, int> positions[] = {{10, -1}, {15, 0}, {45, 2}, {55, 3},
                                               {65, 4},  {75, 6}, {500, 7}};
    for (const auto& [x, position] : positions) {
        EXPECT_EQ(line->charPositionForPoint({x, 0}), position) << x;
        EXPECT_EQ(line->charPositionForPoint({x, -1000}), position) << x;
    }

    EXPECT_EQ(line->blobsFromCharPosition(0, 4), (KPPDFBaseline::BlobList{first, second}));
    EXPECT_EQ(line->blobsFromCharPosition(4, 100), (KPPDFBaseline::BlobList{second}));
    EXPECT_EQ(line->blobsFromCharPosition(1, 2), (KPPDFBaseline::BlobList{first}));
    EXPECT_TRUE(line->blobsFromCharPosition(8, 9).empty());
    EXPECT_TRUE(line->blobsFromCharPosition(-1, 2).empty());
}

TEST(KPPDFBaselineTest, GapsBetweenBlobs) {
    // Blobs end at 10, 28 and 50; the gaps are 8 and 12 wide.
    auto line = KPPDFBaseline::baselineWithBlobs({makeBlob(0, 0, "a", 10, {0, 1}),
                                                  makeBlob(18, 0, "b", 10, {1, 1}),
                                                  makeBlob(40, 0, "c\n", 5, {2, 2})},
                                                 {0, 4});
    EXPECT_EQ(line->findFirstGapOfWidth(8.0f), (KPPDFGap{10, 8}));
    EXPECT_EQ(line->findFirstGapOfWidth(8.01f), (KPPDFGap{28, 12}));
    EXPECT_TRUE(KPPDFIsEmptyGap(line->findFirstGapOfWidth(12.01f)));

    // A gap the line leaves free comes back whole: after the line, or before it.
    EXPECT_EQ(line->findGapInGap({60, 20}, 5), (KPPDFGap{60, 20}));
    EXPECT_EQ(line->findGapInGap({-40, 30}, 5), (KPPDFGap{-40, 30}));
    // A gap across the line keeps only what the line's own first gap leaves of it.
    EXPECT_EQ(line->findGapInGap({5, 30}, 5), (KPPDFGap{10, 8}));
    EXPECT_EQ(line->findGapInGap({14, 30}, 5), (KPPDFGap{14, 4}));
    EXPECT_TRUE(KPPDFIsEmptyGap(line->findGapInGap({5, 30}, 20)));
}

TEST(KPPDFBaselineTest, SplitAndRebuild) {
    KPPDFTextAttributes red;
    red.foregroundColor = KPPDFColor::redColor();
    KPPDFTextAttributes blue;
    blue.foregroundColor = KPPDFColor::blueColor();
    KPPDFAttributedString old;
    old.append("one ", red);
    old.append("twothree\nab", blue);
    old.append("cd\n", red);

    auto one = makeBlob(0, 100, "one ", 10, {0, 4});
    auto two = makeBlob(60, 100, "two", 10, {4, 3});
    auto three = makeBlob(100, 100, "three\n", 10, {7, 6});
    auto line = KPPDFBaseline::baselineWithBlobs({one, two, three}, {0, 13});
    EXPECT_EQ(line->splitBaselineAtXPos(200), nullptr); // every blob ends left of it
    EXPECT_EQ(line->splitBaselineAtXPos(-5), nullptr);  // none would stay
    EXPECT_EQ(line->bounds().size.width, 160);          // the newline has a width here

    auto tail = line->splitBaselineAtXPos(55);
    ASSERT_NE(tail, nullptr);
    EXPECT_EQ(line->blobs(), (KPPDFBaseline::BlobList{one}));
    EXPECT_EQ(line->rangeInPageString(), KPPDFMakeRange(0, 4));
    EXPECT_TRUE(line->needsNewline());
    EXPECT_EQ(line->bounds().size.width, 40); // recalculated
    EXPECT_EQ(tail->blobs(), (KPPDFBaseline::BlobList{two, three}));
    EXPECT_EQ(tail->rangeInPageString(), KPPDFMakeRange(4, 9));
    EXPECT_FALSE(tail->needsNewline());

    // Without a trailing space the newline is added to the last blob.
    auto ab = makeBlob(0, 50, "ab", 10, {13, 2});
    auto cd = makeBlob(40, 50, "cd\n", 10, {15, 3});
    auto second = KPPDFBaseline::baselineWithBlobs({ab, cd}, {13, 5});
    auto secondTail = second->splitBaselineAtXPos(30);
    ASSERT_NE(secondTail, nullptr);

    // Rebuilt in another order: each line's text moves, the split ones end in newlines.
    KPPDFAttributedString rebuilt;
    second->addBaselineBlobsToPageString(rebuilt, old);
    tail->addBaselineBlobsToPageString(rebuilt, old);
    line->addBaselineBlobsToPageString(rebuilt, old);
    secondTail->addBaselineBlobsToPageString(rebuilt, old);
    EXPECT_EQ(rebuilt.string(), "ab\ntwothree\none\ncd\n");
    EXPECT_EQ(ab->rangeInPageString(), KPPDFMakeRange(0, 3));
    EXPECT_EQ(second->rangeInPageString(), KPPDFMakeRange(0, 3));
    EXPECT_EQ(two->rangeInPageString(), KPPDFMakeRange(3, 3));
    EXPECT_EQ(three->rangeInPageString(), KPPDFMakeRange(6, 6));
    EXPECT_EQ(tail->rangeInPageString(), KPPDFMakeRange(3, 9));
    EXPECT_EQ(one->rangeInPageString(), KPPDFMakeRange(12, 4));
    EXPECT_EQ(cd->rangeInPageString(), KPPDFMakeRange(16, 3));
    EXPECT_FALSE(line->needsNewline());
    EXPECT_FALSE(second->needsNewline());
    // Text keeps its attributes; the newline that replaced the space keeps the space's.
    EXPECT_EQ(rebuilt.attributesAtIndex(0), blue);
    EXPECT_EQ(rebuilt.attributesAtIndex(12), red);
    EXPECT_EQ(rebuilt.attributesAtIndex(15), red);
    EXPECT_EQ(rebuilt.attributesAtIndex(16), red);
}

TEST(KPPDFBaselineTest, RectangleOfARange) {
    auto one = makeBlob(0, 100, "one ", 10, {0, 4}, 8, -2);
    auto two = makeBlob(60, 100, "two\n", 10, {4, 4}, 8, -2);
    auto line = KPPDFBaseline::baselineWithBlobs({one, two}, {0, 8});
    // "ne " and "tw": from the second character of the first blob to the second of the next.
    EXPECT_EQ(line->rectForRangeInPageString({1, 5}), KPPDFMakeRect(10, 98, 70, 10));
    EXPECT_EQ(line->rectForRangeInPageString({5, 1}), KPPDFMakeRect(70, 98, 10, 10));
    EXPECT_EQ(line->rectForRangeInPageString({20, 3}), KPPDFRect{});
}

TEST(KPPDFBaselineTest, UTF8Helpers) {
    using namespace kppdf_text;
    EXPECT_EQ(decodeUTF8("\xF0\x9F\x98\x80", 0), U'\U0001F600');
    EXPECT_EQ(utf16Length(U'\U0001F600'), 2u);
    // Malformed bytes read as U+FFFD one byte at a time; nothing is read past the end.
    EXPECT_EQ(decodeUTF8("\xC3", 0), U'\uFFFD');
    EXPECT_EQ(utf8SequenceLength("\xC0\xAF", 0), 1u);
    EXPECT_EQ(decodeUTF8("\xED\xA0\x80", 0), U'\uFFFD'); // a surrogate
    EXPECT_EQ(utf8SequenceLength("a", 1), 0u);
    EXPECT_EQ(lastCharacterStart("a\xE2\x82\xAC"), 1u);
    EXPECT_EQ(lastCharacterStart("ab\x82"), 2u);
    EXPECT_EQ(lastCharacterStart(""), 0u);
}

TEST(KPPDFBaselineTest, SimpleCaseFolding) {
    using kppdf_text::simpleCaseFold;
    EXPECT_EQ(simpleCaseFold(U'\u0178'), U'\u00FF');
    EXPECT_EQ(simpleCaseFold(U'\u0130'), U'\u0130'); // only full or Turkic folding changes it
    EXPECT_EQ(simpleCaseFold(U'\u03C2'), U'\u03C3');
    EXPECT_EQ(simpleCaseFold(U'\u212A'), U'k');

    // Against the Unicode data, where the system has it, over every block the folding covers.
    std::ifstream file("/usr/share/unicode/CaseFolding.txt");
    if (!file)
        GTEST_SKIP() << "no /usr/share/unicode/CaseFolding.txt";
    auto covered = [](char32_t c) {
        return c < 0x0250 || (c >= 0x0345 && c < 0x0557) || (c >= 0x10A0 && c < 0x10D0) ||
               (c >= 0x1C80 && c < 0x1CC0) || (c >= 0x1E00 && c < 0x2000) ||
               (c >= 0x2126 && c <= 0x212B) || (c >= 0xA640 && c < 0xA6A0) ||
               (c >= 0xFF21 && c <= 0xFF3A);
    };
    std::map<char32_t, char32_t> expected;
    std::string row;
    while (std::getline(file, row)) {
        if (row.empty() || row[0] == '#')
            continue;
        std::istringstream fields(row);
        std::string code, status, mapping;
        std::getline(fields, code, ';');
        std::getline(fields, status, ';');
        std::getline(fields, mapping, ';');
        if (status == " C" || status == " S")
            expected[char32_t(std::stoul(code, nullptr, 16))] =
                char32_t(std::stoul(mapping, nullptr, 16));
    }
    ASSERT_GT(expected.size(), 1000u);
    int checked = 0;
    for (char32_t c = 0; c < 0x10000; c++) {
        if (!covered(c))
            continue;
        auto found = expected.find(c);
        char32_t want = found == expected.end() ? c : found->second;
        EXPECT_EQ(uint32_t(simpleCaseFold(c)), uint32_t(want)) << std::hex << uint32_t(c);
        checked++;
    }
    EXPECT_GT(checked, 1800);
}
