#include <algorithm>
#include <gtest/gtest.h>
#include <memory>
#include <set>
#include <string>

#include "kppdf/document/KPPDFDocument.h"
#include "kppdf/objects/KPPDFObjectArray.h"
#include "kppdf/objects/KPPDFObjectDictionary.h"
#include "kppdf/objects/KPPDFObjectInteger.h"
#include "kppdf/objects/KPPDFObjectName.h"
#include "kppdf/objects/KPPDFObjectReference.h"
#include "kppdf/objects/KPPDFObjectStream.h"
#include "kppdf/objects/KPPDFObjectString.h"
#include "support/TestHelpers.h"

namespace {

// Three dictionaries that reach each other in a ring, one of them also itself.
KPPDFRef<KPPDFDocument> ringDocument() {
    TestPDFBuilder builder;
    builder.add(1, "<< /Next 2 0 R /Kids [3 0 R 3 0 R] /Name (one) >>");
    builder.add(2, "<< /Next 3 0 R /Inner << /Deep [1 0 R] >> >>");
    builder.add(3, "<< /Next 1 0 R /Self 3 0 R /Missing 40 0 R >>");
    builder.add(4, "<< /Unreached 1 0 R >>");
    return tableDocument(builder, 4);
}

} // namespace

TEST(KPPDFObjectGraph, SubobjectsAndMarksOnACycle) {
    auto doc = ringDocument();
    KPPDFRef<KPPDFObject> one = KPPDFObject::resolve(doc->objectWithNumber(1));
    ASSERT_TRUE(one);
    KPPDFVisitedSet visited;
    std::set<uint32_t> numbers;
    for (auto& object : one->subobjects(visited)) {
        ASSERT_TRUE(object);
        EXPECT_TRUE(numbers.insert(object->objectNumber()).second)
            << "object " << object->objectNumber() << " listed twice";
    }
    EXPECT_EQ(numbers, (std::set<uint32_t>{1, 2, 3}));
    // A second walk with the same visited set finds nothing new.
    EXPECT_TRUE(one->subobjects(visited).empty());

    // From a reference, the target comes first.
    KPPDFVisitedSet fresh;
    KPPDFObjectList reached =
        KPPDFObjectReference::referenceWithObjectNumber(2, 0, doc.get())->subobjects(fresh);
    ASSERT_EQ(reached.size(), 3u);
    EXPECT_EQ(reached[0]->objectNumber(), 2u);

    // Marks: every number reached, and each target is put into the table in place of its
    // placeholder.
    auto marked = ringDocument();
    KPPDFMarkBytes marks;
    KPPDFObjectReference::referenceWithObjectNumber(1, 0, marked.get())->markSubobjects(marks);
    marks.resize(5); // a shorter list has no mark for 4 either
    EXPECT_EQ(marks, (KPPDFMarkBytes{0, 1, 1, 1, 0}));
    for (unsigned n : {1u, 2u, 3u}) {
        KPPDFRef<KPPDFObject> entry = marked->objectWithNumber(n);
        ASSERT_TRUE(entry);
        EXPECT_EQ(entry->objectType(), KPPDFObjectTypeDictionary) << n;
    }
}

