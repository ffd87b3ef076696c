// SPDX-License-Identifier: Apache-2.0
// Tells calls that come straight from the code of a shared object from those of a test and its doubles.
#pragma once

#include <link.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <string_view>

namespace vpdd::test {

/// The machine code of a loaded object, by its file name.
class ObjectCode {
public:
    /// `name` is a part of its file name that no other object has.
    constexpr explicit ObjectCode(std::string_view name) : name_(name) {}

    /// Looks the object up, if it is loaded.
    void find() { dl_iterate_phdr(look_at, this); }

    bool holds(const void* address) const {
        const auto place = reinterpret_cast<uintptr_t>(address);
        return place >= first_ && place < end_;
    }

private:
    static int look_at(dl_phdr_info* object, std::size_t, void* wanted) {
        auto& code = *static_cast<ObjectCode*>(wanted);
        if (std::string_view(object->dlpi_name).find(code.name_) == std::string_view::npos) return 0;
        for (std::size_t i = 0; i < object->dlpi_phnum; ++i) {
            const auto& segment = object->dlpi_phdr[i];
            if (segment.p_type != PT_LOAD || (segment.p_flags & PF_X) == 0) continue;
            code.first_ = object->dlpi_addr + segment.p_vaddr;
            code.end_ = code.first_ + segment.p_memsz;
        }
        return 1;
    }

    std::string_view name_;
    std::atomic<uintptr_t> first_{0}, end_{0};
};

inline constexpr std::string_view library_file = "liborva_vpdd.so";

}  // namespace vpdd::test
