// SPDX-License-Identifier: Apache-2.0
#include "platform/sensors.h"

#include "open_server.h"

using namespace vpdd::test;

namespace {

constexpr std::size_t entry_size = 1492;
constexpr uint8_t processor = 7;

const std::string sensors = R"(, "sensors": [
    {"name": "CPU 1 Status", "type": 7, "state": 32896, "text": "Presence detected"},
    {"name": "Fan 1 Tach", "type": 4},
    {"name": "CPU 2 Status", "type": 7, "text": "State Unavailable"}])";

TEST(Sensors, OfTheAskedTypeAreHandedOut) {
    const OpenServer server(server_text("", sensors));
    Bytes buffer(entry_size * 3, 0xEE);
    uint32_t size = 1;

    ASSERT_EQ(GetAllSensorInfoByType(&size, static_cast<uint32_t>(buffer.size()), &processor, buffer.data()), 0);

    EXPECT_EQ(size, entry_size * 2);
    EXPECT_NE(buffer[2] | buffer[3], 0);
    EXPECT_STREQ(reinterpret_cast<const char*>(&buffer[6]), "CPU 1 Status");
    EXPECT_EQ(buffer[198] | buffer[199] << 8, 32896);
    EXPECT_STREQ(reinterpret_cast<const char*>(&buffer[202]), "Presence detected");
    EXPECT_STREQ(reinterpret_cast<const char*>(&buffer[entry_size + 6]), "CPU 2 Status");
    EXPECT_EQ(buffer[entry_size + 198] | buffer[entry_size + 199], 0);
    EXPECT_EQ(buffer[entry_size * 2], 0xEE);
}

TEST(Sensors, BeyondTheBufferAreLeftOut) {
    const OpenServer server(server_text("", sensors));
    Bytes buffer(entry_size * 2 - 1);
    uint32_t size = 1;

    ASSERT_EQ(GetAllSensorInfoByType(&size, static_cast<uint32_t>(buffer.size()), &processor, buffer.data()), 0);

    EXPECT_EQ(size, entry_size);
}

TEST(Sensors, OfATypeThatTheServerDoesNotHaveAreNone) {
    const OpenServer server(server_text("", sensors));
    const uint8_t battery = 0x29;
    Bytes buffer(entry_size);
    uint32_t size = 1;

    EXPECT_EQ(GetAllSensorInfoByType(&size, entry_size, &battery, buffer.data()), 0);

    EXPECT_EQ(size, 0U);
}

TEST(Sensors, CannotBeReadWithoutAServer) {
    Bytes buffer(entry_size);
    uint32_t size = 1;

    EXPECT_NE(GetAllSensorInfoByType(&size, entry_size, &processor, buffer.data()), 0);
}

}  // namespace
