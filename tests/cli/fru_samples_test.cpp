// SPDX-License-Identifier: Apache-2.0
// Saved FRU images, compared value by value with the report of another tool that lies beside them.
#include <gmock/gmock.h>

#include <sstream>

#include "sample_reports.h"
#include "samples.h"
#include "vpdctl_process.h"

namespace vpdd::test {
namespace {

namespace fs = std::filesystem;

/// A paragraph of the report: label and value, in their order.
using Block = std::vector<std::pair<std::string, std::string>>;

// Labels of the report, without "FRU " and the area, beside the properties of vpdctl.
const std::map<std::string, std::string> properties = {
    {"Type", "ChassisTypeName"},      {"Part Number", "PartNumber"},         {"Serial Number", "SerialNumber"},
    {"Manufacturer", "Manufacturer"}, {"Manufacturer Name", "Manufacturer"}, {"Product Name", "ProductName"},
    {"Name", "ProductName"},          {"Part/Model Number", "PartNumber"},   {"Version", "Version"},
    {"Asset Tag", "AssetTag"},        {"FRU File ID", "FruFileId"},
};

// Where vpdctl shows something else than the tool, and why.
constexpr Difference differences[] = {
    {"synthetic_bad_board_checksum", "Board", "board info area checksum invalid", "Bad",
     "one wrong checksum does not refuse an area: it is shown and marked"},
    {"synthetic_truncated", "Board", "FRU area length invalid", "Truncated",
     "an area that the image ends in is shown as far as it goes"},
    {"synthetic_truncated", "Product", "FRU information inconsistent", "absent",
     "an area that begins behind the image's end has nothing to show but the fault"},
    {"kontron_am4010", "Board.ReadByLibrary", "read", "false", "the library takes board areas up to byte 248 only"},
    {"kontron_am4904", "Board.ReadByLibrary", "read", "false", "the library takes board areas up to byte 248 only"},
    {"kontron_am4010", "MultirecordsReadByLibrary", "read", "false", "the library takes the list up to byte 248 only"},
    {"kontron_am4904", "MultirecordsReadByLibrary", "read", "false", "the library takes the list up to byte 248 only"},
    {"vadatech_utc017", "MultirecordsReadByLibrary", "read", "false", "the library takes the list up to byte 248 only"},
    {"opalkelly_default_2k", "Multirecords", "goes on behind a blank header", "ends before it",
     "a header of five zeros is no record to the library"},
};

const Difference* difference_of(const fs::path& image, const std::string& property) {
    for (const Difference& difference : differences) {
        if (image.stem() == difference.image && property == difference.property) return &difference;
    }
    return nullptr;
}

std::vector<Block> report_of(const fs::path& image) {
    std::vector<Block> blocks(1);
    for (const std::string& line : lines_of(text_beside(image, ".ipmi-fru.txt"))) {
        const std::size_t colon = line.find(':');
        if (trimmed(line).empty()) {
            blocks.emplace_back();
        } else if (line.rfind("  FRU ", 0) == 0 && colon != std::string::npos) {
            // The tool prints a value behind one blank and leaves its trailing blanks.
            const std::string value = colon + 2 <= line.size() ? line.substr(colon + 2) : std::string();
            blocks.back().emplace_back(line.substr(6, colon - 6), value);
        } else if (!blocks.back().empty()) {
            blocks.back().back().second += ' ' + trimmed(line);  // hexadecimal data go on in further lines
        }
    }
    return blocks;
}

/// The blocks whose labels begin with an area's name.
std::vector<Block> blocks_of(const std::vector<Block>& report, const std::string& area) {
    std::vector<Block> blocks;
    for (const Block& block : report) {
        if (!block.empty() && block.front().first.rfind(area + ' ', 0) == 0) blocks.push_back(block);
    }
    return blocks;
}

/// "00h 43h" becomes "00 43"; any other text stays.
std::string plain_hex(const std::string& text) {
    std::string digits;
    std::istringstream words(text);
    for (std::string word; words >> word;) {
        const bool is_byte = word.size() == 3 && word.back() == 'h';
        if (!is_byte) return text;
        digits += (digits.empty() ? "" : " ") + word.substr(0, 2);
    }
    return digits.empty() ? text : digits;
}

/// "07/17/12 - 14:53:00" in minutes since 1996; the century of two digits is that of the FRU's calendar.
int64_t minutes_of(const std::string& text) {
    std::tm date{};
    date.tm_mon = std::stoi(text.substr(0, 2)) - 1;
    date.tm_mday = std::stoi(text.substr(3, 2));
    const int year = std::stoi(text.substr(6, 2));
    date.tm_year = year < 96 ? year + 100 : year;
    date.tm_hour = std::stoi(text.substr(11, 2));
    date.tm_min = std::stoi(text.substr(14, 2));
    constexpr int64_t start_of_1996 = 820454400;
    return (timegm(&date) - start_of_1996) / 60;
}

class IpmiFru : public testing::TestWithParam<fs::path> {
protected:
    const fs::path image_ = GetParam();
    Json json_ = vpdctl_json({"fru", image_});
    const std::vector<Block> report_ = report_of(image_);

