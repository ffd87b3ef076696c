// SPDX-License-Identifier: Apache-2.0
// The end of a cache, and its next life.
#include <thread>

#include "failing_allocator.h"
#include "own_process.h"
#include "update_fixture.h"

using namespace vpdd::test;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;
using vpdd::images::FruImage;
using vpdd::images::FruLocator;

namespace {

constexpr char destroy_name[] = "DestroyComponentVPDCache";

class DestroyTest : public UpdateTest {
protected:
    void create_three() {
        const Bytes image = FruImage().board({.manufacturer = "maker", .serial = "serial"}).build();
        create_cache({{5, image}, {6, image}, {7, image}});
    }
};

TEST_F(DestroyTest, RefusesToWorkBeforeTheCacheWasCreated) {
    EXPECT_EQ(DestroyComponentVPDCache(), -5);

    EXPECT_TRUE(platform.logged_located(info, destroy_name, "ERROR:Cache wasn't created(status: 0)"));
    EXPECT_THAT(platform.log(), SizeIs(1));
    EXPECT_THAT(platform.trace(), IsEmpty());
    EXPECT_TRUE(all_locks_are_free());
}

TEST_F(DestroyTest, TestsTheStatusUnderTheLock) {
    const LockJournal locks;

    DestroyComponentVPDCache();

    EXPECT_THAT(platform.journal(), ElementsAre("lock compvpd_access_mutex", HasSubstr("Cache wasn't created"),
                                                "unlock compvpd_access_mutex"));
}

TEST_F(DestroyTest, SucceedsOnceAndIsThenRefused) {
    create_three();

    EXPECT_EQ(DestroyComponentVPDCache(), 0);
    EXPECT_TRUE(platform.logged_nothing());
    EXPECT_EQ(DestroyComponentVPDCache(), -5);

    EXPECT_TRUE(platform.logged_located(info, destroy_name, "ERROR:Cache wasn't created(status: 2)"));
    EXPECT_TRUE(all_locks_are_free());
}

TEST_F(DestroyTest, TracesTheNewStatusUnderTheLock) {
    create_three();
    {
        const LockJournal locks;
        DestroyComponentVPDCache();
    }

    EXPECT_TRUE(platform.traced(2, destroy_name, "VPDCACHE Status -> 2 (Destoryed)"));
    EXPECT_THAT(platform.journal(), ElementsAre("lock compvpd_access_mutex",
                                                "trace 2 [DestroyComponentVPDCache]:VPDCACHE Status -> 2 (Destoryed)",
                                                "unlock compvpd_access_mutex"));
}

TEST_F(DestroyTest, SetsTheStatusBeforeItTracesIt) {
    create_three();
    // A request without an out record is refused before it would wait for the run.
    platform.during_trace([](const TraceLine&) {
        const ComponentRequest request{};
        GetComponentVPD(nullptr, 0, &request, nullptr);
    });

    EXPECT_EQ(DestroyComponentVPDCache(), 0);

    EXPECT_TRUE(platform.logged_located(info, "GetComponentVPD", "ERROR:Cache wasn't created(status: 2)\n"));
}

TEST_F(DestroyTest, FreesEveryNode) {
    if (!allocator_can_fail) GTEST_SKIP() << "the sanitizer's allocator is in the way";
    const AllocationWatch watch;
    create_three();
    ASSERT_EQ(watch.live_blocks(), 3U);

    DestroyComponentVPDCache();

    EXPECT_EQ(watch.live_blocks(), 0U);
}

TEST_F(DestroyTest, FreesAPpinDumpThatNobodyTook) {
    if (!allocator_can_fail) GTEST_SKIP() << "the sanitizer's allocator is in the way";
    const AllocationWatch watch;
    create_three();
    const Bytes image(32, 'x');
    ASSERT_EQ(get_ppin_hexdump(cached(6), image.data() + 16), 0);
    ASSERT_GT(watch.live_blocks(), 3U);

    DestroyComponentVPDCache();

    EXPECT_EQ(watch.live_blocks(), 0U);
}

TEST_F(DestroyTest, EmptiesACacheWithoutComponents) {
    create_cache({});

    EXPECT_EQ(DestroyComponentVPDCache(), 0);
    EXPECT_EQ(DestroyComponentVPDCache(), -5);
}

TEST_F(DestroyTest, SendsNothingAndWritesNoVariable) {
    create_three();
    DestroyComponentVPDCache();

    EXPECT_THAT(platform.requests(), IsEmpty());
    EXPECT_THAT(platform.configuration(), IsEmpty());
    EXPECT_THAT(platform.events(), IsEmpty());
}

TEST_F(DestroyTest, LeavesTheLookUpsNothing) {
    create_three();
    DestroyComponentVPDCache();

    const ComponentRequest request{5, 0};
    const uint8_t id = 5;
    uint32_t length = 77;
    ComponentVpdRecord copy{};
    ComponentVpdRecord* record = &copy;
    EXPECT_EQ(GetComponentVPD(&length, sizeof copy, &request, &copy), -1);
    EXPECT_EQ(GetComponentVPDByFruID(&length, sizeof copy, &id, &copy), -1);
    EXPECT_EQ(GetComponentVPD_KIVA(&length, sizeof copy, nullptr, &copy), -1);
    EXPECT_EQ(FindFRURecord(5, &record), -4);

    for (const char* function : {"GetComponentVPD", "GetComponentVPDByFruID", "GetComponentVPD_KIVA", "FindFRURecord"})
        EXPECT_TRUE(platform.logged_located(info, function, "ERROR:Cache wasn't created(status: 2)\n"));
    EXPECT_EQ(length, 77U);
    EXPECT_TRUE(is_same_record(copy, ComponentVpdRecord{}));
}

TEST_F(DestroyTest, MakesRoomForANewCreation) {
    create_three();
    DestroyComponentVPDCache();
    platform.fru(9, FruImage().board({.manufacturer = "new"}).build());

    create({FruLocator(9, "new component"), FruLocator(5, "old component")});

    const auto found = records();
    ASSERT_THAT(found, SizeIs(2)) << "nothing of the first cache is left";
    EXPECT_STREQ(found[0].name, "new component");
    EXPECT_STREQ(found[0].mfg_id, "new");
    EXPECT_STREQ(found[1].mfg_id, "maker");
    EXPECT_TRUE(platform.traced(2, "CreateComponentVPDCache", "VPDCACHE Status -> 1 (Created)"));
    EXPECT_EQ(platform.times_logged(warning, pid_line("CreateComponentVPDCache - Cache was created already.")), 0U);
    EXPECT_EQ(UpdateComponentVPDCache(), 0);
    EXPECT_EQ(DestroyComponentVPDCache(), 0);
}

TEST_F(DestroyTest, LetsAnUpdateSeeComponentsThatCameLaterOnlyInANewCache) {
    create_three();
    repository({FruLocator(5, "a"), FruLocator(8, "late")});
    UpdateComponentVPDCache();
    EXPECT_EQ(cached(8), nullptr);

    DestroyComponentVPDCache();
    create();

    EXPECT_NE(cached(8), nullptr);
}

TEST_F(DestroyTest, RunsBesideLookUpsUpdatesAndOtherDestructions) {
    create_three();
    repository({FruLocator(5, "a"), FruLocator(6, "b"), FruLocator(7, "c")});
    const CaptureStdout silence;
    std::atomic<int> destroyed{0}, strange{0};
    const auto expect_one_of = [&](int result, std::initializer_list<int> allowed) {
        if (std::find(allowed.begin(), allowed.end(), result) == allowed.end()) ++strange;
    };
    constexpr int rounds = 40;
    std::vector<std::thread> threads;
    for (int i = 0; i < 2; ++i) {
        threads.emplace_back([&] {
            for (int round = 0; round < rounds; ++round) {
                const int result = DestroyComponentVPDCache();
                expect_one_of(result, {0, -5});
                if (result == 0) ++destroyed;
                expect_one_of(CreateComponentVPDCache(), {0});
            }
        });
    }
    threads.emplace_back([&] {
        for (int round = 0; round < rounds; ++round) expect_one_of(UpdateComponentVPDCache(), {0, -4});
    });
    threads.emplace_back([&] {
        for (int round = 0; round < 20 * rounds; ++round) {
            const uint8_t id = 7;
            uint32_t length = 0;
            ComponentVpdRecord copies[4]{};
            expect_one_of(GetComponentVPDByFruID(&length, sizeof copies[0], &id, copies), {0, -1, -7});
            expect_one_of(GetComponentVPD_KIVA(&length, sizeof copies, nullptr, copies), {0, -1, -7});
            ComponentVpdRecord* record = nullptr;
            expect_one_of(FindFRURecord(5, &record), {0, -1, -4});
        }
    });
    for (std::thread& thread : threads) thread.join();

    EXPECT_EQ(strange, 0);
    EXPECT_GE(destroyed, 1);
    EXPECT_TRUE(all_locks_are_free());
    ASSERT_THAT(records(), SizeIs(3));
    EXPECT_EQ(DestroyComponentVPDCache(), 0);
}

}  // namespace
