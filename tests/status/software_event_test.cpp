// SPDX-License-Identifier: Apache-2.0
#include "log_world.h"

using namespace vpdd::test;

namespace {

class SoftwareEvent : public LogTest {
protected:
    SoftwareMessage sent(const ComponentVpdRecord& record) {
        send_swe_vpdd(&record);
        return platform.software_message.calls().back();
    }

    static std::string name_in(const SoftwareMessage& message) {
        return {message.payload.begin() + 12, message.payload.begin() + 76};
    }
};

}  // namespace

TEST_F(SoftwareEvent, IsMessage72AsWorkedOutByHand) {
    platform.variable("vpdc_master", 0x01020304);
    platform.variable("vpdc_0x1f", -2);
    ComponentVpdRecord record = make_entry(0x1F, "A");
    record.entity_id = 0xAB;
    set_text(record.name, "Fan");
    const SoftwareMessage message = sent(record);
    EXPECT_EQ(message.message, 72);
    EXPECT_EQ(message.argument0, 0x01020304);
    EXPECT_EQ(message.argument1, -2);
    Bytes expected{0xAB, 0, 0, 0, 0x04, 0x03, 0x02, 0x01, 0xFE, 0xFF, 0xFF, 0xFF, 'F', 'a', 'n'};
    expected.resize(76);
    for (const char character : {'v', 'p', 'd', 'c', '_', '0', 'x', '1', 'f'}) {
        expected.push_back(static_cast<uint8_t>(character));
    }
    expected.resize(92);
    EXPECT_EQ(message.payload, expected);
}

TEST_F(SoftwareEvent, NamesItsVariableWithTwoSmallHexDigits) {
    for (const auto& [fru_id, name] : {std::pair{0x0A, "vpdc_0x0a"}, {0x00, "vpdc_0x00"}, {0xFF, "vpdc_0xff"}}) {
        platform.variable(name, fru_id + 1);
        const SoftwareMessage message = sent(make_entry(static_cast<uint8_t>(fru_id), "A"));
        EXPECT_EQ(message.argument1, fru_id + 1);
        EXPECT_STREQ(reinterpret_cast<const char*>(message.payload.data() + 76), name);
    }
}

TEST_F(SoftwareEvent, HoldsZerosForUnsetVariables) {
    const SoftwareMessage message = sent(make_entry(5, "A"));
    EXPECT_EQ(message.argument0, 0);
    EXPECT_EQ(message.argument1, 0);
    EXPECT_EQ(Bytes(message.payload.begin() + 4, message.payload.begin() + 12), Bytes(8));
}

TEST_F(SoftwareEvent, ReadsTheMasterVariableAndThenTheComponents) {
    sent(make_entry(5, "A"));
    std::vector<std::string> names;
    for (const auto& call : platform.configuration_read.calls()) names.push_back(call.name);
    EXPECT_EQ(names, (std::vector<std::string>{"vpdc_master", "vpdc_0x05"}));
}

TEST_F(SoftwareEvent, CopiesANameOf63CharactersWholeAndCutsLongerOnes) {
    for (const std::size_t length : {62U, 63U, 64U, 80U, 86U}) {
        ComponentVpdRecord record = make_entry(5, "A");
        set_text(record.name, std::string(length, 'n'));
        std::string expected(std::min<std::size_t>(length, 63), 'n');
        expected.resize(64);
        EXPECT_EQ(name_in(sent(record)), expected) << length;
    }
}

TEST_F(SoftwareEvent, GivesTheDispatchersResult) {
    platform.software_message.always(-33);
    const ComponentVpdRecord record = make_entry(5, "A");
    EXPECT_EQ(send_swe_vpdd(&record), -33);
}
