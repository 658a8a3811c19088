#include "kppdf/document/internal/KPPDFCompressedObjects.h"

#include <algorithm>
#include <cstring>
#include <string_view>

#include "kppdf/document/KPPDFDocument.h"
#include "kppdf/document/internal/KPPDFInflateAhead.h"
#include "kppdf/document/internal/KPPDFXRefSyntax.h"
#include "kppdf/objects/KPPDFCharLookup.h"
#include "kppdf/objects/KPPDFObjectName.h"
#include "kppdf/objects/KPPDFObjectNumbers.h"
#include "kppdf/objects/KPPDFObjectStream.h"
#include "kppdf/objects/internal/KPPDFLazyScan.h"

void KPPDFCompressedObjects::setLocation(uint32_t number, uint32_t stream, uint32_t index) {
    if (number == 0 || number > KPPDFDocument::kMaxObjectNumber)
        return;
    if (number >= locations_.size()) {
        size_t grown = std::max<size_t>(number + 1, locations_.size() + locations_.size() / 2);
        if (number < locations_.capacity())
            grown = locations_.capacity(); // the room reserved for the table
        locations_.resize(grown);
    }
    locations_[number] = {stream, index};
}

bool KPPDFCompressedObjects::location(uint32_t number, Location* location) const {
    if (number >= locations_.size() || locations_[number].stream == 0)
        return false;
    *location = locations_[number];
    return true;
}

bool KPPDFCompressedObjects::readHeader(const KPPDFData& data, uint64_t count, uint64_t first,
                                        std::vector<Entry>* entries) {
    if (!readHeaderUnchecked(data, count, first, entries))
        return false;
    limitHeader(entries, data.length());
    return true;
}

bool KPPDFCompressedObjects::readHeaderUnchecked(const KPPDFData& data, uint64_t count,
                                                 uint64_t first, std::vector<Entry>* entries) {
    entries->clear();
    if (first > data.length())
        return false;
    // Each pair takes at least four bytes ("1 0 "), which bounds a lying "N".
    count = std::min<uint64_t>({count, uint64_t(kMaxObjectsPerStream), first / 4 + 1});
    entries->reserve(static_cast<size_t>(count));
    const char* base = data.chars();
    uint64_t p = 0;
    for (uint64_t i = 0; i < count; i++) {
        p = KPPDFXRefSyntax::skipBlanks(data, p);
        const char* end = nullptr;
        unsigned long long number = KPPDFParseUnsignedDecimal(base + p, base + first, &end);
        if (end == base + p)
            return !entries->empty();
        p = KPPDFXRefSyntax::skipBlanks(data, static_cast<uint64_t>(end - base));
        unsigned long long offset = KPPDFParseUnsignedDecimal(base + p, base + first, &end);
        if (end == base + p)
            return !entries->empty();
        p = static_cast<uint64_t>(end - base);
        // An unusable pair keeps its place (number 0): the index of every later object counts it.
        if (number == 0 || number > KPPDFDocument::kMaxObjectNumber || offset >= UINT64_MAX - first)
            entries->push_back({0, 0});
        else
            entries->push_back({static_cast<uint32_t>(number), first + offset});
    }
    return true;
}

void KPPDFCompressedObjects::limitHeader(std::vector<Entry>* entries, uint64_t length) {
    for (Entry& entry : *entries)
        if (entry.offset >= length)
            entry = Entry();
}

std::vector<uint32_t> KPPDFCompressedObjects::streamNumbers() const {
    // Each stream noted once as met: writers interleave the objects of several streams, so a
    // list of every change of stream would be tens of thousands long, to sort.
    std::vector<uint32_t> numbers;
    std::vector<bool> listed;
    uint32_t last = 0;
    for (const Location& location : locations_) {
        const uint32_t stream = location.stream;
        if (!stream || stream == last)
            continue;
        last = stream;
        if (stream >= listed.size())
            listed.resize(std::max<size_t>(size_t(stream) + 1, listed.size() * 2));
        if (!listed[stream]) {
            listed[stream] = true;
            numbers.push_back(stream);
        }
    }
    std::sort(numbers.begin(), numbers.end());
    return numbers;
}

KPPDFCompressedObjects::KPPDFCompressedObjects() = default;
KPPDFCompressedObjects::~KPPDFCompressedObjects() = default;

void KPPDFCompressedObjects::guessInflatingAhead(const KPPDFData& file,
                                                 std::vector<AheadJob> jobs) {
    ahead_.reset();
    ahead_ = KPPDFInflateAhead::guess(file, std::move(jobs));
}

void KPPDFCompressedObjects::startInflatingAhead(const KPPDFData& file,
                                                 std::vector<AheadJob> jobs) {
    std::unique_ptr<KPPDFInflateAhead> guessed = std::move(ahead_);
    ahead_ = std::make_unique<KPPDFInflateAhead>(file, std::move(jobs), std::move(guessed));
}

