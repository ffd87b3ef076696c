// SPDX-License-Identifier: Apache-2.0
#include "cli/markup.h"

#include "cli/display_text.h"

namespace vpdd::cli {

std::string markup_text(std::string_view text) {
    std::string escaped;
    for (const char character : displayable(text)) {
        switch (character) {
            case '&':
                escaped += "&amp;";
                break;
            case '<':
                escaped += "&lt;";
                break;
            case '>':
                escaped += "&gt;";
                break;
            case '"':
                escaped += "&quot;";
                break;
            case '\'':
                escaped += "&#39;";
                break;
            default:
                escaped += character;
        }
    }
    return escaped;
}

}  // namespace vpdd::cli
