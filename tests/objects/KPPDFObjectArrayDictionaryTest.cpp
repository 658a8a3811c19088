#include <cstring>
#include <gtest/gtest.h>
#include <string>

#include "kppdf/document/KPPDFDocument.h"
#include "kppdf/objects/KPPDFObjectArray.h"
#include "kppdf/objects/KPPDFObjectDictionary.h"
#include "kppdf/objects/KPPDFObjectInteger.h"
#include "kppdf/objects/KPPDFObjectName.h"
#include "kppdf/objects/KPPDFObjectReference.h"
#include "kppdf/objects/KPPDFObjectString.h"
#include "support/LogCapture.h"
#include "support/TestHelpers.h"

namespace {

// Sets the document's bytes to "\n" + text and parses the object at offset 1, in body mode.
KPPDFRef<KPPDFObject> parseBody(KPPDFDocument& doc, const std::string& text, bool contained) {
    doc.setDocData(KPPDFData::dataWithString("\n" + text));
    return doc.objectAtOffset(1, doc.docData(), false, contained);
}

KPPDFRef<KPPDFObject> parseDirect(const std::string& text) {
    return KPPDFDocument::parseObject(nullptr, 0, KPPDFData::dataWithString(text), true, true);
}

} // namespace

TEST(KPPDFObjectArrayDictionary, TopLevelObjectsParseLazily) {
    KPPDFDocument doc;
    // An indirect array in the file body keeps its bytes until asked; they run to its last
    // token before "endobj" (the line end before the keyword is not the object's).
    const std::string arrayText = "[1  2\n/Three (4)]\nendobj\n";
    KPPDFRef<KPPDFObjectArray> array =
        KPPDFCast<KPPDFObjectArray>(parseBody(doc, arrayText, false));
    ASSERT_TRUE(array);
    EXPECT_FALSE(array->isParsed());
    EXPECT_EQ(array->directObject(), "[1  2\n/Three (4)]");
    EXPECT_EQ(array->count(), 4u);
    EXPECT_TRUE(array->isParsed());
    EXPECT_EQ(array->rawLength(), 17u);
    EXPECT_EQ(array->directObject(), "[ 1 2 /Three (4) ]");
    for (auto& element : array->value())
        EXPECT_EQ(element->directContainer(), array.get());

    // An untouched dictionary is written back byte for byte up to its last token before
    // "endobj" or "stream", odd spacing and comments included.
    const std::string dictionaryText = "<</Type  /Catalog%note\n/Pages 2 0 R>>  \r\nendobj\n";
    KPPDFRef<KPPDFObjectDictionary> dictionary =
        KPPDFCast<KPPDFObjectDictionary>(parseBody(doc, dictionaryText, false));
    ASSERT_TRUE(dictionary);
    EXPECT_FALSE(dictionary->isParsed());
    dictionary->setObjectNumber(1);
    EXPECT_EQ(dictionary->indirectObject(),
              "1 0 obj\n<</Type  /Catalog%note\n/Pages 2 0 R>>\nendobj\n");
    // Asking for an entry parses it; from then on it is written from its entries.
    ASSERT_TRUE(dictionary->objectForKey("Pages"));
    EXPECT_TRUE(dictionary->isParsed());
    EXPECT_EQ(dictionary->directObject(), "<< /Pages 2 0 R /Type /Catalog>>");

    // Back to its text, taken before the parse (the document's buffer is shared): refused while
    // a caller holds an entry; then written byte for byte again and parsed again when asked.
    dictionary = KPPDFCast<KPPDFObjectDictionary>(parseBody(doc, dictionaryText, false));
    KPPDFObjectDictionary::Source source = dictionary->source();
    EXPECT_TRUE(source.data.sharesStorageWith(doc.docData()));
    KPPDFRef<KPPDFObject> held = dictionary->objectForKey("Pages");
    EXPECT_FALSE(dictionary->unparse(source));
    EXPECT_TRUE(dictionary->isParsed());
    held.reset();
    EXPECT_TRUE(dictionary->unparse(source));
    EXPECT_FALSE(dictionary->isParsed());
    EXPECT_TRUE(dictionary->unparse(source)); // unparsed already: bound to the same bytes again
    EXPECT_EQ(dictionary->directObject(), "<</Type  /Catalog%note\n/Pages 2 0 R>>");
    EXPECT_EQ(dictionary->objectForKey("Pages")->directObject(), "2 0 R");
    // Any other buffer (a decoded object stream) is copied down to the dictionary's bytes.
    KPPDFData other = KPPDFData::dataWithString("x<< /A [1 2] >>\nendobj\n");
    dictionary = KPPDFObjectDictionary::dictionaryAtOffset(1, &doc, other, false, false);
    ASSERT_TRUE(dictionary);
    source = dictionary->source();
    EXPECT_FALSE(source.data.sharesStorageWith(other));
    EXPECT_EQ(source.data.view(), "<< /A [1 2] >>");
    EXPECT_EQ(dictionary->objectForKey("A")->directObject(), "[1 2]");
    EXPECT_TRUE(dictionary->unparse(std::move(source)));
    other = KPPDFData();
    EXPECT_EQ(dictionary->directObject(), "<< /A [1 2] >>");
    EXPECT_EQ(dictionary->resolvedObjectForKey<KPPDFObjectArray>("A")->count(), 2u);

    // A stream dictionary's bytes end where "stream" starts.
    dictionary = KPPDFObjectDictionary::dictionaryAtOffset(
        1, &doc, KPPDFData::dataWithString("\n<< /Length 3 >>\nstream\nabc\nendstream"), false,
        false);
    ASSERT_TRUE(dictionary);
    EXPECT_EQ(dictionary->directObject(), "<< /Length 3 >>");
}

