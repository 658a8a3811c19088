// Object parser in file-body mode. The input is a document's bytes: the object at offset 1 and
// the one at the offset named by the first byte are parsed, and then everything lazy about them
// is forced: arrays and dictionaries parse, references resolve into the input through a small
// object table, streams decode, and the results are written, copied and walked. The table's
// objects are walked once more after the document is gone. A dictionary at offset 1 that can be
// read without parsing is read both ways, and the two must agree; so are an object stream and
// an array of numbers there that can be read without parsing. Where an unparsed array or
// dictionary at either offset ends must be what a byte-by-byte walk finds.
//
// Input layout: byte 0 is the second parse offset; the last eight bytes give the positions of
// objects 1 to 4 (two bytes each, big-endian, modulo the input length).
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "kppdf/document/KPPDFDocument.h"
#include "kppdf/document/internal/KPPDFCompressedObjects.h"
#include "kppdf/objects/KPPDFCharLookup.h"
#include "kppdf/objects/KPPDFObject.h"
#include "kppdf/objects/KPPDFObjectArray.h"
#include "kppdf/objects/KPPDFObjectDictionary.h"
#include "kppdf/objects/KPPDFObjectName.h"
#include "kppdf/objects/KPPDFObjectReference.h"
#include "kppdf/objects/KPPDFObjectStream.h"
#include "kppdf/objects/KPPDFObjectString.h"
#include "kppdf/objects/internal/KPPDFLazyScan.h"
#include "kppdf/platform/KPPDFData.h"
#include "kppdf/platform/KPPDFLog.h"

