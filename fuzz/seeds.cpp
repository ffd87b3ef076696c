// SPDX-License-Identifier: Apache-2.0
// Writes what the fuzzers start from: images of the builders, and the samples where there are any.
// usage: seeds FOLDER [SAMPLES]
#include <array>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <string_view>

#include "fuzz/answers.h"
#include "fuzz/module.h"
#include "fuzz/seal.h"
#include "host/images/fru_image.h"
#include "host/images/property_tlv.h"
#include "host/images/sdr_record.h"
#include "host/images/smbios_image.h"
#include "host/images/spd_image.h"

using namespace vpdd::fuzz;
namespace images = vpdd::images;
namespace fs = std::filesystem;

namespace {

Bytes operator+(Bytes front, const Bytes& back) {
    front.insert(front.end(), back.begin(), back.end());
    return front;
}

Bytes bytes_of(std::string_view text) { return Bytes(text.begin(), text.end()); }

class Seeds {
public:
    explicit Seeds(fs::path folder) : folder_(std::move(folder)) {}

    void add(const std::string& target, const std::string& name, const Bytes& bytes) const {
        fs::create_directories(folder_ / target);
        std::ofstream(folder_ / target / name, std::ios::binary)
            .write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
    }

private:
    fs::path folder_;
};

// ---- FRU images

images::OemProcessor processor() {
    images::OemProcessor record;
    record.texts = {"Model X", "2.4 GHz", "28", "56", "t4", "t5", "t6", "t7", "t8", "t9", "stepping 3"};
    record.raw = images::Field::binary({1, 2, 3, 4, 5});
    record.trailing = {0xC1, 0, 0};
    return record;
}

Bytes processor_image() {
    return images::FruImage()
        .product({.manufacturer = "Zelt", .name = "CPU", .part = "Model X", .version = "v1", .serial = "S1"})
        .multirecord(images::OemProcessor::record_type, processor().data())
        .padded_to(256)
        .build();
}

Bytes power_supply_image() {
    return images::FruImage()
        .board({.manufacturer = "Acme",
                .product = "Supply",
                .serial = "SN-1",
                .part = "PN-1",
                .file_id = "fru.bin",
                .custom = {"LEVEL", "c2", "c3", "c4", "c5", "c6", "c7", "c8", images::Field::bcd_plus({1, 2}), "12.34"},
                .date = 9205 * 24 * 60})
        .build();
}

Bytes full_image() {
    return images::FruImage()
        .internal_use({1, 2, 3, 4})
        .chassis({.part = "chassis", .serial = "C1"})
        .board({.manufacturer = images::Field::six_bit("ZELT"), .serial = "B1"})
        .product({.manufacturer = "Zelt", .asset_tag = "tag", .custom = {"label", "value", "label 2", "value 2"}})
        .multirecord(0x02, {1, 2, 3})
        .multirecord(images::OemProcessor::record_type, processor().data())
        .build();
}

void add_frus(const Seeds& seeds) {
    seeds.add("fru_image", "processor", Bytes{0x00} + processor_image());
    seeds.add("fru_image", "processor_sealed", Bytes{0x80} + processor_image());
    seeds.add("fru_image", "power_supply", Bytes{0x81} + power_supply_image());
    seeds.add("fru_image", "full", Bytes{0x82} + full_image());
    seeds.add("fru_image", "large", Bytes{0x03} + images::FruImage().product({.version = "v"}).padded_to(700).build());
}

void add_multirecords(const Seeds& seeds) {
    const Bytes data = processor().data();
    const images::Multirecord other{.type = 0x02, .data = {1, 2, 3}};
    const images::Multirecord record{.type = images::OemProcessor::record_type, .data = data};
    seeds.add("multirecord", "list", Bytes{0} + other.bytes(false) + record.bytes(true));
    seeds.add("multirecord", "sealed", Bytes{1} + record.bytes(false) + other.bytes(false));
    seeds.add("multirecord", "data", Bytes{2} + data);
}

// ---- modules

template <class Image>
Image identified(Image image) {
    image.maker(0x80, 0xCE).dram_maker(0x80, 0x2C).serial(0x12AB00FF).made(2019, 42).part("PART-1").seal();
    return image;
}

void add_modules(const Seeds& seeds) {
    const Bytes ddr3 = identified(images::Ddr3Image().rdimm().ranks(2).ecc_bits(8)).build();
    const Bytes ddr4 = identified(images::Ddr4Image().rdimm().ranks(2).ecc_bits(8).dies(2)).build();
    const Bytes ddr5 = identified(images::Ddr5Image().rdimm().ranks(2).ecc_bits(8).speed(4800)).build();
    for (const uint8_t options : {0, 1, 4, 8}) {
        const Bytes front{options};
        const std::string name = "module_" + std::to_string(options);
        seeds.add("spd_ddr3", name, front + ddr3);
        seeds.add("spd_ddr4", name, front + ddr4);
        seeds.add("spd_ddr5", name, front + ddr5);
    }
    seeds.add("spd_ddr4", "persistent", Bytes{2} + identified(images::Ddr4Image().persistent()).build());
    seeds.add("spd_ddr5", "persistent", Bytes{2} + identified(images::Ddr5Image().persistent()).build());
}

// ---- SMBIOS

Bytes smbios_table() {
    return images::SmbiosImage()
        .bios("Zelt", "1.0", "01/01/2024")
        .memory_array(4, 1 << 20)
        .memory_device(images::MemoryDeviceImage()
                           .device_locator("DIMM 1")
                           .bank_locator("Bank 1")
                           .manufacturer("Acme")
                           .serial_number("12AB00FF")
                           .part_number("PART-1")
                           .size(0x4000)
                           .speed(3200)
                           .configured_memory_speed(2933))
        .memory_device(images::MemoryDeviceImage().device_locator("P2-DIMM 2").length(0x1B))
        .memory_device(images::MemoryDeviceImage().serial_number("FF").length(0x15))
        .table();
}

void add_tables(const Seeds& seeds) {
    const Bytes serial = bytes_of("80CE01194212AB00FF") + Bytes{0};
    const Bytes slot = bytes_of("DIMM 1") + Bytes{0};
    seeds.add("smbios", "serial", Bytes{0xFE, 0} + serial + smbios_table());
    seeds.add("smbios", "slot", Bytes{0xFC, 0} + slot + smbios_table());
    seeds.add("smbios", "count", Bytes{0x23, 0xFF} + slot + smbios_table());
}

// ---- answers

/// What a whole creation and update of a small server are answered, written down.
Bytes server_answers() {
    const Round round;
    world().frus = {{0, full_image()}, {1, processor_image()}, {2, power_supply_image()}};
    world().frus[3] = identified(images::Ddr4Image()).build();
    world().frus[4] = identified(images::Ddr5Image()).build();
    world().sdr = {images::full_sensor_record(1, "Ambient"),
                   images::FruLocator(0, "Planar").entity(0x07, 1),
                   images::FruLocator(1, "CPU 1").entity(0x03, 1),
                   images::FruLocator(2, "PSU 1").entity(0x0A, 1),
                   images::FruLocator(3, "DIMM 1").modifier(1).entity(0x20, 1),
                   images::FruLocator(4, "DIMM 2").modifier(1).entity(0x20, 2),
                   images::FruLocator(9, "Backplane").entity(0x0F, 1)};
    AnswerWriter writer;
    world().answer_sdr = [&](uint16_t record_id) {
        SdrAnswer answer = standard_sdr_answer(record_id);
        writer.add(answer);
        return answer;
    };
    world().answer_ipmi = [&](const IpmiCall& call) {
        IpmiAnswer answer = standard_ipmi_answer(call);
        writer.add(answer);
        return answer;
    };
    CreateComponentVPDCache();
    UpdateComponentVPDCache();
    return writer.stream();
}

/// One locator and one small image, over and over.
Bytes short_answers(uint8_t modifier, uint8_t entity) {
    AnswerWriter writer;
    writer.add(IpmiAnswer{.bytes = Bytes(16)});
    writer.add(IpmiAnswer{.bytes = {0xCB}});  // FRU 0 is not there
    writer.add(SdrAnswer{.record = images::FruLocator(1, "Board 1").modifier(modifier).entity(entity, 1)});
    for (int run = 0; run < 2; ++run) {
        writer.add(IpmiAnswer{.bytes = {0, 64, 0, 0}});
        writer.add(IpmiAnswer{.bytes = Bytes{0, 64} + images::FruImage().product({.serial = "S1"}).build()});
    }
    return writer.stream();
}

void add_answers(const Seeds& seeds) {
    const Bytes server = server_answers();
    seeds.add("ipmi_answers", "server", Bytes{0} + server);
    seeds.add("ipmi_answers", "server_again", Bytes{1} + server);
    seeds.add("ipmi_answers", "part", Bytes{0} + short_answers(0, 0x03));
    seeds.add("ipmi_answers", "parts", Bytes{1} + short_answers(0, 0x0A));
    seeds.add("ipmi_answers", "module", Bytes{0} + short_answers(1, 0x20));
}

// ---- activity log

Bytes log_entry(uint8_t fru_id, std::string_view name, uint8_t entity, int32_t status) {
    ComponentVpdRecord entry{};
    entry.fru_id = fru_id;
    name.copy(entry.name, sizeof entry.name - 1);
    std::strcpy(entry.serial_number, "S0");
    std::strcpy(entry.product_version, "v1");
    entry.entity_id = entity;
    entry.entity_instance = 1;
    entry.is_cached = 1;
    entry.status = status;
    entry.timestamp = 1700000000;
    Bytes bytes(sizeof entry);
    std::memcpy(bytes.data(), &entry, sizeof entry);
    seal_log(bytes);
    return bytes;
}

void add_logs(const Seeds& seeds) {
    const Bytes cpu = log_entry(1, "CPU 1", 0x03, 1);
    const Bytes fan = log_entry(1, "Fan 1", 0x1D, 1);
    const Bytes gone = log_entry(2, "Fan 2", 0x1D, 1);
    const Bytes absent = log_entry(1, "Fan 1", 0x1D, 0);
    seeds.add("activity_log", "empty", Bytes{0});
    seeds.add("activity_log", "cpu", Bytes{0x05} + cpu + gone);
    seeds.add("activity_log", "cpu_with_sensor", Bytes{0x25} + cpu + gone);
    seeds.add("activity_log", "cpu_without_sensor", Bytes{0x0D} + cpu);
    seeds.add("activity_log", "fan", Bytes{0x01} + fan);
    seeds.add("activity_log", "fan_back", Bytes{0x11} + fan + absent);
    seeds.add("activity_log", "fan_absent", Bytes{0x08} + fan);
    seeds.add("activity_log", "cut", Bytes{0x03} + fan + absent);
}

// ---- machine VPD

struct SystemField {
    uint8_t id;
    Bytes bytes;
};

Bytes machine_input(uint8_t options, const Bytes& image, const std::vector<SystemField>& fields) {
    Bytes input{options, static_cast<uint8_t>(image.size()), static_cast<uint8_t>(image.size() >> 8U)};
    input = input + image;
    for (const auto& [id, bytes] : fields) input = input + Bytes{id, static_cast<uint8_t>(bytes.size())} + bytes;
    return input;
}

/// Every field that is read, 32 bytes each unless it is a short one.
std::vector<SystemField> machine_fields(const Bytes& pos_id_extension) {
    std::vector<SystemField> fields{{1, {3, 0}},
                                    {4, {0x40}},
                                    {5, {1, 2}},
                                    {6, pos_id_extension},
                                    {7, {3, 4}},
                                    {18, bytes_of("4219")},
                                    {27, Bytes(16, 0xA5)},
                                    {40, {0, 0, 0x7E, 0xD9}},
                                    {48, bytes_of("Server")},
                                    {108, Bytes(64, 0x11)}};
    for (uint8_t id = 8; id <= 14; ++id) fields.push_back({id, bytes_of("  field " + std::to_string(id) + "  ")});
    for (uint8_t id = 19; id <= 26; ++id) fields.push_back({id, Bytes(8, id)});
    for (const uint8_t id : {46, 50, 51, 52, 53, 54, 56, 57}) fields.push_back({id, bytes_of("text")});
    for (uint8_t id = 60; id <= 65; ++id) fields.push_back({id, Bytes{0} + bytes_of("oem text") + Bytes(23)});
    for (uint8_t id = 81; id <= 86; ++id) fields.push_back({id, bytes_of("level")});
    return fields;
}

void add_machines(const Seeds& seeds) {
    seeds.add("machine_vpd", "standard", machine_input(0, full_image(), machine_fields({0, 0})));
    seeds.add("machine_vpd", "oem", machine_input(0, full_image(), machine_fields({0xFF, 0xEE})));
    seeds.add("machine_vpd", "one_size", machine_input(1, {}, machine_fields({0, 0})) + Bytes{0xFF, 0x03});
}

// ---- properties

/// A property and its value.
Bytes pair(std::string_view path, const Bytes& value) { return images::property_tlv(path) + value; }

IpmiAnswer value_answer(const Bytes& value) {
    return {.bytes = Bytes{0, 0xD9, 0x7E, 0, 0, 0, static_cast<uint8_t>(value.size())} + value};
}

/// Status 0: more pages follow; 9: the last one.
IpmiAnswer page_answer(uint8_t status, const Bytes& data) {
    const std::size_t length = 1 + data.size();
    return {.bytes = Bytes{0, status, static_cast<uint8_t>(length >> 8U), static_cast<uint8_t>(length), 1} + data};
}

void add_properties(const Seeds& seeds) {
    const Bytes text = images::property_tlv(" V1.2 ");
    const Bytes mac = images::property_tlv(std::array<uint8_t, 6>{2, 0, 0, 0, 0, 1});
    const Bytes words{0x24, 1, 0, 2, 0};
    const Bytes pairs = pair("/v2/a", text) + pair("/v2/b", mac);
    seeds.add("property", "tlvs", Bytes{0} + pairs);
    seeds.add("property", "words", Bytes{0} + words);

    AnswerWriter values;
    for (const Bytes& value : {text, words, mac, text, text}) values.add(value_answer(value));
    values.add(IpmiAnswer{.bytes = Bytes{0, 0xD9, 0x7E, 0, 0x80}});
    seeds.add("property", "values", Bytes{0x01} + values.stream());
    seeds.add("property", "backup", Bytes{0x05} + values.stream());
    seeds.add("property", "pending", Bytes{0x0D} + values.stream());
    seeds.add("property", "nexol", Bytes{0x15} + values.stream());

    AnswerWriter pages;
    for (int run = 0; run < 3; ++run) {
        pages.add(page_answer(0, pair("/ac/1", mac)));
        pages.add(page_answer(9, pair("/ac/2", mac)));
    }
    seeds.add("property", "pages", Bytes{0x02} + pages.stream());
    AnswerWriter nothing;
    nothing.add(page_answer(8, {}));
    nothing.add(page_answer(9, pair("/ac/1", text)));
    seeds.add("property", "nothing", Bytes{0x02} + nothing.stream());
}

// ---- samples

Bytes file_bytes(const fs::path& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

void add_samples(const Seeds& seeds, const fs::path& folder, const std::string& target, const Bytes& front) {
    std::error_code missing;
    for (const auto& entry : fs::directory_iterator(folder, missing)) {
        if (entry.path().extension() != ".bin") continue;
        seeds.add(target, "sample_" + entry.path().stem().string(), front + file_bytes(entry.path()));
    }
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 2) {
        std::fprintf(stderr, "usage: seeds FOLDER [SAMPLES]\n");
        return 2;
    }
    const Seeds seeds{argv[1]};
    add_frus(seeds);
    add_multirecords(seeds);
    add_modules(seeds);
    add_tables(seeds);
    add_answers(seeds);
    add_logs(seeds);
    add_machines(seeds);
    add_properties(seeds);
    if (argc > 2) {
        const fs::path samples = argv[2];
        add_samples(seeds, samples / "fru", "fru_image", {0x80});
        for (const char* generation : {"ddr3", "ddr4", "ddr5"}) {
            add_samples(seeds, samples / "spd" / generation, std::string("spd_") + generation, {0});
        }
        add_samples(seeds, samples / "smbios", "smbios", Bytes{0xFE, 0} + bytes_of("DIMM 1") + Bytes{0});
    }
    return 0;
}
