// SPDX-License-Identifier: Apache-2.0
// What a FRU image leaves in its record.
#include <ctime>

#include "cache_fixture.h"
#include "own_process.h"

using namespace vpdd::test;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;
using vpdd::images::BoardArea;
using vpdd::images::Field;
using vpdd::images::FruArea;
using vpdd::images::FruImage;
using vpdd::images::FruLocator;
using vpdd::images::Multirecord;
using vpdd::images::OemProcessor;
using vpdd::images::power_supply_versions;
using vpdd::images::ProductArea;

namespace {

constexpr uint32_t minutes_a_day = 24 * 60;

class FruAreasTest : public ComponentCacheTest {
protected:
    /// The record that comes of an image.
    ComponentVpdRecord decoded(const Bytes& image, uint8_t entity = 7) {
        platform.fru(0, FruImage().build());
        platform.fru(5, image);
        create({FruLocator(5, "FRU 5").entity(entity, 1)});
        return records().at(0);
    }
    ComponentVpdRecord decoded(const FruImage& image, uint8_t entity = 7) { return decoded(image.build(), entity); }

    /// What was logged but for what each creation of such a small cache logs: no processor, no SMBIOS table.
    std::vector<LogLine> decoding_log() const {
        auto lines = platform.log();
        std::erase_if(lines, [](const LogLine& line) {
            return line.text.find("cpu base is set to default") != std::string::npos ||
                   line.text.find("smbt_init failed") != std::string::npos;
        });
        return lines;
    }

    /// An area with these bytes behind its head.
    static Bytes area(Bytes head, const Bytes& fields) {
        head.insert(head.end(), fields.begin(), fields.end());
        head.resize((head.size() + 8) / 8 * 8);
        return head;
    }
    static FruImage board_with(const Bytes& fields) {
        return FruImage().raw_area(FruArea::board, area({1, 0, 25, 0, 0, 0}, fields));
    }
    static FruImage product_with(const Bytes& fields) {
        return FruImage().raw_area(FruArea::product, area({1, 0, 25}, fields));
    }