TEST(KPPDFObjectGraph, ReferencesResolveThroughTheTable) {
    TestPDFBuilder builder;
    builder.add(1, "<< /A 2 0 R /B 2 0 R /C 6 0 R /G 3 7 R >>");
    builder.add(2, "[1 2 3]");
    builder.add(3, "(three)");
    KPPDFRef<KPPDFDocument> doc = tableDocument(builder, 3);

    auto one = tableDictionary(*doc, 1);
    ASSERT_TRUE(one);
    KPPDFRef<KPPDFObject> a = one->resolvedObjectForKey("A");
    ASSERT_TRUE(a && a->asArray());
    // Both references share the one parsed object, which took its placeholder's table slot.
    EXPECT_EQ(one->resolvedObjectForKey("B").get(), a.get());
    EXPECT_EQ(doc->objectWithNumber(2).get(), a.get());
    EXPECT_EQ(a->objectNumber(), 2u);

    // A reference to nothing resolves to null and is written as it was read.
    EXPECT_FALSE(one->resolvedObjectForKey("C"));
    EXPECT_EQ(one->objectForKey("C")->directObject(), "6 0 R");

    // The table is keyed by number: a reference with another generation finds the object but
    // does not give it that generation, so every reference to it is written alike.
    KPPDFRef<KPPDFObject> g = one->resolvedObjectForKey("G");
    ASSERT_TRUE(g && g->asString());
    EXPECT_EQ(g->generation(), 0u);
    EXPECT_EQ(KPPDFObject::resolve(KPPDFObjectReference::referenceWithObjectNumber(3, 0, doc.get()))
                  .get(),
              g.get());
    EXPECT_EQ(one->objectForKey("G")->directObject(), "3 0 R");

    // A reference written after resolution uses its target's number, so renumbering the target
    // renumbers every reference to it.
    a->setObjectNumber(12);
    EXPECT_EQ(one->objectForKey("A")->directObject(), "12 0 R");
    EXPECT_EQ(one->directObject(), "<< /A 12 0 R /B 12 0 R /C 6 0 R /G 3 0 R>>");

    // A reference to an object in memory: the target's number, 0 until it has one.
    auto name = KPPDFObjectName::nameWithString("N");
    auto toName = KPPDFObjectReference::referenceWithObject(name);
    EXPECT_EQ(toName->directObject(), "0 0 R");
    name->setObjectNumber(31);
    EXPECT_EQ(toName->directObject(), "31 0 R");
    EXPECT_EQ(toName->resolvedObject().get(), name.get());

    // An untyped placeholder in the table is parsed on first use and takes its own slot.
    auto placeholder = std::make_shared<KPPDFObject>();
    placeholder->setDocument(doc.get());
    placeholder->setDataRange({bodyPosition(doc->docData().string(), builder, 3), 0});
    doc->setObject(placeholder, 3, 0);
    KPPDFRef<KPPDFObject> parsed = KPPDFObject::resolve(doc->objectWithNumber(3));
    ASSERT_TRUE(parsed && parsed->asString());
    EXPECT_EQ(parsed->asString()->value(), "three");
    EXPECT_EQ(doc->objectWithNumber(3).get(), parsed.get());
    EXPECT_EQ(parsed->objectNumber(), 3u);
}

TEST(KPPDFObjectGraph, CopiesAreUnnumberedAndDeep) {
    auto doc = ringDocument();
    auto one = tableDictionary(*doc, 1);
    ASSERT_TRUE(one);
    one->value();
    std::string original = one->directObject();

    KPPDFRef<KPPDFObject> copy = one->copy();
    ASSERT_TRUE(copy && copy->asDictionary());
    EXPECT_EQ(copy->objectNumber(), 0u);
    EXPECT_EQ(copy->directObject(), original);

    // Every level is a new object: changing the copy leaves the original alone.
    KPPDFObjectDictionary* copied = copy->asDictionary();
    auto kids = KPPDFCast<KPPDFObjectArray>(copied->objectForKey("Kids"));
    ASSERT_TRUE(kids);
    EXPECT_NE(kids.get(), one->objectForKey("Kids").get());
    EXPECT_EQ(kids->directContainer(), copied);
    kids->addObject(KPPDFObjectInteger::integerWithLongLong(99));
    copied->objectForKey("Name")->asString()->setLiteral(false);
    EXPECT_EQ(one->directObject(), original);
    EXPECT_EQ(copied->directObject(), "<< /Kids [ 3 0 R 3 0 R 99 ] /Name <6F6E65> /Next 2 0 R>>");

    // Copied references keep their number and the target they found.
    KPPDFRef<KPPDFObject> next = copied->objectForKey("Next");
    EXPECT_EQ(next->objectNumber(), 2u);
    EXPECT_EQ(KPPDFObject::resolve(next).get(), one->resolvedObjectForKey("Next").get());
}

