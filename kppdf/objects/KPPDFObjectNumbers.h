#pragma once
#include <cstddef>
#include <cstdint>

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
