#include "kppdf/document/internal/KPPDFXRefSyntax.h"

#include <algorithm>
#include <cstring>

#include "kppdf/objects/KPPDFCharLookup.h"
#include "kppdf/objects/KPPDFObjectNumbers.h"

namespace {
bool isDigitAt(const KPPDFData& data, uint64_t offset) {
    return offset < data.length() && KPPDFIsDigit(data.bytes()[offset]);
}

bool isWhitespaceAt(const KPPDFData& data, uint64_t offset) {
    return offset < data.length() && KPPDFIsWhitespace(data.bytes()[offset]);
}

// A run of digits that a header may hold: 1 to kMaxHeaderDigits of them, fitting 32 bits.
bool readHeaderNumber(const KPPDFData& data, uint64_t from, uint64_t to, uint32_t* value) {
    if (to <= from || to - from > KPPDFXRefSyntax::kMaxHeaderDigits)
        return false;
    const char* end = nullptr;
    unsigned long long number =
        KPPDFParseUnsignedDecimal(data.chars() + from, data.chars() + to, &end);
    if (end != data.chars() + to || number > UINT32_MAX)
        return false;
    *value = static_cast<uint32_t>(number);
    return true;
}
} // namespace

uint64_t KPPDFXRefSyntax::skipBlanks(const KPPDFData& data, uint64_t offset, uint64_t limit) {
    const uint8_t* bytes = data.bytes();
    uint64_t length = std::min<uint64_t>(data.length(), limit);
    while (offset < length) {
        if (KPPDFIsWhitespace(bytes[offset])) {
            offset++;
        } else if (bytes[offset] == '%') {
            while (offset < length && bytes[offset] != '\r' && bytes[offset] != '\n')
                offset++;
        } else {
            break;
        }
    }
    return offset;
}

uint64_t KPPDFXRefSyntax::skipWhitespace(const KPPDFData& data, uint64_t offset) {
    while (isWhitespaceAt(data, offset))
        offset++;
    return std::min<uint64_t>(offset, data.length());
}

bool KPPDFXRefSyntax::hasKeyword(const KPPDFData& data, uint64_t offset, std::string_view keyword) {
    return offset <= data.length() && data.length() - offset >= keyword.size() &&
           std::memcmp(data.chars() + offset, keyword.data(), keyword.size()) == 0;
}

bool KPPDFXRefSyntax::isTokenEnd(const KPPDFData& data, uint64_t offset) {
    return offset >= data.length() || (KPPDFDocumentCharLookup[data.bytes()[offset]] &
                                       (KPPDFCharWhitespace | KPPDFCharDelimiter));
}

bool KPPDFXRefSyntax::readObjectHeader(const KPPDFData& data, uint64_t offset,
                                       ObjectHeader* header) {
    uint64_t length = data.length();
    if (offset >= length || !isDigitAt(data, offset))
        return false;
    // A header starts a token: "2 0 obj" inside "12 0 obj" is not object 2's.
    if (offset > 0 && !isTokenEnd(data, offset - 1))
        return false;
    uint64_t p = offset;
    while (isDigitAt(data, p) && p - offset <= kMaxHeaderDigits)
        p++;
    ObjectHeader found;
    found.start = offset;
    if (!readHeaderNumber(data, offset, p, &found.number) || !isWhitespaceAt(data, p))
        return false;
    p = skipWhitespace(data, p);
    uint64_t generationStart = p;
    while (isDigitAt(data, p) && p - generationStart <= kMaxHeaderDigits)
        p++;
    if (!readHeaderNumber(data, generationStart, p, &found.generation) || !isWhitespaceAt(data, p))
        return false;
    p = skipWhitespace(data, p);
    if (!hasKeyword(data, p, "obj") || !isTokenEnd(data, p + 3))
        return false;
    found.position = skipWhitespace(data, p + 3);
    *header = found;
    return true;
}

bool KPPDFXRefSyntax::findObjectHeader(const KPPDFData& data, uint64_t offset, uint32_t number,
                                       ObjectHeader* header) {
    ObjectHeader found;
    uint64_t start = skipBlanks(data, offset, offset + kMaxLeadingBlanks);
    if (readObjectHeader(data, start, &found) && found.number == number) {
        *header = found;
        return true;
    }
    for (uint64_t distance = 1; distance <= kHeaderSlack; distance++) {
        if (offset >= distance && readObjectHeader(data, offset - distance, &found) &&
            found.number == number) {
            *header = found;
            return true;
        }
        if (readObjectHeader(data, offset + distance, &found) && found.number == number) {
            *header = found;
            return true;
        }
    }
    return false;
}

bool KPPDFXRefSyntax::readObjectHeaderBefore(const KPPDFData& data, uint64_t keyword,
                                             ObjectHeader* header) {
    if (!hasKeyword(data, keyword, "obj") || !isTokenEnd(data, keyword + 3))
        return false;
    if (keyword >= 3 && hasKeyword(data, keyword - 3, "endobj"))
        return false;
    // Backward: whitespace, the generation's digits, whitespace, the number's digits.
    uint64_t p = keyword;
    if (p == 0 || !isWhitespaceAt(data, p - 1))
        return false;
    while (p > 0 && isWhitespaceAt(data, p - 1))
        p--;
    uint64_t generationEnd = p;
    while (p > 0 && isDigitAt(data, p - 1) && generationEnd - p < kMaxHeaderDigits + 1)
        p--;
    if (p == generationEnd || p == 0 || !isWhitespaceAt(data, p - 1))
        return false;
    while (p > 0 && isWhitespaceAt(data, p - 1))
        p--;
    uint64_t numberEnd = p;
    while (p > 0 && isDigitAt(data, p - 1) && numberEnd - p < kMaxHeaderDigits + 1)
        p--;
    if (p == numberEnd)
        return false;
    // Reading forward again checks token boundaries and digit counts in one place.
    ObjectHeader found;
    if (!readObjectHeader(data, p, &found))
        return false;
    *header = found;
    return true;
}

uint64_t KPPDFXRefSyntax::find(const KPPDFData& data, std::string_view pattern, uint64_t from,
                               uint64_t to) {
    to = std::min<uint64_t>(to, data.length());
    if (pattern.empty() || from >= to || to - from < pattern.size())
        return npos;
    // memchr reads only up to its hit; memmem may look at the whole rest of the buffer (the
    // sanitizers' version does), which made a scan over many hits quadratic.
    const char* base = data.chars();
    const char* p = base + from;
    const char* last = base + (to - pattern.size()); // the last place a match can start
    while (p <= last) {
        p = static_cast<const char*>(std::memchr(p, pattern[0], static_cast<size_t>(last - p) + 1));
        if (!p)
            return npos;
        if (std::memcmp(p, pattern.data(), pattern.size()) == 0)
            return static_cast<uint64_t>(p - base);
        p++;
    }
    return npos;
}

uint64_t KPPDFXRefSyntax::findLast(const KPPDFData& data, std::string_view pattern, uint64_t to) {
    to = std::min<uint64_t>(to, data.length());
    if (pattern.empty() || to < pattern.size())
        return npos;
    size_t hit = data.view().substr(0, to).rfind(pattern);
    return hit == std::string_view::npos ? npos : hit;
}
