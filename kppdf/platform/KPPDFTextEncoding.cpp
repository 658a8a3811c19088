#include "kppdf/platform/KPPDFTextEncoding.h"

#include <cstring>

namespace {

constexpr char32_t kReplacementCharacter = 0xFFFD;
constexpr char32_t kMaxCodePoint = 0x10FFFF;

bool isSurrogate(char32_t c) {
    return c >= 0xD800 && c <= 0xDFFF;
}

// Length of the leading run of bytes below 0x80, eight at a time where possible.
size_t asciiPrefixLength(std::string_view s) {
    const char* p = s.data();
    size_t n = s.size();
    size_t i = 0;
    for (; i + 8 <= n; i += 8) {
        uint64_t word;
        std::memcpy(&word, p + i, 8);
        if (word & 0x8080808080808080ULL)
            break;
    }
    for (; i < n; ++i)
        if (static_cast<unsigned char>(p[i]) & 0x80)
            break;
    return i;
}

// Decodes one character at s[i]. On a malformed sequence it consumes one byte and reports
// false, so a caller always advances.
bool decodeUTF8(std::string_view s, size_t& i, char32_t* c) {
    const auto* p = reinterpret_cast<const unsigned char*>(s.data());
    size_t n = s.size();
    unsigned char b0 = p[i];
    if (b0 < 0x80) {
        *c = b0;
        ++i;
        return true;
    }
    size_t length;
    char32_t value;
    char32_t minimum;
    if ((b0 & 0xE0) == 0xC0) {
        length = 2;
        value = b0 & 0x1F;
        minimum = 0x80;
    } else if ((b0 & 0xF0) == 0xE0) {
        length = 3;
        value = b0 & 0x0F;
        minimum = 0x800;
    } else if ((b0 & 0xF8) == 0xF0) {
        length = 4;
        value = b0 & 0x07;
        minimum = 0x10000;
    } else {
        ++i;
        return false;
    }
    if (n - i < length) {
        ++i;
        return false;
    }
    for (size_t k = 1; k < length; ++k) {
        unsigned char b = p[i + k];
        if ((b & 0xC0) != 0x80) {
            ++i;
            return false;
        }
        value = (value << 6) | (b & 0x3F);
    }
    if (value < minimum || value > kMaxCodePoint || isSurrogate(value)) {
        ++i;
        return false;
    }
    *c = value;
    i += length;
    return true;
}

void appendUTF8(std::string& out, char32_t c) {
    if (c < 0x80) {
        out.push_back(static_cast<char>(c));
    } else if (c < 0x800) {
        out.push_back(static_cast<char>(0xC0 | (c >> 6)));
        out.push_back(static_cast<char>(0x80 | (c & 0x3F)));
    } else if (c < 0x10000) {
        out.push_back(static_cast<char>(0xE0 | (c >> 12)));
        out.push_back(static_cast<char>(0x80 | ((c >> 6) & 0x3F)));
        out.push_back(static_cast<char>(0x80 | (c & 0x3F)));
    } else {
        out.push_back(static_cast<char>(0xF0 | (c >> 18)));
        out.push_back(static_cast<char>(0x80 | ((c >> 12) & 0x3F)));
        out.push_back(static_cast<char>(0x80 | ((c >> 6) & 0x3F)));
        out.push_back(static_cast<char>(0x80 | (c & 0x3F)));
    }
}

void appendUnit(std::string& out, char16_t unit, bool bigEndian) {
    char high = static_cast<char>(unit >> 8);
    char low = static_cast<char>(unit & 0xFF);
    if (bigEndian) {
        out.push_back(high);
        out.push_back(low);
    } else {
        out.push_back(low);
        out.push_back(high);
    }
}

// Calls emit(unit) for each UTF-16 code unit of the UTF-8 text.
template <class Emit> void forEachUTF16Unit(std::string_view utf8, Emit emit) {
    size_t i = 0;
    while (i < utf8.size()) {
        char32_t c;
        if (!decodeUTF8(utf8, i, &c))
            c = kReplacementCharacter;
        if (c >= 0x10000) {
            c -= 0x10000;
            emit(static_cast<char16_t>(0xD800 + (c >> 10)));
            emit(static_cast<char16_t>(0xDC00 + (c & 0x3FF)));
        } else {
            emit(static_cast<char16_t>(c));
        }
    }
}

// Appends the UTF-8 of a sequence of UTF-16 units read by unitAt(k), k < count.
template <class UnitAt> void appendUTF16AsUTF8(std::string& out, size_t count, UnitAt unitAt) {
    for (size_t k = 0; k < count; ++k) {
        char16_t u = unitAt(k);
        if (u < 0x80) {
            out.push_back(static_cast<char>(u));
            continue;
        }
        if (u >= 0xD800 && u <= 0xDBFF && k + 1 < count) {
            char16_t next = unitAt(k + 1);
            if (next >= 0xDC00 && next <= 0xDFFF) {
                appendUTF8(out, 0x10000 + ((char32_t(u) - 0xD800) << 10) + (next - 0xDC00));
                ++k;
                continue;
            }
        }
        appendUTF8(out, isSurrogate(u) ? kReplacementCharacter : char32_t(u));
    }
}

} // namespace

