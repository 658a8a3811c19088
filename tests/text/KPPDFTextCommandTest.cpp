// The kppdf command's text, search and fonts subcommands, run as a user runs them.
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include <map>
#include <string>

#include "kppdf/document/KPPDFDocument.h"
#include "kppdf/page/KPPDFPage.h"
#include "tests/support/ToolRunner.h"

namespace {

const std::string kDir = std::string(KPPDF_TEST_DATA) + "/text/accuracy/";

struct ToolRun {
    int status = -1;
    std::string out;
};

// Runs kppdf with arguments (already quoted for the shell), stderr dropped.
ToolRun kppdf(const std::string& arguments) {
    ToolRun run;
    run.status = tool_runner::run(tool_runner::quote(KPPDF_TOOL_PATH) + " " + arguments, &run.out);
    return run;
}

std::string pageText(const std::string& name, uint32_t index) {
    int32_t result = -1;
    auto document = KPPDFDocument::documentWithContentsOfFile(kDir + name, &result);
    auto page = document->pageAtIndex(index);
    page->prepareForSelection();
    return page->pageString();
}

} // namespace

TEST(KPPDFTextCommandTest, TextPrintsPageStrings) {
    ToolRun all = kppdf("text '" + kDir + "standard.pdf'");
    EXPECT_EQ(all.status, 0);
    EXPECT_EQ(all.out, pageText("standard.pdf", 0) + "\f" + pageText("standard.pdf", 1));
    ToolRun second = kppdf("text --page 2 '" + kDir + "standard.pdf'");
    EXPECT_EQ(second.status, 0);
    EXPECT_EQ(second.out, pageText("standard.pdf", 1));
    ToolRun fromInput = kppdf("text - < '" + kDir + "type3.pdf'");
    EXPECT_EQ(fromInput.status, 0);
    EXPECT_EQ(fromInput.out, pageText("type3.pdf", 0));

    // A page the file lacks is a usage error; a file that is missing or no PDF fails.
    EXPECT_EQ(kppdf("text --page 3 '" + kDir + "standard.pdf'").status, 2);
    EXPECT_EQ(kppdf("text '" + kDir + "no-such-file.pdf'").status, 1);
    EXPECT_EQ(kppdf("text '" + kDir + "standard.txt'").status, 1);
}

TEST(KPPDFTextCommandTest, SearchPrintsOccurrences) {
    // "Привет" in any case.
    ToolRun json = kppdf("search --json -i '" + kDir +
                         "truetype.pdf' '\xD0\x9F\xD0\xA0\xD0\x98\xD0\x92\xD0\x95\xD0\xA2'");
    ASSERT_EQ(json.status, 0);
    nlohmann::json hits = nlohmann::json::parse(json.out);
    ASSERT_EQ(hits.size(), 1u);
    EXPECT_EQ(hits[0]["page"], 1);
    EXPECT_EQ(hits[0]["length"], 6);
    ASSERT_EQ(hits[0]["rects"].size(), 1u);
    EXPECT_EQ(hits[0]["rects"][0].size(), 4u);
    EXPECT_GT(hits[0]["rects"][0][2].get<double>(), 0);

    ToolRun plain = kppdf("search '" + kDir + "standard.pdf' 'the levee higher'");
    EXPECT_EQ(plain.status, 0);
    EXPECT_EQ(plain.out.find("page 1, characters "), 0u);
    EXPECT_NE(plain.out.find("page 2, characters "), std::string::npos);

    ToolRun none = kppdf("search --json '" + kDir + "standard.pdf' 'no such words'");
    EXPECT_EQ(none.status, 0);
    EXPECT_EQ(nlohmann::json::parse(none.out).size(), 0u);
    EXPECT_EQ(kppdf("search '" + kDir + "standard.pdf'").status, 2);
}

TEST(KPPDFTextCommandTest, FontsListKindEncodingAndUnicode) {
    ToolRun run = kppdf("fonts --json '" + kDir + "differences.pdf'");
    ASSERT_EQ(run.status, 0);
    nlohmann::json fonts = nlohmann::json::parse(run.out);
    ASSERT_EQ(fonts.size(), 2u);
    std::map<std::string, nlohmann::json> byName;
    for (const auto& font : fonts)
        byName[font["name"].get<std::string>()] = font;
    EXPECT_EQ(byName["Helvetica"]["kind"], "Type1");
    EXPECT_EQ(byName["Helvetica"]["encoding"], "WinAnsiEncoding+Differences");
    EXPECT_EQ(byName["Times-Roman"]["encoding"], "MacRomanEncoding+Differences");
    EXPECT_EQ(byName["Times-Roman"]["unicode"], "encoding");

    ToolRun type0 = kppdf("fonts --json '" + kDir + "type0.pdf'");
    nlohmann::json composite = nlohmann::json::parse(type0.out);
    ASSERT_EQ(composite.size(), 1u);
    EXPECT_EQ(composite[0]["kind"], "Type0");
    EXPECT_EQ(composite[0]["encoding"], "Identity-H");
    EXPECT_EQ(composite[0]["unicode"], "ToUnicode");

    ToolRun table = kppdf("fonts '" + kDir + "type3.pdf'");
    EXPECT_EQ(table.status, 0);
    EXPECT_NE(table.out.find("Type3"), std::string::npos);
}
