// SPDX-License-Identifier: Apache-2.0
#include <cstring>
#include <memory>

#include "failing_allocator.h"
#include "fake_platform.h"
#include "host/images/fru_image.h"

using namespace vpdd::test;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;
using vpdd::images::Field;
using vpdd::images::Multirecord;
using vpdd::images::OemProcessor;

namespace {

constexpr int warning = 12;
constexpr uint32_t maker = VPDD_MAKER_IANA;

const LogLine wrong_record_checksum{warning, "process_multirec - Invalid fru multirec record checksum.\n"};

/// A processor record that is decoded whole: its last field is long enough for the end bound.
OemProcessor processor(uint8_t index = 1) {
    return {.iana = maker,
            .index = Field::binary({index}),
            .texts = {"t0", "t1", "t2", "t3", "t4", "t5", "t6", "t7", "t8", "t9", "t10"},
            .raw = Field::binary({0xA1, 0xA2, 0xA3, 0xA4})};
}

Multirecord processor_record(uint8_t index = 1) { return {OemProcessor::record_type, processor(index).data()}; }

class ProcessMultirec : public PlatformTest {
protected:
    /// The last one ends the list unless it says otherwise.
    int process(const std::vector<Multirecord>& records) {
        Bytes list;
        for (const Multirecord& each : records) vpdd::images::append(list, each.bytes(&each == &records.back()));
        return process_multirec(list.data(), record.get());
    }

