// SPDX-License-Identifier: Apache-2.0
#include <dlfcn.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/mman.h>

#include <algorithm>
#include <array>
#include <functional>
#include <future>
#include <map>
#include <regex>

#include "golden_file.h"
#include "machine_world.h"

using namespace vpdd::test;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;
using testing::UnorderedElementsAre;

namespace {

/// Called before a mutex is locked, by whatever thread.
std::function<void(pthread_mutex_t*)> before_locking;

}  // namespace

// Stands in front of the C library's function.
extern "C" int pthread_mutex_lock(pthread_mutex_t* mutex) noexcept {
    static auto* const real_lock = reinterpret_cast<int (*)(pthread_mutex_t*)>(dlsym(RTLD_NEXT, "pthread_mutex_lock"));
    if (before_locking) before_locking(mutex);
    return real_lock(mutex);
}

namespace {

constexpr uint32_t untouched = 0xDEADBEEF;
constexpr char assembly[] = "GetMachineVPDImpl";
constexpr char oem_request[] = "_req_oem";

bool is_posid_request(const IpmiCall& call) { return call.is(0x3A, 0x0B); }

bool is_free(pthread_mutex_t& mutex) {
    if (pthread_mutex_trylock(&mutex) != 0) return false;
    pthread_mutex_unlock(&mutex);
    return true;
}

class MachineRecord : public MachineTest {
protected:
    MachineRecord() { set_system_vpd(platform); }

    int assemble() {
        record = unwritten<MachineVpdRecord>();
        return GetMachineVPDImpl(&length, sizeof record, nullptr, bytes(record));
    }
    /// As after a change of the system VPD, so that the host MACs are read again.
    int assemble_anew() {
        isHostMacCache = 0;
        return assemble();
    }
    void lose_field(uint32_t id) {
        platform.field_read.fail_when([id](const FieldCall& call) { return call.id == id; });
    }
    std::vector<uint32_t> fields_read() {
        std::vector<uint32_t> ids;
        for (const FieldCall& call : platform.field_read.calls()) ids.push_back(call.id);
        return ids;
    }
    bool read_field(uint32_t id) {
        const auto ids = fields_read();
        return std::count(ids.begin(), ids.end(), id) > 0;
    }
    /// What the assembly itself has to say at the level of failures.
    std::vector<std::string> failures() {
        std::vector<std::string> texts;
        for (const TraceLine& line : platform.trace()) {
            if (line.level == failure && line.text.starts_with("[GetMachineVPDImpl]:")) texts.push_back(line.text);
        }
        return texts;
    }

