// SPDX-License-Identifier: Apache-2.0
// Saved SPD images, compared value by value with the reports of other tools that lie beside them.
#include <gmock/gmock.h>

#include <algorithm>
#include <cctype>
#include <set>
#include <sstream>

#include "sample_reports.h"
#include "samples.h"
#include "vpdctl_process.h"

namespace vpdd::test {
namespace {

namespace fs = std::filesystem;

using Values = std::map<std::string, std::string>;

// Where vpdctl shows something else than the tools, and why.
constexpr Difference differences[] = {
    {"Micron_16KTF1G64HZ-1G9E1", "AllowedSpeedsMHz", "[1866]", "[]",
     "the library takes the fine timebase of DDR3, which is in ps, as ns: a clock period with a fine part is wrong"},
    {"Kingston_B5116ECMDXGGB", "PartNumber", "fSIITigwh", "fSIITigwh\xEF\xBF\xBDqqf",
     "the tool ends at the first byte that is no ASCII, the library takes all 18 bytes"},
    {"Kingston_B5116ECMDXGGB", "ManufactureDate", "2019-W10", "2013-W10",
     "bytes 13 0A are no BCD date: the tool reads binary numbers, the library adds tens and units"},
    {"Apacer_AQD-D4U32N32-SBW", "DramManufacturer", "IBM? (Invalid parity)", "IBM",
     "the library does not look at the parity of the bank byte"},
    {"*", "Manufacturer", "SK Hynix (former Hyundai Electronics)", "SK Hynix",
     "the library's JEP106 list has the short name"},
    {"*", "DramManufacturer", "SK Hynix (former Hyundai Electronics)", "SK Hynix",
     "the library's JEP106 list has the short name"},
};

/// What vpdctl is to show where the tool says `value`.
std::string expected(const fs::path& image, const std::string& property, const std::string& value) {
    for (const Difference& difference : differences) {
        const std::string name = difference.image;
        const bool applies = (name == "*" || name == image.stem()) && property == difference.property;
        if (applies && value == difference.tool) return difference.vpdctl;
    }
    return value;
}

std::string text_of(const Json& value) { return value.is_string() ? value.get<std::string>() : value.dump(); }

/// The number at the start of a text.
std::string number_in(const std::string& text) { return text.substr(0, text.find_first_not_of("0123456789")); }

// ---- decode-dimms: "Label   value" with the value in a column of its own

Values decode_dimms_report(const fs::path& image) {
    Values values;
    for (const std::string& line : lines_of(text_beside(image, ".decode-dimms.txt"))) {
        const std::size_t gap = line.find("  ");
        if (gap == std::string::npos || gap == 0) continue;
        values[line.substr(0, gap)] = trimmed(line.substr(gap));
    }
    return values;
}

/// "10T, 9T, 8T" in ascending order.
std::vector<int> latencies(const std::string& text) {
    std::vector<int> result;
    std::istringstream items(text);
    for (std::string item; std::getline(items, item, ',');) result.push_back(std::stoi(item));
    std::sort(result.begin(), result.end());
    return result;
}

const Json* checksum_of(const Json& json, const std::string& covers) {
    for (const Json& checksum : json["Checksums"]) {
        if (checksum["Covers"] == covers) return &checksum;
    }
    return nullptr;
}

class DecodeDimms : public testing::TestWithParam<fs::path> {
protected:
    const fs::path image_ = GetParam();
    Json json_ = vpdctl_json({"spd", image_});
    Values report_ = decode_dimms_report(image_);

