// SPDX-License-Identifier: Apache-2.0
#include "base/dates.h"

#include <array>
#include <charconv>
#include <cstdint>
#include <ctime>
#include <limits>

#include "orva_vpdd.h"

namespace {

constexpr int64_t epoch_1996 = 820454400;  // 1996-01-01 00:00 UTC, where FRU board dates begin (IPMI FRU 11)
constexpr uint32_t minutes_per_week = 10080;
constexpr uint32_t minutes_to_noon = 720;

constexpr uint32_t first_year = 1996;
constexpr uint32_t last_year = 2027;  // the last year and week that 3 bytes of minutes can hold
constexpr uint32_t last_week = 47;

// Bit n stands for the n-th year of the century part: the years with 53 weeks.
constexpr uint32_t long_years_from_1996 = 1U << (1998 - 1996);
constexpr uint32_t long_years_from_2000 =
    1U << (2004 - 2000) | 1U << (2009 - 2000) | 1U << (2015 - 2000) | 1U << (2020 - 2000) | 1U << (2026 - 2000);

uint32_t weeks_of(uint32_t year) {
    const bool is_long =
        year < 2000 ? (long_years_from_1996 >> (year - 1996) & 1U) : (long_years_from_2000 >> (year - 2000) & 1U);
    return is_long ? 53 : 52;
}

struct YearAndWeek {
    uint32_t year, week;
};

YearAndWeek normalised(uint32_t two_digit_year, uint32_t week) {
    if (week < 1) week = 1;
    YearAndWeek date{last_year, last_week};
    if (two_digit_year < 27) date = {2000 + two_digit_year, week};
    if (two_digit_year == 27) date = {last_year, week < last_week ? week : last_week};
    if (two_digit_year >= 96 && two_digit_year <= 99) date = {1900 + two_digit_year, week};
    if (date.week > 52) date.week = weeks_of(date.year);
    return date;
}

}  // namespace

namespace vpdd {

DateText::DateText(int year, int month, int day) {
    append(year, 1);
    characters_[length_++] = '-';
    append(month, 2);
    characters_[length_++] = '-';
    append(day, 2);
}

void DateText::append(int number, std::ptrdiff_t least_digits) {
    char digits[std::numeric_limits<int>::digits10 + 2] = {};
    const char* const end = std::to_chars(digits, digits + sizeof digits, number).ptr;
    for (std::ptrdiff_t missing = least_digits - (end - digits); missing > 0; --missing) characters_[length_++] = '0';
    for (const char* digit = digits; digit != end; ++digit) characters_[length_++] = *digit;
}

}  // namespace vpdd

extern "C" void fru_minutes_to_date(const uint8_t* minutes, int* year, int* month, int* day) {
    const uint32_t count =
        minutes[0] | static_cast<uint32_t>(minutes[1]) << 8U | static_cast<uint32_t>(minutes[2]) << 16U;
    const auto seconds = static_cast<time_t>(epoch_1996 + int64_t{count} * 60);
    tm local{};
    localtime_r(&seconds, &local);
    *year = local.tm_year + 1900;
    *month = local.tm_mon + 1;
    *day = local.tm_mday;
}

extern "C" void spd_week_to_date(uint32_t year, uint32_t week, int* out_year, int* out_month, int* out_day) {
    const YearAndWeek date = normalised(year, week);
    uint32_t weeks = date.week;
    for (uint32_t earlier = first_year; earlier < date.year; ++earlier) weeks += weeks_of(earlier);

    // Noon of the week's first day: less than 12 hours from UTC it is the same day in local time.
    const uint32_t minutes = minutes_per_week * (weeks - 1) + minutes_to_noon;
    const std::array<uint8_t, 3> packed{static_cast<uint8_t>(minutes), static_cast<uint8_t>(minutes >> 8U),
                                        static_cast<uint8_t>(minutes >> 16U)};
    fru_minutes_to_date(packed.data(), out_year, out_month, out_day);
}