    std::unique_ptr<ComponentVpdRecord> record = std::make_unique<ComponentVpdRecord>();
};

TEST_F(ProcessMultirec, TakesNoListForAnEmptyOne) {
    EXPECT_EQ(process_multirec(nullptr, record.get()), 0);
    EXPECT_TRUE(platform.logged_nothing());
}

TEST_F(ProcessMultirec, DecodesAProcessorRecord) {
    EXPECT_EQ(process({processor_record(7)}), 0);
    EXPECT_EQ(record->vpd_format, 2U);
    EXPECT_EQ(record->oem_cpu.index, 7U);
    EXPECT_STREQ(record->oem_cpu.text[10], "t10");
    EXPECT_EQ(record->oem_cpu.raw_length, 4U);
    EXPECT_TRUE(platform.logged_nothing());
}

TEST_F(ProcessMultirec, PassesRecordsOfOtherTypes) {
    EXPECT_EQ(process({{0x00, {1, 2, 3}}, {0xC1, processor().data()}, processor_record(7)}), 0);
    EXPECT_EQ(record->oem_cpu.index, 7U);
}

TEST_F(ProcessMultirec, LeavesTheStateOfARecordWithoutProcessorDataAlone) {
    record->vpd_format = 3;
    EXPECT_EQ(process({{0xC1, {1, 2, 3}}}), 0);
    EXPECT_EQ(record->vpd_format, 3U);
}

TEST_F(ProcessMultirec, PassesEmptyAndLongestRecords) {
    EXPECT_EQ(process({{0xC1, {}}, {0xC2, Bytes(255, 0x5A)}, processor_record(7)}), 0);
    EXPECT_EQ(record->oem_cpu.index, 7U);
}

TEST_F(ProcessMultirec, EndsAtTheEndOfListBit) {
    Multirecord first = processor_record(1);
    first.is_last = true;
    EXPECT_EQ(process({first, processor_record(2)}), 0);
    EXPECT_EQ(record->oem_cpu.index, 1U);
}

TEST_F(ProcessMultirec, EndsAtAHeaderOfZeros) {
    Bytes list = processor_record(1).bytes(false);
    list.resize(list.size() + 5);
    EXPECT_EQ(process_multirec(list.data(), record.get()), 0);
    EXPECT_EQ(record->vpd_format, 2U);
    EXPECT_TRUE(platform.logged_nothing());
}

TEST_F(ProcessMultirec, LooksForNothingBehindAHeaderOfZeros) {
    Bytes list(5);
    vpdd::images::append(list, processor_record().bytes(true));
    EXPECT_EQ(process_multirec(list.data(), record.get()), 0);
    EXPECT_EQ(record->vpd_format, 0U);
    EXPECT_TRUE(platform.logged_nothing());
}

TEST_F(ProcessMultirec, ChecksAHeaderWithOneByteThatIsNotZero) {
    const LogLine wrong_header_checksum[] = {
        {warning, "process_multirec - Invalid fru multirec header checksum. ID=40, V=00, l=00, rchk=00, hchk 00 != 40"},
        {warning, "process_multirec - Invalid fru multirec header checksum. ID=00, V=02, l=00, rchk=00, hchk 00 != 02"},
        {warning, "process_multirec - Invalid fru multirec header checksum. ID=00, V=00, l=01, rchk=00, hchk 00 != 01"},
        {warning, "process_multirec - Invalid fru multirec header checksum. ID=00, V=00, l=00, rchk=00, hchk 11 != 11"},
    };
    const std::pair<Bytes, LogLine> headers[] = {
        {{0x40, 0, 0, 0, 0}, wrong_header_checksum[0]}, {{0, 0x02, 0, 0, 0}, wrong_header_checksum[1]},
        {{0, 0, 0x01, 0, 0}, wrong_header_checksum[2]}, {{0, 0, 0, 0x11, 0}, wrong_record_checksum},
        {{0, 0, 0, 0, 0x11}, wrong_header_checksum[3]},
    };
    for (const auto& [header, complaint] : headers) {
        SCOPED_TRACE(complaint.text);
        platform.reset();
        Bytes list = header;
        list.resize(16);

        EXPECT_EQ(process_multirec(list.data(), record.get()), -1);

        EXPECT_THAT(platform.log(), ElementsAre(complaint));
    }
}

TEST_F(ProcessMultirec, GoesOnBehindARecordOfAnyVersionWithoutTheEndOfListBit) {
    for (const uint8_t version : {0x00, 0x01, 0x03, 0x0F, 0x12, 0x22, 0x42, 0x72, 0x7F}) {
        SCOPED_TRACE(int{version});
        record->oem_cpu.index = 0;

        EXPECT_EQ(process({{0xC1, {1, 2}, version}, processor_record(7)}), 0);

        EXPECT_EQ(record->oem_cpu.index, 7U);
    }
    EXPECT_TRUE(platform.logged_nothing());
}

TEST_F(ProcessMultirec, EndsAtTheEndOfListBitOfAnyVersion) {
    for (const uint8_t version : {0x80, 0x81, 0x92, 0xFF}) {
        EXPECT_EQ(process({{0xC1, {1, 2}, version}, processor_record(7)}), 0);

        EXPECT_EQ(record->oem_cpu.index, 0U) << int{version};
    }
}

TEST_F(ProcessMultirec, ReportsAWrongRecordChecksum) {
    Multirecord damaged = processor_record(2);
    damaged.record_checksum = static_cast<uint8_t>(vpdd::images::zero_checksum(damaged.data) + 1);
    EXPECT_EQ(process({processor_record(1), damaged, processor_record(3)}), -1);
    EXPECT_THAT(platform.log(), ElementsAre(wrong_record_checksum));
    EXPECT_EQ(record->oem_cpu.index, 1U);  // what the first record filled
    EXPECT_EQ(record->vpd_format, 2U);
}

TEST_F(ProcessMultirec, ReportsAWrongHeaderChecksumWithTheHeader) {
    // Data 01 02 sum to 3, so the record checksum is FD; the header sums to AB + 02 + 02 + FD + 5A = 0x206.
    EXPECT_EQ(process({processor_record(1), {.type = 0xAB, .data = {1, 2}, .is_last = false, .header_checksum = 0x5A}}),
              -1);
    EXPECT_THAT(platform.log(),
                ElementsAre(LogLine{warning,
                                    "process_multirec - Invalid fru multirec header checksum. ID=AB, V=02, l=02, "
                                    "rchk=FD, hchk 5A != 06"}));
    EXPECT_EQ(record->oem_cpu.index, 1U);
}

TEST_F(ProcessMultirec, ChecksTheRecordBeforeTheHeader) {
    EXPECT_EQ(process({{.type = 0xC0, .data = {1, 2}, .record_checksum = 0x11, .header_checksum = 0x22}}), -1);
    EXPECT_THAT(platform.log(), ElementsAre(wrong_record_checksum));
}

TEST_F(ProcessMultirec, DoesNotDecodeARecordWithAWrongHeader) {
    Multirecord damaged = processor_record(9);
    damaged.header_checksum = 0;
    EXPECT_EQ(process({damaged}), -1);
    EXPECT_EQ(record->oem_cpu.index, 0U);
    EXPECT_EQ(record->vpd_format, 0U);
}

TEST_F(ProcessMultirec, GoesOnBehindAnotherMakersRecord) {
    OemProcessor other = processor(5);
    other.iana = 0x123456;
    EXPECT_EQ(process({{0xC0, other.data()}, {0xC1, {}}}), 0);
    EXPECT_EQ(record->vpd_format, 0U);
    EXPECT_THAT(platform.log(),
                ElementsAre(LogLine{warning, "process_zelt_oem_cpu_rec - Unexpected IANA 0x123456.\n"}));

    EXPECT_EQ(process({{0xC0, other.data()}, processor_record(7)}), 0);
    EXPECT_EQ(record->oem_cpu.index, 7U);
}

TEST_F(ProcessMultirec, GoesOnBehindAShortProcessorRecord) {
    EXPECT_EQ(process({{0xC0, {1, 2}}, processor_record(7)}), 0);
    EXPECT_THAT(platform.log(), ElementsAre(LogLine{warning, "process_zelt_oem_cpu_rec - Invalid length encoding.\n"}));
    EXPECT_EQ(record->oem_cpu.index, 7U);
}

// ---- the processor record

class OemProcessorRecord : public PlatformTest {
protected:
    OemProcessorRecord() { std::memset(&out, 0xEE, sizeof out); }

