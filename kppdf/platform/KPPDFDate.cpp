#include "kppdf/platform/KPPDFDate.h"

#include <chrono>
#include <cmath>
#include <cstdio>
#include <ctime>

namespace {

// About 31 million years either side of 1970: keeps every year inside an int and every sum
// below inside int64, whatever the caller passes.
constexpr double kMaxAbsInterval = 1e15;
constexpr size_t kMaxFormattedLength = 4096;
constexpr int64_t kSecondsPerDay = 86400;

double clampInterval(double interval) {
    if (!std::isfinite(interval))
        return 0;
    if (interval > kMaxAbsInterval)
        return kMaxAbsInterval;
    if (interval < -kMaxAbsInterval)
        return -kMaxAbsInterval;
    return interval;
}

int64_t floorDiv(int64_t a, int64_t b) {
    return a / b - ((a % b != 0) && ((a < 0) != (b < 0)));
}

// Days from 1970-01-01 to the first of the month in the proleptic Gregorian calendar;
// month 1-12.
int64_t daysFromCivil(int64_t year, int month) {
    year -= month <= 2;
    int64_t era = floorDiv(year, 400);
    int64_t yearOfEra = year - era * 400;
    int64_t dayOfYear = (153 * (month > 2 ? month - 3 : month + 9) + 2) / 5;
    int64_t dayOfEra = yearOfEra * 365 + yearOfEra / 4 - yearOfEra / 100 + dayOfYear;
    return era * 146097 + dayOfEra - 719468;
}

struct Civil {
    int64_t year;
    int month, day;
};

Civil civilFromDays(int64_t days) {
    days += 719468;
    int64_t era = floorDiv(days, 146097);
    int64_t dayOfEra = days - era * 146097;
    int64_t yearOfEra = (dayOfEra - dayOfEra / 1460 + dayOfEra / 36524 - dayOfEra / 146096) / 365;
    int64_t dayOfYear = dayOfEra - (365 * yearOfEra + yearOfEra / 4 - yearOfEra / 100);
    int64_t mp = (5 * dayOfYear + 2) / 153;
    int day = static_cast<int>(dayOfYear - (153 * mp + 2) / 5 + 1);
    int month = static_cast<int>(mp < 10 ? mp + 3 : mp - 9);
    return {yearOfEra + era * 400 + (month <= 2), month, day};
}

// The fields read as UTC, normalised the way timegm normalises them.
int64_t secondsFromFields(int year, int month, int day, int hour, int minute, int second) {
    int64_t monthIndex = int64_t(month) - 1;
    int64_t fullYear = int64_t(year) + floorDiv(monthIndex, 12);
    int normalMonth = static_cast<int>(monthIndex - floorDiv(monthIndex, 12) * 12) + 1;
    int64_t days = daysFromCivil(fullYear, normalMonth) + (int64_t(day) - 1);
    return days * kSecondsPerDay + int64_t(hour) * 3600 + int64_t(minute) * 60 + second;
}

// Broken-down time of a local second count (instant plus offset); fills the tm fields strftime
// reads, apart from the zone ones.
struct tm brokenDown(int64_t localSeconds) {
    int64_t days = floorDiv(localSeconds, kSecondsPerDay);
    int64_t secondOfDay = localSeconds - days * kSecondsPerDay;
    Civil civil = civilFromDays(days);
    struct tm t = {};
    t.tm_year = static_cast<int>(civil.year - 1900);
    t.tm_mon = civil.month - 1;
    t.tm_mday = civil.day;
    t.tm_hour = static_cast<int>(secondOfDay / 3600);
    t.tm_min = static_cast<int>(secondOfDay / 60 % 60);
    t.tm_sec = static_cast<int>(secondOfDay % 60);
    // 1970-01-01 was a Thursday.
    t.tm_wday = static_cast<int>(days + 4 - floorDiv(days + 4, 7) * 7);
    t.tm_yday = static_cast<int>(days - daysFromCivil(civil.year, 1));
    return t;
}

bool localBrokenDown(double at, struct tm* out) {
    tzset(); // picks up a TZ that changed since the last call
    time_t seconds = static_cast<time_t>(std::floor(clampInterval(at)));
    return localtime_r(&seconds, out) != nullptr;
}

} // namespace