TEST(KPPDFObjectArrayDictionary, KeywordsInsideStringsAndNamesDoNotEndALazyObject) {
    // The lazy measure looks for "stream" and "endobj"; the same words inside a string, a name
    // or a comment must not cut the object short.
    const std::string texts[] = {
        "<< /Title (The stream of life) /Author (endobj) >>",
        "<< /Subject (a \\) stream) /N 1 >>",
        "<< /Note (nested (stream) here) >>",
        "<< /Type /Livestream /Upstream true >>",
        "<< % stream endobj\n/A 1 >>",
        "<< /streamInfo 1 /endobjCount 2 /S /stream >>",
    };
    for (const std::string& text : texts) {
        SCOPED_TRACE(text);
        KPPDFDocument doc;
        KPPDFRef<KPPDFObject> object = parseBody(doc, text + "\nendobj\n", false);
        ASSERT_TRUE(object);
        ASSERT_EQ(object->objectType(), KPPDFObjectTypeDictionary);
        EXPECT_EQ(object->directObject(), text);
        EXPECT_FALSE(object->asDictionary()->value().empty());
    }
}

TEST(KPPDFObjectArrayDictionary, WrittenForms) {
    EXPECT_EQ(parseDirect("<</A[1 2.5]/B<</C(x)/D<4142>>>/E true>>")->directObject(),
              "<< /A [ 1 2.500000 ] /B << /C (x) /D <4142>>> /E true>>");
    EXPECT_EQ(parseDirect("[[[]]]")->directObject(), "[ [ [ ] ] ]");
    EXPECT_EQ(parseDirect("<</A#20B/C#2F>>")->directObject(), "<< /A#20B /C#2F>>");
    // A value directly after the key, with no blank.
    EXPECT_EQ(parseDirect("<</K[1]/L(x)/M/N>>")->directObject(), "<< /K [ 1 ] /L (x) /M /N>>");

    // Comments go, a repeated key keeps the last value; keys are kept as read, so /A#42 and
    // /AB are different keys.
    auto dictionary = KPPDFCast<KPPDFObjectDictionary>(
        parseDirect("<< %first\r\n/A %between\n 1 /B 2 /A 3 /Empty() /N null >>"));
    ASSERT_TRUE(dictionary);
    EXPECT_EQ(dictionary->rawLength(), 55u);
    EXPECT_EQ(dictionary->directObject(), "<< /A 3 /B 2 /Empty () /N null>>");
    EXPECT_EQ(parseDirect("<</A#42 1/AB 2>>")->directObject(), "<< /A#42 1 /AB 2>>");

    // Edits through the map or list reach the output.
    dictionary = KPPDFCast<KPPDFObjectDictionary>(parseDirect("<< /A 1 /B 2 >>"));
    dictionary->setObject(KPPDFObjectInteger::integerWithLongLong(3), "C");
    dictionary->removeObjectForKey("A");
    dictionary->value()["B"] = KPPDFObjectName::nameWithString("Two");
    EXPECT_EQ(dictionary->directObject(), "<< /B /Two /C 3>>");
    dictionary->setObject(nullptr, "B");
    EXPECT_EQ(dictionary->directObject(), "<< /C 3>>");
    EXPECT_EQ(dictionary->objectForKey("C")->directContainer(), dictionary.get());

    auto array = KPPDFCast<KPPDFObjectArray>(parseDirect("[ 1 ]"));
    array->addObject(KPPDFObjectString::stringWithString("s"));
    array->value().insert(array->value().begin(), KPPDFObjectInteger::integerWithLongLong(0));
    EXPECT_EQ(array->directObject(), "[ 0 1 (s) ]");
    EXPECT_EQ(array->value().back()->directContainer(), array.get());

    // Merged: arrays are joined, dictionaries merged, this side wins; the sources stay as
    // they were.
    auto mine =
        KPPDFCast<KPPDFObjectDictionary>(parseDirect("<< /A [1] /K /Mine /D << /X 1 /L [3] >> >>"));
    auto other = KPPDFCast<KPPDFObjectDictionary>(
        parseDirect("<< /A [2] /B 3 /K /Theirs /D << /Y 2 /L [4] >> >>"));
    KPPDFRef<KPPDFObjectDictionary> merged = mine->mergeWithDictionary(*other);
    ASSERT_TRUE(merged);
    EXPECT_EQ(merged->directObject(), "<< /A [ 1 2 ] /B 3 /D << /L [ 3 4 ] /X 1 /Y 2>> /K /Mine>>");
    EXPECT_EQ(mine->directObject(), "<< /A [ 1 ] /D << /L [ 3 ] /X 1>> /K /Mine>>");
    EXPECT_EQ(other->directObject(), "<< /A [ 2 ] /B 3 /D << /L [ 4 ] /Y 2>> /K /Theirs>>");
}

