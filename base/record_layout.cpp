// SPDX-License-Identifier: Apache-2.0
// The layout of every public record, which other programs copy whole: size and offset of each field.
#include <cstddef>

#include "orva_vpdd.h"

static_assert(sizeof(SpdInfo) == 400);
static_assert(offsetof(SpdInfo, description) == 0);
static_assert(offsetof(SpdInfo, part_number) == 17);
static_assert(offsetof(SpdInfo, serial_number) == 48);
static_assert(offsetof(SpdInfo, udi_part_number) == 73);
static_assert(offsetof(SpdInfo, mfg_id) == 85);
static_assert(offsetof(SpdInfo, device_type) == 118);
static_assert(offsetof(SpdInfo, module_type) == 139);
static_assert(offsetof(SpdInfo, sdram_freq_string) == 156);
static_assert(offsetof(SpdInfo, reserved_189) == 189);
static_assert(offsetof(SpdInfo, vendor_product_id) == 190);
static_assert(offsetof(SpdInfo, module_vendor_id) == 192);
static_assert(offsetof(SpdInfo, subsys_vendor_id) == 194);
static_assert(offsetof(SpdInfo, subsys_device_id) == 196);
static_assert(offsetof(SpdInfo, sdram_row_bits) == 198);
static_assert(offsetof(SpdInfo, sdram_col_bits) == 199);
static_assert(offsetof(SpdInfo, module_voltage) == 200);
static_assert(offsetof(SpdInfo, module_ranks) == 201);
static_assert(offsetof(SpdInfo, device_width) == 202);
static_assert(offsetof(SpdInfo, reserved_203) == 203);
static_assert(offsetof(SpdInfo, module_bus_width) == 204);
static_assert(offsetof(SpdInfo, fine_timebase) == 208);
static_assert(offsetof(SpdInfo, medium_timebase) == 212);
static_assert(offsetof(SpdInfo, sdram_frequency) == 216);
static_assert(offsetof(SpdInfo, sdram_clock) == 220);
static_assert(offsetof(SpdInfo, cas_latencies_supports) == 224);
static_assert(offsetof(SpdInfo, cas_latency) == 356);
static_assert(offsetof(SpdInfo, crc) == 360);
static_assert(offsetof(SpdInfo, mfg_week) == 364);
static_assert(offsetof(SpdInfo, mfg_year) == 368);
static_assert(offsetof(SpdInfo, ram_size) == 372);
static_assert(offsetof(SpdInfo, speed_in_MBpsec) == 376);
static_assert(offsetof(SpdInfo, ecc_bits) == 380);
static_assert(offsetof(SpdInfo, config_speed) == 384);
static_assert(offsetof(SpdInfo, AEP_Flag) == 388);
static_assert(offsetof(SpdInfo, smbios_size) == 392);
static_assert(offsetof(SpdInfo, smbios_speed) == 396);
// No padding: a checksum over the record covers fields only.
static_assert(sizeof(SpdInfo::description) + sizeof(SpdInfo::part_number) + sizeof(SpdInfo::serial_number) +
                  sizeof(SpdInfo::udi_part_number) + sizeof(SpdInfo::mfg_id) + sizeof(SpdInfo::device_type) +
                  sizeof(SpdInfo::module_type) + sizeof(SpdInfo::sdram_freq_string) + sizeof(SpdInfo::reserved_189) +
                  sizeof(SpdInfo::vendor_product_id) + sizeof(SpdInfo::module_vendor_id) +
                  sizeof(SpdInfo::subsys_vendor_id) + sizeof(SpdInfo::subsys_device_id) +
                  sizeof(SpdInfo::sdram_row_bits) + sizeof(SpdInfo::sdram_col_bits) + sizeof(SpdInfo::module_voltage) +
                  sizeof(SpdInfo::module_ranks) + sizeof(SpdInfo::device_width) + sizeof(SpdInfo::reserved_203) +
                  sizeof(SpdInfo::module_bus_width) + sizeof(SpdInfo::fine_timebase) +
                  sizeof(SpdInfo::medium_timebase) + sizeof(SpdInfo::sdram_frequency) + sizeof(SpdInfo::sdram_clock) +
                  sizeof(SpdInfo::cas_latencies_supports) + sizeof(SpdInfo::cas_latency) + sizeof(SpdInfo::crc) +
                  sizeof(SpdInfo::mfg_week) + sizeof(SpdInfo::mfg_year) + sizeof(SpdInfo::ram_size) +
                  sizeof(SpdInfo::speed_in_MBpsec) + sizeof(SpdInfo::ecc_bits) + sizeof(SpdInfo::config_speed) +
                  sizeof(SpdInfo::AEP_Flag) + sizeof(SpdInfo::smbios_size) + sizeof(SpdInfo::smbios_speed) ==
              400);

