// SPDX-License-Identifier: Apache-2.0
// Checks a JSON document against a JSON Schema (draft 7), as far as the schema of server descriptions uses it.
#pragma once

#include <nlohmann/json.hpp>
#include <optional>
#include <string>

namespace vpdd::host {

struct SchemaProblem {
    nlohmann::json::json_pointer place;
    std::string reason;
};

/// The first thing in the document that the schema forbids.
/// @throws std::logic_error for a schema with a keyword that is not known here
std::optional<SchemaProblem> schema_problem(const nlohmann::json& document, const nlohmann::json& schema);

}  // namespace vpdd::host
