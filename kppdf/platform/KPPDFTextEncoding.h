#pragma once
#include <cstdint>
#include <string>
#include <string_view>

// Codes of the text encodings that string objects record; the values are stored with the
// objects, so they never change.
enum : uint32_t {
    KPPDFASCIIStringEncoding = 1,
    KPPDFUTF8StringEncoding = 4,
    KPPDFISOLatin1StringEncoding = 5,
    // UTF-16 with a byte-order mark; big-endian when there is none.
    KPPDFUnicodeStringEncoding = 10,
    KPPDFUTF16BigEndianStringEncoding = 0x90000100,
    KPPDFUTF16LittleEndianStringEncoding = 0x94000100,
};

// Conversions between UTF-8 (the library's text form) and the byte encodings PDF strings use.
// Every function is pure and thread-safe; out-parameters are overwritten, never appended to.
class KPPDFTextEncoding {
public:
    KPPDFTextEncoding() = delete;

    // Each byte is the code point of the same value; never fails.
    static std::string latin1ToUTF8(std::string_view latin1);
    // False (out left unspecified) when the UTF-8 is invalid or holds a character above U+00FF.
    static bool utf8ToLatin1(std::string_view utf8, std::string* out);

    // A leading byte-order mark (FE FF or FF FE) decides the order and is dropped; otherwise
    // bigEndian does. Unpaired surrogates become U+FFFD; an odd trailing byte is ignored.
    // False only when out is null.
    static bool utf16ToUTF8(std::string_view bytes, std::string* out, bool bigEndian = true);
    // Invalid UTF-8 sequences become U+FFFD. withBOM puts the mark of the chosen order first.
    static std::string utf8ToUTF16(std::string_view utf8, bool bigEndian, bool withBOM);
    // Code units in native form; invalid UTF-8 sequences become U+FFFD.
    static std::u16string utf8ToUTF16Units(std::string_view utf8);
    // Unpaired surrogates become U+FFFD.
    static std::string utf16UnitsToUTF8(std::u16string_view units);

    // Bytes in one of the encodings above to UTF-8. False for an unknown code, for ASCII bytes
    // above 127 and for invalid UTF-8. For every UTF-16 code a leading byte-order mark wins.
    static bool decode(std::string_view bytes, uint32_t encoding, std::string* utf8);
    // UTF-8 to bytes in one of the encodings above. False for an unknown code, for invalid
    // UTF-8 and for characters the encoding cannot hold. KPPDFUnicodeStringEncoding writes
    // FE FF and big-endian units; the two explicit UTF-16 codes write no mark.
    static bool encode(std::string_view utf8, uint32_t encoding, std::string* bytes);

    // Well-formed UTF-8: no overlong forms, no surrogates, nothing above U+10FFFF.
    static bool isValidUTF8(std::string_view utf8);
    // Every byte below 0x80.
    static bool isASCII(std::string_view bytes);
};