static_assert(sizeof(OemCpuRecord) == 776);
static_assert(offsetof(OemCpuRecord, index) == 0);
static_assert(offsetof(OemCpuRecord, text) == 4);
static_assert(offsetof(OemCpuRecord, raw_length) == 708);
static_assert(offsetof(OemCpuRecord, raw) == 712);

static_assert(sizeof(PsuFwVersion) == 24);
static_assert(offsetof(PsuFwVersion, primary) == 0);
static_assert(offsetof(PsuFwVersion, secondary) == 12);

static_assert(sizeof(ComponentVpdRecord) == 1512);
static_assert(offsetof(ComponentVpdRecord, reserved_0) == 0);
static_assert(offsetof(ComponentVpdRecord, fru_id) == 1);
static_assert(offsetof(ComponentVpdRecord, next_fru_id) == 2);
static_assert(offsetof(ComponentVpdRecord, board_extra) == 3);
static_assert(offsetof(ComponentVpdRecord, name) == 16);
static_assert(offsetof(ComponentVpdRecord, reserved_102) == 102);
static_assert(offsetof(ComponentVpdRecord, ppin) == 103);
static_assert(offsetof(ComponentVpdRecord, serial_number) == 113);
static_assert(offsetof(ComponentVpdRecord, mfg_id) == 138);
static_assert(offsetof(ComponentVpdRecord, mfg_date) == 169);
static_assert(offsetof(ComponentVpdRecord, part_number) == 180);
static_assert(offsetof(ComponentVpdRecord, product_version) == 211);
static_assert(offsetof(ComponentVpdRecord, entity_id) == 276);
static_assert(offsetof(ComponentVpdRecord, entity_instance) == 277);
static_assert(offsetof(ComponentVpdRecord, reserved_278) == 278);
static_assert(offsetof(ComponentVpdRecord, spd_info) == 280);
static_assert(offsetof(ComponentVpdRecord, crc) == 680);
static_assert(offsetof(ComponentVpdRecord, is_cached) == 684);
static_assert(offsetof(ComponentVpdRecord, reserved_685) == 685);
static_assert(offsetof(ComponentVpdRecord, status) == 688);
static_assert(offsetof(ComponentVpdRecord, reserved_692) == 692);
static_assert(offsetof(ComponentVpdRecord, timestamp) == 696);
static_assert(offsetof(ComponentVpdRecord, vpd_format) == 704);
static_assert(offsetof(ComponentVpdRecord, oem_cpu) == 708);
static_assert(offsetof(ComponentVpdRecord, oem_cpu.text[3]) == 904);
static_assert(offsetof(ComponentVpdRecord, psu_fw) == 1484);
static_assert(offsetof(ComponentVpdRecord, ppin_dump) == 1508);

static_assert(sizeof(FruLocatorCopy) == 28);
static_assert(offsetof(FruLocatorCopy, access_address) == 0);
static_assert(offsetof(FruLocatorCopy, fru_device_id) == 1);
static_assert(offsetof(FruLocatorCopy, access_lun_bus) == 2);
static_assert(offsetof(FruLocatorCopy, channel) == 3);
static_assert(offsetof(FruLocatorCopy, reserved) == 4);
static_assert(offsetof(FruLocatorCopy, device_type) == 5);
static_assert(offsetof(FruLocatorCopy, device_type_modifier) == 6);
static_assert(offsetof(FruLocatorCopy, entity_id) == 7);
static_assert(offsetof(FruLocatorCopy, entity_instance) == 8);
static_assert(offsetof(FruLocatorCopy, oem) == 9);
static_assert(offsetof(FruLocatorCopy, id_string_type_length) == 10);
static_assert(offsetof(FruLocatorCopy, id_string) == 11);

static_assert(offsetof(ComponentVpdNode, prev) == 0);
static_assert(offsetof(ComponentVpdNode, next) == sizeof(void*));
static_assert(offsetof(ComponentVpdNode, locator) == 2 * sizeof(void*));
static_assert(offsetof(ComponentVpdNode, record) % 8 == 0);
static_assert(offsetof(ComponentVpdList, head) == 0);
static_assert(offsetof(ComponentVpdList, tail) == sizeof(void*));

static_assert(sizeof(ComponentRequest) == 8);
static_assert(offsetof(ComponentRequest, fru_id) == 0);
static_assert(offsetof(ComponentRequest, probe) == 4);

