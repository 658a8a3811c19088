// Classic cross-reference tables, the "Prev" chain and scan-mode repair. Cross-reference
// streams are read in KPPDFDocumentXRefStream.cpp.
#include "kppdf/document/KPPDFTrailer.h"

#include <algorithm>
#include <unordered_set>

#include "kppdf/document/KPPDFDocument.h"
#include "kppdf/document/internal/KPPDFCompressedObjects.h"
#include "kppdf/document/internal/KPPDFXRefSyntax.h"
#include "kppdf/objects/KPPDFCharLookup.h"
#include "kppdf/objects/KPPDFObjectDictionary.h"
#include "kppdf/objects/KPPDFObjectInteger.h"
#include "kppdf/objects/KPPDFObjectNumbers.h"
#include "kppdf/objects/KPPDFObjectReference.h"
#include "kppdf/objects/KPPDFObjectStream.h"
#include "kppdf/platform/KPPDFLog.h"

namespace {
// The shortest classic entry: ten digits, blank, five digits, blank, flag.
constexpr uint64_t kMinEntryLength = 18;

// A non-negative integer entry of a dictionary, taken as it stands (not resolved).
bool rawOffset(KPPDFObjectDictionary& dictionary, std::string_view key, uint64_t* value) {
    KPPDFRef<KPPDFObject> entry = dictionary.objectForKey(key);
    if (!entry || entry->objectType() != KPPDFObjectTypeInteger || entry->longLongValue() < 0)
        return false;
    *value = static_cast<uint64_t>(entry->longLongValue());
    return true;
}
} // namespace

KPPDFTrailer::KPPDFTrailer(KPPDFDocument* document, Kind kind) : document_(document), kind_(kind) {}

KPPDFTrailer::~KPPDFTrailer() {
    close();
}

void KPPDFTrailer::close() {
    // Unlinked one at a time, so that a long chain is not freed by deep recursion.
    next_ = nullptr;
    KPPDFRef<KPPDFTrailer> older = std::move(prev_);
    while (older) {
        older->next_ = nullptr;
        KPPDFRef<KPPDFTrailer> next = std::move(older->prev_);
        older = std::move(next);
    }
}

uint32_t KPPDFTrailer::getOffset(uint64_t* offset, uint32_t* generation, char* flag,
                                 const char* entry, const char* end) {
    if (end < entry || static_cast<uint64_t>(end - entry) < kMinEntryLength)
        return 0;
    const char* stop = nullptr;
    *offset = entry[0] == '-' ? 0 : KPPDFParseUnsignedDecimal(entry, entry + 10, &stop);
    unsigned long long value = KPPDFParseUnsignedDecimal(entry + 11, entry + 16, &stop);
    *generation = static_cast<uint32_t>(std::min<unsigned long long>(value, UINT32_MAX));
    *flag = entry[17];
    uint64_t available = static_cast<uint64_t>(end - entry);
    if (available > 18 && static_cast<uint8_t>(entry[18]) < '0') {
        if (available > 19 && static_cast<uint8_t>(entry[19]) < '0')
            return 20;
        return 19;
    }
    return 18;
}

KPPDFRef<KPPDFTrailer> KPPDFTrailer::trailerWithOffset(uint64_t offset, KPPDFDocument* document,
                                                       bool hasXref) {
    if (!document)
        return nullptr;
    const KPPDFData& data = document->docData();
    if (!hasXref) {
        auto trailer = std::make_shared<KPPDFTrailer>(document, kKindScan);
        return trailer->readScan() ? trailer : nullptr;
    }
    auto readSection = [&](uint64_t at) -> KPPDFRef<KPPDFTrailer> {
        uint64_t start =
            KPPDFXRefSyntax::skipBlanks(data, at, at + KPPDFXRefSyntax::kMaxLeadingBlanks);
        bool table = KPPDFXRefSyntax::hasKeyword(data, start, "xref");
        auto trailer = std::make_shared<KPPDFTrailer>(document, table ? kKindTable : kKindStream);
        bool ok = table ? trailer->readTable(start) : trailer->readStream(start);
        return ok ? trailer : nullptr;
    };
    KPPDFRef<KPPDFTrailer> newest = readSection(offset);
    if (!newest)
        return nullptr;
    std::unordered_set<uint64_t> visited{offset, newest->offset_};
    KPPDFTrailer* current = newest.get();
    for (size_t length = 1;; length++) {
        uint64_t prev = 0;
        if (!rawOffset(*current->trailerDictionary_, "Prev", &prev))
            break;
        if (visited.count(prev) || visited.count(KPPDFXRefSyntax::skipBlanks(
                                       data, prev, prev + KPPDFXRefSyntax::kMaxLeadingBlanks))) {
            KPPDFLog("Cross-reference chain comes back to offset %llu; older sections ignored",
                     static_cast<unsigned long long>(prev));
            break;
        }
        if (length >= kMaxChainLength) {
            KPPDFLog("Cross-reference chain longer than %zu sections; older sections ignored",
                     kMaxChainLength);
            break;
        }
        KPPDFRef<KPPDFTrailer> older = readSection(prev);
        if (!older) {
            KPPDFLog("No cross-reference section at offset %llu (Prev)",
                     static_cast<unsigned long long>(prev));
            newest->close();
            return nullptr;
        }
        visited.insert(prev);
        visited.insert(older->offset_);
        older->next_ = current;
        current->prev_ = older;
        current = older.get();
    }
    return newest;
}

