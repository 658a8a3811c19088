#pragma once
#include <optional>

#include "kppdf/objects/KPPDFObjectString.h"
#include "kppdf/platform/KPPDFDate.h"

// A string holding a PDF date, "D:YYYYMMDDHHmmSSOHH'mm'" (ISO 32000-1, 7.9.4).
class KPPDFObjectDate : public KPPDFObjectString {
public:
    KPPDFObjectDate();
    explicit KPPDFObjectDate(const KPPDFDate& date);
    static KPPDFRef<KPPDFObjectDate> dateWithDate(const KPPDFDate& date);
    // The date a string holds; nullopt when it holds no year.
    static std::optional<KPPDFDate> dateFromPDFString(KPPDFObjectString& string);
    static std::optional<KPPDFDate> dateFromPDFText(std::string_view text);
    std::optional<KPPDFDate> dateValue() { return dateFromPDFString(*this); }
    KPPDFRef<KPPDFObject> copy() const override;
};
