// SPDX-License-Identifier: Apache-2.0
#include "base/file_lock.h"
#include "orva_vpdd.h"

extern "C" int vpdd_file_lock_wait(int* fd_out) { return vpdd::lock_file("/tmp/vpdd_lock", fd_out); }

extern "C" int vpdd_file_unlock(int fd) { return vpdd::unlock_file(fd); }
