// SPDX-License-Identifier: Apache-2.0
#include "smbios/lookup_log.h"

#include <unistd.h>

#include <cstdarg>
#include <cstdio>

#include "base/log_line.h"
#include "orva_vpdd.h"

int vpdd_smbios_debug = 0;

namespace vpdd {

namespace {

void write_line(int priority, const char* function, const char* format, va_list arguments) {
    char text[1024];  // callers' texts stand in some of these lines: a longer one is cut
    std::vsnprintf(text, sizeof text, format, arguments);
    log_text(priority, "pid=%d, %s() - ERROR:%s", getpid(), function, text);
}

}  // namespace

void lookup_error(int priority, const char* function, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    write_line(priority, function, format, arguments);
    va_end(arguments);
}

void lookup_debug(const char* function, const char* format, ...) {
    if (vpdd_smbios_debug == 0) return;
    va_list arguments;
    va_start(arguments, format);
    write_line(log_info, function, format, arguments);
    va_end(arguments);
}

}  // namespace vpdd
