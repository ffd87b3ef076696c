// SPDX-License-Identifier: Apache-2.0
#include "cli/hex_dump.h"

#include <algorithm>
#include <charconv>
#include <iterator>
#include <optional>
#include <sstream>
#include <string>
#include <utility>

#include "cli/display_text.h"

namespace vpdd::cli {

namespace {

using Bytes = std::vector<uint8_t>;
using Words = std::vector<std::string>;

/// The part of a line that holds bytes: no comment, and no column of characters at the end.
std::string bytes_part(std::string line) {
    line.erase(std::min(line.find_first_of("#|>"), line.size()));
    const std::size_t colon = line.find(": ");
    if (colon != std::string::npos) line.erase(std::min(line.find("  ", colon + 2), line.size()));
    return line;
}

Words words_of(const std::string& line) {
    std::istringstream words(line);
    return {std::istream_iterator<std::string>(words), {}};
}

std::string quoted(const std::string& word) {
    constexpr std::size_t enough = 20;
    return '"' + displayable(word.substr(0, enough)) + (word.size() > enough ? "...\"" : "\"");
}

std::string offset_text(std::size_t offset) { return hex_number(static_cast<uint32_t>(offset), 8); }

template <class Number>
std::optional<Number> number_of(std::string_view digits) {
    Number number = 0;
    const auto result = std::from_chars(digits.data(), digits.data() + digits.size(), number, 16);
    if (result.ec != std::errc() || result.ptr != digits.data() + digits.size()) return std::nullopt;
    return number;
}

/// What has been read of a dump, line by line. The errors are texts about the line.
class Dump {
public:
    explicit Dump(std::size_t most) : most_(most) {}

    void add_line(const std::string& line);
    /// Behind the last line.
    Bytes bytes() &&;

private:
    /// Not known before the first line that has bytes.
    enum class Offsets { unknown, none, with_colon, bare };

    static Offsets offsets_of(const Words& words);
    void begin_row_at(std::string offset);
    void repeat_row_up_to(std::size_t end);
    Bytes row_of(const Words& words) const;
    void append(const Bytes& row);
    void require_room(std::size_t size) const;

    std::size_t most_;
    Offsets offsets_ = Offsets::unknown;
    Bytes bytes_;
    Bytes row_;  ///< the last one
    bool is_repeated_ = false;
};

/// `xxd` puts a colon behind the offset; `hexdump` and `od` have more digits in it than in what follows.
Dump::Offsets Dump::offsets_of(const Words& words) {
    constexpr std::size_t fewest_digits = 6;
    const std::string& first = words.front();
    if (first.ends_with(':')) return Offsets::with_colon;
    const bool is_longer = words.size() > 1 && first.size() >= fewest_digits && first.size() > words[1].size();
    return is_longer ? Offsets::bare : Offsets::none;
}

void Dump::add_line(const std::string& line) {
    Words words = words_of(bytes_part(line));
    if (words.empty()) return;
    if (words == Words{"*"}) {
        if (row_.empty() || offsets_ == Offsets::none) throw UnreadableDump("there is no row that * could repeat");
        is_repeated_ = true;
        return;
    }
    if (offsets_ == Offsets::unknown) offsets_ = offsets_of(words);
    if (offsets_ != Offsets::none) {
        begin_row_at(words.front());
        words.erase(words.begin());
    }
    if (!words.empty()) append(row_of(words));
}

void Dump::begin_row_at(std::string offset) {
    const bool has_colon = offset.ends_with(':');
    if (has_colon != (offsets_ == Offsets::with_colon)) throw UnreadableDump("does not begin as the lines before it");
    if (has_colon) offset.pop_back();
    const auto place = number_of<uint32_t>(offset);
    if (!place) throw UnreadableDump(quoted(offset) + " is no offset");
    if (is_repeated_ && *place > bytes_.size()) return repeat_row_up_to(*place);
    if (is_repeated_ || *place != bytes_.size()) {
        throw UnreadableDump("offset " + offset_text(*place) + " where " + offset_text(bytes_.size()) + " follows");
    }
}

void Dump::repeat_row_up_to(std::size_t end) {
    require_room(end);
    const std::size_t begin = bytes_.size();
    bytes_.resize(end);
    for (std::size_t at = begin; at < end; ++at) bytes_[at] = row_[(at - begin) % row_.size()];
    is_repeated_ = false;
}

/// Groups of several bytes stand in the order of the bytes behind a colon and in no known one behind a bare offset:
/// `hexdump` without -C turns them round.
Bytes Dump::row_of(const Words& words) const {
    Bytes row;
    for (const std::string& word : words) {
        if (offsets_ == Offsets::bare && word.size() > 2) {
            throw UnreadableDump(quoted(word) + " is more than one byte, in an order of which nothing is known");
        }
        for (std::size_t position = 0; position < word.size(); position += 2) {
            const std::string_view digits = std::string_view(word).substr(position, 2);
            const auto byte = number_of<uint8_t>(digits);
            if (digits.size() != 2 || !byte) throw UnreadableDump(quoted(word) + " is no list of hexadecimal bytes");
            row.push_back(*byte);
        }
    }
    return row;
}

void Dump::append(const Bytes& row) {
    require_room(bytes_.size() + row.size());
    bytes_.insert(bytes_.end(), row.begin(), row.end());
    row_ = row;
}

void Dump::require_room(std::size_t size) const {
    if (size > most_) throw UnreadableDump("there are more than " + std::to_string(most_) + " bytes up to here");
}

Bytes Dump::bytes() && {
    if (is_repeated_) throw UnreadableDump("no offset behind * says up to where the row is repeated");
    if (bytes_.empty()) throw UnreadableDump("there are no bytes");
    return std::move(bytes_);
}

}  // namespace

std::vector<uint8_t> read_hex_dump(std::string_view text, std::size_t most) {
    Dump dump(most);
    std::istringstream lines{std::string(text)};
    std::size_t number = 0;
    try {
        for (std::string line; std::getline(lines, line);) {
            ++number;
            dump.add_line(line);
        }
        return std::move(dump).bytes();
    } catch (const UnreadableDump& error) {
        throw UnreadableDump("line " + std::to_string(number) + ": " + error.what());
    }
}

}  // namespace vpdd::cli
