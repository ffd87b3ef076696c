// SPDX-License-Identifier: Apache-2.0
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <ctime>
#include <optional>
#include <ostream>
#include <string>

#include "orva_vpdd.h"

namespace {

struct Date {
    int year, month, day;
    bool operator==(const Date&) const = default;
};

void PrintTo(const Date& date, std::ostream* stream) { *stream << date.year << '-' << date.month << '-' << date.day; }

Date of_minutes(uint32_t minutes) {
    const uint8_t bytes[] = {static_cast<uint8_t>(minutes), static_cast<uint8_t>(minutes >> 8),
                             static_cast<uint8_t>(minutes >> 16)};
    Date date{-1, -1, -1};
    fru_minutes_to_date(bytes, &date.year, &date.month, &date.day);
    return date;
}

Date of_week(uint32_t year, uint32_t week) {
    Date date{-1, -1, -1};
    spd_week_to_date(year, week, &date.year, &date.month, &date.day);
    return date;
}

Date as_date(std::chrono::sys_days days) {
    const std::chrono::year_month_day date(days);
    return {int{date.year()}, static_cast<int>(unsigned{date.month()}), static_cast<int>(unsigned{date.day()})};
}

/// The Monday of the week with January 4th in it (ISO 8601).
std::chrono::sys_days first_monday(int year) {
    using namespace std::chrono;
    const sys_days fourth = std::chrono::year{year} / January / 4;
    return fourth - (weekday{fourth} - Monday);
}

uint32_t weeks_in(int year) {
    return static_cast<uint32_t>((first_monday(year + 1) - first_monday(year)) / std::chrono::weeks{1});
}

Date monday_of(int year, uint32_t week) {
    return as_date(first_monday(year) + std::chrono::weeks{static_cast<int>(week) - 1});
}

/// Runs a test in a time zone, in the notation of POSIX: "ZONE+8" lies eight hours west of UTC.
class InZone {
public:
    explicit InZone(const char* zone) {
        if (const char* const zone_before = std::getenv("TZ")) before_ = zone_before;
        set(zone);
    }
    ~InZone() {
        if (before_) {
            set(before_->c_str());
            return;
        }
        unsetenv("TZ");
        tzset();
    }
    InZone(const InZone&) = delete;
    InZone& operator=(const InZone&) = delete;

private:
    static void set(const char* zone) {
        setenv("TZ", zone, 1);
        tzset();
    }
    std::optional<std::string> before_;
};

constexpr uint32_t minutes_per_day = 1440;

TEST(FruMinutesToDate, CountsFromNineteenNinetySix) {
    const InZone zone("UTC0");
    EXPECT_EQ(of_minutes(0), (Date{1996, 1, 1}));
    EXPECT_EQ(of_minutes(minutes_per_day - 1), (Date{1996, 1, 1}));
    EXPECT_EQ(of_minutes(minutes_per_day), (Date{1996, 1, 2}));
    EXPECT_EQ(of_minutes(59 * minutes_per_day), (Date{1996, 2, 29}));
    EXPECT_EQ(of_minutes(366 * minutes_per_day), (Date{1997, 1, 1}));
}

TEST(FruMinutesToDate, TakesTheLeastSignificantByteFirst) {
    const InZone zone("UTC0");
    const uint8_t minutes[] = {0x00, 0x01, 0x02};  // 0x020100 minutes are 91 days and 9 hours
    Date date{};
    fru_minutes_to_date(minutes, &date.year, &date.month, &date.day);
    EXPECT_EQ(date, (Date{1996, 4, 1}));
}

TEST(FruMinutesToDate, ReachesToTheEndOf2027) {
    const InZone zone("UTC0");
    // 0xFFFFFF minutes are 11650 days and some hours.
    EXPECT_EQ(of_minutes(0xFFFFFF),
              as_date(std::chrono::sys_days{std::chrono::year{1996} / 1 / 1} + std::chrono::days{11650}));
    EXPECT_EQ(of_minutes(0xFFFFFF).year, 2027);
}

TEST(FruMinutesToDate, PrintsTheDayBeforeWestOfUtc) {
    const InZone zone("ZONE+8");
    EXPECT_EQ(of_minutes(0), (Date{1995, 12, 31}));
    EXPECT_EQ(of_minutes(8 * 60 - 1), (Date{1995, 12, 31}));
    EXPECT_EQ(of_minutes(8 * 60), (Date{1996, 1, 1}));
}

TEST(FruMinutesToDate, PrintsTheNextDayEarlyEastOfUtc) {
    const InZone zone("ZONE-9");
    EXPECT_EQ(of_minutes(15 * 60 - 1), (Date{1996, 1, 1}));
    EXPECT_EQ(of_minutes(15 * 60), (Date{1996, 1, 2}));
}

TEST(SpdWeekToDate, BeginsOnAMonday) {
    const InZone zone("UTC0");
    EXPECT_EQ(of_week(96, 1), (Date{1996, 1, 1}));
    EXPECT_EQ(of_week(97, 1), (Date{1996, 12, 30}));
    EXPECT_EQ(of_week(0, 1), (Date{2000, 1, 3}));
    EXPECT_EQ(of_week(20, 30), (Date{2020, 7, 20}));
}

TEST(SpdWeekToDate, CapsWeeksAtTheYearsLast) {
    const InZone zone("UTC0");
    EXPECT_EQ(of_week(0, 60), of_week(0, 52));
    EXPECT_EQ(of_week(0, 60), (Date{2000, 12, 25}));
    EXPECT_EQ(of_week(20, 60), (Date{2020, 12, 28}));
}

TEST(SpdWeekToDate, TakesWeekZeroForTheFirst) {
    const InZone zone("UTC0");
    EXPECT_EQ(of_week(96, 0), (Date{1996, 1, 1}));
    EXPECT_EQ(of_week(27, 0), of_week(27, 1));
}

TEST(SpdWeekToDate, GivesTheLastWeekThatTheMinutesHoldForAllElse) {
    const InZone zone("UTC0");
    const Date last{2027, 11, 22};
    EXPECT_EQ(of_week(27, 47), last);
    EXPECT_EQ(of_week(27, 46), (Date{2027, 11, 15}));
    EXPECT_EQ(of_week(27, 48), last);
    EXPECT_EQ(of_week(27, 50), last);
    EXPECT_EQ(of_week(27, 60), last);
    for (const uint32_t year : {28U, 50U, 95U, 100U, 165U, 0xFFFFFFFFU}) {
        for (const uint32_t week : {0U, 1U, 50U, 60U, 0xFFFFFFFFU}) EXPECT_EQ(of_week(year, week), last) << year;
    }
}

TEST(SpdWeekToDate, FollowsTheIsoCalendarInEveryYearAndWeek) {
    for (const char* const zone_name : {"UTC0", "ZONE+11", "ZONE-11"}) {
        const InZone zone(zone_name);
        for (int year = 1996; year <= 2027; ++year) {
            for (uint32_t week = 0; week <= 60; ++week) {
                const uint32_t last = year == 2027 ? 47 : weeks_in(year);
                const uint32_t meant = std::min(std::max(week, 1U), last);
                EXPECT_EQ(of_week(static_cast<uint32_t>(year % 100), week), monday_of(year, meant))
                    << year << " week " << week << " in " << zone_name;
            }
        }
    }
}

TEST(SpdWeekToDate, KnowsTheYearsOf53Weeks) {
    const InZone zone("UTC0");
    for (uint32_t year = 0; year < 27; ++year) {
        const bool is_long = year == 4 || year == 9 || year == 15 || year == 20 || year == 26;
        EXPECT_EQ(of_week(year, 53) != of_week(year, 52), is_long) << year;
    }
    for (uint32_t year = 96; year <= 99; ++year) {
        EXPECT_EQ(of_week(year, 53) != of_week(year, 52), year == 98) << year;
    }
}

TEST(SpdWeekToDate, CountsFromNoonSoThatOnlyTheFarEastSeesTheNextDay) {
    const InZone zone("ZONE-12");
    EXPECT_EQ(of_week(96, 1), (Date{1996, 1, 2}));
}

TEST(SpdWeekToDate, StaysOnItsDayInTheFarWest) {
    const InZone zone("ZONE+12");
    EXPECT_EQ(of_week(96, 1), (Date{1996, 1, 1}));
}

}  // namespace
