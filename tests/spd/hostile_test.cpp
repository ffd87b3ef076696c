// SPDX-License-Identifier: Apache-2.0
// Images of any bytes at all. What the sanitizers do not see, the records' texts show.
#include <random>

#include "spd_test.h"

using namespace vpdd::test;

namespace {

using HostileImages = PlatformTest;

/// Any bytes, in a block of exactly the size that the decoders may read.
Bytes any_image(std::mt19937& random, uint8_t type, std::size_t size) {
    Bytes image(size);
    for (uint8_t& byte : image) byte = static_cast<uint8_t>(random());
    image[2] = type;
    if (type == nvdimm && random() % 2 == 0) image[0] = random() % 2 == 0 ? '#' : '0';
    return image;
}

template <std::size_t Size>
void expect_ended(const char (&field)[Size]) {
    EXPECT_LT(strnlen(field, Size), Size);
}

void expect_ended_texts(const SpdInfo& record) {
    expect_ended(record.part_number);
    expect_ended(record.serial_number);
    expect_ended(record.udi_part_number);
    expect_ended(record.mfg_id);
    expect_ended(record.device_type);
    expect_ended(record.module_type);
    expect_ended(record.sdram_freq_string);
    expect_ended(record.cas_latencies_supports);
}

TEST_F(HostileImages, AreDecodedWithinTheirBounds) {
    std::mt19937 random(20240229);
    for (int round = 0; round < 400; ++round) {
        for (const uint8_t type : {ddr3, ddr4, nvdimm, ddr5, static_cast<uint8_t>(random())}) {
            SpdInfo record{};
            const Bytes image = any_image(random, type, 1024);
            const int32_t expected_crc = static_cast<int32_t>(random());
            EXPECT_EQ(vpdd_Handle_DDR4_SPD(image.data(), &record), 0);
            expect_ended_texts(record);
            vpdd_print(&record);
            EXPECT_EQ(vpdd_Handle_DDR5_SPD(image.data(), &record), 0);
            expect_ended_texts(record);
            check_spd_crc(image.data(), 224, &expected_crc);
            platform.reset();
        }
    }
}

TEST_F(HostileImages, OfDdr4AreReadInsideFiveHundredAndTwelveBytes) {
    std::mt19937 random(19700101);
    for (int round = 0; round < 200; ++round) {
        SpdInfo record{};
        Bytes image = any_image(random, round % 2 == 0 ? ddr4 : nvdimm, 512);
        if (image[2] == nvdimm) image[0] = '#';
        EXPECT_EQ(vpdd_Handle_DDR4_SPD(image.data(), &record), 0);
    }
}

TEST_F(HostileImages, FillEachFieldWithEachByte) {
    for (int value = 0; value <= 0xFF; ++value) {
        Bytes image(1024, static_cast<uint8_t>(value));
        for (const uint8_t type : {ddr3, ddr4, nvdimm, ddr5}) {
            SpdInfo record{};
            image[2] = type;
            EXPECT_EQ(vpdd_Handle_DDR4_SPD(image.data(), &record), 0);
            EXPECT_EQ(vpdd_Handle_DDR5_SPD(image.data(), &record), 0);
            expect_ended_texts(record);
        }
        platform.reset();
    }
}

}  // namespace
