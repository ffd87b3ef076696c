// SPDX-License-Identifier: Apache-2.0
#include "cache_fixture.h"
#include "failing_allocator.h"

using namespace vpdd::test;
using vpdd::images::FruImage;
using vpdd::images::FruLocator;

namespace {

TEST_F(ComponentCacheTest, NeedsTheRecordsAndOneImageWhenItIsCreated) {
    if (!allocator_can_fail) GTEST_SKIP() << "the sanitizer owns malloc";
    constexpr int components = 256;
    // What the allocator rounds a block up by, and a buffer for one image with its room (docs/footprint.md).
    constexpr std::size_t rounding = 16, image_buffer = 4096;
    std::vector<Bytes> locators;
    for (int id = 0; id < components; ++id) {
        const auto fru_id = static_cast<uint8_t>(id);
        const std::string number = std::to_string(id);
        platform.fru(fru_id, FruImage().board({.manufacturer = "maker", .serial = "S" + number}).build());
        locators.push_back(FruLocator(fru_id, "Board " + number).type(0x10).modifier(0).entity(7, fru_id).build());
    }
    repository(std::move(locators));

    const AllocationWatch watch;
    create();

    RecordProperty("peak_heap_bytes", std::to_string(watch.peak_bytes()));
    ASSERT_EQ(records().size(), std::size_t{components});
    EXPECT_GE(watch.peak_bytes(), components * sizeof(ComponentVpdNode));
    EXPECT_LE(watch.peak_bytes(), components * (sizeof(ComponentVpdNode) + rounding) + image_buffer);
}

}  // namespace
