// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "failing_allocator.h"
#include "fake_platform.h"

using namespace vpdd::test;

namespace {

/// An image of nine bytes and the spare byte behind it; not one byte more may be read.
const Bytes image{'A', 'B', 'C', 'D', 'E', 'F', 'G', 'H', 'I', 0};
const uint8_t* image_end() { return image.data() + 9; }

/// A node in a list of its own; remove_vpd_node frees it.
class PpinDump : public PlatformTest {
protected:
    PpinDump() { insert_vpd_node_last(&list, node); }
    ~PpinDump() override {
        if (node != nullptr) remove_vpd_node(&list, node);
    }

    int dump() { return get_ppin_hexdump(&node->record, image_end()); }
    void remove() {
        remove_vpd_node(&list, node);
        node = nullptr;
    }

    ComponentVpdList list{};
    ComponentVpdNode* node = static_cast<ComponentVpdNode*>(std::calloc(1, sizeof(ComponentVpdNode)));
};

TEST_F(PpinDump, IsKeptInTheRecordsWord) {
    EXPECT_EQ(dump(), 0);
    EXPECT_NE(node->record.ppin_dump, 0U);
}

#if UINTPTR_MAX == UINT32_MAX
TEST_F(PpinDump, StandsAtTheAddressInTheRecordsWord) {
    EXPECT_EQ(dump(), 0);
    const auto* const kept = reinterpret_cast<const uint8_t*>(static_cast<uintptr_t>(node->record.ppin_dump));
    EXPECT_EQ(Bytes(kept, kept + image.size()), image);
}
#endif

TEST_F(PpinDump, HoldsTheLastNineBytesOfTheImageAndTheOneBehind) {
    if (!allocator_can_fail) GTEST_SKIP() << "the sanitizer owns malloc";
    const AllocationWatch watch;
    EXPECT_EQ(dump(), 0);
    const auto blocks = watch.blocks();
    EXPECT_TRUE(std::any_of(blocks.begin(), blocks.end(),
                            [](const void* block) { return std::memcmp(block, image.data(), 10) == 0; }));
}

TEST_F(PpinDump, IsFreedWithItsNode) {
    if (!allocator_can_fail) GTEST_SKIP() << "the sanitizer owns malloc";
    const AllocationWatch watch;
    dump();
    EXPECT_GT(watch.live_blocks(), 0U);
    remove();
    EXPECT_EQ(watch.live_blocks(), 0U);
}

TEST_F(PpinDump, IsFreedWithItsOwnNodeAmongOthers) {
    if (!allocator_can_fail) GTEST_SKIP() << "the sanitizer owns malloc";
    auto* const other = static_cast<ComponentVpdNode*>(std::calloc(1, sizeof(ComponentVpdNode)));
    insert_vpd_node_last(&list, other);
    const AllocationWatch watch;
    dump();
    const std::size_t blocks_of_one = watch.live_blocks();
    get_ppin_hexdump(&other->record, image_end());
    EXPECT_NE(node->record.ppin_dump, other->record.ppin_dump);

    remove();
    EXPECT_EQ(watch.live_blocks(), blocks_of_one);
    remove_vpd_node(&list, other);
    EXPECT_EQ(watch.live_blocks(), 0U);
}

TEST_F(PpinDump, IsNullWhenAnAllocationFails) {
    if (!allocator_can_fail) GTEST_SKIP() << "the sanitizer owns malloc";
    for (std::size_t failing = 1;; ++failing) {
        node->record.ppin_dump = 0x5EAD;  // of no dump
        const CaptureStderr capture;
        const AllocationWatch watch(failing);
        const int result = dump();
        if (!watch.has_failed()) break;
        EXPECT_EQ(result, ENOMEM);
        EXPECT_EQ(node->record.ppin_dump, 0U);
        EXPECT_EQ(capture.text(), "malloc: Cannot allocate memory\n");
        EXPECT_EQ(watch.live_blocks(), 0U);
    }
    EXPECT_NE(node->record.ppin_dump, 0U);
}

}  // namespace
