// SPDX-License-Identifier: Apache-2.0
// What creation and update do alike on their way through all components.
#pragma once

#include "ipmi/fru_image.h"
#include "orva_vpdd.h"

namespace vpdd {

/// One run over all components.
struct Run {
    const char* function;  // the operation that messages name
    SmbiosTable* smbios = nullptr;
    uint32_t ddr5_length = 0;  // bytes of a DDR5 image that are dumped; carries over where an image does not say
};

/// Takes what does not change from the locator: FRU id, entity and instance.
void set_address(ComponentVpdNode& node);

/// False for formats that are not read, which is logged; processor cartridges are marked as such.
bool is_handled_format(const Run& run, ComponentVpdNode& node);

enum class Preparation { ready, no_memory, size_unreadable };

/// An image ready to be read, and why not otherwise.
struct PreparedImage {
    Preparation state = Preparation::ready;
    int size_result = 0;  // of the request for the size
    uint32_t size = 0;
    FruImage image;
};

/// `mark` ends the messages about missing memory.
PreparedImage prepare_image(const Run& run, uint8_t fru_id, const char* mark);

}  // namespace vpdd
