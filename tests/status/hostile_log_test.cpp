// SPDX-License-Identifier: Apache-2.0
// Entries whose sums are right but whose texts have no end: nothing may be read behind a text's field. The marks behind
// the fields show in the messages when something is.
#include "status_world.h"

using namespace vpdd::test;

namespace {

/// Every text of the record is full; the bytes behind each are 'Z' where they are free.
ComponentVpdRecord unterminated(ComponentVpdRecord record) {
    const ComponentVpdRecord given = record;
    std::memset(&record, 'Z', sizeof record);
    std::memset(record.name, 'N', sizeof record.name);
    std::memset(record.serial_number, 'S', sizeof record.serial_number);
    std::memset(record.mfg_id, 'M', sizeof record.mfg_id);
    record.fru_id = given.fru_id;
    record.entity_id = given.entity_id;
    record.entity_instance = given.entity_instance;
    record.is_cached = 1;
    record.status = given.status;
    record.timestamp = given.timestamp;
    return with_right_crc(record);
}

const std::string full_name(86, 'N'), full_serial(25, 'S');

class HostileLog : public StatusTest {
protected:
    /// Whether no message shows a byte from behind the field that it names.
    testing::AssertionResult messages_end_with_their_fields() const {
        for (const LogLine& line : platform.log()) {
            if (line.text.find("NNNZ") != std::string::npos || line.text.find("SSSM") != std::string::npos) {
                return testing::AssertionFailure() << line.text;
            }
        }
        for (const TraceLine& line : platform.trace()) {
            if (line.text.find("NNNZ") != std::string::npos) return testing::AssertionFailure() << line.text;
        }
        return testing::AssertionSuccess();
    }
};

}  // namespace

TEST_F(HostileLog, DropsADamagedEntryWithoutReadingItsTexts) {
    ComponentVpdRecord entry = unterminated(make_entry(5, "A"));
    entry.crc ^= 1U;
    write_log({entry});
    EXPECT_TRUE(loaded_log().empty());
    EXPECT_TRUE(messages_end_with_their_fields());
}

TEST_F(HostileLog, RestoresAPresentComponent) {
    cache({make_entry(5, "A")});
    write_log({unterminated(make_entry(5, "A"))});
    UpdateComponentStatus(restore_mode);
    EXPECT_EQ(serial_of(*cached(5)), "A");
    EXPECT_TRUE(messages_end_with_their_fields());
}

TEST_F(HostileLog, RestoresAnAbsentComponentWithTextsThatEnd) {
    cache({make_entry(5, "A")});
    write_log({unterminated(make_entry(5, "A", absent))});
    UpdateComponentStatus(restore_mode);
    const ComponentVpdRecord& record = *cached(5);
    EXPECT_EQ(std::string(record.name), std::string(85, 'N'));
    EXPECT_EQ(std::string(record.serial_number), std::string(24, 'S'));
    EXPECT_EQ(std::string(record.mfg_id), std::string(30, 'M'));
    EXPECT_EQ(std::string(record.part_number), std::string(30, 'Z'));
    EXPECT_EQ(std::string(record.product_version), std::string(64, 'Z'));
    EXPECT_EQ(std::string(record.board_extra), std::string(12, 'Z'));
    EXPECT_EQ(std::string(record.ppin), std::string(9, 'Z'));
    EXPECT_EQ(std::string(record.mfg_date), std::string(10, 'Z'));
    EXPECT_EQ(std::string(record.psu_fw.primary), std::string(11, 'Z'));
    EXPECT_EQ(std::string(record.psu_fw.secondary), std::string(11, 'Z'));
    for (const auto& text : record.oem_cpu.text) EXPECT_EQ(std::string(text), std::string(63, 'Z'));
    EXPECT_EQ(std::string(record.spd_info.cas_latencies_supports), std::string(131, 'Z'));
    EXPECT_EQ(record.ppin_dump, 0U);
    EXPECT_TRUE(messages_end_with_their_fields());
}

