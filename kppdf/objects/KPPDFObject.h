#pragma once
#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "kppdf/platform/KPPDFData.h"
#include "kppdf/platform/KPPDFGeometry.h"
#include "kppdf/platform/KPPDFRef.h"

class KPPDFDocument;
class KPPDFAttributedString;
class KPPDFObject;
class KPPDFObjectInteger;
class KPPDFObjectReal;
class KPPDFObjectString;
class KPPDFObjectName;
class KPPDFObjectArray;
class KPPDFObjectDictionary;
class KPPDFObjectBoolean;
class KPPDFObjectNull;
class KPPDFObjectStream;
class KPPDFObjectReference;

// Type codes of PDF objects (objectType()).
enum : int32_t {
    KPPDFObjectTypeUnknown = 0, // an untyped placeholder whose bytes have not been parsed yet
    KPPDFObjectTypeInteger = 1,
    KPPDFObjectTypeReal = 2,
    KPPDFObjectTypeString = 3,
    KPPDFObjectTypeName = 4,
    KPPDFObjectTypeArray = 5,
    KPPDFObjectTypeDictionary = 6,
    KPPDFObjectTypeBoolean = 7,
    KPPDFObjectTypeNull = 8,
    KPPDFObjectTypeStream = 9,
    KPPDFObjectTypeReference = 10,
};

using KPPDFObjectList = std::vector<KPPDFRef<KPPDFObject>>;
// Dictionary contents: key text (the name without its slash, escapes kept) to value.
using KPPDFObjectMap = std::map<std::string, KPPDFRef<KPPDFObject>, std::less<>>;
using KPPDFVisitedSet = std::unordered_set<const KPPDFObject*>;
// Mark bytes indexed by object number; markSubobjects grows the vector as needed.
using KPPDFMarkBytes = std::vector<uint8_t>;
// document -> (index: generation) -> object number -> replacement target.
using KPPDFReferenceFixMap =
    std::unordered_map<const KPPDFDocument*,
                       std::vector<std::unordered_map<uint32_t, KPPDFRef<KPPDFObject>>>>;

// Base of every PDF value. A plain KPPDFObject (type code 0) is a placeholder for bytes at
// dataRange() that are parsed on first resolution.
class KPPDFObject {
public:
    static bool matchesType(int32_t) { return true; }
    KPPDFObject();
    virtual ~KPPDFObject();
    KPPDFObject(const KPPDFObject&) = delete;
    KPPDFObject& operator=(const KPPDFObject&) = delete;

    int32_t objectType() const { return objectType_; }
    void setObjectType(int32_t type) { objectType_ = type; }
    // "integer", "real", ... or "unknown" for codes outside 1..10.
    static const char* objectTypeName(int32_t type);
    const char* objectTypeName() const { return objectTypeName(objectType_); }

    KPPDFDocument* document() const { return document_; }
    virtual void setDocument(KPPDFDocument* document) { document_ = document; }
    KPPDFRange dataRange() const { return dataRange_; }
    void setDataRange(KPPDFRange range) { dataRange_ = range; }
    uint32_t objectNumber() const { return objectNumber_; }
    void setObjectNumber(uint32_t number) { objectNumber_ = number; }
    uint32_t generation() const { return generation_; }
    void setGeneration(uint32_t generation) { generation_ = generation; }
    uint32_t refCount() const { return refCount_; }
    // Bytes the object's text occupied in its source (how far a parser advances past it).
    virtual uint32_t rawLength() const { return rawLength_; }
    void setRawLength(uint32_t length) { rawLength_ = length; }
    // YES when written in place; NO when reached through an indirect reference.
    bool isDirect() const { return direct_; }
    void setDirect(bool direct) { direct_ = direct; }

    // The outermost ancestor (following container links), or null without a container.
    KPPDFObject* container() const;
    // The array or dictionary that directly holds this object; not owned.
    KPPDFObject* directContainer() const { return container_; }
    virtual void setContainer(KPPDFObject* container) { container_ = container; }

