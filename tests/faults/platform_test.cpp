// SPDX-License-Identifier: Apache-2.0
// A server of 48 FRUs. Each single call of the platform fails while the cache is created, updated and polled, in every
// way that a management controller or a store can fail: the records of all FRUs but the one concerned stay as they are.
#include <cstring>
#include <filesystem>
#include <functional>
#include <memory>

#include "failing_allocator.h"
#include "faults/fast_platform.h"
#include "faults/held_locks.h"
#include "host/images/fru_image.h"
#include "host/images/sdr_record.h"
#include "host/images/smbios_image.h"
#include "host/images/spd_image.h"
#include "status/log_world.h"
#include "stride.h"

using namespace vpdd::test;
namespace images = vpdd::images;

namespace {

constexpr uint8_t processor = 3, memory_device = 32, power_supply = 10, fan = 29, board = 7;
constexpr uint8_t first_fru = 1, frus = 48;
constexpr uint8_t first_module = 3;
constexpr uint8_t processors = 2, ddr4_modules = 20, ddr5_modules = 6, boards = 8, supplies = 4;

constexpr int sdr_unreadable = -3, fru_unreadable = -10, smbios_missing = 64;

/// A sanitizer makes a run many times as slow: it sees some of the calls only.
const std::size_t stride = allocator_can_fail ? stride_of_runs() : 11;

using Records = std::array<ComponentVpdRecord, 256>;  // by FRU id; without a record its id is 0

std::string text(const char* kind, int number) { return std::string(kind) + " " + std::to_string(number); }

class Platform : public testing::Test {
protected:
    Platform() {
        add(processors, "CPU", processor, 0, [](int n) {
            return images::FruImage()
                .product({.manufacturer = "Maker", .part = "P", .version = "Model", .serial = text("C", n)})
                .multirecord(images::OemProcessor::record_type, images::OemProcessor{}.data())
                .build();
        });
        add(ddr4_modules, "DIMM", memory_device, 1, [](int n) {
            return images::Ddr4Image().serial(0x1000U + static_cast<uint32_t>(n)).made(2019, 42).seal().build();
        });
        add(ddr5_modules, "DDR5", memory_device, 1, [](int n) {
            return images::Ddr5Image().byte(0, 0x30).serial(0x2000U + static_cast<uint32_t>(n)).seal().build();
        });
        add(boards, "Board", board, 2, [](int n) {
            return images::FruImage().board({.manufacturer = "Maker", .serial = text("B", n), .part = "P"}).build();
        });
        add(supplies, "PSU", power_supply, 0, [](int n) {
            return images::FruImage()
                .board(
                    {.manufacturer = "Maker", .serial = text("P", n), .custom = {"c1", "c2", "c3", "c4", "c5", "c6"}})
                .padded_to(300)
                .build();
        });
        const auto rest = static_cast<uint8_t>(frus - (next_fru_ - first_fru));
        add(rest, "Fan", fan, 0, [](int n) {
            return images::FruImage().product({.manufacturer = "Maker", .serial = text("F", n)}).build();
        });
        platform.sdr = images::numbered(locators_);
        platform.frus[0] = images::FruImage().product({.manufacturer = "Maker", .asset_tag = "Tag"}).build();
        set_smbios();
        for (int n = 1; n <= processors; ++n) set_sensor(text("CPU", n));
        std::filesystem::create_directories("/flash/data0");
        empty_log();
    }

    ~Platform() override { EXPECT_TRUE(no_exported_mutex_is_held()); }

    static void empty_log() {
        std::filesystem::remove(backup_path);
        write_file(log_path, "");
    }

    static Records records() {
        static auto copies = std::make_unique<std::array<ComponentVpdRecord, 256>>();
        Records by_id{};
        uint32_t length = 0;
        if (GetComponentVPD_KIVA(&length, sizeof *copies, nullptr, copies.get()) != 0) length = 0;
        for (std::size_t i = 0; i < length / sizeof by_id[0]; ++i) {
            ComponentVpdRecord copy = (*copies)[i];
            copy.next_fru_id = 0;
            by_id[copy.fru_id] = copy;
        }
        return by_id;
    }