    uint32_t length = untouched;
    MachineVpdRecord record = unwritten<MachineVpdRecord>();
};

// ---- whole records

TEST_F(MachineRecord, OfAStandardMachineIsAsLaidOut) {
    EXPECT_EQ(assemble(), 0);

    EXPECT_TRUE(same_bytes(content(record), golden_bytes("standard_machine.txt")));
    EXPECT_EQ(length, 1106U);
    EXPECT_THAT(failures(), IsEmpty());
}

TEST_F(MachineRecord, OfAnOemMachineIsAsLaidOut) {
    make_oem(platform);
    set_version(platform, 0x0310);
    set_format(platform, 0x41);

    EXPECT_EQ(assemble(), 0);

    EXPECT_TRUE(same_bytes(content(record), golden_bytes("oem_machine.txt")));
}

TEST_F(MachineRecord, OfAMachineWithATenDigitTypeIsAsLaidOut) {
    set_format(platform, 0x40);

    EXPECT_EQ(assemble(), 0);

    EXPECT_TRUE(same_bytes(content(record), golden_bytes("ten_digit_machine.txt")));
}

TEST_F(MachineRecord, OfAMachineThatCannotBeReadIsAsLaidOut) {
    platform.field_read.fail_always();

    EXPECT_EQ(assemble(), 0);

    EXPECT_TRUE(same_bytes(content(record), golden_bytes("unreadable_machine.txt")));
    EXPECT_EQ(length, 1106U);
}

TEST_F(MachineRecord, IgnoresCapacityAndRequest) {
    EXPECT_EQ(GetMachineVPDImpl(&length, 1, oem_request, bytes(record)), 0);

    EXPECT_TRUE(same_bytes(content(record), golden_bytes("standard_machine.txt")));
    EXPECT_EQ(length, 1106U);
}

TEST_F(MachineRecord, IsFilledAlsoWithoutAPlaceForTheLength) {
    EXPECT_EQ(GetMachineVPDImpl(nullptr, 1106, nullptr, bytes(record)), 0);

    EXPECT_TRUE(same_bytes(content(record), golden_bytes("standard_machine.txt")));
}

TEST_F(MachineRecord, RefusesANullRecord) {
    EXPECT_EQ(GetMachineVPDImpl(&length, 1106, nullptr, nullptr), -1);

    EXPECT_EQ(length, untouched);
    EXPECT_THAT(platform.journal(), ElementsAre("trace 4 [GetMachineVPDImpl]:INPUT PARAMETER IS NULL"));
    EXPECT_TRUE(is_free(sysvpd_access_mutex));
}

// ---- order

TEST_F(MachineRecord, OfAStandardMachineIsReadAndPublishedInOrder) {
    assemble();

    EXPECT_THAT(
        platform.journal(),
        ElementsAre("field 6", "field 5", "field 7", "set tarn_var_int_platform_id", "field 1", "field 4", "field 50",
                    "field 51", "field 52", "field 53", "field 54", "field 8", "field 9",
                    "set tarn_str_machine_vpd_MTM", "set tarn_str_machine_vpd_serial_number", "field 46", "field 27",
                    "set tarn_str_machine_vpd_id", "field 10", "field 11", "field 12", "field 13", "field 14",
                    "field 18", "field 81", "field 82", "field 83", "field 84", "field 85", "field 86", "field 108",
                    "field 40", "set tarn_str_machine_vpd_iana", "trace 2 [GetMachineVPDImpl]:UPDATE MAC CACHE",
                    "field 19", "field 20", "field 21", "field 22", "field 23", "field 24", "field 25", "field 26",
                    "trace 2 [GetMachineVPDImpl]:GET PRODUCT NAME", "field 48", "set tarn_str_machine_vpd_product_name",
                    "trace 2 [GetMachineVPDImpl]:DONE~~~~~~~"));
}

TEST_F(MachineRecord, OfAnOemMachineBelowVersion0300IsReadInOrder) {
    make_oem(platform);
    set_version(platform, 0x0200);

    assemble();

    EXPECT_THAT(fields_read(), ElementsAre(6, 5, 7, 1, 60, 61, 46, 27, 10, 62, 12, 63, 65, 18, 81, 82, 83, 84, 85, 86,
                                           108, 40, 19, 20, 21, 22, 23, 24, 25, 26, 48));
}

TEST_F(MachineRecord, PublishesEachVariableOnceWithFlagOne) {
    assemble();

    EXPECT_THAT(platform.configuration(),
                ElementsAre(number_variable("tarn_var_int_platform_id", 0x12345678, 1),
                            text_variable("tarn_str_machine_vpd_MTM", "7X06AC1", 1),
                            text_variable("tarn_str_machine_vpd_serial_number", "J30A123", 1),
                            text_variable("tarn_str_machine_vpd_id", "00112233445566778899AABBCCDDEEFF", 1),
                            text_variable("tarn_str_machine_vpd_iana", "00007ED9", 1),
                            text_variable("tarn_str_machine_vpd_product_name", "Rack server, two sockets", 1)));
}

TEST_F(MachineRecord, PublishesEmptyTextsAndNoUuidWhenNothingCanBeRead) {
    platform.field_read.fail_always();

    assemble();

    EXPECT_THAT(platform.configuration(), ElementsAre(number_variable("tarn_var_int_platform_id", 0, 1),
                                                      text_variable("tarn_str_machine_vpd_MTM", "", 1),
                                                      text_variable("tarn_str_machine_vpd_serial_number", "", 1),
                                                      text_variable("tarn_str_machine_vpd_iana", "", 1),
                                                      text_variable("tarn_str_machine_vpd_product_name", "", 1)));
}

TEST_F(MachineRecord, IsAssembledUnderTheMutex) {
    std::size_t free_reads = 0;
    std::size_t free_writes = 0;
    platform.field_read.during([&](const FieldCall&) { free_reads += is_free(sysvpd_access_mutex) ? 1 : 0; });
    platform.configuration_write.during(
        [&](const ConfigurationWrite&) { free_writes += is_free(sysvpd_access_mutex) ? 1 : 0; });

    assemble();

    EXPECT_EQ(platform.field_read.count(), 37U);
    EXPECT_EQ(free_reads, 0U);
    EXPECT_EQ(free_writes, 0U);
    EXPECT_TRUE(is_free(sysvpd_access_mutex));
}

TEST_F(MachineRecord, IsDoneAfterTheMutexWasReleasedAndNotBefore) {
    std::map<std::string, bool> was_free;
    platform.during_trace([&](const TraceLine& line) { was_free[line.text] = is_free(sysvpd_access_mutex); });
    platform.field_read.fail_when([](const FieldCall& call) { return call.id == 48; });

    assemble();

    EXPECT_THAT(was_free,
                UnorderedElementsAre(Pair("[GetMachineVPDImpl]:UPDATE MAC CACHE", false),
                                     Pair("[GetMachineVPDImpl]:GET PRODUCT NAME", false),
                                     Pair("[sysvpd_read_field]:c_vpd_read_field FAIL, offset[00000030]", false),
                                     Pair("[GetMachineVPDImpl]:GET PRODUCT NAME FAIL", false),
                                     Pair("[GetMachineVPDImpl]:DONE~~~~~~~", true)));
}

TEST_F(MachineRecord, StaysUntouchedWhileTheMutexIsHeldByAnother) {
    record = unwritten<MachineVpdRecord>();
    const Bytes before = content(record);
    std::promise<void> at_the_mutex;
    before_locking = [&](pthread_mutex_t* mutex) {
        if (mutex == &sysvpd_access_mutex) at_the_mutex.set_value();
    };
    ASSERT_EQ(pthread_mutex_trylock(&sysvpd_access_mutex), 0);
    auto assembly_elsewhere = std::async(
        std::launch::async, [&] { return GetMachineVPDImpl(&length, sizeof record, nullptr, bytes(record)); });

    at_the_mutex.get_future().wait();
    // The thread now waits for the mutex, and writes nothing before it has it.
    EXPECT_TRUE(same_bytes(content(record), before));
    EXPECT_EQ(length, untouched);
    EXPECT_THAT(platform.journal(), IsEmpty());
    pthread_mutex_unlock(&sysvpd_access_mutex);

    EXPECT_EQ(assembly_elsewhere.get(), 0);
    before_locking = nullptr;
    EXPECT_TRUE(same_bytes(content(record), golden_bytes("standard_machine.txt")));
    EXPECT_EQ(length, 1106U);
}

// ---- failures

struct FailingField {
    uint32_t id;
    const char* message;
    std::size_t offset, size;  // of what the record then lacks
};

struct Machine {
    const char* name;
    void (*make)(FakePlatform&);
    std::vector<FailingField> fields;
};

const std::vector<FailingField> common_fields{
    {46, "GET SUB MFG FAIL", 999, 6},
    {27, "GET UUID FAIL", 77, 34},
    {10, "GET ASSET ID FAIL", 111, 34},
    {12, "GET CARD FRU NO. FAIL", 214, 13},
    {18, "GET CARD MFG DATE FAIL", 268, 11},
    {81, "GET CODE LEVEL 1 FAIL", 616, 37},
    {82, "GET CODE LEVEL 2 FAIL", 653, 37},
    {83, "GET CODE LEVEL 3 FAIL", 690, 37},
    {84, "GET CODE LEVEL 4 FAIL", 727, 37},
    {85, "GET CODE LEVEL 5 FAIL", 764, 37},
    {86, "GET CODE LEVEL 6 FAIL", 801, 37},
    {108, "GET PORT MAC 1 FAIL", 838, 152},
    {40, "GET IANA FAIL", 990, 9},
    {48, "GET PRODUCT NAME FAIL", 487, 129},
    {5, "GET VPD ID FAIL", 0, 0},
    {7, "GET VPD POS ID FAIL", 0, 0},
};

const std::vector<Machine> machines{
    {"standard", [](FakePlatform&) {}, common_fields},
    {"extended",
     [](FakePlatform&) {},
     {{4, "GET SERIAL NUMBER FORMAT FAIL", 1005, 13},
      {50, "GET EC LEVEL FORMAT FAIL", 1018, 11},
      {51, "GET 2nd PART NO. FAIL", 1029, 13},
      {52, "GET 2nd SERIAL NO. FAIL", 1042, 13},
      {53, "GET FULL MFG NAME FAIL", 1055, 33},
      {54, "GET ISMP NAME FAIL", 1088, 18},
      {6, "GET VPD POS ID EXTENSION FAIL", 0, 0}}},
    {"7-digit",
     [](FakePlatform&) {},
     {{8, "GET 7D MTM FAIL", 9, 34},
      {9, "GET 7D SERIAL NO. FAIL", 43, 34},
      {11, "GET CARD PART NO. FAIL", 180, 34},
      {13, "GET CARD SERIAL NO. FAIL", 227, 41},
      {14, "GET MFG ID FAIL", 145, 35}}},
    {"10-digit",
     [](FakePlatform& platform) { set_format(platform, 0x40); },
     {{56, "GET 10D MTM FAIL", 9, 34}, {57, "GET 10D SERIAL NO. FAIL", 43, 34}}},
    {"OEM",
     make_oem,
     {{60, "GET OEM MTM FAIL", 9, 34},
      {61, "GET OEM SERIAL NO. FAIL", 43, 34},
      {62, "GET OEM CARD PART NO. FAIL", 180, 34},
      {12, "GET CARD FRU NO. FAIL", 214, 13},
      {63, "GET OEM CARD SERIAL NO. FAIL", 227, 41},
      {65, "GET OEM MFG ID FAIL", 145, 35}}},
};

TEST_F(MachineRecord, LacksOnlyTheFieldThatCannotBeReadAndSaysSo) {
    for (const Machine& machine : machines) {
        for (const FailingField& field : machine.fields) {
            SCOPED_TRACE(formatted("%s machine, field %u", machine.name, field.id));
            platform.reset();
            set_system_vpd(platform);
            machine.make(platform);
            ASSERT_EQ(assemble_anew(), 0);
            Bytes expected = content(record);
            const auto slot = expected.begin() + static_cast<std::ptrdiff_t>(field.offset);
            std::fill(slot, slot + static_cast<std::ptrdiff_t>(field.size), uint8_t{0});
            EXPECT_NE(field.size > 0, expected == content(record)) << "the field would not be missed";
            lose_field(field.id);

            EXPECT_EQ(assemble_anew(), 0);

            EXPECT_TRUE(same_bytes(content(record), expected));
            EXPECT_THAT(failures(), ElementsAre(std::string("[GetMachineVPDImpl]:") + field.message));
            EXPECT_EQ(length, 1106U);
            EXPECT_TRUE(platform.logged_nothing());
        }
    }
}

TEST_F(MachineRecord, TracesTheReaderBeforeItsOwnFailure) {
    lose_field(10);

    assemble();

    const auto journal = platform.journal();
    const auto reader = std::find(journal.begin(), journal.end(),
                                  "trace 4 [sysvpd_read_field]:c_vpd_read_field FAIL, offset[0000000a]");
    ASSERT_LT(reader, journal.end() - 1);
    EXPECT_EQ(*(reader + 1), "trace 4 [GetMachineVPDImpl]:GET ASSET ID FAIL");
}

TEST_F(MachineRecord, HasNoVersionWhenItCannotBeRead) {
    lose_field(1);

    assemble();

    EXPECT_TRUE(holds(record.vpd_version, "0x0000"));
    EXPECT_TRUE(holds(record.serial_number_format, ""));
    EXPECT_THAT(failures(), ElementsAre("[GetMachineVPDImpl]:GET VPD VERSION FAIL"));
    EXPECT_FALSE(read_field(4));
}

TEST_F(MachineRecord, IsThatOfAStandardMachineWhenTheExtensionCannotBeRead) {
    make_oem(platform);
    lose_field(6);

    assemble();

    EXPECT_TRUE(holds(record.machine_type_model, "7X06AC1"));
}

TEST_F(MachineRecord, HasSevenDigitFieldsWhenTheFormatCannotBeRead) {
    set_format(platform, 0x40);
    lose_field(4);

    assemble();

    EXPECT_TRUE(holds(record.serial_number_format, ""));
    EXPECT_TRUE(holds(record.machine_type_model, "7X06AC1"));
    EXPECT_TRUE(holds(record.ec_level, "EC01234"));
}

TEST_F(MachineRecord, OfAFieldOfOneKilobyteLacksIt) {
    platform.field(10, Bytes(1024, 'x'));

    assemble();

    EXPECT_TRUE(holds(record.asset_id, ""));
    EXPECT_THAT(failures(), ElementsAre("[GetMachineVPDImpl]:GET ASSET ID FAIL"));
}

// ---- the platform id

TEST_F(MachineRecord, PublishesThePlatformIdMostSignificantByteFirst) {
    platform.field(5, Bytes{0xFE, 0xDC});
    platform.field(7, Bytes{0xBA, 0x98});

    assemble();

    EXPECT_EQ(platform.written("tarn_var_int_platform_id"),
              number_variable("tarn_var_int_platform_id", static_cast<int32_t>(0xFEDCBA98), 1));
}

TEST_F(MachineRecord, PublishesHalfAPlatformIdWhenTheOtherHalfCannotBeRead) {
    lose_field(5);
    assemble();
    EXPECT_EQ(platform.written("tarn_var_int_platform_id"), number_variable("tarn_var_int_platform_id", 0x5678, 1));

    platform.reset();
    set_system_vpd(platform);
    lose_field(7);
    assemble();
    EXPECT_EQ(platform.written("tarn_var_int_platform_id"), number_variable("tarn_var_int_platform_id", 0x12340000, 1));
}

TEST_F(MachineRecord, TracesThatThePlatformIdCannotBePublished) {
    platform.configuration_write.fail_when(
        [](const ConfigurationWrite& write) { return write.name == "tarn_var_int_platform_id"; });

    EXPECT_EQ(assemble(), 0);

    EXPECT_THAT(failures(), ElementsAre("[GetMachineVPDImpl]:SET TARN VAR[tarn_var_int_platform_id] FAIL"));
    EXPECT_TRUE(same_bytes(content(record), golden_bytes("standard_machine.txt")));
}

TEST_F(MachineRecord, SaysNothingWhenATextCannotBePublished) {
    platform.configuration_write.fail_when(
        [](const ConfigurationWrite& write) { return write.kind == ConfigurationKind::text; });

    EXPECT_EQ(assemble(), 0);

    EXPECT_THAT(failures(), IsEmpty());
    EXPECT_TRUE(platform.logged_nothing());
}

// ---- version and format

TEST_F(MachineRecord, HasExtendedFieldsFromVersion0300On) {
    struct {
        uint16_t version;
        const char* text;
        bool extended;
    } const versions[] = {{0x0000, "0x0000", false}, {0x0003, "0x0003", false}, {0x02FF, "0x02FF", false},
                          {0x0300, "0x0300", true},  {0x0301, "0x0301", true},  {0xABCD, "0xABCD", true}};
    for (const auto& version : versions) {
        SCOPED_TRACE(version.text);
        platform.reset();
        set_system_vpd(platform);
        set_version(platform, version.version);

        EXPECT_EQ(assemble(), 0);

        EXPECT_TRUE(holds(record.vpd_version, version.text));
        for (const uint32_t id : {4, 50, 51, 52, 53, 54}) EXPECT_EQ(read_field(id), version.extended) << id;
        EXPECT_TRUE(holds(record.serial_number_format, version.extended ? "11S and 8S" : ""));
        EXPECT_TRUE(holds(record.ec_level, version.extended ? "EC01234" : ""));
        EXPECT_TRUE(holds(record.second_part_number, version.extended ? "PN2-00001" : ""));
        EXPECT_TRUE(holds(record.second_serial_number, version.extended ? "SN2-00001" : ""));
        EXPECT_TRUE(holds(record.full_manufacturer_name, version.extended ? "Example Works" : ""));
        EXPECT_TRUE(holds(record.ismp_name, version.extended ? "ISMP-A" : ""));
    }
}

TEST_F(MachineRecord, BelowVersion0300HasSevenDigitFieldsWhateverTheFormatByte) {
    set_version(platform, 0x02FF);
    set_format(platform, 0x40);

    assemble();

    EXPECT_TRUE(holds(record.machine_type_model, "7X06AC1"));
    EXPECT_TRUE(holds(record.serial_number, "J30A123"));
}

TEST_F(MachineRecord, NamesTheSerialNumberFormat) {
    constexpr const char* names[] = {"11S", "8S", "11S and 8S", "Unknown"};
    for (int format = 0; format <= 0xFF; ++format) {
        set_format(platform, static_cast<uint8_t>(format));

        assemble();

        EXPECT_TRUE(holds(record.serial_number_format, names[format & 3])) << format;
        const bool ten_digits = (format & 0x40) != 0;
        EXPECT_TRUE(holds(record.machine_type_model, ten_digits ? "7X06A01234" : "7X06AC1")) << format;
        EXPECT_TRUE(holds(record.serial_number, ten_digits ? "0123456789" : "J30A123")) << format;
    }
}

TEST_F(MachineRecord, OfAnOemMachineHasOemFieldsEvenWithTheTenDigitFormat) {
    make_oem(platform);
    set_format(platform, 0x40);

    assemble();

    EXPECT_TRUE(holds(record.machine_type_model, "OEM-MTM"));
    EXPECT_TRUE(holds(record.serial_number, "OEM-SERIAL"));
    for (const uint32_t id : {8, 9, 56, 57, 11, 13, 14}) EXPECT_FALSE(read_field(id)) << id;
}

TEST_F(MachineRecord, OfAnOemMachineKeepsTheCardFruNumber) {
    make_oem(platform);

    assemble();

    EXPECT_TRUE(holds(record.card_fru_number, "01PE123"));
}

TEST_F(MachineRecord, IsThatOfAnOemMachineOnlyWithBothBytesOfTheExtension) {
    for (const Bytes& extension : {Bytes{0xFF, 0xEF}, Bytes{0xFE, 0xEE}, Bytes{0xEE, 0xFF}, Bytes{0xFF}, Bytes{0, 1}}) {
        platform.field(6, extension);

        assemble();

        EXPECT_TRUE(holds(record.machine_type_model, "7X06AC1")) << testing::PrintToString(extension);
    }
}

// ---- texts

TEST_F(MachineRecord, ReadsTwelveBytesOfTheCardSerialBelowVersion0300) {
    platform.field(13, std::string(33, 's'));

    set_version(platform, 0x02FF);
    assemble();
    EXPECT_TRUE(holds(record.card_serial_number, std::string(12, 's')));

    set_version(platform, 0x0300);
    assemble();
    EXPECT_TRUE(holds(record.card_serial_number, std::string(33, 's')));

    lose_field(1);
    assemble();
    EXPECT_TRUE(holds(record.card_serial_number, std::string(12, 's')));
}

TEST_F(MachineRecord, ReadsAllOfTheOemCardSerialBelowVersion0300) {
    make_oem(platform);
    set_version(platform, 0x02FF);
    platform.field(63, std::string(1, '\0') + std::string(30, 's'));

    assemble();

    EXPECT_TRUE(holds(record.card_serial_number, std::string(30, 's')));
}

struct LongField {
    uint32_t id;
    std::size_t offset, size, limit;
    void (*make)(FakePlatform&);
};

void standard(FakePlatform&) {}
void ten_digit(FakePlatform& platform) { set_format(platform, 0x40); }
void old_version(FakePlatform& platform) { set_version(platform, 0x02FF); }

constexpr LongField long_fields[] = {
    {8, 9, 34, 33, standard},     {9, 43, 34, 33, standard},     {56, 9, 34, 33, ten_digit},
    {57, 43, 34, 33, ten_digit},  {60, 9, 34, 33, make_oem},     {61, 43, 34, 33, make_oem},
    {10, 111, 34, 32, standard},  {14, 145, 35, 33, standard},   {65, 145, 35, 33, make_oem},
    {11, 180, 34, 33, standard},  {62, 180, 34, 33, make_oem},   {12, 214, 13, 12, standard},
    {12, 214, 13, 12, make_oem},  {13, 227, 41, 33, standard},   {13, 227, 41, 12, old_version},
    {63, 227, 41, 33, make_oem},  {48, 487, 129, 128, standard}, {81, 616, 37, 36, standard},
    {82, 653, 37, 36, standard},  {83, 690, 37, 36, standard},   {84, 727, 37, 36, standard},
    {85, 764, 37, 36, standard},  {86, 801, 37, 36, standard},   {46, 999, 6, 4, standard},
    {50, 1018, 11, 10, standard}, {51, 1029, 13, 12, standard},  {52, 1042, 13, 12, standard},
    {53, 1055, 33, 32, standard}, {54, 1088, 18, 16, standard},
};

TEST_F(MachineRecord, CutsALongFieldInsideItsSlot) {
    for (const LongField& field : long_fields) {
        SCOPED_TRACE(field.id);
        for (const std::size_t size : {field.limit, field.limit + 1, std::size_t{1023}}) {
            platform.reset();
            set_system_vpd(platform);
            field.make(platform);
            assemble_anew();
            Bytes expected = content(record);
            const auto slot = expected.begin() + static_cast<std::ptrdiff_t>(field.offset);
            std::fill(slot, slot + static_cast<std::ptrdiff_t>(field.size), uint8_t{0});
            std::fill(slot, slot + static_cast<std::ptrdiff_t>(field.limit), uint8_t{'x'});
            platform.field(field.id, std::string(size, 'x'));

            EXPECT_EQ(assemble_anew(), 0);

            EXPECT_TRUE(same_bytes(content(record), expected)) << size;
        }
    }
}

TEST_F(MachineRecord, PublishesLongTextsAsCut) {
    platform.field(8, std::string(1023, 'm'));
    platform.field(9, std::string(1023, 's'));
    platform.field(48, std::string(1023, 'p'));

    assemble();

    EXPECT_EQ(platform.written("tarn_str_machine_vpd_MTM"),
              text_variable("tarn_str_machine_vpd_MTM", std::string(33, 'm'), 1));
    EXPECT_EQ(platform.written("tarn_str_machine_vpd_serial_number"),
              text_variable("tarn_str_machine_vpd_serial_number", std::string(33, 's'), 1));
    EXPECT_EQ(platform.written("tarn_str_machine_vpd_product_name"),
              text_variable("tarn_str_machine_vpd_product_name", std::string(128, 'p'), 1));
}

TEST_F(MachineRecord, CutsLongBinaryFields) {
    platform.field(27, Bytes(1023, 0xA5));
    platform.field(40, Bytes(1023, 0xB6));
    platform.field(108, Bytes(1023, 0xC7));

    assemble();

    EXPECT_TRUE(holds(record.uuid, "A5A5A5A5A5A5A5A5A5A5A5A5A5A5A5A5"));
    EXPECT_TRUE(holds(record.iana, "B6B6B6B6"));
    for (const auto& mac : record.port_macs) EXPECT_TRUE(holds(mac, "C7C7C7C7C7C7C7C7"));
}

TEST_F(MachineRecord, FillsShortBinaryFieldsWithZeros) {
    platform.field(27, Bytes{0x01});
    platform.field(40, Bytes{0x02, 0x03});
    platform.field(108, Bytes{0, 0, 0, 0, 0, 0, 0, 0, 0x04});

    assemble();

    EXPECT_TRUE(holds(record.uuid, "01000000000000000000000000000000"));
    EXPECT_TRUE(holds(record.iana, "02030000"));
    EXPECT_TRUE(holds(record.port_macs[0], "0000000000000000"));
    EXPECT_TRUE(holds(record.port_macs[1], "0400000000000000"));
    EXPECT_TRUE(holds(record.port_macs[7], "0000000000000000"));
}

TEST_F(MachineRecord, HasItsPaddingRemoved) {
    using namespace std::string_view_literals;
    platform.field(8, "  7X06  "sv);   // no rule
    platform.field(9, "  7Z  "sv);     // right: only the left side
    platform.field(10, "  AB  "sv);    // left: only the right side
    platform.field(14, "    "sv);      // right: a text of blanks stays
    platform.field(12, "    "sv);      // left: a text of blanks goes
    platform.field(81, " LEVEL  "sv);  // no rule

    assemble();

    EXPECT_TRUE(holds(record.machine_type_model, "  7X06  "));
    EXPECT_TRUE(holds(record.serial_number, "7Z  "));
    EXPECT_TRUE(holds(record.asset_id, "  AB"));
    EXPECT_TRUE(holds(record.manufacturer_id, "    "));
    EXPECT_TRUE(holds(record.card_fru_number, ""));
    EXPECT_TRUE(holds(record.code_levels[0], " LEVEL  "));
}

TEST_F(MachineRecord, OfAnOemMachineHasTheTextBehindTheFirstZero) {
    using namespace std::string_view_literals;
    make_oem(platform);
    platform.field(60, "XYZ\0\0\0"sv);         // a text that starts the field is dropped
    platform.field(61, "\0XYZ\0ABC\0"sv);      // up to the next zero
    platform.field(62, std::string(31, 'p'));  // no zero in its first 31 bytes: as it stands
    platform.field(63, std::string(30, 's') + '\0' + "E");
    platform.field(65, '\0' + std::string(30, 'm') + "E");

    assemble();

    EXPECT_TRUE(holds(record.machine_type_model, ""));
    EXPECT_TRUE(holds(record.serial_number, "XYZ"));
    EXPECT_TRUE(holds(record.card_part_number, std::string(31, 'p')));
    EXPECT_TRUE(holds(record.card_serial_number, "E" + std::string(29, 's')));
    // Nothing ends a text that reaches the last of the 32 bytes.
    EXPECT_TRUE(holds(record.manufacturer_id, std::string(30, 'm') + "EE"));
    EXPECT_EQ(platform.written("tarn_str_machine_vpd_MTM"), text_variable("tarn_str_machine_vpd_MTM", "", 1));
}

TEST_F(MachineRecord, HasTheFirstDayOfTheWeekAsItsCardDate) {
    constexpr struct {
        const char* week_and_year;
        const char* date;
    } dates[] = {
        {"0196", "1996-01-01"},  // where the count begins
        {"1021", "2021-03-08"},  // 1,314 weeks later
        {"0120", "2019-12-30"},  // the week of January 1st; read the other way round it would be week 20 of 2001
        {"2001", "2001-05-14"},        {"5399", "1999-12-27"},        // a year of 52 weeks
        {"5027", "2027-11-22"},                                       // the last week that the count can hold
        {"0150", "2027-11-22"},                                       // no such year
        {"0096", "1996-01-01"},                                       // no such week
        {"  1021", "2021-03-08"},      {"      1021", "2021-03-08"},  // ten bytes are read
        {"       1021", "2002-03-04"},                                // and not the eleventh: week 10 of year 2
    };
    for (const auto& [week_and_year, date] : dates) {
        platform.field(18, std::string_view(week_and_year));

        assemble();

        EXPECT_TRUE(holds(record.card_mfg_date, date)) << week_and_year;
    }
}

TEST_F(MachineRecord, HasTheCardDateOfTheFirstFourOfTenDigits) {
    platform.field(18, "10219999999999");

    assemble();

    EXPECT_TRUE(holds(record.card_mfg_date, "2021-03-08"));
}

TEST_F(MachineRecord, HasNoCardDateWithoutAWeekAndAYear) {
    for (const char* text : {"", "a", "1", "12", "12ab", "    ", "a1221"}) {
        platform.field(18, std::string_view(text));

        EXPECT_EQ(assemble(), 0) << text;

        EXPECT_TRUE(holds(record.card_mfg_date, "")) << text;
    }
    EXPECT_THAT(failures(), IsEmpty());
}

TEST_F(MachineRecord, SurvivesACardDateThatIsNone) {
    for (const char* text : {"", "a", "12", "12ab", "-1-1", "    ", "9999"}) {
        platform.field(18, std::string_view(text));

        EXPECT_EQ(assemble(), 0) << text;

        EXPECT_LT(strnlen(record.card_mfg_date, sizeof record.card_mfg_date), sizeof record.card_mfg_date) << text;
    }
}

// ---- host MACs

TEST_F(MachineRecord, ReadsTheHostMacsOnce) {
    assemble();
    const std::size_t after_first = platform.field_read.count();
    platform.field(19, Bytes(8, 0x11));

    assemble();

    EXPECT_EQ(platform.field_read.count(), 2 * after_first - 8);
    EXPECT_TRUE(holds(record.host_macs[0], "02:00:5E:10:AB:01"));
    EXPECT_TRUE(platform.traced(progress, assembly, "UPDATE MAC CACHE"));
}

TEST_F(MachineRecord, TracesTheStepOfTheHostMacsAlsoWhenTheyAreCached) {
    assemble();
    ASSERT_EQ(isHostMacCache, 1);

    assemble();

    const auto journal = platform.journal();
    EXPECT_EQ(std::ranges::count(journal, "trace 2 [GetMachineVPDImpl]:UPDATE MAC CACHE"), 2);
}

TEST_F(MachineRecord, ReadsTheHostMacsAgainWhenTheFlagWasCleared) {
    assemble();
    EXPECT_EQ(isHostMacCache, 1);
    platform.field(19, Bytes(8, 0x11));
    isHostMacCache = 0;

    assemble();

    EXPECT_TRUE(holds(record.host_macs[0], "11:11:11:11:11:11"));
    EXPECT_TRUE(holds(record.host_macs[7], "02:00:5E:10:AB:08"));
    EXPECT_EQ(isHostMacCache, 1);
}

TEST_F(MachineRecord, CopiesTheHostMacCacheAsItStands) {
    isHostMacCache = 1;
    std::memset(host_mac_cache, 'z', sizeof host_mac_cache);

    assemble();

    EXPECT_EQ(std::memcmp(record.host_macs, host_mac_cache, 208), 0);
    EXPECT_TRUE(holds(record.product_name, "Rack server, two sockets"));
    std::memset(host_mac_cache, 0, sizeof host_mac_cache);
}

TEST_F(MachineRecord, LacksAHostMacThatCannotBeReadAndKeepsTheOthers) {
    lose_field(22);

    assemble();

    EXPECT_TRUE(holds(record.host_macs[2], "02:00:5E:10:AB:03"));
    EXPECT_TRUE(holds(record.host_macs[3], ""));
    EXPECT_TRUE(holds(record.host_macs[4], "02:00:5E:10:AB:05"));
    EXPECT_EQ(isHostMacCache, 1);
    EXPECT_TRUE(platform.traced(failure, "updateSysvpdMacAddressCache", "READ MAC 4 FAIL"));
}

// ---- the request

class MachineRequest : public MachineRecord {
protected:
    MachineRequest() {
        platform.fru(0, seven_pairs());
        set_posid(platform, 0xFF, 0xEE);
    }