bool KPPDFTrailer::readTable(uint64_t offset) {
    const KPPDFData& data = document_->docData();
    const char* base = data.chars();
    uint64_t length = data.length();
    if (!KPPDFXRefSyntax::hasKeyword(data, offset, "xref"))
        return false;
    offset_ = offset;
    uint64_t p = offset + 4;
    while (true) {
        p = KPPDFXRefSyntax::skipBlanks(data, p);
        if (KPPDFXRefSyntax::hasKeyword(data, p, "trailer"))
            break;
        const char* end = nullptr;
        long long first = KPPDFParseSignedDecimal(base + p, base + length, &end);
        if (end == base + p || first < 0) {
            KPPDFLog("Malformed cross-reference subsection at offset %llu",
                     static_cast<unsigned long long>(p));
            return false;
        }
        p = KPPDFXRefSyntax::skipWhitespace(data, static_cast<uint64_t>(end - base));
        unsigned long long count = KPPDFParseUnsignedDecimal(base + p, base + length, &end);
        if (end == base + p || static_cast<unsigned long long>(first) + count >
                                   KPPDFDocument::kMaxObjectNumber + 1ull) {
            KPPDFLog("Malformed cross-reference subsection at offset %llu",
                     static_cast<unsigned long long>(p));
            return false;
        }
        p = KPPDFXRefSyntax::skipWhitespace(data, static_cast<uint64_t>(end - base));
        if (count > (length - p) / kMinEntryLength) {
            KPPDFLog("Cross-reference subsection at offset %llu runs past the end of the file",
                     static_cast<unsigned long long>(p));
            return false;
        }
        xrefRanges_.push_back({static_cast<uint32_t>(first), static_cast<uint32_t>(count)});
        rangeOffsets_.push_back(static_cast<int64_t>(p));
        uint64_t entryOffset = 0;
        uint32_t generation = 0;
        char flag = 0;
        for (unsigned long long i = 0; i < count; i++) {
            uint32_t entryLength =
                getOffset(&entryOffset, &generation, &flag, base + p, base + length);
            if (entryLength == 0)
                return false;
            p += entryLength;
        }
    }
    p = KPPDFXRefSyntax::skipWhitespace(data, p + 7);
    KPPDFRef<KPPDFObject> dictionary = KPPDFDocument::parseObject(document_, p, data, false, true);
    trailerDictionary_ = KPPDFCast<KPPDFObjectDictionary>(dictionary);
    if (!trailerDictionary_) {
        KPPDFLog("No trailer dictionary after the cross-reference table at offset %llu",
                 static_cast<unsigned long long>(offset));
        return false;
    }
    // A hybrid file (ISO 32000-1, 7.5.8.4) lists the objects of its object streams in a
    // cross-reference stream that only readers of PDF 1.5 look at.
    uint64_t hybrid = 0;
    if (rawOffset(*trailerDictionary_, "XRefStm", &hybrid)) {
        auto section = std::make_shared<KPPDFTrailer>(document_, kKindStream);
        if (!section->readStream(KPPDFXRefSyntax::skipBlanks(
                data, hybrid, hybrid + KPPDFXRefSyntax::kMaxLeadingBlanks))) {
            KPPDFLog("No cross-reference stream at offset %llu (XRefStm)",
                     static_cast<unsigned long long>(hybrid));
            return false;
        }
        hybridSection_ = std::move(section);
    }
    return true;
}

