#include "kppdf/platform/KPPDFDate.h"

#include <climits>
#include <cmath>
#include <cstdlib>
#include <ctime>
#include <gtest/gtest.h>
#include <optional>
#include <string>

namespace {

constexpr const char* kPDFPattern = "D:%Y%m%d%H%M%S";

// Sets TZ for one test and puts the old value back.
class ScopedTimeZone {
public:
    explicit ScopedTimeZone(const char* zone) {
        if (const char* old = std::getenv("TZ"))
            old_ = old;
        setenv("TZ", zone, 1);
        tzset();
    }
    ~ScopedTimeZone() {
        if (old_)
            setenv("TZ", old_->c_str(), 1);
        else
            unsetenv("TZ");
        tzset();
    }

private:
    std::optional<std::string> old_;
};

// US Eastern rules written out, so the test needs no time-zone database.
constexpr const char* kEastern = "EST5EDT,M3.2.0,M11.1.0";

} // namespace

TEST(KPPDFDateTest, ExplicitZonesPositiveNegativeAndZero) {
    ScopedTimeZone zone(kEastern); // must not matter for dates with a zone
    // 2023-06-15 14:30:05 UTC is 1686839405.
    KPPDFDate plus = KPPDFDate::dateWithComponents(2023, 6, 15, 16, 30, 5, 7200);
    EXPECT_EQ(plus.timeIntervalSince1970(), 1686839405.0);
    EXPECT_EQ(plus.format(kPDFPattern), "D:20230615163005");

    KPPDFDate minus = KPPDFDate::dateWithComponents(2023, 6, 15, 9, 0, 5, -(5 * 3600 + 1800));
    EXPECT_EQ(minus.timeIntervalSince1970(), 1686839405.0);
    EXPECT_EQ(minus.format(kPDFPattern), "D:20230615090005");

    KPPDFDate utc = KPPDFDate::dateWithComponents(2023, 6, 15, 14, 30, 5, 0);
    EXPECT_EQ(utc.timeIntervalSince1970(), 1686839405.0);
    EXPECT_EQ(utc.format(kPDFPattern), "D:20230615143005");

    // Same instant, different zones: not equal; same instant and zone: equal.
    EXPECT_FALSE(plus == utc);
    EXPECT_EQ(KPPDFDate::dateWithTimeIntervalSince1970(1686839405.0, 7200), plus);
}

TEST(KPPDFDateTest, NoZoneMeansLocalZoneAtThatDate) {
    ScopedTimeZone zone(kEastern);
    // Winter is UTC-5, summer UTC-4.
    KPPDFDate winter = KPPDFDate::dateWithComponents(2023, 1, 15, 12, 0, 0, std::nullopt);
    EXPECT_EQ(winter.timeIntervalSince1970(), 1673784000.0 + 5 * 3600);
    EXPECT_EQ(winter.format(kPDFPattern), "D:20230115120000");

    KPPDFDate summer = KPPDFDate::dateWithComponents(2023, 7, 15, 12, 0, 0, std::nullopt);
    EXPECT_EQ(summer.timeIntervalSince1970(), 1689422400.0 + 4 * 3600);
    EXPECT_EQ(summer.format(kPDFPattern), "D:20230715120000");

    // A time that the spring change skips still gives a date, within the hour.
    KPPDFDate skipped = KPPDFDate::dateWithComponents(2023, 3, 12, 2, 30, 0, std::nullopt);
    EXPECT_EQ(skipped.components().day, 12);
}

TEST(KPPDFDateTest, FarFromTheEpochAndOutOfRange) {
    ScopedTimeZone zone("UTC0");
    KPPDFDate old = KPPDFDate::dateWithComponents(1900, 2, 28, 23, 59, 59, 0);
    EXPECT_EQ(old.timeIntervalSince1970(), -2203891201.0);
    EXPECT_EQ(old.format(kPDFPattern), "D:19000228235959");
    KPPDFDate future = KPPDFDate::dateWithComponents(2100, 3, 1, 0, 0, 0, std::nullopt);
    EXPECT_EQ(future.timeIntervalSince1970(), 4107542400.0);
    EXPECT_EQ(future.format(kPDFPattern), "D:21000301000000");
    // Half a second before the epoch is still the last second of 1969.
    KPPDFDate justBefore = KPPDFDate::dateWithTimeIntervalSince1970(-0.5, 0);
    EXPECT_EQ(justBefore.format(kPDFPattern), "D:19691231235959");

    // Month 13 is next January, day 0 the last day of the month before, second 60 the next minute.
    EXPECT_EQ(KPPDFDate::dateWithComponents(2023, 13, 1, 0, 0, 0, 0).timeIntervalSince1970(),
              1704067200.0);
    EXPECT_EQ(KPPDFDate::dateWithComponents(2024, 3, 0, 12, 0, 0, 0).timeIntervalSince1970(),
              1709208000.0);
    EXPECT_EQ(KPPDFDate::dateWithComponents(2023, 12, 31, 23, 59, 60, 0).timeIntervalSince1970(),
              1704067200.0);

    // Absurd input is clamped, never undefined.
    KPPDFDate huge = KPPDFDate::dateWithComponents(INT_MAX, INT_MAX, INT_MAX, INT_MAX, INT_MAX,
                                                   INT_MAX, INT32_MAX);
    EXPECT_GT(huge.components().year, 1000000);
    EXPECT_FALSE(huge.format(kPDFPattern).empty());
    KPPDFDate tiny = KPPDFDate::dateWithComponents(INT_MIN, INT_MIN, INT_MIN, INT_MIN, INT_MIN,
                                                   INT_MIN, std::nullopt);
    EXPECT_LT(tiny.components().year, -1000000);
    EXPECT_EQ(KPPDFDate::dateWithTimeIntervalSince1970(std::nan(""), 0).timeIntervalSince1970(), 0);
}
