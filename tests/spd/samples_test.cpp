// SPDX-License-Identifier: Apache-2.0
// Images of real modules against what other programs say about them.
#include "samples.h"

#include <cmath>
#include <filesystem>
#include <fstream>
#include <set>

#include "spd_test.h"

using namespace vpdd::test;
namespace fs = std::filesystem;

namespace {

fs::path samples_folder() { return sample_folder() / "spd"; }

const char* const no_samples = "absent";

/// The images of a generation that have a text with this suffix beside them; without the suffix.
std::vector<std::string> samples_with(const std::string& generation, const std::string& suffix) {
    std::error_code error;
    std::set<std::string> names;
    for (const auto& entry : fs::directory_iterator(samples_folder() / generation, error)) {
        const std::string file = entry.path().filename();
        if (file.ends_with(suffix)) names.insert(file.substr(0, file.size() - suffix.size()));
    }
    if (names.empty()) return {no_samples};
    return {names.begin(), names.end()};
}

std::string test_name(const testing::TestParamInfo<std::string>& info) {
    std::string name = info.param;
    for (char& character : name)
        if (isalnum(static_cast<unsigned char>(character)) == 0) character = '_';
    return name;
}

std::string trimmed(std::string text) {
    const auto last = text.find_last_not_of(" \r");
    return text.substr(0, last == std::string::npos ? 0 : last + 1);
}

/// What a program said: a value for each label.
using Facts = std::map<std::string, std::string>;

/// Lines of a label, two or more blanks, and a value; the first one counts.
Facts decode_dimms_facts(const fs::path& path) {
    std::ifstream file(path);
    Facts facts;
    for (std::string line; std::getline(file, line);) {
        const auto gap = line.find("  ");
        if (gap == std::string::npos || gap == 0) continue;
        const auto value = line.find_first_not_of(' ', gap);
        if (value != std::string::npos) facts.emplace(line.substr(0, gap), trimmed(line.substr(value)));
    }
    return facts;
}

/// Lines of "label: value".
Facts value_list_facts(const fs::path& path) {
    std::ifstream file(path);
    Facts facts;
    for (std::string line; std::getline(file, line);)
        if (const auto colon = line.find(": "); colon != std::string::npos)
            facts.emplace(line.substr(0, colon), trimmed(line.substr(colon + 2)));
    return facts;
}

/// A label on a line and its value on the next one. Section heads share the line of their first label.
Facts report_facts(const fs::path& path) {
    std::ifstream file(path);
    std::vector<std::string> lines;
    for (std::string line; std::getline(file, line);) lines.push_back(trimmed(line));
    Facts facts;
    for (std::size_t i = 0; i + 1 < lines.size(); ++i) {
        const auto tab = lines[i].find('\t');
        facts.emplace(tab == std::string::npos ? lines[i] : lines[i].substr(tab + 1), lines[i + 1]);
    }
    return facts;
}

/// The other program adds former names, and what it thinks of an id.
std::string as_in_the_list(const std::string& name) {
    return name.substr(0, std::min(name.find(" ("), name.find('?')));
}

std::string name_by(decltype(parse_manufacturer_id)& parser, const Bytes& image) {
    const char* name = "";
    parser(image.data(), 224, &name);
    return name;
}

int crc_state(const Bytes& image) {
    const int32_t stored = image[126] | image[127] << 8;
    return check_spd_crc(image.data(), static_cast<uint32_t>(image.size()), &stored);
}

/// Latencies of "24T, 22T" in ascending order.
std::set<int> latencies_of(const std::string& text) {
    std::set<int> latencies;
    for (std::size_t at = 0; at < text.size();) {
        if (isdigit(static_cast<unsigned char>(text[at])) == 0) {
            ++at;
            continue;
        }
        std::size_t used = 0;
        latencies.insert(std::stoi(text.substr(at), &used));
        at += used;
    }
    return latencies;
}

std::string two_digits(uint32_t number) { return formatted("%02u", number); }

class Sample : public testing::TestWithParam<std::string> {
protected:
    void SetUp() override {
        if (GetParam() == no_samples) GTEST_SKIP() << "no sample images in " << samples_folder();
    }
    static fs::path beside(const std::string& generation, const std::string& suffix) {
        return samples_folder() / generation / (GetParam() + suffix);
    }
};

// ---- DDR4

class Ddr4Sample : public Sample {
protected:
    void SetUp() override {
        Sample::SetUp();
        if (IsSkipped()) return;
        image = file_bytes(beside("ddr4", ".bin"));
        facts = decode_dimms_facts(beside("ddr4", ".decode-dimms.txt"));
        ASSERT_EQ(image.size(), 512U);
        ASSERT_FALSE(facts.empty());
        image.resize(1024);
        ASSERT_EQ(vpdd_Handle_DDR4_SPD(image.data(), &record), 0);
    }

