#pragma once
#include <cstdint>
#include <list>
#include <memory>
#include <unordered_map>
#include <vector>

#include "kppdf/platform/KPPDFData.h"

class KPPDFInflateAhead;

// Where a document's compressed objects live (ISO 32000-1, 7.5.7 and 7.5.8.3): for each object
// number the object stream that holds it and its index there, and each object stream's decoded
// bytes and header, read once.
class KPPDFCompressedObjects {
public:
    // Object streams with more objects than this are read only up to it.
    static constexpr uint32_t kMaxObjectsPerStream = 1u << 20;

    struct Location {
        uint32_t stream = 0; // 0: the object is not compressed
        uint32_t index = 0;
    };
    // One object of an object stream's header.
    struct Entry {
        uint32_t number = 0;
        uint64_t offset = 0; // from the start of the decoded bytes (First already added)
    };
    // A decoded object stream and the objects its header lists.
    struct StreamIndex {
        KPPDFData data;
        std::vector<Entry> entries;
        bool loading = false; // guards a stream that needs itself to be read
        // When nonzero, data holds the stream only up to the start of this object (by index in
        // entries), the rest not being inflated: every earlier object reads as from the whole
        // stream, later ones need it decoded again.
        uint32_t objectsRead = 0;
        bool failed = false;
        // Place among the decoded streams, most recently used first (when decoded).
        std::list<uint32_t>::iterator recent;
        bool decoded = false;
    };

    void setLocation(uint32_t number, uint32_t stream, uint32_t index);
    // Room for the locations of objects numbered below count, made at once.
    void reserve(uint32_t count) { locations_.reserve(count); }
    // Forgets a location (the object was defined again outside object streams).
    void clearLocation(uint32_t number) {
        if (number < locations_.size())
            locations_[number] = Location();
    }
    // The locations there is room for (*count of them), to be set directly by a loader that
    // enters many at once; setLocation is the way for any other.
    Location* locationSlots(uint32_t* count) {
        *count = static_cast<uint32_t>(locations_.size());
        return locations_.data();
    }
    // False when the object is not compressed.
    bool location(uint32_t number, Location* location) const;
    // True when the stream's decoded bytes are held (its objects are read without inflating).
    bool isDecoded(uint32_t stream) const {
        auto found = streams_.find(stream);
        return found != streams_.end() && !found->second.data.isNull();
    }
    // The index of an object stream, made on first request; never null.
    StreamIndex& streamIndex(uint32_t stream) { return streams_[stream]; }
    // Reads an object stream's header ("N" pairs of object number and offset) from decoded
    // bytes; false when it is malformed. first is the stream's "First". A pair whose object
    // would start at or past the end of data is unusable (number 0).
    static bool readHeader(const KPPDFData& data, uint64_t count, uint64_t first,
                           std::vector<Entry>* entries);
    // The same from data holding at least the header's own first bytes, the objects' offsets
    // left unchecked; limitHeader checks them once the decoded length is known.
    static bool readHeaderUnchecked(const KPPDFData& data, uint64_t count, uint64_t first,
                                    std::vector<Entry>* entries);
    // Makes the pairs whose object would start at or past length unusable.
    static void limitHeader(std::vector<Entry>* entries, uint64_t length);
    // Lets an object stream's decoded bytes and header go; they are read again if one of its
    // objects is asked for later.
    // Returns the length of the bytes let go.
    size_t release(uint32_t stream);
    // Records a use of a decoded stream; beyond the budget, the streams used least recently
    // (never this one) are let go.
    void used(uint32_t stream);
    // Bytes of decoded streams to keep at most (0: no bound); applies at once.
    void setBudget(size_t bytes);
    void clear();

    // The numbers of the object streams that hold objects, ascending.
    std::vector<uint32_t> streamNumbers() const;
    // An object stream to read ahead: its number and where its dictionary starts in the file
    // (the first byte after "obj").
    struct AheadJob {
        uint32_t stream = 0;
        uint64_t position = 0;
        // The reader wants the stream's objects of index below this one (0: all of them); the
        // rest of the stream may be left inflated only up to there (see
        // StreamIndex::objectsRead).
        uint32_t objects = 0;
    };
    // What inflating an object stream needs: its raw bytes (FlateDecode alone, no parameters)
    // and its "N" and "First".
    struct PlainObjectStream {
        KPPDFData raw;
        uint64_t count = 0;
        uint64_t first = 0;
    };
    // Reads an object stream from file at position without parsing it, when its dictionary is
    // plain (see KPPDFPlainDictionaryEntries) and written the usual way: Type ObjStm, a direct
    // Length that ends the data at "endstream", direct N and First, a FlateDecode filter named
    // alone and no DecodeParms. False for anything else (the parser then judges). Touches
    // nothing but file, logs nothing.
    static bool readPlainObjectStream(const KPPDFData& file, uint64_t position,
                                      PlainObjectStream* stream);
    // Reading object streams of file on a second thread (see KPPDFInflateAhead): started with
    // the streams to read, stopped when the reading that wants them is over. A guess at them,
    // made while the order is worked out, hands out nothing; the start that follows keeps what
    // it inflated of the streams named again.
    void guessInflatingAhead(const KPPDFData& file, std::vector<AheadJob> jobs);
    void startInflatingAhead(const KPPDFData& file, std::vector<AheadJob> jobs);
    void stopInflatingAhead();
    bool isInflatingAhead() const { return ahead_ != nullptr; }
    // Fills index with the decoded bytes and header the helper read for stream, when it read
    // the stream as expected (the raw bytes, N and First the caller parsed; a null raw never
    // matches); false otherwise (the caller decodes the stream).
    bool takeInflated(uint32_t stream, const PlainObjectStream& expected, StreamIndex* index);

    KPPDFCompressedObjects();
    ~KPPDFCompressedObjects();

private:
    std::vector<Location> locations_;
    void releaseIndex(StreamIndex& index);
    void keepWithinBudget(uint32_t keep);

    std::unordered_map<uint32_t, StreamIndex> streams_;
    std::list<uint32_t> recent_;
    size_t decodedBytes_ = 0;
    size_t budget_ = 0;
    std::unique_ptr<KPPDFInflateAhead> ahead_;
};
