// SPDX-License-Identifier: Apache-2.0
// The system-VPD storage device: numbered fields, and the bytes that they lie in.
#pragma once

#include <mutex>

#include "host/description.h"

namespace vpdd::host {

/// The device's content from the description's "machine". @throws DescriptionError
SystemVpdImage system_vpd_image(const Json& machine);

/// The device at work. Writes last until the server is closed.
class SystemVpd {
public:
    explicit SystemVpd(SystemVpdImage image) : image_(std::move(image)) {}

    /// 0 for an unknown field.
    static uint32_t field_size(uint32_t id);
    bool read_field(uint32_t id, std::span<uint8_t> out) const;
    bool read(uint32_t offset, std::span<uint8_t> out) const;
    bool write(uint32_t offset, std::span<const uint8_t> bytes);

private:
    bool holds(uint32_t offset, std::size_t length) const;

    mutable std::mutex mutex_;
    SystemVpdImage image_;
};

}  // namespace vpdd::host
