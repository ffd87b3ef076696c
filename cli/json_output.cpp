// SPDX-License-Identifier: Apache-2.0
#include "cli/json_output.h"

#include <nlohmann/json.hpp>
#include <ostream>

namespace vpdd::cli {

void print_json(std::ostream& out, const Json& document) {
    out << document.dump(2, ' ', true, Json::error_handler_t::replace) << '\n';
}

}  // namespace vpdd::cli
