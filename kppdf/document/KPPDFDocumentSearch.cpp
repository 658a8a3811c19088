// Finding a text in the page strings: characters compared one to one (optionally after simple
// case folding), white-space runs compared as one space whatever they hold.
#include <string_view>
#include <vector>

#include "kppdf/document/KPPDFDocument.h"
#include "kppdf/page/KPPDFBaseline.h"
#include "kppdf/page/KPPDFPage.h"
#include "kppdf/page/internal/KPPDFTextUnicode.h"

namespace {

// What every white-space run reads as, in the query and in the page.
constexpr char32_t kSpaceToken = U' ';

// Text as compared: one token per character, one per white-space run; with the bytes each
// token came from when it is page text.
struct Tokens {
    std::vector<char32_t> values;
    std::vector<uint32_t> starts; // byte where the token's first character starts
    std::vector<uint32_t> ends;   // byte after its last character
};

void tokenize(std::string_view text, bool fold, bool keepBytes, Tokens& tokens) {
    tokens.values.reserve(text.size());
    if (keepBytes) {
        tokens.starts.reserve(text.size());
        tokens.ends.reserve(text.size());
    }
    for (size_t offset = 0; offset < text.size();) {
        size_t length = kppdf_text::utf8SequenceLength(text, offset);
        char32_t c = kppdf_text::decodeUTF8(text, offset);
        bool space = kppdf_text::isWhitespace(c);
        if (space && !tokens.values.empty() && tokens.values.back() == kSpaceToken) {
            if (keepBytes)
                tokens.ends.back() = static_cast<uint32_t>(offset + length);
        } else {
            tokens.values.push_back(space ? kSpaceToken : fold ? kppdf_text::simpleCaseFold(c) : c);
            if (keepBytes) {
                tokens.starts.push_back(static_cast<uint32_t>(offset));
                tokens.ends.push_back(static_cast<uint32_t>(offset + length));
            }
        }
        offset += length;
    }
}

// Start indexes of the non-overlapping occurrences of pattern in text, left to right
// (Knuth-Morris-Pratt, linear in both).
std::vector<size_t> findAll(const std::vector<char32_t>& text,
                            const std::vector<char32_t>& pattern) {
    std::vector<size_t> found;
    const size_t m = pattern.size();
    if (m == 0 || m > text.size())
        return found;
    std::vector<size_t> fallback(m, 0);
    for (size_t i = 1, k = 0; i < m; i++) {
        while (k > 0 && pattern[i] != pattern[k])
            k = fallback[k - 1];
        if (pattern[i] == pattern[k])
            k++;
        fallback[i] = k;
    }
    for (size_t i = 0, k = 0; i < text.size(); i++) {
        while (k > 0 && text[i] != pattern[k])
            k = fallback[k - 1];
        if (text[i] == pattern[k])
            k++;
        if (k == m) {
            found.push_back(i + 1 - m);
            k = 0;
        }
    }
    return found;
}

// Byte positions of one string to UTF-16 positions, for positions that only grow.
class UTF16Cursor {
public:
    explicit UTF16Cursor(std::string_view text) : text_(text) {}
    uint32_t unitsAt(uint32_t byte) {
        while (byte_ < byte && byte_ < text_.size()) {
            units_ += static_cast<uint32_t>(
                kppdf_text::utf16Length(kppdf_text::decodeUTF8(text_, byte_)));
            byte_ += kppdf_text::utf8SequenceLength(text_, byte_);
        }
        return units_;
    }

private:
    std::string_view text_;
    size_t byte_ = 0;
    uint32_t units_ = 0;
};

} // namespace

std::vector<KPPDFSearchResult>
KPPDFDocument::findStringOnPage(std::string_view text, uint32_t pageIndex, uint32_t options) {
    std::vector<KPPDFSearchResult> results;
    KPPDFRef<KPPDFPage> page = pageAtIndex(pageIndex);
    if (!page)
        return results;
    const bool fold = options & KPPDFSearchCaseInsensitive;
    Tokens query;
    tokenize(text, fold, false, query);
    bool onlySpace = true;
    for (char32_t c : query.values)
        onlySpace = onlySpace && c == kSpaceToken;
    if (onlySpace)
        return results;

    page->prepareForSelection();
    const std::string& pageText = page->pageString();
    Tokens tokens;
    tokenize(pageText, fold, true, tokens);
    UTF16Cursor cursor(pageText);
    for (size_t first : findAll(tokens.values, query.values)) {
        size_t last = first + query.values.size() - 1;
        KPPDFRange bytes =
            KPPDFMakeRange(tokens.starts[first], tokens.ends[last] - tokens.starts[first]);
        KPPDFSearchResult result;
        result.pageIndex = pageIndex;
        uint32_t start = cursor.unitsAt(tokens.starts[first]);
        result.range = KPPDFMakeRange(start, cursor.unitsAt(tokens.ends[last]) - start);
        for (const auto& line : page->baselines()) {
            KPPDFRange range = line->rangeInPageString();
            if (range.end() <= bytes.location || bytes.end() <= range.location)
                continue;
            KPPDFRect rect = line->rectForRangeInPageString(bytes);
            if (rect.size.width > 0)
                result.rects.push_back(rect);
        }
        results.push_back(std::move(result));
    }
    return results;
}

std::vector<KPPDFSearchResult> KPPDFDocument::findString(std::string_view text, uint32_t options) {
    std::vector<KPPDFSearchResult> results;
    for (uint32_t i = 0; i < pageCount(); i++) {
        std::vector<KPPDFSearchResult> onPage = findStringOnPage(text, i, options);
        results.insert(results.end(), std::make_move_iterator(onPage.begin()),
                       std::make_move_iterator(onPage.end()));
    }
    return results;
}
