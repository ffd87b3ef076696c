// SPDX-License-Identifier: Apache-2.0
// Each allocation fails in the life of the component cache.
#include "compvpd/module_fixture.h"
#include "faults/each_allocation.h"

using namespace vpdd::test;
using testing::AnyOf;
using vpdd::images::FruImage;
using vpdd::images::FruLocator;

namespace {

constexpr uint8_t board = 5, large_board = 6, adapter = 7, supply = 8, ddr3_module = 10, ddr4_module = 11,
                  ddr5_module = 12;
constexpr std::size_t components = 7;

class CacheAllocationFailure : public ModuleCacheTest {
protected:
    void set_server(const std::string& serial) {
        platform.reset();
        platform.fru(0, FruImage().product({.manufacturer = "Maker", .asset_tag = "Tag"}).padded_to(300).build());
        platform.fru(board, FruImage().board({.manufacturer = "Maker", .serial = serial}).build());
        platform.fru(large_board, FruImage().board({.manufacturer = "Maker", .serial = serial}).padded_to(700).build());
        platform.fru(adapter, FruImage().product({.manufacturer = "Maker", .serial = serial}).build());
        platform.fru(supply, FruImage()
                                 .board({.manufacturer = "Maker",
                                         .serial = serial,
                                         .custom = {"c1", "c2", "c3", "c4", "c5", "c6", "c7", "c8", "01.02", "03.04"}})
                                 .build());
        platform.fru(ddr3_module, ddr3());
        platform.fru(ddr4_module, ddr4());
        platform.fru(ddr5_module, ddr5());
        repository({FruLocator(board, "Board").entity(7, 1), FruLocator(large_board, "Riser").entity(7, 2),
                    FruLocator(adapter, "Adapter").entity(0x0B, 1), FruLocator(supply, "PSU 1").entity(power_supply, 1),
                    module(ddr3_module, "DIMM 1"), module(ddr4_module, "DIMM 2"), module(ddr5_module, "DIMM 3")});
        smbios("DIMM 2", "12345678");
    }

    /// What an undisturbed creation makes of the server.
    static std::vector<ComponentVpdRecord> of_an_undisturbed_cache() {
        EXPECT_EQ(CreateComponentVPDCache(), 0);
        std::vector<ComponentVpdRecord> copies = records();
        EXPECT_EQ(copies.size(), components);
        EXPECT_EQ(DestroyComponentVPDCache(), 0);
        return copies;
    }

    static const ComponentVpdRecord& record_of(uint8_t fru_id, const std::vector<ComponentVpdRecord>& all) {
        return *std::find_if(all.begin(), all.end(), [=](const auto& record) { return record.fru_id == fru_id; });
    }

    /// Whether the record is the whole one, one that was not read, or a module's without its latencies.
    static testing::AssertionResult is_sound(const ComponentVpdRecord& record, const ComponentVpdRecord& whole) {
        ComponentVpdRecord expected = whole;
        expected.next_fru_id = record.next_fru_id;
        if (is_same_record(record, expected)) return testing::AssertionSuccess();
        if (record.entity_id == memory_device && record.is_cached == 1) {
            std::memset(expected.spd_info.cas_latencies_supports, 0, sizeof expected.spd_info.cas_latencies_supports);
            return is_same_record(record, expected);
        }
        ComponentVpdRecord unread{};
        unread.fru_id = whole.fru_id;
        unread.next_fru_id = record.next_fru_id;
        std::memcpy(unread.name, whole.name, sizeof unread.name);
        unread.entity_id = whole.entity_id;
        unread.entity_instance = whole.entity_instance;
        return is_same_record(record, unread);
    }

    /// Whether an update made this of the record: all of it, or all but a text that needs memory of its own.
    static testing::AssertionResult is_renewed(const ComponentVpdRecord& record, ComponentVpdRecord expected) {
        if (is_same_record(record, expected)) return testing::AssertionSuccess();
        std::memset(expected.spd_info.cas_latencies_supports, 0, sizeof expected.spd_info.cas_latencies_supports);
        std::memset(expected.ppin, 0, sizeof expected.ppin);
        return is_same_record(record, expected);
    }

