// SPDX-License-Identifier: Apache-2.0
// A platform of next to no cost: prepared answers, and log and trace lines that nobody formats. What is measured is the
// library.
#pragma once

#include <cstdint>
#include <vector>

#include "orva_vpdd.h"

namespace vpdd::bench {

using Bytes = std::vector<uint8_t>;

/// Requests that reached the IPMI stack since the program began.
extern uint64_t ipmi_requests;

/// What the IPMI stack answers for a FRU.
void set_fru(uint8_t fru_id, Bytes image);

/// The SDR repository, record after record.
void set_repository(std::vector<Bytes> records);

/// What the SMBIOS store hands out.
void set_smbios(SmbiosTable* table);

}  // namespace vpdd::bench
