#include <cmath>
#include <cstdlib>
#include <gtest/gtest.h>
#include <set>
#include <string>
#include <tuple>
#include <vector>

#include "kppdf/document/KPPDFDocument.h"
#include "kppdf/objects/KPPDFObjectArray.h"
#include "kppdf/objects/KPPDFObjectDictionary.h"
#include "kppdf/objects/KPPDFObjectReference.h"
#include "kppdf/objects/KPPDFObjectStream.h"
#include "support/LogCapture.h"
#include "support/TestHelpers.h"

namespace {

using namespace std::string_literals;

// Parses text placed after a line feed (offset 0 of a file never holds an object).
KPPDFRef<KPPDFObject> parse(KPPDFDocument& doc, const std::string& text, bool directOnly,
                            uint64_t at = 1) {
    doc.setDocData(KPPDFData::dataWithString("\n" + text));
    return doc.objectAtOffset(at, doc.docData(), directOnly, directOnly);
}

// The classic cross-reference table of a file: object number to offset of "n 0 obj".
std::vector<uint64_t> readXref(const std::string& file) {
    size_t startxref = file.rfind("startxref");
    uint64_t xref = std::strtoull(file.c_str() + startxref + 9, nullptr, 10);
    EXPECT_EQ(file.compare(xref, 4, "xref"), 0);
    const char* p = file.c_str() + xref + 4;
    char* end;
    unsigned long first = std::strtoul(p, &end, 10);
    unsigned long count = std::strtoul(end, &end, 10);
    std::vector<uint64_t> offsets(first + count, 0);
    p = end;
    while (*p == '\r' || *p == '\n' || *p == ' ')
        p++;
    for (unsigned long i = 0; i < count; i++, p += 20)
        if (p[17] == 'n')
            offsets[first + i] = std::strtoull(p, nullptr, 10);
    return offsets;
}

// Position of an indirect object's body: after "obj" and the whitespace that follows.
uint32_t bodyPosition(const std::string& file, uint64_t header) {
    size_t p = file.find("obj", header) + 3;
    while (p < file.size() && (file[p] == '\n' || file[p] == '\r' || file[p] == ' '))
        p++;
    return static_cast<uint32_t>(p);
}

// Equal written forms, but for the last digits of reals: the reader sums decimals in single
// precision, so a real written with six decimals may read back one unit in the last place off.
bool sameText(const std::string& a, const std::string& b) {
    size_t i = 0, j = 0;
    while (i < a.size() && j < b.size()) {
        char* endA;
        char* endB;
        bool numberStarts = (a[i] == '-' || (a[i] >= '0' && a[i] <= '9')) &&
                            (i == 0 || a[i - 1] == ' ' || a[i - 1] == '[');
        double x = numberStarts ? std::strtod(a.c_str() + i, &endA) : 0;
        if (numberStarts && endA != a.c_str() + i) {
            double y = std::strtod(b.c_str() + j, &endB);
            if (endB == b.c_str() + j || std::abs(x - y) > 1e-4 * (1 + std::abs(x)))
                return false;
            i = static_cast<size_t>(endA - a.c_str());
            j = static_cast<size_t>(endB - b.c_str());
            continue;
        }
        if (a[i++] != b[j++])
            return false;
    }
    return i == a.size() && j == b.size();
}

} // namespace

TEST(KPPDFDocumentParser, WhereAnObjectStarts) {
    // Whitespace (NUL included) and comments before the object are skipped, in the file body and
    // in direct mode; the object's range starts at its own first byte.
    const std::tuple<std::string, int32_t, uint64_t> cases[] = {
        {"%one\r%two\r\n \t\f\0 true"s, KPPDFObjectTypeBoolean, 17},
        {"%%EOF-like\r.5"s, KPPDFObjectTypeReal, 12},
        {"\0\0 /N"s, KPPDFObjectTypeName, 4},
    };
    for (const auto& [text, type, location] : cases) {
        for (bool directOnly : {false, true}) {
            SCOPED_TRACE(text + (directOnly ? " direct" : " body"));
            KPPDFDocument doc;
            KPPDFRef<KPPDFObject> object = parse(doc, text, directOnly);
            ASSERT_TRUE(object);
            EXPECT_EQ(object->objectType(), type);
            EXPECT_EQ(object->dataRange().location, location);
        }
    }
}

