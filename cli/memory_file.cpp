// SPDX-License-Identifier: Apache-2.0
#include "cli/memory_file.h"

#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

namespace vpdd::cli {

MemoryFile::MemoryFile(std::span<const uint8_t> content) : descriptor_(memfd_create("image", MFD_CLOEXEC)) {
    if (descriptor_ < 0) throw std::system_error(errno, std::generic_category(), "memfd_create");
    if (write(descriptor_, content.data(), content.size()) != static_cast<ssize_t>(content.size())) {
        const int reason = errno;
        close(descriptor_);
        throw std::system_error(reason, std::generic_category(), "write");
    }
}

MemoryFile::~MemoryFile() { close(descriptor_); }

std::string MemoryFile::path() const { return "/proc/self/fd/" + std::to_string(descriptor_); }

}  // namespace vpdd::cli
