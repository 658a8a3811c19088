#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <nlohmann/json.hpp>
#include <regex>

#include "kppdf/document/KPPDFDocument.h"
#include "kppdf/objects/KPPDFObjectArray.h"
#include "kppdf/objects/KPPDFObjectDictionary.h"
#include "kppdf/objects/KPPDFObjectString.h"
#include "kppdf/page/KPPDFPage.h"
#include "support/LogCapture.h"
#include "support/TestHelpers.h"
#include "support/TestPDFBuilder.h"
#include "support/ToolRunner.h"

namespace {
using tool_runner::quote;
using tool_runner::run;

const std::string kData = KPPDF_TEST_DATA;

// The document a builder's file makes, its catalog being object 1; null when it does not open.
KPPDFRef<KPPDFDocument> built(TestPDFBuilder& builder) {
    int32_t result = -1;
    return KPPDFDocument::documentWithData(builder.buildData("/Root 1 0 R"), &result);
}

std::string text(const std::string& path, const std::string& password = "") {
    std::string out;
    std::string options = password.empty() ? "" : " -upw " + quote(password);
    run("pdftotext -q -layout" + options + " " + quote(path) + " -", &out);
    return out;
}

int pageCount(const std::string& path) {
    std::string out;
    run("qpdf --show-npages " + quote(path), &out);
    return std::atoi(out.c_str());
}

// qpdf --check: 0 clean, 3 warnings only, 2 errors.
int check(const std::string& path, const std::string& password = "") {
    std::string options = password.empty() ? "" : " --password=" + quote(password);
    return run("qpdf --check" + options + " " + quote(path));
}

// The document information fields of pdfinfo's report.
std::string info(const std::string& path, const std::string& password = "") {
    std::string out;
    run("pdfinfo -upw " + quote(password) + " " + quote(path) +
            " | grep -E '^(Title|Author|Subject|Keywords):'",
        &out);
    return out;
}

// What the kppdf command prints for the arguments.
std::string kppdf(const std::string& arguments) {
    std::string out;
    run(quote(KPPDF_TOOL_PATH) + " " + arguments, &out);
    return out;
}

// The file with its identifier left out, which a new save may change.
std::string withoutIdentifier(const std::string& bytes) {
    static const std::regex identifier("/ID \\[[^\\]]*\\]");
    return std::regex_replace(bytes, identifier, "/ID");
}

// The offset that "startxref" names.
size_t startOfCrossReference(const std::string& bytes) {
    size_t keyword = bytes.rfind("startxref");
    if (keyword == std::string::npos)
        return std::string::npos;
    return std::strtoull(bytes.c_str() + keyword + 9, nullptr, 10);
}

// Pages rendered by pdftoppm at 72 dpi, as raw PPM bytes per page.
std::vector<std::string> render(const std::string& path, const std::string& folder) {
    std::string prefix = folder + "/render";
    run("rm -f " + quote(prefix) + "-*.ppm; pdftoppm -r 72 " + quote(path) + " " + quote(prefix));
    std::vector<std::string> pages;
    for (int i = 1;; i++) {
        std::ifstream in;
        for (const char* format : {"%s-%d.ppm", "%s-%02d.ppm", "%s-%03d.ppm"}) {
            char name[512];
            std::snprintf(name, sizeof name, format, prefix.c_str(), i);
            in.open(name, std::ios::binary);
            if (in)
                break;
        }
        if (!in)
            break;
        pages.emplace_back(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
    }
    return pages;
}

// The share of samples that differ visibly. Reals are written with six decimals, so a box of
// 841.8898 comes back as 841.889771: edges move by far less than a pixel, and anti-aliasing
// shifts a few levels; such shifts are not differences.
double differingFraction(const std::string& a, const std::string& b) {
    if (a.size() != b.size())
        return 1.0;
    constexpr int kVisible = 48;
    size_t differing = 0;
    for (size_t i = 0; i < a.size(); i++)
        differing += std::abs(int(uint8_t(a[i])) - int(uint8_t(b[i]))) > kVisible;
    return a.empty() ? 0.0 : static_cast<double>(differing) / static_cast<double>(a.size());
}

size_t annotationCount(KPPDFDocument& document, uint32_t page) {
    auto dictionary = document.pageAtIndex(page)->pageDictionary();
    auto annots = dictionary->resolvedObjectForKey<KPPDFObjectArray>("Annots");
    return annots ? annots->count() : 0;
}
} // namespace

TEST(KPPDFDocumentWriter, CompleteRewriteKeepsPagesTextLooksAnnotationsOutlineAndInfo) {
    if (!tool_runner::available("qpdf") || !tool_runner::available("pdftotext") ||
        !tool_runner::available("pdftoppm"))
        GTEST_SKIP() << "qpdf, pdftotext and pdftoppm are needed";
    tool_runner::TemporaryFolder folder;
    LogCapture quiet;
    // Every fixture that opens without a password, and files from other producers (pdfTeX,
    // LibreOffice, reportlab with annotations and form fields).
    std::vector<std::string> inputs{kData + "/sample.pdf"};
    std::ifstream in(kData + "/open/expected.json");
    nlohmann::json expected = nlohmann::json::parse(in, nullptr, false);
    ASSERT_TRUE(expected.is_object());
    for (auto& [name, entry] : expected.items())
        if (entry.value("password", "").empty())
            inputs.push_back(kData + "/open/" + name);
    for (const auto& entry : std::filesystem::recursive_directory_iterator(kData)) {
        std::string parent = entry.path().parent_path().filename().string();
        if (entry.path().extension() == ".pdf" &&
            (parent == "accuracy" || parent == "text" || parent == "imprints"))
            inputs.push_back(entry.path().string());
    }
    std::sort(inputs.begin(), inputs.end());
    const std::string output = folder.file("out.pdf");
    for (const std::string& input : inputs) {
        SCOPED_TRACE(input);
        KPPDFRef<KPPDFDocument> document = openFile(input);
        ASSERT_TRUE(document);
        std::string bytes = document->currentDataWithImprints(true);
        ASSERT_TRUE(folder.write("out.pdf", bytes));
        EXPECT_NE(check(output), 2) << "qpdf --check found errors";
        EXPECT_EQ(pageCount(output), static_cast<int>(document->pageCount()));
        EXPECT_EQ(text(output), text(input));
        std::vector<std::string> before = render(input, folder.file(""));
        std::vector<std::string> after = render(output, folder.file(""));
        // Pages that poppler finds beyond the leaves of a tree with a wrong Count are blank.
        ASSERT_EQ(after.size(), document->pageCount());
        ASSERT_LE(after.size(), before.size());
        for (size_t i = 0; i < after.size(); i++)
            EXPECT_LE(differingFraction(before[i], after[i]), 0.001) << "page " << i + 1;

        // Our own output reads back, and rewritten before anything is read from it, it is the
        // same file: nothing grows from save to save (the file identifier may be new).
        KPPDFRef<KPPDFDocument> again = openFile(output);
        ASSERT_TRUE(again);
        EXPECT_FALSE(again->isRepaired());
        EXPECT_EQ(withoutIdentifier(again->currentDataWithImprints(true)),
                  withoutIdentifier(bytes));
        // Saved a second time, the document writes the same file: the object streams it let
        // go while writing the first are read again.
        EXPECT_EQ(withoutIdentifier(document->currentDataWithImprints(true)),
                  withoutIdentifier(bytes));
        // The same pages, annotations and destinations.
        ASSERT_EQ(again->pageCount(), document->pageCount());
        for (uint32_t i = 0; i < document->pageCount(); i++)
            EXPECT_EQ(annotationCount(*again, i), annotationCount(*document, i));
        EXPECT_EQ(again->dests().size(), document->dests().size());

        // A remote destination names its file relative to the document's folder.
        std::regex folderOfFile("file://.*/");
        EXPECT_EQ(std::regex_replace(kppdf("outline " + quote(output)), folderOfFile, "file:///"),
                  std::regex_replace(kppdf("outline " + quote(input)), folderOfFile, "file:///"));
        // Where poppler cannot read a damaged file's information, ours is at least as good.
        if (std::string before = info(input); !before.empty()) {
            EXPECT_EQ(info(output), before);
        }
    }
}

TEST(KPPDFDocumentWriter, CrossReferenceTablesPointAtEveryObject) {
    // The complete rewrite with either line end: the header, one subsection from 0, the free
    // head entry, then 20-byte entries ending in " \n", each at its object's header.
    for (std::string eol : {std::string("\n"), std::string("\r\n")}) {
        SCOPED_TRACE(eol.size());
        TestPDFBuilder builder(eol);
        builder.add(1, "<< /Type /Catalog /Pages 2 0 R >>");
        builder.add(2, "<< /Type /Pages /Kids [3 0 R] /Count 1 /MediaBox [0 0 200 100] >>");
        builder.add(3, "<< /Type /Page /Parent 2 0 R /Contents 4 0 R >>");
        builder.addStream(4, "", "0 0 m 10 10 l S");
        KPPDFRef<KPPDFDocument> document = built(builder);
        ASSERT_TRUE(document);
        std::string bytes = document->currentDataWithImprints(true);
        ASSERT_EQ(bytes.compare(0, 8 + eol.size(), "%PDF-1.3" + eol), 0);
        size_t xref = startOfCrossReference(bytes);
        ASSERT_LT(xref, bytes.size());
        std::string subsection = "0 5" + eol + "0000000000 65535 f \n";
        EXPECT_EQ(bytes.compare(xref + 4 + eol.size(), subsection.size(), subsection), 0);
        size_t entries = xref + 4 + eol.size() + subsection.size();
        for (int i = 0; i < 4; i++) {
            std::string entry = bytes.substr(entries + 20 * i, 20);
            EXPECT_TRUE(std::regex_match(entry, std::regex("[0-9]{10} 00000 n \n"))) << entry;
            size_t offset = std::stoull(entry.substr(0, 10));
            EXPECT_EQ(bytes.compare(offset, std::to_string(i + 1).size() + 6,
                                    std::to_string(i + 1) + " 0 obj"),
                      0);
        }
        EXPECT_NE(bytes.find("/ParvelVersion (3.0.2)"), std::string::npos);
        EXPECT_NE(bytes.find("startxref" + eol + std::to_string(xref) + eol + "%%EOF" + eol),
                  std::string::npos);
    }

    // The flat rewrite keeps the numbers: those without an object are free entries, and there
    // is no earlier table to point back to.
    TestPDFBuilder builder;
    builder.add(1, "<< /Type /Catalog /Pages 2 0 R >>");
    builder.add(2, "<< /Type /Pages /Kids [5 0 R] /Count 1 >>");
    builder.add(5, "<< /Type /Page /Parent 2 0 R /MediaBox [0 0 10 10] >>");
    KPPDFRef<KPPDFDocument> document = built(builder);
    ASSERT_TRUE(document);
    std::string bytes = document->changedDocData();
    size_t xref = startOfCrossReference(bytes);
    ASSERT_LT(xref, bytes.size());
    std::string table = bytes.substr(xref);
    EXPECT_EQ(table.compare(0, 29, "xref\n0 6\n0000000000 65535 f \n"), 0) << table;
    EXPECT_EQ(table.substr(29 + 40, 40), "0000000000 00000 f \n0000000000 00000 f \n");
    EXPECT_EQ(table.find("/Prev"), std::string::npos);
    KPPDFRef<KPPDFDocument> again = openBytes(std::move(bytes));
    ASSERT_TRUE(again);
    EXPECT_EQ(again->pageCount(), 1u);
}

TEST(KPPDFDocumentWriter, EncryptedSavesOpenWithTheSamePasswords) {
    if (!tool_runner::available("qpdf") || !tool_runner::available("pdftotext"))
        GTEST_SKIP() << "qpdf and pdftotext are needed";
    tool_runner::TemporaryFolder folder;
    LogCapture log;
    // Files encrypted by qpdf keep their handler and passwords.
    for (const char* name : {"rc4_40_user.pdf", "rc4_128_user.pdf", "rc4_128_empty.pdf",
                             "rc4_128_objstm.pdf", "rc4_40_objstm_user.pdf"}) {
        SCOPED_TRACE(name);
        std::string input = kData + "/open/" + name;
        bool empty = std::string(name).find("user") == std::string::npos;
        std::string password = empty ? "" : "user";
        log.clear();
        KPPDFRef<KPPDFDocument> document = empty ? openFile(input) : openEncrypted(input, password);
        ASSERT_TRUE(document);
        // Nothing looked up before the key was known is reported as damaged.
        EXPECT_TRUE(log.lines().empty()) << log.lines().front();
        ASSERT_EQ(document->encryptionStatus(), 2);
        std::string output = folder.file(name);
        ASSERT_TRUE(document->writeUpdatedDocument(output));
        EXPECT_NE(check(output, password), 2);
        EXPECT_EQ(text(output, password), text(input, password));
        std::string encryption;
        run("qpdf --show-encryption --password=owner " + quote(output), &encryption);
        EXPECT_NE(encryption.find("Supplied password is owner password"), std::string::npos)
            << encryption;
        // Strings are encrypted: the title is not in the file as plain text.
        EXPECT_EQ(readFile(output).find("Fixture base document"), std::string::npos);
        // Strings of objects copied without parsing decrypt and encrypt like parsed ones: the
        // document information and the outline read the same, encrypted and decrypted.
        std::string passwordOption = empty ? "" : "--password user ";
        std::string plainOutput = folder.file(std::string("plain-") + name);
        kppdf("decrypt " + passwordOption + quote(input) + " " + quote(plainOutput));
        EXPECT_NE(check(plainOutput), 2);
        std::string infoBefore = info(input, password);
        EXPECT_NE(infoBefore.find("Fixture base document"), std::string::npos);
        EXPECT_EQ(info(output, password), infoBefore);
        EXPECT_EQ(info(plainOutput), infoBefore);
        std::string outlineBefore = kppdf("outline " + passwordOption + quote(input));
        EXPECT_NE(outlineBefore.find("Caf\xC3\xA9 note 1"), std::string::npos);
        EXPECT_EQ(kppdf("outline " + quote(plainOutput)), outlineBefore);
        // What kppdf decrypt relies on to write the working bytes as they stand: decrypted at
        // opening, they are the very file a plain rewrite makes.
        KPPDFRef<KPPDFDocument> fresh = empty ? openFile(input) : openEncrypted(input, password);
        ASSERT_TRUE(fresh);
        ASSERT_TRUE(fresh->decryptedAtOpening());
        std::string working(fresh->docData().view());
        fresh->removeEncryption();
        EXPECT_EQ(fresh->currentDataWithImprints(true), working);
    }
    // New passwords on a plain file, and encryption removed again.
    KPPDFRef<KPPDFDocument> plain = openFile(kData + "/sample.pdf");
    ASSERT_TRUE(plain);
    EXPECT_FALSE(plain->decryptedAtOpening());
    plain->setUserPassword("u1", "o1", -4);
    EXPECT_EQ(plain->accessPermissions(), 0xFC);
    ASSERT_TRUE(plain->writeUpdatedDocument(folder.file("new.pdf")));
    EXPECT_NE(check(folder.file("new.pdf"), "u1"), 2);
    EXPECT_EQ(check(folder.file("new.pdf")), 2) << "opened without the password";
    EXPECT_EQ(text(folder.file("new.pdf"), "u1"), text(kData + "/sample.pdf"));
    KPPDFRef<KPPDFDocument> reread = openEncrypted(folder.file("new.pdf"), "o1");
    ASSERT_TRUE(reread);
    EXPECT_TRUE(reread->isOwner());
    reread->removeEncryption();
    ASSERT_TRUE(reread->writeUpdatedDocument(folder.file("plain.pdf")));
    std::string encryption;
    run("qpdf --show-encryption " + quote(folder.file("plain.pdf")), &encryption);
    EXPECT_NE(encryption.find("File is not encrypted"), std::string::npos);
    EXPECT_EQ(text(folder.file("plain.pdf")), text(kData + "/sample.pdf"));
}

TEST(KPPDFDocumentWriter, PageReachedFromAnEarlierPageIsWrittenOnce) {
    // Page 1's link leads to page 3 before page 3 is copied: the link must lead to the copy,
    // and the old page dictionary must not be written beside it.
    tool_runner::TemporaryFolder folder;
    KPPDFRef<KPPDFDocument> document = openFile(kData + "/writer/forward_link.pdf");
    ASSERT_TRUE(document);
    ASSERT_TRUE(document->writeUpdatedDocument(folder.file("out.pdf")));
    KPPDFRef<KPPDFDocument> again = openFile(folder.file("out.pdf"));
    ASSERT_TRUE(again);
    ASSERT_EQ(again->pageCount(), document->pageCount());
    uint32_t pageObjects = 0;
    for (uint32_t number = 1; number < again->objectCount(); number++) {
        auto dictionary = KPPDFResolve<KPPDFObjectDictionary>(again->objectWithNumber(number));
        if (dictionary && dictionary->hasName("Type", "Page"))
            pageObjects++;
    }
    EXPECT_EQ(pageObjects, again->pageCount());
    auto annots =
        again->pageAtIndex(0)->pageDictionary()->resolvedObjectForKey<KPPDFObjectArray>("Annots");
    ASSERT_TRUE(annots);
    auto link =
        KPPDFCast<KPPDFObjectDictionary>(annots->resolvedObjectAtIndex(annots->count() - 1));
    ASSERT_TRUE(link);
    auto dest = KPPDFCast<KPPDFObjectArray>(link->resolvedObjectForKey("Dest"));
    ASSERT_TRUE(dest);
    EXPECT_EQ(dest->resolvedObjectAtIndex(0), again->pageAtIndex(2)->pageDictionary());
    EXPECT_EQ(link->resolvedObjectForKey("P"), again->pageAtIndex(0)->pageDictionary());
}

TEST(KPPDFDocumentWriter, FileWrittenInPiecesIsTheWholeFileAndKeepsChanges) {
    // A stream of several megabytes makes the writer hand its output over in pieces: the
    // offsets after it must still count from the start of the file. Objects nobody had read
    // are copied straight from the file; one that was read and changed must be written changed.
    TestPDFBuilder builder;
    builder.add(1, "<< /Type /Catalog /Pages 2 0 R >>");
    builder.add(2, "<< /Type /Pages /Kids [3 0 R] /Count 1 /MediaBox [0 0 200 100] >>");
    builder.add(3, "<< /Type /Page /Parent 2 0 R /Contents [4 0 R 5 0 R] /Resources 6 0 R >>");
    std::string big;
    for (int i = 0; big.size() < (3u << 19); i++)
        big += "0 0 m " + std::to_string(i % 200) + " 100 l S\n";
    builder.addStream(4, "", big);
    builder.addStream(5, "", "0 0 m 10 10 l S");
    builder.add(6, "<< /ExtGState << /G0 7 0 R >> >>");
    builder.add(7, "<< /Type /ExtGState /LW 2 >>");
    KPPDFRef<KPPDFDocument> document = built(builder);
    ASSERT_TRUE(document);
    auto state = KPPDFResolve<KPPDFObjectDictionary>(document->objectWithNumber(7));
    ASSERT_TRUE(state);
    state->setObject(KPPDFObjectString::stringWithString("changed"), "Note");
    state.reset();

    std::string whole = document->currentDataWithImprints(true);
    std::vector<std::string> pieces;
    ASSERT_TRUE(document->writeDataWithImprints([&](std::string_view piece) {
        pieces.emplace_back(piece);
        return true;
    }));
    EXPECT_GE(pieces.size(), 2u);
    std::string joined;
    for (const auto& piece : pieces)
        joined += piece;
    EXPECT_EQ(joined, whole);
    EXPECT_NE(whole.find("/Note (changed)"), std::string::npos);
    // Saving again reads the objects let go after the first save: the same bytes.
    EXPECT_EQ(document->currentDataWithImprints(true), whole);
    // A sink that refuses stops the writing.
    size_t calls = 0;
    EXPECT_FALSE(document->writeDataWithImprints([&](std::string_view) { return ++calls > 10; }));
    EXPECT_EQ(calls, 1u);

    if (!tool_runner::available("qpdf"))
        GTEST_SKIP() << "qpdf is needed";
    tool_runner::TemporaryFolder folder;
    ASSERT_TRUE(document->writeUpdatedDocument(folder.file("pieces.pdf")));
    EXPECT_EQ(check(folder.file("pieces.pdf")), 0);
    EXPECT_FALSE(document->writeUpdatedDocument(folder.file("no/such/folder/out.pdf")));
}

TEST(KPPDFDocumentWriter, SavingOverTheFileBeingReadReplacesItWhole) {
    // The document reads its file through a mapping while the new file is written: the new
    // bytes must go elsewhere first, or the file would be cut short under the reader.
    if (!tool_runner::available("qpdf"))
        GTEST_SKIP() << "qpdf is needed";
    tool_runner::TemporaryFolder folder;
    std::string original = readFile(kData + "/open/xref_stream.pdf");
    ASSERT_FALSE(original.empty());
    ASSERT_TRUE(folder.write("doc.pdf", original));
    const std::string path = folder.file("doc.pdf");
    std::filesystem::permissions(path, std::filesystem::perms(0640));
    KPPDFRef<KPPDFDocument> document = openFile(path);
    ASSERT_TRUE(document);
    uint32_t pages = document->pageCount();
    ASSERT_TRUE(document->writeUpdatedDocument(path));
    EXPECT_EQ(check(path), 0);
    EXPECT_EQ(pageCount(path), static_cast<int>(pages));
    // The new file keeps the old one's permissions, and nothing is left beside it.
    EXPECT_EQ(std::filesystem::status(path).permissions() & std::filesystem::perms::all,
              std::filesystem::perms(0640));
    auto entries = [&] {
        return std::distance(std::filesystem::directory_iterator(folder.file("")),
                             std::filesystem::directory_iterator());
    };
    EXPECT_EQ(entries(), 1);
    // A file that cannot be made leaves the old one as it was.
    LogCapture quiet;
    EXPECT_FALSE(document->writeUpdatedDocument(folder.file("missing/doc.pdf")));
    EXPECT_EQ(entries(), 1);
    // The command saves over its input the same way.
    EXPECT_EQ(run(quote(KPPDF_TOOL_PATH) + " save " + quote(path) + " " + quote(path)), 0);
    EXPECT_EQ(check(path), 0);
    EXPECT_EQ(pageCount(path), static_cast<int>(pages));
    EXPECT_EQ(entries(), 1);
}
