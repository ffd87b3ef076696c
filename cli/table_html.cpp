// SPDX-License-Identifier: Apache-2.0
// The same tables and lists in an HTML page.
#include <ostream>
#include <utility>

#include "cli/markup.h"
#include "cli/table.h"

namespace vpdd::cli {

namespace {

const char* align_attribute(Align align) { return align == Align::right ? " class=\"right\"" : ""; }

}  // namespace

void Table::write_html_row(std::ostream& out, const Block& block, const Row& row) const {
    out << "<tr>";
    for (const std::size_t column : block) {
        // The last key column names the row.
        const bool names_row = column + 1 == key_columns_;
        out << (names_row ? "<th scope=\"row\"" : "<td") << align_attribute(columns_[column].align) << '>'
            << markup_text(row.cells[column]) << (names_row ? "</th>" : "</td>");
    }
    out << "</tr>\n";
}

void Table::write_html(std::ostream& out) const {
    if (empty()) return;
    const Block block = used_columns();
    out << "<div class=\"table\"><table>\n<thead><tr>";
    for (const std::size_t column : block) {
        out << "<th scope=\"col\"" << align_attribute(columns_[column].align) << '>'
            << markup_text(columns_[column].heading) << "</th>";
    }
    out << "</tr></thead>\n";
    const char* next_body = "<tbody>\n";
    for (const Row& row : rows_) {
        if (&row == &rows_.front() || !row.group.empty()) out << std::exchange(next_body, "</tbody>\n<tbody>\n");
        if (!row.group.empty()) {
            out << "<tr class=\"kind\"><th scope=\"rowgroup\" colspan=\"" << block.size() << "\">"
                << markup_text(row.group) << "</th></tr>\n";
        }
        write_html_row(out, block, row);
    }
    out << "</tbody>\n</table></div>\n";
}

void ValueList::write_html(std::ostream& out) const {
    if (empty()) return;
    out << "<div class=\"table\"><table class=\"values\">\n<tbody>\n";
    for (const Row& row : rows_) {
        out << "<tr><th scope=\"row\">" << markup_text(row.name) << "</th><td>" << markup_text(row.value)
            << "</td></tr>\n";
    }
    out << "</tbody>\n</table></div>\n";
}

}  // namespace vpdd::cli
