#pragma once
#include "kppdf/objects/KPPDFObject.h"

// An integer (type code 1), kept in 64 bits and written as its low 32 bits.
class KPPDFObjectInteger : public KPPDFObject {
public:
    static bool matchesType(int32_t type) { return type == KPPDFObjectTypeInteger; }
    KPPDFObjectInteger();
    explicit KPPDFObjectInteger(long long value);
    static KPPDFRef<KPPDFObjectInteger> integerWithLongLong(long long value);
    // Reads a signed decimal from at most length bytes at ptr; null when no digit is there.
    static KPPDFRef<KPPDFObjectInteger> integerWithPtr(const char* ptr, uint32_t length,
                                                       KPPDFDocument* document);

    long long longLongValue() const override { return value_; }
    void setLongLongValue(long long value) { value_ = value, rawLength_ = 0; }
    float realValue() const override { return static_cast<float>(value_); }
    // The length of the source text, or of the decimal form for integers made in memory.
    uint32_t rawLength() const override;

    bool appendDirectObject(std::string& out) override;
    KPPDFRef<KPPDFObject> copy() const override;
    std::string description() const override;

private:
    long long value_ = 0;
};
