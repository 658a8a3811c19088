#include "kppdf/objects/KPPDFObject.h"

#include <cinttypes>
#include <cstdio>

#include "kppdf/document/KPPDFDocument.h"
#include "kppdf/objects/KPPDFObjectArray.h"
#include "kppdf/objects/KPPDFObjectBoolean.h"
#include "kppdf/objects/KPPDFObjectDictionary.h"
#include "kppdf/objects/KPPDFObjectInteger.h"
#include "kppdf/objects/KPPDFObjectName.h"
#include "kppdf/objects/KPPDFObjectNull.h"
#include "kppdf/objects/KPPDFObjectNumbers.h"
#include "kppdf/objects/KPPDFObjectReal.h"
#include "kppdf/objects/KPPDFObjectReference.h"
#include "kppdf/objects/KPPDFObjectStream.h"
#include "kppdf/objects/KPPDFObjectString.h"
#include "kppdf/platform/KPPDFAttributedString.h"
#include "kppdf/platform/KPPDFLog.h"
#include "kppdf/platform/KPPDFTextEncoding.h"

namespace {
// Containers nested deeper than this are not followed when looking for the outermost one.
constexpr int kMaxContainerChain = 1024;
// Longest chain of references to references that resolve() follows.
constexpr int kMaxReferenceChain = 32;
} // namespace

KPPDFObject::KPPDFObject() = default;
KPPDFObject::~KPPDFObject() = default;

const char* KPPDFObject::objectTypeName(int32_t type) {
    static const char* const names[] = {"unknown", "integer", "real",  "string", "name",     "array",
                                        "dictionary", "boolean", "null", "stream", "reference"};
    return type >= 1 && type <= 10 ? names[type] : names[0];
}

KPPDFObject* KPPDFObject::container() const {
    KPPDFObject* outer = container_;
    for (int i = 0; outer && outer->container_ && i < kMaxContainerChain; i++)
        outer = outer->container_;
    return outer;
}

bool KPPDFObject::appendDirectObject(std::string&) {
    KPPDFLog("Failed to get direct object of untyped PDF object");
    return false;
}

std::string KPPDFObject::directObject() {
    std::string out;
    if (!appendDirectObject(out))
        out.clear();
    return out;
}

bool KPPDFObject::appendIndirectObject(std::string& out) {
    const char* eol = document_ ? document_->EOL() : "\n";
    size_t eolLength = document_ ? static_cast<size_t>(document_->EOLLength()) : 1;
    char header[48];
    char* p = header;
    KPPDFObjectUnsignedToStringInPlace(objectNumber_, &p);
    *p++ = ' ';
    KPPDFObjectUnsignedToStringInPlace(generation_, &p);
    out.reserve(out.size() + static_cast<size_t>(p - header) + rawLength() + 32);
    out.append(header, static_cast<size_t>(p - header));
    out.append(" obj");
    out.append(eol, eolLength);
    size_t mark = out.size();
    if (!appendDirectObject(out)) {
        out.resize(mark);
        return false;
    }
    out.append(eol, eolLength);
    out.append("endobj");
    out.append(eol, eolLength);
    return true;
}

std::string KPPDFObject::indirectObject() {
    std::string out;
    if (!appendIndirectObject(out))
        out.clear();
    return out;
}

KPPDFAttributedString KPPDFObject::attributedObject() {
    std::string text = KPPDFTextEncoding::latin1ToUTF8(directObject());
    KPPDFAttributedString result(std::move(text));
    result.replaceOccurrences("\r", "\\r");
    return result;
}

KPPDFRef<KPPDFObject> KPPDFObject::resolve(const KPPDFRef<KPPDFObject>& object) {
    KPPDFRef<KPPDFObject> current = object;
    // A reference may lead to another reference; follow a short chain, never a cycle.
    for (int i = 0; current && i < kMaxReferenceChain; i++) {
        KPPDFRef<KPPDFObject> target = current->resolveTarget();
        // No target means "this object" for anything but a reference, which then leads nowhere.
        if (!target)
            return current->objectType() == KPPDFObjectTypeReference ? nullptr : current;
        if (target == current)
            return current;
        current = std::move(target);
        if (current->objectType() != KPPDFObjectTypeReference &&
            current->objectType() != KPPDFObjectTypeUnknown)
            return current;
    }
    return nullptr;
}

