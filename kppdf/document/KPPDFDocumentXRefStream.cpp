// Cross-reference streams and object streams (ISO 32000-1, 7.5.7 and 7.5.8).
#include <algorithm>

#include "kppdf/document/KPPDFDocument.h"
#include "kppdf/document/KPPDFTrailer.h"
#include "kppdf/document/internal/KPPDFCompressedObjects.h"
#include "kppdf/document/internal/KPPDFXRefSyntax.h"
#include "kppdf/objects/KPPDFCharLookup.h"
#include "kppdf/objects/KPPDFObjectArray.h"
#include "kppdf/objects/KPPDFObjectDictionary.h"
#include "kppdf/objects/KPPDFObjectInteger.h"
#include "kppdf/objects/KPPDFObjectName.h"
#include "kppdf/objects/KPPDFObjectStream.h"
#include "kppdf/platform/KPPDFLog.h"

namespace {
// A field of a cross-reference stream entry is at most this many bytes wide (a 64-bit value).
constexpr uint32_t kMaxFieldWidth = 8;
// Object streams whose loading needs another object stream first, nested deeper than this, are
// refused (a stream's Length kept in another object stream, and so on).
constexpr int kMaxObjectStreamNesting = 16;

thread_local int objectStreamNesting = 0;

bool nonNegativeInteger(const KPPDFRef<KPPDFObject>& object, uint64_t* value) {
    if (!object || object->objectType() != KPPDFObjectTypeInteger || object->longLongValue() < 0)
        return false;
    *value = static_cast<uint64_t>(object->longLongValue());
    return true;
}

// Inflating object streams ahead of the opening walk pays for its thread from this many on.
constexpr size_t kInflateAheadMinStreams = 16;

// A stream whose only filter is FlateDecode, without parameters: its decoded bytes are what
// zlib gives, whoever inflates them.
bool plainFlate(KPPDFObjectStream& stream) {
    KPPDFRef<KPPDFObjectDictionary> dictionary = stream.dictionary();
    if (!dictionary || dictionary->objectForKey("DecodeParms"))
        return false;
    KPPDFRef<KPPDFObject> filter = dictionary->resolvedObjectForKey("Filter");
    if (KPPDFObjectArray* array = filter ? filter->asArray() : nullptr)
        filter = array->count() == 1 ? array->resolvedObjectAtIndex(0) : nullptr;
    KPPDFObjectName* name = filter ? filter->asName() : nullptr;
    return name && (name->value() == "FlateDecode" || name->value() == "Fl");
}

// The "N" and "First" of an object stream; false when stream is none.
bool objectStreamSize(KPPDFObjectStream* stream, uint64_t* count, uint64_t* first) {
    KPPDFRef<KPPDFObjectDictionary> dictionary = stream ? stream->dictionary() : nullptr;
    return dictionary && dictionary->hasName("Type", "ObjStm") &&
           nonNegativeInteger(dictionary->resolvedObjectForKey("N"), count) &&
           nonNegativeInteger(dictionary->resolvedObjectForKey("First"), first);
}

// Decodes an object stream and reads its header into index, unless the cache's helper read
// them already (asked only when ahead is set).
bool loadObjectStream(KPPDFObject* object, uint32_t streamNumber,
                      KPPDFCompressedObjects::StreamIndex& index, KPPDFCompressedObjects& cache,
                      bool ahead) {
    KPPDFObjectStream* stream = object ? object->asStream() : nullptr;
    uint64_t count = 0, first = 0;
    if (!objectStreamSize(stream, &count, &first)) {
        KPPDFLog("Object %u is not an object stream", streamNumber);
        return false;
    }
    // What the helper read for itself is taken only if it is this stream as parsed here.
    if (ahead && cache.isInflatingAhead() &&
        cache.takeInflated(streamNumber,
                           {plainFlate(*stream) ? stream->rawData() : KPPDFData(), count, first},
                           &index))
        return true;
    KPPDFData data = stream->decodedData();
    if (!KPPDFCompressedObjects::readHeader(data, count, first, &index.entries)) {
        KPPDFLog("Object stream %u has a malformed header", streamNumber);
        return false;
    }
    index.data = data.isNull() ? KPPDFData(std::string()) : data;
    index.objectsRead = 0;
    return true;
}

// A big-endian field of a cross-reference stream entry; the usual widths are read at once.
inline uint64_t readField(const uint8_t* bytes, uint32_t width) {
    switch (width) {
    case 0:
        return 0;
    case 1:
        return bytes[0];
    case 2:
        return uint64_t(bytes[0]) << 8 | bytes[1];
    case 3:
        return uint64_t(bytes[0]) << 16 | uint64_t(bytes[1]) << 8 | bytes[2];
    default: {
        uint64_t value = 0;
        for (uint32_t i = 0; i < width; i++)
            value = (value << 8) | bytes[i];
        return value;
    }
    }
}
template <uint32_t W0, uint32_t W1, uint32_t W2> struct FixedWidths {
    static constexpr uint32_t w0 = W0, w1 = W1, w2 = W2;
};
struct AnyWidths {
    uint32_t w0, w1, w2;
};
} // namespace

