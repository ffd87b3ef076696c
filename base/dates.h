// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/text.h"

namespace vpdd {

/// A calendar date as "%d-%02d-%02d" has it.
class DateText {
public:
    DateText(int year, int month, int day);
    std::string_view view() const { return {characters_, length_}; }

private:
    void append(int number, std::ptrdiff_t least_digits);

    char characters_[40];
    std::size_t length_ = 0;
};

/// A date as records carry it.
template <std::size_t Size>
void assign_date(char (&field)[Size], int year, int month, int day) {
    assign_text(field, DateText(year, month, day).view());
}

}  // namespace vpdd