    void expect_area(const std::string& area) {
        for (const Block& block : blocks_of(report_, area)) {
            std::vector<std::string> custom;
            for (const auto& [label, value] : block) expect_line(area, label, value, custom);
            EXPECT_EQ(json_[area]["CustomFields"], Json(custom)) << area;
        }
    }

private:
    void expect_line(const std::string& area, const std::string& label, const std::string& value,
                     std::vector<std::string>& custom) {
        const std::string name = label.rfind(area + ' ', 0) == 0 ? label.substr(area.size() + 1) : label;
        if (name == "Custom Info") {
            custom.push_back(plain_hex(value));
        } else if (name == "Language") {
            EXPECT_TRUE(json_[area]["Language"] == 0 || json_[area]["Language"] == 25) << value;
        } else if (name == "Manufacturing Date/Time") {
            EXPECT_EQ(json_[area]["ManufactureMinutes"], minutes_of(value));
            EXPECT_EQ(json_[area]["ManufactureDate"].get<std::string>().substr(5, 5),
                      value.substr(0, 2) + '-' + value.substr(3, 2));
        } else {
            // "Product Name" is the whole label of the product area's name.
            const bool is_product_name = area == "Product" && label == "Product Name";
            const std::string property = is_product_name ? "ProductName" : properties.at(name);
            EXPECT_EQ(json_[area][property], value) << area << ' ' << property;
        }
    }
};

TEST_P(IpmiFru, AgreesOnTheChassis) { expect_area("Chassis"); }

TEST_P(IpmiFru, AgreesOnTheBoard) { expect_area("Board"); }

TEST_P(IpmiFru, AgreesOnTheProduct) { expect_area("Product"); }

TEST_P(IpmiFru, AgreesOnTheNumberOfRecordsOfEachKind) {
    const std::map<std::string, std::string> kinds = {{"DC Output", "DC output"},
                                                      {"DC Load", "DC load"},
                                                      {"Power Supply", "Power supply information"},
                                                      {"Management Access", "Management access"},
                                                      {"OEM", "OEM record"}};
    if (!json_.contains("Multirecords")) return;
    for (const auto& [label, name] : kinds) {
        std::size_t count = 0;
        for (const Json& record : json_["Multirecords"]) count += record["TypeName"] == name ? 1 : 0;
        EXPECT_EQ(count, blocks_of(report_, label).size()) << name;
    }
}

TEST_P(IpmiFru, AgreesOnTheContentOfOemRecords) {
    std::vector<std::string> shown;
    for (const Json& record : json_["Multirecords"]) {
        if (record["TypeName"] == "OEM record") shown.push_back(record["Hex"].get<std::string>().substr(9));
    }
    std::vector<std::string> told;
    for (const Block& block : blocks_of(report_, "OEM")) told.push_back(plain_hex(trimmed(block.back().second)));

    EXPECT_EQ(shown, told);
}

TEST_P(IpmiFru, AgreesOnTheAreasAndTheirChecksums) {
    // "hdr ok; chassis ok; board BAD; product ok; multirecord"
    std::istringstream states(index_of("fru").at(image_.filename())[4]);
    bool has_multirecords = false;
    for (std::string state; std::getline(states, state, ';');) {
        std::istringstream words(state);
        std::string area;
        std::string checksum;
        words >> area >> checksum;
        if (area == "multirecord") {
            has_multirecords = true;
        } else if (area == "hdr") {
            EXPECT_EQ(json_["Header"]["Checksum"], "Ok");
        } else {
            area[0] = static_cast<char>(std::toupper(area[0]));
            const Difference* difference = difference_of(image_, area);
            const std::string shown = json_.contains(area) ? json_[area]["Checksum"].get<std::string>() : "absent";
            EXPECT_EQ(shown, difference == nullptr ? "Ok" : difference->vpdctl) << area;
            EXPECT_EQ(checksum, difference == nullptr ? "ok" : "BAD") << area;
        }
    }
    const bool behind_the_end = image_.stem() == "synthetic_truncated";
    EXPECT_EQ(!json_["Multirecords"].empty(), has_multirecords && !behind_the_end);
}

TEST_P(IpmiFru, TellsWhatTheLibraryDoesNotRead) {
    for (const std::string area : {"Chassis", "Board", "Product"}) {
        if (!json_.contains(area)) continue;
        const bool unseen = difference_of(image_, area + ".ReadByLibrary") != nullptr;
        EXPECT_EQ(json_[area]["ReadByLibrary"], !unseen) << area;
    }
    if (json_["Multirecords"].empty()) return;
    const bool unseen = difference_of(image_, "MultirecordsReadByLibrary") != nullptr;
    EXPECT_EQ(json_["MultirecordsReadByLibrary"], !unseen);
}

TEST_P(IpmiFru, EndsWithAnErrorOnlyWhereTheImageIsWrong) {
    const bool is_wrong = text_beside(image_, ".ipmi-fru.txt").find("FRU Error") != std::string::npos;
    const Outcome outcome = vpdctl({"fru", image_});

    EXPECT_EQ(outcome.code, is_wrong ? exit_incomplete : exit_ok);
    EXPECT_TRUE(is_harmless(outcome.out));
}

INSTANTIATE_TEST_SUITE_P(Images, IpmiFru, testing::ValuesIn(sample_images("fru")),
                         [](const testing::TestParamInfo<fs::path>& test) { return test_name(test.param); });
GTEST_ALLOW_UNINSTANTIATED_PARAMETERIZED_TEST(IpmiFru);

}  // namespace
}  // namespace vpdd::test
