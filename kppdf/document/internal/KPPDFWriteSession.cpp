#include "kppdf/document/internal/KPPDFWriteSession.h"

#include <algorithm>
#include <cstdio>

#include "kppdf/document/KPPDFDocument.h"
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
    // Most of the file's objects are usually written: sized once instead of rehashed as it grows.
    numbers_.reserve(document.tableSize());
    objects_.reserve(document.tableSize());
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
    auto [entry, inserted] =
        numbers_.emplace(current->get(), static_cast<uint32_t>(objects_.size() + 1));
    if (inserted)
        objects_.push_back(*current);
    return entry->second;
}

KPPDFRef<KPPDFObject> KPPDFWriteSession::targetOf(KPPDFDocument* document, uint32_t number) {
    if (!document)
        return nullptr;
    return KPPDFObject::resolve(document->objectWithNumber(number, 0));
}

void KPPDFWriteSession::follow() {
    while (followed_ < objects_.size()) {
        KPPDFRef<KPPDFObject> object = objects_[followed_++];
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
                    if (KPPDFRef<KPPDFObject> target = targetOf(document, found.number))
                        add(target);
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
                    if (KPPDFRef<KPPDFObject> target = targetOf(document, found.number))
                        add(target);
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
    if (found == numbers_.end())
        return false;
    *number = found->second;
    *generation = 0;
    return true;
}

bool KPPDFWriteSession::numberForReference(KPPDFDocument* document, uint32_t number, uint32_t,
                                           uint32_t* newNumber, uint32_t* newGeneration) {
    KPPDFRef<KPPDFObject> target = targetOf(document, number);
    return numberForObject(target.get(), newNumber, newGeneration);
}

std::string KPPDFWriteSession::write(KPPDFObjectDictionary& trailer,
                                     const KPPDFObject* encryptDictionary) {
    // Sized from the objects themselves: the untouched ones are copied as their bytes stand,
    // and objects that came out of object streams make the file larger than the one read.
    // Growing a buffer of many megabytes by doubling would hold the old and the new at once.
    size_t estimate = 4096 + objects_.size() * (kCrossReferenceEntryLength + kObjectFrameLength);
    for (const auto& object : objects_)
        estimate += estimatedLength(*object);
    // References renumbered with more digits, strings written again: reserving too much costs
    // only address space (untouched pages are never resident), too little a copy of it all.
    estimate += estimate / 8;
    std::string out;
    out.reserve(estimate);
    out.append("%PDF-1.3");
    out.append(eolText_);
    std::vector<uint64_t> offsets(objects_.size() + 1, 0);
    Scope scope(this);
    KPPDFDocument* encrypting = encryptingDocument;
    char header[32];
    for (size_t i = 0; i < objects_.size(); i++) {
        uint32_t number = static_cast<uint32_t>(i + 1);
        KPPDFObject* object = objects_[i].get();
        offsets[number] = out.size();
        char* p = header;
        KPPDFObjectUnsignedToStringInPlace(number, &p);
        out.append(header, static_cast<size_t>(p - header));
        out.append(" 0 obj");
        out.append(eolText_);
        currentNumber = number;
        currentGeneration = 0;
        // The encryption dictionary's own strings are never encrypted.
        encryptingDocument = object == encryptDictionary ? nullptr : encrypting;
        size_t mark = out.size();
        if (!object->appendDirectObject(out)) {
            out.resize(mark);
            out.append("null");
        }
        out.append(eolText_);
        out.append("endobj");
        out.append(eolText_);
    }
    encryptingDocument = encrypting;
    currentNumber = 0;

    uint64_t xref = out.size();
    char line[64];
    std::snprintf(line, sizeof line, "xref%s0 %zu%s0000000000 65535 f \n", eolText_.c_str(),
                  objects_.size() + 1, eolText_.c_str());
    out.append(line);
    for (size_t number = 1; number <= objects_.size(); number++) {
        // Every entry is 20 bytes and ends in space and line feed, whatever the line end.
        std::snprintf(line, sizeof line, "%010llu 00000 n \n",
                      static_cast<unsigned long long>(offsets[number]));
        out.append(line, 20);
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
    return out;
}
