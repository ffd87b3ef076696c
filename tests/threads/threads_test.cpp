// SPDX-License-Identifier: Apache-2.0
// Eight threads use everything that shares the component cache, and the property queries, at once. Under
// ThreadSanitizer a race fails the test; a deadlock does in any build, by the time limit.
#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <memory>
#include <thread>
#include <vector>

#include "fake_platform.h"
#include "host/images/fru_image.h"
#include "host/images/sdr_record.h"
#include "host/images/spd_image.h"

using namespace vpdd::test;
using vpdd::images::FruImage;
using vpdd::images::FruLocator;

namespace {

constexpr int rounds = 400;
constexpr uint8_t first_board = 10;
constexpr uint8_t first_module = 20;
constexpr uint8_t processor = 30;
constexpr int of_each_kind = 4;

Bytes board(uint8_t id) {
    return FruImage().board({.manufacturer = "maker", .serial = "S" + std::to_string(id)}).build();
}

Bytes module() { return vpdd::images::Ddr4Image().seal().build(); }

class Threads : public testing::Test {
protected:
    void SetUp() override {
        std::filesystem::create_directories("/flash/data0");
        std::vector<Bytes> locators;
        const auto add = [&](const FruLocator& locator) { locators.push_back(locator.build()); };
        for (uint8_t i = 0; i < of_each_kind; ++i) {
            const auto board_id = static_cast<uint8_t>(first_board + i);
            const auto module_id = static_cast<uint8_t>(first_module + i);
            platform.fru(board_id, board(board_id));
            platform.fru(module_id, module());
            add(FruLocator(board_id, "Board " + std::to_string(i)).type(0x10).modifier(0).entity(7, i));
            add(FruLocator(module_id, "DIMM " + std::to_string(i)).type(0x10).modifier(1).entity(32, i));
        }
        platform.fru(processor, board(processor));
        add(FruLocator(processor, "CPU 1").type(0x10).modifier(0).entity(3, 1));
        platform.sdr(vpdd::images::numbered(locators));
    }

    /// Runs all jobs side by side, each the same number of times.
    static void run(const std::vector<std::function<void(int)>>& jobs) {
        std::vector<std::thread> threads;
        for (const auto& job : jobs) {
            threads.emplace_back([&job] {
                for (int round = 0; round < rounds; ++round) job(round);
            });
        }
        for (std::thread& thread : threads) thread.join();
    }

