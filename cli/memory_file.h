// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <span>
#include <string>

namespace vpdd::cli {

/// A file that exists in memory only, for what wants to be told a path. Throws std::system_error.
class MemoryFile {
public:
    explicit MemoryFile(std::span<const uint8_t> content);
    ~MemoryFile();
    MemoryFile(const MemoryFile&) = delete;
    MemoryFile& operator=(const MemoryFile&) = delete;

    /// Valid in this process, as long as the object lives.
    std::string path() const;

private:
    int descriptor_;
};

}  // namespace vpdd::cli