TEST(KPPDFObjectGraph, Identity) {
    KPPDFDocument doc, other;
    auto a = KPPDFObjectInteger::integerWithLongLong(1);
    auto b = KPPDFObjectName::nameWithString("b");
    a->setDocument(&doc);
    b->setDocument(&doc);
    EXPECT_FALSE(a->isEqual(*b)); // no numbers: only the same instance is equal
    a->setObjectNumber(5);
    b->setObjectNumber(5);
    EXPECT_TRUE(a->isEqual(*b)); // same number, generation and document
    b->setGeneration(1);
    EXPECT_FALSE(a->isEqual(*b));
    b->setGeneration(0);
    b->setDocument(&other);
    EXPECT_FALSE(a->isEqual(*b));

    // A reference equals only a reference to the very same target.
    auto target = KPPDFObjectName::nameWithString("t");
    auto first = KPPDFObjectReference::referenceWithObject(target);
    EXPECT_TRUE(first->isEqual(*KPPDFObjectReference::referenceWithObject(target)));
    EXPECT_FALSE(first->isEqual(
        *KPPDFObjectReference::referenceWithObject(KPPDFObjectName::nameWithString("t"))));
    EXPECT_FALSE(first->isEqual(*target));
    EXPECT_FALSE(KPPDFObjectReference::referenceWithObjectNumber(1, 0, nullptr)
                     ->isEqual(*KPPDFObjectReference::referenceWithObjectNumber(1, 0, nullptr)));
}

TEST(KPPDFObjectGraph, FixReferencesBetweenDocuments) {
    TestPDFBuilder builder;
    builder.add(1, "<< /Font 2 0 R /Image 3 0 R /Other 2 5 R /List [2 0 R] >>");
    builder.add(2, "<< /Type /Font >>");
    builder.add(3, "<< /Type /XObject >>");
    KPPDFRef<KPPDFDocument> source = tableDocument(builder, 3);
    auto page = tableDictionary(*source, 1);
    ASSERT_TRUE(page);
    // Font is resolved before the fix, Image is not: both are replaced.
    ASSERT_TRUE(page->resolvedObjectForKey("Font"));

    KPPDFDocument destination;
    auto font = KPPDFObjectDictionary::dictionaryWithDictionary({});
    destination.setObject(font, 7, 0);
    auto image = KPPDFObjectDictionary::dictionaryWithDictionary({});
    destination.setObject(image, 8, 0);

    KPPDFRef<KPPDFObject> copy = page->copy();
    KPPDFReferenceFixMap map;
    map[source.get()].resize(1);
    map[source.get()][0][2] = font;
    map[source.get()][0][3] = image;
    map[&destination].resize(1);
    map[&destination][0][1] = image; // not consulted: nothing here belongs to destination
    copy->fixReferences(map);

    KPPDFObjectDictionary* copied = copy->asDictionary();
    EXPECT_EQ(KPPDFObject::resolve(copied->objectForKey("Font")).get(), font.get());
    EXPECT_EQ(KPPDFObject::resolve(copied->objectForKey("Image")).get(), image.get());
    EXPECT_EQ(copied->directObject(), "<< /Font 7 0 R /Image 8 0 R /List [ 7 0 R ] /Other 2 5 R>>");
    // The generation picks the table: there is no entry for generation 5.
    EXPECT_NE(KPPDFObject::resolve(copied->objectForKey("Other")).get(), font.get());
    // The source keeps its own targets; its unread List (copied unread) is written as it stands.
    EXPECT_EQ(page->directObject(), "<< /Font 2 0 R /Image 3 0 R /List [2 0 R] /Other 2 5 R>>");

    // Streams pass the map to their dictionaries.
    auto stream = KPPDFObjectStream::streamWithData(KPPDFData::dataWithString("x"), {0, 1});
    stream->dictionary()->setObject(
        KPPDFObjectReference::referenceWithObjectNumber(3, 0, source.get()), "Resources");
    stream->fixReferences(map);
    EXPECT_EQ(stream->resolvedObjectForKey("Resources").get(), image.get());
}