    // The object's own PDF text, appended to out; false (and a log line) when it has none.
    virtual bool appendDirectObject(std::string& out);
    // The object's PDF text; empty when it has none.
    std::string directObject();
    // "N G obj" EOL text EOL "endobj" EOL, with the document's line end (LF without one).
    bool appendIndirectObject(std::string& out);
    std::string indirectObject();
    // A display form for object browsers: the PDF text as Latin-1 with CR shown as "\r".
    virtual KPPDFAttributedString attributedObject();

    // The target of a reference or the parsed form of a placeholder; any other object is
    // returned as it is. Null in, null out; null when a reference leads nowhere.
    static KPPDFRef<KPPDFObject> resolve(const KPPDFRef<KPPDFObject>& object);
    // True for a resolved object other than null. No object and the null object are alike: an
    // entry whose value is null is as good as none, as is a reference to an object that does
    // not exist (ISO 32000-1, 7.3.7 and 7.3.10).
    static bool hasValue(const KPPDFRef<KPPDFObject>& resolved) {
        return resolved && resolved->objectType() != KPPDFObjectTypeNull;
    }
    // Resolved entry for a key of a dictionary or stream; null for other kinds.
    virtual KPPDFRef<KPPDFObject> resolvedObjectForKey(std::string_view key);

    // Numbers of any kind (0 for non-numbers).
    virtual long long longLongValue() const { return 0; }
    virtual float realValue() const { return 0.0f; }
    bool isNumber() const {
        return objectType_ == KPPDFObjectTypeInteger || objectType_ == KPPDFObjectTypeReal;
    }

    virtual bool isEqual(const KPPDFObject& other) const;
    virtual uint32_t hash() const;
    // By object number only: -1, 0 or 1.
    int compare(const KPPDFObject& other) const;

    // A fresh object of the same kind and value, without a number.
    virtual KPPDFRef<KPPDFObject> copy() const;
    // Targets of all references reachable from this object that are not yet in visited.
    virtual KPPDFObjectList subobjects(KPPDFVisitedSet& visited);
    virtual void markSubobjects(KPPDFMarkBytes& marks);
    virtual void fixReferences(const KPPDFReferenceFixMap& map);
    virtual std::string description() const;
    // Clears cached targets and back-links; the document calls it when it goes away, so that
    // stale objects resolve to null instead of dangling.
    virtual void disconnect();

    // Checked casts: null when the type code does not match.
    KPPDFObjectInteger* asInteger();
    KPPDFObjectReal* asReal();
    KPPDFObjectString* asString();
    KPPDFObjectName* asName();
    KPPDFObjectArray* asArray();
    KPPDFObjectDictionary* asDictionary();
    KPPDFObjectBoolean* asBoolean();
    KPPDFObjectNull* asNull();
    KPPDFObjectStream* asStream();
    KPPDFObjectReference* asReference();

protected:
    // Resolution step of resolve(): the object to use instead of this one, or null for "this".
    virtual KPPDFRef<KPPDFObject> resolveTarget();
    static void markNumber(KPPDFMarkBytes& marks, uint32_t number);
    static bool isMarked(const KPPDFMarkBytes& marks, uint32_t number) {
        return number < marks.size() && marks[number];
    }

    int32_t objectType_ = KPPDFObjectTypeUnknown;
    KPPDFDocument* document_ = nullptr; // not owned
    KPPDFRange dataRange_;
    uint32_t objectNumber_ = 0;
    uint32_t generation_ = 0;
    uint32_t refCount_ = 0;
    uint32_t rawLength_ = 0;
    bool direct_ = true;
    KPPDFObject* container_ = nullptr; // not owned
};

// Shared-pointer form of the checked casts: null when the type code does not match.
template <class T> KPPDFRef<T> KPPDFCast(const KPPDFRef<KPPDFObject>& object) {
    if (!object || !T::matchesType(object->objectType()))
        return nullptr;
    return std::static_pointer_cast<T>(object);
}

// The resolved form of an object, cast to T (null when missing or of another kind).
template <class T> KPPDFRef<T> KPPDFResolve(const KPPDFRef<KPPDFObject>& object) {
    return KPPDFCast<T>(KPPDFObject::resolve(object));
}
