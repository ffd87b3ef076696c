// SPDX-License-Identifier: Apache-2.0
// Wall time of both sides of each pair, in one run and on the same input. A benchmark is named ROW/SIDE; pairs.py puts
// the sides of a row into relation.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <unistd.h>
#include <zlib.h>

#include <cstdlib>
#include <cstring>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "bench/freeipmi_fru.h"
#include "bench/worlds.h"
#include "platform/ipmi_stack.h"

namespace {

using namespace vpdd::bench;

constexpr uint32_t record_size = sizeof(ComponentVpdRecord);
constexpr uint32_t covered_bytes = 680;  // of a record, by its CRC
constexpr uint32_t log_bytes = most_entries * record_size;
constexpr char scratch_file[] = "/flash/data0/scratch";

using Job = std::function<void()>;

/// One side of a row. `prepare` runs before the measurement, not in it.
void side(const std::string& name, const Job& job, const Job& prepare = {}) {
    benchmark::RegisterBenchmark(name.c_str(), [job, prepare](benchmark::State& state) {
        if (prepare) prepare();
        for (auto _ : state) job();
    });
}

void add_fru_decoding() {
    for (const std::size_t size : {256, 512, 2048}) {
        const Bytes image = fru_image(size);
        const std::string row = "fru." + std::to_string(size);
        side(
            row + "/ours", [] { UpdateComponentVPDCache(); }, [=] { create_cache(1, Kind::board, image); });
        side(row + "/freeipmi", [=] { decode_with_freeipmi(image); });
    }
}

uint32_t byte_wise_crc(const uint8_t* bytes, uint32_t length) {
    uint32_t crc = 0xFFFFFFFF;
    for (; length > 0; --length) crc = crc >> 8U ^ crc_table[(crc ^ *bytes++) & 0xFFU];
    return ~crc;
}

void add_checksums() {
    static const Bytes bytes = [] {
        Bytes pattern(log_bytes);
        for (std::size_t i = 0; i < pattern.size(); ++i) pattern[i] = static_cast<uint8_t>(i * 7 + i / 256);
        return pattern;
    }();
    for (const uint32_t length : {covered_bytes, log_bytes}) {
        const std::string row = "crc32." + std::to_string(length);
        side(row + "/ours", [=] { benchmark::DoNotOptimize(calc_crc(bytes.data(), length)); });
        side(row + "/byte-wise", [=] { benchmark::DoNotOptimize(byte_wise_crc(bytes.data(), length)); });
        side(row + "/zlib", [=] { benchmark::DoNotOptimize(crc32(0, bytes.data(), length)); });
    }
}

void look_up(uint8_t fru_id) {
    static ComponentVpdRecord record;
    uint32_t length = 0;
    GetComponentVPDByFruID(&length, record_size, &fru_id, &record);
    benchmark::DoNotOptimize(record);
}

/// The least that a look-up has to do.
void copy_under_two_mutexes(const ComponentVpdRecord& from) {
    static pthread_mutex_t outer = PTHREAD_MUTEX_INITIALIZER;
    static pthread_mutex_t inner = PTHREAD_MUTEX_INITIALIZER;
    static ComponentVpdRecord record;
    pthread_mutex_lock(&outer);
    pthread_mutex_lock(&inner);
    std::memcpy(&record, &from, record_size);
    pthread_mutex_unlock(&inner);
    pthread_mutex_unlock(&outer);
    benchmark::DoNotOptimize(record);
}

struct Free {
    void operator()(void* block) const { std::free(block); }
};
/// Nodes as the cache has them: a heap block each.
using Nodes = std::vector<std::unique_ptr<ComponentVpdNode, Free>>;

Nodes zeroed_nodes(std::size_t count) {
    Nodes nodes(count);
    for (auto& node : nodes) node.reset(static_cast<ComponentVpdNode*>(std::calloc(1, sizeof(ComponentVpdNode))));
    return nodes;
}

void add_look_ups() {
    static const Bytes image = fru_image(256);
    // The id 255 asks for the first record, so that 254 is the last that can be looked up.
    for (const auto& [position, fru_id] : {std::pair{"first", 1}, {"middle", 128}, {"last", 254}}) {
        const std::string row = std::string("lookup.") + position;
        const auto id = static_cast<uint8_t>(fru_id);
        side(
            row + "/ours", [=] { look_up(id); }, [] { create_cache(255, Kind::board, image); });
        side(row + "/copy and mutexes", [] {
            static const ComponentVpdRecord from = log_entry(0);
            copy_under_two_mutexes(from);
        });
    }
    side(
        "lookup.of 2048/ours", [] { look_up(254); }, [] { create_cache(2048, Kind::board, image); });
    for (const std::size_t records : {256, 2048}) {
        const std::string row = "bulk." + std::to_string(records);
        const auto size = static_cast<uint32_t>(records * record_size);
        const auto out = std::make_shared<Bytes>(size);
        const auto from = std::make_shared<Bytes>(size, uint8_t{1});
        side(
            row + "/ours",
            [=] {
                uint32_t length = 0;
                GetComponentVPD_KIVA(&length, size, nullptr, out->data());
                benchmark::ClobberMemory();
            },
            [=] { create_cache(records, Kind::board, image); });
        side(row + "/memcpy", [=] {
            std::memcpy(out->data(), from->data(), size);
            benchmark::ClobberMemory();
        });
        const auto nodes = std::make_shared<Nodes>(zeroed_nodes(records));
        side(row + "/memcpy of each block", [=] {
            uint8_t* to = out->data();
            for (const auto& node : *nodes) {
                std::memcpy(to, &node->record, record_size);
                to += record_size;
            }
            benchmark::ClobberMemory();
        });
    }
}

void add_creation() {
    for (const std::size_t frus : {64, 256, 1024, 2048}) {
        side(
            "create." + std::to_string(frus) + "/ours",
            [] {
                DestroyComponentVPDCache();
                CreateComponentVPDCache();
            },
            [=] { create_cache(frus, Kind::board, fru_image(256)); });
    }
    // The memory that a creation and the destruction before it go through, and nothing else.
    for (const std::size_t frus : {256, 2048}) {
        side("create, memory." + std::to_string(frus) + "/ours", [=] {
            const Nodes nodes = zeroed_nodes(frus);
            for (const auto& node : nodes) std::memset(&node->record, 1, record_size);
            benchmark::DoNotOptimize(nodes.data());
        });
    }
}

void request_presence(uint8_t fru_id) {
    const uint8_t request[] = {fru_id, 0, 0, 8};
    uint8_t response[258];
    int32_t length = sizeof response;
    IPMI_DoIPMICmd(0x0A, 0x11, request, sizeof request, response, &length);
    benchmark::DoNotOptimize(response);
}

void add_status() {
    constexpr std::size_t components = 256;
    // Memory modules, which are never logged: the log stays empty.
    side(
        "status.256/ours", [] { UpdateComponentStatus(1); },
        [] {
            write_log(0);
            create_cache(components, Kind::ddr4, ddr4_image());
            UpdateComponentStatus(1);
        });
    side("status.256/crc and requests", [] {
        static const Bytes records(components * record_size, 0x5A);
        for (std::size_t i = 0; i < components; ++i) {
            request_presence(static_cast<uint8_t>(i % 255 + 1));
            benchmark::DoNotOptimize(calc_crc(records.data() + i * record_size, covered_bytes));
        }
    });
}

/// A whole log into fresh memory, and the CRC of what its entries cover.
Bytes read_and_sum() {
    Bytes bytes(log_bytes);
    const int fd = open("/flash/data0/component_activity.log", O_RDONLY | O_CLOEXEC);
    if (read(fd, bytes.data(), bytes.size()) < 0) bytes.clear();
    close(fd);
    for (std::size_t i = 0; i + record_size <= bytes.size(); i += record_size) {
        benchmark::DoNotOptimize(calc_crc(bytes.data() + i, covered_bytes));
    }
    return bytes;
}

void write_and_flush(const Bytes& bytes) {
    const int fd = open(scratch_file, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    if (write(fd, bytes.data(), bytes.size()) == static_cast<ssize_t>(bytes.size())) fsync(fd);
    close(fd);
}

void add_log() {
    const Job prepare = [] { write_log(most_entries); };
    side(
        "log.load/ours",
        [] {
            StatusList list{};
            log_inventory(&list);
            while (list.head != nullptr) remove_status_node(&list, list.head);
        },
        prepare);
    side(
        "log.load/read and crc", [] { benchmark::DoNotOptimize(read_and_sum()); }, prepare);
    side(
        "log.update/ours",
        [] {
            static const ComponentVpdRecord entry = log_entry(0);
            log_update(&entry, 0);
        },
        prepare);
    side(
        "log.update/read, crc, write", [] { write_and_flush(read_and_sum()); }, prepare);
}

}  // namespace

int main(int argc, char** argv) {
    add_fru_decoding();
    add_checksums();
    add_look_ups();
    add_creation();
    if (write_log(0)) {
        add_status();
        add_log();
    }
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return EXIT_FAILURE;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return EXIT_SUCCESS;
}