TEST_F(HostileLog, RestoresAnAbsentProcessorWithNoMoreRawBytesThanItHas) {
    cache({make_cpu(5, 1, "A"), make_cpu(6, 2, "B")});
    ComponentVpdRecord lying = make_cpu(5, 1, "A", absent);
    lying.oem_cpu.raw_length = 65;
    ComponentVpdRecord full = make_cpu(6, 2, "B", absent);
    full.oem_cpu.raw_length = 64;
    write_log({lying, full});
    UpdateComponentStatus(restore_mode);
    EXPECT_EQ(cached(5)->oem_cpu.raw_length, sizeof(OemCpuRecord::raw));
    EXPECT_EQ(cached(6)->oem_cpu.raw_length, 64U);
}

TEST_F(HostileLog, ClosesAVanishedComponent) {
    cache({make_entry(5, "A")});
    write_log({unterminated(make_entry(6, "B"))});
    UpdateComponentStatus(restore_mode);
    EXPECT_EQ(announced(), (Words{std::string(63, 'N')}));
    EXPECT_TRUE(platform.logged_containing(info, "[UPDATE_3]FRU = " + full_name + ", FRUID = 6"));
}

TEST_F(HostileLog, PollsARemovedComponent) {
    cache({make_entry(5, "A")});
    write_log({unterminated(make_entry(5, "A"))});
    UpdateComponentStatus(poll_mode);
    EXPECT_TRUE(platform.logged_containing(info, "[UPDATE_1]FRU = " + full_name + ", FRUID = 5"));
    ASSERT_EQ(history.rows().size(), 1U);
    EXPECT_EQ(std::string(history.rows()[0].serial_number), full_serial);
}

TEST_F(HostileLog, PollsAReplacedComponent) {
    ComponentVpdRecord record = make_entry(5, "A");
    record.crc ^= 1U;
    cache({record});
    insert(5);
    write_log({unterminated(make_entry(5, "A", present, 67768036191676799))});
    UpdateComponentStatus(poll_mode);
    EXPECT_TRUE(platform.logged_at_line(info, "UpdateComponentStatus",
                                        ": FRU Name=" + full_name + ",fru_serial=" + full_serial + "\n"));
}

TEST_F(HostileLog, PollsARestoredProcessor) {
    const ComponentVpdRecord cpu = make_cpu(5, 1, "A");
    cache({cpu});
    write_log({unterminated(make_cpu(5, 1, "A", absent))});
    UpdateComponentStatus(restore_mode);
    platform.sensors(processor_sensor, Sensor{std::string(192, 'N'), 0xFFFF, std::string(1290, 'T')}.entry());
    UpdateComponentStatus(poll_mode);
    EXPECT_EQ(cached(5)->status, present);
    cached(5)->part_number[0] = 'x';
    UpdateComponentStatus(poll_mode);
    platform.sensor_read.fail_always();
    UpdateComponentStatus(poll_mode);
    EXPECT_EQ(cached(5)->status, no_sensor);
    EXPECT_TRUE(messages_end_with_their_fields());
}

TEST_F(HostileLog, ReplacesAnEntryInPlace) {
    const ComponentVpdRecord record = unterminated(make_entry(5, "A"));
    write_log({record});
    EXPECT_EQ(UpdateHardwareActivityLog(&record), 0);
    EXPECT_TRUE(is_same_entry(log_on_flash()[0], record));
}

TEST_F(HostileLog, ReportsAShortWrite) {
    const ComponentVpdRecord record = unterminated(make_entry(5, "A"));
    FILE* const stream = std::fopen("/dev/full", "w");
    std::setvbuf(stream, nullptr, _IONBF, 0);
    log_write_node(stream, &record);
    std::fclose(stream);
    EXPECT_TRUE(platform.logged(
        warning, pid_line("log_write_node - Incompleted component data(Name=%s, ID=5).\n", full_name.c_str())));
}

TEST_F(HostileLog, SurvivesEveryStatusAndSlot) {
    cache({make_entry(5, "A"), make_cpu(6, 1, "B")});
    for (const int32_t status : {-1, 2, 254, 256, 0x7FFFFFFF}) {
        for (const uint8_t slot : {uint8_t{0}, uint8_t{32}, uint8_t{33}, uint8_t{255}}) {
            write_log({unterminated(make_entry(5, "A", status)), unterminated(make_cpu(6, slot, "B", status))});
            EXPECT_EQ(UpdateComponentStatus(restore_mode), 0);
            EXPECT_EQ(UpdateComponentStatus(poll_mode), 0);
        }
    }
    EXPECT_TRUE(messages_end_with_their_fields());
}
