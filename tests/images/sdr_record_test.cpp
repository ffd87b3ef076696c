// SPDX-License-Identifier: Apache-2.0
#include "host/images/sdr_record.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace vpdd::images;
using testing::ElementsAre;

namespace {

TEST(FruLocator, LaysOutTheRecord) {
    const Bytes record = FruLocator(5, "DIMM 1")
                             .record_id(0x0203)
                             .access_address(0x22)
                             .access_lun_bus(0x81)
                             .channel(0x40)
                             .type(0x10)
                             .modifier(1)
                             .entity(32, 0x83)
                             .oem(9);
    EXPECT_THAT(record, ElementsAre(0x03, 0x02, 0x51, 0x11, 17, 0x22, 5, 0x81, 0x40, 0, 0x10, 1, 32, 0x83, 9, 0xC6, 'D',
                                    'I', 'M', 'M', ' ', '1'));
}

TEST(FullSensorRecord, HasItsNameBehindByte47) {
    const Bytes record = full_sensor_record(0x30, "Temp");
    EXPECT_EQ(record[3], 0x01);
    EXPECT_EQ(record[4], record.size() - 5);
    EXPECT_EQ(record[7], 0x30);
    EXPECT_EQ(record[12], 0x01);  // sensor type: temperature
    EXPECT_EQ(record[13], 0x01);  // event/reading type: threshold
    EXPECT_THAT(Bytes(record.begin() + 47, record.end()), ElementsAre(0xC4, 'T', 'e', 'm', 'p'));
}

TEST(Numbered, GivesSparseRecordIds) {
    const auto records = numbered({FruLocator(1, "a"), FruLocator(2, "b")}, 0x00FF, 2);
    EXPECT_EQ(records[0][0], 0xFF);
    EXPECT_EQ(records[1][0], 0x01);
    EXPECT_EQ(records[1][1], 0x01);
}

}  // namespace
