// SPDX-License-Identifier: Apache-2.0
// Apart from the builders, so that only programs that name a manufacturer need the library and its list.
#include <strings.h>

#include <algorithm>
#include <iterator>
#include <stdexcept>

#include "host/images/spd_image.h"
#include "orva_vpdd.h"

namespace vpdd::images {

MakerId maker_named(std::string_view name) {
    const std::string wanted(name);
    const auto has_name = [&](const Jep106Row& row) { return strcasecmp(row.name, wanted.c_str()) == 0; };
    const auto* const found = std::find_if(std::begin(jep_106), std::end(jep_106), has_name);
    if (wanted.empty() || found == std::end(jep_106))
        throw std::invalid_argument("not in the list of manufacturers: '" + wanted + "'");
    return maker_id(found->bank, found->code);
}

}  // namespace vpdd::images