    /// Copies of the records by their FRU ids, as a client gets them.
    static void expect_lookups_to_give(const std::vector<ComponentVpdRecord>& expected) {
        for (const ComponentVpdRecord& record : expected) {
            ComponentVpdRecord copy{};
            uint32_t length = 0;
            ASSERT_EQ(GetComponentVPDByFruID(&length, sizeof copy, &record.fru_id, &copy), 0);
            copy.next_fru_id = record.next_fru_id;
            EXPECT_TRUE(is_same_record(copy, record)) << "FRU " << int{record.fru_id};
        }
    }
};

TEST_F(CacheAllocationFailure, CostsACreationNoMoreThanTheComponentsConcerned) {
    for_each_failing_allocation([&](FaultyRun& run) {
        set_server("SERIAL");
        const std::vector<ComponentVpdRecord> whole = of_an_undisturbed_cache();
        int result = -77;
        run([&] { result = CreateComponentVPDCache(); });

        EXPECT_EQ(result, 0);
        const std::vector<ComponentVpdRecord> found = records();
        EXPECT_EQ(run.left(), found.size()) << "nothing but the nodes of the list";
        EXPECT_TRUE(run.has_failed() || found.size() == whole.size());
        for (const ComponentVpdRecord& record : found) {
            EXPECT_TRUE(is_sound(record, record_of(record.fru_id, whole))) << "FRU " << int{record.fru_id};
        }

        // Once there is memory again, an update completes every record that the list has, a second creation the list.
        EXPECT_EQ(UpdateComponentVPDCache(), 0);
        for (const ComponentVpdRecord& record : found) EXPECT_EQ(cached(record.fru_id)->is_cached, 1);
        EXPECT_EQ(DestroyComponentVPDCache(), 0);
        EXPECT_EQ(CreateComponentVPDCache(), 0);
        expect_lookups_to_give(whole);
    });
}

TEST_F(CacheAllocationFailure, CostsAnUpdateNoMoreThanTheComponentsConcerned) {
    for_each_failing_allocation([&](FaultyRun& run) {
        set_server("OLD");
        ASSERT_EQ(CreateComponentVPDCache(), 0);
        const std::vector<ComponentVpdRecord> old = records();
        set_server("NEW");
        ASSERT_EQ(UpdateComponentVPDCache(), 0);
        const std::vector<ComponentVpdRecord> renewed = records();
        ASSERT_EQ(DestroyComponentVPDCache(), 0);
        set_server("OLD");
        ASSERT_EQ(CreateComponentVPDCache(), 0);
        set_server("NEW");
        int result = -77;
        run([&] { result = UpdateComponentVPDCache(); });

        EXPECT_THAT(result, AnyOf(0, -10));
        EXPECT_TRUE(run.has_failed() || result == 0);
        EXPECT_EQ(run.left(), 0U);
        const std::vector<ComponentVpdRecord> found = records();
        ASSERT_EQ(found.size(), components);
        for (std::size_t i = 0; i < components; ++i) {
            const bool is_stale = result == -10 && is_same_record(found[i], old[i]);
            EXPECT_TRUE(is_stale || is_renewed(found[i], renewed[i])) << "FRU " << int{found[i].fru_id};
        }

        EXPECT_EQ(UpdateComponentVPDCache(), 0) << "the next update has memory again";
        expect_lookups_to_give(renewed);
    });
}

TEST_F(CacheAllocationFailure, DoesNotReachDestructionAndLookUps) {
    if (!allocator_can_fail) GTEST_SKIP() << "the sanitizer owns the allocator";
    set_server("SERIAL");
    ASSERT_EQ(CreateComponentVPDCache(), 0);
    const std::vector<ComponentVpdRecord> whole = records();
    {
        const AllocationWatch watch(1, Failing::from_then_on);
        expect_lookups_to_give(whole);
        EXPECT_EQ(DestroyComponentVPDCache(), 0);
        EXPECT_EQ(watch.allocations(), 0U);
    }
    EXPECT_TRUE(no_exported_mutex_is_held());
}

TEST_F(CacheAllocationFailure, LeavesTheDcmiVariablesUnset) {
    for_each_failing_allocation([&](FaultyRun& run) {
        set_server("SERIAL");
        int result = -77;
        run([&] { result = UpdateFRUID0InfoToTARNForDCMI(); });

        EXPECT_EQ(result, run.has_failed() ? -1 : 0);
        EXPECT_EQ(platform.configuration().empty(), run.has_failed());
        EXPECT_EQ(run.left(), 0U);
    });
}

}  // namespace
