#include "kppdf/objects/internal/KPPDFLazyScan.h"

#include <algorithm>
#include <cstring>
#include <string_view>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include "kppdf/objects/KPPDFCharLookup.h"
#include "kppdf/objects/KPPDFObject.h"
#include "kppdf/objects/KPPDFObjectName.h"
#include "kppdf/objects/KPPDFObjectNumbers.h"

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
// The end of the number at p as the number readers take it whole ([+-] digits [. digits], or
// [+-] . digits); *digits counts its digits (0: no number), *point tells whether it has one.
uint64_t scanNumber(const char* base, uint64_t p, uint64_t length, uint64_t* digits, bool* point) {
    if (p < length && (base[p] == '+' || base[p] == '-'))
        p++;
    *digits = 0;
    *point = false;
    while (p < length &&
           (KPPDFIsDigit(static_cast<uint8_t>(base[p])) || (base[p] == '.' && !*point))) {
        *point |= base[p] == '.';
        *digits += base[p] != '.';
        p++;
    }
    return p;
}
// The first byte from p to last that may start "endobj" (or "stream", when it counts), a
// string or a comment; last + 1 when there is none. Sixteen bytes at a time where the machine
// compares them so.
uint64_t nextCandidate(const char* base, uint64_t p, uint64_t last, bool stopAtStream) {
#if defined(__SSE2__)
    const __m128i e = _mm_set1_epi8('e'), s = _mm_set1_epi8(stopAtStream ? 's' : 'e');
    const __m128i paren = _mm_set1_epi8('('), percent = _mm_set1_epi8('%');
    for (; p + 16 <= last + 1; p += 16) {
        __m128i bytes = _mm_loadu_si128(reinterpret_cast<const __m128i*>(base + p));
        __m128i found = _mm_or_si128(
            _mm_or_si128(_mm_cmpeq_epi8(bytes, e), _mm_cmpeq_epi8(bytes, s)),
            _mm_or_si128(_mm_cmpeq_epi8(bytes, paren), _mm_cmpeq_epi8(bytes, percent)));
        if (int mask = _mm_movemask_epi8(found))
            return p + static_cast<uint64_t>(__builtin_ctz(static_cast<unsigned>(mask)));
    }
#endif
    for (; p <= last; p++) {
        char c = base[p];
        if (c == 'e' || (c == 's' && stopAtStream) || c == '(' || c == '%')
            return p;
    }
    return last + 1;
}
} // namespace

