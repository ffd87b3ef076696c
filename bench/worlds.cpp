// SPDX-License-Identifier: Apache-2.0
#include "bench/worlds.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

#include "host/images/fru_image.h"
#include "host/images/sdr_record.h"
#include "host/images/smbios_image.h"
#include "host/images/spd_image.h"

namespace vpdd::bench {

namespace {

constexpr char activity_log[] = "/flash/data0/component_activity.log";
constexpr uint32_t made = 13000000;  // minutes since 1996

images::FruImage board_and_product() {
    images::FruImage image;
    image.board({.manufacturer = "Orva Systems",
                 .product = "Mainboard 2S",
                 .serial = "MB0123456789",
                 .part = "SB27A01234",
                 .file_id = "FRU 1.0",
                 .custom = {"rev 03"},
                 .date = made});
    image.product({.manufacturer = "Orva Systems",
                   .name = "Server 2U",
                   .part = "7X06CTO1WW",
                   .version = "V2.1",
                   .serial = "J100ABCD",
                   .asset_tag = "RACK 12 UNIT 7"});
    return image;
}

Bytes processor_record() {
    images::OemProcessor processor;
    processor.texts = {"Processor 2.6 GHz", "2600", "16", "32"};
    return processor.data();
}

uint8_t modifier_of(Kind kind) { return kind == Kind::board ? 0 : 1; }
uint8_t entity_of(Kind kind) { return kind == Kind::board ? 0x07 : 0x20; }
const char* name_of(Kind kind) { return kind == Kind::board ? "Board " : "DIMM "; }

uint8_t fru_id_of(std::size_t position) { return static_cast<uint8_t>(position % 255 + 1); }

/// One memory device, which every module of a server is.
SmbiosTable* smbios_of_modules() {
    static const auto parsed = images::parse_smbios_table(images::SmbiosImage()
                                                              .memory_array(1, 64U << 20U)
                                                              .memory_device(images::MemoryDeviceImage()
                                                                                 .size(16384)
                                                                                 .device_locator("DIMM 1")
                                                                                 .speed(3200)
                                                                                 .serial_number("12345678")
                                                                                 .configured_memory_speed(2933))
                                                              .table());
    return parsed->get();
}

}  // namespace

Bytes fru_image(std::size_t size) {
    return board_and_product()
        .multirecord(images::OemProcessor::record_type, processor_record())
        .multirecord(0x00, Bytes(24, 0x11))  // power supply information
        .padded_to(size)
        .build();
}

Bytes small_fru_image() { return board_and_product().padded_to(200).build(); }

Bytes ddr4_image() {
    return images::Ddr4Image()
        .rdimm()
        .speed(3200)
        .ecc_bits(8)
        .cas_latencies({10, 11, 12, 13, 14, 15, 16, 17, 18, 19, 20, 21, 22, 24})
        .maker(0, 0xCE)
        .dram_maker(0, 0xCE)
        .made(2022, 14)
        .serial(0x12345678)
        .part("M393A2K43DB3-CWE")
        .seal()
        .build();
}

Bytes ddr5_image() {
    return images::Ddr5Image()
        .rdimm()
        .speed(4800)
        .ecc_bits(8)
        .maker(0, 0xAD)
        .dram_maker(0, 0xAD)
        .made(2023, 22)
        .serial(0x12345678)
        .part("HMCG84AGBRA190N")
        .seal()
        .build();
}

void set_server(std::size_t count, Kind kind, const Bytes& image) {
    std::vector<Bytes> locators;
    for (std::size_t i = 0; i < count; ++i) {
        const uint8_t id = fru_id_of(i);
        set_fru(id, image);
        locators.push_back(images::FruLocator(id, name_of(kind) + std::to_string(i % 100 + 1))
                               .modifier(modifier_of(kind))
                               .entity(entity_of(kind), static_cast<uint8_t>(i % 128)));
    }
    set_fru(0, small_fru_image());
    set_repository(images::numbered(locators));
    set_smbios(smbios_of_modules());
}

void create_cache(std::size_t count, Kind kind, const Bytes& image) {
    DestroyComponentVPDCache();
    set_server(count, kind, image);
    if (CreateComponentVPDCache() == 0) return;
    std::fputs("the cache cannot be created\n", stderr);
    std::exit(EXIT_FAILURE);
}

ComponentVpdRecord log_entry(std::size_t n) {
    ComponentVpdRecord entry{};
    entry.fru_id = fru_id_of(n);
    std::snprintf(entry.name, sizeof entry.name, "Board %zu", n % 100 + 1);
    std::snprintf(entry.serial_number, sizeof entry.serial_number, "MB%010zu", n);
    entry.entity_id = entity_of(Kind::board);
    entry.status = 1;
    entry.timestamp = 1700000000 + static_cast<int64_t>(n);
    entry.crc = calc_crc(reinterpret_cast<const uint8_t*>(&entry), offsetof(ComponentVpdRecord, crc));
    return entry;
}

bool write_log(std::size_t entries) {
    const std::unique_ptr<FILE, int (*)(FILE*)> file(std::fopen(activity_log, "w"), &std::fclose);
    if (file == nullptr) return false;
    for (std::size_t i = 0; i < entries; ++i) {
        const ComponentVpdRecord entry = log_entry(i);
        std::fwrite(&entry, sizeof entry, 1, file.get());
    }
    return true;
}

}  // namespace vpdd::bench
