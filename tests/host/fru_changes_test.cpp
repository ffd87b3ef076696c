// SPDX-License-Identifier: Apache-2.0
#include <array>

#include "orva_vpdd.h"
#include "platform/sdr_repository.h"
#include "platform/sensors.h"
#include "platform_calls.h"

using namespace vpdd::test;

namespace {

const std::string fan = R"({"areas": {"board": {"manufacturer": "Example Fans", "serial_number": "FN19Z"},
                                      "product": {"manufacturer": "Example Fans", "serial_number": "PR-1"}}})";
const std::string processor =
    R"({"areas": {"product": {"version": "ES-1", "serial_number": "EC99"}, "ppin": "12345678Z"}})";
const std::string module = R"({"dimm": {"generation": "DDR5", "module": "RDIMM", "size_gib": 16, "ranks": 1,
    "device_width": 8, "speed": 4800, "maker": "Samsung", "part_number": "M321R2GA3BB6", "serial_number": "0a0b0cFF",
    "year": 2023, "week": 5}})";

std::string entity_text(int id, const std::string& name, const std::string& entity, const std::string& content) {
    return R"({"fru_id": )" + std::to_string(id) + R"(, "name": ")" + name + R"(", "entity": ")" + entity +
           R"(", "instance": 1, "content": )" + content + "}";
}

const std::string description = server_text(
    entity_text(1, "CPU 1", "processor", processor) + "," + entity_text(2, "CPU 11", "processor", processor) + "," +
        entity_text(3, "DIMM 1", "memory device", module) + "," + entity_text(4, "Fan 1", "fan", fan) + "," +
        entity_text(5, "Slot", "fan", R"({"absent": true})"),
    R"(, "sensors": [{"name": "CPU 11 Status", "type": 7, "state": 130, "text": "there"},
                                 {"name": "CPU 1 Status", "type": 7, "state": 130, "text": "there"}])");

struct Outcome {
    int result;
    std::string error;
    VpddHostChangedFru fru;
};

Outcome change(VpddHostChange change, const char* fru, const char* serial_number = nullptr) {
    Outcome outcome{};
    std::array<char, 256> error{};
    outcome.result = vpdd_host_change_fru(change, fru, serial_number, &outcome.fru, error.data(), error.size());
    outcome.error = error.data();
    return outcome;
}

/// The printable bytes of a FRU's image.
std::string image_text(uint8_t id) {
    std::string text;
    for (uint16_t offset = 0;; offset = static_cast<uint16_t>(offset + 64)) {
        const Bytes answer = read_fru_data(id, offset, 64);
        if (answer[0] != 0) return text;
        text.append(answer.begin() + 2, answer.end());
    }
}

bool holds(uint8_t id, const std::string& text) { return image_text(id).find(text) != std::string::npos; }

std::vector<uint16_t> processor_states() {
    constexpr std::size_t entry_size = 1492, state_offset = 198;
    Bytes buffer(4 * entry_size);
    uint32_t size = 1;
    const uint8_t type = 7;
    GetAllSensorInfoByType(&size, static_cast<uint32_t>(buffer.size()), &type, buffer.data());
    std::vector<uint16_t> states;
    for (std::size_t entry = 0; entry < size; entry += entry_size) {
        states.push_back(static_cast<uint16_t>(buffer[entry + state_offset] | buffer[entry + state_offset + 1] << 8));
    }
    return states;
}

class FruChanges : public testing::Test {
protected:
    FruChanges() { options_.state_directory = folder_.c_str(); }

    TemporaryFolder folder_;
    VpddHostOptions options_{};
};

TEST_F(FruChanges, APulledFruIsNotPresent) {
    const OpenServer server(description, options_);

    const Outcome outcome = change(VPDD_HOST_PULL, "Fan 1");

    EXPECT_EQ(outcome.result, 0) << outcome.error;
    EXPECT_EQ(outcome.fru.fru_id, 4);
    EXPECT_STREQ(outcome.fru.name, "Fan 1");
    EXPECT_STREQ(outcome.fru.old_serial_number, "FN19Z");
    EXPECT_STREQ(outcome.fru.new_serial_number, "");
    EXPECT_EQ(fru_size(4), (Bytes{0xCB}));
    EXPECT_EQ(read_fru_data(4, 0, 8), (Bytes{0xCB}));
}

TEST_F(FruChanges, StayInTheStateDirectory) {
    {
        const OpenServer server(description, options_);
        change(VPDD_HOST_PULL, "4");
    }
    const OpenServer again(description, options_);

    EXPECT_EQ(fru_size(4), (Bytes{0xCB}));
}

TEST_F(FruChanges, DoNotConcernAnotherStateDirectory) {
    {
        const OpenServer server(description, options_);
        change(VPDD_HOST_PULL, "4");
    }
    const OpenServer other(description);

    EXPECT_EQ(fru_size(4)[0], 0x00);
}

TEST_F(FruChanges, AnInsertedFruIsTheOneThatWasPulled) {
    const OpenServer server(description, options_);
    const std::string before = image_text(4);
    change(VPDD_HOST_PULL, "Fan 1");

    const Outcome outcome = change(VPDD_HOST_INSERT, "Fan 1");

    EXPECT_EQ(outcome.result, 0) << outcome.error;
    EXPECT_STREQ(outcome.fru.new_serial_number, "FN19Z");
    EXPECT_EQ(image_text(4), before);
}

