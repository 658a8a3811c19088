#pragma once
#include "kppdf/objects/KPPDFObject.h"

// A name (type code 4). value() is the text after the slash exactly as read: number-sign
// escapes stay undecoded, so names are written back as they came.
class KPPDFObjectName : public KPPDFObject {
public:
    static bool matchesType(int32_t type) { return type == KPPDFObjectTypeName; }
    KPPDFObjectName();
    explicit KPPDFObjectName(std::string value);
    static KPPDFRef<KPPDFObjectName> nameWithString(std::string value);
    // Reads "/name" at offset; null when the byte there is not a slash.
    static KPPDFRef<KPPDFObjectName> nameAtOffset(uint64_t offset, const KPPDFData& data);
    // The length of a name token starting with "/" at p (bounded by limit); 0 if none there.
    static size_t scanName(const char* p, const char* limit);

    const std::string& value() const { return value_; }
    void setValue(std::string value) { value_ = std::move(value); }
    // The name with #xx escapes decoded.
    std::string decodedValue() const;
    bool isEqualToString(std::string_view text) const { return value_ == text; }

    uint32_t rawLength() const override;
    bool appendDirectObject(std::string& out) override;
    KPPDFRef<KPPDFObject> copy() const override;
    std::string description() const override;

private:
    std::string value_;
};
