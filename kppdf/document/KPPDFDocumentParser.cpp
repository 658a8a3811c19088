// The object parser: decides from the bytes at an offset which kind of object starts there.
#include <cstring>

#include "kppdf/document/KPPDFDocument.h"
#include "kppdf/objects/KPPDFCharLookup.h"
#include "kppdf/objects/KPPDFObjectArray.h"
#include "kppdf/objects/KPPDFObjectBoolean.h"
#include "kppdf/objects/KPPDFObjectDictionary.h"
#include "kppdf/objects/KPPDFObjectInteger.h"
#include "kppdf/objects/KPPDFObjectName.h"
#include "kppdf/objects/KPPDFObjectNull.h"
#include "kppdf/objects/KPPDFObjectReal.h"
#include "kppdf/objects/KPPDFObjectReference.h"
#include "kppdf/objects/KPPDFObjectStream.h"
#include "kppdf/objects/KPPDFObjectString.h"
#include "kppdf/platform/KPPDFLog.h"

namespace {
thread_local int parseDepth = 0;

struct DepthGuard {
    bool ok;
    DepthGuard() : ok(++parseDepth <= KPPDFDocument::kMaxParseDepth) {}
    ~DepthGuard() { --parseDepth; }
};

bool hasKeyword(const KPPDFData& data, uint64_t offset, std::string_view keyword) {
    return data.length() - offset >= keyword.size() &&
           std::memcmp(data.chars() + offset, keyword.data(), keyword.size()) == 0;
}

// Skips whitespace and comments; returns the offset of the first other byte (or the length).
uint64_t skipBlanks(const KPPDFData& data, uint64_t offset) {
    const char* base = data.chars();
    uint64_t length = data.length();
    while (offset < length) {
        uint8_t c = static_cast<uint8_t>(base[offset]);
        if (KPPDFIsWhitespace(c)) {
            offset++;
        } else if (c == '%') {
            while (offset < length && base[offset] != '\r' && base[offset] != '\n')
                offset++;
        } else {
            break;
        }
    }
    return offset;
}

template <class T> KPPDFRef<KPPDFObject> placed(KPPDFRef<T> object, uint64_t offset) {
    if (object)
        object->setDataRange({static_cast<uint32_t>(offset), object->rawLength()});
    return object;
}
} // namespace

KPPDFRef<KPPDFObject> KPPDFDocument::parseObject(KPPDFDocument* document, uint64_t offset,
                                                 const KPPDFData& data, bool directOnly,
                                                 bool contained) {
    uint64_t length = data.length();
    if (offset >= length || offset > UINT32_MAX)
        return nullptr;
    offset = skipBlanks(data, offset);
    if (offset == 0 && !directOnly) {
        KPPDFLog("Missing object (0 offset)");
        return std::make_shared<KPPDFObjectNull>();
    }
    if (offset >= length)
        return nullptr;
    DepthGuard depth;
    if (!depth.ok) {
        KPPDFLog("Objects nested too deeply at offset %llu", static_cast<unsigned long long>(offset));
        return nullptr;
    }
    const char* base = data.chars();
    uint8_t c = static_cast<uint8_t>(base[offset]);
    switch (c) {
    case '(':
    case '<': {
        // A string belongs to the document (and may have to be decrypted) only when it is read
        // from the document's own bytes in the file body; a slice of them has other offsets.
        KPPDFDocument* owner = !directOnly && document &&
                                       data.bytes() == document->docData().bytes() &&
                                       data.length() == document->docData().length()
                                   ? document
                                   : nullptr;
        if (c == '(')
            return placed(KPPDFObjectString::stringAtOffset(offset, owner, data,
                                                            KPPDFObjectString::kStringTypeLiteral,
                                                            directOnly),
                          offset);
        if (offset + 1 < length && base[offset + 1] == '<') {
            KPPDFRef<KPPDFObjectDictionary> dictionary = KPPDFObjectDictionary::dictionaryAtOffset(
                offset, document, data, directOnly, contained);
            if (!dictionary)
                return nullptr;
            placed(dictionary, offset);
            uint64_t after = skipBlanks(data, offset + dictionary->rawLength());
            if (after < length && hasKeyword(data, after, "stream")) {
                KPPDFRef<KPPDFObjectStream> stream =
                    KPPDFObjectStream::streamAtOffset(after, document, data, dictionary);
                if (stream)
                    return stream;
            }
            return dictionary;
        }
        return placed(KPPDFObjectString::stringAtOffset(offset, owner, data,
                                                        KPPDFObjectString::kStringTypeHex,
                                                        directOnly),
                      offset);
    }
    case '/':
        return placed(KPPDFObjectName::nameAtOffset(offset, data), offset);
    case '[':
        return placed(KPPDFObjectArray::arrayAtOffset(offset, document, data, directOnly, false,
                                                      contained),
                      offset);
    case 't':
        if (!hasKeyword(data, offset, "true"))
            return nullptr;
        return placed(KPPDFObjectBoolean::boolAtOffset(offset, data, document), offset);
    case 'f':
        if (!hasKeyword(data, offset, "false"))
            return nullptr;
        return placed(KPPDFObjectBoolean::boolAtOffset(offset, data, document), offset);
    case 'n':
        if (!hasKeyword(data, offset, "null"))
            return nullptr;
        return placed(KPPDFObjectNull::nullAtOffset(offset, data, document), offset);
    default:
        if (KPPDFIsNumeric(c))
            return parseNumber(document, offset, data, directOnly);
        if (!directOnly)
            KPPDFLog("??? default ???");
        return nullptr;
    }
}

KPPDFRef<KPPDFObject> KPPDFDocument::parseNumber(KPPDFDocument* document, uint64_t offset,
                                                 const KPPDFData& data, bool directOnly) {
    uint64_t length = data.length();
    if (offset >= length)
        return nullptr;
    const char* base = data.chars();
    uint64_t p = offset;
    bool point = false;
    while (p < length && KPPDFIsNumeric(static_cast<uint8_t>(base[p]))) {
        point |= base[p] == '.';
        p++;
    }
    uint64_t runLength = p - offset;
    // The conversion may read past the run for an exponent ("1e5"): let it see the rest of the
    // token, never the rest of the buffer.
    uint64_t tokenEnd = p;
    while (tokenEnd < length && tokenEnd - offset < 64 &&
           !(KPPDFDocumentCharLookup[static_cast<uint8_t>(base[tokenEnd])] &
             (KPPDFCharWhitespace | KPPDFCharDelimiter)))
        tokenEnd++;
    KPPDFRef<KPPDFObject> number;
    if (point) {
        number = KPPDFObjectReal::realWithPtr(base + offset, static_cast<uint32_t>(tokenEnd - offset),
                                              document);
    } else {
        if (!directOnly && document) {
            uint64_t q = p;
            while (q < length && KPPDFIsWhitespace(static_cast<uint8_t>(base[q])))
                q++;
            if (q < length && KPPDFIsDigit(static_cast<uint8_t>(base[q]))) {
                while (q < length && KPPDFIsNumeric(static_cast<uint8_t>(base[q])))
                    q++;
                while (q < length && KPPDFIsWhitespace(static_cast<uint8_t>(base[q])))
                    q++;
                if (q < length && base[q] == 'R') {
                    if (auto reference = KPPDFObjectReference::referenceWithPtr(
                            base + offset, base + length, document))
                        return placed(reference, offset);
                }
            }
        }
        number = KPPDFObjectInteger::integerWithPtr(base + offset, static_cast<uint32_t>(runLength),
                                                    document);
    }
    if (!number || number->rawLength() == 0)
        return nullptr;
    return placed(number, offset);
}
