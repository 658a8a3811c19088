#pragma once
#include "kppdf/objects/KPPDFObject.h"

// An indirect reference "N G R" (type code 10). It resolves through its document's object table
// on first use and caches its target; the document clears the cache when it goes away.
class KPPDFObjectReference : public KPPDFObject {
public:
    static bool matchesType(int32_t type) { return type == KPPDFObjectTypeReference; }
    KPPDFObjectReference();
    // Reads "N G R" at ptr (bounded by limit); null when it is not a reference.
    static KPPDFRef<KPPDFObjectReference> referenceWithPtr(const char* ptr, const char* limit,
                                                           KPPDFDocument* document);
    // position: byte offset of the target's first token, or 0 when unknown.
    static KPPDFRef<KPPDFObjectReference> referenceWithObjectNumber(uint32_t number,
                                                                    uint32_t generation,
                                                                    KPPDFDocument* document,
                                                                    uint32_t position = 0);
    // A reference to an object in memory; written with the target's number.
    static KPPDFRef<KPPDFObjectReference> referenceWithObject(const KPPDFRef<KPPDFObject>& target);

    // The target, resolved and cached on first call; null when it leads nowhere.
    KPPDFRef<KPPDFObject> resolvedObject();
    // The cached target without resolving.
    const KPPDFRef<KPPDFObject>& value() const { return value_; }
    void setValue(KPPDFRef<KPPDFObject> target) { value_ = std::move(target); }
    KPPDFRef<KPPDFObject> resolvedObjectForKey(std::string_view key) override;

    bool isEqual(const KPPDFObject& other) const override;
    bool appendDirectObject(std::string& out) override;
    KPPDFAttributedString attributedObject() override;
    KPPDFRef<KPPDFObject> copy() const override;
    KPPDFObjectList subobjects(KPPDFVisitedSet& visited) override;
    void markSubobjects(KPPDFMarkBytes& marks) override;
    void fixReferences(const KPPDFReferenceFixMap& map) override;
    std::string description() const override;
    void disconnect() override;

protected:
    KPPDFRef<KPPDFObject> resolveTarget() override { return resolvedObject(); }

private:
    static bool appendNumbers(std::string& out, uint32_t number, uint32_t generation);

    KPPDFRef<KPPDFObject> value_;
    // Guards against a reference chain that comes back to itself while resolving.
    bool resolving_ = false;
};
