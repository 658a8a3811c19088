#pragma once
#include "kppdf/objects/KPPDFObject.h"

// true or false (type code 7).
class KPPDFObjectBoolean : public KPPDFObject {
public:
    static bool matchesType(int32_t type) { return type == KPPDFObjectTypeBoolean; }
    KPPDFObjectBoolean();
    explicit KPPDFObjectBoolean(bool value);
    static KPPDFRef<KPPDFObjectBoolean> boolWithBool(bool value);
    // Reads "true" or "false" at offset; any other bytes log a line and give a boolean with no
    // value (reads as false). Null when the keyword runs past the end of the data.
    static KPPDFRef<KPPDFObjectBoolean> boolAtOffset(uint64_t offset, const KPPDFData& data,
                                                     KPPDFDocument* document);

    bool boolValue() const { return hasValue_ && value_; }
    bool hasValue() const { return hasValue_; }
    void setBoolValue(bool value) { value_ = value, hasValue_ = true; }
    long long longLongValue() const override { return boolValue(); }

    bool appendDirectObject(std::string& out) override;
    KPPDFRef<KPPDFObject> copy() const override;
    std::string description() const override { return boolValue() ? "true" : "false"; }

private:
    bool value_ = false;
    bool hasValue_ = false;
};
