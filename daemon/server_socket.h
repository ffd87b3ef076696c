// SPDX-License-Identifier: Apache-2.0
// The socket at its fixed path, in a folder where everybody may put files.
#pragma once

#include <sys/stat.h>

#include <stdexcept>
#include <string>

#include "base/file_handle.h"

namespace vpdd::daemon {

class SocketError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/**
 * The right to serve a path, for as long as the object lives. It stands in a locked file beside the socket, so that it
 * outlives the removal of the socket and ends with the process.
 */
class SocketLock {
public:
    /// @throws SocketError
    explicit SocketLock(const std::string& socket_path);
    ~SocketLock() { remove(); }
    SocketLock(const SocketLock&) = delete;
    SocketLock& operator=(const SocketLock&) = delete;

    /// Only at the end: the file must not be made anew while somebody still holds it.
    void remove() const;

private:
    const std::string path_;
    const vpdd::ScopedFd fd_;
};

/**
 * Listens at a path, alone: the caller holds its lock. The socket that a dead daemon left is replaced; a live daemon's,
 * and whatever else is in its place, stays.
 */
class ServerSocket {
public:
    /**
     * @param mode the socket's permissions
     * @param group its group; empty: the process's own
     * @throws SocketError
     */
    ServerSocket(const std::string& path, uint32_t mode, const std::string& group);
    /// Removes the socket from its path, unless there is another one in its place.
    ~ServerSocket() { remove(); }
    ServerSocket(const ServerSocket&) = delete;
    ServerSocket& operator=(const ServerSocket&) = delete;

    int fd() const { return fd_.get(); }
    /// Somebody has removed the socket from its path, and nothing else is there.
    bool is_missing() const;
    void remove() const;

private:
    const std::string path_;
    const vpdd::ScopedFd fd_;
    struct stat identity_ {};
};

}  // namespace vpdd::daemon
