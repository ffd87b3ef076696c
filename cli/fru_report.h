// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <iosfwd>
#include <string>

#include "cli/fru_contents.h"
#include "cli/json_output.h"
#include "cli/terminal.h"

namespace vpdd::cli {

void print_fru(std::ostream& out, const FruContents& contents, const std::string& file, const Style& style);
Json fru_json(const FruContents& contents, const std::string& file);

}  // namespace vpdd::cli
