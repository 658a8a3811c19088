#pragma once
#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

#include "kppdf/platform/KPPDFData.h"

// The length of an unparsed top-level array or dictionary: from its first byte to the next
// "endobj" (or, for a dictionary, "stream") keyword outside strings and comments, scanning from
// one byte after offset while six bytes remain. When no keyword is found it is the distance
// scanned.
uint32_t KPPDFLazyObjectLength(const KPPDFData& data, uint64_t offset, bool stopAtStream);

// The length of the array at offset when it holds nothing but numbers, names, references,
// booleans and nulls, written plainly (no comments, strings or nested containers), up to and
// including its "]"; 0 for any other array. Parsing such an array gives exactly these tokens,
// so it can be bound lazily even inside a container that is parsed at once.
uint32_t KPPDFPlainArrayLength(const KPPDFData& data, uint64_t offset);

// The numbers of the plain array at offset (KPPDFPlainArrayLength) when it holds numbers alone,
// each read to the value its parsed element's realValue() gives, into values (at most capacity
// of them) and their count into *count. False for any other array, one with more numbers, or
// one whose numbers the parser might read otherwise (a token of 64 bytes or more).
bool KPPDFPlainArrayNumbers(const KPPDFData& data, uint64_t offset, float* values, size_t capacity,
                            size_t* count);

// One entry of a plain dictionary: its key as the parser takes it (the name's text after "/")
// and where its value starts.
struct KPPDFPlainEntry {
    std::string_view key;
    uint64_t offset = 0;
};

// The entries of the dictionary at offset, in the order written, when it is plain: names as
// keys and, as values, names, numbers, references, booleans, nulls and plain arrays
// (KPPDFPlainArrayLength), each token ending at white space or a delimiter, up to its ">>"; no
// comments, strings or nested dictionaries. Parsing such a dictionary gives exactly these
// entries (a key written twice keeps its last value). False for any other dictionary. end, when
// given, receives the offset just past its ">>".
bool KPPDFPlainDictionaryEntries(const KPPDFData& data, uint64_t offset,
                                 std::vector<KPPDFPlainEntry>* entries, uint64_t* end = nullptr);

class KPPDFObject;

// True when object, an array or dictionary element whose text ends at end in data, stopped
// before its closing "]" or ">>" (a bad element, the end of the bytes, nesting too deep). The
// array or dictionary holding it then stops as well, rather than reading the unread inside of
// the element as elements of its own.
bool KPPDFContainerEndsOpen(const KPPDFObject& object, const KPPDFData& data, uint64_t end);