KPPDFRef<KPPDFObject> KPPDFObject::resolveTarget() {
    if (objectType_ != KPPDFObjectTypeUnknown)
        return nullptr;
    // A placeholder: parse its bytes and let the parsed object take its place in the table.
    if (!document_)
        return std::make_shared<KPPDFObjectNull>();
    KPPDFRef<KPPDFObject> parsed =
        document_->objectAtOffset(dataRange_.location, document_->docData(), false, container_);
    if (!parsed)
        return std::make_shared<KPPDFObjectNull>();
    if (objectNumber_)
        document_->setObject(parsed, objectNumber_, generation_);
    return parsed;
}

KPPDFRef<KPPDFObject> KPPDFObject::resolvedObjectForKey(std::string_view) { return nullptr; }

bool KPPDFObject::isEqual(const KPPDFObject& other) const {
    if (this == &other)
        return true;
    return objectNumber_ != 0 && objectNumber_ == other.objectNumber_ &&
           document_ == other.document_ && generation_ == other.generation_;
}

uint32_t KPPDFObject::hash() const {
    if (objectNumber_)
        return objectNumber_ % 3313;
    return static_cast<uint32_t>(reinterpret_cast<uintptr_t>(this) % 3313);
}

int KPPDFObject::compare(const KPPDFObject& other) const {
    if (objectNumber_ > other.objectNumber_)
        return 1;
    if (objectNumber_ < other.objectNumber_)
        return -1;
    return 0;
}

KPPDFRef<KPPDFObject> KPPDFObject::copy() const {
    auto copy = std::make_shared<KPPDFObject>();
    copy->objectType_ = objectType_;
    copy->document_ = document_;
    copy->dataRange_ = dataRange_;
    return copy;
}

KPPDFObjectList KPPDFObject::subobjects(KPPDFVisitedSet&) { return {}; }

void KPPDFObject::markNumber(KPPDFMarkBytes& marks, uint32_t number) {
    if (number > KPPDFDocument::kMaxObjectNumber)
        return;
    if (number >= marks.size())
        marks.resize(std::max<size_t>(number + 1, marks.size() * 2), 0);
    marks[number] = 1;
}

void KPPDFObject::markSubobjects(KPPDFMarkBytes& marks) {
    if (objectNumber_)
        markNumber(marks, objectNumber_);
}

void KPPDFObject::fixReferences(const KPPDFReferenceFixMap&) {}

std::string KPPDFObject::description() const {
    char buffer[64];
    std::snprintf(buffer, sizeof buffer, "<KPPDFObject, %s>", objectTypeName());
    return buffer;
}

void KPPDFObject::disconnect() {
    document_ = nullptr;
    container_ = nullptr;
}

#define KPPDF_CHECKED_CAST(Method, Class, Code)                                                    \
    Class* KPPDFObject::Method() {                                                                 \
        return objectType_ == (Code) ? static_cast<Class*>(this) : nullptr;                        \
    }
KPPDF_CHECKED_CAST(asInteger, KPPDFObjectInteger, KPPDFObjectTypeInteger)
KPPDF_CHECKED_CAST(asReal, KPPDFObjectReal, KPPDFObjectTypeReal)
KPPDF_CHECKED_CAST(asString, KPPDFObjectString, KPPDFObjectTypeString)
KPPDF_CHECKED_CAST(asName, KPPDFObjectName, KPPDFObjectTypeName)
KPPDF_CHECKED_CAST(asArray, KPPDFObjectArray, KPPDFObjectTypeArray)
KPPDF_CHECKED_CAST(asDictionary, KPPDFObjectDictionary, KPPDFObjectTypeDictionary)
KPPDF_CHECKED_CAST(asBoolean, KPPDFObjectBoolean, KPPDFObjectTypeBoolean)
KPPDF_CHECKED_CAST(asNull, KPPDFObjectNull, KPPDFObjectTypeNull)
KPPDF_CHECKED_CAST(asStream, KPPDFObjectStream, KPPDFObjectTypeStream)
KPPDF_CHECKED_CAST(asReference, KPPDFObjectReference, KPPDFObjectTypeReference)
#undef KPPDF_CHECKED_CAST