TEST(KPPDFObjectArrayDictionary, BadElementsEndTheParse) {
    struct Case {
        std::string text;
        bool body; // in the file body, else in direct mode
        const char* written;
        const char* line; // logged ("": nothing is; null: not checked)
    };
    const Case cases[] = {
        // In the file body an unknown byte is logged by the parser, then by the container.
        {"[1 2 ) 3]", true, "[ 1 2 ]", "Unable to parse array element at index: 2"},
        {"<< /A 1 /B ) /C 3 >>", true, "<< /A 1>>",
         "Unable to parse dictionary element at index: 1"},
        // Direct mode: a stray operator ends the array with the same line.
        {"[(a) 12 0 R (b)]", false, "[ (a) 12 0 ]", "Unable to parse array element at index: 3"},
        // A byte in key position that is not "/" ends the dictionary quietly.
        {"<< /A 1 junk /C 2 >>", false, "<< /A 1>>", ""},
        // Objects cut off by the end of the bytes end there; nothing loops or reads further.
        {"[ (abc", false, "[ (abc) ]", nullptr},
        {"<< /A", false, "<< >>", nullptr},
        {"<< /A [1 <</B", false, "<< /A [ 1 << >> ]>>", nullptr},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.text);
        LogCapture log;
        KPPDFDocument doc;
        KPPDFRef<KPPDFObject> object =
            c.body ? parseBody(doc, c.text + "\nendobj", true) : parseDirect(c.text);
        ASSERT_TRUE(object);
        EXPECT_EQ(object->directObject(), c.written);
        EXPECT_LE(object->rawLength(), c.text.size());
        if (c.body) {
            EXPECT_TRUE(log.contains("??? default ???"));
        }
        if (c.line && *c.line) {
            EXPECT_TRUE(log.contains(c.line));
        } else if (c.line) {
            EXPECT_TRUE(log.lines().empty());
        }
    }
}

