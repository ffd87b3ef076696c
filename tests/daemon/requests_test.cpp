// SPDX-License-Identifier: Apache-2.0
// What the daemon answers.
#include "small_server.h"

namespace vpdd::test {
namespace {

using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::SizeIs;

class Requests : public DaemonTest {
protected:
    void SetUp() override {
        DaemonTest::SetUp();
        daemon_.emplace(arguments());
        ASSERT_TRUE(daemon_->becomes_ready()) << daemon_->output();
    }
    void TearDown() override {
        daemon_.reset();
        DaemonTest::TearDown();
    }

private:
    std::optional<DaemonProcess> daemon_;
};

TEST_F(Requests, ComponentsAreAllRecordsAndEachNamesTheNext) {
    const auto records = records_of<ComponentVpdRecord>(ask("components\n"));

    ASSERT_THAT(records, SizeIs(4));
    EXPECT_STREQ(records[0].name, "CPU 1");
    EXPECT_STREQ(records[0].serial_number, "EC1");
    EXPECT_EQ(records[0].next_fru_id, 4);
    EXPECT_EQ(records[2].next_fru_id, 6);
    EXPECT_EQ(records[3].next_fru_id, 0xFF);
}

TEST_F(Requests, ThePresenceOfComponentsIsKnown) {
    const auto records = records_of<ComponentVpdRecord>(ask("components\n"));

    ASSERT_THAT(records, SizeIs(4));
    EXPECT_EQ(records[0].status, 1);
    EXPECT_EQ(records[2].status, 1);
    EXPECT_EQ(records[3].status, 0);
}

TEST_F(Requests, AsManyComponentsAsFitAreSentAndTheLastOneNamesTheFirstLeftOut) {
    const Answer answer = ask("components\n", 2 * sizeof(ComponentVpdRecord) + 1511);
    const auto records = records_of<ComponentVpdRecord>(answer);

    EXPECT_EQ(answer.size, 2 * 1512);
    ASSERT_THAT(records, SizeIs(2));
    EXPECT_EQ(records[1].next_fru_id, 5);
}

TEST_F(Requests, AComponentIsFoundByItsIdAndZeroAnd255StandForTheFirst) {
    EXPECT_STREQ(records_of<ComponentVpdRecord>(ask("component 5\n")).at(0).name, "Fan 1");
    EXPECT_STREQ(records_of<ComponentVpdRecord>(ask("component 0\n")).at(0).name, "CPU 1");
    EXPECT_STREQ(records_of<ComponentVpdRecord>(ask("component 255\n")).at(0).name, "CPU 1");
}

TEST_F(Requests, AnUnknownComponentIsNotFound) {
    const Answer answer = ask("component 77\n");

    EXPECT_EQ(answer.word, VPDD_REPLY_NOT_FOUND);
    EXPECT_EQ(answer.size, 0);
    EXPECT_THAT(answer.data, SizeIs(0));
}

TEST_F(Requests, TheMachineRecordIsThatOfTheCacheFile) {
    const Answer standard = ask("machine\n");
    std::vector<uint8_t> file(sizeof(MachineVpdRecord));
    std::ifstream("/tmp/machine.cache", std::ios::binary).read(reinterpret_cast<char*>(file.data()), 1106);

    EXPECT_EQ(standard.size, 1106);
    EXPECT_EQ(standard.data, file);
    EXPECT_STREQ(records_of<MachineVpdRecord>(standard).at(0).serial_number, "MACHINE1");
}

TEST_F(Requests, WithoutFru0ThereIsNoOemMachineRecord) { EXPECT_EQ(ask("machine oem\n").word, VPDD_REPLY_NOT_FOUND); }

TEST_F(Requests, TheLogHasAnEntryForWhatIsThereButNoneForAMemoryDevice) {
    const auto entries = records_of<ComponentVpdRecord>(ask("log\n"));

    ASSERT_THAT(entries, SizeIs(2));
    EXPECT_STREQ(entries[0].name, "CPU 1");
    EXPECT_STREQ(entries[1].name, "Fan 1");
}

TEST_F(Requests, OfTheLogTheNewestEntriesAreSentThatFit) {
    const auto entries = records_of<ComponentVpdRecord>(ask("log\n", 1512));

    ASSERT_THAT(entries, SizeIs(1));
    EXPECT_STREQ(entries[0].name, "Fan 1");
}

TEST_F(Requests, AnImageOfTheFirmwareIsLookedUpAndAnUnknownOneIsNotFound) {
    const Answer known = ask("firmware orva\n");
    const Answer unknown = ask("firmware nosuch\n");

    EXPECT_EQ(known.word, VPDD_REPLY_OK);
    EXPECT_EQ(known.size, 74);
    EXPECT_STRNE(records_of<FirmwareVpd>(known).at(0).name, "");
    EXPECT_EQ(unknown.word, VPDD_REPLY_NOT_FOUND);
}

TEST_F(Requests, TheStatusIsLinesOfKeysAndValues) {
    EXPECT_THAT(ask_status(), AllOf(HasSubstr("version="), HasSubstr("\nplatform=host\n"), HasSubstr("\nstate=ready\n"),
                                    HasSubstr("\ncomponents=4\n"), HasSubstr("\nlog_entries=2\n")));
}

TEST_F(Requests, WhatTheFirstLookFoundIsAmongTheChanges) {
    const auto changes = changes_of(ask("changes 0\n"));

    ASSERT_THAT(changes, SizeIs(2));
    EXPECT_EQ(changes[0].sequence, 1U);
    EXPECT_EQ(changes[0].event, VPDD_CHANGE_INSTALLED);
    EXPECT_STREQ(changes[0].name, "CPU 1");
    EXPECT_STREQ(changes[1].serial_number, "FN1");
}

TEST_F(Requests, AClientThatWaitsForAChangeGetsAnEmptyListWhenNoneComes) {
    const Answer answer = ask("changes 2 1\n");

    EXPECT_EQ(answer.size, static_cast<int32_t>(sizeof(VpddChanges)));
    EXPECT_THAT(changes_of(answer), SizeIs(0));
}

TEST_F(Requests, NeverIsMoreSentThanTheClientHasRoomFor) {
    EXPECT_EQ(ask("component 5\n", 1511).word, VPDD_REPLY_NO_ROOM);
    EXPECT_EQ(ask("components\n", 0).word, VPDD_REPLY_NO_ROOM);
    EXPECT_EQ(ask("machine\n", 1105).word, VPDD_REPLY_NO_ROOM);
    EXPECT_EQ(ask("machine oem\n", 1341).word, VPDD_REPLY_NO_ROOM);
    EXPECT_EQ(ask("log\n", 1).word, VPDD_REPLY_NO_ROOM);
    EXPECT_EQ(ask("firmware orva\n", 73).word, VPDD_REPLY_NO_ROOM);
    EXPECT_EQ(ask("status\n", 1023).word, VPDD_REPLY_NO_ROOM);
    EXPECT_EQ(ask("changes 0\n", 239).word, VPDD_REPLY_NO_ROOM);
}

TEST_F(Requests, WhatIsNoRequestIsTold) {
    EXPECT_EQ(ask("frobnicate\n").word, VPDD_REPLY_UNKNOWN);
    EXPECT_EQ(ask("\n").word, VPDD_REPLY_MALFORMED);
    EXPECT_EQ(ask("component\n").word, VPDD_REPLY_MALFORMED);
    EXPECT_EQ(ask("component 256\n").word, VPDD_REPLY_MALFORMED);
    EXPECT_EQ(ask("component -1\n").word, VPDD_REPLY_MALFORMED);
    EXPECT_EQ(ask("component 5 \n").word, VPDD_REPLY_MALFORMED);
    EXPECT_EQ(ask("component  5\n").word, VPDD_REPLY_MALFORMED);
    EXPECT_EQ(ask("changes 0 31\n").word, VPDD_REPLY_MALFORMED);
    EXPECT_EQ(ask("status now\n").word, VPDD_REPLY_MALFORMED);
    EXPECT_EQ(ask("machine OEM\n").word, VPDD_REPLY_MALFORMED);
    EXPECT_EQ(ask(std::string_view("sta\0tus\n", 8)).word, VPDD_REPLY_MALFORMED);
}

TEST_F(Requests, TheLibrarysOwnClientReadsARecord) {
    ComponentVpdRecord record{};
    uint32_t size = 0;

    EXPECT_EQ(vpdd_read_component_data("component 5\n", &size, 0, sizeof record, &record), 0);
    EXPECT_EQ(size, 1512U);
    EXPECT_STREQ(record.serial_number, "FN1");
}

}  // namespace
}  // namespace vpdd::test
