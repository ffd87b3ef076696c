// SPDX-License-Identifier: Apache-2.0
#include "platform/system_vpd.h"

#include <cstring>

#include "orva_vpdd.h"
#include "platform_calls.h"

using namespace vpdd::test;

namespace {

/// A field as the library normalises it.
std::string field_text(uint32_t id) {
    char text[130] = {};
    return sysvpd_read_field(id, 128, reinterpret_cast<uint8_t*>(text)) != 0 ? text : "(unreadable)";
}

Bytes field_bytes(uint32_t id, uint32_t count) {
    Bytes bytes(count);
    return c_vpd_read_field(0, id, count, bytes.data()) != 0 ? bytes : Bytes{};
}

TEST(SystemVpd, KeepsTextsInTheFieldsOfTheirMeaning) {
    const OpenServer server(server_text("", "", R"(
        "asset_id": "RACK 7", "manufacturer_id": "EXSY", "sub_manufacturer": "EB", "product_name": "Rack Server",
        "manufacturer": "Example Systems", "card_manufactured": "0922", "code_levels": ["ONE", "TWO"])"));

    EXPECT_EQ(field_text(10), "RACK 7");
    EXPECT_EQ(field_text(14), "EXSY");
    EXPECT_EQ(field_text(46), "EB");
    EXPECT_EQ(field_text(48), "Rack Server");
    EXPECT_EQ(field_text(53), "Example Systems");
    EXPECT_EQ(field_text(18), "0922");
    EXPECT_EQ(field_text(81), "ONE");
    EXPECT_EQ(field_text(82), "TWO");
    EXPECT_EQ(field_text(83), "");
}

TEST(SystemVpd, PadsTextsAsTheirFieldsAreRead) {
    const OpenServer server(server_text("", "", R"("sub_manufacturer": "EB", "card_fru_number": "12345")"));

    EXPECT_EQ(field_bytes(46, 4), (Bytes{' ', ' ', 'E', 'B'}));
    EXPECT_EQ(field_bytes(12, 12), (Bytes{'1', '2', '3', '4', '5', ' ', ' ', ' ', ' ', ' ', ' ', ' '}));
}

TEST(SystemVpd, KeepsASevenDigitIdentityInItsFields) {
    const OpenServer server(server_text("", "", R"("type_model": "2581AC1", "serial_number": "E312345")"));

    EXPECT_EQ(field_bytes(4, 1), (Bytes{0x00}));
    EXPECT_EQ(field_text(8), "2581AC1");
    EXPECT_EQ(field_text(9), "E312345");
    EXPECT_EQ(field_text(56), "");
}

TEST(SystemVpd, KeepsALongerIdentityInTheTenDigitFields) {
    const OpenServer server(server_text(
        "", "", R"("type_model": "ER420A0210", "serial_number": "J100001", "serial_number_format": "11S and 8S")"));

    EXPECT_EQ(field_bytes(4, 1), (Bytes{0x42}));
    EXPECT_EQ(field_text(56), "ER420A0210");
    EXPECT_EQ(field_text(57), "J100001");
    EXPECT_EQ(field_text(8), "");
}

TEST(SystemVpd, KeepsNumbersMostSignificantByteFirst) {
    const OpenServer server(server_text("", "", R"(
        "vpd_version": "0x0310", "vpd_id": "0x0050", "pos_id": "0x0072", "iana": 32473,
        "uuid": "5E0A1C2B-7D41-11EC-9A03-02005E420000")"));

    EXPECT_EQ(field_bytes(1, 2), (Bytes{0x03, 0x10}));
    EXPECT_EQ(field_bytes(5, 2), (Bytes{0x00, 0x50}));
    EXPECT_EQ(field_bytes(7, 2), (Bytes{0x00, 0x72}));
    EXPECT_EQ(field_bytes(40, 4), (Bytes{0x00, 0x00, 0x7E, 0xD9}));
    EXPECT_EQ(field_bytes(27, 16),
              (Bytes{0x5E, 0x0A, 0x1C, 0x2B, 0x7D, 0x41, 0x11, 0xEC, 0x9A, 0x03, 0x02, 0x00, 0x5E, 0x42, 0x00, 0x00}));
}

TEST(SystemVpd, KeepsMacAddresses) {
    const OpenServer server(server_text("", "", R"("host_macs": ["02:00:5E:00:00:01", "02:00:5E:00:00:02"],
                                                   "port_macs": ["02:00:5E:0F:00:01", "02:00:5E:0F:00:02"])"));

    EXPECT_EQ(field_bytes(20, 8), (Bytes{0x02, 0x00, 0x5E, 0x00, 0x00, 0x02, 0, 0}));
    EXPECT_EQ(field_bytes(108, 16), (Bytes{0x02, 0x00, 0x5E, 0x0F, 0x00, 0x01, 0, 0,  //
                                           0x02, 0x00, 0x5E, 0x0F, 0x00, 0x02, 0, 0}));
}

TEST(SystemVpd, IsOfAStandardMachineWithoutAnOemIdentity) {
    const OpenServer server(server_text(""));

    EXPECT_EQ(read_POSID_ext(), 1);
}

TEST(SystemVpd, IsOfAnOemMachineWithAnOemIdentity) {
    const OpenServer server(server_text("", "", R"("oem": {"type_model": "X900", "serial_number": "OEM1"})"));

    EXPECT_EQ(read_POSID_ext(), 2);
    EXPECT_EQ(field_text(60), "X900");
    EXPECT_EQ(field_text(61), "OEM1");
}

TEST(SystemVpd, TakesBytesOfAFieldByItsNumber) {
    const OpenServer server(server_text("", "", R"("asset_id": "named", "fields": {"10": "4142", "6": "0001"})"));

    EXPECT_EQ(field_text(10).substr(0, 2), "AB");
    EXPECT_EQ(read_POSID_ext(), 3);
}

TEST(SystemVpd, HasFieldsThatCannotBeRead) {
    const OpenServer server(server_text("", "", R"("asset_id": "X", "unreadable": [10])"));

    EXPECT_EQ(field_text(10), "(unreadable)");
    EXPECT_EQ(field_text(11), "");
}

TEST(SystemVpd, KnowsTheSizesOfItsFieldsAndNoOthers) {
    const OpenServer server(server_text(""));

    EXPECT_EQ(c_vpd_read_field_size(0, 48), 128U);
    EXPECT_EQ(c_vpd_read_field_size(0, 108), 64U);
    EXPECT_EQ(c_vpd_read_field_size(0, 0), 0U);
    EXPECT_EQ(c_vpd_read_field_size(0, 999), 0U);
    EXPECT_EQ(c_vpd_read_field_size(1, 48), 0U);
    EXPECT_TRUE(field_bytes(999, 1).empty());
    EXPECT_TRUE(field_bytes(0, 1).empty());
}

TEST(SystemVpd, KeepsWhatIsWrittenUntilItIsClosed) {
    Bytes bytes{0x11, 0x22};
    {
        const OpenServer server(server_text(""));
        EXPECT_NE(sysvpd_write(0x0A, 2, bytes.data()), 0);
        EXPECT_EQ(field_bytes(6, 2), (Bytes{0x11, 0x22}));
        bytes.assign(2, 0);
        EXPECT_EQ(sysvpd_read(0x0A, 2, bytes.data()), bytes.data());
        EXPECT_EQ(bytes, (Bytes{0x11, 0x22}));
    }
    const OpenServer again(server_text(""));
    EXPECT_EQ(field_bytes(6, 2), (Bytes{0, 0}));
}

TEST(SystemVpd, EndsAtFourKilobytes) {
    const OpenServer server(server_text(""));
    Bytes bytes(16);

    EXPECT_NE(c_vpd_read(0, 4080, 16, bytes.data()), nullptr);
    EXPECT_EQ(c_vpd_read(0, 4081, 16, bytes.data()), nullptr);
    EXPECT_EQ(c_vpd_read(0, 0xFFFFFFFF, 16, bytes.data()), nullptr);
    EXPECT_EQ(c_vpd_write(0, 4081, 16, bytes.data(), 1), 0);
    EXPECT_EQ(c_vpd_read(1, 0, 16, bytes.data()), nullptr);
}

TEST(SystemVpd, IsReadThroughTheOemCommand) {
    const OpenServer server(server_text("", "", R"("vpd_version": "0x0310", "vpd_id": "0x0050")"));

    EXPECT_EQ(ask(0x3A, 0x0B, {0x00, 0x00, 0x10, 2}), (Bytes{0x00, 0x03, 0x10}));
    EXPECT_EQ(ask(0x3A, 0x0B, {0x08, 0x00, 0x10, 2}), (Bytes{0x00, 0x00, 0x50}));
    EXPECT_EQ(ask(0x3A, 0x0B, {0x00, 0x10, 0x10, 1}), (Bytes{0xC9}));
    EXPECT_EQ(ask(0x3A, 0x0B, {0x00, 0x00, 0x11, 2}), (Bytes{0xCC}));
    EXPECT_EQ(ask(0x3A, 0x0B, {0x00, 0x00, 0x10, 255}).size(), 256U);
}

TEST(SystemVpd, IsReadByTheLibraryInChunks) {
    const OpenServer server(server_text("", "", R"("vpd_version": "0x0310", "product_name": "Rack Server ER420")"));
    Bytes whole(244), bytes(244);
    c_vpd_read(0, 0, 244, whole.data());

    EXPECT_EQ(readvpd_from_ipmi(244, bytes.data()), 0);

    EXPECT_EQ(bytes, whole);
}

}  // namespace
