#include "kppdf/document/internal/KPPDFWriteSession.h"

#include <algorithm>
#include <cstdio>

#include "kppdf/document/KPPDFDocument.h"
#include "kppdf/document/internal/KPPDFCompressedObjects.h"
#include "kppdf/objects/KPPDFObjectArray.h"
#include "kppdf/objects/KPPDFObjectDictionary.h"
#include "kppdf/objects/KPPDFObjectInteger.h"
#include "kppdf/objects/KPPDFObjectNumbers.h"
#include "kppdf/objects/KPPDFObjectReference.h"
#include "kppdf/objects/KPPDFObjectStream.h"
#include "kppdf/objects/internal/KPPDFReferenceScanner.h"

namespace {
// Each cross-reference entry is "nnnnnnnnnn ggggg n" and a two-byte line end.
constexpr size_t kCrossReferenceEntryLength = 20;
// "N 0 obj", "endobj" and their line ends around an object's text.
constexpr size_t kObjectFrameLength = 24;
// How much a sink is handed at a time.
constexpr size_t kSinkChunk = 1 << 20;
// Decoded object streams let go before their memory is handed back.
constexpr size_t kReleasedToReturn = 1 << 20;

// Objects added by number are copied from where they are. An object stream whose last such
// object is written is let go (decoded again if asked for later), so that the decoded streams
// shrink as the new file grows.
class StreamRelease {
public:
    StreamRelease(KPPDFCompressedObjects* compressed,
                  const std::vector<KPPDFRef<KPPDFObject>>& objects,
                  const std::vector<uint32_t>& oldNumbers)
        : compressed_(compressed) {
        KPPDFCompressedObjects::Location location;
        for (size_t i = 0; compressed_ && i < objects.size(); i++)
            if (!objects[i] && compressed_->location(oldNumbers[i], &location))
                unwritten_[location.stream]++;
    }
    // The object numbered number was copied.
    void written(uint32_t number) {
        KPPDFCompressedObjects::Location location;
        if (!compressed_ || !compressed_->location(number, &location))
            return;
        auto left = unwritten_.find(location.stream);
        if (left == unwritten_.end() || --left->second != 0)
            return;
        released_ += compressed_->release(location.stream);
        if (released_ >= kReleasedToReturn) {
            // Decoded streams are small blocks amid others: the allocator keeps them unless
            // asked to hand the free pages back, and the new file cannot use them.
            KPPDFReturnFreeMemory();
            released_ = 0;
        }
    }

private:
    KPPDFCompressedObjects* compressed_;
    std::unordered_map<uint32_t, uint32_t> unwritten_;
    size_t released_ = 0;
};

// About how many bytes an object's text takes: what it took in its source (exact for the
// untouched ones, which are copied as they stand), a guess for objects made in memory.
size_t estimatedLength(KPPDFObject& object) {
    constexpr size_t kMadeObjectGuess = 64;
    if (object.rawLength())
        return object.rawLength(); // a stream read from a file: its dictionary and data
    size_t length = kMadeObjectGuess;
    if (KPPDFObjectStream* stream = object.asStream())
        length += stream->range().length +
                  (stream->dictionary() ? stream->dictionary()->rawLength() : 0);
    return length;
}
} // namespace

KPPDFWriteSession::KPPDFWriteSession(KPPDFDocument& document)
    : document_(document), eolText_(document.EOL(), static_cast<size_t>(document.EOLLength())) {
    eol = eolText_.c_str();
    // Most of the file's objects are usually written: sized once instead of grown by doubling.
    // (Only objects already read are looked up by address; the rest go by their number.)
    objects_.reserve(document.tableSize());
    oldNumbers_.reserve(document.tableSize());
    tableNumbers_.assign(document.tableSize(), 0);
}

KPPDFWriteSession::~KPPDFWriteSession() {
    for (auto& reference : madeReferences_)
        reference->setValue(nullptr);
}

KPPDFRef<KPPDFObjectReference> KPPDFWriteSession::referenceTo(const KPPDFRef<KPPDFObject>& object) {
    KPPDFRef<KPPDFObjectReference> reference = KPPDFObjectReference::referenceWithObject(object);
    madeReferences_.push_back(reference);
    return reference;
}

void KPPDFWriteSession::substitute(const KPPDFObject* old,
                                   const KPPDFRef<KPPDFObject>& replacement) {
    if (old && replacement && old != replacement.get()) {
        substitutes_[old] = replacement;
        deferred_.erase(old);
    }
}

void KPPDFWriteSession::defer(const KPPDFObject* old) {
    if (old && !substitutes_.count(old))
        deferred_.insert(old);
}

uint32_t KPPDFWriteSession::add(const KPPDFRef<KPPDFObject>& object) {
    if (!object || (!deferred_.empty() && deferred_.count(object.get())))
        return 0;
    const KPPDFRef<KPPDFObject>* current = &object;
    auto substituted = substitutes_.find(object.get());
    if (substituted != substitutes_.end())
        current = &substituted->second;
    if (uint32_t number = tableNumberOf(current->get()))
        return number;
    auto [entry, inserted] =
        numbers_.emplace(current->get(), static_cast<uint32_t>(objects_.size() + 1));
    if (inserted) {
        objects_.push_back(*current);
        oldNumbers_.push_back(0);
    }
    return entry->second;
}

