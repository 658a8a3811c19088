#pragma once
#include <cstdint>

// Character classes of PDF syntax (ISO 32000-1, 7.2.2), one bit set per byte value.
enum : uint8_t {
    KPPDFCharWhitespace = 1,      // NUL, TAB, LF, FF, CR, space
    KPPDFCharDelimiter = 2,       // % ( ) < > [ ] { } /
    KPPDFCharNumeric = 4,         // + - . 0-9
    KPPDFCharRegular = 8,         // everything else
    KPPDFCharOpenDelimiter = 16,  // ( / < [ {  (always with KPPDFCharDelimiter)
};

extern const uint8_t KPPDFDocumentCharLookup[256];

inline bool KPPDFIsWhitespace(uint8_t c) { return KPPDFDocumentCharLookup[c] & KPPDFCharWhitespace; }
inline bool KPPDFIsDelimiter(uint8_t c) { return KPPDFDocumentCharLookup[c] & KPPDFCharDelimiter; }
inline bool KPPDFIsNumeric(uint8_t c) { return KPPDFDocumentCharLookup[c] & KPPDFCharNumeric; }
inline bool KPPDFIsRegular(uint8_t c) { return KPPDFDocumentCharLookup[c] & KPPDFCharRegular; }
inline bool KPPDFIsDigit(uint8_t c) { return c >= '0' && c <= '9'; }
