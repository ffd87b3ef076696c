// SPDX-License-Identifier: Apache-2.0
#include "platform/smbios_store.h"

#include "open_server.h"
#include "orva_vpdd.h"

using namespace vpdd::test;

namespace {

std::string dimm(int id, const std::string& name, const std::string& serial, const std::string& more = "",
                 const std::string& outside = "", const std::string& size = "16", const std::string& ranks = "1") {
    return R"({"fru_id": )" + std::to_string(id) + R"(, "name": ")" + name +
           R"(", "entity": "memory device", "instance": 1, "content": {"dimm": {"generation": "DDR4", "module": "RDIMM",
            "device_width": 4, "speed": 2666, "maker": "Samsung", "part_number": "PART",
            "size_gib": )" +
           size + R"(, "ranks": )" + ranks + R"(, "serial_number": ")" + serial + R"(", "year": 2022, "week": 9)" +
           more + "}}" + outside + "}";
}

/// The library's look-ups in the host's table.
class SmbiosStore : public testing::Test {
protected:
    void TearDown() override {
        vpdd_free_smbios_table(&table);
        vpdd_host_close();
    }
    void open(const std::string& frus) {
        const std::string text = server_text(frus);
        char error[256] = "";
        ASSERT_EQ(vpdd_host_open_text(text.c_str(), text.size(), nullptr, nullptr, error, sizeof error), 0) << error;
        ASSERT_EQ(vpdd_load_smbios_table(&table), 0);
    }

    SmbiosTable* table = nullptr;
};

TEST_F(SmbiosStore, HasAMemoryDeviceForAModule) {
    open(dimm(3, "DIMM 5", "00AB0001"));
    uint32_t size = 0, speed = 0, configured = 0;

    EXPECT_EQ(vpdd_get_size_speed_from_smbios_by_device_locator(table, "DIMM 5", &size, &speed), 0);
    EXPECT_EQ(size, 16384U);
    EXPECT_EQ(speed, 2666U);
    EXPECT_EQ(vpdd_get_config_speed_from_smbios_by_serial_number(table, "CE000022 0900AB0001", &configured), 0);
    EXPECT_EQ(configured, 2666U);
}

TEST_F(SmbiosStore, WritesASerialNumberInUpperCase) {
    open(dimm(3, "DIMM 5", "00ab00cd"));
    char serial[32] = "";

    EXPECT_EQ(vpdd_get_serial_num_from_smbios_by_serial_number(table, "00AB00CD", serial, sizeof serial), 0);

    EXPECT_STREQ(serial, "00AB00CD");
}

TEST_F(SmbiosStore, PutsTheSizeOfALargeModuleIntoTheExtendedField) {
    open(dimm(3, "DIMM 5", "00AB0001", "", "", "32", "2"));
    uint32_t size = 0, speed = 0;

    vpdd_get_size_speed_from_smbios_by_device_locator(table, "5", &size, &speed);

    EXPECT_EQ(size, 0x7FFFU);
}

TEST_F(SmbiosStore, TakesTheSlotOverTheNumberInTheName) {
    open(dimm(3, "DIMM A2", "00AB0001", "", R"(, "slot": 12)"));
    uint32_t size = 0, speed = 0;

    EXPECT_EQ(vpdd_get_size_speed_from_smbios_by_device_locator(table, "DIMM 12", &size, &speed), 0);
    EXPECT_NE(vpdd_get_size_speed_from_smbios_by_device_locator(table, "DIMM 2", &size, &speed), 0);
}

TEST_F(SmbiosStore, SaysOtherwiseOfAModuleWhereTheDescriptionDoes) {
    open(dimm(3, "DIMM 1", "00AB0001",
              R"(, "smbios": {"serial_number": "WRONG", "speed": 2400, "configured_speed": 2133})"));
    uint32_t size = 0, speed = 0, configured = 0;

    EXPECT_EQ(vpdd_get_size_speed_from_smbios_by_device_locator(table, "1", &size, &speed), 0);
    EXPECT_EQ(speed, 2400U);
    EXPECT_EQ(vpdd_get_config_speed_from_smbios_by_serial_number(table, "WRONG", &configured), 0);
    EXPECT_EQ(configured, 2133U);
    EXPECT_NE(vpdd_get_config_speed_from_smbios_by_serial_number(table, "00AB0001", &configured), 0);
}

TEST_F(SmbiosStore, LeavesOutAModuleThatTheHostDidNotFind) {
    open(dimm(3, "DIMM 1", "00AB0001", R"(, "smbios": {"absent": true})") + "," + dimm(4, "DIMM 2", "00AB0002"));
    const SmbiosTypeGroup* devices = vpdd_get_the_smbios_info(table, 17);

    ASSERT_NE(devices, nullptr);
    EXPECT_EQ(devices->count, 1);
}

TEST_F(SmbiosStore, KeepsEachTableUntilItIsReleased) {
    open(dimm(3, "DIMM 1", "00AB0001"));
    SmbiosTable* second = nullptr;
    ASSERT_EQ(vpdd_load_smbios_table(&second), 0);

    vpdd_free_smbios_table(&second);
    vpdd_host_close();

    EXPECT_EQ(second, nullptr);
    EXPECT_EQ(vpdd_get_the_smbios_info(table, 17)->count, 1);
}

TEST_F(SmbiosStore, ReleasesATableOnce) {
    open(dimm(3, "DIMM 1", "00AB0001"));

    EXPECT_EQ(smbt_release(table), 0);
    EXPECT_NE(smbt_release(table), 0);

    table = nullptr;
}

TEST_F(SmbiosStore, HasNoTableWithoutAServer) { EXPECT_EQ(vpdd_load_smbios_table(&table), -1); }

TEST_F(SmbiosStore, HasNoTableInAFileThatIsNone) {
    const TemporaryFolder folder;
    folder.write("table.bin", "");
    const OpenServer server(server_text("", R"(, "smbios": {"raw": "table.bin"})"), {}, folder.c_str());

    EXPECT_EQ(vpdd_load_smbios_table(&table), -1);
}

TEST_F(SmbiosStore, ServesATableFromAFile) {
    const TemporaryFolder folder;
    const std::string end_of_table("\x7F\x04\x01\x00\x00\x00", 6), system("\x01\x04\x02\x00\x00\x00", 6);
    folder.write("table.bin", system + end_of_table);
    const OpenServer server(server_text("", R"(, "smbios": {"raw": "table.bin"})"), {}, folder.c_str());

    ASSERT_EQ(vpdd_load_smbios_table(&table), 0);

    EXPECT_NE(vpdd_get_the_smbios_info(table, 1), nullptr);
    EXPECT_EQ(vpdd_get_the_smbios_info(table, 17), nullptr);
}

}  // namespace