bool KPPDFTrailer::readStream(uint64_t offset) {
    const KPPDFData& data = document_->docData();
    KPPDFXRefSyntax::ObjectHeader header;
    if (!KPPDFXRefSyntax::readObjectHeader(data, offset, &header)) {
        KPPDFLog("No cross-reference section at offset %llu",
                 static_cast<unsigned long long>(offset));
        return false;
    }
    offset_ = offset;
    // Parsed at once, so that its extent is the dictionary's own and not a search for the end
    // of the object through the rest of the file.
    auto stream = KPPDFCast<KPPDFObjectStream>(
        KPPDFDocument::parseObject(document_, header.position, data, false, true));
    KPPDFRef<KPPDFObjectDictionary> dictionary = stream ? stream->dictionary() : nullptr;
    if (!dictionary || !dictionary->hasName("Type", "XRef")) {
        KPPDFLog("Object %u at offset %llu is not a cross-reference stream", header.number,
                 static_cast<unsigned long long>(offset));
        return false;
    }
    auto widths = dictionary->resolvedObjectForKey<KPPDFObjectArray>("W");
    bool widthsUsable = widths && widths->count() == 3;
    uint64_t entryWidth = 0;
    for (size_t i = 0; widthsUsable && i < 3; i++) {
        uint64_t width = 0;
        widthsUsable =
            nonNegativeInteger(widths->resolvedObjectAtIndex(i), &width) && width <= kMaxFieldWidth;
        widths_[i] = static_cast<uint32_t>(width);
        entryWidth += width;
    }
    if (!widthsUsable || entryWidth == 0) {
        KPPDFLog("Cross-reference stream at offset %llu has no usable W",
                 static_cast<unsigned long long>(offset));
        return false;
    }
    uint64_t size = 0;
    if (!nonNegativeInteger(dictionary->resolvedObjectForKey("Size"), &size)) {
        KPPDFLog("Cross-reference stream at offset %llu has no Size",
                 static_cast<unsigned long long>(offset));
        return false;
    }
    KPPDFObjectList pairs;
    if (auto index = dictionary->resolvedObjectForKey<KPPDFObjectArray>("Index")) {
        pairs = index->value();
    } else {
        pairs.push_back(KPPDFObjectInteger::integerWithLongLong(0));
        pairs.push_back(KPPDFObjectInteger::integerWithLongLong(static_cast<long long>(size)));
    }
    entryData_ = stream->decodedData();
    uint64_t available = entryData_.length() / entryWidth;
    uint64_t total = 0;
    for (size_t i = 0; i + 1 < pairs.size(); i += 2) {
        uint64_t first = 0, count = 0;
        if (!nonNegativeInteger(KPPDFObject::resolve(pairs[i]), &first) ||
            !nonNegativeInteger(KPPDFObject::resolve(pairs[i + 1]), &count) ||
            first + count > KPPDFDocument::kMaxObjectNumber + 1ull || count > available - total) {
            KPPDFLog("Cross-reference stream at offset %llu: Index does not match its data",
                     static_cast<unsigned long long>(offset));
            return false;
        }
        xrefRanges_.push_back({static_cast<uint32_t>(first), static_cast<uint32_t>(count)});
        rangeOffsets_.push_back(static_cast<int64_t>(total * entryWidth));
        total += count;
    }
    if (pairs.size() % 2) {
        KPPDFLog("Cross-reference stream at offset %llu: Index has an odd length",
                 static_cast<unsigned long long>(offset));
        return false;
    }
    trailerDictionary_ = std::move(dictionary);
    return true;
}