TEST_F(FruChanges, ASwappedFruHasSerialNumbersThatFollow) {
    const OpenServer server(description, options_);

    const Outcome outcome = change(VPDD_HOST_SWAP, "Fan 1");

    EXPECT_STREQ(outcome.fru.old_serial_number, "FN19Z");
    EXPECT_STREQ(outcome.fru.new_serial_number, "FN20A");
    EXPECT_TRUE(holds(4, "FN20A"));
    EXPECT_TRUE(holds(4, "PR-2"));
    EXPECT_FALSE(holds(4, "FN19Z"));
}

TEST_F(FruChanges, ASwapMayNameTheSerialNumber) {
    const OpenServer server(description, options_);

    change(VPDD_HOST_SWAP, "Fan 1", "NEW 77");

    EXPECT_TRUE(holds(4, "NEW 77"));
}

TEST_F(FruChanges, ASecondSwapGoesOnFromTheFirst) {
    const OpenServer server(description, options_);
    change(VPDD_HOST_SWAP, "Fan 1");

    EXPECT_STREQ(change(VPDD_HOST_SWAP, "Fan 1").fru.new_serial_number, "FN20B");
}

TEST_F(FruChanges, ASwappedProcessorHasAnotherPpin) {
    const OpenServer server(description, options_);

    change(VPDD_HOST_SWAP, "CPU 1");

    EXPECT_TRUE(holds(1, "ED00"));
    EXPECT_TRUE(holds(1, "12345679A"));
}

TEST_F(FruChanges, ASwappedModuleCountsOnInHexadecimalDigitsAndSmbiosKnowsIt) {
    const OpenServer server(description, options_);

    const Outcome outcome = change(VPDD_HOST_SWAP, "DIMM 1");

    constexpr uint16_t ddr5_serial_number = 517;  // JESD400-5
    EXPECT_STREQ(outcome.fru.new_serial_number, "0A0B0D00");
    EXPECT_EQ(read_fru_data(3, ddr5_serial_number, 4), (Bytes{0x00, 0x04, 0x0A, 0x0B, 0x0D, 0x00}));
    SmbiosTable* table = nullptr;
    ASSERT_EQ(vpdd_load_smbios_table(&table), 0);
    uint32_t size = 0, speed = 0;
    EXPECT_EQ(vpdd_get_size_speed_from_smbios_by_serial_number(table, "800000000A0A0B0D00", &size, &speed), 0);
    vpdd_free_smbios_table(&table);
}

TEST_F(FruChanges, APulledProcessorIsNotDetectedByItsOwnSensor) {
    const OpenServer server(description, options_);

    change(VPDD_HOST_PULL, "CPU 11");
    EXPECT_EQ(processor_states(), (std::vector<uint16_t>{2, 130}));

    change(VPDD_HOST_INSERT, "CPU 11");
    EXPECT_EQ(processor_states(), (std::vector<uint16_t>{130, 130}));
}

TEST_F(FruChanges, LeaveTheSdrRepositoryAsItIs) {
    const OpenServer server(description, options_);
    const auto record = [] {
        Bytes bytes(64);
        uint16_t next = 0;
        int32_t length = 0;
        mosk_sdr_get_entry(1, 3, 64, &next, &length, bytes.data());
        return bytes;
    };
    const Bytes before = record();

    change(VPDD_HOST_PULL, "DIMM 1");

    EXPECT_EQ(record(), before);
}

TEST_F(FruChanges, ThatCannotBeAreRefusedWithTheReason) {
    const OpenServer server(description, options_);
    constexpr int impossible = -2;

    EXPECT_EQ(change(VPDD_HOST_INSERT, "Fan 1").error, "Fan 1 is there already");
    EXPECT_EQ(change(VPDD_HOST_PULL, "Slot").error, "Slot is not there");
    EXPECT_EQ(change(VPDD_HOST_SWAP, "Slot").error, "Slot is not there");
    EXPECT_EQ(change(VPDD_HOST_INSERT, "Slot").error, "the description has no part for Slot");
    EXPECT_EQ(change(VPDD_HOST_PULL, "Fan").error, "the server has no FRU of the name or id \"Fan\"");
    EXPECT_EQ(change(VPDD_HOST_SWAP, "Fan 1", "FN19Z").result, impossible);
    change(VPDD_HOST_PULL, "Fan 1");
    EXPECT_EQ(change(VPDD_HOST_PULL, "Fan 1").result, impossible);
    EXPECT_EQ(change(VPDD_HOST_SWAP, "Fan 1").result, impossible);
}

TEST_F(FruChanges, WithASerialNumberThatThePartCannotHaveChangeNothing) {
    const OpenServer server(description, options_);

    EXPECT_EQ(change(VPDD_HOST_SWAP, "DIMM 1", "12").result, -2);
    EXPECT_EQ(change(VPDD_HOST_SWAP, "Fan 1", "\xFF").result, -2);
    EXPECT_EQ(change(VPDD_HOST_SWAP, "Fan 1", "\xFF").error, "the serial number is no UTF-8 text");
    EXPECT_STREQ(change(VPDD_HOST_PULL, "DIMM 1").fru.old_serial_number, "0a0b0cFF");
}

TEST(FruChangesWithout, AStateDirectoryOrAServerFail) {
    EXPECT_EQ(change(VPDD_HOST_PULL, "Fan 1").result, -1);
    const OpenServer server(description);
    EXPECT_EQ(change(VPDD_HOST_PULL, "Fan 1").error, "a change needs a state directory");
    EXPECT_EQ(fru_size(4)[0], 0x00);
}

TEST_F(FruChanges, OfADescriptionThatNoLongerHasTheFruAreNoHindrance) {
    {
        const OpenServer server(description, options_);
        change(VPDD_HOST_PULL, "Fan 1");
    }
    const OpenServer other(server_text(fru_text(9, "Board", fan)), options_);

    EXPECT_EQ(fru_size(9)[0], 0x00);
}

}  // namespace
