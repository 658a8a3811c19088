#pragma once
#include <memory>

#include "kppdf/imprints/KPPDFImprint.h"

// An annotation imprint of a given kind without a dictionary, for page lists and fields.
class TestAnnotation : public KPPDFImprint {
public:
    explicit TestAnnotation(int32_t kind) : kind_(kind) {}
    int32_t imprintType() const override { return KPPDFImprintTypeAnnotation; }
    int32_t annotationType() const override { return kind_; }
    KPPDFRef<KPPDFImprint> copy() const override {
        auto annotation = std::make_shared<TestAnnotation>(kind_);
        copyInto(*annotation);
        return annotation;
    }

private:
    int32_t kind_;
};