    double number(const std::string& label) const { return std::stod(facts.at(label)); }
    std::string printed(const std::string& label, const std::string& otherwise) const {
        return facts.contains(label) ? facts.at(label) : otherwise;
    }

    Bytes image;
    Facts facts;
    SpdInfo record{};
};

TEST_P(Ddr4Sample, HasTheIdentityThatDecodeDimmsPrints) {
    EXPECT_STREQ(record.device_type, "DDR4");
    EXPECT_EQ(record.module_type, facts["Module Type"]);
    EXPECT_EQ(record.mfg_id, as_in_the_list(facts["Module Manufacturer"]));
    EXPECT_EQ(name_by(parse_manufacturer_id, image), as_in_the_list(facts["DRAM Manufacturer"]));
    EXPECT_EQ(trimmed(record.part_number), facts["Part Number"]);
    // A number or a date of zeros is not printed.
    EXPECT_EQ("0x" + std::string(record.serial_number).substr(10), printed("Assembly Serial Number", "0x00000000"));
    const std::string date = printed("Manufacturing Date", "2000-W00");
    if (date.starts_with("0x"))  // not printed as a date where a digit is above 9
        EXPECT_EQ(date, "0x" + std::string(record.serial_number).substr(6, 4));
    else
        EXPECT_EQ(date, "20" + two_digits(record.mfg_year) + "-W" + two_digits(record.mfg_week));
}

TEST_P(Ddr4Sample, HasTheGeometryThatDecodeDimmsPrints) {
    EXPECT_EQ(record.ram_size, number("Size"));
    EXPECT_EQ(record.module_ranks + 1, number("Ranks"));
    EXPECT_EQ(record.module_bus_width, number("Primary Bus Width"));
    EXPECT_EQ(record.ecc_bits, facts.contains("Bus Width Extension") ? number("Bus Width Extension") : 0);
}

TEST_P(Ddr4Sample, HasTheTimingThatDecodeDimmsPrints) {
    EXPECT_NEAR(record.sdram_clock, number("Minimum Cycle Time (tCKmin)"), 0.0005);
    EXPECT_NEAR(record.cas_latency, number("Minimum CAS Latency Time (tAA)"), 0.0005);
    EXPECT_EQ(latencies_of(record.cas_latencies_supports), latencies_of(facts["Supported CAS Latencies"]));
    const std::string rate = trimmed(facts["Maximum module speed"]).substr(0, 4);
    EXPECT_TRUE(std::string_view(record.sdram_freq_string).starts_with("DDR4-" + rate + " "))
        << record.sdram_freq_string;
}

TEST_P(Ddr4Sample, HasTheChecksumStateThatDecodeDimmsPrints) {
    EXPECT_EQ(crc_state(image) == 1, facts["EEPROM CRC of bytes 0-125"].starts_with("OK"));
}

using Ddr4Report = Ddr4Sample;

TEST_P(Ddr4Report, AgreesWithTheRecord) {
    Facts report = report_facts(beside("ddr4", ".thaiphoon.txt"));

    EXPECT_EQ(record.mfg_id, report["Manufacturer"]);
    EXPECT_EQ(trimmed(record.part_number), report["Part Number"]);
    EXPECT_TRUE(report["Serial Number"].ends_with(std::string(record.serial_number).substr(10)));
    EXPECT_EQ(record.ram_size, 1024 * std::stod(report["Capacity"]));
    EXPECT_TRUE(report["Organization"].ends_with(formatted("x72 (%d ranks)", record.module_ranks + 1)))
        << report["Organization"];
    EXPECT_TRUE(report["Manufacturing Date"].ends_with(formatted("Week %u, 20%02u", record.mfg_week, record.mfg_year)));
    EXPECT_EQ(record.sdram_frequency, std::stoi(report["Input Clock Frequency"]));
}

INSTANTIATE_TEST_SUITE_P(Image, Ddr4Sample, testing::ValuesIn(samples_with("ddr4", ".decode-dimms.txt")), test_name);
INSTANTIATE_TEST_SUITE_P(Image, Ddr4Report, testing::ValuesIn(samples_with("ddr4", ".thaiphoon.txt")), test_name);

// ---- DDR3: the component cache takes the values one by one

class Ddr3Sample : public Sample {
protected:
    void SetUp() override {
        Sample::SetUp();
        if (IsSkipped()) return;
        image = file_bytes(beside("ddr3", ".bin"));
        facts = decode_dimms_facts(beside("ddr3", ".decode-dimms.txt"));
        ASSERT_EQ(image.size(), 256U);
        ASSERT_FALSE(facts.empty());
        image.resize(512);
    }

