// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "host/document.h"

namespace vpdd::host {

/// The FRU information areas of the description as an image.
/// @param place of `areas` in the description @throws DescriptionError
Bytes area_image(const Json& areas, const Json::json_pointer& place);

}  // namespace vpdd::host
