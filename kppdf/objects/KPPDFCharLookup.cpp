#include "kppdf/objects/KPPDFCharLookup.h"

namespace {
constexpr uint8_t classify(unsigned c) {
    switch (c) {
    case 0: case 9: case 10: case 12: case 13: case 32:
        return KPPDFCharWhitespace;
    case '(': case '/': case '<': case '[': case '{':
        return KPPDFCharDelimiter | KPPDFCharOpenDelimiter;
    case '%': case ')': case '>': case ']': case '}':
        return KPPDFCharDelimiter;
    case '+': case '-': case '.': case '0': case '1': case '2': case '3': case '4': case '5':
    case '6': case '7': case '8': case '9':
        return KPPDFCharNumeric;
    default:
        return KPPDFCharRegular;
    }
}

struct Table {
    uint8_t bytes[256];
    constexpr Table() : bytes() {
        for (unsigned c = 0; c < 256; c++)
            bytes[c] = classify(c);
    }
};
constexpr Table kTable;
} // namespace

const uint8_t KPPDFDocumentCharLookup[256] = {
#define R(i) kTable.bytes[i], kTable.bytes[i + 1], kTable.bytes[i + 2], kTable.bytes[i + 3], \
             kTable.bytes[i + 4], kTable.bytes[i + 5], kTable.bytes[i + 6], kTable.bytes[i + 7]
    R(0),   R(8),   R(16),  R(24),  R(32),  R(40),  R(48),  R(56),  R(64),  R(72),  R(80),
    R(88),  R(96),  R(104), R(112), R(120), R(128), R(136), R(144), R(152), R(160), R(168),
    R(176), R(184), R(192), R(200), R(208), R(216), R(224), R(232), R(240), R(248),
#undef R
};