    double number(const std::string& label) const { return std::stod(facts.at(label)); }

    Bytes image;
    Facts facts;
};

TEST_P(Ddr3Sample, HasTheIdentityThatDecodeDimmsPrints) {
    const char* type = nullptr;
    const char* module_type = nullptr;
    EXPECT_EQ(translate_dimm_type(image[2], &type), 0);
    EXPECT_EQ(parse_module_type(image.data(), 224, &module_type), 0);

    EXPECT_STREQ(type, "DDR3");
    EXPECT_EQ(module_type, facts["Module Type"]);
    EXPECT_EQ(name_by(parse_vendor_manufacturer_id, image), as_in_the_list(facts["Module Manufacturer"]));
    EXPECT_EQ(name_by(parse_manufacturer_id, image), as_in_the_list(facts["DRAM Manufacturer"]));
}

TEST_P(Ddr3Sample, HasTheGeometryThatDecodeDimmsPrints) {
    EXPECT_EQ(calculate_dimm_size(image.data()), number("Size"));
    EXPECT_EQ(get_dimm_ranks(image.data(), 224) + 1, number("Ranks"));
    EXPECT_EQ(get_dimm_bus_width(image.data(), 224), number("Primary Bus Width"));
    EXPECT_EQ(get_dimm_eccbit(image.data(), 224),
              facts.contains("Bus Width Extension") ? number("Bus Width Extension") : 0);
}

TEST_P(Ddr3Sample, HasTheTimingThatDecodeDimmsPrints) {
    const float fine = calculate_fine_timebase(image.data(), 224);
    const float medium = calculate_medium_timebase(image.data(), 224);
    char* latencies = nullptr;
    ASSERT_EQ(parse_cas_supported_latencies(image.data(), 224, &latencies), 0);
    const OwnedText owned(latencies);

    // The other program applies the fine timebase in ns, and signed to both times.
    const float fine_ns = fine / 1000;
    const auto clock_offset = static_cast<float>(static_cast<int8_t>(image[34]));
    const auto latency_offset = static_cast<float>(static_cast<int8_t>(image[35]));
    EXPECT_NEAR(calculate_sdram_clock(image.data(), 224, fine, medium) - clock_offset * (fine - fine_ns),
                number("Minimum Cycle Time (tCK)"), 0.0005);
    EXPECT_NEAR(calculate_cas_latency(image.data(), 224, fine, medium) - fine * image[35] + fine_ns * latency_offset,
                number("Minimum CAS Latency Time (tAA)"), 0.0005);
    EXPECT_EQ(latencies_of(latencies), latencies_of(facts["Supported CAS Latencies (tCL)"]));
}

TEST_P(Ddr3Sample, HasTheChecksumStateThatDecodeDimmsPrints) {
    const std::string covered = (image[0] & 0x80U) != 0 ? "116" : "125";

    EXPECT_EQ(crc_state(image) == 1, facts["EEPROM CRC of bytes 0-" + covered].starts_with("OK"));
}

INSTANTIATE_TEST_SUITE_P(Image, Ddr3Sample, testing::ValuesIn(samples_with("ddr3", ".decode-dimms.txt")), test_name);

// ---- DDR5

class Ddr5Sample : public Sample {
protected:
    void SetUp() override {
        Sample::SetUp();
        if (IsSkipped()) return;
        image = file_bytes(beside("ddr5", ".bin"));
        facts = value_list_facts(beside("ddr5", ".facts.txt"));
        ASSERT_EQ(image.size(), 1024U);
        ASSERT_FALSE(facts.empty());
        ASSERT_EQ(vpdd_Handle_DDR5_SPD(image.data(), &record), 0);
    }

