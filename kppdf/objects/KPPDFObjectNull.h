#pragma once
#include "kppdf/objects/KPPDFObject.h"

// The PDF null object (type code 8).
class KPPDFObjectNull : public KPPDFObject {
public:
    static bool matchesType(int32_t type) { return type == KPPDFObjectTypeNull; }
    KPPDFObjectNull();
    static KPPDFRef<KPPDFObjectNull> nullObject();
    // Reads the keyword "null" at offset in the document's bytes; null when it is not there.
    static KPPDFRef<KPPDFObjectNull> nullAtOffset(uint64_t offset, KPPDFDocument* document);
    static KPPDFRef<KPPDFObjectNull> nullAtOffset(uint64_t offset, const KPPDFData& data,
                                                  KPPDFDocument* document);

    bool appendDirectObject(std::string& out) override;
    // A key looked up through a null gives null again (a fresh null object).
    KPPDFRef<KPPDFObject> resolvedObjectForKey(std::string_view key) override;
    KPPDFRef<KPPDFObject> copy() const override;
    std::string description() const override { return "null"; }
};