namespace {
// Numbers 1 to kTableObjects get a table entry whose position comes from the input.
constexpr uint32_t kTableObjects = 4;
// The walk stops this deep; parsing already refuses deeper nesting, so this only bounds
// chains that go through references.
constexpr int kMaxWalkDepth = 300;

void walk(const KPPDFRef<KPPDFObject>& object, KPPDFVisitedSet& seen, int depth) {
    if (!object || depth > kMaxWalkDepth || !seen.insert(object.get()).second)
        return;
    switch (object->objectType()) {
    case KPPDFObjectTypeArray: {
        // A copy of the list: resolving may not edit it, but the walk must not depend on that.
        KPPDFObjectList elements = object->asArray()->value();
        for (auto& element : elements)
            walk(element, seen, depth + 1);
        break;
    }
    case KPPDFObjectTypeDictionary: {
        KPPDFObjectDictionary* dictionary = object->asDictionary();
        KPPDFObjectMap entries = dictionary->value();
        for (auto& [key, entry] : entries)
            walk(entry, seen, depth + 1);
        dictionary->resolvedObjectForKey("Type");
        dictionary->objectFromAncestorsForKey("Resources");
        break;
    }
    case KPPDFObjectTypeStream: {
        KPPDFObjectStream* stream = object->asStream();
        walk(stream->dictionary(), seen, depth + 1);
        stream->rawData();
        stream->decodedData();
        break;
    }
    case KPPDFObjectTypeString: {
        KPPDFObjectString* string = object->asString();
        string->value();
        string->stringValue();
        string->stringData();
        break;
    }
    case KPPDFObjectTypeName:
        object->asName()->decodedValue();
        break;
    case KPPDFObjectTypeReference:
    case KPPDFObjectTypeUnknown:
        walk(KPPDFObject::resolve(object), seen, depth + 1);
        break;
    default:
        break;
    }
}

// A dictionary read without being parsed (peekEntries) must give, key by key, what parsing it
// gives: the keys tried are the ones the plain scan found, and two it did not.
void comparePeekWithParse(KPPDFDocument& document) {
    auto peeked = KPPDFCast<KPPDFObjectDictionary>(document.objectAtOffset(1));
    if (!peeked || peeked->isParsed())
        return;
    std::vector<KPPDFPlainEntry> entries;
    if (!KPPDFPlainDictionaryEntries(peeked->objectData(), peeked->offset(), &entries))
        return;
    std::vector<std::string> names{"Type", "Missing"};
    for (size_t i = 0; i < entries.size() && i < 8; i++)
        names.emplace_back(entries[i].key);
    std::vector<std::string_view> keys(names.begin(), names.end());
    std::vector<KPPDFRef<KPPDFObject>> values(keys.size());
    if (!peeked->peekEntries(keys, values.data()))
        return;
    auto parsed = KPPDFCast<KPPDFObjectDictionary>(document.objectAtOffset(1));
    if (!parsed)
        __builtin_trap();
    for (size_t k = 0; k < keys.size(); k++) {
        KPPDFRef<KPPDFObject> entry = parsed->objectForKey(keys[k]);
        if ((entry != nullptr) != (values[k] != nullptr) ||
            (entry && entry->directObject() != values[k]->directObject()))
            __builtin_trap();
    }
}

// An array of numbers read without parsing must give, number by number, what its parsed
// elements give.
void compareNumbersWithParse(KPPDFDocument& document) {
    auto array = KPPDFCast<KPPDFObjectArray>(document.objectAtOffset(1));
    float numbers[16];
    size_t count = 0;
    if (!array || !array->plainNumbers(numbers, 16, &count))
        return;
    if (array->count() != count)
        __builtin_trap();
    for (size_t i = 0; i < count; i++) {
        KPPDFRef<KPPDFObject> element = array->value()[i];
        float parsed = element ? element->realValue() : 0.0f;
        if (!element || !element->isNumber() || std::memcmp(&parsed, &numbers[i], sizeof parsed))
            __builtin_trap();
    }
}

// An object stream read without parsing (as opening reads them on its helper thread) must be
// what parsing reads: the same data, N and First, type and lone FlateDecode filter.
void comparePlainObjectStreamWithParse(KPPDFDocument& document) {
    KPPDFCompressedObjects::PlainObjectStream plain;
    if (!KPPDFCompressedObjects::readPlainObjectStream(document.docData(), 1, &plain))
        return;
    auto stream = KPPDFCast<KPPDFObjectStream>(document.objectAtOffset(1));
    KPPDFRef<KPPDFObjectDictionary> dictionary = stream ? stream->dictionary() : nullptr;
    if (!dictionary)
        __builtin_trap();
    auto integer = [&](std::string_view key) {
        KPPDFRef<KPPDFObject> value = dictionary->objectForKey(key);
        return value && value->objectType() == KPPDFObjectTypeInteger ? value->longLongValue() : -1;
    };
    KPPDFRef<KPPDFObject> filter = dictionary->objectForKey("Filter");
    KPPDFObjectName* name = filter ? filter->asName() : nullptr;
    KPPDFData raw = stream->rawData();
    if (raw.bytes() != plain.raw.bytes() || raw.length() != plain.raw.length() ||
        integer("N") != static_cast<long long>(plain.count) ||
        integer("First") != static_cast<long long>(plain.first) ||
        !dictionary->hasName("Type", "ObjStm") || dictionary->objectForKey("DecodeParms") ||
        !name || (name->value() != "FlateDecode" && name->value() != "Fl"))
        __builtin_trap();
}

// The end of an unparsed array or dictionary, found byte by byte: the first "endobj" (or
// "stream") standing as a token of its own outside strings and comments, less the white space
// before it; what scanning reached when there is none.
uint32_t walkedLazyLength(std::string_view text, uint64_t offset, bool stopAtStream) {
    if (text.size() < 6 || offset + 1 > text.size() - 6)
        return static_cast<uint32_t>(text.size() > offset ? text.size() - offset : 0);
    const uint64_t last = text.size() - 6;
    auto isSpace = [](char c) { return KPPDFIsWhitespace(static_cast<uint8_t>(c)); };
    auto startsToken = [&](uint64_t at) {
        char before = text[at - 1];
        return isSpace(before) || (KPPDFIsDelimiter(static_cast<uint8_t>(before)) && before != '/');
    };
    for (uint64_t p = offset + 1; p <= last;) {
        if (text[p] == '(') {
            for (int depth = 0; p < text.size();) {
                char c = text[p++];
                if (c == '\\')
                    p++;
                else if (c == '(')
                    depth++;
                else if (c == ')' && --depth == 0)
                    break;
            }
        } else if (text[p] == '%') {
            while (p < text.size() && text[p] != '\r' && text[p] != '\n')
                p++;
        } else if ((text.substr(p, 6) == "endobj" ||
                    (stopAtStream && text.substr(p, 6) == "stream")) &&
                   startsToken(p)) {
            uint64_t end = p;
            while (end > offset + 1 && isSpace(text[end - 1]))
                end--;
            return static_cast<uint32_t>(end - offset);
        } else {
            p++;
        }
    }
    return static_cast<uint32_t>(last - offset);
}

void compareLazyLengthWithWalk(const KPPDFData& data, uint64_t offset) {
    for (bool stopAtStream : {false, true})
        if (KPPDFLazyObjectLength(data, offset, stopAtStream) !=
            walkedLazyLength(data.view(), offset, stopAtStream))
            __builtin_trap();
}

void exercise(const KPPDFRef<KPPDFObject>& object) {
    if (!object)
        return;
    // Written once unparsed (the byte-for-byte path) and once after everything was forced.
    object->directObject();
    KPPDFVisitedSet seen;
    walk(object, seen, 0);
    object->directObject();
    object->indirectObject();
    object->description();
    if (KPPDFRef<KPPDFObject> copy = object->copy()) {
        copy->directObject();
        copy->isEqual(*object);
    }
    KPPDFVisitedSet visited;
    for (auto& subobject : object->subobjects(visited))
        if (subobject)
            subobject->directObject();
    KPPDFMarkBytes marks;
    object->markSubobjects(marks);
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size) {
    static const bool quiet = [] {
        KPPDFSetLogHandler([](const std::string&) {});
        return true;
    }();
    (void)quiet;
    if (size < 2)
        return 0;

    KPPDFData data = KPPDFData::dataWithBytes(bytes, size);
    auto document = std::make_unique<KPPDFDocument>();
    document->setDocData(data);
    if (size >= 2 * kTableObjects) {
        for (uint32_t number = 1; number <= kTableObjects; number++) {
            size_t at = size - 2 * number;
            uint32_t position = static_cast<uint32_t>((bytes[at] << 8 | bytes[at + 1]) % size);
            // Both kinds of entry a cross-reference loader leaves: a reference that knows its
            // target's position, and an untyped object over the target's bytes.
            if (number % 2) {
                document->setObject(KPPDFObjectReference::referenceWithObjectNumber(
                                        number, 0, document.get(), position),
                                    number, 0);
            } else {
                auto placeholder = std::make_shared<KPPDFObject>();
                placeholder->setDocument(document.get());
                placeholder->setDataRange({position, 0});
                document->setObject(placeholder, number, 0);
            }
        }
    }

    compareLazyLengthWithWalk(data, 1);
    compareLazyLengthWithWalk(data, bytes[0]);
    comparePeekWithParse(*document);
    comparePlainObjectStreamWithParse(*document);
    compareNumbersWithParse(*document);
    exercise(document->objectAtOffset(1));
    exercise(document->objectAtOffset(bytes[0], data, false, false));

    // Objects of the table that a caller still holds must outlive the document harmlessly:
    // their references lead nowhere instead of into freed memory.
    KPPDFObjectList survivors;
    for (uint32_t number = 1; number <= kTableObjects; number++)
        survivors.push_back(document->objectWithNumber(number));
    document.reset();
    for (auto& survivor : survivors)
        exercise(survivor);
    return 0;
}
