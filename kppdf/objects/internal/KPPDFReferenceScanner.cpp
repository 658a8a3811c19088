#include "kppdf/objects/internal/KPPDFReferenceScanner.h"

#include <algorithm>

#include "kppdf/objects/KPPDFCharLookup.h"
#include "kppdf/objects/KPPDFObjectNumbers.h"

namespace {
// Walks the tokens of text and reports each reference, and each string token (its begin and
// one past its end) to string. Numbers are remembered as the last two tokens; any other token
// resets them.
template <class Found, class String>
void scan(std::string_view text, Found&& found, String&& string) {
    const char* base = text.data();
    size_t length = text.size();
    size_t p = 0;
    // The last two tokens, when they were unsigned integers: value and where they started.
    bool have1 = false, have2 = false;
    uint64_t value1 = 0, value2 = 0;
    size_t begin1 = 0, begin2 = 0;
    auto reset = [&] { have1 = have2 = false; };
    while (p < length) {
        uint8_t c = static_cast<uint8_t>(base[p]);
        if (KPPDFIsWhitespace(c)) {
            p++;
            continue;
        }
        switch (c) {
        case '%':
            while (p < length && base[p] != '\r' && base[p] != '\n')
                p++;
            continue; // comments do not break a reference in PDF syntax
        case '(': {
            size_t begin = p;
            int depth = 0;
            while (p < length) {
                char d = base[p++];
                if (d == '\\') {
                    p++;
                } else if (d == '(') {
                    depth++;
                } else if (d == ')' && --depth == 0) {
                    break;
                }
            }
            p = std::min(p, length);
            string(begin, p);
            reset();
            continue;
        }
        case '<':
            if (p + 1 < length && base[p + 1] == '<') {
                p += 2;
            } else {
                size_t begin = p;
                while (p < length && base[p] != '>')
                    p++;
                p = std::min(p + 1, length);
                string(begin, p);
            }
            reset();
            continue;
        case '/':
            p++;
            while (p < length && !(KPPDFDocumentCharLookup[static_cast<uint8_t>(base[p])] &
                                   (KPPDFCharWhitespace | KPPDFCharDelimiter)))
                p++;
            reset();
            continue;
        default:
            break;
        }
        if (KPPDFIsDelimiter(c)) {
            p++;
            reset();
            continue;
        }
        size_t start = p;
        while (p < length && !(KPPDFDocumentCharLookup[static_cast<uint8_t>(base[p])] &
                               (KPPDFCharWhitespace | KPPDFCharDelimiter)))
            p++;
        std::string_view token(base + start, p - start);
        if (token == "R" && have1 && have2) {
            if (value2 <= UINT32_MAX && value1 <= UINT32_MAX)
                found(KPPDFScannedReference{static_cast<uint32_t>(value2),
                                            static_cast<uint32_t>(value1), begin2, p});
            reset();
            continue;
        }
        const char* end = token.data();
        uint64_t value = KPPDFParseUnsignedDecimal(token.data(), token.data() + token.size(), &end);
        if (end == token.data() + token.size() && !token.empty()) {
            have2 = have1, value2 = value1, begin2 = begin1;
            have1 = true, value1 = value, begin1 = start;
        } else {
            reset();
        }
    }
}
} // namespace

void KPPDFScanReferences(std::string_view text,
                         const std::function<void(const KPPDFScannedReference&)>& found) {
    scan(text, found, [](size_t, size_t) {});
}

void KPPDFRewriteObjectText(
    std::string_view text,
    const std::function<bool(const KPPDFScannedReference&, std::string&)>& replace,
    const std::function<void(size_t, size_t, std::string&)>& replaceString, std::string& out) {
    size_t copied = 0;
    scan(
        text,
        [&](const KPPDFScannedReference& reference) {
            out.append(text.data() + copied, reference.begin - copied);
            size_t mark = out.size();
            if (!replace(reference, out)) {
                out.resize(mark);
                out.append(text.data() + reference.begin, reference.end - reference.begin);
            }
            copied = reference.end;
        },
        [&](size_t begin, size_t end) {
            out.append(text.data() + copied, begin - copied);
            replaceString(begin, end, out);
            copied = end;
        });
    out.append(text.data() + copied, text.size() - copied);
}

void KPPDFRewriteReferences(
    std::string_view text,
    const std::function<bool(const KPPDFScannedReference&, std::string&)>& replace,
    std::string& out) {
    KPPDFRewriteObjectText(
        text, replace,
        [&](size_t begin, size_t end, std::string& to) {
            to.append(text.substr(begin, end - begin));
        },
        out);
}
