// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdio>

#include "base/text.h"

namespace vpdd {

/// A calendar date as records carry it: "%d-%02d-%02d".
template <std::size_t Size>
void assign_date(char (&field)[Size], int year, int month, int day) {
    char text[40];
    std::snprintf(text, sizeof text, "%d-%02d-%02d", year, month, day);
    assign_text(field, text);
}

}  // namespace vpdd
