// SPDX-License-Identifier: Apache-2.0
#include <syslog.h>

#include <cstdlib>

#include "base/log_line.h"
#include "orva_vpdd.h"
#include "platform/configuration.h"

using namespace vpdd;

namespace {

constexpr char platform_id_variable[] = "tarn_var_int_platform_id";

/// A decimal number in the environment; 0 when it is unset.
long environment_number(const char* name) {
    const char* const text = std::getenv(name);
    return text != nullptr ? std::strtol(text, nullptr, 10) : 0;
}

/// From hardware revision 7 on two platforms have other ids.
void renumber_platforms(long hardware_revision) {
    if (hardware_revision <= 6) return;
    platMemSlots[2].platform_id = 0x0050002F;
    platMemSlots[3].platform_id = 0x00500030;
}

/// Deliberate: revision 1 and those above 9, so that 2 to 9 are boards without the variant.
bool is_variant(long hardware_revision) { return hardware_revision == 1 || hardware_revision > 9; }

uint32_t by_socket_count(uint32_t platform_id) {
    switch (environment_number("VSK_NUM_SOCKETS")) {
        case 4:
            return 0x04500076;
        case 6:
            return 0x06500076;  // deliberate: no row has this id
        case 2:
            return 0x02500076;
        default:
            return platform_id;
    }
}

uint32_t adjusted(uint32_t platform_id, long hardware_revision) {
    switch (platform_id) {
        case 0x00500072:
            return is_variant(hardware_revision) ? 0x01500072 : platform_id;
        case 0x00500071:
            return is_variant(hardware_revision) ? 0x01500071 : platform_id;
        case 0x00500076:
            return by_socket_count(platform_id);
        default:
            return platform_id;
    }
}

}  // namespace

extern "C" DimmSlotMapRef* GetMemSlot(void) {
    const long hardware_revision = environment_number("hw_rev");
    renumber_platforms(hardware_revision);

    int32_t stored_id = 0;
    if (tarn_config_get_int(platform_id_variable, &stored_id) == 0) {
        log_text(LOG_ERR, "GET TARN VAR[%s] FAIL\n", platform_id_variable);
        return nullptr;
    }
    const uint32_t platform_id = adjusted(static_cast<uint32_t>(stored_id), hardware_revision);
    for (PlatMemSlot& row : platMemSlots) {
        if (row.platform_id == platform_id) return &row.map;
    }
    log_text(LOG_ERR, "MISMATCH PLATFORM[%08x]\n", platform_id);
    return nullptr;
}