    int ask(const char* request) { return GetMachineVPD(&length, 1, request, bytes(oem)); }
    bool answered_with_oem_record() const { return std::memcmp(&oem, oem_request, 8) == 0; }

    OemMachineRecord oem = unwritten<OemMachineRecord>();
};

/// A text that ends where the next page cannot be read.
class TextAtTheEndOfAPage {
public:
    explicit TextAtTheEndOfAPage(std::string_view text) {
        pages_ =
            static_cast<char*>(mmap(nullptr, 2 * page, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
        mprotect(pages_ + page, page, PROT_NONE);
        text_ = pages_ + page - text.size();
        std::copy(text.begin(), text.end(), text_);
    }
    ~TextAtTheEndOfAPage() { munmap(pages_, 2 * page); }
    TextAtTheEndOfAPage(const TextAtTheEndOfAPage&) = delete;
    TextAtTheEndOfAPage& operator=(const TextAtTheEndOfAPage&) = delete;

    const char* get() const { return text_; }

private:
    static constexpr std::size_t page = 65536;  // a multiple of every page size in use
    char* pages_;
    char* text_;
};

TEST_F(MachineRequest, WithoutATextYieldsTheStandardRecord) {
    EXPECT_EQ(GetMachineVPD(&length, 1106, nullptr, bytes(record)), 0);

    EXPECT_TRUE(same_bytes(content(record), golden_bytes("standard_machine.txt")));
    EXPECT_EQ(length, 1106U);
    EXPECT_TRUE(platform.logged_nothing());
    EXPECT_THAT(platform.requests(), IsEmpty());
}

TEST_F(MachineRequest, ComparesEightCharacters) {
    EXPECT_EQ(ask("_req_oem"), 0);
    EXPECT_TRUE(answered_with_oem_record());

    oem = unwritten<OemMachineRecord>();
    EXPECT_EQ(ask("_req_oemX"), 0);
    EXPECT_TRUE(answered_with_oem_record());

    for (const char* request : {"", "_req_oe", "_req_oeM", "Xreq_oem", " _req_oem", "_REQ_OEM"}) {
        oem = unwritten<OemMachineRecord>();
        EXPECT_EQ(ask(request), 0);
        EXPECT_FALSE(answered_with_oem_record()) << request;
    }
}

TEST_F(MachineRequest, NeedsNoTerminatorBehindEightCharacters) {
    const TextAtTheEndOfAPage request("_req_oem");

    EXPECT_EQ(ask(request.get()), 0);

    EXPECT_TRUE(answered_with_oem_record());
}

TEST_F(MachineRequest, IsNotReadBehindItsTerminator) {
    const TextAtTheEndOfAPage request(std::string_view("_req\0", 5));

    EXPECT_EQ(ask(request.get()), 0);

    EXPECT_FALSE(answered_with_oem_record());
}

TEST_F(MachineRequest, IsNotReadBehindItsFirstDifference) {
    const TextAtTheEndOfAPage request("x");

    EXPECT_EQ(ask(request.get()), 0);

    EXPECT_FALSE(answered_with_oem_record());
}

TEST_F(MachineRequest, RefusesANullRecord) {
    for (const char* request : {static_cast<const char*>(nullptr), oem_request}) {
        platform.reset();

        EXPECT_EQ(GetMachineVPD(&length, 1342, request, nullptr), -1);

        EXPECT_EQ(length, untouched);
        EXPECT_THAT(platform.journal(),
                    ElementsAre("log 12 " + pid_line("GetMachineVPD - response buffer is null.\n")));
    }
}

TEST_F(MachineRequest, ForTheOemRecordYieldsItAsLaidOut) {
    make_oem(platform);
    set_version(platform, 0x0310);
    set_format(platform, 0x41);

    EXPECT_EQ(ask(oem_request), 0);

    EXPECT_TRUE(same_bytes(content(oem), golden_bytes("oem_record.txt")));
    EXPECT_TRUE(platform.logged_nothing());
}

TEST_F(MachineRequest, ForTheOemRecordLeavesTheLengthAlone) {
    EXPECT_EQ(ask(oem_request), 0);

    EXPECT_EQ(length, untouched);
    EXPECT_EQ(GetMachineVPD(nullptr, 0, oem_request, bytes(oem)), 0);
}

TEST_F(MachineRequest, ForTheOemRecordReadsFieldsThenFruThenPosId) {
    EXPECT_EQ(ask(oem_request), 0);

    const auto journal = platform.journal();
    const auto done = std::find(journal.begin(), journal.end(), "trace 2 [GetMachineVPDImpl]:DONE~~~~~~~");
    ASSERT_NE(done, journal.end());
    EXPECT_THAT(
        std::vector<std::string>(done + 1, journal.end()),
        ElementsAre("ipmi 06/01", "ipmi 0A/10", "ipmi 0A/11", "ipmi 0A/11", "set tarn_str_machine_vpd_oem_MTM_LABEL",
                    "set tarn_str_machine_vpd_oem_serial_number_LABEL", "ipmi 3A/0B"));
}

TEST_F(MachineRequest, ForTheOemRecordHoldsNoMutexWhileItAsksOverIpmi) {
    const std::array mutexes{&compvpd_access_mutex,
                             &g_list_access_mutex,
                             &compvpd_readonly_mutex,
                             &compvpd_kiva_readonly_mutex,
                             &g_fru_changed_flag_mutex,
                             &compvpd_getproperty_mutex,
                             &compvpd_getstringproperty_mutex,
                             &compvpd_getbyteproperty_mutex,
                             &fwvpd_access_mutex,
                             &sysvpd_access_mutex};
    std::size_t free_requests = 0;
    platform.ipmi.during([&](const IpmiCall&) {
        free_requests +=
            std::all_of(mutexes.begin(), mutexes.end(), [](auto* mutex) { return is_free(*mutex); }) ? 1 : 0;
    });

    EXPECT_EQ(ask(oem_request), 0);

    EXPECT_EQ(platform.ipmi.count(), 5U);
    EXPECT_EQ(free_requests, 5U);
    EXPECT_TRUE(is_free(sysvpd_access_mutex));
}

TEST_F(MachineRequest, ForTheOemRecordFailsWithTheMachineFieldsAndLeavesTheRecordAlone) {
    platform.remove_fru(0);

    EXPECT_EQ(ask(oem_request), -9);

    EXPECT_TRUE(same_bytes(content(oem), content(unwritten<OemMachineRecord>())));
    EXPECT_EQ(length, untouched);
    EXPECT_EQ(
        platform.log().back(),
        (LogLine{warning, pid_line("GetMachineVPD - OEMed info query, GetMachineFields error report ret=-9.\n")}));
    EXPECT_EQ(platform.log().size(), 2U);
    EXPECT_FALSE(std::ranges::any_of(platform.requests(), is_posid_request));
}

TEST_F(MachineRequest, ForTheOemRecordNeedsNoProductArea) {
    platform.fru(0, vpdd::images::FruImage().padded_to(64).build());

    EXPECT_EQ(ask(oem_request), 0);

    EXPECT_TRUE(answered_with_oem_record());
    EXPECT_TRUE(holds(oem.pair_0.label, ""));
    EXPECT_TRUE(holds(oem.uuid, "00112233445566778899AABBCCDDEEFF"));
    EXPECT_EQ(length, untouched);
}

TEST_F(MachineRequest, ForTheOemRecordNamesTheManufacturerByThePosId) {
    constexpr struct {
        uint8_t first, second;
        const char* manufacturer;
        int classified;
    } machines_by_posid[] = {
        {0x00, 0x00, "zelt", 1}, {0xFF, 0xEE, "oem", 2},  {0x00, 0x01, "zelt", 3},
        {0xFF, 0xEF, "zelt", 3}, {0x12, 0x00, "zelt", 3},
    };
    for (const auto& machine : machines_by_posid) {
        set_posid(platform, machine.first, machine.second);
        const CaptureStdout output;

        EXPECT_EQ(ask(oem_request), 0);

        EXPECT_TRUE(holds(oem.product_manufacturer, machine.manufacturer));
        const std::regex printed(
            "--> leave GetMachineFields\nvpdd:GetMachineVPD, line:\\d+ - read_POSID_ext, productmfg=" +
            std::string(machine.manufacturer) + ", ret=" + std::to_string(machine.classified) + "\n");
        EXPECT_TRUE(std::regex_match(output.text(), printed)) << output.text();
    }
    EXPECT_TRUE(platform.logged_nothing());
}

TEST_F(MachineRequest, ForTheOemRecordSucceedsWithoutThePosId) {
    for (const IpmiReply& reply : {ipmi_dead(), ipmi_completion(0xCB)}) {
        platform.reset();
        set_system_vpd(platform);
        platform.fru(0, seven_pairs());
        platform.ipmi.when(is_posid_request, reply);
        oem = unwritten<OemMachineRecord>();
        const CaptureStdout output;

        EXPECT_EQ(ask(oem_request), 0);

        EXPECT_TRUE(holds(oem.product_manufacturer, ""));
        EXPECT_TRUE(holds(oem.pair_6.value, "VALUE-6"));
        EXPECT_TRUE(platform.logged(
            warning, pid_line("GetMachineVPD - OEMed info query, read POS ID extension field error, ret=0.\n")));
        EXPECT_EQ(platform.log().size(), 1U);
        EXPECT_TRUE(std::regex_search(
            output.text(), std::regex("vpdd:GetMachineVPD, line:\\d+ - read_POSID_ext, productmfg=, ret=0\n")));
    }
}

// ---- the OEM record

TEST_F(MachineRequest, OemRecordHasThePairsInItsOwnOrder) {
    EXPECT_EQ(ask(oem_request), 0);

    constexpr std::pair<std::size_t, const char*> pairs[] = {{27, "0"},  {87, "1"},  {181, "6"}, {245, "5"},
                                                             {305, "2"}, {378, "3"}, {445, "4"}};
    for (const auto& [offset, number] : pairs) {
        const auto* pair = reinterpret_cast<const MachineFieldPair*>(bytes(oem) + offset);
        EXPECT_TRUE(holds(pair->label, std::string("LABEL-") + number));
        EXPECT_TRUE(holds(pair->value, std::string("VALUE-") + number));
    }
}

TEST_F(MachineRequest, OemRecordHasOnlyTheBeginningOfTheMacsAndCodeLevels) {
    platform.field(86, std::string(36, '6'));

    EXPECT_EQ(ask(oem_request), 0);

    // 194 bytes are seven MACs of 26 and twelve characters, 217 five levels of 37 and 32, 138 seven of 19 and 5.
    const auto* text = reinterpret_cast<const char*>(bytes(oem));
    EXPECT_EQ(std::string(text + 516 + 182, 12 + 14), "02:00:5E:10:" + std::string(14, '\0'));
    EXPECT_EQ(std::string(text + 853 + 185, 32 + 5), std::string(32, '6') + std::string(5, '\0'));
    EXPECT_EQ(std::string(text + 1075 + 133, 5 + 14), "D8D9D" + std::string(14, '\0'));
}

/// `length` characters that differ from field to field and from place to place.
std::string long_text(char first, std::size_t length) {
    std::string text;
    for (std::size_t i = 0; i < length; ++i) text += static_cast<char>('!' + (first - '!' + i) % ('~' - '!' + 1));
    return text;
}

/// Every field that a record shows at its full length.
void set_full_system_vpd(FakePlatform& platform) {
    set_system_vpd(platform);
    constexpr std::pair<uint32_t, std::size_t> texts[] = {
        {8, 33},  {9, 33},  {10, 32}, {11, 33}, {12, 12}, {13, 33}, {14, 33}, {46, 4},  {48, 128}, {50, 10},
        {51, 12}, {52, 12}, {53, 32}, {54, 16}, {81, 36}, {82, 36}, {83, 36}, {84, 36}, {85, 36},  {86, 36}};
    char first = '0';
    for (const auto& [id, size] : texts) platform.field(id, long_text(first++, size));
    // A cache as no MAC fills it, so that each of its bytes is seen.
    isHostMacCache = 1;
    for (std::size_t slot = 0; slot < 8; ++slot) {
        std::memcpy(host_mac_cache[slot], long_text(static_cast<char>('a' + slot), 26).data(), 26);
    }
}

std::vector<vpdd::images::Field> full_pairs() {
    std::vector<vpdd::images::Field> custom;
    for (std::size_t pair = 0; pair < 7; ++pair) {
        custom.emplace_back(long_text(static_cast<char>('A' + pair), 29));
        custom.emplace_back(long_text(static_cast<char>('P' + pair), 29));
    }
    return custom;
}

/// Bytes in the place of zeros.
void put(Bytes& record, std::size_t offset, const Bytes& what) {
    std::copy(what.begin(), what.end(), record.begin() + static_cast<std::ptrdiff_t>(offset));
}

TEST_F(MachineRequest, OemRecordOfFullFieldsIsTakenFromTheStandardRecordPlaceByPlace) {
    for (const uint16_t version : {0x0300, 0x02FF}) {
        set_full_system_vpd(platform);
        set_version(platform, version);
        platform.fru(0, machine_fru(full_pairs()));
        ASSERT_EQ(assemble(), 0);
        const Bytes from = content(record);
        Bytes expected(1342);
        const auto take = [&](std::size_t to, std::size_t size, std::size_t first) {
            const auto begin = from.begin() + static_cast<std::ptrdiff_t>(first);
            put(expected, to, Bytes(begin, begin + static_cast<std::ptrdiff_t>(size)));
        };
        const auto put_pair = [&](std::size_t to, std::size_t pair) {
            put(expected, to, bytes_of(long_text(static_cast<char>('A' + pair), 29)));
            put(expected, to + 30, bytes_of(long_text(static_cast<char>('P' + pair), 29)));
        };
        put(expected, 0, bytes_of("_req_oem"));
        put(expected, 9, bytes_of("oem"));
        take(18, 9, 0);  // VPD version
        put_pair(27, 0);
        put_pair(87, 1);
        take(147, 34, 77);  // UUID
        put_pair(181, 6);
        put_pair(245, 5);
        put_pair(305, 2);
        take(365, 13, 214);  // card FRU number
        put_pair(378, 3);
        take(438, 7, 261);  // end of the card serial number
        put_pair(445, 4);
        take(505, 11, 268);    // card manufacturing date
        take(516, 194, 279);   // host MACs
        take(724, 129, 487);   // product name
        take(853, 217, 616);   // code levels
        take(1075, 138, 838);  // port MACs
        take(1227, 15, 990);   // IANA and sub-manufacturer
        if (version >= 0x0300) take(1242, 100, 1005);

        EXPECT_EQ(ask(oem_request), 0);

        EXPECT_TRUE(same_bytes(content(oem), expected)) << version;
    }
}

TEST_F(MachineRequest, OemRecordHasTheEndOfTheCardSerialSlotWhichNoSerialReaches) {
    platform.field(13, std::string(33, 's'));

    EXPECT_EQ(ask(oem_request), 0);

    EXPECT_TRUE(holds(oem.card_serial_number_end, ""));
}

TEST_F(MachineRequest, OemRecordHasTheExtendedFieldsFromVersion0300On) {
    for (const uint16_t version : {0x0000, 0x02FF, 0x0300, 0x0A00, 0xFFFF}) {
        set_version(platform, version);
        platform.field(54, std::string(16, 'i'));

        EXPECT_EQ(ask(oem_request), 0);

        const std::string extended(oem.serial_format_to_ismp, sizeof oem.serial_format_to_ismp);
        if (version < 0x0300) {
            EXPECT_EQ(extended, std::string(100, '\0')) << version;
        } else {
            EXPECT_EQ(extended.substr(0, 11), std::string("11S and 8S\0", 11)) << version;
            EXPECT_EQ(extended.substr(83), std::string(16, 'i') + '\0') << version;
        }
    }
}

TEST_F(MachineRequest, OemRecordDoesNotCarryTheStandardIdentity) {
    EXPECT_EQ(ask(oem_request), 0);

    const std::string all(reinterpret_cast<const char*>(bytes(oem)), sizeof oem);
    for (const char* text : {"7X06AC1", "J30A123", "ASSET-0042", "ACME", "SB27A12345"}) {
        EXPECT_EQ(all.find(text), std::string::npos) << text;
    }
}

TEST_F(MachineRequest, OemRecordOfAMachineThatCannotBeReadHasThePairsAlone) {
    platform.field_read.fail_always();

    EXPECT_EQ(ask(oem_request), 0);

    OemMachineRecord expected{};
    std::memcpy(expected.request, "_req_oem", 8);
    std::strcpy(expected.product_manufacturer, "oem");
    std::strcpy(expected.vpd_version, "0x0000");
    expected.pair_0 = oem.pair_0;
    expected.pair_1 = oem.pair_1;
    expected.pair_2 = oem.pair_2;
    expected.pair_3 = oem.pair_3;
    expected.pair_4 = oem.pair_4;
    expected.pair_5 = oem.pair_5;
    expected.pair_6 = oem.pair_6;
    EXPECT_TRUE(same_bytes(content(oem), content(expected)));
    EXPECT_TRUE(holds(oem.pair_0.label, "LABEL-0"));
}

}  // namespace
