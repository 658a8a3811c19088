// Opening real files: headers, cross-reference tables and streams, object streams, the
// "Prev" chain and scan-mode repair. The fixtures in tests/data/open are made by
// make_fixtures.sh there; object numbers and offsets below are those `qpdf --show-xref FILE`
// lists.
#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <string>
#include <tuple>

#include "kppdf/document/KPPDFDocument.h"
#include "kppdf/document/KPPDFTrailer.h"
#include "kppdf/objects/KPPDFObjectArray.h"
#include "kppdf/objects/KPPDFObjectDictionary.h"
#include "kppdf/objects/KPPDFObjectReference.h"
#include "kppdf/objects/KPPDFObjectStream.h"
#include "kppdf/objects/KPPDFObjectString.h"
#include "kppdf/page/KPPDFPage.h"
#include "support/LogCapture.h"
#include "support/TestPDFBuilder.h"
#include "support/ToolRunner.h"

namespace {
std::string fixturePath(const std::string& name) {
    return std::string(KPPDF_TEST_DATA) + "/open/" + name;
}

KPPDFRef<KPPDFDocument> openFixture(const std::string& name, int32_t* result) {
    return KPPDFDocument::documentWithContentsOfFile(fixturePath(name), result);
}

KPPDFRef<KPPDFDocument> openBytes(const std::string& bytes, int32_t* result) {
    return KPPDFDocument::documentWithData(KPPDFData(std::string(bytes)), result);
}

// Resolves every object of the table; returns how many numbers resolve to an object.
uint32_t resolveAll(KPPDFDocument& document) {
    uint32_t found = 0;
    for (uint32_t number = 1; number < document.tableSize(); number++) {
        KPPDFRef<KPPDFObject> object = KPPDFObject::resolve(document.objectWithNumber(number));
        if (object && object->objectType() != KPPDFObjectTypeNull) {
            found++;
            EXPECT_NE(object->objectType(), KPPDFObjectTypeReference) << "object " << number;
            EXPECT_FALSE(object->directObject().empty()) << "object " << number;
        }
    }
    return found;
}

std::string titleOf(const KPPDFRef<KPPDFObject>& object) {
    auto dictionary = KPPDFCast<KPPDFObjectDictionary>(KPPDFObject::resolve(object));
    auto title =
        dictionary ? dictionary->resolvedObjectForKey<KPPDFObjectString>("Title") : nullptr;
    return title ? title->stringValue() : std::string("<none>");
}

std::string infoTitle(KPPDFDocument& document) {
    return titleOf(document.trailer()->trailerDictionary()->objectForKey("Info"));
}

int chainLength(const KPPDFDocument& document) {
    int length = 0;
    for (const KPPDFTrailer* t = document.trailer().get(); t; t = t->prev().get())
        length++;
    return length;
}

std::string replaceOnce(std::string text, const std::string& from, const std::string& to) {
    size_t at = text.find(from);
    EXPECT_NE(at, std::string::npos) << from;
    if (at != std::string::npos)
        text.replace(at, from.size(), to);
    return text;
}

// A file with an empty page tree and the given trailer entries.
std::string emptyFile(const std::string& trailer = "/Root 1 0 R", const std::string& catalog = "") {
    TestPDFBuilder builder;
    builder.add(1, "<< /Type /Catalog /Pages 2 0 R " + catalog + ">>");
    builder.add(2, "<< /Type /Pages /Kids [] /Count 0 >>");
    return builder.build(trailer);
}

// The same without its trailer keyword, and with startxref leading nowhere.
std::string untrailedFile() {
    return replaceOnce(replaceOnce(emptyFile(), "trailer", "garbage"), "startxref\n",
                       "startxref\n1");
}
} // namespace

