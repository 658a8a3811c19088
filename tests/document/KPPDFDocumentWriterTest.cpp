#include <gtest/gtest.h>

#include <filesystem>
#include <nlohmann/json.hpp>
#include <regex>

#include "kppdf/document/KPPDFDocument.h"
#include "kppdf/document/KPPDFDocumentSaveProgress.h"
#include "kppdf/objects/KPPDFObjectDictionary.h"
#include "kppdf/objects/KPPDFObjectReference.h"
#include "kppdf/objects/KPPDFObjectString.h"
#include "kppdf/platform/KPPDFNotificationCenter.h"
#include "support/LogCapture.h"
#include "support/TestPDFBuilder.h"
#include "support/ToolRunner.h"

namespace {
using tool_runner::quote;
using tool_runner::run;

const std::string kData = KPPDF_TEST_DATA;

KPPDFRef<KPPDFDocument> open(const std::string& path, int32_t* result = nullptr) {
    int32_t code = -1;
    KPPDFRef<KPPDFDocument> document = KPPDFDocument::documentWithContentsOfFile(path, &code);
    if (result)
        *result = code;
    return document;
}

std::string text(const std::string& path, const std::string& password = "") {
    std::string out;
    std::string options = password.empty() ? "" : " -upw " + quote(password);
    run("pdftotext -q -layout" + options + " " + quote(path) + " -", &out);
    return out;
}

int pageCount(const std::string& path, const std::string& password = "") {
    std::string out;
    std::string options = password.empty() ? "" : " --password=" + quote(password);
    run("qpdf --show-npages" + options + " " + quote(path), &out);
    return std::atoi(out.c_str());
}

// qpdf --check: 0 clean, 3 warnings only, 2 errors.
int check(const std::string& path, const std::string& password = "") {
    std::string options = password.empty() ? "" : " --password=" + quote(password);
    return run("qpdf --check" + options + " " + quote(path));
}

// The offset that "startxref" names.
size_t startOfCrossReference(const std::string& bytes) {
    size_t keyword = bytes.rfind("startxref");
    if (keyword == std::string::npos)
        return std::string::npos;
    return std::strtoull(bytes.c_str() + keyword + 9, nullptr, 10);
}

std::vector<std::string> rewritableFixtures() {
    std::vector<std::string> files{kData + "/sample.pdf"};
    std::ifstream in(kData + "/open/expected.json");
    nlohmann::json expected = nlohmann::json::parse(in, nullptr, false);
    if (expected.is_object())
        for (auto& [name, entry] : expected.items())
            if (entry.value("password", "").empty())
                files.push_back(kData + "/open/" + name);
    return files;
}
} // namespace

TEST(KPPDFDocumentWriter, CompleteRewriteKeepsPagesTextAndStructure) {
    if (!tool_runner::available("qpdf") || !tool_runner::available("pdftotext"))
        GTEST_SKIP() << "qpdf and pdftotext are needed";
    tool_runner::TemporaryFolder folder;
    LogCapture quiet;
    for (const std::string& input : rewritableFixtures()) {
        SCOPED_TRACE(input);
        KPPDFRef<KPPDFDocument> document = open(input);
        ASSERT_TRUE(document);
        std::string bytes = document->currentDataWithImprints(true);
        ASSERT_FALSE(bytes.empty());
        std::string output = folder.file(std::filesystem::path(input).filename().string());
        ASSERT_TRUE(folder.write(std::filesystem::path(output).filename().string(), bytes));
        EXPECT_NE(check(output), 2) << "qpdf --check found errors";
        EXPECT_EQ(pageCount(output), static_cast<int>(document->pageCount()));
        EXPECT_EQ(text(output), text(input));
        // Our own output reads back with the same pages.
        int32_t result = -1;
        KPPDFRef<KPPDFDocument> again = open(output, &result);
        ASSERT_TRUE(again);
        EXPECT_EQ(result, 0);
        EXPECT_EQ(again->pageCount(), document->pageCount());
        EXPECT_FALSE(again->isRepaired());
    }
}

