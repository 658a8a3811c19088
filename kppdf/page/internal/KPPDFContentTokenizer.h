#pragma once
#include <cstddef>
#include <cstdint>
#include <string>

// A token of a content stream: where its bytes lie in the buffer.
struct KPPDFContentToken {
    uint32_t offset = 0;
    uint32_t length = 0;
};

// Splits content stream bytes (ISO 32000-1, 7.8.2) into operands and operators without
// copying or allocating: strings, arrays and dictionaries come out as one token each, so an
// operator's operands are plain (offset, length) pairs into the buffer. Every read is bounded
// by the buffer, and every call to next() that returns true has moved past at least one byte.
class KPPDFContentTokenizer {
public:
    // Longest operator token; longer tokens are operands.
    static constexpr uint32_t kMaxOperatorLength = 3;
    // Unbalanced ")" and ">" beyond this many are not logged any more.
    static constexpr uint32_t kMaxLoggedStrays = 16;

    // bytes must stay valid while the tokenizer is used; at most UINT32_MAX bytes are read.
    KPPDFContentTokenizer(const char* bytes, size_t length);

    // The next token; false at the end of the buffer.
    bool next(KPPDFContentToken* token);
    // True when the token is an operator: at most kMaxOperatorLength bytes whose first byte,
    // after a leading "]", is a regular character. *name and *nameLength get the operator
    // without that "]".
    bool isOperator(const KPPDFContentToken& token, const char** name, uint32_t* nameLength) const;
    // After the "ID" of an inline image: skips its data up to and including the "EI" that
    // ends it, or to the end of the buffer when there is none.
    void skipInlineImageData();

    size_t position() const { return position_; }
    const char* bytes() const { return bytes_; }
    size_t length() const { return length_; }

    // Appends the bytes of a literal "(...)" or hexadecimal "<...>" string at p (p < end) to
    // out, escapes resolved; returns the first byte after it (end when it is unterminated).
    // A p at any other byte returns p unchanged.
    static const char* decodeString(const char* p, const char* end, std::string& out);
    // Skips whitespace and comments from p; returns the first other byte or end.
    static const char* skipWhitespace(const char* p, const char* end);

private:
    // Ends of the delimited tokens, each starting at its opening byte.
    size_t endOfLiteralString(size_t from) const;
    size_t endOfHexString(size_t from) const;
    size_t endOfArray(size_t from) const;
    size_t endOfDictionary(size_t from) const;
    void logStray();

    const char* bytes_;
    size_t length_;
    size_t position_ = 0;
    uint32_t loggedStrays_ = 0;
};