    FakePlatform& platform = FakePlatform::instance();
};

bool is_one_of(int result, std::initializer_list<int> allowed) {
    return std::find(allowed.begin(), allowed.end(), result) != allowed.end();
}

TEST_F(Threads, ShareTheCacheWithoutARaceOrADeadlock) {
    std::atomic<int> wrong_results = 0;
    std::atomic<int> found = 0;
    const auto expect = [&](int result, std::initializer_list<int> allowed) {
        if (!is_one_of(result, allowed)) ++wrong_results;
    };
    const auto look_up = [&](int round) {
        auto record = std::make_unique<ComponentVpdRecord>();
        uint32_t length = 0;
        const auto id = static_cast<uint8_t>(first_board + round % of_each_kind);
        const int result = GetComponentVPDByFruID(&length, sizeof *record, &id, record.get());
        expect(result, {0, -1, -7});
        if (result == 0) ++found;
        if (result == 0 && record->fru_id != id) ++wrong_results;
    };

    ASSERT_EQ(CreateComponentVPDCache(), 0);
    run({
        [&](int round) {
            while (found == 0) std::this_thread::yield();  // a look-up has begun
            expect(round % 5 == 4 ? DestroyComponentVPDCache() : CreateComponentVPDCache(), {0, -5});
        },
        [&](int) {
            expect(UpdateComponentVPDCache(), {0, 64, -4});
        },
        [&](int) {
            expect(UpdateComponentStatus(1), {0, -4});
        },
        [&](int) {
            expect(UpdateComponentStatus(0), {0, -4});
        },
        look_up,
        [&](int) {
            std::vector<ComponentVpdRecord> records(16);
            uint32_t length = 0;
            const auto size = static_cast<uint32_t>(records.size() * sizeof records[0]);
            expect(GetComponentVPD_KIVA(&length, size, nullptr, records.data()), {0, -1, -7});
        },
        [&](int) {
            auto record = std::make_unique<ComponentVpdRecord>();
            const ComponentRequest request{0, 0};
            uint32_t length = 0;
            expect(GetComponentVPD(&length, sizeof *record, &request, record.get()), {0, -1, -7});
        },
        [&](int round) {
            vpd_compvpd_changed_notify_callback(round);
            vpd_get_fru_changed_flag();
            vpd_set_fru_changed_flag(0);
        },
    });

    EXPECT_EQ(wrong_results, 0);
}

TEST_F(Threads, AssembleAndForgetTheMachineRecordAtOnce) {
    const auto assemble = [](int) {
        std::vector<uint8_t> record(sizeof(MachineVpdRecord));
        uint32_t length = 0;
        GetMachineVPD(&length, static_cast<uint32_t>(record.size()), nullptr, record.data());
    };
    const auto notify = [](int round) {
        if (round % 10 == 0) vpd_sysvpd_changed_notify_callback();
    };
    run({assemble, assemble, assemble, notify});
}

TEST_F(Threads, AskForPropertiesAtOnce) {
    platform.ipmi.model([](const IpmiCall& call) {
        constexpr uint8_t asked_for_one = 0x2E;
        if (call.netfn != asked_for_one) return ipmi_data({9, 0, 5, 0, 0x81, 'p', 0x81, 'v'});
        const bool is_known = call.data.back() == 'y';
        // Maker's number, status, length, value.
        return is_known ? ipmi_data({0, 0, 0, 0, 0, 2, 0x81, 'v'}) : ipmi_data({0, 0, 0, 0x80, 0, 0});
    });
    std::atomic<int> wrong_values = 0;
    const auto expect = [&](bool right) {
        if (!right) ++wrong_values;
    };
    const auto read_alone = [&](int round) {
        // Their refusals differ, so each thread also changes the text that all of them share.
        const std::string path = "\x83" + std::to_string(100 + round % 100);
        void* value = nullptr;
        uint32_t length = 0;
        const int result = vpdd_get_single_property(reinterpret_cast<const uint8_t*>(path.c_str()), &value, &length);
        expect(result == -3 && value == nullptr);
    };
    const auto read_text = [&](int) {
        char text[128] = {};
        uint32_t length = 0;
        expect(GetStringPropertyViaVpdd(&length, sizeof text, "/y", text) == 0 && std::string(text) == "v");
    };
    const auto read_bytes = [&](int) {
        char bytes[128] = {};
        uint32_t length = 0;
        expect(GetBytePropertyViaVpdd(&length, sizeof bytes, "/y", bytes) == 0 && length == 1);
    };
    const auto read_firmware = [&](int) {
        FirmwareVpd firmware;
        uint32_t size = 0;
        expect(GetFirmwareVPD(&size, 0, "orva3", &firmware) == 0 && std::string(firmware.build_id) == "*");
    };
    const auto read_list = [&](int) {
        uint8_t* data = nullptr;
        uint32_t length = 0;
        VpddAllProperties* list = nullptr;
        expect(vpdd_get_properties("/p", &data, &length) == 0 && vpdd_format_all_properties(data, length, &list) == 0);
        expect(list != nullptr && list->next == nullptr);
        freeVpddAllProperites(&list);
        std::free(data);
    };
    run({read_alone, read_alone, read_alone, read_text, read_bytes, read_firmware, read_firmware, read_list});
    EXPECT_EQ(wrong_values, 0);
}

}  // namespace