    /// The record itself, for putting back what it was.
    static ComponentVpdRecord& cached(uint8_t fru_id) {
        const CaptureOfNothing silence;
        ComponentVpdRecord* record = nullptr;
        FindFRURecord(fru_id, &record);
        return *record;
    }

    /// The faults of one call: as many as its kind can have.
    static std::vector<PlatformFault> faults_of(const PlatformCall& call, std::size_t number) {
        std::vector<PlatformFault> faults{{number, Failure::refused}};
        if (call.kind == CallKind::ipmi) {
            faults.push_back({number, Failure::completion_code, 0xC0});
            faults.push_back({number, Failure::completion_code, 0x81});
            faults.push_back({number, Failure::refused, 0, true});
            faults.push_back({number, Failure::completion_code, 0x81, true});
            for (unsigned code = 0xC0; code <= 0xD5; ++code) {
                faults.push_back({number, Failure::completion_code, static_cast<uint8_t>(code), true});
            }
            faults.push_back({number, Failure::overstated_count});
        }
        if (call.kind == CallKind::ipmi || call.kind == CallKind::sdr || call.kind == CallKind::sensors) {
            for (const Failure failure :
                 {Failure::short_answer, Failure::nothing_but_code, Failure::long_answer, Failure::overstated_answer}) {
                faults.push_back({number, failure});
            }
        }
        return faults;
    }

    /// Whether a retry brings the right answer after all.
    static bool is_retried(const PlatformFault& fault) {
        return !fault.also_retries &&
               (fault.failure == Failure::refused || (fault.failure == Failure::completion_code && fault.code != 0xCB));
    }

    /// Lets each of the calls fail that `operation` makes undisturbed.
    void for_each_fault(const std::function<void()>& operation,
                        const std::function<void(const PlatformFault&, const PlatformCall&)>& body) {
        platform.begin({});
        operation();
        const std::vector<PlatformCall> calls = platform.calls;
        std::size_t runs = 0;
        for (std::size_t i = 0; i < calls.size() && !HasFailure(); i += stride) {
            for (const PlatformFault& fault : faults_of(calls[i], i + 1)) {
                body(fault, calls[i]);
                ++runs;
                if (!HasFailure()) continue;
                std::printf("call %zu of kind %d for FRU %d, failure %d, code %02X%s\n", fault.number,
                            static_cast<int>(calls[i].kind), calls[i].fru_id, static_cast<int>(fault.failure),
                            fault.code, fault.also_retries ? " with its retries" : "");
                break;
            }
        }
        std::printf("%zu calls, %zu failing runs\n", calls.size(), runs);
        platform.begin({});
    }

    /// All records but the one are as in the undisturbed run.
    static void expect_same_but(int concerned, const Records& found, const Records& expected) {
        for (int id = first_fru; id < first_fru + frus; ++id) {
            if (id == concerned) continue;
            const auto index = static_cast<std::size_t>(id);
            EXPECT_EQ(std::memcmp(&found[index], &expected[index], sizeof found[index]), 0) << "FRU " << id;
        }
    }

    FastPlatform& platform = FastPlatform::instance();

private:
    /// FindFRURecord() prints what it finds.
    struct CaptureOfNothing {
        CaptureOfNothing() : original(dup(STDOUT_FILENO)) {
            std::fflush(stdout);
            const int nowhere = open("/dev/null", O_WRONLY | O_CLOEXEC);
            dup2(nowhere, STDOUT_FILENO);
            close(nowhere);
        }
        ~CaptureOfNothing() {
            std::fflush(stdout);
            dup2(original, STDOUT_FILENO);
            close(original);
        }
        int original;
    };

    void add(uint8_t count, const char* kind, uint8_t entity, uint8_t modifier,
             const std::function<Image(int)>& image) {
        for (uint8_t n = 1; n <= count; ++n) {
            locators_.push_back(images::FruLocator(next_fru_, text(kind, n)).modifier(modifier).entity(entity, n));
            platform.frus[next_fru_++] = image(n);
        }
    }