bool KPPDFTrailer::setupStream() {
    const uint8_t* bytes = entryData_.bytes();
    // Most entries of a large file are compressed objects entered in a table that has room for
    // them and holds nothing there yet: those are entered here directly, as
    // enterCompressedObject would enter them; any other goes through it. The room is taken
    // again after each of those calls, which may grow the table.
    KPPDFDocument& document = *document_;
    const uint32_t limit = std::min(numberLimit(), KPPDFDocument::kMaxObjectNumber);
    uint32_t room = 0;
    KPPDFCompressedObjects::Location* locations = nullptr;
    auto takeRoom = [&] {
        room = 0;
        KPPDFCompressedObjects* cache = document.compressedObjects_.get();
        if (!cache || document.pending_.size() != document.table_.size())
            return;
        uint32_t slots = 0;
        locations = cache->locationSlots(&slots);
        room = static_cast<uint32_t>(
            std::min<uint64_t>({document.table_.size(), slots, uint64_t(limit) + 1}));
    };
    takeRoom();
    uint32_t maxNumber = maxObjectNumber_;
    // The loop is made for the widths at hand where they are the usual ones, so that its fields
    // are read without a branch on their widths.
    auto enterEntries = [&](const auto& widths) {
        const uint32_t w0 = widths.w0, w1 = widths.w1, w2 = widths.w2;
        const uint32_t entryWidth = w0 + w1 + w2;
        for (size_t k = 0; k < xrefRanges_.size(); k++) {
            const uint8_t* entry = bytes + rangeOffsets_[k];
            const uint32_t first = xrefRanges_[k].location, count = xrefRanges_[k].length;
            for (uint32_t i = 0; i < count; i++, entry += entryWidth) {
                // A missing type field means type 1 (ISO 32000-1, table 17).
                uint64_t type = w0 ? readField(entry, w0) : 1;
                uint64_t second = readField(entry + w0, w1);
                uint64_t third = readField(entry + w0 + w1, w2);
                uint32_t number = first + i;
                if (type == 2 && number != 0 && number < room && second != 0 && second <= limit &&
                    second != number && third <= UINT32_MAX && !document.table_[number]) {
                    locations[number] = {static_cast<uint32_t>(second),
                                         static_cast<uint32_t>(third)};
                    document.pending_[number] = {0, 0};
                    maxNumber = std::max(maxNumber, number);
                    continue;
                }
                if ((type == 1 && second != 0) ||
                    (type == 2 && second <= UINT32_MAX && third <= UINT32_MAX)) {
                    maxObjectNumber_ = maxNumber;
                    if (type == 1) {
                        uint32_t generation =
                            static_cast<uint32_t>(std::min<uint64_t>(third, UINT32_MAX));
                        if (!enterObjectAtOffset(number, generation, second))
                            return false;
                    } else {
                        enterCompressedObject(number, static_cast<uint32_t>(second),
                                              static_cast<uint32_t>(third));
                    }
                    maxNumber = maxObjectNumber_;
                    takeRoom();
                }
                // Type 0 (free) and unknown types stand for the null object.
            }
        }
        return true;
    };
    bool entered = false;
    if (widths_[0] == 1 && widths_[1] == 3 && widths_[2] == 1)
        entered = enterEntries(FixedWidths<1, 3, 1>());
    else if (widths_[0] == 1 && widths_[1] == 2 && widths_[2] == 1)
        entered = enterEntries(FixedWidths<1, 2, 1>());
    else if (widths_[0] == 1 && widths_[1] == 4 && widths_[2] == 1)
        entered = enterEntries(FixedWidths<1, 4, 1>());
    else if (widths_[0] == 1 && widths_[1] == 4 && widths_[2] == 2)
        entered = enterEntries(FixedWidths<1, 4, 2>());
    else
        entered = enterEntries(AnyWidths{widths_[0], widths_[1], widths_[2]});
    if (!entered)
        return false;
    maxObjectNumber_ = maxNumber;
    // Entered in the table, the entries are not needed again.
    entryData_ = KPPDFData();
    return true;
}

