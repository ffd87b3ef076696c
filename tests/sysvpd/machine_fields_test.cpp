// SPDX-License-Identifier: Apache-2.0
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <functional>

#include "failing_allocator.h"
#include "machine_world.h"

using namespace vpdd::test;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;
using vpdd::images::Field;

namespace {

constexpr uint32_t untouched = 0xDEADBEEF;
constexpr int64_t ten_seconds = 10'000'000;
constexpr int64_t after_failed_request = 300'000;

constexpr char not_ready[] = "GetMachineFields - IPMI stack isn't ready yet..\n";
constexpr char timed_out[] = "GetMachineFields - Wait IPMI stack timeout.. ,execute anyway..\n";

bool is_probe(const IpmiCall& call) { return call.is(0x06, 0x01); }
bool is_size_request(const IpmiCall& call) { return call.is(0x0A, 0x10); }
bool is_read(const IpmiCall& call) { return call.is(0x0A, 0x11); }

class MachineFields : public MachineTest {
protected:
    int get() { return GetMachineFields(&length, sizeof record, 0, bytes(record)); }
    int get(const std::vector<Field>& custom) {
        platform.fru(0, machine_fru(custom));
        return get();
    }

    uint32_t length = untouched;
    MachineFieldsRecord record = unwritten<MachineFieldsRecord>();
};

// ---- the pairs

TEST_F(MachineFields, PutsSevenPairsAtMultiplesOfSixtyBytes) {
    platform.fru(0, seven_pairs());

    EXPECT_EQ(get(), 0);

    EXPECT_EQ(length, 420U);
    for (std::size_t pair = 0; pair < 7; ++pair) {
        const std::string number = std::to_string(pair);
        EXPECT_TRUE(holds(record.pairs[pair].label, "LABEL-" + number));
        EXPECT_TRUE(holds(record.pairs[pair].value, "VALUE-" + number));
        EXPECT_STREQ(reinterpret_cast<const char*>(bytes(record)) + 60 * pair, ("LABEL-" + number).c_str());
        EXPECT_STREQ(reinterpret_cast<const char*>(bytes(record)) + 60 * pair + 30, ("VALUE-" + number).c_str());
    }
}

TEST_F(MachineFields, IgnoresAnEighthPair) {
    std::vector<Field> custom;
    for (const char* text : {"0", "1", "2", "3", "4", "5", "6", "7"}) {
        custom.emplace_back(std::string("L-") + text);
        custom.emplace_back(std::string("V-") + text);
    }

    EXPECT_EQ(get(custom), 0);

    EXPECT_TRUE(holds(record.pairs[6].label, "L-6"));
    EXPECT_TRUE(holds(record.pairs[6].value, "V-6"));
}

TEST_F(MachineFields, RepeatsTheLastPairBehindTheEndOfTheFields) {
    EXPECT_EQ(get({"MTM", "7X06", "SN", "J30A"}), 0);

    EXPECT_TRUE(holds(record.pairs[0].label, "MTM"));
    EXPECT_TRUE(holds(record.pairs[0].value, "7X06"));
    for (std::size_t pair = 1; pair < 7; ++pair) {
        EXPECT_TRUE(holds(record.pairs[pair].label, "SNM")) << pair;
        EXPECT_TRUE(holds(record.pairs[pair].value, "J30A")) << pair;
    }
    EXPECT_EQ(platform.written("tarn_str_machine_vpd_oem_MTM_LABEL"),
              text_variable("tarn_str_machine_vpd_oem_MTM_LABEL", "MTM", 1));
}

TEST_F(MachineFields, KeepsTheTailOfALongerLabel) {
    EXPECT_EQ(get({"LONGLABEL", "1234", "AB", "5678"}), 0);

    EXPECT_TRUE(holds(record.pairs[0].label, "LONGLABEL"));
    EXPECT_TRUE(holds(record.pairs[1].label, "ABNGLABEL"));
}

TEST_F(MachineFields, KeepsTheTailOfALongerValue) {
    EXPECT_EQ(get({"AA", "LONGVALUE", "BB", "12", "CC", "abcd"}), 0);

    EXPECT_TRUE(holds(record.pairs[1].value, "12NGVALUE"));
    EXPECT_TRUE(holds(record.pairs[2].value, "abcdVALUE"));
}

TEST_F(MachineFields, KeepsThePreviousLabelForAnEmptyOne) {
    EXPECT_EQ(get({"FIRST", "one", "", "two", "THIRD", "six"}), 0);

    EXPECT_TRUE(holds(record.pairs[1].label, "FIRST"));
    EXPECT_TRUE(holds(record.pairs[1].value, "two"));
    EXPECT_TRUE(holds(record.pairs[2].label, "THIRD"));
}

TEST_F(MachineFields, KeepsThePreviousValueForAnEmptyOne) {
    EXPECT_EQ(get({"FIRST", "one", "OTHER", "", "THIRD", "six"}), 0);

    EXPECT_TRUE(holds(record.pairs[1].label, "OTHER"));
    EXPECT_TRUE(holds(record.pairs[1].value, "one"));
    EXPECT_TRUE(holds(record.pairs[2].value, "six"));
}

TEST_F(MachineFields, StartsWithEmptyStaging) {
    EXPECT_EQ(get({"", "", "LABEL", "VALUE"}), 0);

    EXPECT_TRUE(holds(record.pairs[0].label, ""));
    EXPECT_TRUE(holds(record.pairs[0].value, ""));
    EXPECT_TRUE(holds(record.pairs[1].label, "LABEL"));
}

TEST_F(MachineFields, KeepsTheValueWhenTheFieldsEndBehindALabel) {
    EXPECT_EQ(get({"AA", "11", "BB"}), 0);

    EXPECT_TRUE(holds(record.pairs[1].label, "BB"));
    EXPECT_TRUE(holds(record.pairs[1].value, "11"));
    EXPECT_TRUE(holds(record.pairs[6].label, "BB"));
    EXPECT_TRUE(holds(record.pairs[6].value, "11"));
}

TEST_F(MachineFields, EndsATextAtAZeroAndKeepsWhatStagesBehindIt) {
    const Field cut = Field::binary({'A', 0, 'B', 'C'});

    EXPECT_EQ(get({cut, cut, "DE", "", Field::raw(0xC4, {'F', 'G', 'H', 'I'}), "JKL"}), 0);

    EXPECT_TRUE(holds(record.pairs[0].label, "A"));
    EXPECT_TRUE(holds(record.pairs[0].value, "A"));
    EXPECT_TRUE(holds(record.pairs[1].label, "DEBC"));
    EXPECT_TRUE(holds(record.pairs[1].value, "A"));
    EXPECT_TRUE(holds(record.pairs[2].label, "FGHI"));
    EXPECT_TRUE(holds(record.pairs[2].value, "JKLC"));
    EXPECT_EQ(platform.written("tarn_str_machine_vpd_oem_MTM_LABEL"),
              text_variable("tarn_str_machine_vpd_oem_MTM_LABEL", "A", 1));
}

TEST_F(MachineFields, KeepsTheZeroOfALongerTextInFrontOfWhichAShorterOneEnds) {
    EXPECT_EQ(get({Field::binary({'A', 'B', 0, 'C'}), Field::binary({'A', 0, 'B'}), "DE", Field::raw(0x01, {'F'})}), 0);

    EXPECT_TRUE(holds(record.pairs[1].label, "DE"));
    EXPECT_TRUE(holds(record.pairs[1].value, "F"));
}

TEST_F(MachineFields, CutsTextsAfterTwentyNineCharacters) {
    const std::string letters = "abcdefghijklmnopqrstuvwxyz0123456789";

    EXPECT_EQ(get({letters.substr(0, 29), letters.substr(0, 30), letters, std::string(63, 'v')}), 0);

    EXPECT_TRUE(holds(record.pairs[0].label, letters.substr(0, 29)));
    EXPECT_TRUE(holds(record.pairs[0].value, letters.substr(0, 29)));
    EXPECT_TRUE(holds(record.pairs[1].label, letters.substr(0, 29)));
    EXPECT_TRUE(holds(record.pairs[1].value, std::string(29, 'v')));
}

TEST_F(MachineFields, KeepsBlanksAroundTheTexts) {
    EXPECT_EQ(get({" L ", "\tV\n"}), 0);

    EXPECT_TRUE(holds(record.pairs[0].label, " L "));
    EXPECT_TRUE(holds(record.pairs[0].value, "\tV\n"));
}

TEST_F(MachineFields, DecodesBcdPlusAndKeepsSixBitTextPacked) {
    EXPECT_EQ(get({Field::bcd_plus({0x01, 0x0B, 0x1F}), Field::six_bit("IPMI")}), 0);

    EXPECT_TRUE(holds(record.pairs[0].label, "1-?"));
    EXPECT_TRUE(holds(record.pairs[0].value, "\x29\xDC\xA6"));
}

TEST_F(MachineFields, PublishesTheFirstTwoLabels) {
    platform.fru(0, seven_pairs());

    get();

    EXPECT_THAT(platform.configuration(),
                ElementsAre(text_variable("tarn_str_machine_vpd_oem_MTM_LABEL", "LABEL-0", 1),
                            text_variable("tarn_str_machine_vpd_oem_serial_number_LABEL", "LABEL-1", 1)));
}

TEST_F(MachineFields, PublishesBothLabelsWhenThereIsOnePair) {
    get({"MTM", "7X06"});

    EXPECT_THAT(platform.configuration(),
                ElementsAre(text_variable("tarn_str_machine_vpd_oem_MTM_LABEL", "MTM", 1),
                            text_variable("tarn_str_machine_vpd_oem_serial_number_LABEL", "MTM", 1)));
}

TEST_F(MachineFields, GoesOnWhenALabelCannotBePublished) {
    platform.configuration_write.fail_always();

    EXPECT_EQ(get({"MTM", "7X06", "SNO", "J30A"}), 0);

    EXPECT_EQ(platform.configuration().size(), 2U);
    EXPECT_TRUE(holds(record.pairs[1].label, "SNO"));
    EXPECT_TRUE(platform.logged_nothing());
}

TEST_F(MachineFields, FillsEmptyPairsFromNoFieldAtAll) {
    record = {};
    const uint8_t nothing = 0;

    EXPECT_EQ(process_oemfields(nullptr, &nothing, bytes(record)), 0);

    EXPECT_THAT(content(record), Each(0));
    EXPECT_THAT(platform.configuration(),
                ElementsAre(text_variable("tarn_str_machine_vpd_oem_MTM_LABEL", "", 1),
                            text_variable("tarn_str_machine_vpd_oem_serial_number_LABEL", "", 1)));
}

TEST_F(MachineFields, FindsNoFieldWithoutAnEnd) {
    record = {};
    const Bytes fields{0xC2, 'A', 'A', 0xC2, '1', '1', 0xC1};

    EXPECT_EQ(process_oemfields(fields.data(), nullptr, bytes(record)), 0);

    EXPECT_THAT(content(record), Each(0));
}

TEST_F(MachineFields, TakesAFieldThatEndsAtTheBoundAndStopsThere) {
    record = {};
    const Bytes fields{0xC2, 'A', 'A', 0xC2, '1', '1', 0xC2, 'B', 'B'};

    EXPECT_EQ(process_oemfields(fields.data(), fields.data() + fields.size(), bytes(record)), 0);

    EXPECT_TRUE(holds(record.pairs[1].label, "BB"));
    EXPECT_TRUE(holds(record.pairs[1].value, "11"));
}

TEST_F(MachineFields, GivesBackEveryDecodedField) {
    if (!allocator_can_fail) GTEST_SKIP() << "the sanitizer owns the allocator";
    platform.fru(0, seven_pairs());
    const AllocationWatch watch;

    get();

    EXPECT_GT(watch.allocations(), 0U);
    EXPECT_EQ(watch.live_blocks(), 0U);
}

// ---- the walk to them

TEST_F(MachineFields, RefusesANullRecordBeforeAnyRequest) {
    EXPECT_EQ(GetMachineFields(&length, 420, 0, nullptr), -1);

    EXPECT_EQ(length, untouched);
    EXPECT_THAT(platform.journal(), ElementsAre("log 12 " + pid_line("GetMachineFields - response buffer is null.\n")));
}

TEST_F(MachineFields, ProbesThenReadsThenPublishes) {
    platform.fru(0, seven_pairs());

    get();

    EXPECT_THAT(platform.journal(), ElementsAre("ipmi 06/01", "ipmi 0A/10", "ipmi 0A/11", "ipmi 0A/11",
                                                "set tarn_str_machine_vpd_oem_MTM_LABEL",
                                                "set tarn_str_machine_vpd_oem_serial_number_LABEL"));
    EXPECT_EQ(platform.requests().at(1).data, Bytes{0});
}

TEST_F(MachineFields, PrintsThatItLeaves) {
    const CaptureStdout output;

    get({"MTM", "7X06"});

    EXPECT_EQ(output.text(), "--> leave GetMachineFields\n");
}

/// Runs a hook inside each print to standard output while it lives.
class DuringPrint {
public:
    explicit DuringPrint(std::function<void(std::string_view)> hook) : hook_(std::move(hook)) {
        cookie_io_functions_t functions{};
        functions.write = write;
        stdout = fopencookie(this, "w", functions);
        std::setvbuf(stdout, nullptr, _IONBF, 0);
    }
    ~DuringPrint() {
        std::fclose(stdout);
        stdout = former_;
    }
    DuringPrint(const DuringPrint&) = delete;
    DuringPrint& operator=(const DuringPrint&) = delete;

private:
    static ssize_t write(void* self, const char* text, size_t size) {
        static_cast<DuringPrint*>(self)->hook_({text, size});
        return static_cast<ssize_t>(size);
    }

