#include "kppdf/platform/KPPDFAttributedString.h"

#include <gtest/gtest.h>

namespace {

KPPDFTextAttributes red() {
    KPPDFTextAttributes attributes;
    attributes.foregroundColor = KPPDFColor::redColor();
    return attributes;
}

KPPDFTextAttributes link(const char* url) {
    KPPDFTextAttributes attributes;
    attributes.link = url;
    return attributes;
}

std::vector<KPPDFAttributedString::Run>
runs(std::initializer_list<std::pair<KPPDFRange, KPPDFTextAttributes>> list) {
    std::vector<KPPDFAttributedString::Run> out;
    for (const auto& [range, attributes] : list)
        out.push_back({range, attributes});
    return out;
}

} // namespace

TEST(KPPDFAttributedStringTest, AppendMergesEqualNeighbours) {
    KPPDFAttributedString text("Hello", red());
    text.append(", ", red());
    text.append("world");
    text.append("");
    text.append("!");
    EXPECT_EQ(text.string(), "Hello, world!");
    EXPECT_EQ(text.runs(), runs({{{0, 7}, red()}, {{7, 6}, {}}}));

    KPPDFRange range;
    EXPECT_EQ(text.attributesAtIndex(3, &range), red());
    EXPECT_EQ(range, KPPDFMakeRange(0, 7));
    EXPECT_EQ(text.attributesAtIndex(13, &range), KPPDFTextAttributes{});
    EXPECT_EQ(range, KPPDFMakeRange(13, 0));

    // Appending a string to itself, where the first appended run merges with the last one.
    KPPDFAttributedString twice("a", red());
    twice.append("b");
    twice.append("c", red());
    twice.append(twice);
    EXPECT_EQ(twice.string(), "abcabc");
    EXPECT_EQ(
        twice.runs(),
        runs({{{0, 1}, red()}, {{1, 1}, {}}, {{2, 2}, red()}, {{4, 1}, {}}, {{5, 1}, red()}}));
}

TEST(KPPDFAttributedStringTest, ReplaceTakesTheAttributesWhereTheMatchStarts) {
    KPPDFAttributedString text("ab", red());
    text.append("cd--ab", link("u"));
    // "bc" starts in the red run and spans into the link run.
    text.replaceOccurrences("bc", "XYZ");
    EXPECT_EQ(text.string(), "aXYZd--ab");
    EXPECT_EQ(text.runs(), runs({{{0, 4}, red()}, {{4, 5}, link("u")}}));

    // Removal joins the runs around it; nothing overlaps; the scan restarts after a match.
    KPPDFAttributedString dashes("a", red());
    dashes.append("---", {});
    dashes.append("a", red());
    dashes.replaceOccurrences("---", "");
    EXPECT_EQ(dashes.string(), "aa");
    EXPECT_EQ(dashes.runs(), runs({{{0, 2}, red()}}));

    KPPDFAttributedString overlapping("aaaaa");
    overlapping.replaceOccurrences("aa", "b");
    EXPECT_EQ(overlapping.string(), "bba");
    // A pattern that makes a naive search backtrack; an empty one, or one longer than the
    // text, changes nothing.
    KPPDFAttributedString tricky("aabaabaaab");
    tricky.replaceOccurrences("aaab", "#");
    tricky.replaceOccurrences("", "x");
    tricky.replaceOccurrences("a pattern longer than the text", "x");
    EXPECT_EQ(tricky.string(), "aabaab#");

    // Many matches in a long text: a rebuild per match would take minutes here.
    std::string big(400000, 'x');
    KPPDFAttributedString large(big);
    large.replaceOccurrences("xx", "y");
    EXPECT_EQ(large.length(), 200000u);
    EXPECT_EQ(large.runs().size(), 1u);
}