TEST(KPPDFDocumentOpening, EveryFixtureOpensWithItsResultCode) {
    struct Case {
        const char* file;
        int32_t result;
        uint32_t objects;     // object numbers in use
        uint32_t objectCount; // Size, or the highest number when Size is smaller
    };
    const Case cases[] = {
        {"aes_128.pdf", 3, 22, 23},          {"bad_startxref.pdf", 0, 8, 9},
        {"bad_xref_offsets.pdf", 0, 8, 9},   {"base.pdf", 0, 21, 22},
        {"classic_cr.pdf", 0, 8, 9},         {"classic_crlf.pdf", 0, 8, 9},
        {"classic_lf.pdf", 0, 8, 9},         {"dests_both.pdf", 0, 15, 16},
        {"dests_catalog.pdf", 0, 17, 19},    {"dests_nametree.pdf", 0, 22, 24},
        {"hybrid.pdf", 0, 13, 14},           {"long_header.pdf", 2, 0, 0},
        {"multi_revision.pdf", 0, 10, 11},   {"not_pdf.pdf", 2, 0, 0},
        {"outline.pdf", 0, 28, 35},          {"pagetree_count.pdf", 0, 11, 12},
        {"pagetree_cycle.pdf", 0, 11, 12},   {"pagetree_deep.pdf", 0, 28, 29},
        {"pagetree_inherit.pdf", 0, 15, 16}, {"prev_loop_self.pdf", 0, 8, 9},
        {"prev_loop_two.pdf", 0, 8, 9},      {"rc4_128_empty.pdf", 0, 21, 22},
        {"rc4_128_user.pdf", 1, 22, 23},     {"rc4_40_empty.pdf", 0, 21, 22},
        {"rc4_40_user.pdf", 1, 22, 23},      {"size_small.pdf", 0, 8, 8},
        {"truncated.pdf", 2, 0, 0},          {"xref19.pdf", 0, 8, 9},
        {"xref_stream.pdf", 0, 23, 24},
    };
    LogCapture log;
    for (const Case& c : cases) {
        SCOPED_TRACE(c.file);
        int32_t result = -1;
        KPPDFRef<KPPDFDocument> document = openFixture(c.file, &result);
        EXPECT_EQ(result, c.result);
        if (c.result == KPPDFDocumentNotPDF) {
            EXPECT_EQ(document, nullptr);
            continue;
        }
        ASSERT_NE(document, nullptr);
        EXPECT_EQ(document->path(), fixturePath(c.file));
        EXPECT_EQ(document->objectCount(), c.objectCount);
        ASSERT_NE(document->rootObject(), nullptr);
        EXPECT_TRUE(document->rootObject()->hasName("Type", "Catalog"));
        if (c.result != KPPDFDocumentOpened)
            continue;
        ASSERT_NE(document->pagesObject(), nullptr);
        EXPECT_TRUE(document->pagesObject()->hasName("Type", "Pages"));
        EXPECT_EQ(resolveAll(*document), c.objects);
    }
}

TEST(KPPDFDocumentOpening, LineEndsAndVersion) {
    int32_t result = -1;
    for (const auto& [file, eol] : {std::pair{"classic_lf.pdf", "\n"},
                                    {"classic_crlf.pdf", "\r\n"},
                                    {"classic_cr.pdf", "\r"}}) {
        SCOPED_TRACE(file);
        auto document = openFixture(file, &result);
        ASSERT_NE(document, nullptr);
        EXPECT_EQ(document->EOLLength(), int(std::strlen(eol)));
        EXPECT_STREQ(document->EOL(), eol);
        EXPECT_FALSE(document->isRepaired());
        EXPECT_EQ(document->pdfVersion(), "1.4");
        // Writers use the file's line end.
        KPPDFRef<KPPDFObject> catalog = KPPDFObject::resolve(document->objectWithNumber(1));
        ASSERT_NE(catalog, nullptr);
        EXPECT_EQ(catalog->indirectObject(),
                  "1 0 obj" + std::string(eol) + catalog->directObject() + eol + "endobj" + eol);
    }
    // A version in the catalog wins over the header's.
    auto versioned = openBytes(emptyFile("/Root 1 0 R", "/Version /1.7 "), &result);
    ASSERT_NE(versioned, nullptr);
    EXPECT_EQ(versioned->pdfVersion(), "1.7");
}