    void set_smbios() {
        images::SmbiosImage image;
        for (int n = 1; n <= ddr4_modules; ++n) {
            char serial[9];
            std::snprintf(serial, sizeof serial, "%08X", 0x1000 + n);
            image.memory_device(images::MemoryDeviceImage()
                                    .device_locator(text("DIMM", n))
                                    .serial_number(serial)
                                    .size(0x2000)
                                    .speed(2666)
                                    .configured_memory_speed(2400));
        }
        table_ = std::make_unique<images::ParsedSmbiosTable>(image.table());
        platform.smbios = table_->get();
    }

    void set_sensor(const std::string& name) {
        Image entry(1492);
        entry[2] = 1;  // valid
        name.copy(reinterpret_cast<char*>(&entry[6]), 192);
        entry[198] = 0x80;  // present
        platform.processor_sensors.insert(platform.processor_sensors.end(), entry.begin(), entry.end());
    }

    std::vector<images::Bytes> locators_;
    uint8_t next_fru_ = first_fru;
    std::unique_ptr<images::ParsedSmbiosTable> table_;
};

/// A module without what SMBIOS says of it.
ComponentVpdRecord without_smbios(ComponentVpdRecord record) {
    record.spd_info.config_speed = record.spd_info.smbios_size = record.spd_info.smbios_speed = 0;
    return record;
}

TEST_F(Platform, CostsACreationNoOtherRecord) {
    Records whole{};
    const auto create_and_destroy = [&] {
        EXPECT_EQ(CreateComponentVPDCache(), 0);
        whole = records();
        EXPECT_EQ(DestroyComponentVPDCache(), 0);
    };
    for_each_fault(create_and_destroy, [&](const PlatformFault& fault, const PlatformCall& call) {
        for (int id = first_fru; id < first_fru + frus; ++id) {
            ASSERT_EQ(whole[static_cast<std::size_t>(id)].is_cached, 1) << "FRU " << id;
        }
        platform.begin(fault);
        const int result = CreateComponentVPDCache();
        platform.begin({});
        if (call.kind == CallKind::sdr && fault.failure == Failure::refused) {
            EXPECT_EQ(result, sdr_unreadable);
            EXPECT_EQ(DestroyComponentVPDCache(), -5) << "there is no cache";
            create_and_destroy();  // the second run of the two appends its records
            create_and_destroy();
            return;
        }
        ASSERT_EQ(result, 0);
        const Records found = records();
        EXPECT_EQ(DestroyComponentVPDCache(), 0);
        if (call.kind == CallKind::sdr) {
            std::size_t changed = 0;
            for (std::size_t id = first_fru; id < first_fru + frus; ++id) {
                if (std::memcmp(&found[id], &whole[id], sizeof found[id]) != 0) ++changed;
            }
            EXPECT_LE(changed, 1U);
            return;
        }
        if (call.kind == CallKind::smbios && found[first_module].spd_info.config_speed == 0) {
            for (std::size_t id = first_fru; id < first_fru + frus; ++id) {
                const ComponentVpdRecord expected = without_smbios(whole[id]);
                EXPECT_EQ(std::memcmp(&found[id], &expected, sizeof expected), 0) << "FRU " << id;
            }
            return;
        }
        expect_same_but(is_retried(fault) ? -1 : call.fru_id, found, whole);
        if (call.fru_id < first_fru || is_retried(fault)) return;
        const auto concerned = static_cast<std::size_t>(call.fru_id);
        const bool is_unread = fault.failure == Failure::refused || fault.failure == Failure::completion_code;
        EXPECT_TRUE(!is_unread || found[concerned].is_cached == 0);
        EXPECT_EQ(found[concerned].fru_id, call.fru_id) << "the record itself stays";
    });
}

TEST_F(Platform, CostsAnUpdateNoOtherRecord) {
    ASSERT_EQ(CreateComponentVPDCache(), 0);
    ASSERT_EQ(UpdateComponentVPDCache(), 0);
    const Records whole = records();
    std::array<ComponentVpdRecord*, first_fru + frus> places{};
    for (uint8_t id = first_fru; id < first_fru + frus; ++id) places[id] = &cached(id);
    for_each_fault([] { EXPECT_EQ(UpdateComponentVPDCache(), 0); },
                   [&](const PlatformFault& fault, const PlatformCall& call) {
                       platform.begin(fault);
                       const int result = UpdateComponentVPDCache();
                       platform.begin({});
                       const Records found = records();
                       for (std::size_t id = first_fru; id < places.size(); ++id) *places[id] = whole[id];

                       if (call.kind == CallKind::smbios && result == smbios_missing) {
                           for (std::size_t id = first_fru; id < places.size(); ++id) {
                               const ComponentVpdRecord expected = without_smbios(whole[id]);
                               EXPECT_EQ(std::memcmp(&found[id], &expected, sizeof expected), 0) << "FRU " << id;
                           }
                           return;
                       }
                       expect_same_but(is_retried(fault) ? -1 : call.fru_id, found, whole);
                       if (call.kind != CallKind::ipmi || is_retried(fault)) {
                           EXPECT_EQ(result, 0);
                           return;
                       }
                       // A size that is "not present" is passed over silently.
                       EXPECT_TRUE(result == 0 || result == fru_unreadable) << result;
                       const bool is_unread =
                           fault.failure == Failure::refused || fault.failure == Failure::completion_code;
                       EXPECT_TRUE(!is_unread || found[static_cast<std::size_t>(call.fru_id)].is_cached == 0);
                       EXPECT_TRUE(!is_unread || result == fru_unreadable || fault.code == 0xCB);
                   });
}

class PlatformUnderStatusPasses : public Platform {
protected:
    PlatformUnderStatusPasses() {
        EXPECT_EQ(CreateComponentVPDCache(), 0);
        for (uint8_t id = first_fru; id < first_fru + frus; ++id) places_[id] = &cached(id);
        UpdateComponentStatus(1);  // everything is installed
        start_ = records();
        log_ = read_file(log_path);
    }