TEST(KPPDFDocumentParser, ReferencesOnlyInTheFileBody) {
    KPPDFDocument doc;
    KPPDFRef<KPPDFObject> object = parse(doc, "12 0 R", false);
    ASSERT_TRUE(object && object->asReference());
    EXPECT_EQ(object->objectNumber(), 12u);
    EXPECT_EQ(object->rawLength(), 6u);

    // Direct mode: two integers and a stray operator, which gives null without a log line.
    LogCapture log;
    object = parse(doc, "12 0 R", true);
    ASSERT_TRUE(object && object->asInteger());
    EXPECT_EQ(object->longLongValue(), 12);
    EXPECT_EQ(object->rawLength(), 2u);
    object = doc.objectAtOffset(3, doc.docData(), true, true);
    ASSERT_TRUE(object && object->asInteger());
    EXPECT_EQ(object->longLongValue(), 0);
    EXPECT_FALSE(doc.objectAtOffset(5, doc.docData(), true, true));
    EXPECT_TRUE(log.lines().empty());

    struct Case {
        const char* text;
        bool reference;
        uint32_t rawLength;
    };
    const Case cases[] = {
        {"12 0 obj", false, 2},       {"7 3\nR", true, 5},   {"7\r\n0\tR ", true, 6},
        {"12 -1 R", false, 2},        {"12 0", false, 2},    {"12 0 ", false, 2},
        {"12 0 0 R", false, 2},       {"1.0 0 R", false, 3}, {"12 R", false, 2},
        {"123456 65535 R", true, 14},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.text);
        object = parse(doc, c.text, false);
        ASSERT_TRUE(object);
        EXPECT_EQ(object->objectType() == KPPDFObjectTypeReference, c.reference);
        EXPECT_EQ(object->rawLength(), c.rawLength);
    }

    // In an array the reference is read at the right place: 1, then 2 3 R.
    auto array = KPPDFCast<KPPDFObjectArray>(parse(doc, "[1 2 3 R 4]", false));
    ASSERT_TRUE(array);
    ASSERT_EQ(array->count(), 3u);
    EXPECT_EQ(array->value()[1]->objectType(), KPPDFObjectTypeReference);
    EXPECT_EQ(array->directObject(), "[ 1 2 3 R 4 ]");

    // Without a document nothing could resolve a reference, so none is made.
    KPPDFRef<KPPDFObject> loose =
        KPPDFDocument::parseObject(nullptr, 0, KPPDFData::dataWithString(" 12 0 R"), false, false);
    ASSERT_TRUE(loose);
    EXPECT_EQ(loose->objectType(), KPPDFObjectTypeInteger);
}

TEST(KPPDFDocumentParser, MissingAndUnknownObjects) {
    LogCapture log;
    KPPDFDocument doc;
    doc.setDocData(KPPDFData::dataWithString("true"));
    // Offset 0 in the file body is the "missing" mark of a cross-reference entry.
    KPPDFRef<KPPDFObject> object = doc.objectAtOffset(0, doc.docData(), false, false);
    ASSERT_TRUE(object && object->asNull());
    EXPECT_TRUE(log.contains("Missing object (0 offset)"));
    EXPECT_TRUE(doc.objectAtOffset(0)->asNull());
    // Direct text starts at 0 as a matter of course.
    log.clear();
    object = doc.objectAtOffset(0, doc.docData(), true, true);
    ASSERT_TRUE(object && object->asBoolean());
    EXPECT_TRUE(log.lines().empty());
    // Blanks at the start move the object away from 0.
    doc.setDocData(KPPDFData::dataWithString("  true"));
    object = doc.objectAtOffset(0);
    ASSERT_TRUE(object && object->asBoolean());

    // Past the end, or nothing but blanks and comments: nothing.
    EXPECT_FALSE(doc.objectAtOffset(6));
    EXPECT_FALSE(doc.objectAtOffset(600));
    EXPECT_FALSE(parse(doc, "   % only a comment", false));
    EXPECT_FALSE(parse(doc, " \r\n\t", true));
    KPPDFDocument empty;
    EXPECT_FALSE(empty.objectAtOffset(1));

    // An unknown first byte: logged in the file body, silent in direct mode; null either way.
    for (const char* text : {")", "R", "endobj", "\x80"}) {
        SCOPED_TRACE(text);
        log.clear();
        EXPECT_FALSE(parse(doc, text, true));
        EXPECT_TRUE(log.lines().empty());
        EXPECT_FALSE(parse(doc, text, false));
        EXPECT_TRUE(log.contains("??? default ???"));
    }
}

