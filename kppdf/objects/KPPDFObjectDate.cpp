#include "kppdf/objects/KPPDFObjectDate.h"

#include <cstdio>
#include <cstdlib>

#include "kppdf/platform/KPPDFLog.h"

namespace {
// Reads count digits at text[at]; -1 when they are not all there.
int field(std::string_view text, size_t at, size_t count) {
    if (at + count > text.size())
        return -1;
    int value = 0;
    for (size_t i = at; i < at + count; i++) {
        if (text[i] < '0' || text[i] > '9')
            return -1;
        value = value * 10 + (text[i] - '0');
    }
    return value;
}
} // namespace

KPPDFObjectDate::KPPDFObjectDate() = default;

KPPDFObjectDate::KPPDFObjectDate(const KPPDFDate& date) {
    std::string text = date.format("D:%Y%m%d%H%M%S");
    if (date.hasTimeZone()) {
        int32_t offset = date.timeZoneOffset();
        char zone[16];
        int magnitude = std::abs(offset);
        std::snprintf(zone, sizeof zone, "%c%02d'%02d'", offset > 0 ? '+' : offset < 0 ? '-' : 'Z',
                      magnitude / 3600, magnitude % 3600 / 60);
        text += zone;
    }
    literal_ = true;
    encoding_ = 5;
    setTextValue(std::move(text));
}

KPPDFRef<KPPDFObjectDate> KPPDFObjectDate::dateWithDate(const KPPDFDate& date) {
    return std::make_shared<KPPDFObjectDate>(date);
}

std::optional<KPPDFDate> KPPDFObjectDate::dateFromPDFString(KPPDFObjectString& string) {
    return dateFromPDFText(string.stringValue());
}

std::optional<KPPDFDate> KPPDFObjectDate::dateFromPDFText(std::string_view text) {
    if (text.substr(0, 2) == "D:")
        text.remove_prefix(2);
    size_t L = text.size();
    int year = field(text, 0, 4);
    if (year < 0)
        return std::nullopt;
    auto optionalField = [&](bool present, size_t at, int fallback) {
        if (!present)
            return fallback;
        int value = field(text, at, 2);
        return value < 0 ? fallback : value;
    };
    int month = optionalField(L > 5, 4, 1);
    int day = optionalField(L > 7, 6, 1);
    int hour = optionalField(L > 9, 8, 0);
    int minute = optionalField(L > 11, 10, 0);
    int second = optionalField(L > 13, 12, 0);
    std::optional<int32_t> zone;
    if (L > 14) {
        char sign = text[14];
        if (sign == '+' || sign == '-' || sign == 'Z') {
            int offsetHours = L >= 18 ? std::max(field(text, 15, 2), 0) : 0;
            int offsetMinutes = L > 20 ? std::max(field(text, 18, 2), 0) : 0;
            int32_t seconds = offsetHours * 3600 + offsetMinutes * 60;
            zone = sign == '-' ? -seconds : seconds;
        } else {
            KPPDFLog("Unexpected UT offset in date string");
        }
    }
    return KPPDFDate::dateWithComponents(year, month, day, hour, minute, second, zone);
}

KPPDFRef<KPPDFObject> KPPDFObjectDate::copy() const {
    auto copy = std::make_shared<KPPDFObjectDate>();
    copyInto(*copy);
    return copy;
}
