// SPDX-License-Identifier: Apache-2.0
// The library over the servers that are shipped with it, from the description to the records.
#include <map>

#include "open_server.h"
#include "orva_vpdd.h"

using namespace vpdd::test;

namespace {

std::map<std::string, std::string> published() {
    std::map<std::string, std::string> variables;
    const auto visit = [](void* context, const VpddHostVariable* variable) {
        (*static_cast<std::map<std::string, std::string>*>(context))[variable->name] = variable->text;
        return 0;
    };
    vpdd_host_each_variable(visit, &variables);
    return variables;
}

ComponentVpdRecord record_of(uint8_t fru_id) {
    ComponentVpdRecord record{};
    uint32_t length = 0;
    EXPECT_EQ(GetComponentVPDByFruID(&length, sizeof record, &fru_id, &record), 0) << int{fru_id};
    return record;
}

/// Every record, in the order of the list.
std::vector<ComponentVpdRecord> all_records() {
    constexpr std::size_t most = 256;
    std::vector<ComponentVpdRecord> records(most);
    uint32_t length = 0;
    EXPECT_EQ(GetComponentVPD_KIVA(&length, most * sizeof(ComponentVpdRecord), nullptr, records.data()), 0);
    records.resize(length / sizeof(ComponentVpdRecord));
    return records;
}

std::vector<std::string> names_of_unread() {
    std::vector<std::string> names;
    for (const ComponentVpdRecord& record : all_records())
        if (record.is_cached == 0) names.emplace_back(record.name);
    return names;
}

void open_and_create(const char* description) {
    char error[256] = "";
    const std::string path = std::string(vpdd_host_server_folder()) + "/" + description;
    ASSERT_EQ(vpdd_host_open_file(path.c_str(), nullptr, error, sizeof error), 0) << error;
    ASSERT_EQ(CreateComponentVPDCache(), 0);
}

void destroy_and_close() {
    DestroyComponentVPDCache();
    vpdd_host_close();
}

class Ddr4Server : public testing::Test {
protected:
    static void SetUpTestSuite() { open_and_create("ddr4-2s.json"); }
    static void TearDownTestSuite() { destroy_and_close(); }
};

class Ddr5Server : public testing::Test {
protected:
    static void SetUpTestSuite() { open_and_create("ddr5-2s.json"); }
    static void TearDownTestSuite() { destroy_and_close(); }
};

class Ddr3Server : public testing::Test {
protected:
    static void SetUpTestSuite() { open_and_create("ddr3-small.json"); }
    static void TearDownTestSuite() { destroy_and_close(); }
};

TEST_F(Ddr4Server, IsCountedWithoutItsCartridges) {
    auto variables = published();

    EXPECT_EQ(variables["vpdd_comp_sdr_cnt"], "54");
    EXPECT_EQ(variables["tarn_var_num_of_cpu_in_sys"], "2");
    EXPECT_EQ(variables["tarn_var_num_of_mem_in_sys"], "32");
    EXPECT_EQ(variables["tarn_var_num_of_ps_in_sys"], "2");
    EXPECT_EQ(variables["tarn_var_num_of_drive_bp_in_sys"], "3");
    EXPECT_EQ(variables["Tarn_Var_Drive_Backplane_2_FRU_Num"], "52");
    EXPECT_EQ(variables["tarn_var_base_of_cpu_in_fru"], "1");
    EXPECT_EQ(variables["fru_product_asset_tl_type"], "3");
    EXPECT_EQ(variables["fru_product_lang_code"], "25");
}

TEST_F(Ddr4Server, HasEightEmptySlotsAndNothingElseUnread) {
    EXPECT_EQ(names_of_unread(), (std::vector<std::string>{"DIMM 2", "DIMM 6", "DIMM 10", "DIMM 14", "DIMM 18",
                                                           "DIMM 22", "DIMM 26", "DIMM 30"}));
}

TEST_F(Ddr4Server, HasAProcessorWithItsOemRecord) {
    const ComponentVpdRecord processor = record_of(2);

    EXPECT_STREQ(processor.name, "CPU 2");
    EXPECT_EQ(processor.entity_id, 3);
    EXPECT_EQ(processor.entity_instance, 2);
    EXPECT_STREQ(processor.mfg_id, "Example Silicon");
    EXPECT_STREQ(processor.serial_number, "ECK0JKYCS");
    EXPECT_STREQ(processor.product_version, "ES-6338 2.0GHz 32C");
    EXPECT_EQ(processor.vpd_format, 2U);
    EXPECT_EQ(processor.oem_cpu.index, 2U);
    EXPECT_STREQ(processor.oem_cpu.text[3], "64");
    EXPECT_STREQ(processor.oem_cpu.text[10], "0xD000375");
    EXPECT_EQ(processor.oem_cpu.raw_length, 16U);
    EXPECT_EQ(processor.oem_cpu.raw[15], 0x02);
}

TEST_F(Ddr4Server, HasAPowerSupplyWithItsFirmwareVersions) {
    const ComponentVpdRecord supply = record_of(40);

    EXPECT_STREQ(supply.mfg_id, "Example Power");
    EXPECT_STREQ(supply.part_number, "EXP-4502");
    EXPECT_STREQ(supply.serial_number, "PS7XWZ4ZF");
    EXPECT_STREQ(supply.mfg_date, "2021-11-08");
    EXPECT_STREQ(supply.board_extra, "AC 200-240 V");
    EXPECT_STREQ(supply.psu_fw.primary, "01.05");
    EXPECT_STREQ(supply.psu_fw.secondary, "02.11");
}

TEST_F(Ddr4Server, HasAModuleThatTheHostRunsSlower) {
    const ComponentVpdRecord module = record_of(7);

    EXPECT_STREQ(module.name, "DIMM 5");
    EXPECT_STREQ(module.spd_info.device_type, "DDR4");
    EXPECT_STREQ(module.spd_info.module_type, "RDIMM");
    EXPECT_STREQ(module.spd_info.mfg_id, "Samsung");
    EXPECT_EQ(std::string(module.spd_info.part_number, 16), "M393A4K40DB3-CWE");
    EXPECT_EQ(module.spd_info.ram_size, 32768U);
    EXPECT_EQ(module.spd_info.ecc_bits, 8U);
    EXPECT_EQ(module.spd_info.sdram_frequency, 1600);
    EXPECT_EQ(module.spd_info.config_speed, 2933U);
    EXPECT_EQ(module.spd_info.smbios_speed, 3200U);
}

TEST_F(Ddr4Server, PublishesTotalsWhenItIsUpdated) {
    ASSERT_EQ(UpdateComponentVPDCache(), 0);
    auto variables = published();

    EXPECT_EQ(variables["tarn_var_total_memory_size"], std::to_string(16 * 32768 + 8 * 65536));
    EXPECT_EQ(variables["tarn_var_total_cpu_count"], "2");
    EXPECT_EQ(variables["tarn_var_total_logical_cpu_count"], "128");
    EXPECT_EQ(variables["tarn_var_first_cpu_model"], "ES-6338 2.0GHz 32C");
    EXPECT_EQ(variables["tarn_var_total_enabled_power_supply"], "2");
    EXPECT_STREQ(record_of(2).ppin, "D9DE57981");
}

TEST_F(Ddr4Server, IsAMachineWithATenDigitIdentity) {
    constexpr std::size_t record_size = 1106, type_model = 9, serial_number = 43, uuid = 77, product_name = 487;
    std::vector<uint8_t> record(record_size);
    uint32_t length = 0;
    ASSERT_EQ(GetMachineVPD(&length, record_size, nullptr, record.data()), 0);
    const auto text = [&](std::size_t offset) { return reinterpret_cast<const char*>(&record[offset]); };

    EXPECT_STREQ(text(0), "0x0310");
    EXPECT_STREQ(text(type_model), "ER420A0210");
    EXPECT_STREQ(text(serial_number), "J1FK6RW95");
    EXPECT_STREQ(text(uuid), "5E0A1C2B7D4111EC9A0302005E420000");
    EXPECT_STREQ(text(product_name), "Rack Server ER420");
    EXPECT_EQ(published()["tarn_var_int_platform_id"], std::to_string(0x00500062));
}

TEST_F(Ddr5Server, IsCounted) {
    auto variables = published();

    EXPECT_EQ(variables["vpdd_comp_sdr_cnt"], "59");
    EXPECT_EQ(variables["tarn_var_num_of_mem_in_sys"], "32");
    EXPECT_EQ(variables["tarn_var_num_of_drive_bp_in_sys"], "4");
}

TEST_F(Ddr5Server, HasAnEmptySlotAndADamagedBackplane) {
    EXPECT_EQ(names_of_unread(), (std::vector<std::string>{"DIMM 14", "Backplane 3"}));
}

TEST_F(Ddr5Server, HasAModuleWithItsDecodedImage) {
    const ComponentVpdRecord module = record_of(6);

    EXPECT_STREQ(module.name, "DIMM 4");
    EXPECT_STREQ(module.spd_info.device_type, "DDR5");
    EXPECT_STREQ(module.spd_info.mfg_id, "SK Hynix");
    EXPECT_EQ(module.spd_info.ram_size, 65536U);
    EXPECT_EQ(module.spd_info.sdram_frequency, 5600);
    EXPECT_EQ(module.spd_info.config_speed, 4800U);
    EXPECT_EQ(std::string(module.spd_info.serial_number).substr(10), "7EBB8E3B");
    EXPECT_STREQ(module.mfg_date, "2023-12-11");
}

TEST_F(Ddr5Server, HasAModuleWhoseSerialNumberTheHostGetsWrong) {
    const ComponentVpdRecord module = record_of(25);

    EXPECT_STREQ(module.name, "DIMM 23");
    EXPECT_EQ(module.spd_info.config_speed, 0U);
    EXPECT_EQ(module.spd_info.smbios_speed, 4800U);
}

TEST_F(Ddr5Server, CannotUpdateItsDamagedBackplane) { EXPECT_EQ(UpdateComponentVPDCache(), -10); }

TEST_F(Ddr3Server, HasFourModules) {
    const ComponentVpdRecord module = record_of(2);

    EXPECT_EQ(published()["tarn_var_num_of_mem_in_sys"], "4");
    EXPECT_STREQ(module.spd_info.device_type, "DDR3");
    EXPECT_STREQ(module.spd_info.module_type, "UDIMM");
    EXPECT_STREQ(module.spd_info.mfg_id, "Kingston");
    EXPECT_EQ(module.spd_info.ram_size, 8192U);
    EXPECT_EQ(module.spd_info.config_speed, 1600U);
    EXPECT_TRUE(names_of_unread().empty());
}

TEST_F(Ddr3Server, IsAMachineWithASevenDigitIdentity) {
    std::vector<uint8_t> record(1106);
    uint32_t length = 0;
    ASSERT_EQ(GetMachineVPD(&length, 1106, nullptr, record.data()), 0);

    EXPECT_STREQ(reinterpret_cast<const char*>(&record[9]), "ET110A1");
    EXPECT_STREQ(reinterpret_cast<const char*>(&record[43]), "E339825");
}

}  // namespace
