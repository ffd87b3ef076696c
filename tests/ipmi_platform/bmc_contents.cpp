// SPDX-License-Identifier: Apache-2.0
#include "bmc_contents.h"

#include "host/images/fru_image.h"
#include "host/images/sdr_record.h"
#include "host/images/spd_image.h"
#include "samples.h"

namespace vpdd::test {

namespace {

using images::Bytes;
using images::Field;
using images::FruImage;
using images::FruLocator;

constexpr uint8_t processor = 3, system_board = 7, power_supply = 10, add_in_card = 11, memory_device = 32;
constexpr uint8_t processor_sensor_type = 0x07;
constexpr uint16_t present = 0x80;
constexpr uint32_t may_2024 = 14896800;  // minutes since 1996: 2024-04-28 00:00 UTC

Bytes board() {
    return FruImage()
        .chassis({.type = 0x17, .part = "CH-2U-24", .serial = "CH0000017", .custom = {"Rails included"}})
        .board({.manufacturer = "Example Systems",
                .product = "Main board",
                .serial = "MB24180042",
                .part = "700-12345-02",
                .file_id = "fru 1.4",
                .custom = {"Board revision C"},
                .date = may_2024})
        .product({.manufacturer = "Example Systems",
                  .name = "Rack server 2U",
                  .part = "RS2U-200",
                  .version = "B4",
                  .serial = "SN00020017",
                  .asset_tag = "ASSET-1042"})
        .padded_to(512)
        .build();
}

Bytes processor_image(const std::string& serial) {
    return FruImage()
        .product({.manufacturer = "Intel",
                  .name = "Processor",
                  .part = "CPU-8480",
                  .version = "Xeon 8480+",
                  .serial = serial})
        .padded_to(256)
        .build();
}

Bytes power_supply_image() {
    return FruImage()
        .board({.manufacturer = "Example Power",
                .product = "PSU 1100 W",
                .serial = "PS24180007",
                .part = "PSU-1100",
                .custom = {"AC 200-240 V"},
                .date = may_2024})
        .padded_to(256)
        .build();
}

Bytes image_with_bad_checksum() {
    return FruImage()
        .board({.manufacturer = "Example Systems",
                .product = "Riser",
                .serial = "RS24180009",
                .part = "700-22222-01",
                .date = may_2024,
                .end = {.checksum = uint8_t{0x5A}}})
        .padded_to(128)
        .build();
}

/// BCD plus is digits, two in a byte; 6-bit text has four characters in three.
Bytes image_with_packed_fields() {
    return FruImage()
        .board({.manufacturer = Field::six_bit("EXAMPLE SYSTEMS "),
                .product = "Front panel",
                .serial = Field::bcd_plus({0x12, 0x34, 0x56}),
                .part = Field::binary({0xCA, 0xFE, 0x01}),
                .date = may_2024})
        .padded_to(128)
        .build();
}

Bytes image_of_size(std::size_t size, const std::string& serial) {
    return FruImage()
        .board({.manufacturer = "Example", .product = "Card", .serial = serial, .part = "CARD-7", .date = may_2024})
        .padded_to(size)
        .build();
}

Bytes image_with_product_at_the_end() {
    return FruImage()
        .board({.manufacturer = "Example",
                .product = "Long card",
                .serial = "LC-2048",
                .part = "CARD-9",
                .date = may_2024})
        .multirecord(0xC1, Bytes(200, 0x11))
        .padded_to(2048)
        .build();
}

Bytes module() { return images::Ddr4Image().rdimm().part("M393A2K40DB3-CWE").serial(0x12345678).build(); }

/// The locators of some FRUs, in the order of their ids.
class Locators {
public:
    void add(uint8_t fru_id, const std::string& name, uint8_t entity, uint8_t modifier = 0) {
        records_.push_back(FruLocator(fru_id, name).entity(entity, ++instances_[entity]).modifier(modifier).build());
    }
    void add(Bytes record) { records_.push_back(std::move(record)); }
    std::vector<Bytes> records() const { return images::numbered(records_); }

private:
    std::map<uint8_t, uint8_t> instances_;
    std::vector<Bytes> records_;
};

Bytes processor_sensor(uint8_t number, const std::string& name) {
    Bytes record = images::full_sensor_record(number, name);
    constexpr std::size_t type = 12, reading_type = 13;  // bytes of the record, IPMI 2.0 table 43-1
    record[type] = processor_sensor_type;
    record[reading_type] = 0x6F;
    return record;
}

}  // namespace

Samples fru_samples() {
    constexpr std::size_t largest = 2048;  // the others are of these sizes, too
    Samples samples;
    uint8_t id = first_sample;
    for (const auto& path : sample_images("fru")) {
        Bytes image = file_bytes(path);
        if (image.size() > largest || id == fru_large) continue;
        samples.names[id] = path.stem();
        samples.images[id++] = std::move(image);
    }
    return samples;
}

SimulatedBmc large_server() {
    SimulatedBmc bmc{{{fru_board, board()},
                      {fru_processor, processor_image("CPU00001")},
                      {fru_power_supply, power_supply_image()},
                      {fru_bad_checksum, image_with_bad_checksum()},
                      {fru_module, module()},
                      {fru_packed, image_with_packed_fields()},
                      {fru_product_only, processor_image("CPU00002")},
                      {fru_small, image_of_size(64, "SM-64")},
                      {fru_large, image_with_product_at_the_end()}},
                     {},
                     {{processor_1_sensor, processor_sensor_type, present},
                      {processor_2_sensor, processor_sensor_type, 0},
                      {unscanned_sensor, processor_sensor_type, 0, false}}};
    Locators locators;
    locators.add(fru_board, "Main board", system_board);
    locators.add(processor_sensor(processor_1_sensor, "CPU 1"));
    locators.add(fru_processor, "CPU 1", processor);
    locators.add(fru_power_supply, "PSU 1", power_supply);
    locators.add(fru_bad_checksum, "Riser 1", add_in_card);
    locators.add(fru_module, "DIMM 1", memory_device, 1);
    locators.add(fru_absent, "PSU 2", power_supply);
    locators.add(fru_packed, "Front panel", add_in_card);
    locators.add(processor_sensor(processor_2_sensor, "CPU 2"));
    locators.add(fru_product_only, "CPU 2", processor);
    locators.add(processor_sensor(unscanned_sensor, "CPU 3"));
    locators.add(fru_small, "Card 1", add_in_card);
    for (const auto& [id, image] : fru_samples().images) {
        bmc.frus[id] = image;
        locators.add(id, "Sample " + std::to_string(id), add_in_card);
    }
    locators.add(fru_large, "Card 2", add_in_card);
    bmc.sdr = locators.records();
    return bmc;
}

SimulatedBmc small_server() {
    Locators locators;
    locators.add(fru_board, "Main board", system_board);
    locators.add(processor_sensor(processor_1_sensor, "CPU 1"));
    locators.add(fru_processor, "CPU 1", processor);
    return {{{fru_board, board()}, {fru_processor, processor_image("CPU00001")}},
            locators.records(),
            {{processor_1_sensor, processor_sensor_type, present}}};
}

}  // namespace vpdd::test
