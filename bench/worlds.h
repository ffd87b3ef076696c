// SPDX-License-Identifier: Apache-2.0
// What is measured on: images, servers, and a log that is full.
#pragma once

#include <cstddef>

#include "bench/platform.h"

namespace vpdd::bench {

/// A board, a product and two multirecords, one of them the maker's processor record; zeros up to `size`.
Bytes fru_image(std::size_t size);

/// As much as a 200-byte image holds: board and product area.
Bytes small_fru_image();

Bytes ddr4_image();
Bytes ddr5_image();

enum class Kind { board, ddr4, ddr5 };

/// A server of `count` components of one kind. FRU ids count from 1 to 255 and then begin again.
void set_server(std::size_t count, Kind kind, const Bytes& image);

/// set_server() and a new cache over it.
void create_cache(std::size_t count, Kind kind, const Bytes& image);

/// As many entries as the log holds, all with a right CRC.
inline constexpr std::size_t most_entries = 250;

/// False where the log cannot be written: outside a private root.
bool write_log(std::size_t entries);

/// The record of the n-th entry.
ComponentVpdRecord log_entry(std::size_t n);

}  // namespace vpdd::bench
