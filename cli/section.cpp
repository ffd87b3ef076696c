// SPDX-License-Identifier: Apache-2.0
#include "cli/section.h"

#include <ostream>

#include "cli/display_text.h"
#include "cli/markup.h"

namespace vpdd::cli {

void Section::print(std::ostream& out, const Style& style) const {
    constexpr std::size_t note_width = 76;
    out << '\n' << style.heading(title) << '\n';
    if (!table.empty()) table.print(out, style);
    if (!table.empty() && !values.empty()) out << '\n';
    values.print(out, style);
    if (note.empty()) return;
    out << '\n';
    for (const std::string& line : wrapped(note, note_width)) out << "  " << line << '\n';
}

void Section::write_html(std::ostream& out) const {
    table.write_html(out);
    values.write_html(out);
    if (!note.empty()) out << "<p>" << markup_text(note) << "</p>\n";
}

}  // namespace vpdd::cli
