// SPDX-License-Identifier: Apache-2.0
#undef _FORTIFY_SOURCE  // a program that interposes syslog() finds the call under that name
#include "base/log_line.h"

#include <syslog.h>
#include <unistd.h>

#include <cstdarg>
#include <cstdio>

#include "orva_vpdd.h"
#include "platform/debug_trace.h"

namespace vpdd {

namespace {

/// A formatted text; the longest that the library writes through these functions fits.
class Text {
public:
    Text(const char* format, va_list arguments) { std::vsnprintf(characters_, sizeof characters_, format, arguments); }
    const char* c_str() const { return characters_; }

private:
    char characters_[2048];
};

}  // namespace

void log_line(int priority, const char* function, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    const Text text(format, arguments);
    va_end(arguments);
    syslog(priority, "pid=%d, %s - %s", getpid(), function, text.c_str());
}

void log_spaced_line(int priority, const char* function, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    const Text text(format, arguments);
    va_end(arguments);
    syslog(priority, "pid = %d, %s - %s", getpid(), function, text.c_str());
}

void log_located(int priority, const char* function, int line, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    const Text text(format, arguments);
    va_end(arguments);
    syslog(priority, "pid=%d, tid=%d, %s(%d) - %s", getpid(), gettid(), function, line, text.c_str());
}

void trace_line(TraceLevel level, const char* function, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    const Text text(format, arguments);
    va_end(arguments);
    log_debug_log(trace_file, static_cast<int>(level), "[%s]:%s", function, text.c_str());
}

}  // namespace vpdd