    /// The cache and the log as they were.
    void start_over() {
        for (std::size_t id = first_fru; id < places_.size(); ++id) *places_[id] = start_[id];
        std::filesystem::remove(backup_path);
        write_file(log_path, log_);
    }

    /// Each call of a pass fails.
    void expect_other_records_to_stay() {
        Records whole{};
        const auto pass = [&] {
            start_over();
            EXPECT_EQ(UpdateComponentStatus(1), 0);
            whole = records();
        };
        for_each_fault(pass, [&](const PlatformFault& fault, const PlatformCall& call) {
            start_over();
            platform.begin(fault);
            EXPECT_EQ(UpdateComponentStatus(1), 0);
            platform.begin({});
            const Records found = records();
            if (call.kind == CallKind::sensors) {
                for (std::size_t id = first_fru + processors; id < places_.size(); ++id) {
                    EXPECT_EQ(std::memcmp(&found[id], &whole[id], sizeof found[id]), 0) << "FRU " << id;
                }
                EXPECT_TRUE(is_one_of(found[first_fru].status, {0, 1, 255}));
                return;
            }
            expect_same_but(is_retried(fault) ? -1 : call.fru_id, found, whole);
            if (call.fru_id < first_fru) return;
            const bool is_busy = fault.failure == Failure::completion_code && fault.code == 0x81;
            if (!fault.also_retries || is_busy) return;
            EXPECT_EQ(found[static_cast<std::size_t>(call.fru_id)].status, 0) << "what does not answer is absent";
        });
    }

    static bool is_one_of(int32_t status, std::initializer_list<int32_t> allowed) {
        return std::find(allowed.begin(), allowed.end(), status) != allowed.end();
    }

    Records start_{};

private:
    std::array<ComponentVpdRecord*, first_fru + frus> places_{};
    std::string log_;
};

TEST_F(PlatformUnderStatusPasses, CostsNoOtherRecordWhenNothingChanges) { expect_other_records_to_stay(); }

TEST_F(PlatformUnderStatusPasses, CostsNoOtherRecordWhenPartsComeAndGo) {
    constexpr std::size_t replaced = 30, removed = 33, installed = 40;
    start_[replaced].part_number[0] ^= 1;
    platform.frus[removed].clear();
    start_[installed].status = 0;
    expect_other_records_to_stay();
}

}  // namespace
