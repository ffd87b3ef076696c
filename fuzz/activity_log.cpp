// SPDX-License-Identifier: Apache-2.0
// The activity log as it lies on flash: loaded, restored from, polled against and rewritten.
// Input: options, log. Options: bit 0 makes the entries' checksums right, bit 1 makes half of the input the backup of a
// rewrite that was cut short, bit 2 makes the component a processor, bit 3 lets the component be absent, bit 4 empties
// the log at the end, bit 5 makes the first entry the processor's sensor too.
#include <cstdio>
#include <cstdlib>
#include <filesystem>

#include "fuzz/input.h"
#include "fuzz/seal.h"
#include "host/images/fru_image.h"
#include "host/images/sdr_record.h"

using namespace vpdd::fuzz;
namespace images = vpdd::images;

namespace {

constexpr char log_path[] = "/flash/data0/component_activity.log";
constexpr char backup_path[] = "/flash/data0/component_activity.log.backup";
constexpr uint8_t fru_id = 1;
constexpr std::size_t most_entries = 250;
constexpr std::size_t sensor_size = 1492;

void write_file(const char* path, std::span<const uint8_t> bytes) {
    FILE* const file = std::fopen(path, "w");
    require(file != nullptr, "no private /flash");
    if (!bytes.empty()) std::fwrite(bytes.data(), 1, bytes.size(), file);
    std::fclose(file);
}

void write_files(std::span<const uint8_t> log, bool has_backup) {
    std::remove(backup_path);
    const std::size_t size = has_backup ? log.size() / 2 : log.size();
    write_file(log_path, log.first(size));
    if (has_backup) write_file(backup_path, log.subspan(size));
}

/// `sensor` is what the platform reads of the processor's sensor.
void prepare_component(bool is_processor, Bytes sensor) {
    const uint8_t entity = is_processor ? 0x03 : 0x1D;  // a fan else
    world().sdr = {images::FruLocator(fru_id, "CPU 1").entity(entity, 1)};
    world().frus[fru_id] = images::FruImage().board({.manufacturer = "Zelt", .serial = "S1"}).build();
    if (is_processor) world().sensors = std::move(sensor);
}

/// Entries that are loaded.
std::size_t count_entries() {
    StatusList* list = nullptr;
    require(vpdd_serv_readlog(&list) == 0, "the log cannot be read");
    std::size_t count = 0;
    for (const StatusNode* node = list->head; node != nullptr; node = node->next) ++count;
    vpdd_serv_freelog(&list);
    return count;
}

void add_entries() {
    const auto records = cached_records();
    const ComponentVpdRecord record = records.empty() ? ComponentVpdRecord{} : records[0];
    log_update(&record, 0);
    log_update(&record, 1);
    UpdateHardwareActivityLog(&record);
    require(count_entries() <= most_entries + 1, "the log has no bound");
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    if (std::filesystem::is_directory("/flash/data0")) return 0;
    std::fprintf(stderr, "activity_log: run it in a private root (tests/in_private_root)\n");
    std::exit(EXIT_FAILURE);
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
    Input input({data, size});
    const uint8_t options = input.byte();
    const auto bytes = input.rest();
    Bytes log(bytes.begin(), bytes.end());
    if ((options & 1U) != 0) seal_log(log);

    Round round;
    write_files(log, (options & 2U) != 0);
    Bytes sensor((options & 0x20U) != 0 ? log : Bytes{});
    sensor.resize((options & 8U) != 0 ? 0 : sensor_size);
    prepare_component((options & 4U) != 0, std::move(sensor));
    round.create();
    UpdateComponentStatus(0);
    cached_records();
    if ((options & 8U) != 0) world().frus.clear();
    UpdateComponentStatus(1);
    cached_records();
    add_entries();
    if ((options & 0x10U) != 0) vpdd_serv_cleanlog();
    return 0;
}