void KPPDFDocument::startInflatingAhead() {
    uint32_t pages = 0;
    if (!compressedObjects_ || trailerHasEncrypt() || !declaredPageCount(&pages) ||
        pages < kInflateAheadMinStreams)
        return;
    std::vector<uint32_t> numbers = compressedObjects_->streamNumbers();
    if (numbers.size() < kInflateAheadMinStreams)
        return;
    // The helper reads each stream's dictionary for itself: only where each one starts is
    // looked up here (0: not a stream it can read, or one decoded already).
    auto aheadPosition = [&](uint32_t number) -> uint32_t {
        return number < pending_.size() && pending_[number].generation != kNoPlaceholder &&
                       !compressedObjects_->isDecoded(number)
                   ? pending_[number].position
                   : 0;
    };
    // While the page tree is read for the walk's order, the helper starts on a guess: the
    // streams as they stand in the file from the one that holds the first page (the way most
    // files lay their pages out).
    const uint32_t firstStream = firstPageStream();
    if (uint32_t first =
            firstStream && firstStream < pending_.size() ? pending_[firstStream].position : 0) {
        std::vector<KPPDFCompressedObjects::AheadJob> guess;
        for (uint32_t number : numbers)
            if (uint32_t position = aheadPosition(number); position >= first)
                guess.push_back({number, position, 0});
        std::sort(guess.begin(), guess.end(),
                  [](const auto& a, const auto& b) { return a.position < b.position; });
        compressedObjects_->guessInflatingAhead(docData_, std::move(guess));
    }
    // The walk's own order where the page tree tells it, then the rest in ascending order (the
    // order most files lay their pages out in), wanted whole.
    std::vector<std::pair<uint32_t, uint32_t>> order = forecastObjectStreams();
    std::vector<bool> forecast(numbers.size(), false);
    for (const auto& [number, objects] : order) {
        auto found = std::lower_bound(numbers.begin(), numbers.end(), number);
        if (found != numbers.end() && *found == number)
            forecast[static_cast<size_t>(found - numbers.begin())] = true;
    }
    for (size_t i = 0; i < numbers.size(); i++)
        if (!forecast[i])
            order.push_back({numbers[i], 0});
    std::vector<KPPDFCompressedObjects::AheadJob> jobs;
    jobs.reserve(order.size());
    for (const auto& [number, objects] : order)
        if (uint32_t position = aheadPosition(number))
            jobs.push_back({number, position, objects});
    compressedObjects_->startInflatingAhead(docData_, std::move(jobs));
}

void KPPDFDocument::stopInflatingAhead() {
    if (compressedObjects_)
        compressedObjects_->stopInflatingAhead();
}