    void expect(const std::string& property, const std::string& value) {
        EXPECT_EQ(text_of(json_[property]), expected(image_, property, value)) << property;
    }
};

TEST_P(DecodeDimms, AgreesOnTheKindOfModule) {
    expect("MemoryDeviceType", report_["Fundamental Memory type"].substr(0, 4));
    expect("BaseModuleType", report_["Module Type"]);
}

TEST_P(DecodeDimms, AgreesOnTheGeometry) {
    const std::string ecc = number_in(report_["Bus Width Extension"]);
    const std::string width = number_in(report_["Primary Bus Width"]);

    expect("CapacityMiB", number_in(report_["Size"]));
    expect("RankCount", report_["Ranks"]);
    expect("DataWidthBits", width);
    expect("EccBits", ecc.empty() ? "0" : ecc);
    expect("BusWidthBits", std::to_string(std::stoi(width) + (ecc.empty() ? 0 : std::stoi(ecc))));
}

TEST_P(DecodeDimms, AgreesOnTheSpeed) {
    expect("AllowedSpeedsMHz", '[' + number_in(report_["Maximum module speed"]) + ']');
}

TEST_P(DecodeDimms, AgreesOnTheCasLatencies) {
    const std::string ddr4 = report_["Supported CAS Latencies"];
    const std::string list = ddr4.empty() ? report_["Supported CAS Latencies (tCL)"] : ddr4;

    EXPECT_EQ(json_["CasLatencies"], Json(latencies(list)));
}

TEST_P(DecodeDimms, AgreesOnTheMakers) {
    expect("Manufacturer", report_["Module Manufacturer"]);
    expect("DramManufacturer", report_["DRAM Manufacturer"]);
}

TEST_P(DecodeDimms, AgreesOnTheIdentity) {
    const std::string serial = report_["Assembly Serial Number"];
    expect("PartNumber", report_["Part Number"]);
    // The tool leaves a blank serial number out.
    expect("SerialNumber", serial.empty() ? json_["SerialNumber"].get<std::string>() : serial.substr(2));
    if (serial.empty()) {
        const std::set<std::string> blank = {"00000000", "FFFFFFFF"};
        EXPECT_THAT(blank, testing::Contains(json_["SerialNumber"].get<std::string>()));
    }
}

TEST_P(DecodeDimms, AgreesOnPlaceAndDate) {
    const std::string location = report_["Manufacturing Location Code"];
    const std::string date = expected(image_, "ManufactureDate", report_["Manufacturing Date"]);
    if (!location.empty() && json_["MemoryDeviceType"] == "DDR4") {
        expect("ManufacturingLocation", location.substr(2));
    }
    if (date.find("-W") != std::string::npos) {
        EXPECT_EQ(std::stoi(date.substr(2, 2)), json_["Record"]["mfg_year"]);
        EXPECT_EQ(std::stoi(date.substr(6, 2)), json_["Record"]["mfg_week"]);
    }
}

TEST_P(DecodeDimms, AgreesOnTheChecksums) {
    bool all_right = true;
    for (const auto& [label, value] : report_) {
        const std::string prefix = "EEPROM CRC of ";
        if (label.rfind(prefix, 0) != 0) continue;
        const Json* checksum = checksum_of(json_, label.substr(prefix.size()));
        ASSERT_NE(checksum, nullptr) << label;
        const bool right = value.rfind("OK", 0) == 0;
        all_right = all_right && right;
        EXPECT_EQ((*checksum)["State"], right ? "Ok" : "Bad") << label;
        if (right) {
            EXPECT_EQ((*checksum)["Stored"], std::stoi(value.substr(value.find("0x") + 2), nullptr, 16)) << label;
        }
    }
    EXPECT_EQ(vpdctl({"spd", image_}).code, all_right ? exit_ok : exit_incomplete);
}

TEST_P(DecodeDimms, TextIsHarmless) { EXPECT_TRUE(is_harmless(vpdctl({"spd", image_}).out)); }

std::string name_of(const testing::TestParamInfo<fs::path>& test) { return test_name(test.param); }

INSTANTIATE_TEST_SUITE_P(Ddr3, DecodeDimms, testing::ValuesIn(sample_images("spd/ddr3")), name_of);
INSTANTIATE_TEST_SUITE_P(Ddr4, DecodeDimms, testing::ValuesIn(sample_images("spd/ddr4")), name_of);
GTEST_ALLOW_UNINSTANTIATED_PARAMETERIZED_TEST(DecodeDimms);

// ---- values read straight from the bytes of DDR5 images: "name: value"

Values facts_of(const fs::path& image) {
    Values values;
    for (const std::string& line : lines_of(text_beside(image, ".facts.txt"))) {
        const std::size_t colon = line.find(':');
        if (colon != std::string::npos) values[line.substr(0, colon)] = trimmed(line.substr(colon + 1));
    }
    return values;
}

std::string without_quotes(const std::string& text) { return text.substr(1, text.size() - 2); }

class Ddr5Facts : public testing::TestWithParam<fs::path> {
protected:
    const fs::path image_ = GetParam();
    Json json_ = vpdctl_json({"spd", image_});
    Values facts_ = facts_of(image_);
};

TEST_P(Ddr5Facts, AgreeOnTheGeometry) {
    EXPECT_THAT(facts_["module_type"], testing::HasSubstr('(' + json_["BaseModuleType"].get<std::string>() + ')'));
    EXPECT_EQ(json_["CapacityMiB"], std::stoi(facts_["capacity_gib"]) * 1024);
    EXPECT_EQ(json_["DataWidthBits"], std::stoi(facts_["bus_width_per_channel"]));
    EXPECT_EQ(json_["EccBits"], std::stoi(facts_["ecc_bits_per_channel"]));
    EXPECT_EQ(json_["RankCount"], std::stoi(facts_["package_ranks_per_channel"]));
}

TEST_P(Ddr5Facts, AgreeOnSpeedAndLatencies) {
    std::vector<int> values;
    std::istringstream list(facts_["cas_latencies"]);
    for (int value = 0; list >> value;) values.push_back(value);
    // The library counts the data rate in steps of 20 MT/s, which makes 4807.7 the speed class 4800.
    const int rate = static_cast<int>(std::stod(facts_["data_rate_from_tCKmin_MTs"])) / 20 * 20;

    EXPECT_EQ(json_["CasLatencies"], Json(values));
    EXPECT_EQ(json_["AllowedSpeedsMHz"], Json::array({rate}));
}

TEST_P(Ddr5Facts, AgreeOnTheIdentity) {
    EXPECT_EQ(json_["PartNumber"], trimmed(without_quotes(facts_["part_number"])));
    EXPECT_EQ(json_["SerialNumber"], facts_["serial_bytes"]);
    EXPECT_EQ("0x" + json_["ManufacturingLocation"].get<std::string>(), facts_["manufacturing_location"]);
    const std::string maker = facts_["module_manufacturer_bytes"];
    EXPECT_EQ(json_["Record"]["serial_number"].get<std::string>().substr(0, 4),
              maker.substr(0, 2) + maker.substr(3, 2));
}

TEST_P(Ddr5Facts, AgreeOnTheChecksum) {
    EXPECT_EQ(json_["Checksums"][0]["Covers"], "bytes 0-509");
    EXPECT_EQ(json_["Checksums"][0]["State"], facts_["crc_0_509"].rfind("ok", 0) == 0 ? "Ok" : "Bad");
}

TEST_P(Ddr5Facts, AgreeOnTheDateDigits) {
    // "year 2023 week 20", or digits that are no decimal number: the library adds tens and units all the same.
    const std::string date = facts_["manufacturing_date_bcd"];
    const auto decoded = [](const std::string& digits) {
        return std::stoi(digits.substr(0, 1), nullptr, 16) * 10 + std::stoi(digits.substr(1, 1), nullptr, 16);
    };

    EXPECT_EQ(json_["Record"]["mfg_year"], decoded(date.substr(7, 2)));
    EXPECT_EQ(json_["Record"]["mfg_week"], decoded(date.substr(15, 2)));
}

INSTANTIATE_TEST_SUITE_P(Ddr5, Ddr5Facts, testing::ValuesIn(sample_images("spd/ddr5")), name_of);
GTEST_ALLOW_UNINSTANTIATED_PARAMETERIZED_TEST(Ddr5Facts);

// ---- the publisher's own reports: a title, and its value in the next line

Values publisher_report(const fs::path& image) {
    Values values;
    const std::vector<std::string> lines = lines_of(text_beside(image, ".thaiphoon.txt"));
    for (std::size_t line = 0; line + 1 < lines.size(); ++line) {
        const std::size_t tab = lines[line].find('\t');
        const std::string title = tab == std::string::npos ? lines[line] : lines[line].substr(tab + 1);
        values.emplace(trimmed(title), trimmed(lines[line + 1]));
    }
    return values;
}

class PublisherReport : public testing::TestWithParam<fs::path> {};

TEST_P(PublisherReport, Agrees) {
    const fs::path image = GetParam();
    Json json = vpdctl_json({"spd", image});
    Values report = publisher_report(image);

    EXPECT_EQ(json["Manufacturer"], report["Manufacturer"]);
    EXPECT_EQ(json["PartNumber"], report["Part Number"]);
    EXPECT_EQ(json["CapacityMiB"], std::stoi(report["Capacity"]) * 1024);
    EXPECT_THAT(report["Organization"], testing::HasSubstr(std::to_string(json["RankCount"].get<int>()) + " rank"));
    EXPECT_THAT(report["Serial Number"], testing::EndsWith(json["SerialNumber"].get<std::string>()));
    EXPECT_THAT(report["Architecture"], testing::StartsWith(json["MemoryDeviceType"].get<std::string>()));
    EXPECT_THAT(report["Architecture"], testing::EndsWith(json["BaseModuleType"].get<std::string>()));
    EXPECT_THAT(report["Speed Grade"], testing::HasSubstr('-' + json["AllowedSpeedsMHz"][0].dump()));
    EXPECT_THAT(report["Manufacturing Date"], testing::HasSubstr("Week " + json["Record"]["mfg_week"].dump() + ", 20" +
                                                                 json["Record"]["mfg_year"].dump()));
}

std::vector<fs::path> with_publisher_report() {
    std::vector<fs::path> images;
    for (const char* folder : {"spd/ddr3", "spd/ddr4", "spd/ddr5"}) {
        for (const fs::path& image : sample_images(folder)) {
            if (!text_beside(image, ".thaiphoon.txt").empty()) images.push_back(image);
        }
    }
    return images;
}

INSTANTIATE_TEST_SUITE_P(Modules, PublisherReport, testing::ValuesIn(with_publisher_report()), name_of);
GTEST_ALLOW_UNINSTANTIATED_PARAMETERIZED_TEST(PublisherReport);

}  // namespace
}  // namespace vpdd::test