TEST(KPPDFDocumentOpening, WhatIsNotAPDF) {
    // A first line longer than 100 bytes; in a file without a trailer, no startxref, no %%EOF or
    // no catalog anywhere; a missing file. No bytes at all, though, make an empty document.
    LogCapture log;
    std::string pdf = emptyFile(), untrailed = untrailedFile();
    int32_t result = -1;
    for (std::string broken :
         {"%PDF-1.4 " + std::string(95, 'x') + "\n" + pdf.substr(pdf.find('\n') + 1),
          untrailed.substr(0, untrailed.rfind("startxref")),
          untrailed.substr(0, untrailed.rfind("%%EOF")),
          replaceOnce(untrailed, "/Catalog", "/Katalog")}) {
        SCOPED_TRACE(broken);
        EXPECT_EQ(openBytes(broken, &result), nullptr);
        EXPECT_EQ(result, KPPDFDocumentNotPDF);
    }
    EXPECT_EQ(KPPDFDocument::documentWithContentsOfFile(fixturePath("missing.pdf"), &result),
              nullptr);
    EXPECT_EQ(result, KPPDFDocumentNotPDF);
    EXPECT_NE(KPPDFDocument::documentWithData(KPPDFData(std::string()), &result), nullptr);
    EXPECT_EQ(result, KPPDFDocumentOpened);
}

TEST(KPPDFDocumentOpening, ClassicTableEntries) {
    int32_t result = -1;
    LogCapture log;
    uint64_t offset = 0;
    uint32_t generation = 0;
    char flag = 0;
    // 19-byte entries (a bare LF after the flag), and a damaged one.
    const char entry19[] = "0000000099 00002 f\n0";
    EXPECT_EQ(KPPDFTrailer::getOffset(&offset, &generation, &flag, entry19, entry19 + 20), 19u);
    EXPECT_EQ(offset, 99u);
    EXPECT_EQ(generation, 2u);
    EXPECT_EQ(flag, 'f');
    const char entry18[] = "-000000099 00000 n0";
    EXPECT_EQ(KPPDFTrailer::getOffset(&offset, &generation, &flag, entry18, entry18 + 19), 18u);
    EXPECT_EQ(offset, 0u);
    EXPECT_EQ(KPPDFTrailer::getOffset(&offset, &generation, &flag, entry18, entry18 + 17), 0u);

    // Entries a few bytes off their "N G obj" still lead to the objects.
    TestPDFBuilder builder;
    builder.add(1, "<< /Type /Catalog /Pages 2 0 R >>");
    builder.add(2, "<< /Type /Pages /Kids [3 0 R] /Count 1 >>");
    builder.add(3, "<< /Type /Page /Parent 2 0 R >>");
    std::string pdf = builder.build("/Root 1 0 R");
    char wrong[16], right[16];
    std::snprintf(right, sizeof right, "%010zu", builder.offsetOf(2));
    std::snprintf(wrong, sizeof wrong, "%010zu", builder.offsetOf(2) + 3);
    pdf = replaceOnce(pdf, right, wrong);
    std::snprintf(right, sizeof right, "%010zu", builder.offsetOf(3));
    std::snprintf(wrong, sizeof wrong, "%010zu", builder.offsetOf(3) - 2);
    pdf = replaceOnce(pdf, right, wrong);
    auto shifted = openBytes(pdf, &result);
    ASSERT_NE(shifted, nullptr);
    EXPECT_FALSE(shifted->isRepaired());
    EXPECT_EQ(resolveAll(*shifted), 3u);
    EXPECT_TRUE(shifted->pagesObject()->hasName("Type", "Pages"));
}