uint32_t KPPDFTrailer::numberLimit() const {
    uint64_t limit = uint64_t(kObjectNumbersPerByte) * document_->docData().length();
    limit = std::max<uint64_t>(limit, kMinObjectNumberLimit);
    return static_cast<uint32_t>(std::min<uint64_t>(limit, KPPDFDocument::kMaxObjectNumber));
}

bool KPPDFTrailer::acceptsNumber(uint32_t number) {
    if (number <= numberLimit())
        return true;
    if (!loggedNumberLimit_)
        KPPDFLog("Object number %u is more than a file of %zu bytes can hold; ignored", number,
                 document_->docData().length());
    loggedNumberLimit_ = true;
    return false;
}

uint32_t KPPDFTrailer::declaredObjectLimit() const {
    uint64_t limit = 0;
    if (kind_ == kKindScan) {
        for (const ScanHit& hit : hits_)
            limit = std::max<uint64_t>(limit, uint64_t(hit.number) + 1);
    } else {
        for (const KPPDFRange& range : xrefRanges_)
            limit = std::max<uint64_t>(limit, range.end());
    }
    if (hybridSection_)
        limit = std::max<uint64_t>(limit, hybridSection_->declaredObjectLimit());
    return static_cast<uint32_t>(std::min<uint64_t>(limit, numberLimit() + 1ull));
}

bool KPPDFTrailer::setupObjects() {
    switch (kind_) {
    case kKindTable:
        return setupTable();
    case kKindStream:
        return setupStream();
    case kKindScan:
        return setupScan();
    }
    return false;
}

bool KPPDFTrailer::enterObjectAtOffset(uint32_t number, uint32_t generation, uint64_t offset) {
    const KPPDFData& data = document_->docData();
    KPPDFXRefSyntax::ObjectHeader header;
    if (offset >= data.length() ||
        !KPPDFXRefSyntax::findObjectHeader(data, offset, number, &header) ||
        header.position > UINT32_MAX) {
        KPPDFLog("Cross-reference entry for object %u does not lead to it (offset %llu)", number,
                 static_cast<unsigned long long>(offset));
        return false;
    }
    // Checking every entry this way reads the whole file: its pages go as the check goes on.
    document_->noteFileOffsetRead(offset);
    if (number == 0 || !acceptsNumber(number))
        return true;
    document_->enterPlaceholder(number, generation, static_cast<uint32_t>(header.position));
    if (document_->compressedObjects_)
        document_->compressedObjects_->clearLocation(number);
    maxObjectNumber_ = std::max(maxObjectNumber_, number);
    return true;
}

void KPPDFTrailer::enterCompressedObject(uint32_t number, uint32_t stream, uint32_t index) {
    if (number == 0 || number > KPPDFDocument::kMaxObjectNumber || stream == 0 ||
        stream > KPPDFDocument::kMaxObjectNumber || stream == number || !acceptsNumber(number))
        return;
    if (!document_->compressedObjects_) {
        document_->compressedObjects_ = std::make_shared<KPPDFCompressedObjects>();
        // Sized by the table, which the sections' declared sizes made: grown entry by entry,
        // the old and the new locations would be held at once.
        document_->compressedObjects_->reserve(static_cast<uint32_t>(document_->table_.size()));
    }
    document_->enterPlaceholder(number, 0, 0);
    document_->compressedObjects_->setLocation(number, stream, index);
    maxObjectNumber_ = std::max(maxObjectNumber_, number);
}

bool KPPDFTrailer::setupTable() {
    if (hybridSection_) {
        // The table's own in-use entries come after, so that they win (ISO 32000-1, 7.5.8.4).
        if (!hybridSection_->setupObjects())
            return false;
        maxObjectNumber_ = std::max(maxObjectNumber_, hybridSection_->maxObjectNumber());
    }
    const KPPDFData& data = document_->docData();
    const char* base = data.chars();
    const char* end = base + data.length();
    for (size_t k = 0; k < xrefRanges_.size(); k++) {
        const char* entry = base + rangeOffsets_[k];
        uint64_t offset = 0;
        uint32_t generation = 0;
        char flag = 0;
        for (uint32_t i = 0; i < xrefRanges_[k].length; i++) {
            uint32_t entryLength = getOffset(&offset, &generation, &flag, entry, end);
            if (entryLength == 0)
                return false;
            entry += entryLength;
            if (flag != 'n' || offset == 0)
                continue;
            if (!enterObjectAtOffset(xrefRanges_[k].location + i, generation, offset))
                return false;
        }
    }
    return true;
}