TEST(KPPDFDocumentWriter, FileLayoutHeaderCrossReferenceAndTrailer) {
    for (std::string eol : {std::string("\n"), std::string("\r\n")}) {
        SCOPED_TRACE(eol.size());
        TestPDFBuilder builder(eol);
        builder.add(1, "<< /Type /Catalog /Pages 2 0 R >>");
        builder.add(2, "<< /Type /Pages /Kids [3 0 R] /Count 1 /MediaBox [0 0 200 100] >>");
        builder.add(3, "<< /Type /Page /Parent 2 0 R /Contents 4 0 R >>");
        builder.addStream(4, "", "0 0 m 10 10 l S");
        int32_t result = -1;
        KPPDFRef<KPPDFDocument> document =
            KPPDFDocument::documentWithData(builder.buildData("/Root 1 0 R"), &result);
        ASSERT_TRUE(document);
        std::string bytes = document->currentDataWithImprints(true);
        ASSERT_EQ(bytes.compare(0, 8 + eol.size(), "%PDF-1.3" + eol), 0);
        size_t xref = startOfCrossReference(bytes);
        ASSERT_LT(xref, bytes.size());
        // One subsection from 0, the free head entry, then 20-byte entries ending in " \n".
        std::string subsection = "0 5" + eol + "0000000000 65535 f \n";
        EXPECT_EQ(bytes.compare(xref + 4 + eol.size(), subsection.size(), subsection), 0);
        size_t entries = xref + 4 + eol.size() + subsection.size();
        for (int i = 0; i < 4; i++) {
            std::string entry = bytes.substr(entries + 20 * i, 20);
            EXPECT_TRUE(std::regex_match(entry, std::regex("[0-9]{10} 00000 n \n"))) << entry;
            // Each offset points at its object's header.
            size_t offset = std::stoull(entry.substr(0, 10));
            EXPECT_EQ(bytes.compare(offset, std::to_string(i + 1).size() + 6,
                                    std::to_string(i + 1) + " 0 obj"),
                      0);
        }
        EXPECT_NE(bytes.find("/ParvelVersion (3.0.2)"), std::string::npos);
        EXPECT_NE(bytes.find("startxref" + eol + std::to_string(xref) + eol + "%%EOF" + eol),
                  std::string::npos);
        // The inherited media box travels with the page, whose old parent is not written.
        KPPDFRef<KPPDFDocument> again = KPPDFDocument::documentWithData(KPPDFData(std::move(bytes)), &result);
        ASSERT_TRUE(again);
        ASSERT_EQ(again->pageCount(), 1u);
        KPPDFRef<KPPDFObjectDictionary> page = again->rootObject()
                                                   ->resolvedObjectForKey<KPPDFObjectDictionary>("Pages");
        ASSERT_TRUE(page);
    }
}

TEST(KPPDFDocumentWriter, SaveProgressIsPostedPerPage) {
    KPPDFRef<KPPDFDocument> document = open(kData + "/sample.pdf");
    ASSERT_TRUE(document);
    std::vector<double> seen;
    uint64_t token = KPPDFNotificationCenter::defaultCenter().addObserver(
        KPPDFDocumentSaveProgress,
        [&](const std::string&, const void* object, const std::map<std::string, double>& info) {
            if (object == document.get())
                seen.push_back(info.at("Percentage"));
        });
    document->currentDataWithImprints(true);
    KPPDFNotificationCenter::defaultCenter().removeObserver(token);
    ASSERT_EQ(seen.size(), document->pageCount());
    for (size_t i = 0; i < seen.size(); i++)
        EXPECT_DOUBLE_EQ(seen[i], static_cast<double>(i) / seen.size());
}

TEST(KPPDFDocumentWriter, FlatRewriteWritesFreeEntriesForGaps) {
    TestPDFBuilder builder;
    builder.add(1, "<< /Type /Catalog /Pages 2 0 R >>");
    builder.add(2, "<< /Type /Pages /Kids [5 0 R] /Count 1 >>");
    builder.add(5, "<< /Type /Page /Parent 2 0 R /MediaBox [0 0 10 10] >>");
    int32_t result = -1;
    KPPDFRef<KPPDFDocument> document =
        KPPDFDocument::documentWithData(builder.buildData("/Root 1 0 R"), &result);
    ASSERT_TRUE(document);
    std::string bytes = document->changedDocData();
    size_t xref = startOfCrossReference(bytes);
    ASSERT_LT(xref, bytes.size());
    std::string table = bytes.substr(xref);
    EXPECT_EQ(table.compare(0, 29, "xref\n0 6\n0000000000 65535 f \n"), 0) << table;
    // Numbers 3 and 4 have no object.
    EXPECT_EQ(table.substr(29 + 40, 40), "0000000000 00000 f \n0000000000 00000 f \n");
    EXPECT_EQ(table.find("/Prev"), std::string::npos);
    KPPDFRef<KPPDFDocument> again = KPPDFDocument::documentWithData(KPPDFData(std::move(bytes)), &result);
    ASSERT_TRUE(again);
    EXPECT_EQ(result, 0);
    EXPECT_EQ(again->pageCount(), 1u);
}