TEST(KPPDFObjectGraph, LongReferenceChainsDoNotExhaustTheStack) {
    // An outline of many items at one level is a chain through /Next; so are article beads.
    // Each walk keeps its own stack, so the length of a chain in a file is no danger.
    TestPDFBuilder builder;
    const unsigned count = 25000;
    for (unsigned n = 1; n <= count; n++) {
        std::string next = std::to_string(n % count + 1) + " 0 R";
        builder.add(n, n % 2 ? "<< /Next " + next + " >>" : "<< /Kids [" + next + "] >>");
    }
    KPPDFRef<KPPDFDocument> doc = tableDocument(builder, count);

    KPPDFVisitedSet visited;
    KPPDFObjectList reached =
        KPPDFObjectReference::referenceWithObjectNumber(1, 0, doc.get())->subobjects(visited);
    ASSERT_EQ(reached.size(), count);
    // Depth first: the chain comes out in its own order.
    for (unsigned n = 1; n <= count; n += 2499)
        EXPECT_EQ(reached[n - 1]->objectNumber(), n);

    KPPDFMarkBytes marks;
    KPPDFObjectReference::referenceWithObjectNumber(count, 0, doc.get())->markSubobjects(marks);
    ASSERT_GT(marks.size(), count);
    EXPECT_EQ(std::count(marks.begin(), marks.end(), 1), static_cast<long>(count));
}

TEST(KPPDFObjectGraph, ObjectsOutliveTheirDocument) {
    TestPDFBuilder builder;
    builder.add(1, "<< /Next 2 0 R /Other 3 0 R /Kids [2 0 R] /Inline << /Up 1 0 R >> >>");
    builder.add(2, "<< /Back 1 0 R /Text (two) >>");
    builder.add(3, "<< /Length 4 0 R >>\nstream\nabc\nendstream");
    builder.add(4, "3");

    KPPDFRef<KPPDFObjectDictionary> held;
    KPPDFRef<KPPDFObjectDictionary> second;
    KPPDFRef<KPPDFObjectStream> stream;
    {
        KPPDFRef<KPPDFDocument> doc = tableDocument(builder, 4);
        held = tableDictionary(*doc, 1);
        ASSERT_TRUE(held);
        // A cycle through cached references: 1 -> 2 -> 1, and 1 -> itself through Inline.
        second = held->resolvedObjectForKey<KPPDFObjectDictionary>("Next");
        ASSERT_TRUE(second);
        EXPECT_EQ(second->resolvedObjectForKey("Back").get(), held.get());
        KPPDFObject::resolve(held->objectForKey("Inline"));
        stream = KPPDFResolve<KPPDFObjectStream>(doc->objectWithNumber(3));
        ASSERT_TRUE(stream);
        // Object 1's Other entry is left unresolved on purpose.
    }
    // The document is gone: what the caller holds is still valid, but leads nowhere.
    EXPECT_EQ(held->document(), nullptr);
    EXPECT_FALSE(held->resolvedObjectForKey("Next"));
    EXPECT_FALSE(held->resolvedObjectForKey("Other"));
    EXPECT_FALSE(second->resolvedObjectForKey("Back"));
    auto kids = held->resolvedObjectForKey<KPPDFObjectArray>("Kids");
    ASSERT_TRUE(kids);
    EXPECT_FALSE(kids->resolvedObjectAtIndex(0));
    EXPECT_EQ(held->directObject(),
              "<< /Inline << /Up 1 0 R>> /Kids [ 2 0 R ] /Next 2 0 R /Other 3 0 R>>");
    EXPECT_EQ(second->resolvedObjectForKey("Text")->asString()->value(), "two");
    // A stream keeps its bytes.
    EXPECT_EQ(stream->rawData().string(), "abc");
    EXPECT_EQ(stream->decodedData().string(), "abc");
    EXPECT_FALSE(stream->resolvedObjectForKey("Length"));
    // Copies and walks of orphans stay inside what is left.
    KPPDFVisitedSet visited;
    EXPECT_TRUE(held->subobjects(visited).empty());
    KPPDFMarkBytes marks;
    held->markSubobjects(marks);
    EXPECT_EQ(held->copy()->directObject(), held->directObject());
}
