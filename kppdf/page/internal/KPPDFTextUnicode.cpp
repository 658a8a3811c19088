#include "kppdf/page/internal/KPPDFTextUnicode.h"

namespace kppdf_text {

namespace {

bool isContinuation(unsigned char byte) {
    return (byte & 0xC0) == 0x80;
}

// Letters of a block where capital and small alternate, the capital at even (or odd) codes.
bool isPairCapital(char32_t c, char32_t first, char32_t last, bool capitalOdd) {
    return c >= first && c <= last && ((c & 1) != 0) == capitalOdd;
}

// clang-format off: one case to a line keeps the tables readable.
// Latin Extended-B (U+0180..U+024F): the letters whose small forms lie elsewhere.
char32_t foldLatinExtendedB(char32_t c) {
    switch (c) {
    case 0x0181:
        return 0x0253;
    case 0x0186:
        return 0x0254;
    case 0x0189:
        return 0x0256;
    case 0x018A:
        return 0x0257;
    case 0x018E:
        return 0x01DD;
    case 0x018F:
        return 0x0259;
    case 0x0190:
        return 0x025B;
    case 0x0193:
        return 0x0260;
    case 0x0194:
        return 0x0263;
    case 0x0196:
        return 0x0269;
    case 0x0197:
        return 0x0268;
    case 0x019C:
        return 0x026F;
    case 0x019D:
        return 0x0272;
    case 0x019F:
        return 0x0275;
    case 0x01A6:
        return 0x0280;
    case 0x01A9:
        return 0x0283;
    case 0x01AE:
        return 0x0288;
    case 0x01B1:
        return 0x028A;
    case 0x01B2:
        return 0x028B;
    case 0x01B7:
        return 0x0292;
    case 0x01C4:
    case 0x01C5:
        return 0x01C6;
    case 0x01C7:
    case 0x01C8:
        return 0x01C9;
    case 0x01CA:
        return 0x01CC;
    case 0x01F1:
    case 0x01F2:
        return 0x01F3;
    case 0x01F6:
        return 0x0195;
    case 0x01F7:
        return 0x01BF;
    case 0x0220:
        return 0x019E;
    case 0x023A:
        return 0x2C65;
    case 0x023D:
        return 0x019A;
    case 0x023E:
        return 0x2C66;
    case 0x0243:
        return 0x0180;
    case 0x0244:
        return 0x0289;
    case 0x0245:
        return 0x028C;
    case 0x0182:
    case 0x0184:
    case 0x0187:
    case 0x018B:
    case 0x0191:
    case 0x0198:
    case 0x01A7:
    case 0x01AC:
    case 0x01AF:
    case 0x01B3:
    case 0x01B5:
    case 0x01B8:
    case 0x01BC:
    case 0x01F4:
    case 0x023B:
    case 0x0241:
        return c + 1;
    default:
        break;
    }
    if (isPairCapital(c, 0x01A0, 0x01A5, false) || isPairCapital(c, 0x01CB, 0x01DC, true) ||
        isPairCapital(c, 0x01DE, 0x01EF, false) || isPairCapital(c, 0x01F8, 0x021F, false) ||
        isPairCapital(c, 0x0222, 0x0233, false) || isPairCapital(c, 0x0246, 0x024F, false))
        return c + 1;
    return c;
}

char32_t foldGreek(char32_t c) {
    switch (c) {
    case 0x0345:
        return 0x03B9;
    case 0x0376:
        return 0x0377;
    case 0x037F:
        return 0x03F3;
    case 0x0386:
        return 0x03AC;
    case 0x038C:
        return 0x03CC;
    case 0x03C2:
        return 0x03C3;
    case 0x03CF:
        return 0x03D7;
    case 0x03D0:
        return 0x03B2;
    case 0x03D1:
        return 0x03B8;
    case 0x03D5:
        return 0x03C6;
    case 0x03D6:
        return 0x03C0;
    case 0x03F0:
        return 0x03BA;
    case 0x03F1:
        return 0x03C1;
    case 0x03F4:
        return 0x03B8;
    case 0x03F5:
        return 0x03B5;
    case 0x03F7:
        return 0x03F8;
    case 0x03F9:
        return 0x03F2;
    case 0x03FA:
        return 0x03FB;
    default:
        break;
    }
    if (c >= 0x0388 && c <= 0x038A)
        return c + 37;
    if (c == 0x038E || c == 0x038F)
        return c + 63;
    if ((c >= 0x0391 && c <= 0x03A1) || (c >= 0x03A3 && c <= 0x03AB))
        return c + 32;
    if (c >= 0x03FD && c <= 0x03FF)
        return c - 130;
    if (isPairCapital(c, 0x0370, 0x0373, false) || isPairCapital(c, 0x03D8, 0x03EF, false))
        return c + 1;
    return c;
}

// Greek Extended (U+1F00..U+1FFF): capitals sit 8 above their small letters in most rows.
char32_t foldGreekExtended(char32_t c) {
    unsigned row = (c >> 4) & 0xF;
    unsigned column = c & 0xF;
    if (column >= 8) {
        switch (row) {
        case 0x0:
        case 0x2:
        case 0x3:
        case 0x6:
        case 0x8:
        case 0x9:
        case 0xA:
            return c - 8;
        case 0x1:
        case 0x4:
            return column <= 0xD ? c - 8 : c;
        case 0x5:
            return (column & 1) ? c - 8 : c;
        default:
            break;
        }
    }
    switch (c) {
    case 0x1FB8:
    case 0x1FB9:
    case 0x1FD8:
    case 0x1FD9:
    case 0x1FE8:
    case 0x1FE9:
        return c - 8;
    case 0x1FBA:
    case 0x1FBB:
        return c - 74;
    case 0x1FBC:
    case 0x1FCC:
    case 0x1FFC:
        return c - 9;
    case 0x1FBE:
        return 0x03B9;
    case 0x1FC8:
    case 0x1FC9:
    case 0x1FCA:
    case 0x1FCB:
        return c - 86;
    case 0x1FDA:
    case 0x1FDB:
        return c - 100;
    case 0x1FEA:
    case 0x1FEB:
        return c - 112;
    case 0x1FEC:
        return 0x1FE5;
    case 0x1FF8:
    case 0x1FF9:
        return c - 128;
    case 0x1FFA:
    case 0x1FFB:
        return c - 126;
    default:
        return c;
    }
}

// clang-format on
char32_t foldCyrillic(char32_t c) {
    if (c >= 0x0400 && c <= 0x040F)
        return c + 80;
    if (c >= 0x0410 && c <= 0x042F)
        return c + 32;
    if (c == 0x04C0)
        return 0x04CF;
    if (isPairCapital(c, 0x0460, 0x0481, false) || isPairCapital(c, 0x048A, 0x04BF, false) ||
        isPairCapital(c, 0x04C1, 0x04CE, true) || isPairCapital(c, 0x04D0, 0x052F, false))
        return c + 1;
    return c;
}

} // namespace

size_t utf8SequenceLength(std::string_view text, size_t offset) {
    if (offset >= text.size())
        return 0;
    unsigned char lead = static_cast<unsigned char>(text[offset]);
    size_t length = lead < 0x80                   ? 1
                    : lead >= 0xF0 && lead < 0xF5 ? 4
                    : lead >= 0xE0                ? 3
                    : lead >= 0xC2                ? 2
                                                  : 1;
    if (length == 1 || lead >= 0xF5)
        return 1;
    if (offset + length > text.size())
        return 1;
    for (size_t i = 1; i < length; i++)
        if (!isContinuation(static_cast<unsigned char>(text[offset + i])))
            return 1;
    return length;
}

char32_t decodeUTF8(std::string_view text, size_t offset) {
    size_t length = utf8SequenceLength(text, offset);
    if (length == 0)
        return 0xFFFD;
    unsigned char lead = static_cast<unsigned char>(text[offset]);
    if (length == 1)
        return lead < 0x80 ? lead : 0xFFFD;
    char32_t c = lead & (0x7F >> length);
    for (size_t i = 1; i < length; i++)
        c = (c << 6) | (static_cast<unsigned char>(text[offset + i]) & 0x3F);
    // Overlong forms, surrogates and values past U+10FFFF are no characters.
    static constexpr char32_t kSmallest[5] = {0, 0, 0x80, 0x800, 0x10000};
    if (c < kSmallest[length] || (c >= 0xD800 && c <= 0xDFFF) || c > 0x10FFFF)
        return 0xFFFD;
    return c;
}

size_t lastCharacterStart(std::string_view text) {
    if (text.empty())
        return 0;
    // A character is at most 4 bytes; a start found further back would not reach the end.
    size_t start = text.size() - 1;
    for (size_t back = 0;
         back < 3 && start > 0 && isContinuation(static_cast<unsigned char>(text[start])); back++)
        start--;
    if (start + utf8SequenceLength(text, start) != text.size())
        return text.size() - 1;
    return start;
}

// clang-format off
bool isWhitespace(char32_t c) {
    switch (c) {
    case 0x09: case 0x0A: case 0x0B: case 0x0C: case 0x0D: case 0x20: case 0x85: case 0xA0:
    case 0x1680: case 0x2028: case 0x2029: case 0x202F: case 0x205F: case 0x3000:
        return true;
    default:
        return c >= 0x2000 && c <= 0x200A;
    }
}

char32_t simpleCaseFold(char32_t c) {
    if (c < 0x80)
        return c >= 'A' && c <= 'Z' ? c + 32 : c;
    if (c < 0x100) {
        if (c == 0xB5)
            return 0x03BC;
        return c >= 0xC0 && c <= 0xDE && c != 0xD7 ? c + 32 : c;
    }
    if (c < 0x180) {
        switch (c) {
        case 0x0130: case 0x0131: case 0x0138: case 0x0149: return c;
        case 0x0178: return 0x00FF;
        case 0x017F: return 0x0073;
        default: break;
        }
        bool capitalOdd = (c >= 0x0139 && c <= 0x0148) || (c >= 0x0179 && c <= 0x017E);
        return ((c & 1) != 0) == capitalOdd ? c + 1 : c;
    }
    if (c < 0x250)
        return foldLatinExtendedB(c);
    if (c >= 0x0345 && c < 0x0400)
        return foldGreek(c);
    if (c >= 0x0400 && c < 0x0530)
        return foldCyrillic(c);
    if (c >= 0x0531 && c <= 0x0556)
        return c + 48;
    if ((c >= 0x10A0 && c <= 0x10C5) || c == 0x10C7 || c == 0x10CD)
        return c + 7264;
    if (c >= 0x1C80 && c <= 0x1C88) {
        static constexpr char32_t kOldCyrillic[9] = {0x0432, 0x0434, 0x043E, 0x0441, 0x0442,
                                                    0x0442, 0x044A, 0x0463, 0xA64B};
        return kOldCyrillic[c - 0x1C80];
    }
    if ((c >= 0x1C90 && c <= 0x1CBA) || (c >= 0x1CBD && c <= 0x1CBF))
        return c - 3008;
    if (c >= 0x1E00 && c <= 0x1EFF) {
        if (c == 0x1E9B)
            return 0x1E61;
        if (c == 0x1E9E)
            return 0x00DF;
        return (c <= 0x1E95 || c >= 0x1EA0) && (c & 1) == 0 ? c + 1 : c;
    }
    if (c >= 0x1F00 && c <= 0x1FFF)
        return foldGreekExtended(c);
    switch (c) {
    case 0x2126: return 0x03C9;
    case 0x212A: return 0x006B;
    case 0x212B: return 0x00E5;
    default: break;
    }
    if (isPairCapital(c, 0xA640, 0xA66D, false) || isPairCapital(c, 0xA680, 0xA69B, false))
        return c + 1;
    if (c >= 0xFF21 && c <= 0xFF3A)
        return c + 32;
    return c;
}

// clang-format on

} // namespace kppdf_text
