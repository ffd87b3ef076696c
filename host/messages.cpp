// SPDX-License-Identifier: Apache-2.0
// Messages between processes, software events and shell commands.
#include "platform/messages.h"

#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <type_traits>

#include "host/server.h"

namespace vpdd::host {

namespace {

/// Moves all bytes with read() or write(). @return `length`, or -1 when the other side ended or failed
template <class Byte, class Operation>
int move_all(Operation operation, int fd, Byte* bytes, uint32_t length) {
    uint32_t moved = 0;
    while (moved < length) {
        const ssize_t count = operation(fd, bytes + moved, length - moved);
        if (count < 0 && errno == EINTR) continue;
        if (count <= 0) return -1;
        moved += static_cast<uint32_t>(count);
    }
    return static_cast<int>(length);
}

}  // namespace

}  // namespace vpdd::host

extern "C" int pm_sent_data(int fd, const void* data, uint32_t length) {
    return data == nullptr ? -1 : vpdd::host::move_all(write, fd, static_cast<const uint8_t*>(data), length);
}

extern "C" int pm_read_data(int fd, void* data, uint32_t length) {
    return data == nullptr ? -1 : vpdd::host::move_all(read, fd, static_cast<uint8_t*>(data), length);
}

extern "C" int sw_msg_dispatcher(int message, void*, int32_t argument0, int32_t argument1) {
    const auto server = vpdd::host::current_server();
    if (!server) return -1;
    return !server->store || server->store->add_event({"", message, argument0, argument1}) ? 0 : -1;
}

extern "C" int proc_system(const char* command) {
    return command == nullptr ? -1 : std::system(command);  // NOLINT(cert-env33-c): the function is there for this
}
