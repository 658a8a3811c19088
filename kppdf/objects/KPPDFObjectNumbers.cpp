#include "kppdf/objects/KPPDFObjectNumbers.h"

#include <algorithm>
#include <bit>
#include <cfloat>
#include <climits>
#include <cstdlib>
#include <cstring>

#include "kppdf/objects/KPPDFCharLookup.h"

namespace {
// Longest number text handed to strtod; PDF numbers are far shorter.
constexpr size_t kMaxFallbackNumberLength = 63;

bool atEnd(const char* p, const char* limit) { return limit ? p >= limit : *p == '\0'; }
} // namespace

float KPPDFObjectStrToFloat(const char* text, const char** end, const char* limit) {
    const char* p = text;
    float sign = 1.0f;
    if (!atEnd(p, limit) && (*p == '+' || *p == '-')) {
        if (*p == '-')
            sign = -1.0f;
        p++;
    }
    float value = 0.0f;
    while (!atEnd(p, limit) && KPPDFIsDigit(static_cast<uint8_t>(*p)))
        value = value * 10.0f + static_cast<float>(*p++ - '0');
    if (!atEnd(p, limit) && *p == '.') {
        p++;
        float f = 0.1f;
        while (!atEnd(p, limit) && KPPDFIsDigit(static_cast<uint8_t>(*p))) {
            value += static_cast<float>(*p++ - '0') * f;
            f *= 0.1f;
        }
    }
    if (atEnd(p, limit) || KPPDFDocumentCharLookup[static_cast<uint8_t>(*p)] &
                               (KPPDFCharWhitespace | KPPDFCharDelimiter)) {
        if (end)
            *end = p;
        return sign * value;
    }
    // Exponents, second points and other oddities: let the C library decide, on a bounded copy.
    char buffer[kMaxFallbackNumberLength + 1];
    size_t n = 0;
    for (const char* q = text; n < kMaxFallbackNumberLength && !atEnd(q, limit); q++)
        buffer[n++] = *q;
    buffer[n] = '\0';
    char* stop = buffer;
    double result = std::strtod(buffer, &stop);
    if (end)
        *end = text + (stop - buffer);
    // "1e39" does not fit a float; the nearest one that does stands in.
    if (!(result == result))
        return 0.0f;
    result = std::clamp(result, -static_cast<double>(FLT_MAX), static_cast<double>(FLT_MAX));
    return static_cast<float>(result);
}

void reverse(char* text) {
    size_t n = std::strlen(text);
    for (size_t i = 0, j = n ? n - 1 : 0; i < j; i++, j--) {
        char c = text[i];
        text[i] = text[j];
        text[j] = c;
    }
}

void KPPDFObjectUnsignedToStringInPlace(uint32_t value, char** cursor) {
    char* start = *cursor;
    char* p = start;
    do {
        *p++ = static_cast<char>('0' + value % 10);
        value /= 10;
    } while (value);
    *p = '\0';
    reverse(start);
    *cursor = p;
}

void KPPDFObjectUnsigned64ToStringInPlace(uint64_t value, char** cursor) {
    char* start = *cursor;
    char* p = start;
    do {
        *p++ = static_cast<char>('0' + value % 10);
        value /= 10;
    } while (value);
    *p = '\0';
    reverse(start);
    *cursor = p;
}

void KPPDFObjectSignedToStringInPlace(int32_t value, char** cursor) {
    char* p = *cursor;
    uint32_t magnitude = static_cast<uint32_t>(value);
    if (value < 0) {
        *p++ = '-';
        magnitude = 0u - magnitude;
    }
    KPPDFObjectUnsignedToStringInPlace(magnitude, &p);
    *cursor = p;
}

namespace {
// Eight bytes at a time, for the short numbers that fill object stream headers and
// cross-reference data; the caller makes sure that eight bytes at text can be read.
// How many of them are decimal digits before the first other byte (8 when all are).
unsigned leadingDigits8(const char* text) {
    if constexpr (std::endian::native == std::endian::little) {
        uint64_t chunk;
        std::memcpy(&chunk, text, 8);
        const uint64_t values = chunk ^ 0x3030303030303030ull; // a digit's byte: 0 to 9
        const uint64_t notDigit =
            (((values & 0x7f7f7f7f7f7f7f7full) + 0x7676767676767676ull) | values) &
            0x8080808080808080ull;
        return notDigit ? static_cast<unsigned>(std::countr_zero(notDigit)) / 8 : 8;
    } else {
        unsigned digits = 0;
        while (digits < 8 && text[digits] >= '0' && text[digits] <= '9')
            digits++;
        return digits;
    }
}
// The value of the digits (1 to 8 of them) at text, with the eight bytes readable.
uint32_t digitsValue8(const char* text, unsigned digits) {
    if constexpr (std::endian::native == std::endian::little) {
        uint64_t chunk;
        std::memcpy(&chunk, text, 8);
        // The digits moved to the top bytes, zeros (leading zero digits) below, then paired
        // into tens, hundreds and ten-thousands by three multiplications.
        uint64_t v = (chunk ^ 0x3030303030303030ull) << (8 * (8 - digits));
        v = v * 10 + (v >> 8);
        v = (((v & 0x000000ff000000ffull) * (100 + (1000000ull << 32))) +
             (((v >> 16) & 0x000000ff000000ffull) * (1 + (10000ull << 32)))) >>
            32;
        return static_cast<uint32_t>(v);
    } else {
        uint32_t value = 0;
        for (unsigned i = 0; i < digits; i++)
            value = value * 10 + static_cast<uint32_t>(text[i] - '0');
        return value;
    }
}
} // namespace

unsigned long long KPPDFParseUnsignedDecimal(const char* text, const char* limit,
                                             const char** end) {
    const char* p = text;
    if (limit - p >= 8) {
        const unsigned digits = leadingDigits8(p);
        if (digits < 8) {
            if (end)
                *end = p + digits;
            return digits ? digitsValue8(p, digits) : 0;
        }
    }
    unsigned long long value = 0;
    // Nineteen digits never overflow: only the digits after them need the check.
    const char* unchecked = limit - p > 19 ? p + 19 : limit;
    while (p < unchecked && KPPDFIsDigit(static_cast<uint8_t>(*p)))
        value = value * 10 + static_cast<unsigned>(*p++ - '0');
    while (p < limit && KPPDFIsDigit(static_cast<uint8_t>(*p))) {
        unsigned digit = static_cast<unsigned>(*p - '0');
        value = value > (ULLONG_MAX - digit) / 10 ? ULLONG_MAX : value * 10 + digit;
        p++;
    }
    if (end)
        *end = p;
    return value;
}

long long KPPDFParseSignedDecimal(const char* text, const char* limit, const char** end) {
    const char* p = text;
    bool negative = false;
    if (p < limit && (*p == '+' || *p == '-')) {
        negative = *p == '-';
        p++;
    }
    const char* digitsEnd = p;
    unsigned long long magnitude = KPPDFParseUnsignedDecimal(p, limit, &digitsEnd);
    if (digitsEnd == p) {
        if (end)
            *end = text;
        return 0;
    }
    if (end)
        *end = digitsEnd;
    if (negative)
        return magnitude > static_cast<unsigned long long>(LLONG_MAX) + 1
                   ? LLONG_MIN
                   : static_cast<long long>(0ull - magnitude);
    return magnitude > static_cast<unsigned long long>(LLONG_MAX) ? LLONG_MAX
                                                                   : static_cast<long long>(magnitude);
}
