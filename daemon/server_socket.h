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
 * Listens at a path, alone. The socket that a dead daemon left is replaced; a live daemon's, and whatever else is in
 * its place, stays.
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
    void remove() const;

private:
    const std::string path_;
    const vpdd::ScopedFd fd_;
    struct stat identity_ {};
};

}  // namespace vpdd::daemon