void KPPDFCompressedObjects::stopInflatingAhead() {
    ahead_.reset();
}

bool KPPDFCompressedObjects::takeInflated(uint32_t stream, const PlainObjectStream& expected,
                                          StreamIndex* index) {
    return ahead_ && ahead_->take(stream, expected, index);
}

bool KPPDFCompressedObjects::readPlainObjectStream(const KPPDFData& file, uint64_t position,
                                                   PlainObjectStream* stream) {
    std::vector<KPPDFPlainEntry> entries;
    uint64_t end = 0;
    if (!KPPDFPlainDictionaryEntries(file, position, &entries, &end))
        return false;
    const char* base = file.chars();
    const uint64_t length = file.length();
    auto name = [&](uint64_t at) {
        return std::string_view(base + at, KPPDFObjectName::scanName(base + at, base + length));
    };
    // A direct non-negative integer: digits, then the next key or the end (digits after it
    // would make it a reference).
    auto integer = [&](uint64_t at, uint64_t* value) {
        const char* stop = base + at;
        *value = KPPDFParseUnsignedDecimal(base + at, base + length, &stop);
        uint64_t p = static_cast<uint64_t>(stop - base);
        if (p == at)
            return false;
        while (p < length && KPPDFIsWhitespace(static_cast<uint8_t>(base[p])))
            p++;
        return p < length && (base[p] == '/' || base[p] == '>');
    };
    // A key written twice keeps its last value, as the parser does.
    uint64_t type = 0, filter = 0, lengthValue = 0, count = 0, first = 0;
    for (const KPPDFPlainEntry& entry : entries) {
        if (entry.key == "DecodeParms")
            return false;
        uint64_t* place = entry.key == "Type"     ? &type
                          : entry.key == "Filter" ? &filter
                          : entry.key == "Length" ? &lengthValue
                          : entry.key == "N"      ? &count
                          : entry.key == "First"  ? &first
                                                  : nullptr;
        if (place)
            *place = entry.offset;
    }
    uint64_t declared = 0;
    if (!type || !filter || !lengthValue || !count || !first || name(type) != "/ObjStm" ||
        (name(filter) != "/FlateDecode" && name(filter) != "/Fl") ||
        !integer(lengthValue, &declared) || !integer(count, &stream->count) ||
        !integer(first, &stream->first))
        return false;
    // The data starts after "stream" and its line end, and Length ends it at "endstream": the
    // parser's own reading when all is well.
    uint64_t p = end;
    while (p < length && KPPDFIsWhitespace(static_cast<uint8_t>(base[p])))
        p++;
    if (length - p < 6 || std::memcmp(base + p, "stream", 6) != 0)
        return false;
    uint64_t start = KPPDFObjectStream::dataStart(file, p);
    if (!KPPDFObjectStream::declaredLengthEnds(file, start, declared, &end))
        return false;
    stream->raw = file.subdata(static_cast<size_t>(start), static_cast<size_t>(declared));
    return true;
}

void KPPDFCompressedObjects::clear() {
    ahead_.reset();
    locations_.clear();
    streams_.clear();
    recent_.clear();
    decodedBytes_ = 0;
}

void KPPDFCompressedObjects::releaseIndex(StreamIndex& index) {
    if (index.decoded) {
        recent_.erase(index.recent);
        decodedBytes_ -= index.data.length();
        index.decoded = false;
    }
    index.data = KPPDFData();
    index.entries = std::vector<Entry>(); // assigning {} would keep the memory
    index.objectsRead = 0;
}

size_t KPPDFCompressedObjects::release(uint32_t stream) {
    auto found = streams_.find(stream);
    if (found == streams_.end() || found->second.loading || found->second.failed)
        return 0;
    size_t length = found->second.data.length();
    releaseIndex(found->second);
    return length;
}

void KPPDFCompressedObjects::used(uint32_t stream) {
    auto found = streams_.find(stream);
    if (found == streams_.end() || found->second.failed || found->second.data.isNull())
        return;
    StreamIndex& index = found->second;
    if (index.decoded) {
        recent_.splice(recent_.begin(), recent_, index.recent);
    } else {
        recent_.push_front(stream);
        index.recent = recent_.begin();
        index.decoded = true;
        decodedBytes_ += index.data.length();
    }
    keepWithinBudget(stream);
}

void KPPDFCompressedObjects::setBudget(size_t bytes) {
    budget_ = bytes;
    keepWithinBudget(0);
}

void KPPDFCompressedObjects::keepWithinBudget(uint32_t keep) {
    while (budget_ && decodedBytes_ > budget_ && !recent_.empty()) {
        uint32_t oldest = recent_.back();
        if (oldest == keep)
            break; // the stream in use alone is over the budget
        auto found = streams_.find(oldest);
        if (found == streams_.end()) {
            recent_.pop_back();
            continue;
        }
        // Listed streams are decoded ones, never one being read.
        releaseIndex(found->second);
    }
}
