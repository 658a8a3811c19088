#include "kppdf/page/internal/KPPDFContentTokenizer.h"

#include <cstdint>

#include "kppdf/objects/KPPDFCharLookup.h"
#include "kppdf/platform/KPPDFLog.h"

namespace {

inline uint8_t byteAt(const char* p) {
    return static_cast<uint8_t>(*p);
}

inline bool isOpener(uint8_t c) {
    return KPPDFDocumentCharLookup[c] & KPPDFCharOpenDelimiter;
}

int hexValue(uint8_t c) {
    if (c >= '0' && c <= '9')
        return c - '0';
    if (c >= 'a' && c <= 'f')
        return c - 'a' + 10;
    if (c >= 'A' && c <= 'F')
        return c - 'A' + 10;
    return -1;
}

} // namespace

KPPDFContentTokenizer::KPPDFContentTokenizer(const char* bytes, size_t length)
    : bytes_(bytes), length_(bytes ? length : 0) {
    // Tokens are 32-bit (offset, length) pairs.
    if (length_ > UINT32_MAX)
        length_ = UINT32_MAX;
}

const char* KPPDFContentTokenizer::skipWhitespace(const char* p, const char* end) {
    while (p < end) {
        if (KPPDFIsWhitespace(byteAt(p))) {
            p++;
        } else if (*p == '%') {
            while (p < end && *p != '\n' && *p != '\r')
                p++;
        } else {
            break;
        }
    }
    return p;
}

size_t KPPDFContentTokenizer::endOfLiteralString(size_t from) const {
    int depth = 0;
    for (size_t i = from; i < length_; i++) {
        char c = bytes_[i];
        if (c == '\\')
            i++;
        else if (c == '(')
            depth++;
        else if (c == ')' && --depth == 0)
            return i + 1;
    }
    return length_;
}

size_t KPPDFContentTokenizer::endOfHexString(size_t from) const {
    for (size_t i = from + 1; i < length_; i++)
        if (bytes_[i] == '>')
            return i + 1;
    return length_;
}

size_t KPPDFContentTokenizer::endOfArray(size_t from) const {
    int depth = 0;
    size_t i = from;
    while (i < length_) {
        char c = bytes_[i];
        if (c == '(') {
            i = endOfLiteralString(i);
        } else if (c == '<') {
            i = endOfHexString(i);
        } else if (c == '%') {
            i = static_cast<size_t>(skipWhitespace(bytes_ + i, bytes_ + length_) - bytes_);
        } else {
            if (c == '[')
                depth++;
            else if (c == ']' && --depth == 0)
                return i + 1;
            i++;
        }
    }
    return length_;
}

size_t KPPDFContentTokenizer::endOfDictionary(size_t from) const {
    int depth = 0;
    size_t i = from;
    while (i < length_) {
        char c = bytes_[i];
        if (c == '(') {
            i = endOfLiteralString(i);
        } else if (c == '%') {
            i = static_cast<size_t>(skipWhitespace(bytes_ + i, bytes_ + length_) - bytes_);
        } else if (c == '<') {
            if (i + 1 < length_ && bytes_[i + 1] == '<') {
                depth++;
                i += 2;
            } else {
                i = endOfHexString(i);
            }
        } else if (c == '>' && i + 1 < length_ && bytes_[i + 1] == '>') {
            i += 2;
            if (--depth == 0)
                return i;
        } else {
            i++;
        }
    }
    return length_;
}

void KPPDFContentTokenizer::logStray() {
    if (loggedStrays_ < kMaxLoggedStrays) {
        loggedStrays_++;
        KPPDFLog("inString set, openStringChar not set");
    }
}

bool KPPDFContentTokenizer::next(KPPDFContentToken* token) {
    position_ = static_cast<size_t>(skipWhitespace(bytes_ + position_, bytes_ + length_) - bytes_);
    if (position_ >= length_)
        return false;
    size_t start = position_;
    size_t end;
    char c = bytes_[start];
    if (c == '(') {
        end = endOfLiteralString(start);
    } else if (c == '[') {
        end = endOfArray(start);
    } else if (c == '<') {
        end = start + 1 < length_ && bytes_[start + 1] == '<' ? endOfDictionary(start)
                                                              : endOfHexString(start);
    } else if (c == ')' || c == '>') {
        logStray();
        end = start + 1;
    } else if (c == '{' || c == '}') {
        end = start + 1;
    } else {
        end = start + 1;
        while (end < length_ && !KPPDFIsWhitespace(byteAt(bytes_ + end)) &&
               !isOpener(byteAt(bytes_ + end)) && bytes_[end] != '%')
            end++;
    }
    position_ = end;
    token->offset = static_cast<uint32_t>(start);
    token->length = static_cast<uint32_t>(end - start);
    return true;
}