TEST(KPPDFDocumentOpening, IncrementalUpdateIsFoundAtItsNewPosition) {
    int32_t result = -1;
    auto document = openFixture("multi_revision.pdf", &result);
    ASSERT_NE(document, nullptr);
    EXPECT_EQ(result, KPPDFDocumentOpened);
    EXPECT_FALSE(document->isRepaired());
    ASSERT_EQ(chainLength(*document), 2);
    const KPPDFRef<KPPDFTrailer>& newest = document->trailer();
    EXPECT_EQ(newest->prev()->next(), newest.get());
    EXPECT_EQ(newest->prev()->offset(), 866u);
    std::vector<KPPDFRange> ranges = {{2, 1}, {4, 1}, {6, 5}};
    EXPECT_EQ(newest->xrefRanges(), ranges);
    EXPECT_EQ(newest->maxObjectNumber(), 10u);

    // Placeholders point just past "N G obj" and its line end.
    auto position = [&](uint32_t number) {
        KPPDFRef<KPPDFObject> entry = document->objectWithNumber(number);
        return entry && entry->asReference() ? entry->dataRange().location : 0u;
    };
    EXPECT_EQ(position(8), 1617u + std::strlen("8 1 obj\n"));
    EXPECT_EQ(position(6), 1338u + std::strlen("6 0 obj\n"));
    EXPECT_EQ(position(3), 127u + std::strlen("3 0 obj\n"));
    EXPECT_EQ(document->objectWithNumber(8)->generation(), 1u);

    EXPECT_EQ(infoTitle(*document), "Updated revision");
    auto kids = document->pagesObject()->resolvedObjectForKey<KPPDFObjectArray>("Kids");
    ASSERT_NE(kids, nullptr);
    EXPECT_EQ(kids->count(), 3u);
    for (const auto& [index, text] :
         {std::pair{0, "First page, revised."}, {1, "object 8 generation 1"}}) {
        auto page = KPPDFCast<KPPDFObjectDictionary>(kids->resolvedObjectAtIndex(index));
        auto content = page ? page->resolvedObjectForKey<KPPDFObjectStream>("Contents") : nullptr;
        ASSERT_NE(content, nullptr) << index;
        EXPECT_NE(content->decodedData().view().find(text), std::string_view::npos) << index;
    }
}

TEST(KPPDFDocumentOpening, DamagedCrossReferencesAreRepairedByScanning) {
    LogCapture log;
    int32_t result = -1;
    // Damaged tables are repaired by scanning; "Prev" loops end at the repeat, without a repair.
    // (The first test resolves the objects of these four files.)
    const std::tuple<const char*, bool, int, const char*> cases[] = {
        {"bad_startxref.pdf", true, 1, "scanning the file for objects"},
        {"bad_xref_offsets.pdf", true, 1, "scanning the file for objects"},
        {"prev_loop_self.pdf", false, 1, "comes back to offset"},
        {"prev_loop_two.pdf", false, 2, "comes back to offset"},
    };
    for (const auto& [file, repaired, sections, logged] : cases) {
        SCOPED_TRACE(file);
        log.clear();
        auto document = openFixture(file, &result);
        ASSERT_NE(document, nullptr);
        EXPECT_EQ(result, KPPDFDocumentOpened);
        EXPECT_EQ(document->isRepaired(), repaired);
        EXPECT_EQ(document->trailer()->hasXref(), !repaired);
        EXPECT_EQ(chainLength(*document), sections);
        EXPECT_TRUE(log.contains(logged));
    }

    // A "Prev" that leads nowhere makes the table untrustworthy: scan.
    auto lost = openBytes(emptyFile("/Root 1 0 R /Prev 5"), &result);
    ASSERT_NE(lost, nullptr);
    EXPECT_TRUE(lost->isRepaired());
    EXPECT_EQ(resolveAll(*lost), 2u);

    // No trailer keyword at all: the catalog found by scanning stands in for it.
    std::string pdf = untrailedFile();
    log.clear();
    auto untrailed = openBytes(pdf, &result);
    ASSERT_NE(untrailed, nullptr);
    EXPECT_TRUE(log.contains("No trailer found; using the catalog in object 1"));
    EXPECT_TRUE(untrailed->pagesObject()->hasName("Type", "Pages"));
    EXPECT_EQ(untrailed->objectCount(), 3u);

    // The table is indexed by number: a small file cannot make it huge with a big number.
    log.clear();
    std::string big = replaceOnce(pdf, "2 0 obj", "7000000 0 obj\n(far)\nendobj\n2 0 obj");
    auto bounded = openBytes(big, &result);
    ASSERT_NE(bounded, nullptr);
    EXPECT_TRUE(log.contains("Object number 7000000 is more than a file of"));
    EXPECT_LE(bounded->tableSize(), KPPDFTrailer::kMinObjectNumberLimit + 1);
    EXPECT_TRUE(bounded->pagesObject()->hasName("Type", "Pages"));
}

