// Every file that tests/data/open/expected.json lists, opened here and compared with what qpdf,
// poppler and mupdf found in it (make_expected.py wrote that file): the pages reached by
// walking the page tree and the outline titles in document order.
#include <gtest/gtest.h>

#include <fstream>
#include <nlohmann/json.hpp>
#include <string>
#include <unordered_set>
#include <vector>

#include "kppdf/document/KPPDFDocument.h"
#include "kppdf/document/KPPDFOutline.h"
#include "kppdf/objects/KPPDFObjectArray.h"
#include "kppdf/objects/KPPDFObjectDictionary.h"
#include "kppdf/objects/KPPDFObjectString.h"
#include "kppdf/page/KPPDFPage.h"
#include "support/LogCapture.h"

namespace {
// Deeper trees than this are not walked (the fixtures go six levels down).
constexpr int kMaxWalkDepth = 64;

std::string openFolder() {
    return std::string(KPPDF_TEST_DATA) + "/open/";
}

// Leaves reached from a page tree node; nodes seen before (a cycle) are not entered again.
int countPages(const KPPDFRef<KPPDFObjectDictionary>& node,
               std::unordered_set<const KPPDFObject*>& visited, int depth) {
    if (!node || depth > kMaxWalkDepth || !visited.insert(node.get()).second)
        return 0;
    auto kids = node->resolvedObjectForKey<KPPDFObjectArray>("Kids");
    if (!kids)
        return node->hasName("Type", "Page") ? 1 : 0;
    int pages = 0;
    for (size_t i = 0; i < kids->count(); i++)
        pages += countPages(KPPDFCast<KPPDFObjectDictionary>(kids->resolvedObjectAtIndex(i)),
                            visited, depth + 1);
    return pages;
}

// Outline titles depth first: an item, its children, then its next sibling.
void collectTitles(KPPDFRef<KPPDFObjectDictionary> item,
                   std::unordered_set<const KPPDFObject*>& visited, int depth,
                   std::vector<std::string>& titles) {
    while (item && depth <= kMaxWalkDepth && visited.insert(item.get()).second) {
        auto title = item->resolvedObjectForKey<KPPDFObjectString>("Title");
        titles.push_back(title ? title->stringValue() : std::string());
        collectTitles(item->resolvedObjectForKey<KPPDFObjectDictionary>("First"), visited,
                      depth + 1, titles);
        item = item->resolvedObjectForKey<KPPDFObjectDictionary>("Next");
    }
}
// The titles of the document's own outline items, depth first.
void outlineTitles(const KPPDFOutline& item, std::vector<std::string>& titles) {
    for (const auto& child : item.children()) {
        titles.push_back(child->title());
        outlineTitles(*child, titles);
    }
}
} // namespace

TEST(KPPDFOracle, PagesAndOutlinesMatchOtherReaders) {
    std::ifstream input(openFolder() + "expected.json");
    ASSERT_TRUE(input.good());
    nlohmann::json expected = nlohmann::json::parse(input);
    ASSERT_GT(expected.size(), 20u);
    LogCapture log; // damaged files are expected to log
    for (auto& [file, facts] : expected.items()) {
        SCOPED_TRACE(file);
        int32_t result = -1;
        auto document = KPPDFDocument::documentWithContentsOfFile(openFolder() + file, &result);
        ASSERT_NE(document, nullptr);
        std::string password = facts.at("password").get<std::string>();
        if (!password.empty()) {
            EXPECT_EQ(result, KPPDFDocumentPasswordNeeded);
            EXPECT_EQ(document->validatePassword(password), 0);
        } else {
            EXPECT_EQ(result, KPPDFDocumentOpened);
        }
        EXPECT_EQ(document->encryptDictionary() != nullptr, facts.at("encrypted").get<bool>());

        std::unordered_set<const KPPDFObject*> visited;
        EXPECT_EQ(countPages(document->pagesObject(), visited, 0), facts.at("pages").get<int>());

        std::vector<std::string> titles;
        visited.clear();
        auto outlines =
            document->rootObject()->resolvedObjectForKey<KPPDFObjectDictionary>("Outlines");
        if (outlines)
            collectTitles(outlines->resolvedObjectForKey<KPPDFObjectDictionary>("First"), visited,
                          0, titles);
        EXPECT_EQ(titles, facts.at("outline").get<std::vector<std::string>>());

        // The document's own page list and outline agree, every page is a Page, and the
        // damaged trees say what they cut.
        ASSERT_EQ(document->pageCount(), facts.at("pages").get<uint32_t>());
        for (uint32_t i = 0; i < document->pageCount(); i++)
            EXPECT_TRUE(document->pageAtIndex(i)->pageDictionary()->hasName("Type", "Page")) << i;
        std::vector<std::string> own;
        if (document->outlines())
            outlineTitles(*document->outlines(), own);
        EXPECT_EQ(own, titles);
        if (file == "pagetree_cycle.pdf") {
            EXPECT_TRUE(log.contains("lists its own ancestor"));
        }
        if (file == "pagetree_count.pdf") {
            EXPECT_TRUE(log.contains("Page tree Count 5 exceeds the 3 pages found"));
        }
    }
}