KPPDFRef<KPPDFObject> KPPDFDocument::compressedObject(uint32_t number) {
    KPPDFCompressedObjects::Location location;
    if (!compressedObjects_ || !compressedObjects_->location(number, &location))
        return nullptr;
    // In an encrypted file, object streams are encrypted: before the key is known (the page
    // tree looked up while opening), their objects cannot be read yet, and that is no fault.
    if (encryptionStatus_ == 0 && encryptKey_.empty() && trailerHasEncrypt())
        return nullptr;
    // Loading resolves other objects and may add indexes of other streams; the map's nodes
    // stay where they are, so this reference remains valid.
    KPPDFRef<KPPDFCompressedObjects> cache = compressedObjects_;
    KPPDFCompressedObjects::StreamIndex& index = cache->streamIndex(location.stream);
    if (index.failed || index.loading)
        return nullptr;
    // A stream the helper inflated only in part is decoded again, whole, for a later object.
    bool ahead = true;
    const KPPDFCompressedObjects::Entry* entry = nullptr;
    for (;;) {
        if (index.data.isNull()) {
            if (objectStreamNesting >= kMaxObjectStreamNesting) {
                KPPDFLog("Object streams nested too deeply at object stream %u", location.stream);
                return nullptr;
            }
            KPPDFCompressedObjects::Location nested;
            if (cache->location(location.stream, &nested)) {
                KPPDFLog("Object stream %u is itself kept in an object stream", location.stream);
                index.failed = true;
                return nullptr;
            }
            index.loading = true;
            objectStreamNesting++;
            // The index keeps the decoded objects; the stream object itself (and, in an
            // encrypted file, its decrypted bytes) is let go once read, unless something else
            // holds it.
            bool loaded = false;
            useObject(location.stream, [&](KPPDFObject* object) {
                loaded = loadObjectStream(object, location.stream, index, *cache, ahead);
                if (object)
                    noteFileBytesRead(object->rawLength());
            });
            objectStreamNesting--;
            index.loading = false;
            if (!loaded) {
                index.failed = true;
                index.entries = std::vector<KPPDFCompressedObjects::Entry>();
                return nullptr;
            }
        }
        cache->used(location.stream);
        entry = nullptr;
        if (location.index < index.entries.size() &&
            index.entries[location.index].number == number) {
            entry = &index.entries[location.index];
        } else {
            // The cross-reference index is off; the stream's own header still names the object.
            for (const auto& candidate : index.entries)
                if (candidate.number == number) {
                    entry = &candidate;
                    break;
                }
        }
        if (!index.objectsRead ||
            (entry && static_cast<size_t>(entry - index.entries.data()) < index.objectsRead))
            break;
        if (!ahead || !cache->release(location.stream))
            return nullptr; // decoded whole already: never the case
        ahead = false;
    }
    if (!entry) {
        KPPDFLog("Object %u is not in object stream %u", number, location.stream);
        return nullptr;
    }
    // The object's text ends where the next one starts: bounded so, an array or dictionary is
    // bound lazily like one in the file body, and is copied as its bytes stand when written.
    uint64_t end = index.data.length();
    size_t position = static_cast<size_t>(entry - index.entries.data());
    if (index.objectsRead) {
        // Inflated up to the start of object objectsRead, in a header checked to ascend so far:
        // the end the whole stream gives, even where later pairs are unusable in the part.
        if (position + 1 < index.objectsRead)
            end = index.entries[position + 1].offset;
    } else if (position + 1 < index.entries.size() &&
               index.entries[position + 1].offset > entry->offset) {
        end = index.entries[position + 1].offset; // the usual order: ascending offsets
    } else {
        for (const auto& other : index.entries)
            if (other.offset > entry->offset && other.offset < end)
                end = other.offset;
    }
    KPPDFData text = index.data.subdata(0, static_cast<size_t>(end));
    KPPDFRef<KPPDFObject> object = parseObject(this, entry->offset, text, false, false);
    if (object && (object->objectType() == KPPDFObjectTypeArray ||
                   object->objectType() == KPPDFObjectTypeDictionary)) {
        uint64_t start = object->dataRange().location;
        bool lazy = object->asArray() ? !object->asArray()->isParsed()
                                      : !object->asDictionary()->isParsed();
        // Up to the next object, less the white space between them: written again, the
        // object would otherwise gain a line end on each save.
        while (end > start && KPPDFIsWhitespace(index.data.bytes()[end - 1]))
            end--;
        if (lazy && end > start)
            object->setRawLength(static_cast<uint32_t>(end - start));
    }
    if (!object || object->objectType() == KPPDFObjectTypeStream) {
        // ISO 32000-1, 7.5.7: a stream can never be kept in an object stream.
        KPPDFLog("Unable to read object %u from object stream %u", number, location.stream);
        return nullptr;
    }
    setObject(object, number, 0);
    object->setDirect(false);
    return object;
}