// ---- Scan mode ----

bool KPPDFTrailer::readScan() {
    const KPPDFData& data = document_->docData();
    uint64_t length = data.length();
    hits_.clear();
    KPPDFXRefSyntax::ObjectHeader header;
    for (uint64_t from = 0;;) {
        uint64_t keyword = KPPDFXRefSyntax::find(data, "obj", from, length);
        if (keyword == KPPDFXRefSyntax::npos)
            break;
        from = keyword + 3;
        if (KPPDFXRefSyntax::readObjectHeaderBefore(data, keyword, &header) && header.number != 0 &&
            acceptsNumber(header.number) && header.position <= UINT32_MAX)
            hits_.push_back({header.number, header.generation, header.start, header.position});
    }
    // What each body looks like decides which few objects are parsed while scanning.
    marks_.assign(hits_.size(), 0);
    for (size_t i = 0; i < hits_.size(); i++) {
        uint64_t stop = i + 1 < hits_.size() ? hits_[i + 1].start : length;
        uint64_t from = hits_[i].position;
        if (!KPPDFXRefSyntax::hasKeyword(data, from, "<<") || stop <= from)
            continue;
        stop = std::min(stop, from + kScanTypeWindow);
        if (KPPDFXRefSyntax::find(data, "/ObjStm", from, stop) != KPPDFXRefSyntax::npos)
            marks_[i] |= kMarkObjectStream;
        if (KPPDFXRefSyntax::find(data, "/XRef", from, stop) != KPPDFXRefSyntax::npos)
            marks_[i] |= kMarkXRefStream;
        if (KPPDFXRefSyntax::find(data, "/Catalog", from, stop) != KPPDFXRefSyntax::npos)
            marks_[i] |= kMarkCatalog;
    }
    return chooseScanTrailer();
}

KPPDFRef<KPPDFObjectDictionary>
KPPDFTrailer::scannedDictionary(size_t hit, KPPDFRef<KPPDFObjectStream>* stream) {
    const KPPDFData& data = document_->docData();
    uint64_t stop = hit + 1 < hits_.size() ? hits_[hit + 1].start : data.length();
    KPPDFData slice = data.subdata(0, static_cast<size_t>(stop));
    KPPDFRef<KPPDFObject> object =
        KPPDFDocument::parseObject(document_, hits_[hit].position, slice, false, false);
    if (stream)
        *stream = KPPDFCast<KPPDFObjectStream>(object);
    if (KPPDFObjectStream* asStream = object ? object->asStream() : nullptr)
        return asStream->dictionary();
    return KPPDFCast<KPPDFObjectDictionary>(object);
}

bool KPPDFTrailer::chooseScanTrailer() {
    const KPPDFData& data = document_->docData();
    // The newest trailer dictionary that names a catalog: after the last "trailer" keyword
    // that has one, or a cross-reference stream's dictionary further on.
    uint64_t trailerAt = KPPDFXRefSyntax::npos;
    uint64_t to = data.length();
    for (int tries = 0; tries < kMaxScanTrailers; tries++) {
        uint64_t keyword = KPPDFXRefSyntax::findLast(data, "trailer", to);
        if (keyword == KPPDFXRefSyntax::npos)
            break;
        to = keyword;
        uint64_t p = KPPDFXRefSyntax::skipBlanks(data, keyword + 7);
        if (!KPPDFXRefSyntax::hasKeyword(data, p, "<<"))
            continue;
        auto dictionary = KPPDFCast<KPPDFObjectDictionary>(
            KPPDFDocument::parseObject(document_, p, data, false, true));
        if (dictionary && dictionary->objectForKey("Root")) {
            trailerDictionary_ = std::move(dictionary);
            trailerAt = keyword;
            break;
        }
    }
    for (size_t i = hits_.size(); i-- > 0;) {
        if (trailerAt != KPPDFXRefSyntax::npos && hits_[i].start < trailerAt)
            break;
        if (!(marks_[i] & kMarkXRefStream))
            continue;
        KPPDFRef<KPPDFObjectStream> stream;
        KPPDFRef<KPPDFObjectDictionary> dictionary = scannedDictionary(i, &stream);
        if (stream && dictionary && dictionary->hasName("Type", "XRef") &&
            dictionary->objectForKey("Root")) {
            trailerDictionary_ = std::move(dictionary);
            break;
        }
    }
    if (trailerDictionary_)
        return true;
    // No trailer at all: the last catalog stands in for one.
    for (size_t i = hits_.size(); i-- > 0;) {
        if (!(marks_[i] & kMarkCatalog))
            continue;
        KPPDFRef<KPPDFObjectDictionary> dictionary = scannedDictionary(i, nullptr);
        if (!dictionary || !dictionary->hasName("Type", "Catalog"))
            continue;
        KPPDFLog("No trailer found; using the catalog in object %u", hits_[i].number);
        KPPDFObjectMap entries;
        entries.emplace("Root", KPPDFObjectReference::referenceWithObjectNumber(
                                    hits_[i].number, hits_[i].generation, document_, 0));
        entries.emplace("Size", KPPDFObjectInteger::integerWithLongLong(declaredObjectLimit()));
        trailerDictionary_ = KPPDFObjectDictionary::dictionaryWithDictionary(std::move(entries));
        return true;
    }
    KPPDFLog("No trailer dictionary found while scanning the file");
    return false;
}

