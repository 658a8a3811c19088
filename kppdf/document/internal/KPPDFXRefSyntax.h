#pragma once
#include <cstdint>
#include <string_view>

#include "kppdf/platform/KPPDFData.h"

// Byte-level reading of the file structure around the cross-reference data: keywords, object
// headers "N G obj" (ISO 32000-1, 7.3.10) and bounded searches. Every read stays inside the
// buffer; none of them allocates.
class KPPDFXRefSyntax {
public:
    KPPDFXRefSyntax() = delete;

    // An indirect object's header.
    struct ObjectHeader {
        uint32_t number = 0;
        uint32_t generation = 0;
        uint64_t start = 0;    // first digit of the object number
        uint64_t position = 0; // first byte after "obj" and the whitespace that follows it
    };

    static constexpr uint64_t npos = UINT64_MAX;

    // Cross-reference entries may miss their object's header by this many bytes either way.
    static constexpr uint64_t kHeaderSlack = 4;
    // Digits read for an object or generation number in a header; longer runs are not headers.
    static constexpr int kMaxHeaderDigits = 10;

    // Blanks skipped before a cross-reference section or an entry's object header; a longer
    // run means the offset is wrong (and bounds the work a lying offset can cause).
    static constexpr uint64_t kMaxLeadingBlanks = 256;

    // The first offset at or after offset that is neither whitespace nor inside a comment,
    // looking no further than limit (which is then returned).
    static uint64_t skipBlanks(const KPPDFData& data, uint64_t offset, uint64_t limit = npos);
    // The first offset at or after offset that is not whitespace.
    static uint64_t skipWhitespace(const KPPDFData& data, uint64_t offset);
    static bool hasKeyword(const KPPDFData& data, uint64_t offset, std::string_view keyword);
    // True when the byte at offset ends a token (whitespace or delimiter), or offset is the end.
    static bool isTokenEnd(const KPPDFData& data, uint64_t offset);

    // Reads "N G obj" whose first digit is exactly at offset. False when it is not there.
    static bool readObjectHeader(const KPPDFData& data, uint64_t offset, ObjectHeader* header);
    // Finds the header of object number for a cross-reference entry's offset: at the offset
    // after blanks, or starting up to kHeaderSlack bytes before or after it.
    static bool findObjectHeader(const KPPDFData& data, uint64_t offset, uint32_t number,
                                 ObjectHeader* header);
    // Reads the header whose "obj" keyword starts at keyword, walking backward over the numbers.
    // False when no valid header ends there (and for the end of "endobj").
    static bool readObjectHeaderBefore(const KPPDFData& data, uint64_t keyword,
                                       ObjectHeader* header);

    // First occurrence of pattern that lies wholly in [from, to); npos when there is none.
    static uint64_t find(const KPPDFData& data, std::string_view pattern, uint64_t from,
                         uint64_t to);
    // Last occurrence of pattern that lies wholly in [0, to); npos when there is none.
    static uint64_t findLast(const KPPDFData& data, std::string_view pattern, uint64_t to);
};