    double number(const std::string& label) const { return std::stod(facts.at(label)); }

    Bytes image;
    Facts facts;
    SpdInfo record{};
};

TEST_P(Ddr5Sample, HasTheIdentityOfItsFacts) {
    EXPECT_STREQ(record.device_type, "DDR5");
    EXPECT_TRUE(facts["module_type"].ends_with("(" + std::string(record.module_type) + ")"));
    EXPECT_EQ("'" + trimmed(record.part_number) + "'", facts["part_number"]);
    EXPECT_EQ(std::string(record.serial_number).substr(10), facts["serial_bytes"]);
    EXPECT_EQ(facts["module_manufacturer_bytes"],
              std::string(record.serial_number, 2) + " " + std::string(record.serial_number + 2, 2));
}

TEST_P(Ddr5Sample, HasTheGeometryOfItsFacts) {
    EXPECT_EQ(record.ram_size, 1024 * number("capacity_gib"));
    EXPECT_EQ(record.module_ranks, number("package_ranks_per_channel"));
    EXPECT_EQ(record.module_bus_width, number("bus_width_per_channel"));
    EXPECT_EQ(record.ecc_bits, number("ecc_bits_per_channel"));
}

TEST_P(Ddr5Sample, HasTheTimingOfItsFacts) {
    EXPECT_EQ(latencies_of(record.cas_latencies_supports), latencies_of(facts["cas_latencies"]));
    EXPECT_NEAR(record.sdram_frequency, number("data_rate_from_tCKmin_MTs"), 20);
    EXPECT_EQ(record.sdram_frequency, 4800);
}

using Ddr5Report = Ddr5Sample;

TEST_P(Ddr5Report, AgreesWithTheRecord) {
    Facts report = report_facts(beside("ddr5", ".thaiphoon.txt"));

    EXPECT_EQ(record.mfg_id, report["Manufacturer"]);
    EXPECT_EQ(trimmed(record.part_number), report["Part Number"]);
    EXPECT_TRUE(report["Serial Number"].ends_with(std::string(record.serial_number).substr(10)));
    EXPECT_EQ(record.ram_size, 1024 * std::stod(report["Capacity"]));
    EXPECT_TRUE(report["Manufacturing Date"].ends_with(formatted("Week %u, 20%02u", record.mfg_week, record.mfg_year)));
    EXPECT_TRUE(report["Speed Grade"].starts_with(formatted("DDR5-%d", record.sdram_frequency)));
}

INSTANTIATE_TEST_SUITE_P(Image, Ddr5Sample, testing::ValuesIn(samples_with("ddr5", ".facts.txt")), test_name);
INSTANTIATE_TEST_SUITE_P(Image, Ddr5Report, testing::ValuesIn(samples_with("ddr5", ".thaiphoon.txt")), test_name);

}  // namespace