uint32_t KPPDFWriteSession::tableNumberOf(const KPPDFObject* object) const {
    // An object the document read after it was added by its number (by a later page): the
    // same entry, so the same new number.
    if (!object || object->document() != &document_)
        return 0;
    uint32_t number = tableNumber(object->objectNumber());
    return number && document_.readEntry(object->objectNumber()) == object ? number : 0;
}

void KPPDFWriteSession::addNumber(KPPDFDocument* document, uint32_t number) {
    if (document == &document_) {
        if (tableNumber(number))
            return;
        if (document_.isUnread(number) && number < tableNumbers_.size()) {
            objects_.push_back(nullptr);
            oldNumbers_.push_back(number);
            tableNumbers_[number] = static_cast<uint32_t>(objects_.size());
            return;
        }
    }
    if (KPPDFRef<KPPDFObject> target = targetOf(document, number))
        add(target);
}

KPPDFRef<KPPDFObject> KPPDFWriteSession::targetOf(KPPDFDocument* document, uint32_t number) {
    if (!document)
        return nullptr;
    return KPPDFObject::resolve(document->objectWithNumber(number, 0));
}

void KPPDFWriteSession::follow() {
    while (followed_ < objects_.size()) {
        size_t index = followed_++;
        if (uint32_t number = oldNumbers_[index]) {
            document_.useObject(number, [this](KPPDFObject* object) {
                if (object) {
                    size_t length = estimatedLength(*object);
                    unreadLength_ += length;
                    document_.noteFileBytesRead(length);
                    followObject(object);
                }
            });
            continue;
        }
        KPPDFRef<KPPDFObject> object = objects_[index];
        followObject(object.get());
    }
}

void KPPDFWriteSession::followObject(KPPDFObject* root) {
    // Iterative: direct nesting can be deep, and each step is cheap.
    std::vector<KPPDFObject*> pending{root};
    while (!pending.empty()) {
        KPPDFObject* object = pending.back();
        pending.pop_back();
        if (!object)
            continue;
        switch (object->objectType()) {
        case KPPDFObjectTypeReference: {
            KPPDFObjectReference* reference = object->asReference();
            if (!reference->value() && reference->document() == &document_ &&
                (tableNumber(reference->objectNumber()) ||
                 document_.isUnread(reference->objectNumber()))) {
                addNumber(&document_, reference->objectNumber());
                break;
            }
            KPPDFRef<KPPDFObject> target = reference->value() ? reference->value()
                                                              : reference->resolvedObject();
            target = KPPDFObject::resolve(target);
            if (target)
                add(target);
            break;
        }
        case KPPDFObjectTypeArray: {
            KPPDFObjectArray* array = object->asArray();
            if (!array->untouchedBytes().empty()) {
                // Untouched: its references are found in its bytes, and it stays unparsed.
                KPPDFDocument* document = array->document();
                KPPDFScanReferences(array->untouchedBytes(), [&](const KPPDFScannedReference& found) {
                    addNumber(document, found.number);
                });
                break;
            }
            for (auto& element : array->value())
                pending.push_back(element.get());
            break;
        }
        case KPPDFObjectTypeDictionary: {
            KPPDFObjectDictionary* dictionary = object->asDictionary();
            if (!dictionary->untouchedBytes().empty()) {
                KPPDFDocument* document = dictionary->document();
                KPPDFScanReferences(dictionary->untouchedBytes(), [&](const KPPDFScannedReference& found) {
                    addNumber(document, found.number);
                });
                break;
            }
            for (auto& [key, entry] : dictionary->value())
                pending.push_back(entry.get());
            break;
        }
        case KPPDFObjectTypeStream:
            pending.push_back(object->asStream()->dictionary().get());
            break;
        default:
            break;
        }
    }
}

bool KPPDFWriteSession::numberForObject(const KPPDFObject* target, uint32_t* number,
                                        uint32_t* generation) {
    if (!target)
        return false;
    auto substituted = substitutes_.find(target);
    if (substituted != substitutes_.end())
        target = substituted->second.get();
    auto found = numbers_.find(target);
    uint32_t written = found == numbers_.end() ? tableNumberOf(target) : found->second;
    if (!written)
        return false;
    *number = written;
    *generation = 0;
    return true;
}

bool KPPDFWriteSession::numberWithoutReading(KPPDFDocument* document, uint32_t number,
                                             uint32_t* newNumber, uint32_t* newGeneration) {
    if (document != &document_ || !tableNumber(number))
        return false;
    *newNumber = tableNumber(number);
    *newGeneration = 0;
    return true;
}

