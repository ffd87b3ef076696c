// SPDX-License-Identifier: Apache-2.0
#include "host/images/property_tlv.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

using namespace vpdd::images;

namespace {

TEST(PropertyTlv, OfATextHasItsLengthInTheHead) {
    EXPECT_EQ(property_tlv("abc"), (Bytes{0x83, 'a', 'b', 'c'}));
    EXPECT_EQ(property_tlv(std::string(127, 'a')), [] {
        Bytes bytes(128, 'a');
        bytes[0] = 0xFF;
        return bytes;
    }());
}

TEST(PropertyTlv, OfBytesHasTheLengthZeroForSixteen) {
    EXPECT_EQ(property_tlv(Bytes{7, 8}), (Bytes{0x12, 7, 8}));
    EXPECT_EQ(property_tlv(Bytes(15, 7))[0], 0x1F);
    EXPECT_EQ(property_tlv(Bytes(16, 7))[0], 0x10);
    EXPECT_EQ(property_tlv(Bytes(16, 7)).size(), 17U);
}

TEST(PropertyTlv, OfNothingOrTooMuchIsRefused) {
    EXPECT_THROW(property_tlv(""), std::length_error);
    EXPECT_THROW(property_tlv(std::string(128, 'a')), std::length_error);
    EXPECT_THROW(property_tlv(Bytes()), std::length_error);
    EXPECT_THROW(property_tlv(Bytes(17)), std::length_error);
}

}  // namespace