bool KPPDFTextEncoding::isASCII(std::string_view bytes) {
    return asciiPrefixLength(bytes) == bytes.size();
}

bool KPPDFTextEncoding::isValidUTF8(std::string_view utf8) {
    size_t i = asciiPrefixLength(utf8);
    while (i < utf8.size()) {
        char32_t c;
        if (!decodeUTF8(utf8, i, &c))
            return false;
    }
    return true;
}

std::string KPPDFTextEncoding::latin1ToUTF8(std::string_view latin1) {
    size_t prefix = asciiPrefixLength(latin1);
    if (prefix == latin1.size())
        return std::string(latin1);
    std::string out;
    out.reserve(latin1.size() + (latin1.size() - prefix));
    out.append(latin1.data(), prefix);
    for (size_t i = prefix; i < latin1.size(); ++i)
        appendUTF8(out, static_cast<unsigned char>(latin1[i]));
    return out;
}

bool KPPDFTextEncoding::utf8ToLatin1(std::string_view utf8, std::string* out) {
    if (!out)
        return false;
    size_t prefix = asciiPrefixLength(utf8);
    out->assign(utf8.data(), prefix);
    if (prefix == utf8.size())
        return true;
    out->reserve(utf8.size());
    size_t i = prefix;
    while (i < utf8.size()) {
        char32_t c;
        if (!decodeUTF8(utf8, i, &c) || c > 0xFF)
            return false;
        out->push_back(static_cast<char>(c));
    }
    return true;
}

bool KPPDFTextEncoding::utf16ToUTF8(std::string_view bytes, std::string* out, bool bigEndian) {
    if (!out)
        return false;
    out->clear();
    const auto* p = reinterpret_cast<const unsigned char*>(bytes.data());
    size_t count = bytes.size() / 2;
    if (count > 0 && p[0] == 0xFE && p[1] == 0xFF) {
        bigEndian = true;
        p += 2;
        --count;
    } else if (count > 0 && p[0] == 0xFF && p[1] == 0xFE) {
        bigEndian = false;
        p += 2;
        --count;
    }
    out->reserve(count);
    if (bigEndian)
        appendUTF16AsUTF8(*out, count,
                          [p](size_t k) { return char16_t((p[2 * k] << 8) | p[2 * k + 1]); });
    else
        appendUTF16AsUTF8(*out, count,
                          [p](size_t k) { return char16_t((p[2 * k + 1] << 8) | p[2 * k]); });
    return true;
}

std::string KPPDFTextEncoding::utf8ToUTF16(std::string_view utf8, bool bigEndian, bool withBOM) {
    std::string out;
    out.reserve(2 * utf8.size() + 2);
    if (withBOM)
        appendUnit(out, 0xFEFF, bigEndian);
    forEachUTF16Unit(utf8, [&](char16_t unit) { appendUnit(out, unit, bigEndian); });
    return out;
}

std::u16string KPPDFTextEncoding::utf8ToUTF16Units(std::string_view utf8) {
    std::u16string out;
    out.reserve(utf8.size());
    forEachUTF16Unit(utf8, [&](char16_t unit) { out.push_back(unit); });
    return out;
}

std::string KPPDFTextEncoding::utf16UnitsToUTF8(std::u16string_view units) {
    std::string out;
    out.reserve(units.size());
    appendUTF16AsUTF8(out, units.size(), [units](size_t k) { return units[k]; });
    return out;
}

bool KPPDFTextEncoding::decode(std::string_view bytes, uint32_t encoding, std::string* utf8) {
    if (!utf8)
        return false;
    switch (encoding) {
    case KPPDFASCIIStringEncoding:
        if (!isASCII(bytes))
            return false;
        utf8->assign(bytes);
        return true;
    case KPPDFUTF8StringEncoding:
        if (!isValidUTF8(bytes))
            return false;
        utf8->assign(bytes);
        return true;
    case KPPDFISOLatin1StringEncoding:
        *utf8 = latin1ToUTF8(bytes);
        return true;
    case KPPDFUnicodeStringEncoding:
    case KPPDFUTF16BigEndianStringEncoding:
        return utf16ToUTF8(bytes, utf8, true);
    case KPPDFUTF16LittleEndianStringEncoding:
        return utf16ToUTF8(bytes, utf8, false);
    default:
        return false;
    }
}

bool KPPDFTextEncoding::encode(std::string_view utf8, uint32_t encoding, std::string* bytes) {
    if (!bytes)
        return false;
    switch (encoding) {
    case KPPDFASCIIStringEncoding:
        if (!isASCII(utf8))
            return false;
        bytes->assign(utf8);
        return true;
    case KPPDFUTF8StringEncoding:
        if (!isValidUTF8(utf8))
            return false;
        bytes->assign(utf8);
        return true;
    case KPPDFISOLatin1StringEncoding:
        return utf8ToLatin1(utf8, bytes);
    case KPPDFUnicodeStringEncoding:
    case KPPDFUTF16BigEndianStringEncoding:
    case KPPDFUTF16LittleEndianStringEncoding:
        if (!isValidUTF8(utf8))
            return false;
        *bytes = utf8ToUTF16(utf8, encoding != KPPDFUTF16LittleEndianStringEncoding,
                             encoding == KPPDFUnicodeStringEncoding);
        return true;
    default:
        return false;
    }
}