KPPDFDate KPPDFDate::now() {
    auto sinceEpoch = std::chrono::system_clock::now().time_since_epoch();
    return dateWithTimeIntervalSince1970(std::chrono::duration<double>(sinceEpoch).count(),
                                         std::nullopt);
}

KPPDFDate KPPDFDate::dateWithComponents(int year, int month, int day, int hour, int minute,
                                        int second, std::optional<int32_t> tzOffsetSeconds) {
    int64_t asUTC = secondsFromFields(year, month, day, hour, minute, second);
    if (tzOffsetSeconds)
        return dateWithTimeIntervalSince1970(double(asUTC - *tzOffsetSeconds), tzOffsetSeconds);
    // The offset depends on the instant we are looking for: guess with the offset at the
    // fields read as UTC, then correct once (enough across a daylight-saving change).
    int32_t guess = localTimeZoneOffset(double(asUTC));
    int64_t instant = asUTC - guess;
    int32_t corrected = localTimeZoneOffset(double(instant));
    if (corrected != guess && localTimeZoneOffset(double(asUTC - corrected)) == corrected)
        instant = asUTC - corrected;
    return dateWithTimeIntervalSince1970(double(instant), std::nullopt);
}

KPPDFDate KPPDFDate::dateWithTimeIntervalSince1970(double interval,
                                                   std::optional<int32_t> tzOffsetSeconds) {
    KPPDFDate date;
    date.timeIntervalSince1970_ = clampInterval(interval);
    date.hasTimeZone_ = tzOffsetSeconds.has_value();
    date.timeZoneOffset_ = tzOffsetSeconds.value_or(0);
    return date;
}

int32_t KPPDFDate::effectiveTimeZoneOffset() const {
    return hasTimeZone_ ? timeZoneOffset_ : localTimeZoneOffset(timeIntervalSince1970_);
}

KPPDFDate::Components KPPDFDate::components() const {
    int64_t seconds = static_cast<int64_t>(std::floor(timeIntervalSince1970_));
    struct tm t = brokenDown(seconds + effectiveTimeZoneOffset());
    return {t.tm_year + 1900, t.tm_mon + 1, t.tm_mday, t.tm_hour, t.tm_min, t.tm_sec};
}

std::string KPPDFDate::format(const char* strftimePattern) const {
    if (!strftimePattern || !*strftimePattern)
        return {};
    int64_t seconds = static_cast<int64_t>(std::floor(timeIntervalSince1970_));
    int32_t offset = effectiveTimeZoneOffset();
    struct tm t = brokenDown(seconds + offset);
    t.tm_gmtoff = offset;
    char zoneName[16];
    struct tm local;
    if (!hasTimeZone_ && localBrokenDown(timeIntervalSince1970_, &local)) {
        t.tm_isdst = local.tm_isdst;
        t.tm_zone = local.tm_zone;
    } else {
        int32_t magnitude = offset < 0 ? -offset : offset;
        std::snprintf(zoneName, sizeof zoneName, "%c%02d%02d", offset < 0 ? '-' : '+',
                      magnitude / 3600 % 100, magnitude / 60 % 60);
        t.tm_zone = offset == 0 ? "UTC" : zoneName;
    }
    std::string out(64, '\0');
    while (out.size() <= kMaxFormattedLength) {
        size_t n = std::strftime(out.data(), out.size(), strftimePattern, &t);
        if (n > 0) {
            out.resize(n);
            return out;
        }
        out.resize(out.size() * 2);
    }
    return {};
}

int32_t KPPDFDate::localTimeZoneOffset(double at) {
    struct tm local;
    if (!localBrokenDown(at, &local))
        return 0;
    return static_cast<int32_t>(local.tm_gmtoff);
}