    int decode(const Bytes& data) {
        return process_zelt_oem_cpu_rec(data.data(), static_cast<uint32_t>(data.size()), &out);
    }
    int decode(const OemProcessor& source) { return decode(source.data()); }

    Bytes slot(std::size_t number) const { return Bytes(out.text[number], out.text[number] + 64); }
    Bytes raw() const { return Bytes(out.raw, out.raw + 64); }

    OemCpuRecord out;
    const Bytes untouched_slot = Bytes(64, 0xEE);
    static constexpr uint32_t untouched_number = 0xEEEEEEEE;
};

TEST_F(OemProcessorRecord, FillsEveryField) {
    EXPECT_EQ(decode(processor(9)), 0);
    EXPECT_EQ(out.index, 9U);
    for (std::size_t i = 0; i < 11; ++i) EXPECT_STREQ(out.text[i], ("t" + std::to_string(i)).c_str());
    EXPECT_EQ(out.raw_length, 4U);
    Bytes expected{0xA1, 0xA2, 0xA3, 0xA4};
    expected.resize(64);
    EXPECT_EQ(raw(), expected);
    EXPECT_TRUE(platform.logged_nothing());
}

TEST_F(OemProcessorRecord, IsRefusedBelowThreeBytes) {
    for (const std::size_t length : {0, 1, 2}) {
        platform.reset();
        Bytes data = processor().data();
        data.resize(length);
        EXPECT_EQ(decode(data), -1);
        EXPECT_THAT(platform.log(),
                    ElementsAre(LogLine{warning, "process_zelt_oem_cpu_rec - Invalid length encoding.\n"}));
    }
}

TEST_F(OemProcessorRecord, OfAnotherMakerIsReportedMostSignificantByteFirst) {
    EXPECT_EQ(decode(Bytes{0x03, 0x0B, 0xC1, 0xC1}), -1);
    EXPECT_THAT(platform.log(),
                ElementsAre(LogLine{warning, "process_zelt_oem_cpu_rec - Unexpected IANA 0xC10B03.\n"}));
    EXPECT_EQ(out.index, untouched_number);
}

TEST_F(OemProcessorRecord, ComparesAllThreeBytesOfTheMaker) {
    for (const uint32_t other : {maker ^ 0x01U, maker ^ 0x0100U, maker ^ 0x010000U}) {
        OemProcessor source = processor();
        source.iana = other;
        EXPECT_EQ(decode(source), -1);
    }
}

TEST_F(OemProcessorRecord, WithoutFieldsTouchesNothing) {
    Bytes data = processor().data();
    data.resize(3);
    EXPECT_EQ(decode(data), 0);
    EXPECT_EQ(out.index, untouched_number);
    EXPECT_EQ(slot(0), untouched_slot);
    EXPECT_EQ(raw(), untouched_slot);
}

TEST_F(OemProcessorRecord, TakesTheIndexOnlyFromABinaryFieldOfOneByte) {
    for (const Field& index :
         {Field::binary({1, 2}), Field::bcd_plus({5}), Field::raw(0x81, {5}), Field("ab"), Field()}) {
        OemProcessor source = processor();
        source.index = index;
        EXPECT_EQ(decode(source), 0);
        EXPECT_EQ(out.index, untouched_number);
        EXPECT_STREQ(out.text[0], "t0");  // the walk goes on
    }
}

TEST_F(OemProcessorRecord, TakesAnIndexAbove127Unsigned) {
    EXPECT_EQ(decode(processor(0xFE)), 0);
    EXPECT_EQ(out.index, 0xFEU);
}

TEST_F(OemProcessorRecord, TrimsTextsAndFillsTheirSlotsWithZeros) {
    OemProcessor source = processor();
    source.texts[2] = " \tXeon \n";
    EXPECT_EQ(decode(source), 0);
    Bytes expected = bytes_of("Xeon");
    expected.resize(64);
    EXPECT_EQ(slot(2), expected);
}

TEST_F(OemProcessorRecord, LeavesTheSlotOfAnEmptyFieldAsItWas) {
    OemProcessor source = processor();
    source.texts[4] = "";
    EXPECT_EQ(decode(source), 0);
    EXPECT_EQ(slot(4), untouched_slot);
    EXPECT_STREQ(out.text[3], "t3");
    EXPECT_STREQ(out.text[5], "t5");
}

TEST_F(OemProcessorRecord, EmptiesTheSlotOfABlankText) {
    OemProcessor source = processor();
    source.texts[4] = "   ";
    EXPECT_EQ(decode(source), 0);
    EXPECT_THAT(slot(4), Each(0));
}

TEST_F(OemProcessorRecord, HoldsATextOf63Characters) {
    OemProcessor source = processor();
    source.texts[0] = std::string(63, 'x');
    EXPECT_EQ(decode(source), 0);
    EXPECT_EQ(std::string(out.text[0]), std::string(63, 'x'));
}

TEST_F(OemProcessorRecord, TakesTextsOfEveryType) {
    OemProcessor source = processor();
    source.texts[0] = Field::bcd_plus({1, 0x0B, 2});
    source.texts[1] = Field::binary({'b', 'i', 'n'});
    source.texts[2] = Field::six_bit("IPMI");
    EXPECT_EQ(decode(source), 0);
    EXPECT_STREQ(out.text[0], "1-2");
    EXPECT_STREQ(out.text[1], "bin");
    EXPECT_STREQ(out.text[2], "\x29\xDC\xA6");
}

TEST_F(OemProcessorRecord, EndsItsWalkAtTheEndMarker) {
    OemProcessor source = processor();
    source.texts[3] = Field::raw(0xC1, {});
    EXPECT_EQ(decode(source), 0);
    EXPECT_STREQ(out.text[2], "t2");
    for (std::size_t i = 3; i < 11; ++i) EXPECT_EQ(slot(i), untouched_slot);
    EXPECT_EQ(out.raw_length, untouched_number);
    EXPECT_EQ(raw(), untouched_slot);
}

TEST_F(OemProcessorRecord, TakesRawDataOnlyFromABinaryField) {
    for (const Field& field : {Field::bcd_plus({1, 2, 3, 4}), Field("text"), Field::six_bit("IPMIIPMI")}) {
        OemProcessor source = processor();
        source.raw = field;
        EXPECT_EQ(decode(source), 0);
        EXPECT_EQ(out.raw_length, untouched_number);
        EXPECT_EQ(raw(), untouched_slot);
    }
}

TEST_F(OemProcessorRecord, HoldsRawDataOf63Bytes) {
    OemProcessor source = processor();
    source.raw = Field::binary(Bytes(63, 0x5A));
    EXPECT_EQ(decode(source), 0);
    EXPECT_EQ(out.raw_length, 63U);
    Bytes expected(63, 0x5A);
    expected.push_back(0);
    EXPECT_EQ(raw(), expected);
}

TEST_F(OemProcessorRecord, LeavesRawDataOfAnEmptyFieldAsItWas) {
    OemProcessor source = processor();
    source.raw = Field::binary({});
    source.trailing = {0xC1, 0, 0, 0};
    EXPECT_EQ(decode(source), 0);
    EXPECT_EQ(out.raw_length, untouched_number);
    EXPECT_EQ(raw(), untouched_slot);
}

TEST_F(OemProcessorRecord, EndsItsWalkThreeBytesBeforeItsEnd) {
    // A last field of n data bytes begins n + 1 bytes before the end: it is reached when that is more than three.
    OemProcessor source = processor();
    source.raw = Field::binary({1, 2});
    EXPECT_EQ(decode(source), 0);
    EXPECT_STREQ(out.text[10], "t10");
    EXPECT_EQ(out.raw_length, untouched_number);

    source.raw = Field::binary({1, 2, 3});
    EXPECT_EQ(decode(source), 0);
    EXPECT_EQ(out.raw_length, 3U);
}

TEST_F(OemProcessorRecord, LosesAShortLastTextToTheEndBound) {
    Bytes data = processor().data();
    data.resize(data.size() - 5);  // without the raw field
    Bytes shorter = data;
    // "t10" takes four bytes, which is one more than the bound cuts off.
    EXPECT_EQ(decode(data), 0);
    EXPECT_STREQ(out.text[10], "t10");

    std::memset(&out, 0xEE, sizeof out);
    shorter.resize(shorter.size() - 4);
    vpdd::images::append(shorter, Field("ab").bytes());
    EXPECT_EQ(decode(shorter), 0);
    EXPECT_STREQ(out.text[9], "t9");
    EXPECT_EQ(slot(10), untouched_slot);
}

TEST_F(OemProcessorRecord, NeverReadsBehindItsData) {
    const Bytes whole = processor().data();
    for (std::size_t length = 3; length <= whole.size(); ++length) {
        const Bytes cut(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(length));
        EXPECT_EQ(decode(cut), 0);
    }
    Bytes overlong = whole;
    overlong[3] = 0xFF;  // a first field of 63 bytes
    overlong.resize(10);
    EXPECT_EQ(decode(overlong), 0);
}

TEST_F(OemProcessorRecord, KeepsNoMemory) {
    if (!allocator_can_fail) GTEST_SKIP() << "the sanitizer owns malloc";
    const AllocationWatch watch;
    decode(processor());
    EXPECT_EQ(watch.live_blocks(), 0U);
}

}  // namespace
