#include "kppdf/objects/KPPDFObjectReference.h"

#include <cinttypes>
#include <cstdio>

#include "kppdf/document/KPPDFDocument.h"
#include "kppdf/objects/KPPDFCharLookup.h"
#include "kppdf/objects/KPPDFObjectNumbers.h"
#include "kppdf/objects/internal/KPPDFGraphWalk.h"
#include "kppdf/objects/internal/KPPDFWriteContext.h"
#include "kppdf/platform/KPPDFAttributedString.h"
#include "kppdf/platform/KPPDFColor.h"

namespace {
// A reference made for a table entry carries its target's position in its range, with length 0;
// one read from text has the range of its own "N G R" (length > 0), which says nothing about
// where the target is.
uint32_t targetPosition(const KPPDFRange& range) { return range.length == 0 ? range.location : 0; }
} // namespace

KPPDFObjectReference::KPPDFObjectReference() {
    objectType_ = KPPDFObjectTypeReference;
    direct_ = false;
}

KPPDFRef<KPPDFObjectReference> KPPDFObjectReference::referenceWithPtr(const char* ptr,
                                                                      const char* limit,
                                                                      KPPDFDocument* document) {
    const char* p = ptr;
    const char* end = p;
    unsigned long long number = KPPDFParseUnsignedDecimal(p, limit, &end);
    if (end == p)
        return nullptr;
    p = end;
    while (p < limit && KPPDFIsWhitespace(static_cast<uint8_t>(*p)))
        p++;
    unsigned long long generation = KPPDFParseUnsignedDecimal(p, limit, &end);
    if (end == p)
        return nullptr;
    p = end;
    while (p < limit && KPPDFIsWhitespace(static_cast<uint8_t>(*p)))
        p++;
    if (p >= limit || *p != 'R' || number > UINT32_MAX || generation > UINT32_MAX)
        return nullptr;
    auto reference = std::make_shared<KPPDFObjectReference>();
    reference->objectNumber_ = static_cast<uint32_t>(number);
    reference->generation_ = static_cast<uint32_t>(generation);
    reference->document_ = document;
    reference->rawLength_ = static_cast<uint32_t>(p + 1 - ptr);
    return reference;
}

KPPDFRef<KPPDFObjectReference> KPPDFObjectReference::referenceWithObjectNumber(
    uint32_t number, uint32_t generation, KPPDFDocument* document, uint32_t position) {
    auto reference = std::make_shared<KPPDFObjectReference>();
    reference->objectNumber_ = number;
    reference->generation_ = generation;
    reference->document_ = document;
    reference->dataRange_ = {position, 0};
    return reference;
}

KPPDFRef<KPPDFObjectReference> KPPDFObjectReference::referenceWithObject(
    const KPPDFRef<KPPDFObject>& target) {
    auto reference = std::make_shared<KPPDFObjectReference>();
    reference->value_ = target;
    reference->document_ = target ? target->document() : nullptr;
    return reference;
}

KPPDFRef<KPPDFObject> KPPDFObjectReference::resolvedObject() {
    if (value_)
        return value_;
    if (!document_ || resolving_)
        return nullptr;
    resolving_ = true;
    KPPDFRef<KPPDFObject> target;
    // The table's entry for our number; when that is this very placeholder it gives way to the
    // parsed object below, and this pointer keeps us alive until we return.
    KPPDFRef<KPPDFObject> entry = document_->objectWithNumber(objectNumber_, generation_);
    if (targetPosition(dataRange_) == 0) {
        if (entry.get() == this) {
            // The table's own placeholder, without a file position: the object is kept in an
            // object stream, and the document reads it from there (and takes our place).
            target = document_->compressedObject(objectNumber_);
        } else if (entry) {
            if (KPPDFObjectReference* placeholder = entry->asReference();
                placeholder && !placeholder->value_) {
                // A table placeholder: it parses the object at its position, and is guarded
                // against an object that needs itself to be read (a stream whose Length is
                // its own reference).
                target = placeholder->resolvedObject();
                if (target && targetPosition(placeholder->dataRange_))
                    document_->setObject(target, objectNumber_, placeholder->generation_);
            } else if (KPPDFObjectReference* other = entry->asReference()) {
                target = other->value_;
            } else {
                target = KPPDFObject::resolve(entry);
            }
        }
    }
    if (!target && targetPosition(dataRange_) != 0)
        target = document_->objectAtOffset(targetPosition(dataRange_));
    resolving_ = false;
    if (!target)
        return nullptr;
    // A target that has its number already (from the table) keeps it: a reference with another
    // generation must not change how every other reference to the object is written.
    if (target->objectNumber() == 0) {
        target->setObjectNumber(objectNumber_);
        target->setGeneration(generation_);
    }
    target->setDocument(document_);
    target->setDirect(false);
    value_ = target;
    // The document disconnects what its table holds when it goes away, so the object itself
    // must be there, not only cached in a placeholder.
    if (entry.get() == this && targetPosition(dataRange_) != 0)
        document_->setObject(target, objectNumber_, generation_);
    return value_;
}

