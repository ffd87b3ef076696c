// SPDX-License-Identifier: Apache-2.0
// Each operation of the library once, between two marks, for count_instructions.py: under callgrind every mark writes
// what was executed since the one before. Without callgrind the program only runs them.
// usage: operations [--marks]           with marks for strace as well, writes to no file
//        operations --modules FOLDER    only writes the module images as files
#include <unistd.h>
#include <valgrind/callgrind.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <functional>
#include <string>
#include <string_view>

#include "bench/freeipmi_fru.h"
#include "bench/worlds.h"

namespace {

using namespace vpdd::bench;

constexpr uint32_t covered_bytes = 680;  // of an entry, by its CRC
constexpr uint32_t log_bytes = most_entries * sizeof(ComponentVpdRecord);

volatile uint32_t sink;  // keeps what nobody reads

bool has_strace_marks = false;

void mark_for_strace(const std::string& name) {
    constexpr int no_file = -1;
    if (has_strace_marks && write(no_file, name.data(), name.size()) < 0) return;  // as it should
}

/// Runs the operation once so that nothing happens for the first time, and once more to be counted.
void count(const std::string& name, const std::function<void()>& operation) {
    operation();
    CALLGRIND_START_INSTRUMENTATION;
    CALLGRIND_ZERO_STATS;
    mark_for_strace(name);
    operation();
    mark_for_strace("");
    CALLGRIND_DUMP_STATS_AT(name.c_str());
    CALLGRIND_STOP_INSTRUMENTATION;
}

void touch_each_byte(const Bytes& bytes) {
    uint32_t sum = 0;
    for (const uint8_t& byte : bytes) sum += *const_cast<const volatile uint8_t*>(&byte);
    sink = sum;
}

/// The requests alone that an update sends for a FRU.
void read_image(std::size_t size) {
    constexpr std::size_t chunk = 128;
    constexpr uint8_t fru_id = 1;
    uint8_t image[chunk];
    uint32_t told_size = 0;
    read_fru_size(fru_id, &told_size);
    for (std::size_t offset = 0; offset < size; offset += chunk) {
        read_fru(fru_id, static_cast<uint16_t>(offset), chunk, image);
    }
    sink = told_size;
}

void count_fru_decoding() {
    for (const std::size_t size : {256, 512, 2048}) {
        const Bytes image = fru_image(size);
        const std::string name = "fru." + std::to_string(size);
        create_cache(1, Kind::board, image);
        count(name, [] { UpdateComponentVPDCache(); });
        count("read." + name, [&] { read_image(size); });
        count("freeipmi." + name, [&] { decode_with_freeipmi(image); });
    }
}

void count_module_decoding() {
    const Bytes ddr4 = ddr4_image();
    const Bytes ddr5 = ddr5_image();
    SpdInfo info{};
    count("spd.ddr4", [&] { vpdd_Handle_DDR4_SPD(ddr4.data(), &info); });
    count("touch.ddr4", [&] { touch_each_byte(ddr4); });
    count("spd.ddr5", [&] { vpdd_Handle_DDR5_SPD(ddr5.data(), &info); });
    count("touch.ddr5", [&] { touch_each_byte(ddr5); });
    count("spd.crc16.126", [&] { sink = __crc16(ddr4.data(), 126); });
    create_cache(1, Kind::ddr4, ddr4);
    count("update.ddr4", [] { UpdateComponentVPDCache(); });
    create_cache(1, Kind::ddr5, ddr5);
    count("update.ddr5", [] { UpdateComponentVPDCache(); });
}

void count_checksums() {
    const Bytes bytes(log_bytes, 0x5A);
    count("crc32.680", [&] { sink = calc_crc(bytes.data(), covered_bytes); });
    count("crc32.378000", [&] { sink = calc_crc(bytes.data(), log_bytes); });
}

void look_up(uint8_t fru_id) {
    ComponentVpdRecord record;
    uint32_t length = 0;
    GetComponentVPDByFruID(&length, sizeof record, &fru_id, &record);
    sink = length;
}

void count_look_ups() {
    const Bytes image = fru_image(512);
    create_cache(255, Kind::board, image);
    count("lookup.first", [] { look_up(1); });
    count("lookup.middle", [] { look_up(128); });
    count("lookup.last", [] { look_up(254); });  // 255 asks for the first
    count("lookup.missing", [] {
        ComponentVpdRecord* record = nullptr;
        FindFRURecord(0, &record);
    });
    for (const std::size_t records : {256, 2048}) {
        create_cache(records, Kind::board, image);
        Bytes out(records * sizeof(ComponentVpdRecord));
        count("bulk." + std::to_string(records), [&] {
            uint32_t length = 0;
            GetComponentVPD_KIVA(&length, static_cast<uint32_t>(out.size()), nullptr, out.data());
        });
    }
}

void count_creation() {
    const Bytes image = fru_image(256);
    for (const std::size_t frus : {64, 256, 1024, 2048}) {
        create_cache(frus, Kind::board, image);
        count("create." + std::to_string(frus), [] {
            DestroyComponentVPDCache();
            CreateComponentVPDCache();
        });
    }
}

void count_status_and_log() {
    if (!write_log(0)) {
        std::fputs("operations: no log can be written here; its operations are left out\n", stderr);
        return;
    }
    create_cache(256, Kind::ddr4, ddr4_image());
    count("status.256", [] { UpdateComponentStatus(1); });

    write_log(most_entries);
    count("log.load", [] {
        StatusList list{};
        log_inventory(&list);
        while (list.head != nullptr) remove_status_node(&list, list.head);
    });
    const ComponentVpdRecord entry = log_entry(0);
    count("log.update", [&] { log_update(&entry, 0); });
}

void count_texts() {
    char text[64];
    count("text.trim", [&] {
        std::strcpy(text, "  MB0123456789   ");
        trim_string(text);
    });
    const uint8_t field[] = {0xCC, 'M', 'B', '0', '1', '2', '3', '4', '5', '6', '7', '8', '9', 0xC1};
    count("text.tlv2raw", [&] {
        FruField out{};
        const uint8_t* next = nullptr;
        fru_tlv2raw(field, &out, &next, field + sizeof field);
        std::free(out.data);
    });
    const uint8_t property[] = {0x80 + 12, 'M', 'B', '0', '1', '2', '3', '4', '5', '6', '7', '8', '9'};
    count("text.property", [&] {
        char* out = nullptr;
        uint32_t length = 0;
        vpdd_tlv2string(property, &out, &length);
        std::free(out);
    });
}

void write_modules(const std::string& folder) {
    const auto write_image = [&](const std::string& name, const Bytes& image) {
        std::ofstream(folder + '/' + name, std::ios::binary)
            .write(reinterpret_cast<const char*>(image.data()), static_cast<std::streamsize>(image.size()));
    };
    write_image("ddr4.spd", ddr4_image());
    write_image("ddr5.spd", ddr5_image());
}

}  // namespace

int main(int argc, char** argv) {
    const std::string_view option = argc > 1 ? argv[1] : "";
    if (option == "--modules" && argc == 3) {
        write_modules(argv[2]);
        return EXIT_SUCCESS;
    }
    has_strace_marks = option == "--marks";
    count_fru_decoding();
    count_module_decoding();
    count_checksums();
    count_look_ups();
    count_creation();
    count_status_and_log();
    count_texts();
    return EXIT_SUCCESS;
}
