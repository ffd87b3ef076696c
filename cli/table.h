// SPDX-License-Identifier: Apache-2.0
// Tables and lists of named values for people, on a terminal or in a page. Every text handed in is made displayable
// here.
#pragma once

#include <iosfwd>
#include <string>
#include <vector>

#include "cli/terminal.h"

namespace vpdd::cli {

enum class Align { left, right };

struct Column {
    std::string heading;
    Align align = Align::left;
    bool begins_block = false;  ///< where to break when the whole table is wider than the terminal
};

/**
 * Rows under headings. A column without any value is left out. A table that is too wide is printed in blocks, one below
 * the other, each led by the key columns, so that nothing is cut.
 */
class Table {
public:
    Table() = default;
    Table(std::vector<Column> columns, std::size_t key_columns);

    void add(const std::vector<std::string>& row);
    /// A heading for the rows that follow.
    void add_group(const std::string& heading);
    bool empty() const { return rows_.empty(); }
    void print(std::ostream& out, const Style& style) const;
    void write_html(std::ostream& out) const;

private:
    using Block = std::vector<std::size_t>;

    struct Row {
        std::vector<std::string> cells;
        std::string group;  ///< heading in front of the row; empty: the row belongs to the group before
    };

    Block used_columns() const;
    std::vector<Block> blocks(std::size_t width) const;
    std::size_t block_width(const Block& block) const;
    std::vector<std::size_t> block_widths(const Block& block, const Style& style) const;
    bool adds_to(const Row& row, const Block& block) const;
    void print_block(std::ostream& out, const Block& block, bool is_first, const Style& style) const;
    void print_row(std::ostream& out, const Block& block, const std::vector<std::size_t>& widths, const Row& row) const;
    void write_html_row(std::ostream& out, const Block& block, const Row& row) const;
    std::string line_of(const Block& block, const std::vector<std::size_t>& widths,
                        const std::vector<std::string>& cells) const;

    std::vector<Column> columns_;
    std::size_t key_columns_ = 0;
    std::vector<Row> rows_;
    std::string next_group_;
    std::vector<std::size_t> widths_;  ///< 0: the column has no value
};

/// Named values, one below the other; a long value goes on under its beginning. Empty values are left out.
class ValueList {
public:
    void add(std::string_view name, std::string_view value);
    bool empty() const { return rows_.empty(); }
    void print(std::ostream& out, const Style& style) const;
    void write_html(std::ostream& out) const;

private:
    struct Row {
        std::string name;
        std::string value;
    };
    std::vector<Row> rows_;
};

}  // namespace vpdd::cli
