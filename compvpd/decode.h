// SPDX-License-Identifier: Apache-2.0
// Decoding of one component's image into its record.
#pragma once

#include <cstdint>

#include "ipmi/fru_image.h"
#include "orva_vpdd.h"

namespace vpdd {

/// A FRU image's areas: board, else product, then the multirecords.
void decode_fru_areas(const FruImage& image, ComponentVpdRecord& record);

/// What a run over all modules carries from one to the next.
struct DimmRun {
    SmbiosTable* smbios = nullptr;
    uint32_t ddr5_length = 0;  // bytes of a DDR5 image that are dumped; kept where an image does not say
};

/// False: the image is a DDR5 image without a size, which ends the run.
bool decode_dimm(const FruImage& image, ComponentVpdRecord& record, DimmRun& run);

/// Looks at what a failed read left in the image.
void note_failed_dimm_read(const FruImage& image, ComponentVpdRecord& record);

}  // namespace vpdd
