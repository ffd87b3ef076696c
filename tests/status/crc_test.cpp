// SPDX-License-Identifier: Apache-2.0
#include <sys/mman.h>

#include "log_world.h"

using namespace vpdd::test;

namespace {

uint32_t crc_of_text(std::string_view text) {
    return calc_crc(reinterpret_cast<const uint8_t*>(text.data()), static_cast<uint32_t>(text.size()));
}

Bytes varied_bytes(std::size_t count) {
    Bytes bytes(count);
    uint32_t state = 12345;
    for (uint8_t& byte : bytes) {
        state = state * 1664525 + 1013904223;
        byte = static_cast<uint8_t>(state >> 24U);
    }
    return bytes;
}

/// A page behind which nothing can be read.
class GuardedPage {
public:
    GuardedPage() {
        void* const pages = mmap(nullptr, 2 * size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        first_ = static_cast<uint8_t*>(pages);
        mprotect(first_ + size, size, PROT_NONE);
    }
    ~GuardedPage() { munmap(first_, 2 * size); }
    GuardedPage(const GuardedPage&) = delete;
    GuardedPage& operator=(const GuardedPage&) = delete;

    uint8_t* end() const { return first_ + size; }

private:
    static constexpr std::size_t size = 4096;
    uint8_t* first_;
};

}  // namespace

TEST(CalcCrc, GivesTheCheckValueOfTheStandard) { EXPECT_EQ(crc_of_text("123456789"), 0xCBF43926U); }

TEST(CalcCrc, GivesZeroForNoBytes) { EXPECT_EQ(crc_of_text(""), 0U); }

TEST(CalcCrc, GivesKnownValuesOfSingleBytes) {
    EXPECT_EQ(crc_of_text(std::string_view("\0", 1)), 0xD202EF8DU);
    EXPECT_EQ(crc_of_text("a"), 0xE8B7BE43U);
}

TEST(CalcCrc, EqualsTheBitwiseSumForEachLengthAtEachAlignment) {
    const Bytes bytes = varied_bytes(96);
    for (std::size_t offset = 0; offset < 16; ++offset) {
        for (std::size_t length = 0; length <= 70; ++length) {
            const std::span part(bytes.data() + offset, length);
            ASSERT_EQ(calc_crc(part.data(), static_cast<uint32_t>(length)), bitwise_crc(part))
                << offset << ' ' << length;
        }
    }
}

TEST(CalcCrc, SumsTheIdentityPartOfAnEntry) {
    const Bytes bytes = varied_bytes(crc_covered);
    EXPECT_EQ(calc_crc(bytes.data(), crc_covered), bitwise_crc(bytes));
}

TEST(CalcCrc, ReadsNothingBehindTheLastByte) {
    const GuardedPage page;
    const Bytes bytes = varied_bytes(70);
    std::memcpy(page.end() - bytes.size(), bytes.data(), bytes.size());
    for (std::size_t length = 0; length <= bytes.size(); ++length) {
        const uint8_t* const first = page.end() - length;
        ASSERT_EQ(calc_crc(first, static_cast<uint32_t>(length)), bitwise_crc({first, length})) << length;
    }
}

TEST(CrcTable, HoldsTheRegisterAfterEightStepsFromEachByte) {
    for (uint32_t i = 0; i < 256; ++i) {
        uint32_t step = i;
        for (int bit = 0; bit < 8; ++bit) step = (step & 1U) != 0 ? step >> 1U ^ 0xEDB88320U : step >> 1U;
        ASSERT_EQ(crc_table[i], step) << i;
    }
}
