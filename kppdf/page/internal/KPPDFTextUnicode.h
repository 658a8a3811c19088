#pragma once
#include <cstddef>
#include <string_view>

// Character-level helpers for the page string (UTF-8), shared by lines, lookups and search.
// Every function is bounded by the text it is given: malformed UTF-8 reads as U+FFFD, one byte
// at a time, so loops over a string always advance.
namespace kppdf_text {

// Bytes of the character starting at offset: 1 to 4, never past the end, 1 for a stray byte;
// 0 only at or past the end.
size_t utf8SequenceLength(std::string_view text, size_t offset);
// The character starting at offset; U+FFFD for malformed bytes and at the end.
char32_t decodeUTF8(std::string_view text, size_t offset);
// Where the last character starts; text.size() for empty text.
size_t lastCharacterStart(std::string_view text);
// UTF-16 code units of a character: 2 above U+FFFF, else 1.
inline size_t utf16Length(char32_t c) {
    return c > 0xFFFF ? 2 : 1;
}
// White space and line ends as text views break words at them (Unicode White_Space).
bool isWhitespace(char32_t c);
// Unicode simple case folding (CaseFolding.txt, statuses C and S) for Latin, Greek, Cyrillic,
// Armenian and Georgian letters and the other blocks whose pairs sit at fixed offsets; other
// characters are returned unchanged.
char32_t simpleCaseFold(char32_t c);

} // namespace kppdf_text
