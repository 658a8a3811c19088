#pragma once
#include <cstdint>
#include <vector>

#include "kppdf/platform/KPPDFData.h"
#include "kppdf/platform/KPPDFGeometry.h"
#include "kppdf/platform/KPPDFRef.h"

class KPPDFDocument;
class KPPDFObjectDictionary;
class KPPDFObjectStream;

// One revision of a file: its cross-reference section and trailer dictionary (ISO 32000-1,
// 7.5.4, 7.5.5 and 7.5.8). Revisions are chained newest to oldest through "Prev"; a trailer
// retains its older revision (prev) and points back at its newer one (next) without owning it.
// A file whose cross-reference data is unusable gets a single scan-mode trailer, whose objects
// are found by looking for their "N G obj" headers.
class KPPDFTrailer {
public:
    enum Kind : int32_t {
        kKindTable = 0,  // classic "xref" table and "trailer" dictionary
        kKindStream = 1, // cross-reference stream (PDF 1.5)
        kKindScan = 2,   // no usable cross-reference data: the whole file is scanned
    };
    // Longest "Prev" chain followed; longer chains are cut there.
    static constexpr size_t kMaxChainLength = 4096;
    // "trailer" keywords tried from the end of a file in scan mode.
    static constexpr int kMaxScanTrailers = 16;
    // Bytes after an object header searched for the names that mark object streams,
    // cross-reference streams and catalogs in scan mode.
    static constexpr uint64_t kScanTypeWindow = 4096;
    // The object table is indexed by number, so numbers are bounded by what the file could
    // hold: the larger of this and kObjectNumbersPerByte for every byte of it. Entries above
    // are ignored with one log line per section.
    static constexpr uint32_t kMinObjectNumberLimit = 1u << 16;
    static constexpr uint32_t kObjectNumbersPerByte = 2;

    KPPDFTrailer(KPPDFDocument* document, Kind kind);
    ~KPPDFTrailer();
    KPPDFTrailer(const KPPDFTrailer&) = delete;
    KPPDFTrailer& operator=(const KPPDFTrailer&) = delete;

    // hasXref: reads the cross-reference section at offset (a table, or a stream when an object
    // header stands there) and, through "Prev", all older ones; null when any of them is
    // unusable. A chain that comes back to an offset already read ends there.
    // !hasXref: scan mode; the offset is ignored; null when no trailer dictionary with a
    // "Root" (nor a catalog to make one from) is found.
    static KPPDFRef<KPPDFTrailer> trailerWithOffset(uint64_t offset, KPPDFDocument* document,
                                                    bool hasXref);
    // Reads a classic table entry at entry (bytes 0-9 offset, 11-15 generation, 17 flag); a
    // leading "-" gives offset 0. Returns the entry's length (20 with a two-byte line end, 19
    // with one, 18 without), or 0 when fewer than 18 bytes remain before end.
    static uint32_t getOffset(uint64_t* offset, uint32_t* generation, char* flag, const char* entry,
                              const char* end);

    // Enters this section's objects in the document's table (newer sections are set up later
    // and overwrite). False when an entry does not lead to its object: the table is unusable.
    bool setupObjects();
    // Breaks the chain from this trailer to the oldest one so that all of it can be freed.
    void close();

    KPPDFDocument* document() const { return document_; }
    Kind kind() const { return kind_; }
    // The section holds cross-reference data (table or stream); false in scan mode.
    bool hasXref() const { return kind_ != kKindScan; }
    // Offset of the "xref" keyword or of the stream's object header; 0 in scan mode.
    uint64_t offset() const { return offset_; }
    // The dictionary after "trailer", or the cross-reference stream's dictionary.
    const KPPDFRef<KPPDFObjectDictionary>& trailerDictionary() const { return trailerDictionary_; }
    // One (first object number, count) per subsection.
    const std::vector<KPPDFRange>& xrefRanges() const { return xrefRanges_; }
    // For each subsection, the offset of its first entry: in the file for tables, in the
    // decoded stream for cross-reference streams.
    const std::vector<int64_t>& rangeOffsets() const { return rangeOffsets_; }
    const KPPDFRef<KPPDFTrailer>& prev() const { return prev_; }
    KPPDFTrailer* next() const { return next_; }
    // next is not owned.
    void setNext(KPPDFTrailer* next) { next_ = next; }
    // The cross-reference stream named by a hybrid file's "XRefStm"; null elsewhere.
    const KPPDFRef<KPPDFTrailer>& hybridSection() const { return hybridSection_; }
    // The highest object number this section defined in setupObjects.
    uint32_t maxObjectNumber() const { return maxObjectNumber_; }
    // One past the highest object number the section declares (its subsections, or in scan
    // mode the headers found); bounds the size of the object table.
    uint32_t declaredObjectLimit() const;

private:
    struct ScanHit {
        uint32_t number;
        uint32_t generation;
        uint64_t start;    // the header's first byte
        uint64_t position; // the body's first byte
    };
    enum ScanMark : uint8_t { kMarkObjectStream = 1, kMarkXRefStream = 2, kMarkCatalog = 4 };

    bool readTable(uint64_t offset);
    bool readStream(uint64_t offset);
    bool readScan();
    bool setupTable();
    bool setupStream();
    bool setupScan();
    // Enters an in-use object whose cross-reference entry gives offset; false when its header
    // is not there.
    bool enterObjectAtOffset(uint32_t number, uint32_t generation, uint64_t offset);
    void enterCompressedObject(uint32_t number, uint32_t stream, uint32_t index);
    // The highest object number this document's bytes can hold.
    uint32_t numberLimit() const;
    // False (and one log line per section) for a number above numberLimit().
    bool acceptsNumber(uint32_t number);
    // The object of a scan hit, parsed from the file cut at the next header (so that a damaged
    // object cannot make the scan read the rest of the file again).
    KPPDFRef<KPPDFObjectDictionary> scannedDictionary(size_t hit,
                                                      KPPDFRef<KPPDFObjectStream>* stream);
    // Enters the objects of a scanned object stream; streamNumbers holds the numbers of all
    // object streams found, which no compressed entry may replace.
    void enterScannedObjectStream(size_t hit, const std::vector<uint32_t>& streamNumbers);
    bool chooseScanTrailer();

    KPPDFDocument* document_; // not owned
    Kind kind_;
    uint64_t offset_ = 0;
    KPPDFRef<KPPDFObjectDictionary> trailerDictionary_;
    std::vector<KPPDFRange> xrefRanges_;
    std::vector<int64_t> rangeOffsets_;
    KPPDFRef<KPPDFTrailer> prev_;
    KPPDFTrailer* next_ = nullptr; // not owned
    KPPDFRef<KPPDFTrailer> hybridSection_;
    uint32_t maxObjectNumber_ = 0;
    bool loggedNumberLimit_ = false;

    // Cross-reference streams: the decoded entries and the three field widths ("W").
    KPPDFData entryData_;
    uint32_t widths_[3] = {0, 0, 0};

    // Scan mode: the headers found in file order, and what each one's body looks like.
    std::vector<ScanHit> hits_;
    std::vector<uint8_t> marks_;
};
