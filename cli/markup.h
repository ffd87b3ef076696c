// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <string_view>

namespace vpdd::cli {

/// A displayable text as HTML and SVG spell it, in an element or in an attribute's quotes.
std::string markup_text(std::string_view text);

}  // namespace vpdd::cli
