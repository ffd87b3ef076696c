// SPDX-License-Identifier: Apache-2.0
// The Memory Device structure (SMBIOS type 17) as the store keeps it: bytes from the host, read by field.
#pragma once

#include <cstdint>

namespace vpdd {

inline constexpr uint8_t memory_device_type = 17;

/// Where a field lies in the formatted area, in bytes.
struct MemoryDeviceField {
    uint8_t offset;
    uint8_t width;
};

/// The fields that the look-ups use, under their DMTF names (DSP0134, Memory Device).
namespace memory_device_field {
inline constexpr MemoryDeviceField type{0x00, 1};
inline constexpr MemoryDeviceField length{0x01, 1};
inline constexpr MemoryDeviceField size{0x0C, 2};
inline constexpr MemoryDeviceField device_locator{0x10, 1};
inline constexpr MemoryDeviceField bank_locator{0x11, 1};
inline constexpr MemoryDeviceField memory_type{0x12, 1};
inline constexpr MemoryDeviceField speed{0x15, 2};
inline constexpr MemoryDeviceField manufacturer{0x17, 1};
inline constexpr MemoryDeviceField serial_number{0x18, 1};
inline constexpr MemoryDeviceField asset_tag{0x19, 1};
inline constexpr MemoryDeviceField part_number{0x1A, 1};
inline constexpr MemoryDeviceField configured_memory_speed{0x20, 2};
}  // namespace memory_device_field

/// A view of one structure: the formatted area and the string set behind it, which ends with two NULs.
class MemoryDevice {
public:
    explicit MemoryDevice(const uint8_t* raw) : raw_(raw) {}

    uint8_t type() const { return raw_[memory_device_field::type.offset]; }

    // A field that an older, shorter structure lacks reads as 0: the bytes at its offset belong to the string set.
    uint8_t byte(MemoryDeviceField field) const;
    uint16_t word(MemoryDeviceField field) const;

    /// The string of a number, counted from 1; null for number 0 and when the set ends before the string.
    const char* string(uint8_t number) const;

private:
    uint8_t length() const { return raw_[memory_device_field::length.offset]; }
    bool holds(MemoryDeviceField field) const { return field.offset + field.width <= length(); }

    const uint8_t* raw_;
};

}  // namespace vpdd
