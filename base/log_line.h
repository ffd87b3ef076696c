// SPDX-License-Identifier: Apache-2.0
// The system log and the trace file: prefixes and priorities have one home here, so that they are right everywhere.
#pragma once

#include <string_view>

namespace vpdd {

// Facility user (8) with a level, as the firmware's log rules expect them.
inline constexpr int log_emergency = 8;
inline constexpr int log_error = 11;
inline constexpr int log_warning = 12;
inline constexpr int log_info = 14;

/// Logs the text as it stands. It is syslog() under a name of this library's, so that the line is formatted once, by
/// whoever listens.
extern "C" void log_text(int priority, const char* format, ...) __asm__("syslog") __attribute__((format(printf, 2, 3)));

/// Logs "pid=%d, %s - " and the text.
void log_line(int priority, const char* function, const char* format, ...) __attribute__((format(printf, 3, 4)));

/// Logs "pid = %d, %s - " and the text.
void log_spaced_line(int priority, const char* function, const char* format, ...) __attribute__((format(printf, 3, 4)));

/// Logs "pid=%d, tid=%d, %s(%d) - " and the text.
void log_located(int priority, const char* function, int line, const char* format, ...)
    __attribute__((format(printf, 4, 5)));

inline constexpr char trace_file[] = "/tmp/vpdd_trace.log";

enum class TraceLevel : int { progress = 2, failure = 4 };

/// Writes "[%s]:" and the text to the trace file. Where a line is written for every component at every poll, the
/// platform's log_debug_log() is called with the whole format instead, so that nothing is formatted in vain.
void trace_line(TraceLevel level, const char* function, const char* format, ...) __attribute__((format(printf, 3, 4)));

}  // namespace vpdd