KPPDFRef<KPPDFObject> KPPDFObjectReference::resolvedObjectForKey(std::string_view key) {
    KPPDFRef<KPPDFObject> target = resolvedObject();
    return target ? target->resolvedObjectForKey(key) : nullptr;
}

bool KPPDFObjectReference::isEqual(const KPPDFObject& other) const {
    if (other.objectType() != KPPDFObjectTypeReference)
        return false;
    auto& mine = const_cast<KPPDFObjectReference&>(*this);
    auto& theirs = const_cast<KPPDFObjectReference&>(static_cast<const KPPDFObjectReference&>(other));
    KPPDFRef<KPPDFObject> a = mine.resolvedObject();
    return a && a == theirs.resolvedObject();
}

bool KPPDFObjectReference::appendDirectObject(std::string& out) {
    uint32_t number = value_ ? value_->objectNumber() : objectNumber_;
    uint32_t generation = value_ ? value_->generation() : generation_;
    if (KPPDFWriteContext* context = KPPDFWriteContext::current()) {
        // In a new file the target has a new number; a target that is not written (or not
        // there at all) makes the reference a null, as ISO 32000-1, 7.3.10 reads it anyway.
        if (!value_ && context->numberWithoutReading(document_, objectNumber_, &number, &generation))
            return appendNumbers(out, number, generation);
        KPPDFRef<KPPDFObject> target = value_ ? value_ : resolvedObject();
        if (!target || !context->numberForObject(target.get(), &number, &generation)) {
            out.append("null");
            return true;
        }
    }
    return appendNumbers(out, number, generation);
}

bool KPPDFObjectReference::appendNumbers(std::string& out, uint32_t number, uint32_t generation) {
    char buffer[32];
    char* p = buffer;
    KPPDFObjectUnsignedToStringInPlace(number, &p);
    *p++ = ' ';
    KPPDFObjectUnsignedToStringInPlace(generation, &p);
    *p++ = ' ';
    *p++ = 'R';
    out.append(buffer, static_cast<size_t>(p - buffer));
    return true;
}

KPPDFAttributedString KPPDFObjectReference::attributedObject() {
    KPPDFRef<KPPDFObject> target = value_ ? value_ : resolvedObject();
    long number = target ? static_cast<long>(target->objectNumber()) : static_cast<long>(objectNumber_);
    long generation = target ? static_cast<long>(target->generation()) : static_cast<long>(generation_);
    char text[64], link[64];
    std::snprintf(text, sizeof text, "%ld %ld R", number, generation);
    std::snprintf(link, sizeof link, "pdfobject:///%d/%d", static_cast<int>(number),
                  static_cast<int>(generation));
    KPPDFTextAttributes attributes;
    attributes.foregroundColor = KPPDFColor::blueColor();
    attributes.link = link;
    return KPPDFAttributedString(text, attributes);
}

KPPDFRef<KPPDFObject> KPPDFObjectReference::copy() const {
    auto copy = std::make_shared<KPPDFObjectReference>();
    copy->objectNumber_ = objectNumber_;
    copy->generation_ = generation_;
    copy->document_ = document_;
    copy->dataRange_ = dataRange_;
    copy->value_ = value_;
    return copy;
}

KPPDFObjectList KPPDFObjectReference::subobjects(KPPDFVisitedSet& visited) {
    return KPPDFWalkSubobjects(*this, visited);
}

void KPPDFObjectReference::markSubobjects(KPPDFMarkBytes& marks) {
    KPPDFWalkMarkSubobjects(*this, marks);
}

void KPPDFObjectReference::fixReferences(const KPPDFReferenceFixMap& map) {
    const KPPDFObject* target = value_ ? value_.get() : this;
    auto byDocument = map.find(target->document());
    if (byDocument == map.end())
        return;
    uint32_t generation = target->generation();
    if (generation >= byDocument->second.size())
        return;
    const auto& byNumber = byDocument->second[generation];
    auto replacement = byNumber.find(target->objectNumber());
    if (replacement != byNumber.end())
        value_ = replacement->second;
}

std::string KPPDFObjectReference::description() const {
    char buffer[160];
    unsigned self = static_cast<unsigned>(reinterpret_cast<uintptr_t>(this));
    if (!value_) {
        std::snprintf(buffer, sizeof buffer, "<KPPDFObjectReference, 0x%08X>: %ld %ld P", self,
                      static_cast<long>(objectNumber_), static_cast<long>(generation_));
    } else {
        KPPDFRef<KPPDFObject> entry =
            document_ ? document_->objectWithNumber(value_->objectNumber(), value_->generation())
                      : nullptr;
        std::snprintf(buffer, sizeof buffer,
                      "<KPPDFObjectReference, 0x%08X>: D:0x%08X 0x%08X %ld %ld R 0x%08X", self,
                      static_cast<unsigned>(reinterpret_cast<uintptr_t>(document_)),
                      static_cast<unsigned>(reinterpret_cast<uintptr_t>(value_.get())),
                      static_cast<long>(value_->objectNumber()),
                      static_cast<long>(value_->generation()),
                      static_cast<unsigned>(reinterpret_cast<uintptr_t>(entry.get())));
    }
    return buffer;
}

void KPPDFObjectReference::disconnect() {
    KPPDFObject::disconnect();
    value_.reset();
}