uint32_t KPPDFLazyObjectLength(const KPPDFData& data, uint64_t offset, bool stopAtStream) {
    uint64_t length = data.length();
    if (length < 6 || offset + 1 > length - 6)
        return static_cast<uint32_t>(length > offset ? length - offset : 0);
    const char* base = data.chars();
    // A keyword may start at most six bytes before the end.
    const uint64_t last = length - 6;
    // The object ends with its last token: the line end before the keyword is the file's, and
    // copied along it would add up with every save.
    auto endBefore = [&](uint64_t keyword) {
        uint64_t end = keyword;
        while (end > offset + 1 && KPPDFIsWhitespace(static_cast<uint8_t>(base[end - 1])))
            end--;
        return static_cast<uint32_t>(end - offset);
    };
    uint64_t p = offset + 1;
    // Most objects hold no string or comment before their keyword: the bytes that may start a
    // keyword are looked at alone until one of those turns up, and the walk below takes over.
    for (;; p++) {
        p = nextCandidate(base, p, last, stopAtStream);
        if (p > last)
            return static_cast<uint32_t>(last - offset);
        char c = base[p];
        if (c == '(' || c == '%')
            break; // a string or comment may hide a keyword: the walk below tells
        if (std::memcmp(base + p, c == 'e' ? "endobj" : "stream", 6) == 0 && startsToken(base, p))
            return endBefore(p);
    }
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
            return endBefore(p);
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
        if (KPPDFIsDigit(byte(p))) {
            // The usual token, an integer of a reference or a box, read at once; anything more
            // (a point, a sign, a letter after the digits) is read the general way below.
            uint64_t q = p + 1;
            while (q < length && KPPDFIsDigit(byte(q)))
                q++;
            if (endsToken(q)) {
                integers = q - p <= kMaxReferenceDigits ? std::min(integers + 1, 2) : 0;
                p = q;
                continue;
            }
        } else if (c == 'R' && endsToken(p + 1)) {
            if (integers < 2)
                return 0;
            integers = 0;
            p++;
            continue;
        }
        if (c == '/') {
            p++;
            while (p < length &&
                   (KPPDFDocumentCharLookup[byte(p)] & (KPPDFCharNumeric | KPPDFCharRegular)))
                p++;
            integers = 0;
        } else if (KPPDFIsNumeric(byte(p))) {
            uint64_t digits = 0;
            bool point = false;
            p = scanNumber(base, p, length, &digits, &point);
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

bool KPPDFPlainDictionaryEntries(const KPPDFData& data, uint64_t offset,
                                 std::vector<KPPDFPlainEntry>* entries, uint64_t* end) {
    entries->clear();
    const uint64_t length = data.length();
    if (offset + 1 >= length || data.bytes()[offset] != '<' || data.bytes()[offset + 1] != '<')
        return false;
    const char* base = data.chars();
    auto byte = [&](uint64_t at) { return static_cast<uint8_t>(base[at]); };
    auto skipBlanks = [&](uint64_t at) {
        while (at < length && KPPDFIsWhitespace(byte(at)))
            at++;
        return at;
    };
    // Where the parser would stop reading the token anyway: anything else ("1e5", "/a(b)")
    // is for the parser to judge.
    auto endsToken = [&](uint64_t at) {
        return at < length && (KPPDFIsWhitespace(byte(at)) || base[at] == '/' || base[at] == '>' ||
                               base[at] == '[');
    };
    auto scanWord = [&](uint64_t at) {
        while (at < length &&
               (KPPDFDocumentCharLookup[byte(at)] & (KPPDFCharNumeric | KPPDFCharRegular)))
            at++;
        return at;
    };
    // A plain unsigned integer the parser reads as a reference's number or generation (as
    // in KPPDFPlainArrayLength); the end of it, or at when there is none.
    auto scanInteger = [&](uint64_t at) {
        uint64_t start = at;
        while (at < length && KPPDFIsDigit(byte(at)))
            at++;
        return at > start && at - start <= 9 && endsToken(at) ? at : start;
    };
    uint64_t p = offset + 2;
    while (true) {
        p = skipBlanks(p);
        if (p + 1 < length && base[p] == '>' && base[p + 1] == '>') {
            if (end)
                *end = p + 2;
            return true;
        }
        if (p >= length || base[p] != '/')
            return false;
        size_t keyLength = KPPDFObjectName::scanName(base + p, base + length);
        if (keyLength == 0 || !endsToken(p + keyLength))
            return false;
        std::string_view key(base + p + 1, keyLength - 1);
        p = skipBlanks(p + keyLength);
        if (p >= length)
            return false;
        uint64_t value = p;
        const char c = base[p];
        if (c == '[') {
            uint32_t arrayLength = KPPDFPlainArrayLength(data, p);
            if (arrayLength == 0)
                return false;
            p += arrayLength;
        } else if (c == '/') {
            size_t nameLength = KPPDFObjectName::scanName(base + p, base + length);
            if (nameLength == 0)
                return false;
            p += nameLength;
        } else if (KPPDFIsNumeric(byte(p))) {
            // "N G R" is one value; any other number stands alone.
            uint64_t number = scanInteger(p);
            uint64_t generation = number > p ? scanInteger(skipBlanks(number)) : number;
            uint64_t r = generation > skipBlanks(number) ? skipBlanks(generation) : generation;
            if (r > generation && r < length && base[r] == 'R' && endsToken(r + 1)) {
                p = r + 1;
            } else {
                uint64_t digits = 0;
                bool point = false;
                p = scanNumber(base, p, length, &digits, &point);
                if (digits == 0)
                    return false;
            }
        } else if (KPPDFDocumentCharLookup[byte(p)] & KPPDFCharRegular) {
            p = scanWord(p);
            std::string_view word(base + value, static_cast<size_t>(p - value));
            if (word != "true" && word != "false" && word != "null")
                return false;
        } else {
            return false;
        }
        if (!endsToken(p))
            return false;
        entries->push_back({key, value});
    }
}

bool KPPDFPlainArrayNumbers(const KPPDFData& data, uint64_t offset, float* values, size_t capacity,
                            size_t* count) {
    // Read as the parser reads a number token: with a point, as a real over the token (of at
    // most 64 bytes); without, as an integer over its digits.
    constexpr uint64_t kMaxToken = 64;
    uint32_t arrayLength = KPPDFPlainArrayLength(data, offset);
    if (arrayLength == 0)
        return false;
    const char* base = data.chars();
    const uint64_t end = offset + arrayLength - 1; // its "]"
    *count = 0;
    for (uint64_t p = offset + 1;;) {
        while (p < end && KPPDFIsWhitespace(static_cast<uint8_t>(base[p])))
            p++;
        if (p >= end)
            return true;
        // Anything but a number (a name, a word, the R of a reference) is for the parser.
        if (!KPPDFIsNumeric(static_cast<uint8_t>(base[p])) || *count >= capacity)
            return false;
        uint64_t start = p, digits = 0;
        bool point = false;
        p = scanNumber(base, p, end, &digits, &point);
        if (p - start >= kMaxToken)
            return false;
        const char* stop = base + start;
        float value =
            point ? KPPDFObjectStrToFloat(base + start, &stop, base + p)
                  : static_cast<float>(KPPDFParseSignedDecimal(base + start, base + p, &stop));
        if (stop != base + p)
            return false;
        values[(*count)++] = value;
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
