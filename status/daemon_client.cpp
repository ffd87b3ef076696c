// SPDX-License-Identifier: Apache-2.0
#include <sys/socket.h>
#include <sys/un.h>

#include <cstdio>
#include <cstring>

#include "base/file_handle.h"
#include "orva_vpdd.h"
#include "platform/messages.h"

namespace {

constexpr char socket_path[] = "/tmp/vpdd.sock";

bool connect_to_daemon(int fd) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::memcpy(address.sun_path, socket_path, sizeof socket_path);
    static_assert(sizeof address == 110);
    return connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
}

}  // namespace

extern "C" int vpdd_read_component_data(const char* request, uint32_t* size_out, uint32_t /*reserved*/,
                                        uint32_t expected_size, void* buffer) {
    if (request == nullptr) return -1;
    const vpdd::ScopedFd fd(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    if (fd.get() < 0) {
        std::printf("%s - failed to create socket\n", __func__);
        return -1;
    }
    if (!connect_to_daemon(fd.get())) {
        std::printf("%s - failed to connect socket\n", __func__);
        return -1;
    }

    // The results of sending and receiving are deliberately not looked at: what does not come stays 0.
    pm_sent_data(fd.get(), request, static_cast<uint32_t>(std::strlen(request)));
    pm_sent_data(fd.get(), &expected_size, sizeof expected_size);
    uint32_t reply_word = 0;
    pm_read_data(fd.get(), &reply_word, sizeof reply_word);
    int32_t reply_size = 0;
    pm_read_data(fd.get(), &reply_size, sizeof reply_size);
    if (reply_size <= 0) return 0;

    pm_read_data(fd.get(), &reply_word, sizeof reply_word);
    const auto size = static_cast<uint32_t>(reply_size);
    pm_read_data(fd.get(), buffer, size);
    if (size != expected_size) std::printf("size is not matched");
    if (size_out != nullptr) *size_out = size;
    return 0;
}
