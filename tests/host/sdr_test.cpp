// SPDX-License-Identifier: Apache-2.0
#include "open_server.h"
#include "platform/sdr_repository.h"

using namespace vpdd::test;

namespace {

struct Record {
    int result;
    uint16_t next_id = 0;
    int32_t bytes_read = 0;
    Bytes bytes = Bytes(64);
};

Record read_record(uint16_t id, uint32_t room = 64, int repository = 1) {
    Record record{};
    record.bytes.assign(64, 0);
    record.result = mosk_sdr_get_entry(repository, id, room, &record.next_id, &record.bytes_read, record.bytes.data());
    return record;
}

const std::string absent = R"({"absent": true})";

TEST(SdrRepository, HandsOutALocatorForEachFru) {
    const OpenServer server(server_text(
        R"({"fru_id": 9, "name": "PSU 1", "entity": "power supply", "instance": 2, "content": {"absent": true}})"));

    const Record record = read_record(0);

    EXPECT_EQ(record.result, 0);
    EXPECT_EQ(record.next_id, 0xFFFF);
    EXPECT_EQ(record.bytes[3], 0x11);
    EXPECT_EQ(record.bytes[6], 9);
    EXPECT_EQ(record.bytes[10], 0x10);
    EXPECT_EQ(record.bytes[11], 0x00);
    EXPECT_EQ(record.bytes[12], 10);
    EXPECT_EQ(record.bytes[13], 2);
    EXPECT_EQ(std::string(record.bytes.begin() + 16, record.bytes.begin() + 21), "PSU 1");
    EXPECT_EQ(record.bytes_read, 21);
}

TEST(SdrRepository, CountsRecordIdsFromOne) {
    const OpenServer server(server_text(fru_text(1, "A", absent) + "," + fru_text(2, "B", absent)));

    EXPECT_EQ(read_record(0).next_id, 2);
    EXPECT_EQ(read_record(1).bytes[6], 1);
    EXPECT_EQ(read_record(2).bytes[6], 2);
    EXPECT_EQ(read_record(2).next_id, 0xFFFF);
}

TEST(SdrRepository, MayBeSparseAndOutOfOrder) {
    const OpenServer server(server_text(fru_text(1, "A", absent, R"(, "record_id": 700)") + "," +
                                        fru_text(2, "B", absent, R"(, "record_id": 3)") + "," +
                                        fru_text(3, "C", absent)));

    EXPECT_EQ(read_record(0).next_id, 3);
    EXPECT_EQ(read_record(3).next_id, 4);
    EXPECT_EQ(read_record(4).bytes[6], 3);
    EXPECT_NE(read_record(5).result, 0);
}

TEST(SdrRepository, HasNoRecordBehindTheLastId) {
    const std::string last = fru_text(1, "A", absent, R"(, "record_id": 65534)");

    EXPECT_EQ(refusal(server_text(last)), "");
    EXPECT_EQ(refusal(server_text(last + "," + fru_text(2, "B", absent))),
              "/frus/1/record_id: There is no record id behind 65534.");
}

TEST(SdrRepository, HandsOutOtherRecordsAsTheyStand) {
    const OpenServer server(
        server_text(fru_text(1, "A", absent), R"(, "sdr_records": [{"record_id": 10, "bytes": "0a0051C001AA"}])"));

    const Record other = read_record(0);

    EXPECT_EQ(other.bytes_read, 6);
    EXPECT_EQ(Bytes(other.bytes.begin(), other.bytes.begin() + 6), (Bytes{0x0A, 0x00, 0x51, 0xC0, 0x01, 0xAA}));
    EXPECT_EQ(other.next_id, 11);
    EXPECT_EQ(read_record(11).bytes[6], 1);
}

TEST(SdrRepository, MarksAModulesLocator) {
    const OpenServer server(server_text(fru_text(4, "CPU", absent, R"(, "modifier": 3, "device_type": 17)")));

    EXPECT_EQ(read_record(0).bytes[10], 17);
    EXPECT_EQ(read_record(0).bytes[11], 3);
}

TEST(SdrRepository, CutsARecordToTheCallersRoom) {
    const OpenServer server(server_text(fru_text(1, "A", absent)));

    const Record record = read_record(0, 7);

    EXPECT_EQ(record.bytes_read, 7);
    EXPECT_EQ(record.bytes[6], 1);
    EXPECT_EQ(record.bytes[10], 0);
}

TEST(SdrRepository, FailsWhenThereIsNothingToRead) {
    EXPECT_NE(read_record(0).result, 0);
    const OpenServer server(server_text(""));
    EXPECT_NE(read_record(0).result, 0);
}

TEST(SdrRepository, FailsForAnotherRepository) {
    const OpenServer server(server_text(fru_text(1, "A", absent)));

    EXPECT_NE(read_record(0, 64, 2).result, 0);
}

}  // namespace