    std::function<void(std::string_view)> hook_;
    FILE* former_ = stdout;
};

TEST_F(MachineFields, TellsTheLengthBeforeItPrintsThatItLeaves) {
    platform.fru(0, seven_pairs());
    std::vector<uint32_t> lengths;
    {
        const DuringPrint printing([&](std::string_view) { lengths.push_back(length); });
        get();
    }

    EXPECT_THAT(lengths, Not(IsEmpty()));
    EXPECT_THAT(lengths, Each(420));
}

TEST_F(MachineFields, ReadsThreeHundredBytesAsThreeChunks) {
    platform.fru(0, vpdd::images::FruImage().product({.custom = {"MTM", "7X06"}}).padded_to(300).build());

    EXPECT_EQ(get(), 0);

    const auto requests = platform.requests();
    ASSERT_EQ(requests.size(), 5U);
    EXPECT_EQ(requests[2].data, (Bytes{0, 0x00, 0x00, 128}));
    EXPECT_EQ(requests[3].data, (Bytes{0, 0x80, 0x00, 128}));
    EXPECT_EQ(requests[4].data, (Bytes{0, 0x00, 0x01, 44}));
}

TEST_F(MachineFields, ReadsAMultipleOfTheChunkWithoutAnEmptyOneBehind) {
    platform.fru(0, vpdd::images::FruImage().product({.custom = {"MTM", "7X06"}}).padded_to(256).build());

    EXPECT_EQ(get(), 0);

    const auto requests = platform.requests();
    ASSERT_EQ(requests.size(), 4U);
    EXPECT_EQ(requests[3].data, (Bytes{0, 0x80, 0x00, 128}));
}

TEST_F(MachineFields, TakesPairsThatLieInALaterChunk) {
    platform.fru(
        0, vpdd::images::FruImage()
               .product({.manufacturer = std::string(63, 'm'), .name = std::string(63, 'n'), .custom = {"MTM", "7X06"}})
               .build());

    EXPECT_EQ(get(), 0);

    EXPECT_TRUE(holds(record.pairs[0].label, "MTM"));
    EXPECT_TRUE(holds(record.pairs[0].value, "7X06"));
}

TEST_F(MachineFields, ReportsAFileIdAndGoesOnBehindIt) {
    const Bytes image = vpdd::images::FruImage().product({.file_id = "FILE1", .custom = {"MTM", "7X06"}}).build();
    platform.fru(0, image);

    EXPECT_EQ(get(), 0);

    EXPECT_TRUE(platform.logged_at_line(
        warning, "GetMachineFields",
        formatted(" File ID is not empty, either BMC version upgraded or FRU error ! fru_size=%d, "
                  "file id type length=%d\n",
                  static_cast<int>(image.size()), 0xC5)));
    EXPECT_EQ(platform.log().size(), 1U);
    EXPECT_TRUE(holds(record.pairs[0].label, "MTM"));
    EXPECT_EQ(length, 420U);
}

TEST_F(MachineFields, ReportsAFileIdOfAnyTypeWithItsTypeAndLength) {
    const std::pair<Field, int> file_ids[] = {{Field::binary({1, 2}), 0x02},
                                              {Field::bcd_plus({1, 2, 3}), 0x43},
                                              {Field::six_bit("IPMI"), 0x83},  // three bytes, packed
                                              {Field::raw(0x3F, Bytes(63, 'x')), 0x3F}};
    for (const auto& [file_id, type_length] : file_ids) {
        SCOPED_TRACE(type_length);
        platform.reset();
        const Bytes image = vpdd::images::FruImage().product({.file_id = file_id, .custom = {"MTM", "7X06"}}).build();
        platform.fru(0, image);

        EXPECT_EQ(get(), 0);

        EXPECT_TRUE(platform.logged_at_line(
            warning, "GetMachineFields",
            formatted(" File ID is not empty, either BMC version upgraded or FRU error ! fru_size=%d, "
                      "file id type length=%d\n",
                      static_cast<int>(image.size()), type_length)));
        EXPECT_TRUE(holds(record.pairs[0].label, "MTM"));
    }
}

TEST_F(MachineFields, SaysNothingAboutAnEmptyFileId) {
    for (const uint8_t type_length : {0x00, 0x40, 0x80, 0xC0}) {
        platform.fru(0, vpdd::images::FruImage()
                            .product({.file_id = Field::raw(type_length, {}), .custom = {"MTM", "7X06"}})
                            .build());
        EXPECT_EQ(get(), 0);
        EXPECT_TRUE(holds(record.pairs[0].label, "MTM"));
    }
    EXPECT_TRUE(platform.logged_nothing());
}

TEST_F(MachineFields, ReportsAMissingProductAreaAsASuccess) {
    platform.fru(0, vpdd::images::FruImage().board({.manufacturer = "ACME"}).padded_to(64).build());
    const CaptureStdout output;

    EXPECT_EQ(get(), 0);

    EXPECT_EQ(length, untouched);
    EXPECT_THAT(content(record), Each(0));
    EXPECT_TRUE(platform.logged_at_line(warning, "GetMachineFields",
                                        " product area empty, either BMC version upgraded or FRU error ! fru_size=64, "
                                        "product=(nil)\n"));
    EXPECT_THAT(platform.configuration(), IsEmpty());
    EXPECT_EQ(output.text(), "--> leave GetMachineFields\n");
}

TEST_F(MachineFields, FillsEmptyPairsFromAProductAreaThatEndsEarly) {
    // Version, length, language; three of the seven standard fields; the end.
    platform.fru(0, vpdd::images::FruImage()
                        .raw_area(vpdd::images::FruArea::product,
                                  {1, 2, 25, 0xC2, 'A', 'B', 0xC2, 'C', 'D', 0xC2, 'E', 'F', 0xC1, 0, 0, 0})
                        .build());

    EXPECT_EQ(get(), 0);

    EXPECT_EQ(length, 420U);
    EXPECT_THAT(content(record), Each(0));
    EXPECT_EQ(platform.configuration().size(), 2U);
    EXPECT_TRUE(platform.logged_nothing());
}

TEST_F(MachineFields, FillsEmptyPairsFromAProductAreaThatEndsBeforeTheFileId) {
    platform.fru(0, vpdd::images::FruImage()
                        .raw_area(vpdd::images::FruArea::product,
                                  {1, 2, 25, 0xC0, 0xC0, 0xC0, 0xC0, 0xC0, 0xC0, 0xC1, 0xC2, 'L', 'L', 0xC2, 'V', 'V'})
                        .build());

    EXPECT_EQ(get(), 0);

    EXPECT_EQ(length, 420U);
    EXPECT_THAT(content(record), Each(0));
    EXPECT_TRUE(platform.logged_nothing());
}

TEST_F(MachineFields, FindsNothingInAProductAreaBehindTheImage) {
    platform.fru(0, vpdd::images::FruImage().header_byte(4, 63).padded_to(64).build());

    EXPECT_EQ(get(), 0);

    EXPECT_EQ(length, 420U);
    EXPECT_THAT(content(record), Each(0));
}

TEST_F(MachineFields, DecodesAFieldThatRunsOverTheImageAndStopsThere) {
    // The last field announces 20 characters and the image holds two of them.
    platform.fru(0, vpdd::images::FruImage()
                        .raw_area(vpdd::images::FruArea::product,
                                  {1, 2, 25, 0xC0, 0xC0, 0xC0, 0xC0, 0xC0, 0xC0, 0xC0, 0xC2, 'L', 'L', 0xD4, 'V', 'V'})
                        .build());

    EXPECT_EQ(get(), 0);

    for (const MachineFieldPair& pair : record.pairs) {
        EXPECT_TRUE(holds(pair.label, "LL"));
        EXPECT_TRUE(holds(pair.value, "VV"));
    }
}

// ---- the stack

TEST_F(MachineFields, ProbesOnceWhenTheStackAnswers) {
    get({"MTM", "7X06"});

    EXPECT_THAT(platform.sleeps(), IsEmpty());
    EXPECT_TRUE(platform.logged_nothing());
}

TEST_F(MachineFields, WaitsTenSecondsBeforeTheSecondProbe) {
    for (std::size_t request : {1, 2, 3}) platform.ipmi.at(request, ipmi_dead());

    EXPECT_EQ(get({"MTM", "7X06"}), 0);

    const std::string slept = "sleep " + std::to_string(after_failed_request);
    const auto journal = platform.journal();
    ASSERT_GE(journal.size(), 10U);
    EXPECT_THAT(std::vector<std::string>(journal.begin(), journal.begin() + 10),
                ElementsAre("ipmi 06/01", slept, "ipmi 06/01", slept, "ipmi 06/01", slept, "sleep 10000000",
                            "log 12 " + pid_line("%s", not_ready), "ipmi 06/01", "ipmi 0A/10"));
}

TEST_F(MachineFields, ZeroesTheRecordBeforeItWaits) {
    platform.ipmi.fail_when(is_probe);
    std::vector<Bytes> seen;
    platform.during_sleep([&](int64_t) {
        seen.push_back(content(record));
        EXPECT_EQ(length, untouched);
    });

    get({"MTM", "7X06"});

    EXPECT_THAT(seen, Not(IsEmpty()));
    EXPECT_THAT(seen, Each(Bytes(420)));
}

TEST_F(MachineFields, TakesAnAnswerToTheLastProbe) {
    for (std::size_t request = 1; request <= 9; ++request) platform.ipmi.at(request, ipmi_dead());

    EXPECT_EQ(get({"MTM", "7X06"}), 0);

    EXPECT_EQ(platform.times_logged(warning, pid_line("%s", not_ready)), 3U);
    EXPECT_EQ(platform.log().size(), 3U);
}

TEST_F(MachineFields, ReadsRegardlessAfterThreeMoreProbes) {
    platform.ipmi.fail_when(is_probe);

    EXPECT_EQ(get({"MTM", "7X06"}), 0);

    const auto sleeps = platform.sleeps();
    EXPECT_EQ(std::count(sleeps.begin(), sleeps.end(), ten_seconds), 3);
    const auto requests = platform.requests();
    EXPECT_EQ(std::count_if(requests.begin(), requests.end(), is_probe), 4 * 3);
    EXPECT_EQ(platform.times_logged(warning, pid_line("%s", not_ready)), 3U);
    EXPECT_EQ(platform.log().back(), (LogLine{warning, pid_line("%s", timed_out)}));
    EXPECT_EQ(platform.log().size(), 4U);
    EXPECT_TRUE(holds(record.pairs[0].label, "MTM"));
}

TEST_F(MachineFields, TurnsAFailureToReadTheSizeIntoMinusNine) {
    const CaptureStdout output;
    platform.ipmi.fail_when(is_size_request);
    EXPECT_EQ(get({"MTM", "7X06"}), -9);

    EXPECT_TRUE(platform.logged(warning, pid_line("GetMachineFields - FRU read size error.. \n")));
    EXPECT_EQ(length, untouched);
    EXPECT_THAT(content(record), Each(0));
    EXPECT_THAT(platform.configuration(), IsEmpty());
    EXPECT_EQ(output.text(), "");
}

TEST_F(MachineFields, TurnsAnAbsentFruIntoMinusNine) {
    platform.remove_fru(0);  // completion code 0xCB, which the requests report as 203

    EXPECT_EQ(get(), -9);

    EXPECT_TRUE(platform.logged(warning, pid_line("GetMachineFields - FRU read size error.. \n")));
    EXPECT_THAT(platform.sleeps(), IsEmpty());
}

TEST_F(MachineFields, TurnsAFailedChunkIntoMinusNine) {
    const CaptureStdout output;
    platform.fru(0, vpdd::images::FruImage().product({.custom = {"MTM", "7X06"}}).padded_to(300).build());
    platform.ipmi.fail_when([](const IpmiCall& call) { return is_read(call) && call.data.at(1) == 0x80; });

    EXPECT_EQ(get(), -9);

    EXPECT_TRUE(
        platform.logged_at_line(warning, "GetMachineFields", " Read SYSVPD FRU fail! fru_left=172, offset=128\n"));
    EXPECT_EQ(length, untouched);
    EXPECT_THAT(content(record), Each(0));
    EXPECT_THAT(platform.configuration(), IsEmpty());
    EXPECT_EQ(output.text(), "");
}

TEST_F(MachineFields, TurnsAnAbsentLastChunkIntoMinusNine) {
    platform.fru(0, vpdd::images::FruImage().product({.custom = {"MTM", "7X06"}}).padded_to(300).build());
    platform.ipmi.when([](const IpmiCall& call) { return is_read(call) && call.data.at(3) == 44; },
                       ipmi_completion(0xCB));

    EXPECT_EQ(get(), -9);

    EXPECT_TRUE(
        platform.logged_at_line(warning, "GetMachineFields", " Read SYSVPD FRU fail! fru_left=44, offset=256\n"));
}

TEST_F(MachineFields, TakesAnEmptyFruForOneWithoutAProductArea) {
    platform.fru(0, {});
    platform.ipmi.when(is_read, ipmi_data({0}));
    const CaptureStdout output;

    EXPECT_EQ(get(), 0);

    EXPECT_THAT(platform.requests(),
                ElementsAre(IpmiCall{0x06, 0x01, {}}, IpmiCall{0x0A, 0x10, {0}}, IpmiCall{0x0A, 0x11, {0, 0, 0, 0}}));
    EXPECT_TRUE(platform.logged_at_line(warning, "GetMachineFields",
                                        " product area empty, either BMC version upgraded or FRU error ! fru_size=0, "
                                        "product=(nil)\n"));
    EXPECT_EQ(platform.log().size(), 1U);
    EXPECT_EQ(length, untouched);
    EXPECT_THAT(content(record), Each(0));
    EXPECT_EQ(output.text(), "--> leave GetMachineFields\n");
}

TEST_F(MachineFields, TurnsAFailedReadOfAnEmptyFruIntoMinusNine) {
    platform.fru(0, {});
    platform.ipmi.fail_when(is_read);

    EXPECT_EQ(get(), -9);

    const IpmiCall empty_read{0x0A, 0x11, {0, 0, 0, 0}};
    EXPECT_THAT(platform.requests(),
                ElementsAre(IpmiCall{0x06, 0x01, {}}, IpmiCall{0x0A, 0x10, {0}}, empty_read, empty_read, empty_read));
    EXPECT_TRUE(platform.logged_at_line(warning, "GetMachineFields", " Read SYSVPD FRU fail! fru_left=0, offset=0\n"));
    EXPECT_EQ(length, untouched);
    EXPECT_THAT(content(record), Each(0));
}

TEST_F(MachineFields, GivesTheImageBackAfterAFailedChunk) {
    if (!allocator_can_fail) GTEST_SKIP() << "the sanitizer owns the allocator";
    platform.ipmi.fail_when(is_read);
    const AllocationWatch watch;

    EXPECT_EQ(get({"MTM", "7X06"}), -9);

    EXPECT_EQ(watch.live_blocks(), 0U);
}

TEST_F(MachineFields, ReportsThatThereIsNoMemoryForTheImage) {
    if (!allocator_can_fail) GTEST_SKIP() << "the sanitizer owns the allocator";
    platform.fru(0, seven_pairs());
    const AllocationWatch watch(1);

    EXPECT_EQ(get(), -9);

    EXPECT_TRUE(watch.has_failed());
    EXPECT_EQ(length, untouched);
    const auto requests = platform.requests();
    EXPECT_EQ(std::count_if(requests.begin(), requests.end(), is_read), 0);
    // This one text has a dash behind the line number.
    EXPECT_TRUE(platform.logged_at_line(warning, "GetMachineFields", " - calloc FRU data fail\n"));
}

TEST_F(MachineFields, WorksWithoutAPlaceForTheLength) {
    platform.fru(0, seven_pairs());

    EXPECT_EQ(GetMachineFields(nullptr, 420, 0, bytes(record)), 0);

    EXPECT_TRUE(holds(record.pairs[6].value, "VALUE-6"));
}

}  // namespace
