#include "kppdf/objects/internal/KPPDFLazyScan.h"

#include <cstring>

#include "kppdf/objects/KPPDFCharLookup.h"
#include "kppdf/objects/KPPDFObject.h"

namespace {
// A keyword counts only as a token of its own: not the tail of a longer name like /Livestream,
// nor a name of its own like /streamInfo.
bool startsToken(const char* base, uint64_t at) {
    uint8_t before = at ? static_cast<uint8_t>(base[at - 1]) : ' ';
    return KPPDFIsWhitespace(before) || (KPPDFIsDelimiter(before) && before != '/');
}

// The first byte after the literal string that opens at p (ISO 32000-1, 7.3.4.2: balanced
// parentheses, backslash escapes), or length when it is not closed.
uint64_t skipLiteralString(const char* base, uint64_t p, uint64_t length) {
    int depth = 0;
    while (p < length) {
        char c = base[p++];
        if (c == '\\')
            p++;
        else if (c == '(')
            depth++;
        else if (c == ')' && --depth == 0)
            return p;
    }
    return length;
}
} // namespace

uint32_t KPPDFLazyObjectLength(const KPPDFData& data, uint64_t offset, bool stopAtStream) {
    uint64_t length = data.length();
    if (length < 6 || offset + 1 > length - 6)
        return static_cast<uint32_t>(length > offset ? length - offset : 0);
    const char* base = data.chars();
    // A keyword may start at most six bytes before the end.
    const uint64_t last = length - 6;
    uint64_t p = offset + 1;
    while (p <= last) {
        char c = base[p];
        // The keywords may stand in a string ("(stream of text)") or a comment; neither ends
        // the object.
        if (c == '(') {
            p = skipLiteralString(base, p, length);
        } else if (c == '%') {
            while (p < length && base[p] != '\r' && base[p] != '\n')
                p++;
        } else if (((c == 'e' && std::memcmp(base + p, "endobj", 6) == 0) ||
                    (stopAtStream && c == 's' && std::memcmp(base + p, "stream", 6) == 0)) &&
                   startsToken(base, p)) {
            return static_cast<uint32_t>(p - offset);
        } else {
            p++;
        }
    }
    return static_cast<uint32_t>(last - offset);
}

bool KPPDFContainerEndsOpen(const KPPDFObject& object, const KPPDFData& data, uint64_t end) {
    if (end > data.length())
        return true;
    const char* base = data.chars();
    switch (object.objectType()) {
    case KPPDFObjectTypeArray:
        return end < 1 || base[end - 1] != ']';
    case KPPDFObjectTypeDictionary:
        return end < 2 || base[end - 1] != '>' || base[end - 2] != '>';
    default:
        return false;
    }
}
