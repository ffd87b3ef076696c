// SPDX-License-Identifier: Apache-2.0
#undef _FORTIFY_SOURCE  // its syslog() is an inline function that would collide with ours
#include "daemon/messages.h"

#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <string_view>

namespace vpdd::daemon {

namespace {

constexpr std::size_t longest_line = 1024;  // bytes, prefix and line end included

std::atomic<int> least_severe_logged{LOG_NOTICE};

/// The service manager says so in the environment, and reads a priority in front of each line.
bool goes_to_journal() {
    static const bool answer = std::getenv("JOURNAL_STREAM") != nullptr;
    return answer;
}

/// The library gives dumps and other ordinary messages the highest severity; a journal would write them to every
/// terminal.
int shown_severity(int priority) { return LOG_PRI(priority) == LOG_EMERG ? LOG_DEBUG : LOG_PRI(priority); }

bool is_printable(char character) { return character >= ' ' && character <= '~'; }

void write_line(int severity, std::string_view text) {
    std::array<char, longest_line> line{};
    const int prefix = goes_to_journal() ? std::snprintf(line.data(), line.size(), "<%d>", severity)
                                         : std::snprintf(line.data(), line.size(), "vpdd: ");
    const auto begin = static_cast<std::size_t>(prefix);
    const std::size_t length = std::min(text.size(), line.size() - begin - 1);
    std::transform(text.begin(), text.begin() + static_cast<std::ptrdiff_t>(length), line.begin() + prefix,
                   [](char character) { return is_printable(character) ? character : '?'; });
    line[begin + length] = '\n';
    // One write for each line, so that threads do not mix theirs; nothing is to be done about a failure.
    [[maybe_unused]] const ssize_t written = write(STDERR_FILENO, line.data(), begin + length + 1);
}

void write_formatted(int priority, const char* format, va_list arguments) {
    std::array<char, longest_line> text{};
    std::vsnprintf(text.data(), text.size(), format, arguments);
    write_message(priority, text.data());
}

}  // namespace

void set_log_level(int least_severe) { least_severe_logged = least_severe; }

void write_message(int priority, const char* text) {
    const int severity = shown_severity(priority);
    if (text == nullptr || severity > least_severe_logged) return;
    const std::string_view whole(text);
    write_line(severity, whole.substr(0, whole.find_last_not_of(" \n") + 1));
}

}  // namespace vpdd::daemon

// NOLINTBEGIN(readability-inconsistent-declaration-parameter-name): the C library's names are reserved
extern "C" void vsyslog(int priority, const char* format, va_list arguments) {
    vpdd::daemon::write_formatted(priority, format, arguments);
}

extern "C" void syslog(int priority, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    vpdd::daemon::write_formatted(priority, format, arguments);
    va_end(arguments);
}
// NOLINTEND(readability-inconsistent-declaration-parameter-name)

// What a caller built with _FORTIFY_SOURCE calls instead.
extern "C" void __vsyslog_chk(int priority, int, const char* format, va_list arguments) {
    vpdd::daemon::write_formatted(priority, format, arguments);
}

extern "C" __attribute__((format(printf, 3, 4))) void __syslog_chk(int priority, int, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    vpdd::daemon::write_formatted(priority, format, arguments);
    va_end(arguments);
}
