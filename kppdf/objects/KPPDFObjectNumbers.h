#pragma once
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>

// Number reading and writing shared by every serialiser. None of them allocates.

// Reads a PDF number at text. Plain decimals ([+-]digits[.digits]) are accumulated in single
// precision; anything else (an exponent, a second point) is converted again with strtod.
// limit bounds the read (null: the text is zero-terminated). *end receives the first byte not
// consumed (text itself when nothing was read).
float KPPDFObjectStrToFloat(const char* text, const char** end = nullptr,
                            const char* limit = nullptr);

// Writes the decimal digits of value at *cursor, zero-terminates them and leaves *cursor on the
// zero byte. The buffer must hold 12 bytes (11 for the unsigned form).
void KPPDFObjectSignedToStringInPlace(int32_t value, char** cursor);
void KPPDFObjectUnsignedToStringInPlace(uint32_t value, char** cursor);
// The same for 64-bit values (buffers of 21 bytes); the writers use them for offsets.
void KPPDFObjectUnsigned64ToStringInPlace(uint64_t value, char** cursor);

// Reverses a zero-terminated text in place.
void reverse(char* text);

// Bounded decimal readers: digits after an optional sign, at most up to limit. *end gets the
// first byte not consumed (text when no digit was read). Overflow saturates.
long long KPPDFParseSignedDecimal(const char* text, const char* limit, const char** end);
unsigned long long KPPDFParseUnsignedDecimal(const char* text, const char* limit, const char** end);

// Eight bytes at a time, for the long runs of short plain numbers in object stream headers. The
// caller makes sure that eight bytes at text can be read.
// How many of them are decimal digits before the first other byte (8 when all are).
inline unsigned KPPDFLeadingDigits8(const char* text) {
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
inline uint32_t KPPDFDigitsValue8(const char* text, unsigned digits) {
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
