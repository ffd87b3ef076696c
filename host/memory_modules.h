// SPDX-License-Identifier: Apache-2.0
// A memory module of the description: what its SPD device and the host's SMBIOS table say of it.
#pragma once

#include "host/document.h"
#include "host/images/smbios_image.h"

namespace vpdd::host {

/// @param place of `dimm` in the description @throws DescriptionError
Bytes spd_image(const Json& dimm, const Json::json_pointer& place);

images::MemoryDeviceImage memory_device(const Json& dimm, uint32_t slot);
/// Whether the host's firmware did not find the module.
bool is_unknown_to_smbios(const Json& dimm);

}  // namespace vpdd::host