bool KPPDFTrailer::setupScan() {
    for (const ScanHit& hit : hits_) {
        // Later definitions replace earlier ones, as an incremental update would.
        document_->enterPlaceholder(hit.number, hit.generation,
                                    static_cast<uint32_t>(hit.position));
        maxObjectNumber_ = std::max(maxObjectNumber_, hit.number);
    }
    std::vector<uint32_t> streamNumbers;
    for (size_t i = 0; i < hits_.size(); i++)
        if (marks_[i] & kMarkObjectStream)
            streamNumbers.push_back(hits_[i].number);
    std::sort(streamNumbers.begin(), streamNumbers.end());
    for (size_t i = 0; i < hits_.size(); i++)
        if (marks_[i] & kMarkObjectStream)
            enterScannedObjectStream(i, streamNumbers);
    // Let the memory go (assigning {} would keep it).
    hits_ = std::vector<ScanHit>();
    marks_ = std::vector<uint8_t>();
    return true;
}

void KPPDFTrailer::enterScannedObjectStream(size_t hit,
                                            const std::vector<uint32_t>& streamNumbers) {
    KPPDFRef<KPPDFObjectStream> stream;
    KPPDFRef<KPPDFObjectDictionary> dictionary = scannedDictionary(hit, &stream);
    if (!stream || !dictionary || !dictionary->hasName("Type", "ObjStm"))
        return;
    KPPDFRef<KPPDFObject> count = dictionary->resolvedObjectForKey("N");
    KPPDFRef<KPPDFObject> first = dictionary->resolvedObjectForKey("First");
    if (!count || !first || count->objectType() != KPPDFObjectTypeInteger ||
        first->objectType() != KPPDFObjectTypeInteger || count->longLongValue() < 0 ||
        first->longLongValue() < 0)
        return;
    // Numbered like the table's object, so that an encrypted stream decrypts itself.
    stream->setObjectNumber(hits_[hit].number);
    stream->setGeneration(hits_[hit].generation);
    std::vector<KPPDFCompressedObjects::Entry> entries;
    KPPDFCompressedObjects::readHeader(stream->decodedData(),
                                       static_cast<uint64_t>(count->longLongValue()),
                                       static_cast<uint64_t>(first->longLongValue()), &entries);
    for (size_t index = 0; index < entries.size(); index++) {
        uint32_t number = entries[index].number;
        if (number == 0 || std::binary_search(streamNumbers.begin(), streamNumbers.end(), number))
            continue;
        // An object that the file defines again after this stream keeps that definition.
        KPPDFRef<KPPDFObject> existing = document_->objectWithNumber(number);
        if (KPPDFObjectReference* placeholder = existing ? existing->asReference() : nullptr;
            placeholder && placeholder->dataRange().length == 0 &&
            placeholder->dataRange().location > hits_[hit].position)
            continue;
        if (existing && existing->objectType() != KPPDFObjectTypeReference)
            continue;
        enterCompressedObject(number, hits_[hit].number, static_cast<uint32_t>(index));
    }
}
