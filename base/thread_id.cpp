// SPDX-License-Identifier: Apache-2.0
#include <sys/syscall.h>

#include "orva_vpdd.h"

extern "C" pid_t gettid() noexcept { return static_cast<pid_t>(syscall(SYS_gettid)); }