bool KPPDFContentTokenizer::isOperator(const KPPDFContentToken& token, const char** name,
                                       uint32_t* nameLength) const {
    if (token.length == 0 || token.length > kMaxOperatorLength)
        return false;
    const char* p = bytes_ + token.offset;
    uint32_t length = token.length;
    if (*p == ']') {
        p++;
        length--;
    }
    if (length == 0 || !KPPDFIsRegular(byteAt(p)))
        return false;
    *name = p;
    *nameLength = length;
    return true;
}

void KPPDFContentTokenizer::skipInlineImageData() {
    // One whitespace byte separates ID from the data (ISO 32000-1, 8.9.7).
    size_t i = position_;
    if (i < length_ && KPPDFIsWhitespace(byteAt(bytes_ + i)))
        i++;
    for (; i + 1 < length_; i++) {
        if (bytes_[i] != 'E' || bytes_[i + 1] != 'I')
            continue;
        size_t after = i + 2;
        // Image data may hold "EI" by chance; the operator is a token of its own.
        if (after < length_ && !KPPDFIsWhitespace(byteAt(bytes_ + after)) &&
            !KPPDFIsDelimiter(byteAt(bytes_ + after)))
            continue;
        if (i == 0 || !KPPDFIsWhitespace(byteAt(bytes_ + i - 1)))
            KPPDFLog("Found EI w/o preceeding whitespace in inline image");
        position_ = after;
        return;
    }
    position_ = length_;
}

const char* KPPDFContentTokenizer::decodeString(const char* p, const char* end, std::string& out) {
    if (p >= end)
        return p;
    if (*p == '<') {
        int high = -1;
        for (p++; p < end; p++) {
            if (*p == '>') {
                p++;
                break;
            }
            int value = hexValue(byteAt(p));
            if (value < 0)
                continue; // whitespace, and junk that a reader skips as well
            if (high < 0) {
                high = value;
            } else {
                out.push_back(static_cast<char>(high << 4 | value));
                high = -1;
            }
        }
        // An odd last digit stands for its high half (ISO 32000-1, 7.3.4.3).
        if (high >= 0)
            out.push_back(static_cast<char>(high << 4));
        return p;
    }
    if (*p != '(')
        return p;
    int depth = 1;
    for (p++; p < end; p++) {
        char c = *p;
        if (c == '(') {
            depth++;
        } else if (c == ')') {
            if (--depth == 0)
                return p + 1;
        } else if (c == '\r') {
            // An unescaped end of line is a line feed, whatever its bytes.
            if (p + 1 < end && p[1] == '\n')
                p++;
            out.push_back('\n');
            continue;
        } else if (c == '\\') {
            if (++p >= end)
                break;
            c = *p;
            switch (c) {
            case 'n':
                out.push_back('\n');
                break;
            case 'r':
                out.push_back('\r');
                break;
            case 't':
                out.push_back('\t');
                break;
            case 'b':
                out.push_back('\b');
                break;
            case 'f':
                out.push_back('\f');
                break;
            case '\r':
                if (p + 1 < end && p[1] == '\n')
                    p++;
                break;
            case '\n':
                break;
            default:
                if (c >= '0' && c <= '7') {
                    int value = c - '0';
                    for (int k = 0; k < 2 && p + 1 < end && p[1] >= '0' && p[1] <= '7'; k++)
                        value = value * 8 + (*++p - '0');
                    out.push_back(static_cast<char>(value & 0xFF));
                } else {
                    // "\(", "\)", "\\" and an unknown escape all stand for the character.
                    out.push_back(c);
                }
            }
            continue;
        }
        out.push_back(c);
    }
    return end;
}
