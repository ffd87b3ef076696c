// SPDX-License-Identifier: Apache-2.0
#include "cli/table.h"

#include <algorithm>
#include <iterator>
#include <ostream>
#include <utility>

#include "cli/display_text.h"

namespace vpdd::cli {

namespace {

constexpr std::size_t indentation = 2;
constexpr std::size_t gap = 2;
constexpr std::size_t narrowest_column = 12;

std::string padded(const std::string& text, std::size_t width, Align align) {
    const std::size_t used = display_width(text);
    const std::string blanks(used < width ? width - used : 0, ' ');
    return align == Align::left ? text + blanks : blanks + text;
}

std::string without_trailing_blanks(std::string line) {
    line.erase(line.find_last_not_of(' ') + 1);
    return line;
}

}  // namespace

Table::Table(std::vector<Column> columns, std::size_t key_columns)
    : columns_(std::move(columns)), key_columns_(key_columns), widths_(columns_.size(), 0) {}

void Table::add(const std::vector<std::string>& row) {
    rows_.push_back({{}, std::exchange(next_group_, {})});
    std::vector<std::string>& cells = rows_.back().cells;
    for (std::size_t column = 0; column < columns_.size(); ++column) {
        cells.push_back(displayable(row[column]));
        const std::size_t width = display_width(cells.back());
        if (width == 0) continue;
        widths_[column] = std::max({widths_[column], width, display_width(columns_[column].heading)});
    }
}

void Table::add_group(const std::string& heading) { next_group_ = displayable(heading); }

std::size_t Table::block_width(const Block& block) const {
    std::size_t width = indentation;
    for (const std::size_t column : block) width += widths_[column] + gap;
    return width - gap;
}

Table::Block Table::used_columns() const {
    Block used;
    for (std::size_t column = 0; column < columns_.size(); ++column) {
        if (widths_[column] > 0) used.push_back(column);
    }
    return used;
}

std::vector<Table::Block> Table::blocks(std::size_t width) const {
    const Block whole = used_columns();
    Block keys;
    std::ranges::copy_if(whole, std::back_inserter(keys), [&](std::size_t column) { return column < key_columns_; });
    if (block_width(whole) <= width) return {whole};

    std::vector<Block> result;
    Block block = keys;
    for (const std::size_t column : whole) {
        if (column < key_columns_) continue;
        Block longer = block;
        longer.push_back(column);
        const bool breaks = columns_[column].begins_block || block_width(longer) > width;
        if (breaks && block.size() > keys.size()) {
            result.push_back(block);
            longer = keys;
            longer.push_back(column);
        }
        block = longer;
    }
    result.push_back(block);
    return result;
}

void Table::print(std::ostream& out, const Style& style) const {
    bool first = true;
    for (const Block& block : blocks(style.width)) {
        if (!first) out << '\n';
        print_block(out, block, first, style);
        first = false;
    }
}

/// Whether a row has a value beside its keys.
bool Table::adds_to(const Row& row, const Block& block) const {
    return std::any_of(block.begin(), block.end(),
                       [&](std::size_t column) { return column >= key_columns_ && !row.cells[column].empty(); });
}

std::vector<std::size_t> Table::block_widths(const Block& block, const Style& style) const {
    std::vector<std::size_t> widths;
    for (const std::size_t column : block) widths.push_back(widths_[column]);
    // Only a block of one column beside the keys can still be too wide; its cells go on in further lines.
    const std::size_t total = block_width(block);
    if (total <= style.width) return widths;
    const std::size_t excess = total - style.width;
    widths.back() = std::max(narrowest_column, widths.back() > excess ? widths.back() - excess : 0);
    return widths;
}

std::string Table::line_of(const Block& block, const std::vector<std::size_t>& widths,
                           const std::vector<std::string>& cells) const {
    std::string line(indentation, ' ');
    for (std::size_t cell = 0; cell < block.size(); ++cell) {
        line += padded(cells[cell], widths[cell], columns_[block[cell]].align) + std::string(gap, ' ');
    }
    return without_trailing_blanks(line);
}

void Table::print_row(std::ostream& out, const Block& block, const std::vector<std::size_t>& widths,
                      const Row& row) const {
    std::vector<std::vector<std::string>> parts;
    std::size_t lines = 0;
    for (std::size_t cell = 0; cell < block.size(); ++cell) {
        parts.push_back(wrapped(row.cells[block[cell]], widths[cell]));
        lines = std::max(lines, parts.back().size());
    }
    for (std::size_t line = 0; line < lines; ++line) {
        std::vector<std::string> cells;
        cells.reserve(parts.size());
        for (const std::vector<std::string>& part : parts) cells.push_back(line < part.size() ? part[line] : "");
        out << line_of(block, widths, cells) << '\n';
    }
}

void Table::print_block(std::ostream& out, const Block& block, bool is_first, const Style& style) const {
    const std::vector<std::size_t> widths = block_widths(block, style);
    std::vector<std::string> headings;
    for (const std::size_t column : block) headings.push_back(columns_[column].heading);
    out << style.heading(line_of(block, widths, headings)) << '\n';

    std::string group;
    for (const Row& row : rows_) {
        if (!row.group.empty()) group = row.group;
        // The first block has shown that the row exists.
        if (!is_first && !adds_to(row, block)) continue;
        if (!group.empty()) out << std::string(indentation, ' ') << style.heading(std::exchange(group, {})) << '\n';
        print_row(out, block, widths, row);
    }
}

void ValueList::add(std::string_view name, std::string_view value) {
    if (value.empty()) return;
    rows_.push_back({displayable(name), displayable(value)});
}

void ValueList::print(std::ostream& out, const Style& style) const {
    std::size_t names = 0;
    for (const Row& row : rows_) names = std::max(names, display_width(row.name));
    const std::size_t margin = indentation + names + gap;
    const std::size_t room = std::max(narrowest_column, style.width > margin ? style.width - margin : 0);
    for (const Row& row : rows_) {
        std::string lead = std::string(indentation, ' ') + padded(row.name, names + gap, Align::left);
        for (const std::string& line : wrapped(row.value, room)) {
            out << lead << line << '\n';
            lead.assign(margin, ' ');
        }
    }
}

}  // namespace vpdd::cli