static_assert(offsetof(IpmiRequest, request) == 0);
static_assert(offsetof(IpmiRequest, response) == sizeof(void*));
static_assert(offsetof(IpmiRequest, request_length) == 2 * sizeof(void*));
static_assert(offsetof(IpmiRequest, response_length) == 2 * sizeof(void*) + 4);
static_assert(offsetof(IpmiRequest, netfn) == 2 * sizeof(void*) + 8);
static_assert(offsetof(IpmiRequest, cmd) == 2 * sizeof(void*) + 9);

static_assert(offsetof(FruAreaPointers, multirecord) == 3 * sizeof(void*));
static_assert(offsetof(FruField, type) == 0);
static_assert(offsetof(FruField, length) == 1);
static_assert(offsetof(FruField, data) == sizeof(void*));

static_assert(sizeof(DimmTypeRow) == 2 * sizeof(void*));
static_assert(offsetof(Jep106Row, name) == sizeof(void*));
static_assert(offsetof(DimmFrequencyRow, high) == 4);
static_assert(offsetof(DimmFrequencyRow, text) == 8);
static_assert(sizeof(CasLatencyMaskRow) == 24);

static_assert(offsetof(SmbiosEntry, raw) == 0);
static_assert(offsetof(SmbiosEntry, next) == sizeof(void*));
static_assert(offsetof(SmbiosTypeGroup, type) == 0);
static_assert(offsetof(SmbiosTypeGroup, count) == 1);
static_assert(offsetof(SmbiosTypeGroup, entries) == sizeof(void*));
static_assert(offsetof(SmbiosTypeGroup, next) == 2 * sizeof(void*));
static_assert(offsetof(SmbiosTable, groups) == 0);

static_assert(sizeof(DimmSlotMapRow) == 20);
static_assert(offsetof(DimmSlotMapRow, socket) == 0);
static_assert(offsetof(DimmSlotMapRow, controller) == 4);
static_assert(offsetof(DimmSlotMapRow, channel) == 8);
static_assert(offsetof(DimmSlotMapRow, dimm_in_channel) == 12);
static_assert(offsetof(DimmSlotMapRow, slot) == 16);
// 8 and 12 bytes with pointers of 32 bits, 16 and 24 with pointers of 64.
static_assert(sizeof(DimmSlotMapRef) == 2 * sizeof(void*));
static_assert(offsetof(DimmSlotMapRef, rows) == 0);
static_assert(offsetof(DimmSlotMapRef, count) == sizeof(void*));
static_assert(sizeof(PlatMemSlot) == 3 * sizeof(void*));
static_assert(offsetof(PlatMemSlot, platform_id) == 0);
static_assert(offsetof(PlatMemSlot, map) == sizeof(void*));

static_assert(sizeof(MachineVpdRecord) == 1106);
static_assert(offsetof(MachineVpdRecord, vpd_version) == 0);
static_assert(offsetof(MachineVpdRecord, machine_type_model) == 9);
static_assert(offsetof(MachineVpdRecord, serial_number) == 43);
static_assert(offsetof(MachineVpdRecord, uuid) == 77);
static_assert(offsetof(MachineVpdRecord, asset_id) == 111);
static_assert(offsetof(MachineVpdRecord, manufacturer_id) == 145);
static_assert(offsetof(MachineVpdRecord, card_part_number) == 180);
static_assert(offsetof(MachineVpdRecord, card_fru_number) == 214);
static_assert(offsetof(MachineVpdRecord, card_serial_number) == 227);
static_assert(offsetof(MachineVpdRecord, card_mfg_date) == 268);
static_assert(offsetof(MachineVpdRecord, host_macs) == 279);
static_assert(offsetof(MachineVpdRecord, product_name) == 487);
static_assert(offsetof(MachineVpdRecord, code_levels) == 616);
static_assert(offsetof(MachineVpdRecord, port_macs) == 838);
static_assert(offsetof(MachineVpdRecord, iana) == 990);
static_assert(offsetof(MachineVpdRecord, sub_manufacturer) == 999);
static_assert(offsetof(MachineVpdRecord, serial_number_format) == 1005);
static_assert(offsetof(MachineVpdRecord, ec_level) == 1018);
static_assert(offsetof(MachineVpdRecord, second_part_number) == 1029);
static_assert(offsetof(MachineVpdRecord, second_serial_number) == 1042);
static_assert(offsetof(MachineVpdRecord, full_manufacturer_name) == 1055);
static_assert(offsetof(MachineVpdRecord, ismp_name) == 1088);

static_assert(sizeof(MachineFieldPair) == 60);
static_assert(offsetof(MachineFieldPair, value) == 30);
static_assert(sizeof(MachineFieldsRecord) == 420);