TEST(KPPDFDocumentOpening, CrossReferenceStreamsAndObjectStreams) {
    int32_t result = -1;
    auto document = openFixture("xref_stream.pdf", &result);
    ASSERT_NE(document, nullptr);
    EXPECT_EQ(result, KPPDFDocumentOpened);
    EXPECT_FALSE(document->isRepaired());
    EXPECT_EQ(document->trailer()->kind(), KPPDFTrailer::kKindStream);
    EXPECT_EQ(document->trailer()->offset(), document->startxref());
    // Objects 2 to 19 live in object stream 1; 20 to 23 are plain. Opening read the pages and
    // the outline; an object it did not need is still a placeholder without a file position.
    uint32_t untouched = 0;
    for (uint32_t number = 2; number <= 19 && !untouched; number++) {
        KPPDFRef<KPPDFObject> entry = document->objectWithNumber(number);
        if (entry && entry->objectType() == KPPDFObjectTypeReference)
            untouched = number;
    }
    ASSERT_NE(untouched, 0u);
    EXPECT_EQ(document->objectWithNumber(untouched)->dataRange().location, 0u);
    EXPECT_EQ(resolveAll(*document), 23u);
    EXPECT_EQ(infoTitle(*document), "Fixture base document");
    // Once read, the object takes its placeholder's place in the table.
    EXPECT_NE(document->objectWithNumber(untouched)->objectType(), KPPDFObjectTypeReference);
    EXPECT_FALSE(document->objectWithNumber(untouched)->isDirect());

    // The same file with its startxref broken: scanning finds the plain objects, the objects in
    // the object stream, and the cross-reference stream's dictionary as the trailer.
    KPPDFData bytes = KPPDFData::dataWithContentsOfFile(fixturePath("xref_stream.pdf"));
    std::string text = bytes.string();
    size_t keyword = text.rfind("startxref");
    std::string broken = text.substr(0, keyword) + "startxref\n17\n%%EOF\n";
    LogCapture log;
    auto repaired = openBytes(broken, &result);
    ASSERT_NE(repaired, nullptr);
    EXPECT_TRUE(repaired->isRepaired());
    EXPECT_EQ(resolveAll(*repaired), 23u);
    EXPECT_EQ(infoTitle(*repaired), "Fixture base document");
    EXPECT_EQ(repaired->objectCount(), 24u);

    // Hybrid file: the objects only the cross-reference stream lists are found too (all of
    // them: see the first test).
    auto hybrid = openFixture("hybrid.pdf", &result);
    ASSERT_NE(hybrid, nullptr);
    EXPECT_EQ(hybrid->trailer()->kind(), KPPDFTrailer::kKindTable);
    ASSERT_NE(hybrid->trailer()->hybridSection(), nullptr);
    EXPECT_EQ(hybrid->trailer()->hybridSection()->offset(), 1170u);
    EXPECT_EQ(titleOf(hybrid->objectWithNumber(10)), "Compressed item one");
    EXPECT_EQ(titleOf(hybrid->objectWithNumber(11)), "Compressed item two");
}

