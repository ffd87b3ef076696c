// SPDX-License-Identifier: Apache-2.0
#include "daemon/requests.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <span>

namespace vpdd::daemon {

namespace {

constexpr std::size_t most_words = 3;
constexpr uint32_t highest_fru_id = 255;
constexpr std::size_t longest_image_name = 64;

bool is_printable(char character) { return character >= ' ' && character <= '~'; }

template <class Number>
bool parse_number(std::string_view text, Number& number) {
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    return error == std::errc() && end == text.data() + text.size();
}

using Arguments = std::span<const std::string_view>;

bool parse_nothing(Arguments arguments, Request&) { return arguments.empty(); }

bool parse_component(Arguments arguments, Request& request) {
    return arguments.size() == 1 && parse_number(arguments[0], request.fru_id) && request.fru_id <= highest_fru_id;
}

bool parse_machine(Arguments arguments, Request& request) {
    if (arguments.empty()) return true;
    request.subject = Subject::oem_machine;
    return arguments.size() == 1 && arguments[0] == "oem";
}

bool parse_firmware(Arguments arguments, Request& request) {
    if (arguments.size() != 1 || arguments[0].size() > longest_image_name) return false;
    request.image_name = arguments[0];
    return true;
}

bool parse_changes(Arguments arguments, Request& request) {
    if (arguments.empty() || !parse_number(arguments[0], request.sequence)) return false;
    if (arguments.size() == 1) return true;
    return arguments.size() == 2 && parse_number(arguments[1], request.wait) && request.wait <= VPDD_LONGEST_WAIT;
}

struct Row {
    std::string_view word;
    Subject subject;
    bool is_privileged;
    bool (*parse)(Arguments, Request&);
};

constexpr std::array rows{
    Row{"status", Subject::status, false, parse_nothing},
    Row{"components", Subject::components, false, parse_nothing},
    Row{"component", Subject::component, false, parse_component},
    Row{"machine", Subject::machine, false, parse_machine},
    Row{"log", Subject::log, false, parse_nothing},
    Row{"firmware", Subject::firmware, false, parse_firmware},
    Row{"changes", Subject::changes, false, parse_changes},
    Row{"refresh", Subject::refresh, true, parse_nothing},
    Row{"clean-log", Subject::clean_log, true, parse_nothing},
};

/// Words between single blanks. @return their number; 0: too many, or an empty one
std::size_t split(std::string_view text, std::array<std::string_view, most_words>& words) {
    for (std::size_t count = 0; count < words.size(); ++count) {
        const std::size_t end = text.find(' ');
        words[count] = text.substr(0, end);
        if (words[count].empty()) return 0;
        if (end == std::string_view::npos) return count + 1;
        text.remove_prefix(end + 1);
    }
    return 0;
}

}  // namespace

VpddReply parse_request(std::string_view text, Request& request) {
    if (!std::ranges::all_of(text, is_printable)) return VPDD_REPLY_MALFORMED;
    std::array<std::string_view, most_words> words;
    const std::size_t count = split(text, words);
    if (count == 0) return VPDD_REPLY_MALFORMED;
    const auto* const row = std::ranges::find(rows, words[0], &Row::word);
    if (row == rows.end()) return VPDD_REPLY_UNKNOWN;
    request.subject = row->subject;
    return row->parse(std::span(words).subspan(1, count - 1), request) ? VPDD_REPLY_OK : VPDD_REPLY_MALFORMED;
}

bool is_privileged(Subject subject) {
    const auto* const row = std::ranges::find(rows, subject, &Row::subject);
    return row != rows.end() && row->is_privileged;
}

bool may_change(const ucred& peer) { return peer.uid == 0 || peer.uid == geteuid(); }

}  // namespace vpdd::daemon
