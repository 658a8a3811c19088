#include "kppdf/objects/internal/KPPDFLazyScan.h"

#include <string_view>

#include "kppdf/objects/KPPDFCharLookup.h"

namespace {
// A keyword counts only as a token of its own: not the tail of a longer name like /Livestream.
size_t findKeyword(std::string_view text, std::string_view keyword, size_t from, size_t to) {
    while (from < to) {
        size_t hit = text.find(keyword, from);
        if (hit == std::string_view::npos || hit > to)
            return std::string_view::npos;
        uint8_t before = hit ? static_cast<uint8_t>(text[hit - 1]) : ' ';
        if (KPPDFIsWhitespace(before) || KPPDFIsDelimiter(before))
            return hit;
        from = hit + 1;
    }
    return std::string_view::npos;
}
} // namespace

uint32_t KPPDFLazyObjectLength(const KPPDFData& data, uint64_t offset, bool stopAtStream) {
    uint64_t length = data.length();
    if (length < 6 || offset + 1 > length - 6)
        return static_cast<uint32_t>(length > offset ? length - offset : 0);
    std::string_view text(data.chars(), length);
    // A keyword may start at most six bytes before the end.
    size_t last = length - 6;
    size_t from = offset + 1;
    size_t hit = findKeyword(text, "endobj", from, last);
    if (stopAtStream) {
        // Look for "stream" only before the "endobj" found, so a file of many dictionaries and
        // few streams is not scanned again and again.
        size_t stream = findKeyword(text, "stream", from, hit == std::string_view::npos ? last : hit);
        if (stream != std::string_view::npos)
            hit = stream;
    }
    if (hit == std::string_view::npos)
        return static_cast<uint32_t>(last - offset);
    return static_cast<uint32_t>(hit - offset);
}