TEST(KPPDFDocumentOpening, HandMadeObjectStreams) {
    // An uncompressed object stream whose header lists 4 and 5; the index of 5 in the
    // cross-reference stream is wrong on purpose (the stream's header still names it).
    std::string objects = "(four) [5 0 R (five)]";
    std::string header = "4 0 5 7 ";
    std::string body = header + objects;
    std::string pdf = "%PDF-1.5\n";
    size_t o1 = pdf.size();
    pdf += "1 0 obj\n<< /Type /Catalog /Pages 2 0 R /Four 4 0 R >>\nendobj\n";
    size_t o2 = pdf.size();
    pdf += "2 0 obj\n<< /Type /Pages /Kids [] /Count 0 >>\nendobj\n";
    size_t o3 = pdf.size();
    pdf += "3 0 obj\n<< /Type /ObjStm /N 2 /First " + std::to_string(header.size()) + " /Length " +
           std::to_string(body.size()) + " >>\nstream\n" + body + "\nendstream\nendobj\n";
    size_t o6 = pdf.size();
    // Entries: type 1 (offset, gen) or 2 (stream, index); widths 1 2 1.
    auto e = [](int type, size_t field2, int field3) {
        return std::string{static_cast<char>(type), static_cast<char>(field2 >> 8),
                           static_cast<char>(field2 & 0xFF), static_cast<char>(field3)};
    };
    std::string entries = e(0, 0, 0) + e(1, o1, 0) + e(1, o2, 0) + e(1, o3, 0) + e(2, 3, 0) +
                          e(2, 3, 7) + e(1, o6, 0);
    pdf += "6 0 obj\n<< /Type /XRef /Size 7 /W [1 2 1] /Root 1 0 R /Length " +
           std::to_string(entries.size()) + " >>\nstream\n" + entries + "\nendstream\nendobj\n";
    pdf += "startxref\n" + std::to_string(o6) + "\n%%EOF\n";
    int32_t result = -1;
    LogCapture log;
    auto document = openBytes(pdf, &result);
    ASSERT_NE(document, nullptr);
    EXPECT_FALSE(document->isRepaired());
    auto four = document->rootObject()->resolvedObjectForKey<KPPDFObjectString>("Four");
    ASSERT_NE(four, nullptr);
    EXPECT_EQ(four->stringValue(), "four");
    auto five = KPPDFResolve<KPPDFObjectArray>(document->objectWithNumber(5));
    ASSERT_NE(five, nullptr);
    ASSERT_EQ(five->count(), 2u);
    // A reference inside an object stream resolves like any other (here to its own array).
    EXPECT_EQ(five->resolvedObjectAtIndex(0), five);
    EXPECT_EQ(resolveAll(*document), 6u);

    // An entry naming an object stream that does not hold the object gives null, not a crash.
    std::string lying = replaceOnce(pdf, e(2, 3, 7), e(2, 2, 0));
    auto stray = openBytes(lying, &result);
    ASSERT_NE(stray, nullptr);
    KPPDFRef<KPPDFObject> placeholder = stray->objectWithNumber(5);
    ASSERT_NE(placeholder, nullptr);
    EXPECT_EQ(placeholder->asReference()->resolvedObject(), nullptr);
    EXPECT_TRUE(log.contains("Object 2 is not an object stream"));
}

TEST(KPPDFDocumentOpening, FileIdentifierGetsAFreshSecondHalf) {
    int32_t result = -1;
    auto first = openFixture("classic_lf.pdf", &result);
    auto second = openFixture("classic_lf.pdf", &result);
    ASSERT_NE(first, nullptr);
    ASSERT_NE(second, nullptr);
    auto half = [](KPPDFDocument& document, size_t index) {
        EXPECT_TRUE(document.docID() && document.docID()->count() == 2);
        auto value = KPPDFCast<KPPDFObjectString>(document.docID()->resolvedObjectAtIndex(index));
        return value ? value->stringData() : std::string("<none>");
    };
    for (auto* document : {first.get(), second.get()}) {
        EXPECT_EQ(half(*document, 0), "KPPDF fixture!");
        EXPECT_EQ(half(*document, 1).size(), 16u);
    }
    EXPECT_NE(half(*first, 1), half(*second, 1));

    // Without an ID, the new value stands twice.
    auto plain = openBytes(emptyFile(), &result);
    ASSERT_NE(plain, nullptr);
    ASSERT_EQ(plain->docID()->count(), 2u);
    EXPECT_EQ(plain->docID()->resolvedObjectAtIndex(0), plain->docID()->resolvedObjectAtIndex(1));
}

