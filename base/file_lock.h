// SPDX-License-Identifier: Apache-2.0
// Whole-file write locks between processes (fcntl record locks: closing any descriptor of the file in the same process
// releases them).
#pragma once

namespace vpdd {

/// Opens a file that exists and is a regular one: neither a symbolic link nor a pipe that somebody planted in a
/// world-writable folder is followed or waited for. The descriptor, or -1 with `errno`.
int open_plain_file(const char* path, int flags);

/// Waits for the lock of the file at `path`. `*fd` receives the descriptor, -1 when locking failed, and is left alone
/// when the file cannot be opened. The result of locking, negative on failure.
int lock_file(const char* path, int* fd);

/// The same, but fails where another process does not release the lock within a second.
int lock_file_bounded(const char* path, int* fd);

/// Releases the lock and closes the descriptor; the result of closing.
int unlock_file(int fd);

}  // namespace vpdd