bool KPPDFWriteSession::numberForReference(KPPDFDocument* document, uint32_t number,
                                           uint32_t, uint32_t* newNumber,
                                           uint32_t* newGeneration) {
    if (numberWithoutReading(document, number, newNumber, newGeneration))
        return true;
    KPPDFRef<KPPDFObject> target = targetOf(document, number);
    return numberForObject(target.get(), newNumber, newGeneration);
}

bool KPPDFWriteSession::write(KPPDFObjectDictionary& trailer, const KPPDFObject* encryptDictionary,
                              std::string& out, const Sink* sink) {
    // Bytes already handed to the sink: offsets in the file are counted from its start.
    uint64_t flushed = 0;
    bool sinkTookAll = true;
    auto flush = [&](size_t atLeast) {
        if (!sink || out.size() < atLeast || !sinkTookAll)
            return;
        sinkTookAll = (*sink)(out);
        flushed += out.size();
        out.clear();
    };
    if (sink) {
        out.reserve(kSinkChunk + kSinkChunk / 4);
    } else {
        // Sized from the objects themselves: the untouched ones are copied as their bytes
        // stand, and objects that came out of object streams make the file larger than the
        // one read. Growing a buffer of many megabytes by doubling would hold the old and the
        // new at once.
        size_t estimate =
            4096 + objects_.size() * (kCrossReferenceEntryLength + kObjectFrameLength);
        for (const auto& object : objects_)
            if (object)
                estimate += estimatedLength(*object);
        estimate += unreadLength_;
        // References renumbered with more digits and strings written again make the file a
        // little longer; should it outgrow the room, it grows by an eighth, not by doubling.
        out.reserve(out.size() + estimate + estimate / 32);
    }
    auto makeRoom = [&](KPPDFObject& object) {
        size_t need = estimatedLength(object) + kObjectFrameLength;
        if (!sink && out.capacity() - out.size() < need)
            out.reserve(out.size() + std::max(need, out.capacity() / 8));
    };
    out.append("%PDF-1.3");
    out.append(eolText_);
    std::vector<uint64_t> offsets(objects_.size() + 1, 0);
    StreamRelease streams(document_.compressedObjects_.get(), objects_, oldNumbers_);
    Scope scope(this);
    KPPDFDocument* encrypting = encryptingDocument;
    char header[32];
    for (size_t i = 0; i < objects_.size(); i++) {
        uint32_t number = static_cast<uint32_t>(i + 1);
        offsets[number] = flushed + out.size();
        char* p = header;
        KPPDFObjectUnsignedToStringInPlace(number, &p);
        out.append(header, static_cast<size_t>(p - header));
        out.append(" 0 obj");
        out.append(eolText_);
        currentNumber = number;
        currentGeneration = 0;
        size_t mark = out.size();
        auto append = [&](KPPDFObject* object) {
            // The encryption dictionary's own strings are never encrypted.
            encryptingDocument = object == encryptDictionary ? nullptr : encrypting;
            if (object)
                makeRoom(*object);
            if (!object || !object->appendDirectObject(out)) {
                out.resize(mark);
                out.append("null");
            }
        };
        if (objects_[i]) {
            append(objects_[i].get());
        } else {
            document_.useObject(oldNumbers_[i], append);
            streams.written(oldNumbers_[i]);
        }
        out.append(eolText_);
        out.append("endobj");
        out.append(eolText_);
        // The file is copied in no particular order, each of its pages needed for a moment.
        document_.noteFileBytesRead(flushed + out.size() - offsets[number]);
        flush(kSinkChunk);
    }
    encryptingDocument = encrypting;
    currentNumber = 0;

    uint64_t xref = flushed + out.size();
    char line[64];
    std::snprintf(line, sizeof line, "xref%s0 %zu%s0000000000 65535 f \n", eolText_.c_str(),
                  objects_.size() + 1, eolText_.c_str());
    out.append(line);
    for (size_t number = 1; number <= objects_.size(); number++) {
        // Every entry is 20 bytes and ends in space and line feed, whatever the line end.
        std::snprintf(line, sizeof line, "%010llu 00000 n \n",
                      static_cast<unsigned long long>(offsets[number]));
        out.append(line, 20);
        flush(kSinkChunk);
    }
    out.append("trailer");
    out.append(eolText_);
    trailer.setObject(KPPDFObjectInteger::integerWithLongLong(
                          static_cast<long long>(objects_.size() + 1)),
                      "Size");
    {
        // The trailer is no indirect object: nothing in it is encrypted.
        KPPDFDocument* saved = encryptingDocument;
        encryptingDocument = nullptr;
        trailer.appendDirectObject(out);
        encryptingDocument = saved;
    }
    out.append(eolText_);
    out.append("startxref");
    out.append(eolText_);
    char* p = line;
    KPPDFObjectUnsigned64ToStringInPlace(xref, &p);
    out.append(line, static_cast<size_t>(p - line));
    out.append(eolText_);
    out.append("%%EOF");
    out.append(eolText_);
    flush(0);
    return sinkTookAll;
}
