#include "kppdf/objects/internal/KPPDFLazyScan.h"

#include <algorithm>
#include <cstring>
#include <string_view>

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
            // The object ends with its last token: the line end before the keyword is the
            // file's, and copied along it would add up with every save.
            uint64_t end = p;
            while (end > offset + 1 && KPPDFIsWhitespace(static_cast<uint8_t>(base[end - 1])))
                end--;
            return static_cast<uint32_t>(end - offset);
        } else {
            p++;
        }
    }
    return static_cast<uint32_t>(last - offset);
}

uint32_t KPPDFPlainArrayLength(const KPPDFData& data, uint64_t offset) {
    // A reference number or generation of this many digits or fewer is read as one by the
    // parser; a longer one may not be, and the array is then left to the parser.
    constexpr uint64_t kMaxReferenceDigits = 9;
    const uint64_t length = data.length();
    if (offset >= length || offset > UINT32_MAX || data.bytes()[offset] != '[')
        return 0;
    const char* base = data.chars();
    auto byte = [&](uint64_t at) { return static_cast<uint8_t>(base[at]); };
    // A token must end at white space, the closing bracket or the slash of a name: anything
    // else (strings, comments, containers, "1e5") is for the parser to judge.
    auto endsToken = [&](uint64_t at) {
        return at < length && (KPPDFIsWhitespace(byte(at)) || base[at] == ']' || base[at] == '/');
    };
    // How many plain unsigned integers (that could be "N G" of a reference) came last, up to 2.
    int integers = 0;
    uint64_t p = offset + 1;
    while (true) {
        while (p < length && KPPDFIsWhitespace(byte(p)))
            p++;
        if (p >= length)
            return 0;
        const char c = base[p];
        if (c == ']') {
            uint64_t end = p + 1;
            return end - offset > UINT32_MAX ? 0 : static_cast<uint32_t>(end - offset);
        }
        uint64_t start = p;
        if (c == '/') {
            p++;
            while (p < length &&
                   (KPPDFDocumentCharLookup[byte(p)] & (KPPDFCharNumeric | KPPDFCharRegular)))
                p++;
            integers = 0;
        } else if (KPPDFIsNumeric(byte(p))) {
            // [+-] digits [. digits], or [+-] . digits: what the number readers take whole.
            if (base[p] == '+' || base[p] == '-')
                p++;
            uint64_t digits = 0;
            bool point = false;
            while (p < length && (KPPDFIsDigit(byte(p)) || (base[p] == '.' && !point))) {
                point |= base[p] == '.';
                digits += base[p] != '.';
                p++;
            }
            if (digits == 0 || (p < length && KPPDFIsNumeric(byte(p))))
                return 0;
            bool plainInteger = !point && KPPDFIsDigit(byte(start)) && digits <= kMaxReferenceDigits;
            integers = plainInteger ? std::min(integers + 1, 2) : 0;
        } else if (KPPDFDocumentCharLookup[byte(p)] & KPPDFCharRegular) {
            while (p < length &&
                   (KPPDFDocumentCharLookup[byte(p)] & (KPPDFCharNumeric | KPPDFCharRegular)))
                p++;
            std::string_view word(base + start, static_cast<size_t>(p - start));
            if (word == "R") {
                if (integers < 2)
                    return 0;
            } else if (word != "true" && word != "false" && word != "null") {
                return 0;
            }
            integers = 0;
        } else {
            return 0;
        }
        if (!endsToken(p))
            return 0;
    }
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