TEST(KPPDFObjectArrayDictionary, EntriesThroughParentsAndTheTable) {
    TestPDFBuilder builder;
    builder.add(1, "<< /Type /Pages /Rotate 90 /MediaBox [0 0 612 792] >>");
    builder.add(2, "<< /Type /Pages /Parent 1 0 R /Resources << /Font << >> >> >>");
    builder.add(3, "<< /Type /Page /Parent 2 0 R /Rotate 180 >>");
    // A Parent cycle that does not pass through the starting dictionary.
    builder.add(4, "<< /Parent 5 0 R >>");
    builder.add(5, "<< /Parent 6 0 R >>");
    builder.add(6, "<< /Parent 5 0 R >>");
    // A dictionary that is its own parent.
    builder.add(7, "<< /Parent 7 0 R /Own 1 >>");
    builder.add(8, "<< /Kids [9 0 R 99 0 R] /Direct << /X 9 0 R >> >>");
    builder.add(9, "(nine)");
    KPPDFRef<KPPDFDocument> doc = tableDocument(builder, 9);

    KPPDFRef<KPPDFObjectDictionary> page = tableDictionary(*doc, 3);
    ASSERT_TRUE(page);
    EXPECT_EQ(page->objectFromAncestorsForKey("Rotate")->longLongValue(), 180);
    KPPDFRef<KPPDFObject> mediaBox = page->objectFromAncestorsForKey("MediaBox");
    ASSERT_TRUE(mediaBox && mediaBox->asArray());
    // Unread, it is written as the file has it.
    EXPECT_EQ(mediaBox->directObject(), "[0 0 612 792]");
    EXPECT_EQ(mediaBox->directContainer()->objectNumber(), 1u);
    EXPECT_TRUE(page->objectFromAncestorsForKey("Resources"));
    EXPECT_FALSE(page->objectFromAncestorsForKey("CropBox"));
    EXPECT_FALSE(tableDictionary(*doc, 4)->objectFromAncestorsForKey("Missing"));
    EXPECT_FALSE(tableDictionary(*doc, 7)->objectFromAncestorsForKey("Missing"));
    EXPECT_EQ(tableDictionary(*doc, 7)->objectFromAncestorsForKey("Own")->longLongValue(), 1);

    KPPDFRef<KPPDFObjectDictionary> root = tableDictionary(*doc, 8);
    ASSERT_TRUE(root);
    auto kids = root->resolvedObjectForKey<KPPDFObjectArray>("Kids");
    ASSERT_TRUE(kids);
    EXPECT_EQ(kids->resolvedObjectAtIndex(0)->asString()->value(), "nine");
    EXPECT_FALSE(kids->resolvedObjectAtIndex(1)); // no such object
    EXPECT_FALSE(kids->resolvedObjectAtIndex(2)); // past the end
    EXPECT_EQ(kids->directObject(), "[ 9 0 R 99 0 R ]");
    // The outermost container of a nested value is the numbered dictionary.
    KPPDFRef<KPPDFObject> x = root->objectForKey("Direct")->asDictionary()->objectForKey("X");
    EXPECT_EQ(x->container(), root.get());
    // Resolving every entry caches every target.
    EXPECT_FALSE(x->asReference()->value());
    root->objectForKey("Direct")->asDictionary()->resolveEntries();
    EXPECT_TRUE(x->asReference()->value());
}

TEST(KPPDFObjectArrayDictionary, PlainArraysInDictionariesParseOnFirstUse) {
    // Plain arrays (numbers, names, keywords, references) are bound lazily inside a dictionary
    // that is parsed at once; anything else (elements -1) is parsed with it.
    struct Case {
        const char* text;
        int elements;
    };
    const Case cases[] = {
        {"[/A/B true null 1 2 3 R 007 0 R]", 7},
        {"[\t1\r0\fR\n]", 1},
        {"[99999999999999999999 -99999999999999999999 .125 0000.5 4.]", 5},
        {"[1 (x) 2]", -1},
        {"[1 0 R % note\n]", -1},
        {"[12345678901 0 R]", -1},
        {"[1 0 Rx]", -1},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.text);
        LogCapture quiet;
        KPPDFDocument lazyDoc;
        auto dictionary = KPPDFCast<KPPDFObjectDictionary>(
            parseBody(lazyDoc, std::string("<< /K ") + c.text + " /Z 7 >>\nendobj\n", true));
        ASSERT_TRUE(dictionary);
        auto array = KPPDFCast<KPPDFObjectArray>(dictionary->objectForKey("K"));
        ASSERT_TRUE(array);
        EXPECT_EQ(array->isParsed(), c.elements < 0);
        if (c.elements < 0)
            continue;
        // The dictionary read on past the array exactly, and writes it back as it stands.
        EXPECT_EQ(dictionary->objectForKey("Z")->longLongValue(), 7);
        EXPECT_EQ(array->untouchedBytes(), c.text);
        EXPECT_NE(dictionary->directObject().find(c.text), std::string::npos);
        // Read later, every token is an element and the array ends where it was measured to.
        quiet.clear();
        EXPECT_EQ(array->count(), size_t(c.elements));
        EXPECT_EQ(array->rawLength(), std::strlen(c.text));
        EXPECT_TRUE(quiet.lines().empty());
        for (auto& element : array->value())
            EXPECT_EQ(element->directContainer(), array.get());
    }

    // Numbers alone are read from the text as the parsed elements give them, until it is parsed.
    KPPDFDocument doc;
    auto array = KPPDFCast<KPPDFObjectArray>(
        parseBody(doc, "[-1.5 +2 .5 3. -0 1.1234567890123456789]\nendobj\n", false));
    ASSERT_TRUE(array);
    float numbers[8];
    size_t count = 0;
    ASSERT_TRUE(array->plainNumbers(numbers, 8, &count));
    ASSERT_EQ(count, array->count());
    for (size_t i = 0; i < count; i++) {
        float parsed = array->value()[i]->realValue();
        EXPECT_EQ(std::memcmp(&numbers[i], &parsed, sizeof parsed), 0) << i;
    }
    EXPECT_FALSE(array->plainNumbers(numbers, 8, &count));
    EXPECT_FALSE(KPPDFCast<KPPDFObjectArray>(parseBody(doc, "[1 0 R]\nendobj\n", false))
                     ->plainNumbers(numbers, 8, &count));
}

