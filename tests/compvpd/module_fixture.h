// SPDX-License-Identifier: Apache-2.0
// What the tests of memory modules in the component cache share.
#pragma once

#include <memory>

#include "cache_fixture.h"
#include "host/images/smbios_image.h"
#include "host/images/spd_image.h"

namespace vpdd::test {

inline constexpr uint8_t ddr5_bytes_256 = 0x10, ddr5_bytes_512 = 0x20, ddr5_bytes_1024 = 0x30,
                         ddr5_bytes_unknown = 0x40;

inline images::FruLocator module(uint8_t fru_id, std::string_view name) {
    return images::FruLocator(fru_id, name).modifier(dimm).entity(memory_device, fru_id);
}

inline Bytes ddr3() { return images::Ddr3Image().serial(0x12AB00FF).made(2015, 23).seal().build(); }
inline Bytes ddr4() { return images::Ddr4Image().serial(0x12345678).made(2019, 42).seal().build(); }
inline Bytes ddr5(uint8_t size_byte = ddr5_bytes_1024) {
    return images::Ddr5Image().serial(0xDEADBEEF).made(2023, 8).byte(0, size_byte).seal().build();
}

/// A DDR5 module without a size would end the run, as it should.
inline Bytes with_a_size(Bytes image) {
    if (image.size() > 2 && image[2] == 0x12 && (image[0] & 0x70) == 0) image[0] |= ddr5_bytes_256;
    return image;
}

class ModuleCacheTest : public ComponentCacheTest {
protected:
    /// A table with one memory device.
    void smbios(const char* locator, const char* serial) {
        smbios(images::SmbiosImage().memory_device(images::MemoryDeviceImage()
                                                       .device_locator(locator)
                                                       .serial_number(serial)
                                                       .size(0x4321)
                                                       .speed(2666)
                                                       .configured_memory_speed(2400)));
    }
    void smbios(const images::SmbiosImage& image) {
        table_ = std::make_unique<images::ParsedSmbiosTable>(image.table());
        platform.smbios(table_->get());
    }
    SmbiosTable* table() const { return table_->get(); }

private:
    std::unique_ptr<images::ParsedSmbiosTable> table_;
};

inline bool is_cleared(const SpdInfo& spd_info) {
    const SpdInfo empty{};
    return std::memcmp(&spd_info, &empty, sizeof empty) == 0;
}

}  // namespace vpdd::test
