// A page that gives back its text state and reads its content again, on a file made by
// reportlab and pikepdf (tests/data/page/make_release.py): compressed content in two streams,
// a form drawn twice and an image.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "kppdf/document/KPPDFDocument.h"
#include "kppdf/objects/KPPDFObjectArray.h"
#include "kppdf/objects/KPPDFObjectDictionary.h"
#include "kppdf/objects/KPPDFObjectStream.h"
#include "kppdf/page/KPPDFImage.h"
#include "kppdf/page/KPPDFPage.h"
#include "kppdf/page/KPPDFTextBlob.h"
#include "tests/support/TestHelpers.h"
#include "tests/support/ToolRunner.h"

namespace {

const std::string kFile = std::string(KPPDF_TEST_DATA) + "/page/release.pdf";

// What text preparation leaves on a page, to compare two preparations.
struct Prepared {
    std::string text;
    size_t blobs = 0;
    size_t lines = 0;
    size_t images = 0;
    bool operator==(const Prepared&) const = default;
};

Prepared prepare(KPPDFPage& page) {
    page.prepareForSelection();
    return {page.pageString(), page.textBlobs().size(), page.baselines().size(),
            page.images().size()};
}

} // namespace

TEST(KPPDFPageRelease, ReleasedPageReadsTheSameAgain) {
    auto document = openFile(kFile);
    ASSERT_NE(document, nullptr);
    ASSERT_EQ(document->pageCount(), 2u);
    auto page = document->pageAtIndex(0);
    auto contents = page->pageDictionary()->resolvedObjectForKey<KPPDFObjectArray>("Contents");
    ASSERT_TRUE(contents);
    ASSERT_EQ(contents->count(), 2u);
    auto appended = KPPDFCast<KPPDFObjectStream>(contents->resolvedObjectAtIndex(1));
    ASSERT_TRUE(appended);

    Prepared first = prepare(*page);
    // Both content streams and both form drawings are read; the image is listed.
    EXPECT_NE(first.text.find("Page one opens here"), std::string::npos);
    EXPECT_NE(first.text.find("Appended stream line"), std::string::npos);
    EXPECT_EQ(words(first.text).size(), 17u);
    EXPECT_EQ(first.images, 1u);
    EXPECT_FALSE(page->pageFonts().empty());
    KPPDFData decoded = appended->decodedData();
    ASSERT_FALSE(decoded.view().empty());

    // (Blobs, images and fonts let go: fuzz_content checks those on every input.)
    page->releaseContent();
    EXPECT_EQ(page->pageString(), "");
    EXPECT_TRUE(page->baselines().empty());
    EXPECT_FALSE(page->preparedForSelection());
    // The stream decodes anew: the bytes it held were let go (this copy keeps them alive, so
    // the new bytes cannot land at the same address).
    KPPDFData again = appended->decodedData();
    EXPECT_NE(again.chars(), decoded.chars());
    EXPECT_EQ(again.view(), decoded.view());

    EXPECT_EQ(prepare(*page), first);
    // Releasing twice, and releasing a page never prepared, is harmless.
    page->releaseContent();
    page->releaseContent();
    auto second = document->pageAtIndex(1);
    second->releaseContent();
    EXPECT_EQ(prepare(*second).text, "Second page first line\nSecond page last line\n");
    EXPECT_EQ(prepare(*page), first);
}

TEST(KPPDFPageRelease, ReleasingEachPageKeepsTheWholeText) {
    if (!tool_runner::available("pdftotext"))
        GTEST_SKIP() << "pdftotext is not installed";
    auto document = openFile(kFile);
    ASSERT_NE(document, nullptr);
    // As the text command reads a file: each page prepared, printed, then released; the
    // fonts the pages share stay with the document.
    std::string all;
    for (uint32_t i = 0; i < document->pageCount(); i++) {
        auto page = document->pageAtIndex(i);
        page->prepareForSelection();
        all += page->pageString();
        page->releaseContent();
    }
    EXPECT_FALSE(document->docFonts().empty());
    std::string oracle;
    ASSERT_EQ(tool_runner::run("pdftotext -raw " + tool_runner::quote(kFile) + " -", &oracle), 0);
    std::vector<std::string> ours = words(all), theirs = words(oracle);
    std::sort(ours.begin(), ours.end());
    std::sort(theirs.begin(), theirs.end());
    EXPECT_EQ(ours, theirs);
}
