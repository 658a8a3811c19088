#pragma once
#include "kppdf/objects/KPPDFObject.h"

// A real number (type code 2), single precision.
class KPPDFObjectReal : public KPPDFObject {
public:
    static bool matchesType(int32_t type) { return type == KPPDFObjectTypeReal; }
    KPPDFObjectReal();
    explicit KPPDFObjectReal(float value);
    static KPPDFRef<KPPDFObjectReal> realWithFloat(float value);
    // Reads a number from at most length bytes at ptr; null when nothing numeric is there.
    static KPPDFRef<KPPDFObjectReal> realWithPtr(const char* ptr, uint32_t length,
                                                 KPPDFDocument* document);

    float realValue() const override { return value_; }
    void setRealValue(float value) { value_ = value, rawLength_ = 0, sourceText_.clear(); }
    // Truncated toward zero; beyond the range of long long (or not a number) it saturates.
    long long longLongValue() const override;
    uint32_t rawLength() const override;

    bool appendDirectObject(std::string& out) override;
    KPPDFRef<KPPDFObject> copy() const override;
    std::string description() const override;

    // The serialised form of a float: an integral value as an integer, otherwise "%f".
    static void appendReal(float value, std::string& out);

private:
    float value_ = 0.0f;
    // The text a real was read from, kept only when a float cannot hold its value (595.2756
    // would be written 595.275635): such a number is written back as it stood, so that a page
    // box does not move by a fraction of a point with every save.
    std::string sourceText_;
};
