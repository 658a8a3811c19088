#pragma once
#include <cstdint>
#include <optional>
#include <string>

// A point in time, with an optional time zone (seconds east of UTC) in which it is shown.
// A date without a zone is shown in the process's local zone (TZ), as it is at that date.
// Any instant works, before 1970 and after 2038 included; nothing here reads the clock except
// now().
class KPPDFDate {
public:
    // Calendar fields in the date's own zone; month 1-12, day 1-31, hour 0-23.
    struct Components {
        int year = 1970, month = 1, day = 1, hour = 0, minute = 0, second = 0;
        bool operator==(const Components&) const = default;
    };

    // The Unix epoch, without a zone.
    KPPDFDate() = default;

    // The current time, without a zone.
    static KPPDFDate now();
    // Fields out of range carry over as timegm does (month 13 is January of the next year,
    // second -1 the last second of the minute before). With no offset the fields are read in
    // the local zone at that date and the date has no zone.
    static KPPDFDate dateWithComponents(int year, int month, int day, int hour, int minute,
                                        int second, std::optional<int32_t> tzOffsetSeconds);
    // A non-finite interval is taken as 0.
    static KPPDFDate dateWithTimeIntervalSince1970(double interval,
                                                   std::optional<int32_t> tzOffsetSeconds);

    double timeIntervalSince1970() const { return timeIntervalSince1970_; }
    bool hasTimeZone() const { return hasTimeZone_; }
    // Seconds east of UTC; 0 when the date has no zone.
    int32_t timeZoneOffset() const { return timeZoneOffset_; }
    // The offset the date is shown with: its own, else the local zone's at that instant.
    int32_t effectiveTimeZoneOffset() const;

    // Fields of the date in its own zone (the local zone when it has none); seconds are
    // truncated towards the past.
    Components components() const;
    // strftime of the date in its own zone (%z and %Z give that zone); "" when the pattern is
    // empty or its result would be unreasonably long.
    std::string format(const char* strftimePattern) const;

    // Same instant and same zone.
    bool operator==(const KPPDFDate&) const = default;

    // Offset of the local zone from UTC, in seconds east, at the given instant; 0 when the
    // instant is beyond what the C library can convert.
    static int32_t localTimeZoneOffset(double at);

private:
    double timeIntervalSince1970_ = 0;
    bool hasTimeZone_ = false;
    int32_t timeZoneOffset_ = 0;
};
