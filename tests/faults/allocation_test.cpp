// SPDX-License-Identifier: Apache-2.0
// Each allocation fails, in the functions over a caller's buffers and in those of the machine records.
#include <cerrno>
#include <memory>

#include "faults/each_allocation.h"
#include "host/images/smbios_image.h"
#include "host/images/spd_image.h"
#include "platform/change_history.h"
#include "sysvpd/machine_world.h"

using namespace vpdd::test;
using testing::AnyOf;
using vpdd::images::Ddr3Image;
using vpdd::images::Ddr4Image;
using vpdd::images::Ddr5Image;

namespace {

/// The records of the change-history database: `count` of them.
int pci_count = 0;
int pci_blocks = 0;

}  // namespace

extern "C" int chghist_read_pci(uint8_t** records, uint32_t, uint32_t) {
    static uint8_t bytes[8 * sizeof(PciNode::record)];
    *records = bytes;
    ++pci_blocks;
    return pci_count;
}

extern "C" int chghist_release_pci(uint8_t* records) {
    if (records != nullptr) --pci_blocks;
    return 0;
}

namespace {

/// A module's image in a buffer of the size that the decoders require.
Bytes padded(Bytes image) {
    image.resize(1024);
    return image;
}

// ---- FRU fields and images

TEST(AllocationFailure, LeavesAFruFieldWithoutData) {
    for_each_failing_allocation([](FaultyRun& run) {
        const Bytes field{0xC3, 'a', 'b', 'c', 0xC1};
        const uint8_t* next = field.data();
        FruField decoded{7, 7, nullptr};
        int result = 0;
        run([&] { result = fru_tlv2raw(field.data(), &decoded, &next, field.data() + field.size()); });

        EXPECT_EQ(result, run.has_failed() ? ENOMEM : 0);
        EXPECT_EQ(decoded.data == nullptr, run.has_failed());
        EXPECT_EQ(run.left(), run.has_failed() ? 0U : 1U);
        std::free(decoded.data);
    });
}

TEST(AllocationFailure, LeavesNoPpinDumpInTheRecord) {
    for_each_failing_allocation(Allocating::library, [](FaultyRun& run) {
        const Bytes image(64, 'P');
        ComponentVpdList list{};
        auto* const node = static_cast<ComponentVpdNode*>(std::calloc(1, sizeof(ComponentVpdNode)));
        insert_vpd_node_last(&list, node);
        int result = 0;
        std::size_t left = 0;
        run([&] {
            result = get_ppin_hexdump(&node->record, image.data() + image.size() - 1);
            left = node->record.ppin_dump;
            remove_vpd_node(&list, node);
        });

        EXPECT_EQ(result, run.has_failed() ? ENOMEM : 0);
        EXPECT_EQ(left != 0, !run.has_failed());
        EXPECT_EQ(run.left(), 0U);
    });
}

TEST(AllocationFailure, LeavesTheSystemVpdUnread) {
    for_each_failing_allocation([](FaultyRun& run) {
        FakePlatform::instance().device(Bytes(700, 0x5A));
        Bytes read(600, 0xEE);
        int result = 0;
        run([&] { result = readvpd_from_ipmi(static_cast<uint32_t>(read.size()), read.data()); });

        EXPECT_EQ(result, run.has_failed() ? -1 : 0);
        EXPECT_EQ(read[100], run.has_failed() ? 0 : 0x5A);
        EXPECT_EQ(run.left(), 0U);
    });
}

// ---- SPD

TEST(AllocationFailure, LeavesNoTextOfCasLatencies) {
    for_each_failing_allocation([](FaultyRun& run) {
        const Bytes image = padded(Ddr4Image().seal().build());
        char* text = nullptr;
        int result = 0;
        run([&] { result = parse_cas_supported_latencies(image.data(), 512, &text); });

        EXPECT_EQ(result, run.has_failed() ? -1 : 0);
        EXPECT_EQ(text == nullptr, run.has_failed());
        std::free(text);
    });
    for_each_failing_allocation([](FaultyRun& run) {
        const Bytes image = padded(Ddr5Image().seal().build());
        char* text = nullptr;
        int result = 0;
        run([&] { result = get_cas_supported_latencies(image.data(), 1024, &text); });

        EXPECT_EQ(result, 1);
        EXPECT_EQ(text == nullptr, run.has_failed());
        std::free(text);
    });
}

/// A module without memory for its latencies is decoded but for their text.
void expect_decoded_but_for_latencies(int (*decode)(const uint8_t*, SpdInfo*), const Bytes& image) {
    SpdInfo whole{};
    decode(image.data(), &whole);
    ASSERT_NE(whole.cas_latencies_supports[0], '\0');
    for_each_failing_allocation([&](FaultyRun& run) {
        SpdInfo record{};
        int result = -1;
        run([&] { result = decode(image.data(), &record); });

        EXPECT_EQ(result, 0);
        EXPECT_EQ(run.left(), 0U);
        SpdInfo expected = whole;
        if (run.has_failed()) std::memset(expected.cas_latencies_supports, 0, sizeof expected.cas_latencies_supports);
        EXPECT_EQ(std::memcmp(&record, &expected, sizeof record), 0);
    });
}

TEST(AllocationFailure, CostsADdr4ModuleItsLatencies) {
    expect_decoded_but_for_latencies(vpdd_Handle_DDR4_SPD, padded(Ddr4Image().seal().build()));
}

TEST(AllocationFailure, CostsADdr5ModuleItsLatencies) {
    expect_decoded_but_for_latencies(vpdd_Handle_DDR5_SPD, padded(Ddr5Image().seal().build()));
}

// ---- what allocates nothing cannot fail for want of memory

TEST(WithoutMemory, ModulesAreLookedUpInSmbios) {
    if (!allocator_can_fail) GTEST_SKIP() << "the sanitizer owns the allocator";
    const vpdd::images::SmbiosImage image = vpdd::images::SmbiosImage().memory_device(
        vpdd::images::MemoryDeviceImage().device_locator("DIMM 4").serial_number("12AB").size(1).speed(2));
    vpdd::images::ParsedSmbiosTable parsed(image.table());
    FakePlatform::instance().smbios(parsed.get());
    const AllocationWatch watch(1, Failing::from_then_on);

    SmbiosTable* table = nullptr;
    EXPECT_EQ(vpdd_load_smbios_table(&table), 0);
    char serial[32] = {};
    uint32_t size = 0, speed = 0;
    EXPECT_EQ(vpdd_get_serial_num_from_smbios_by_serial_number(table, "12AB", serial, sizeof serial), 0);
    EXPECT_EQ(vpdd_get_config_speed_from_smbios_by_serial_number(table, "12AB", &speed), 0);
    EXPECT_EQ(vpdd_get_size_speed_from_smbios_by_serial_number(table, "12AB", &size, &speed), 0);
    EXPECT_EQ(vpdd_get_size_speed_from_smbios_by_device_locator(table, "DIMM 4", &size, &speed), 0);
    vpdd_free_smbios_table(&table);

    EXPECT_STREQ(serial, "12AB");
    EXPECT_EQ(watch.allocations(), 0U);
}

TEST(WithoutMemory, NodesEnterAndLeaveTheirLists) {
    if (!allocator_can_fail) GTEST_SKIP() << "the sanitizer owns the allocator";
    const auto make = [] { return static_cast<StatusNode*>(std::calloc(1, sizeof(StatusNode))); };
    StatusNode* const nodes[] = {make(), make(), make()};
    const AllocationWatch watch(1, Failing::from_then_on);

    StatusList list{};
    insert_status_node_last(&list, nodes[1]);
    insert_status_node(&list, nodes[1], nodes[0]);
    insert_status_node_back(&list, nodes[1], nodes[2]);
    EXPECT_EQ(list.head, nodes[0]);
    EXPECT_EQ(list.tail, nodes[2]);
    while (list.head != nullptr) remove_status_node(&list, list.head);

    EXPECT_EQ(watch.allocations(), 0U);
}

TEST(WithoutMemory, TheStandardMachineRecordIsAssembled) {
    if (!allocator_can_fail) GTEST_SKIP() << "the sanitizer owns the allocator";
    set_system_vpd(FakePlatform::instance());
    MachineVpdRecord record{};
    uint32_t length = 0;
    const AllocationWatch watch(1, Failing::from_then_on);

    EXPECT_EQ(GetMachineVPD(&length, sizeof record, nullptr, bytes(record)), 0);

    EXPECT_STREQ(record.machine_type_model, "7X06AC1");
    EXPECT_EQ(watch.allocations(), 0U);
}

// ---- machine records

constexpr int image_unreadable = -9;

/// A machine whose FRU 0 is too large for any buffer that is not allocated.
void set_machine() {
    FakePlatform& platform = FakePlatform::instance();
    set_system_vpd(platform);
    set_posid(platform, 0xFF, 0xEE);
    platform.fru(0, seven_pairs());
}

TEST(AllocationFailure, LeavesTheMachineFieldsEmpty) {
    for_each_failing_allocation([](FaultyRun& run) {
        set_machine();
        auto record = unwritten<MachineFieldsRecord>();
        uint32_t length = 0;
        int result = 0;
        run([&] { result = GetMachineFields(&length, sizeof record, 0, bytes(record)); });

        EXPECT_EQ(result, run.has_failed() ? image_unreadable : 0);
        EXPECT_STREQ(record.pairs[6].value, run.has_failed() ? "" : "VALUE-6");
        EXPECT_EQ(run.left(), 0U);
    });
}

TEST(AllocationFailure, EndsTheOemMachineRecord) {
    for_each_failing_allocation([](FaultyRun& run) {
        set_machine();
        OemMachineRecord record{};
        int result = 0;
        run([&] { result = GetMachineVPD(nullptr, sizeof record, "_req_oem", bytes(record)); });

        EXPECT_EQ(result, run.has_failed() ? image_unreadable : 0);
        EXPECT_EQ(run.left(), 0U);
    });
}

/// What both readers make of the cache files; -1 for the first one that fails.
int read_both(MachineVpdRecord& machine, OemMachineRecord& oem) {
    if (vpdd_machine_vpd_read(bytes(machine), sizeof machine) != 0) return -1;
    return vpdd_machine_oem_vpd_read(bytes(oem), sizeof oem);
}

void expect_no_machine_lock() {
    EXPECT_TRUE(no_file_lock_is_held("/tmp/vpdd_machine_lock"));
    EXPECT_TRUE(no_file_lock_is_held("/tmp/vpdd_machine_oem_lock"));
}

TEST(AllocationFailure, LeavesAFreshStandardFileBesideTheOlderOemFile) {
    for_each_failing_allocation([](FaultyRun& run) {
        set_machine();
        ASSERT_EQ(init_machine_vpd_cache_file(), 0);
        FakePlatform::instance().field(60, std::string_view("\0NEW-MTM\0", 9));
        FakePlatform::instance().fru(0, machine_fru({"NEW-LABEL", "NEW-VALUE"}));
        make_oem(FakePlatform::instance());
        int result = 0;
        run([&] { result = init_machine_vpd_cache_file(); });

        EXPECT_EQ(result, run.has_failed() ? image_unreadable : 0);
        EXPECT_EQ(run.left(), 0U);
        MachineVpdRecord machine{};
        OemMachineRecord oem{};
        ASSERT_EQ(read_both(machine, oem), 0);
        EXPECT_STREQ(machine.machine_type_model, "NEW-MTM");
        EXPECT_STREQ(oem.pair_0.label, run.has_failed() ? "LABEL-0" : "NEW-LABEL");
        expect_no_machine_lock();
    });
}

TEST(AllocationFailure, IsOverInTheNextAttemptToRebuildTheCacheFiles) {
    for_each_failing_allocation([](FaultyRun& run) {
        set_machine();
        int result = 0;
        run([&] { result = update_machine_vpd_cache_file(); });

        const auto attempts = FakePlatform::instance().sleeps();
        const auto one_second = std::count(attempts.begin(), attempts.end(), 1000000);
        EXPECT_THAT(one_second, AnyOf(1, 2, 30));
        EXPECT_EQ(result, one_second == 30 ? image_unreadable : 0);
        EXPECT_EQ(run.left(), 0U);
        expect_no_machine_lock();
    });
}

TEST(AllocationFailure, FailsTheReaderOfACacheFile) {
    for_each_failing_allocation([](FaultyRun& run) {
        set_machine();
        ASSERT_EQ(init_machine_vpd_cache_file(), 0);
        MachineVpdRecord whole{};
        OemMachineRecord whole_oem{};
        ASSERT_EQ(read_both(whole, whole_oem), 0);
        MachineVpdRecord machine{};
        OemMachineRecord oem{};
        int result = 0, oem_result = 0;
        run([&] {
            result = vpdd_machine_vpd_read(bytes(machine), sizeof machine);
            oem_result = vpdd_machine_oem_vpd_read(bytes(oem), sizeof oem);
        });

        EXPECT_THAT(result, AnyOf(0, -1));
        EXPECT_THAT(oem_result, AnyOf(0, -1));
        EXPECT_TRUE(result == -1 || content(machine) == content(whole));
        EXPECT_TRUE(oem_result == -1 || content(oem) == content(whole_oem));
        EXPECT_EQ(run.left(), 0U);
        expect_no_machine_lock();
    });
}

// ---- clients

TEST(AllocationFailure, CutsThePciListOrYieldsNone) {
    for_each_failing_allocation([](FaultyRun& run) {
        pci_count = 5;
        PciList* list = nullptr;
        int result = 0, freed = 0;
        std::size_t nodes = 0;
        run([&] {
            result = access_pci_log(51, &list);
            for (const PciNode* node = list != nullptr ? list->head : nullptr; node != nullptr; node = node->next) {
                ++nodes;
            }
            freed = access_pci_log(53, &list);
        });

        EXPECT_THAT(result, AnyOf(0, -1));
        EXPECT_EQ(freed, result);
        EXPECT_TRUE(run.has_failed() || nodes == 5);
        EXPECT_LE(nodes, 5U);
        EXPECT_EQ(run.left(), 0U);
        EXPECT_EQ(pci_blocks, 0) << "the database's records are released";
    });
}

TEST(WithoutMemory, TheDaemonIsAskedFor) {
    if (!allocator_can_fail) GTEST_SKIP() << "the sanitizer owns the allocator";
    settle_c_library();
    const CaptureStdout silence;
    uint32_t size = 77, buffer = 77;
    const AllocationWatch watch(1, Failing::from_then_on, Allocating::library_and_c_library);

    EXPECT_EQ(vpdd_read_component_data("request", &size, 0, sizeof buffer, &buffer), -1) << "there is no daemon";

    EXPECT_EQ(size, 77U);
    EXPECT_EQ(watch.allocations(), 0U);
}

TEST(AllocationFailure, LeavesTheChangeHistoryLibraryUnloaded) {
    for_each_failing_allocation([](FaultyRun& run) {
        int result = 0;
        run([&] { result = vpdd_load_chghist_lib(); });

        EXPECT_EQ(result, -1) << "it is not installed here";
        EXPECT_EQ(vpdd_close_chghist_lib(), 0);
    });
}

}  // namespace