TEST(KPPDFObjectArrayDictionary, PlainDictionariesAreReadWithoutParsing) {
    // Entries read alone from a plain dictionary are the entries a parse gives; any dictionary
    // the reading cannot vouch for is refused (false: the caller parses it).
    const std::pair<const char*, bool> cases[] = {
        {"<</Type/Page/MediaBox[0 0 612 792]/Parent 3 0 R/Rotate -90>>", true},
        {"<< /Rotate 1 /Rotate 180 /CropBox 12 0 R /N#20ame /a#2Fb /F true /Gone null /S 1.5 >>",
         true},
        {"<< /Type /Page /Title (a >> b) >>", false},
        {"<< /Type /Page /Group << /S /Transparency >> >>", false},
        {"<< /Type /Page % note\n/Rotate 90 >>", false},
        {"<< /Type /Page /Rotate 90", false},
    };
    constexpr std::string_view keys[] = {"Type",   "MediaBox", "CropBox", "Rotate",
                                         "Parent", "Gone",     "Missing"};
    for (const auto& [text, plain] : cases) {
        SCOPED_TRACE(text);
        KPPDFRef<KPPDFObject> values[std::size(keys)];
        KPPDFDocument doc;
        auto peeked = KPPDFCast<KPPDFObjectDictionary>(
            parseBody(doc, std::string(text) + "\nendobj\n", false));
        ASSERT_TRUE(peeked);
        ASSERT_EQ(peeked->peekEntries(keys, values), plain);
        EXPECT_FALSE(peeked->isParsed());
        if (!plain)
            continue;
        for (size_t k = 0; k < std::size(keys); k++) {
            SCOPED_TRACE(keys[k]);
            KPPDFRef<KPPDFObject> entry = peeked->objectForKey(keys[k]);
            ASSERT_EQ(values[k] != nullptr, entry != nullptr);
            if (entry) {
                EXPECT_EQ(values[k]->directObject(), entry->directObject());
            }
        }
        // Once parsed, the dictionary answers itself.
        EXPECT_FALSE(peeked->peekEntries(keys, values));
    }
}

TEST(KPPDFObjectArrayDictionary, DeepNestingFailsCleanly) {
    for (bool directOnly : {false, true}) {
        SCOPED_TRACE(directOnly ? "direct" : "body");
        for (const char* open : {"[", "<</A ", "[<</A "}) {
            SCOPED_TRACE(open);
            std::string text;
            for (int i = 0; i < 10000; i++)
                text += open;
            LogCapture log;
            KPPDFDocument doc;
            doc.setDocData(KPPDFData::dataWithString("\n" + text + "\nendobj\n"));
            KPPDFRef<KPPDFObject> object =
                doc.objectAtOffset(1, doc.docData(), directOnly, directOnly);
            ASSERT_TRUE(object);
            // Parse it in full, write it, copy it, and let it all go again.
            if (object->asArray())
                object->asArray()->value();
            else
                object->asDictionary()->value();
            std::string written = object->directObject();
            EXPECT_LT(written.size(), text.size());
            EXPECT_FALSE(log.lines().empty());
            KPPDFRef<KPPDFObject> copy = object->copy();
            EXPECT_EQ(copy->directObject(), written);
        }
    }
}