    /// No text of the record is set.
    static void expect_no_texts(const ComponentVpdRecord& record) {
        EXPECT_STREQ(record.mfg_id, "");
        EXPECT_STREQ(record.serial_number, "");
        EXPECT_STREQ(record.part_number, "");
        EXPECT_STREQ(record.product_version, "");
        EXPECT_STREQ(record.board_extra, "");
        EXPECT_STREQ(record.mfg_date, "");
    }
};

/// A text of this many different characters.
std::string long_text(std::size_t length, char first) {
    std::string text;
    for (std::size_t i = 0; i < length; ++i) text += static_cast<char>(first + static_cast<char>(i % 26));
    return text;
}

// ---- board

TEST_F(FruAreasTest, TakesTheFieldsOfTheBoard) {
    const auto record = decoded(FruImage().board({.manufacturer = "maker",
                                                  .product = "name",
                                                  .serial = "serial",
                                                  .part = "part",
                                                  .file_id = "file",
                                                  .custom = {"first", "second"},
                                                  .date = minutes_a_day * 31}));

    EXPECT_STREQ(record.mfg_id, "maker");
    EXPECT_STREQ(record.serial_number, "serial");
    EXPECT_STREQ(record.part_number, "part");
    EXPECT_STREQ(record.board_extra, "first");
    EXPECT_STREQ(record.product_version, "");
    EXPECT_STREQ(record.mfg_date, "1996-02-01");
    EXPECT_EQ(record.is_cached, 1);
    EXPECT_EQ(record.vpd_format, 0U);
    EXPECT_THAT(decoding_log(), IsEmpty());
}

TEST_F(FruAreasTest, CutsEachFieldOfTheBoardToItsBound) {
    const auto record = decoded(FruImage().board({.manufacturer = long_text(63, 'A'),
                                                  .product = long_text(63, 'a'),
                                                  .serial = long_text(63, 'B'),
                                                  .part = long_text(63, 'C'),
                                                  .file_id = long_text(63, 'b'),
                                                  .custom = {long_text(63, 'D')}}));

    EXPECT_EQ(std::string(record.mfg_id), long_text(30, 'A'));
    EXPECT_EQ(std::string(record.serial_number), long_text(24, 'B'));
    EXPECT_EQ(std::string(record.part_number), long_text(30, 'C'));
    EXPECT_EQ(std::string(record.board_extra), long_text(12, 'D'));
}

TEST_F(FruAreasTest, KeepsFieldsOfTheBoardThatFitExactly) {
    const auto record = decoded(FruImage().board({.manufacturer = long_text(30, 'A'),
                                                  .serial = long_text(24, 'B'),
                                                  .part = long_text(30, 'C'),
                                                  .custom = {long_text(12, 'D')}}));

    EXPECT_EQ(std::string(record.mfg_id), long_text(30, 'A'));
    EXPECT_EQ(std::string(record.serial_number), long_text(24, 'B'));
    EXPECT_EQ(std::string(record.part_number), long_text(30, 'C'));
    EXPECT_EQ(std::string(record.board_extra), long_text(12, 'D'));
}

TEST_F(FruAreasTest, TrimsEachFieldOfTheBoard) {
    const auto record = decoded(FruImage().board({.manufacturer = " \t\x01maker x \t\f\n",
                                                  .serial = "  serial  ",
                                                  .part = "\npart\n",
                                                  .custom = {"    extra   "}}));

    EXPECT_STREQ(record.mfg_id, "maker x");
    EXPECT_STREQ(record.serial_number, "serial");
    EXPECT_STREQ(record.part_number, "part");
    EXPECT_STREQ(record.board_extra, "extra");
}

TEST_F(FruAreasTest, TrimsBeforeItCuts) {
    const auto record = decoded(FruImage().board({.manufacturer = std::string(20, ' ') + long_text(35, 'A')}));

    EXPECT_EQ(std::string(record.mfg_id), long_text(30, 'A'));
}

TEST_F(FruAreasTest, TakesFieldsOfEachType) {
    const auto record = decoded(FruImage().board({.manufacturer = Field::binary({'b', 'i', 'n'}),
                                                  .serial = Field::bcd_plus({1, 0x0B, 0x1F}),
                                                  .part = Field::six_bit("ABCD")}));

    EXPECT_STREQ(record.mfg_id, "bin");
    EXPECT_STREQ(record.serial_number, "1-?");
    // 'A' to 'D' are the codes 0x21 to 0x24, packed from the low bits on: they stay packed.
    EXPECT_STREQ(record.part_number, "\xA1\x38\x92");
}

TEST_F(FruAreasTest, StepsOverEmptyFieldsOfTheBoard) {
    const auto record = decoded(FruImage().board({.product = "name", .part = "part", .custom = {"extra"}}));

    EXPECT_STREQ(record.mfg_id, "");
    EXPECT_STREQ(record.serial_number, "");
    EXPECT_STREQ(record.part_number, "part");
    EXPECT_STREQ(record.board_extra, "extra");
    EXPECT_EQ(record.is_cached, 1);
}

TEST_F(FruAreasTest, LeavesFieldsBehindTheEndOfTheBoardsListEmpty) {
    const auto record = decoded(board_with({0xC2, 'm', 'k', 0x00, 0xC1, 0xC2, 'n', 'o'}));

    EXPECT_STREQ(record.mfg_id, "mk");
    EXPECT_STREQ(record.serial_number, "");
    EXPECT_STREQ(record.part_number, "");
    EXPECT_STREQ(record.board_extra, "");
    EXPECT_EQ(record.is_cached, 1);
    EXPECT_THAT(decoding_log(), IsEmpty());
}

TEST_F(FruAreasTest, PrintsAnUnsetBoardDateAsTheFirstDay) {
    EXPECT_STREQ(decoded(FruImage().board({"maker"})).mfg_date, "1996-01-01");
}

TEST_F(FruAreasTest, PrintsTheLatestBoardDate) {
    // 16777215 minutes are 11650 days, 20 hours and 15 minutes.
    EXPECT_STREQ(decoded(FruImage().board({.manufacturer = "maker", .date = 0xFFFFFF})).mfg_date, "2027-11-24");
}

TEST_F(FruAreasTest, PrintsTheBoardDateInLocalTime) {
    setenv("TZ", "EST5", 1);
    tzset();

    EXPECT_STREQ(decoded(FruImage().board({.manufacturer = "maker", .date = minutes_a_day})).mfg_date, "1996-01-01");
}

TEST_F(FruAreasTest, PrefersTheBoardToTheProduct) {
    const auto record =
        decoded(FruImage()
                    .board({"board maker"})
                    .product({.manufacturer = "product maker", .version = "version", .serial = "serial"}));

    EXPECT_STREQ(record.mfg_id, "board maker");
    EXPECT_STREQ(record.serial_number, "");
    EXPECT_STREQ(record.part_number, "");
    EXPECT_STREQ(record.product_version, "");
}

// ---- product

TEST_F(FruAreasTest, TakesTheFieldsOfTheProductWithoutABoard) {
    const auto record = decoded(FruImage().product({.manufacturer = "maker",
                                                    .name = "name",
                                                    .part = "model",
                                                    .version = "version",
                                                    .serial = "serial",
                                                    .asset_tag = "asset",
                                                    .file_id = "file",
                                                    .custom = {"extra"}}));

    EXPECT_STREQ(record.mfg_id, "maker");
    EXPECT_STREQ(record.product_version, "version");
    EXPECT_STREQ(record.part_number, "version");
    EXPECT_STREQ(record.serial_number, "serial");
    EXPECT_STREQ(record.board_extra, "");
    EXPECT_STREQ(record.mfg_date, "");
    EXPECT_STREQ(record.ppin, "");
    EXPECT_EQ(record.is_cached, 1);
    EXPECT_THAT(decoding_log(), IsEmpty());
}

TEST_F(FruAreasTest, CutsEachFieldOfTheProductToItsBound) {
    const auto record = decoded(FruImage().product({.manufacturer = long_text(63, 'A'),
                                                    .name = long_text(63, 'a'),
                                                    .part = long_text(63, 'b'),
                                                    .version = long_text(63, 'B'),
                                                    .serial = long_text(63, 'C')}));

    EXPECT_EQ(std::string(record.mfg_id), long_text(30, 'A'));
    EXPECT_EQ(std::string(record.product_version), long_text(63, 'B')) << "no field is longer";
    EXPECT_EQ(std::string(record.part_number), long_text(30, 'B'));
    EXPECT_EQ(std::string(record.serial_number), long_text(24, 'C'));
}

TEST_F(FruAreasTest, TrimsEachFieldOfTheProduct) {
    const auto record =
        decoded(FruImage().product({.manufacturer = "  maker  ", .version = "\tversion\t", .serial = "\x02serial "}));

    EXPECT_STREQ(record.mfg_id, "maker");
    EXPECT_STREQ(record.product_version, "version");
    EXPECT_STREQ(record.part_number, "version");
    EXPECT_STREQ(record.serial_number, "serial");
}

TEST_F(FruAreasTest, StepsOverEmptyFieldsOfTheProduct) {
    const auto record = decoded(FruImage().product({.name = "name", .serial = "serial"}));

    EXPECT_STREQ(record.mfg_id, "");
    EXPECT_STREQ(record.product_version, "");
    EXPECT_STREQ(record.part_number, "");
    EXPECT_STREQ(record.serial_number, "serial");
}

TEST_F(FruAreasTest, LeavesFieldsBehindTheEndOfTheProductsListEmpty) {
    const auto record = decoded(product_with({0xC2, 'm', 'k', 0x00, 0x00, 0xC1, 0xC2, 'n', 'o'}));

    EXPECT_STREQ(record.mfg_id, "mk");
    EXPECT_STREQ(record.product_version, "");
    EXPECT_STREQ(record.part_number, "");
    EXPECT_STREQ(record.serial_number, "");
    EXPECT_EQ(record.is_cached, 1);
}

TEST_F(FruAreasTest, HasNoVersionsForAPowerSupplyWithoutABoard) {
    const auto record = decoded(FruImage().product({"maker"}), power_supply);

    EXPECT_EQ(record.is_cached, 1);
    EXPECT_THAT(decoding_log(), IsEmpty());
}

// ---- neither

TEST_F(FruAreasTest, CountsAChassisAsReadWithoutTakingItsFields) {
    const auto record = decoded(FruImage().chassis({.part = "part", .serial = "serial"}));

    EXPECT_EQ(record.is_cached, 1);
    expect_no_texts(record);
}

TEST_F(FruAreasTest, CountsAnImageWithoutAreasAsNotRead) {
    const auto record = decoded(FruImage().internal_use({1, 2, 3}));

    EXPECT_EQ(record.is_cached, 0);
    expect_no_texts(record);
    EXPECT_THAT(decoding_log(), IsEmpty());
}

TEST_F(FruAreasTest, DoesNotLookAtVersionAndChecksumOfTheHeader) {
    const auto record = decoded(FruImage().board({"maker"}).header_byte(0, 0x77).header_checksum(0x55));

    EXPECT_STREQ(record.mfg_id, "maker");
}

// ---- power supplies

/// A board whose eighth and ninth field behind the first custom one are the versions.
FruImage supply(const Field& primary, const Field& secondary) {
    return FruImage().board({.manufacturer = "maker",
                             .serial = "serial",
                             .custom = {"extra", "1.", "2.", "3.", "4.", "5.", "6.", "7.", primary, secondary}});
}

TEST_F(FruAreasTest, TakesTheFirmwareVersionsOfAPowerSupply) {
    const auto record = decoded(supply("1.02", "3.04 rev 5 beta"), power_supply);

    EXPECT_STREQ(record.psu_fw.primary, "1.02");
    EXPECT_STREQ(record.psu_fw.secondary, "3.04 rev 5 ") << "eleven characters";
    EXPECT_STREQ(record.board_extra, "extra");
    EXPECT_EQ(record.is_cached, 1);
    EXPECT_THAT(decoding_log(), SizeIs(2));
    EXPECT_TRUE(
        platform.logged(error, formatted("pid = %d, get_psu_fw_version - type = 3, size = 4, primary 1.02", getpid())));
}

TEST_F(FruAreasTest, WritesBcdPlusVersionsAsCharacterCodes) {
    const auto versions = power_supply_versions({1, 2}, {0x0B, 9, 3});
    const auto record = decoded(supply(versions[0], versions[1]), power_supply);

    EXPECT_STREQ(record.psu_fw.primary, "3132");
    EXPECT_STREQ(record.psu_fw.secondary, "2d39");
}

TEST_F(FruAreasTest, TakesVersionsOfPowerSuppliesOnly) {
    const auto record = decoded(supply("1.02", "3.04"), 0x0B);

    EXPECT_STREQ(record.psu_fw.primary, "");
    EXPECT_STREQ(record.psu_fw.secondary, "");
    EXPECT_THAT(decoding_log(), IsEmpty());
}

TEST_F(FruAreasTest, ReportsAPowerSupplyWhoseFieldsEndBeforeTheVersions) {
    // The list ends at the first custom field: there is no position for the versions.
    const auto record = decoded(FruImage().board({.manufacturer = "maker", .serial = "serial"}), power_supply);

    EXPECT_THAT(decoding_log(),
                ElementsAre(LogLine{error, formatted("pid = %d, get_psu_fw_version - input tlv or p_response_bufend is "
                                                     "null",
                                                     getpid())},
                            LogLine{error, formatted("pid = %d, CreateComponentVPDCache - get FRU 5 fw version failed",
                                                     getpid())}));
    EXPECT_EQ(record.is_cached, 1);
    EXPECT_STREQ(record.serial_number, "serial");
}

TEST_F(FruAreasTest, LeavesVersionsThatAreNotThereEmpty) {
    const auto record = decoded(FruImage().board({.custom = {"extra", "more"}}), power_supply);

    EXPECT_STREQ(record.psu_fw.primary, "");
    EXPECT_STREQ(record.psu_fw.secondary, "");
    EXPECT_THAT(decoding_log(), IsEmpty()) << "the walk had a position, so nothing failed";
}

// ---- multirecords

OemProcessor processor_record() {
    OemProcessor oem;
    oem.index = Field::binary({3});
    for (std::size_t i = 0; i < oem.texts.size(); ++i) oem.texts[i] = Field(formatted(" text %zu ", i));
    oem.raw = Field::binary({0xDE, 0xAD});
    oem.trailing = {0xC1, 0, 0};
    return oem;
}

void expect_processor(const ComponentVpdRecord& record) {
    EXPECT_EQ(record.vpd_format, 2U);
    EXPECT_EQ(record.oem_cpu.index, 3U);
    for (std::size_t i = 0; i < std::size(record.oem_cpu.text); ++i) {
        EXPECT_EQ(std::string(record.oem_cpu.text[i]), formatted("text %zu", i));
    }
    EXPECT_EQ(record.oem_cpu.raw_length, 2U);
    EXPECT_EQ(record.oem_cpu.raw[0], 0xDE);
    EXPECT_EQ(record.oem_cpu.raw[1], 0xAD);
    EXPECT_EQ(record.is_cached, 1);
}

TEST_F(FruAreasTest, TakesTheProcessorRecordBehindABoard) {
    const auto record = decoded(
        FruImage().board({"maker"}).multirecord(OemProcessor::record_type, processor_record().data()), processor);

    expect_processor(record);
    EXPECT_STREQ(record.mfg_id, "maker");
}

TEST_F(FruAreasTest, TakesTheProcessorRecordBehindAProduct) {
    const auto record = decoded(
        FruImage().product({"maker"}).multirecord(OemProcessor::record_type, processor_record().data()), processor);

    expect_processor(record);
    EXPECT_STREQ(record.mfg_id, "maker");
}

TEST_F(FruAreasTest, TakesTheProcessorRecordOfAnImageWithoutAnyOtherArea) {
    const auto record = decoded(FruImage().multirecord(OemProcessor::record_type, processor_record().data()), 7);

    expect_processor(record);
    expect_no_texts(record);
}

TEST_F(FruAreasTest, WalksTheWholeListOfMultirecords) {
    const auto record = decoded(FruImage()
                                    .multirecord(0x01, {1, 2, 3})
                                    .multirecord(0x02, {})
                                    .multirecord(OemProcessor::record_type, processor_record().data()));

    expect_processor(record);
}

TEST_F(FruAreasTest, PassesAHeaderOfZerosInsideTheImage) {
    // Both of its sums are right and it ends no list: a record like any other where the end is known.
    Bytes list(5);
    vpdd::images::append(list, Multirecord{OemProcessor::record_type, processor_record().data()}.bytes(true));

    expect_processor(decoded(FruImage().raw_area(FruArea::multirecord, list)));
}

TEST_F(FruAreasTest, EndsAListWithoutAnEndAtTheEndOfTheImage) {
    const Multirecord open{OemProcessor::record_type, processor_record().data(), 2, false};

    expect_processor(decoded(FruImage().raw_area(FruArea::multirecord, open.bytes(false))));
    EXPECT_THAT(decoding_log(), IsEmpty());
}

TEST_F(FruAreasTest, CountsAnImageWithDamagedMultirecordsAsRead) {
    const auto record =
        decoded(FruImage().multirecord(Multirecord{OemProcessor::record_type, processor_record().data(), 2, {}, 0x00}));

    EXPECT_EQ(record.vpd_format, 0U);
    EXPECT_EQ(record.is_cached, 1);
    EXPECT_TRUE(platform.logged_containing(warning, "Invalid fru multirec record checksum."));
}

TEST_F(FruAreasTest, IgnoresAnotherMakersProcessorRecord) {
    OemProcessor oem = processor_record();
    oem.iana = 0x123456;
    const auto record = decoded(FruImage().multirecord(OemProcessor::record_type, oem.data()));

    EXPECT_EQ(record.vpd_format, 0U);
    EXPECT_EQ(record.is_cached, 1);
    EXPECT_TRUE(platform.logged_containing(warning, "Unexpected IANA 0x123456."));
}

// ---- damaged images

TEST_F(FruAreasTest, FindsAProductAtItsHighestOffset) {
    const auto record =
        decoded(FruImage().product({.manufacturer = "maker", .serial = "s1"}).area_offset(FruArea::product, 63));

    EXPECT_STREQ(record.mfg_id, "maker");
    EXPECT_STREQ(record.serial_number, "s1");
}

TEST_F(FruAreasTest, ReadsAProductThatLiesBehindTheImageAsEmpty) {
    Bytes image{1, 0, 0, 0, 63, 0, 0, 0};
    const auto record = decoded(image);

    EXPECT_EQ(record.is_cached, 1);
    expect_no_texts(record);
}

TEST_F(FruAreasTest, ReadsABoardAndMultirecordsThatLieBehindTheImageAsEmpty) {
    const auto record = decoded(Bytes{1, 0, 0, 31, 0, 31, 0, 0});

    EXPECT_EQ(record.is_cached, 1);
    EXPECT_STREQ(record.mfg_id, "");
    EXPECT_STREQ(record.mfg_date, "1996-01-01");
    EXPECT_EQ(record.vpd_format, 0U);
}

TEST_F(FruAreasTest, ReadsAFieldWithoutItsDataAtTheLastByteAsEmpty) {
    for (const std::size_t size : {24U, 512U, 600U}) {
        const auto fails = [&] {
            Bytes image(size);
            image[4] = static_cast<uint8_t>(std::min<std::size_t>(size / 8 - 1, 63));
            const std::size_t first_field = image[4] * 8U + 3;
            image[first_field] = static_cast<uint8_t>(std::min<std::size_t>(size - 1 - first_field - 1, 63));
            image.back() = 0xFF;  // 63 characters follow, and none is there
            const auto record = decoded(image);
            EXPECT_EQ(record.is_cached, 1);
            EXPECT_STREQ(record.serial_number, "");
            return HasFailure() ? 1 : 0;
        };
        EXPECT_TRUE(succeeds_in_own_process(fails)) << size;
    }
}

TEST_F(FruAreasTest, TakesAFieldThatEndsWithTheImageAndEndsTheWalk) {
    Bytes image{1, 0, 0, 1, 0, 0, 0, 0, 1, 0, 25, 0, 0, 0, 0xC1 + 1, 'o', 'k'};
    const auto record = decoded(image);

    EXPECT_STREQ(record.mfg_id, "ok");
    EXPECT_STREQ(record.serial_number, "");
}

TEST_F(FruAreasTest, ReadsAnImageShorterThanItsHeader) {
    for (const std::size_t size : {1U, 3U, 7U}) {
        const auto fails = [&] {
            const auto record = decoded(Bytes(size, 0x01));
            EXPECT_EQ(record.is_cached, size > 2 ? 1 : 0) << "byte 2 is the chassis";
            return HasFailure() ? 1 : 0;
        };
        EXPECT_TRUE(succeeds_in_own_process(fails)) << size;
    }
}

}  // namespace
