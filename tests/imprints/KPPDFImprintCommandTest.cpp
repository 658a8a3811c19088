// The kppdf command's stamp and annots subcommands, run as a user runs them.
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include <string>

#include "support/ToolRunner.h"

namespace {
using tool_runner::quote;
using tool_runner::run;

const std::string kData = KPPDF_TEST_DATA;
const std::string kStamp = kData + "/imprints/stamp.pdf";

int kppdf(const std::string& arguments, std::string* out = nullptr) {
    return run(quote(KPPDF_TOOL_PATH) + " " + arguments, out);
}
} // namespace

TEST(KPPDFImprintCommand, StampSavesAnOverlayThatAnnotsLists) {
    if (!tool_runner::available("qpdf") || !tool_runner::available("pdftotext"))
        GTEST_SKIP() << "qpdf and pdftotext are needed";
    tool_runner::TemporaryFolder folder;
    std::string output = folder.file("stamped.pdf");
    ASSERT_EQ(kppdf("stamp " + quote(kData + "/sample.pdf") + " " + quote(output) + " --pdf " +
                    quote(kStamp) + " --page 2 --at 72.5,100"),
              0);
    EXPECT_EQ(run("qpdf --check " + quote(output)), 0);
    std::string second;
    run("pdftotext -q -f 2 -l 2 " + quote(output) + " -", &second);
    EXPECT_NE(second.find("STAMPED"), std::string::npos) << second;
    std::string first;
    run("pdftotext -q -f 1 -l 1 " + quote(output) + " -", &first);
    EXPECT_EQ(first.find("STAMPED"), std::string::npos);

    std::string listed;
    ASSERT_EQ(kppdf("annots --json " + quote(output), &listed), 0);
    nlohmann::json items = nlohmann::json::parse(listed, nullptr, false)["annotations"];
    ASSERT_TRUE(items.is_array()) << listed;
    size_t imprints = 0;
    bool note = false;
    for (const auto& item : items) {
        if (item["kind"] == "imprint") {
            imprints++;
            EXPECT_EQ(item["page"], 2);
            EXPECT_EQ(item["location"], nlohmann::json::array({72.5, 100}));
            EXPECT_EQ(item["size"], nlohmann::json::array({100, 50}));
        }
        // The sample's note on page 1 keeps its text.
        if (item["kind"] == "Text") {
            note = true;
            EXPECT_EQ(item["page"], 1);
            EXPECT_NE(item["contents"].get<std::string>().find("binder"), std::string::npos);
        }
    }
    EXPECT_EQ(imprints, 1u);
    EXPECT_TRUE(note);

    // Flattened to standard output: no overlay left to list.
    std::string flattened = folder.file("flattened.pdf");
    ASSERT_EQ(kppdf("stamp " + quote(kData + "/sample.pdf") + " - --pdf " + quote(kStamp) +
                    " --at 10,10 --flatten > " + quote(flattened)),
              0);
    EXPECT_EQ(run("qpdf --check " + quote(flattened)), 0);
    std::string lines;
    ASSERT_EQ(kppdf("annots " + quote(flattened), &lines), 0);
    EXPECT_EQ(lines.find("imprint"), std::string::npos) << lines;
}

TEST(KPPDFImprintCommand, WrongArgumentsAndFilesAreRefused) {
    tool_runner::TemporaryFolder folder;
    std::string stamp =
        "stamp " + quote(kData + "/sample.pdf") + " " + quote(folder.file("out.pdf"));
    std::string pdf = " --pdf " + quote(kStamp);
    // Exit status 2 for arguments, 1 for files that cannot be read.
    const std::pair<std::string, int> cases[] = {
        {stamp + pdf + " --at 1,x", 2},
        {stamp + pdf + " --at 1", 2},
        {stamp + pdf + " --at 1,1 --page 99", 2},
        {stamp + " --at 1,1", 2},
        {stamp + " --pdf " + quote(kData + "/make_sample.py") + " --at 1,1", 1},
        {stamp + " --pdf " + quote(folder.file("none.pdf")) + " --at 1,1", 1},
        {"annots " + quote(folder.file("none.pdf")), 1},
    };
    for (const auto& [arguments, status] : cases)
        EXPECT_EQ(kppdf(arguments), status) << arguments;
}
