// Every file that tests/data/open/expected.json lists, opened here and compared with what qpdf,
// poppler and mupdf found in it (make_expected.py wrote that file): the pages the page tree
// leads to and the outline titles in document order.
#include <gtest/gtest.h>

#include <fstream>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "kppdf/document/KPPDFDocument.h"
#include "kppdf/document/KPPDFOutline.h"
#include "kppdf/objects/KPPDFObjectDictionary.h"
#include "kppdf/page/KPPDFPage.h"
#include "support/LogCapture.h"
#include "support/TestHelpers.h"

namespace {
// The titles of the document's outline items, depth first.
void outlineTitles(const KPPDFOutline& item, std::vector<std::string>& titles) {
    for (const auto& child : item.children()) {
        titles.push_back(child->title());
        outlineTitles(*child, titles);
    }
}
} // namespace

TEST(KPPDFOracle, PagesAndOutlinesMatchOtherReaders) {
    std::ifstream input(dataPath("open/expected.json"));
    ASSERT_TRUE(input.good());
    nlohmann::json expected = nlohmann::json::parse(input);
    ASSERT_GT(expected.size(), 20u);
    LogCapture log; // damaged files are expected to log
    for (auto& [file, facts] : expected.items()) {
        SCOPED_TRACE(file);
        std::string password = facts.at("password").get<std::string>();
        auto document = password.empty() ? openFile(dataPath("open/" + file))
                                         : openEncrypted(dataPath("open/" + file), password);
        ASSERT_NE(document, nullptr);
        EXPECT_EQ(document->encryptDictionary() != nullptr, facts.at("encrypted").get<bool>());

        // Every page is a Page, and the damaged trees say what they cut.
        ASSERT_EQ(document->pageCount(), facts.at("pages").get<uint32_t>());
        for (uint32_t i = 0; i < document->pageCount(); i++)
            EXPECT_TRUE(document->pageAtIndex(i)->pageDictionary()->hasName("Type", "Page")) << i;
        std::vector<std::string> titles;
        if (document->outlines())
            outlineTitles(*document->outlines(), titles);
        EXPECT_EQ(titles, facts.at("outline").get<std::vector<std::string>>());
        if (file == "pagetree_cycle.pdf") {
            EXPECT_TRUE(log.contains("lists its own ancestor"));
        }
        if (file == "pagetree_count.pdf") {
            EXPECT_TRUE(log.contains("Page tree Count 5 exceeds the 3 pages found"));
        }
    }
}
