// SPDX-License-Identifier: Apache-2.0
#include "fuzz/module.h"

#include "fuzz/input.h"
#include "fuzz/seal.h"
#include "host/images/sdr_record.h"
#include "host/images/smbios_image.h"

namespace vpdd::fuzz {

namespace {

/// Two devices: one for every slot number of the input's module, one for a serial number that a fuzzer finds.
SmbiosTable* smbios_table() {
    static images::ParsedSmbiosTable table(
        images::SmbiosImage()
            .memory_device(images::MemoryDeviceImage().device_locator("DIMM 2").serial_number("00"))
            .memory_device(images::MemoryDeviceImage().device_locator("DIMM 1").serial_number("01").speed(4800))
            .table());
    return table.get();
}

void set_type(Bytes& image, uint8_t options, uint8_t type, uint8_t other_type) {
    if (image.size() < 3 || (options & 2U) != 0) return;
    image[2] = (options & 0x0CU) != 0 ? other_type : type;
    if ((options & 4U) != 0) image[0] = '#';
    if ((options & 8U) != 0) image[0] = '0';
}

/// The handlers take 1024 bytes for granted, in a block of exactly that size.
void handle(Bytes image) {
    image.resize(1024);
    SpdInfo record{};
    require(vpdd_Handle_DDR4_SPD(image.data(), &record) == 0, "the DDR4 handler failed");
    vpdd_print(&record);
    require(vpdd_Handle_DDR5_SPD(image.data(), &record) == 0, "the DDR5 handler failed");
    vpdd_print(&record);

    const char* name = nullptr;
    parse_manufacturer_id(image.data(), 1024, &name);
    const int32_t crc = 0;
    check_spd_crc(image.data(), 1024, &crc);
}

}  // namespace

void decode_module(std::span<const uint8_t> bytes, uint8_t type, uint8_t other_type) {
    Input input(bytes);
    const uint8_t options = input.byte();
    const auto rest = input.rest();
    Bytes image(rest.begin(), rest.end());
    set_type(image, options, type, other_type);
    if ((options & 1U) != 0) seal_spd(image);

    Round round;
    handle(image);
    world().smbios = smbios_table();
    world().frus[1] = std::move(image);
    world().sdr = {images::FruLocator(1, "DIMM 1").modifier(1).entity(0x20, 1)};
    round.create();
    cached_records();
    UpdateComponentVPDCache();
    cached_records();
}

}  // namespace vpdd::fuzz
