// SPDX-License-Identifier: Apache-2.0
// The look-ups over tables of real machines, compared with what dmidecode printed for them.
#include <algorithm>
#include <map>
#include <sstream>

#include "samples.h"
#include "smbios_test.h"

using namespace vpdd::test;

namespace {

using Properties = std::map<std::string, std::string>;

/// The Memory Device paragraphs of a dmidecode text.
std::vector<Properties> memory_devices(const std::string& text) {
    std::vector<Properties> devices;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        if (line == "Memory Device") devices.emplace_back();
        const std::size_t colon = line.find(": ");
        if (devices.empty() || !line.starts_with('\t') || colon == std::string::npos) continue;
        devices.back()[line.substr(1, colon - 1)] = line.substr(colon + 2);
    }
    return devices;
}

/// The Size word behind a text like "4 GB" (DSP0134: MB, with bit 15 set KB, 0x7FFF for more than fits).
uint32_t size_word(const std::string& text) {
    if (text == "No Module Installed") return 0;
    if (text == "Unknown") return 0xFFFF;
    std::istringstream words(text);
    uint32_t number = 0;
    std::string unit;
    words >> number >> unit;
    if (unit == "kB") return 0x8000 | number;
    const std::map<std::string, uint32_t> megabytes{{"MB", 1}, {"GB", 1024}, {"TB", 1024 * 1024}};
    return std::min(number * megabytes.at(unit), 0x7FFFu);
}

/// The speed word behind a text like "1333 MT/s"; no line and "Unknown" are 0.
uint32_t speed_word(const Properties& device, const char* property) {
    const auto line = device.find(property);
    if (line == device.end() || line->second == "Unknown") return 0;
    return std::min<uint32_t>(static_cast<uint32_t>(std::stoul(line->second)), 0xFFFFu);
}

/// A string as dmidecode prints it.
std::string printed_string(const SmbiosEntry& entry, int index) {
    char text[255];
    const int result = getStringFromDimmSmbiosEntry(&entry, index, text, sizeof text);
    if (result == -4) return "Not Specified";
    EXPECT_EQ(result, 0);
    std::string printed = text;
    std::replace_if(
        printed.begin(), printed.end(), [](unsigned char character) { return character < 32 || character >= 127; },
        '.');
    return printed;
}

std::string digits_of(const std::string& text) {
    std::string digits;
    std::copy_if(text.begin(), text.end(), std::back_inserter(digits),
                 [](char character) { return character >= '0' && character <= '9'; });
    return digits;
}

class SmbiosSamples : public SmbiosTest {
protected:
    /// Hands every sample to a check: its table and the paragraphs beside it.
    template <class Check>
    void each_sample(Check check) {
        for (const auto& image : sample_images("smbios")) {
            SCOPED_TRACE(image.filename());
            const auto table = vpdd::images::parse_smbios_table(file_bytes(image));
            ASSERT_NE(table, nullptr);
            std::filesystem::path text = image;
            const auto devices = memory_devices(file_text(text.replace_extension(".dmidecode-t17.txt")));
            ASSERT_FALSE(devices.empty());
            check(table->get(), devices);
        }
    }

    void SetUp() override {
        if (sample_images("smbios").empty()) GTEST_SKIP() << "no samples in " << sample_folder();
    }
};

TEST_F(SmbiosSamples, HaveTheStringsThatDmidecodePrints) {
    each_sample([](SmbiosTable* table, const std::vector<Properties>& devices) {
        const auto* group = vpdd_get_the_smbios_info(table, memory_device);
        ASSERT_NE(group, nullptr);
        ASSERT_EQ(group->count, devices.size());
        const auto* entry = group->entries;
        for (const Properties& device : devices) {
            EXPECT_EQ(printed_string(*entry, 0), device.at("Locator"));
            EXPECT_EQ(printed_string(*entry, 1), device.at("Bank Locator"));
            EXPECT_EQ(printed_string(*entry, 2), device.at("Manufacturer"));
            EXPECT_EQ(printed_string(*entry, 3), device.at("Serial Number"));
            EXPECT_EQ(printed_string(*entry, 4), device.at("Asset Tag"));
            EXPECT_EQ(printed_string(*entry, 5), device.at("Part Number"));
            entry = entry->next;
        }
    });
}

TEST_F(SmbiosSamples, AreReadBySlotAsDmidecodePrintsThem) {
    each_sample([](SmbiosTable* table, const std::vector<Properties>& devices) {
        std::map<std::string, bool> seen;  // of the locators with the same digits the first one is found
        for (const Properties& device : devices) {
            const std::string digits = digits_of(device.at("Locator"));
            if (digits.empty() || std::exchange(seen[digits], true)) continue;
            SCOPED_TRACE(device.at("Locator"));
            uint32_t size = 0, speed = 0;

            EXPECT_EQ(
                vpdd_get_size_speed_from_smbios_by_device_locator(table, device.at("Locator").c_str(), &size, &speed),
                0);

            EXPECT_EQ(size, size_word(device.at("Size")));
            EXPECT_EQ(speed, speed_word(device, "Speed"));
        }
    });
}

TEST_F(SmbiosSamples, AreReadBySerialNumberAsDmidecodePrintsThem) {
    each_sample([](SmbiosTable* table, const std::vector<Properties>& devices) {
        std::map<std::string, bool> seen;
        for (const Properties& device : devices) {
            const std::string& serial = device.at("Serial Number");
            if (serial == "Not Specified" || std::exchange(seen[serial], true)) continue;
            SCOPED_TRACE(serial);
            const std::string in_front(200,
                                       '0');  // longer than every serial in the table, so that none ends the search
            const std::string fru_serial = in_front + serial;
            uint32_t size = 0, speed = 0, configured_speed = 0;

            EXPECT_EQ(vpdd_get_size_speed_from_smbios_by_serial_number(table, fru_serial.c_str(), &size, &speed), 0);
            EXPECT_EQ(vpdd_get_config_speed_from_smbios_by_serial_number(table, fru_serial.c_str(), &configured_speed),
                      0);

            EXPECT_EQ(size, size_word(device.at("Size")));
            EXPECT_EQ(speed, speed_word(device, "Speed"));
            EXPECT_EQ(configured_speed, speed_word(device, "Configured Memory Speed"));
        }
    });
}

}  // namespace