TEST(KPPDFDocumentParser, DictionaryFollowedByStream) {
    for (bool directOnly : {false, true}) {
        SCOPED_TRACE(directOnly ? "direct" : "body");
        for (const char* text : {"<< /Length 3 >>\nstream\nabc\nendstream",
                                 "<< /Length 3 >> % note\r\n stream\r\nabc\r\nendstream",
                                 "<</Length 3>>stream\nabc\nendstream"}) {
            SCOPED_TRACE(text);
            KPPDFDocument doc;
            KPPDFRef<KPPDFObject> object = parse(doc, text, directOnly);
            ASSERT_TRUE(object && object->asStream());
            EXPECT_EQ(object->asStream()->rawData().string(), "abc");
            EXPECT_EQ(object->dataRange().location, 1u);
            EXPECT_EQ(object->rawLength(), std::string(text).size());
        }
        KPPDFDocument doc;
        KPPDFRef<KPPDFObject> object = parse(doc, "<< /A 1 >>\nendobj", directOnly);
        ASSERT_TRUE(object && object->asDictionary());
        object = parse(doc, "<< /A 1 >> /streamlike", directOnly);
        ASSERT_TRUE(object && object->asDictionary());
    }
}

TEST(KPPDFDocumentParser, ObjectsOfARealFile) {
    // A five-page file written by reportlab (tests/data/make_sample.py): 38 dictionaries and 5
    // content streams, two of them Flate encoded; facts checked with qpdf and pikepdf.
    const std::string file = readFile(dataPath("sample.pdf"));
    std::vector<uint64_t> headers = readXref(file);
    ASSERT_EQ(headers.size(), 44u);

    LogCapture log;
    KPPDFDocument doc;
    doc.setDocData(KPPDFData::dataWithString(file));
    for (uint32_t n = 1; n < headers.size(); n++)
        doc.setObject(KPPDFObjectReference::referenceWithObjectNumber(
                          n, 0, &doc, bodyPosition(file, headers[n])),
                      n, 0);

    // Objects 38 to 42, the pages' content streams: stored and decoded lengths.
    const uint32_t streamLengths[] = {2162, 1323, 1689, 961, 1520};
    const size_t decodedLengths[] = {2162, 3515, 1689, 2344, 1520};
    for (uint32_t n = 1; n < headers.size(); n++) {
        SCOPED_TRACE(n);
        KPPDFRef<KPPDFObject> object = KPPDFObject::resolve(doc.objectWithNumber(n));
        ASSERT_TRUE(object);
        EXPECT_EQ(object->objectNumber(), n);
        uint32_t body = bodyPosition(file, headers[n]);
        if (n >= 38 && n <= 42) {
            ASSERT_EQ(object->objectType(), KPPDFObjectTypeStream);
            EXPECT_EQ(object->asStream()->range().length, streamLengths[n - 38]);
            std::string decoded = object->asStream()->decodedData().string();
            EXPECT_EQ(decoded.size(), decodedLengths[n - 38]);
            EXPECT_EQ(decoded.substr(0, 40), "1 0 0 1 0 0 cm  BT /F1 12 Tf 14.4 TL ET\n");
            continue;
        }
        ASSERT_EQ(object->objectType(), KPPDFObjectTypeDictionary);
        // Untouched, it is written back exactly as it stands, up to its last token before
        // "endobj".
        std::string untouched = object->directObject();
        std::string stands = file.substr(body, file.find("endobj", body) - body);
        stands.erase(stands.find_last_not_of(" \t\r\n") + 1);
        EXPECT_EQ(untouched, stands);
        // Parsed, its written form reads back to the same written form.
        object->asDictionary()->value();
        std::string written = object->directObject();
        KPPDFRef<KPPDFObject> again = KPPDFDocument::parseObject(
            &doc, 0, KPPDFData::dataWithString(" " + written), false, true);
        ASSERT_TRUE(again);
        EXPECT_TRUE(sameText(again->directObject(), written)) << again->directObject();
        EXPECT_EQ(again->rawLength(), written.size());
    }
    EXPECT_TRUE(log.lines().empty()) << log.lines().front();

    // The trailer, with a comment among its entries: everything but the information
    // dictionary hangs from its catalog.
    size_t trailer = file.rfind("trailer") + 7;
    auto trailerDictionary =
        KPPDFCast<KPPDFObjectDictionary>(doc.objectAtOffset(trailer, doc.docData(), false, true));
    ASSERT_TRUE(trailerDictionary);
    EXPECT_EQ(trailerDictionary->resolvedObjectForKey("Size")->longLongValue(), 44);
    auto root = trailerDictionary->objectForKey("Root");
    ASSERT_TRUE(root && root->asReference());
    EXPECT_EQ(root->objectNumber(), 23u);
    KPPDFVisitedSet visited;
    std::set<uint32_t> reached;
    for (auto& object : root->subobjects(visited))
        EXPECT_TRUE(reached.insert(object->objectNumber()).second) << object->objectNumber();
    EXPECT_EQ(reached.size(), 42u);
    EXPECT_FALSE(reached.count(24));
}