static_assert(sizeof(OemMachineRecord) == 1342);
static_assert(offsetof(OemMachineRecord, request) == 0);
static_assert(offsetof(OemMachineRecord, reserved_8) == 8);
static_assert(offsetof(OemMachineRecord, product_manufacturer) == 9);
static_assert(offsetof(OemMachineRecord, vpd_version) == 18);
static_assert(offsetof(OemMachineRecord, pair_0) == 27);
static_assert(offsetof(OemMachineRecord, pair_1) == 87);
static_assert(offsetof(OemMachineRecord, uuid) == 147);
static_assert(offsetof(OemMachineRecord, pair_6) == 181);
static_assert(offsetof(OemMachineRecord, reserved_241) == 241);
static_assert(offsetof(OemMachineRecord, pair_5) == 245);
static_assert(offsetof(OemMachineRecord, pair_2) == 305);
static_assert(offsetof(OemMachineRecord, card_fru_number) == 365);
static_assert(offsetof(OemMachineRecord, pair_3) == 378);
static_assert(offsetof(OemMachineRecord, card_serial_number_end) == 438);
static_assert(offsetof(OemMachineRecord, pair_4) == 445);
static_assert(offsetof(OemMachineRecord, card_mfg_date) == 505);
static_assert(offsetof(OemMachineRecord, host_macs) == 516);
static_assert(offsetof(OemMachineRecord, reserved_710) == 710);
static_assert(offsetof(OemMachineRecord, product_name) == 724);
static_assert(offsetof(OemMachineRecord, code_levels) == 853);
static_assert(offsetof(OemMachineRecord, reserved_1070) == 1070);
static_assert(offsetof(OemMachineRecord, port_macs) == 1075);
static_assert(offsetof(OemMachineRecord, reserved_1213) == 1213);
static_assert(offsetof(OemMachineRecord, iana) == 1227);
static_assert(offsetof(OemMachineRecord, sub_manufacturer) == 1236);
static_assert(offsetof(OemMachineRecord, serial_format_to_ismp) == 1242);

static_assert(sizeof(ChangeHistoryRecord) == 616);
static_assert(offsetof(ChangeHistoryRecord, reserved_0) == 0);
static_assert(offsetof(ChangeHistoryRecord, time_text) == 4);
static_assert(offsetof(ChangeHistoryRecord, time_iso) == 68);
static_assert(offsetof(ChangeHistoryRecord, time) == 132);
static_assert(offsetof(ChangeHistoryRecord, one) == 136);
static_assert(offsetof(ChangeHistoryRecord, reserved_140) == 140);
static_assert(offsetof(ChangeHistoryRecord, status) == 144);
static_assert(offsetof(ChangeHistoryRecord, reserved_148) == 148);
static_assert(offsetof(ChangeHistoryRecord, board_extra) == 224);
static_assert(offsetof(ChangeHistoryRecord, name) == 288);
static_assert(offsetof(ChangeHistoryRecord, serial_number) == 352);
static_assert(offsetof(ChangeHistoryRecord, mfg_id) == 416);
static_assert(offsetof(ChangeHistoryRecord, part_number) == 480);
static_assert(offsetof(ChangeHistoryRecord, cpu_words) == 544);
static_assert(offsetof(ChangeHistoryRecord, reserved_556) == 556);
static_assert(offsetof(ChangeHistoryRecord, entity_instance) == 608);
static_assert(offsetof(ChangeHistoryRecord, reserved_612) == 612);

static_assert(offsetof(StatusNode, next) == sizeof(void*));
static_assert(offsetof(StatusNode, entry) == 2 * sizeof(void*));
static_assert(offsetof(StatusList, tail) == sizeof(void*));
static_assert(offsetof(PciNode, next) == sizeof(void*));
static_assert(offsetof(PciNode, record) == 2 * sizeof(void*));
static_assert(offsetof(PciList, tail) == sizeof(void*));

static_assert(sizeof(VpddAllProperties) == 264 + sizeof(void*));
static_assert(offsetof(VpddAllProperties, type) == 0);
static_assert(offsetof(VpddAllProperties, length) == 4);
static_assert(offsetof(VpddAllProperties, path) == 8);
static_assert(offsetof(VpddAllProperties, value) == 136);
static_assert(offsetof(VpddAllProperties, next) == 264);

static_assert(sizeof(FirmwareVpd) == 74);
static_assert(offsetof(FirmwareVpd, name) == 0);
static_assert(offsetof(FirmwareVpd, build_id) == 22);
static_assert(offsetof(FirmwareVpd, build_date) == 40);
static_assert(offsetof(FirmwareVpd, build_version) == 58);