TEST(KPPDFDocumentOpening, DamagedBytesNeverCrash) {
    // Every prefix of a few files, and files with bytes changed at random (fixed seed): opening
    // and resolving everything must end without a fault (the sanitizers watch).
    LogCapture log;
    std::mt19937 random(20240611);
    for (const char* file :
         {"classic_lf.pdf", "xref_stream.pdf", "hybrid.pdf", "rc4_40_empty.pdf"}) {
        SCOPED_TRACE(file);
        std::string bytes = KPPDFData::dataWithContentsOfFile(fixturePath(file)).string();
        for (size_t length = 0; length <= bytes.size(); length += 13) {
            int32_t result = -1;
            if (auto document = openBytes(bytes.substr(0, length), &result))
                resolveAll(*document);
            EXPECT_GE(result, 0);
            EXPECT_LE(result, 3);
        }
        for (int round = 0; round < 100; round++) {
            std::string damaged = bytes;
            for (int flips = 0; flips < 4; flips++)
                damaged[random() % damaged.size()] = static_cast<char>(random());
            int32_t result = -1;
            if (auto document = openBytes(damaged, &result))
                resolveAll(*document);
        }
    }
}

TEST(KPPDFDocumentOpening, ManyObjectStreamsAreReadAheadLetGoAndSavedWhole) {
    // A thousand pages under four nodes, each page with a note of some 1.5 KB, kept by qpdf in
    // some twenty object streams (the nodes in four of them, which opening reads to know the
    // order): opening reads the others ahead on a second thread, in the order the walk needs
    // them, each up to its last page, and reads the page dictionaries without parsing them. The
    // streams decode to more than the walk keeps, so it lets them go: the notes read after it
    // come from streams decoded again, and the writer lets each stream go once its last object
    // is copied. Every box, rotation and note must come out as written, whether inherited,
    // indirect, or in a dictionary the walk has to parse, in the document and in its saved file.
    if (!tool_runner::available("qpdf"))
        GTEST_SKIP() << "qpdf is needed";
    constexpr unsigned kNodes = 4, kPerNode = 250, kPages = kNodes * kPerNode;
    auto pageNumber = [&](unsigned index) { return 100 + 2 * (kPages - 1 - index); };
    auto nodeNumber = [&](unsigned node) { return 10 + node; };
    auto note = [](unsigned index) {
        return "note " + std::to_string(index) + " " + std::string(1500, 'x');
    };
    TestPDFBuilder builder;
    builder.add(1, "<< /Type /Catalog /Pages 2 0 R >>");
    std::string nodes;
    for (unsigned node = 0; node < kNodes; node++)
        nodes += std::to_string(nodeNumber(node)) + " 0 R ";
    builder.add(2, "<< /Type /Pages /Kids [" + nodes + "] /Count " + std::to_string(kPages) +
                       " /CropBox [1 1 99 99] >>");
    builder.add(3, "[0 0 300 300]");
    for (unsigned node = 0; node < kNodes; node++) {
        std::string kids;
        for (unsigned i = 0; i < kPerNode; i++)
            kids += std::to_string(pageNumber(node * kPerNode + i)) + " 0 R ";
        builder.add(nodeNumber(node), "<< /Type /Pages /Parent 2 0 R /Count " +
                                          std::to_string(kPerNode) + " /Kids [" + kids + "]" +
                                          (node % 3 == 0 ? " /Rotate 90" : "") + " >>");
    }
    for (unsigned index = 0; index < kPages; index++) {
        unsigned number = pageNumber(index), node = index / kPerNode;
        std::string entries = "/Type /Page /Parent " + std::to_string(nodeNumber(node)) +
                              " 0 R /Annots [" + std::to_string(number + 1) + " 0 R]";
        entries += index % 7 == 3 ? " /MediaBox 3 0 R"
                                  : " /MediaBox [0 0 200 " + std::to_string(100 + index) + "]";
        if (index % 5 == 1)
            entries += " /Rotate 180 /CropBox [2 2 50 50]";
        if (index % 11 == 4)
            entries += " /Title (page " + std::to_string(index) + ")";
        builder.add(number, "<< " + entries + " >>");
        builder.add(number + 1, "<< /Type /Annot /Subtype /Text /Rect [0 0 10 10] /Contents (" +
                                    note(index) + ") >>");
    }
    tool_runner::TemporaryFolder folder;
    ASSERT_TRUE(folder.write("classic.pdf", builder.build("/Root 1 0 R")));
    ASSERT_EQ(tool_runner::run("qpdf --object-streams=generate " +
                               tool_runner::quote(folder.file("classic.pdf")) + " " +
                               tool_runner::quote(folder.file("streams.pdf"))),
              0);

    auto expectPages = [&](KPPDFDocument& document) {
        ASSERT_EQ(document.pageCount(), kPages);
        for (unsigned index = 0; index < kPages; index++) {
            SCOPED_TRACE(index);
            KPPDFRef<KPPDFPage> page = document.pageAtIndex(index);
            ASSERT_TRUE(page);
            EXPECT_EQ(page->mediaBox().size.height, index % 7 == 3 ? 300 : 100 + index);
            KPPDFRect crop;
            ASSERT_TRUE(page->cropBox(&crop));
            EXPECT_EQ(crop.size.width, index % 5 == 1 ? 48 : 98);
            uint32_t rotation = 0;
            bool rotated = page->rotate(&rotation);
            EXPECT_EQ(rotated, index % 5 == 1 || (index / kPerNode) % 3 == 0);
            if (rotated) {
                EXPECT_EQ(rotation, index % 5 == 1 ? 180u : 90u);
            }
            // The dictionary still reads in full afterwards, and so do the objects after the
            // pages in their object streams (which the walk may have inflated only in part).
            auto annotations =
                page->pageDictionary()->resolvedObjectForKey<KPPDFObjectArray>("Annots");
            ASSERT_TRUE(annotations);
            EXPECT_EQ(annotations->count(), 1u);
            auto annotation =
                KPPDFCast<KPPDFObjectDictionary>(annotations->resolvedObjectAtIndex(0));
            ASSERT_TRUE(annotation);
            auto text = annotation->resolvedObjectForKey<KPPDFObjectString>("Contents");
            ASSERT_TRUE(text);
            EXPECT_EQ(text->stringValue(), note(index));
        }
    };
    LogCapture log;
    int32_t result = -1;
    KPPDFRef<KPPDFDocument> document =
        KPPDFDocument::documentWithContentsOfFile(folder.file("streams.pdf"), &result);
    ASSERT_TRUE(document);
    EXPECT_EQ(result, KPPDFDocumentOpened);
    ASSERT_EQ(document->pageCount(), kPages);
    // Whether read without parsing (plain) or parsed (the one with a string), every page
    // dictionary went back to its text.
    for (unsigned index = 0; index < kPages; index++)
        EXPECT_FALSE(document->pageAtIndex(index)->pageDictionary()->isParsed()) << index;
    std::string saved = document->currentDataWithImprints(true);
    // Saved again, the document reads the streams it let go and writes the same file.
    std::string again = document->currentDataWithImprints(true);
    EXPECT_EQ(again.substr(0, again.rfind("/ID")), saved.substr(0, saved.rfind("/ID")));
    expectPages(*document);
    tool_runner::expectQpdfAccepts(saved);
    KPPDFRef<KPPDFDocument> reopened = openBytes(saved, &result);
    ASSERT_TRUE(reopened);
    expectPages(*reopened);
    EXPECT_TRUE(log.lines().empty()) << log.lines().front();
}
