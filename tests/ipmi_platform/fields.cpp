// SPDX-License-Identifier: Apache-2.0
#include "fields.h"

#include <array>
#include <ctime>
#include <fstream>
#include <regex>

namespace vpdd::test {

namespace {

struct Label {
    const char* label;
    const char* field;
};

// In the words of ipmitool.
constexpr Label ipmitool_labels[] = {
    {"Chassis Type", "Chassis.Type"},
    {"Chassis Part Number", "Chassis.PartNumber"},
    {"Chassis Serial", "Chassis.SerialNumber"},
    {"Chassis Extra", "Chassis.Custom"},
    {"Board Mfg Date", "Board.Date"},
    {"Board Mfg", "Board.Manufacturer"},
    {"Board Product", "Board.ProductName"},
    {"Board Serial", "Board.SerialNumber"},
    {"Board Part Number", "Board.PartNumber"},
    {"Board FRU ID", "Board.FruFileId"},
    {"Board Extra", "Board.Custom"},
    {"Product Manufacturer", "Product.Manufacturer"},
    {"Product Name", "Product.ProductName"},
    {"Product Part Number", "Product.PartNumber"},
    {"Product Version", "Product.Version"},
    {"Product Serial", "Product.SerialNumber"},
    {"Product Asset Tag", "Product.AssetTag"},
    {"Product FRU ID", "Product.FruFileId"},
    {"Product Extra", "Product.Custom"},
};

// In the words of ipmi-fru, behind "FRU ". It calls the file id of either area the same: the area is the one before.
constexpr Label ipmi_fru_labels[] = {
    {"Chassis Type", "Chassis.Type"},
    {"Chassis Part Number", "Chassis.PartNumber"},
    {"Chassis Serial Number", "Chassis.SerialNumber"},
    {"Chassis Custom Info", "Chassis.Custom"},
    {"Board Manufacturing Date/Time", "Board.Date"},
    {"Board Manufacturer", "Board.Manufacturer"},
    {"Board Product Name", "Board.ProductName"},
    {"Board Serial Number", "Board.SerialNumber"},
    {"Board Part Number", "Board.PartNumber"},
    {"Board Custom Info", "Board.Custom"},
    {"Product Manufacturer Name", "Product.Manufacturer"},
    {"Product Name", "Product.ProductName"},
    {"Product Part/Model Number", "Product.PartNumber"},
    {"Product Version", "Product.Version"},
    {"Product Serial Number", "Product.SerialNumber"},
    {"Product Asset Tag", "Product.AssetTag"},
    {"Product Custom Info", "Product.Custom"},
};

template <std::size_t Count>
std::string field_named(const Label (&labels)[Count], const std::string& label) {
    for (const Label& row : labels) {
        if (label == row.label) return row.field;
    }
    return {};
}

std::string trimmed(const std::string& text) {
    const std::size_t begin = text.find_first_not_of(' ');
    return begin == std::string::npos ? "" : text.substr(begin, text.find_last_not_of(' ') + 1 - begin);
}

void add(Fields& fields, const std::string& name, const std::string& value) {
    const std::string text = trimmed(value);
    if (name.empty() || text.empty()) return;
    std::string& field = fields[name];
    field += field.empty() ? text : " | " + text;
}

std::string date_text(std::time_t seconds) {
    std::array<char, 32> text{};
    std::tm date{};
    gmtime_r(&seconds, &date);
    text[std::strftime(text.data(), text.size(), "%Y-%m-%d %H:%M", &date)] = '\0';
    return text.data();
}

/// The date in a text that strptime() can read; else the text.
std::string date_of(const std::string& text, const char* format) {
    std::tm date{};
    if (strptime(text.c_str(), format, &date) == nullptr) return text;
    return date_text(timegm(&date));
}

void add_area(Fields& fields, const Json& document, const std::string& area) {
    if (!document.contains(area)) return;
    for (const Json& field : document[area]["Fields"]) {
        add(fields, area + '.' + field["Name"].get<std::string>(), field["Value"].get<std::string>());
    }
}

std::vector<std::string> session_of(uint16_t port) {
    return {"-I", "lanplus",         "-C", "3", "-H", "127.0.0.1", "-p", std::to_string(port), "-U", simulated_user,
            "-P", simulated_password};
}

}  // namespace

PlatformFile::PlatformFile(uint16_t port, const Json& settings, const Json& rest) {
    folder_.file("password", std::string_view(simulated_password));
    std::filesystem::permissions(folder_.path("password"), std::filesystem::perms::owner_read);
    Json document = rest;
    document["bmc"] = {{"host", "127.0.0.1"},
                       {"port", port},
                       {"user", simulated_user},
                       {"password_file", "password"},
                       {"timeout_ms", 2000}};
    document["bmc"].update(settings);
    folder_.file("bmc.json", document.dump());
}

Fields vpdctl_fields(const PlatformFile& bmc, uint8_t fru_id) {
    const Outcome outcome = vpdctl({"fru", "--fru-id", std::to_string(fru_id), "--bmc", bmc.path(), "--json"});
    if (outcome.out.empty()) return {{note, outcome.err}};
    const Json document = Json::parse(outcome.out);
    Fields fields;
    if (document.contains("Chassis")) add(fields, "Chassis.Type", document["Chassis"]["ChassisTypeName"]);
    for (const char* area : {"Chassis", "Board", "Product"}) add_area(fields, document, area);
    if (document.contains("Board")) {
        constexpr std::time_t start_of_1996 = 820454400;
        fields["Board.Date"] = date_text(start_of_1996 + document["Board"]["ManufactureMinutes"].get<int>() * 60);
    }
    return fields;
}

FieldsByFru ipmitool_fields(uint16_t port) {
    std::vector<std::string> words{"ipmitool", "-v"};
    for (const std::string& word : session_of(port)) words.push_back(word);
    words.insert(words.end(), {"fru", "print"});
    const Outcome outcome = run_program(words);

    FieldsByFru frus;
    Fields* fru = nullptr;
    const std::regex heading(R"(FRU Device Description : .* \(ID (\d+)\))");
    for (const std::string& line : lines_of(outcome.out)) {
        std::smatch match;
        const std::size_t colon = line.find(" : ");
        if (std::regex_match(line, match, heading)) {
            fru = &frus[static_cast<uint8_t>(std::stoi(match[1]))];
        } else if (fru != nullptr && colon == std::string::npos) {
            add(*fru, note, line);
        } else if (fru != nullptr) {
            const std::string field = field_named(ipmitool_labels, trimmed(line.substr(0, colon)));
            const std::string value = trimmed(line.substr(colon + 3));
            add(*fru, field, field == "Board.Date" ? date_of(value, "%a %b %d %H:%M:%S %Y") : value);
        }
    }
    return frus;
}

FieldsByFru ipmi_fru_fields(uint16_t port) {
    const Outcome outcome = run_program({"ipmi-fru", "--driver-type=LAN_2_0", "-W", "opensesspriv", "-h",
                                         "127.0.0.1:" + std::to_string(port), "-u", simulated_user, "-p",
                                         simulated_password, "-l", "ADMIN", "--ignore-sdr-cache", "--verbose"});
    FieldsByFru frus;
    Fields* fru = nullptr;
    std::string area;
    const std::regex heading(R"(FRU Inventory Device: .* \(ID ([0-9A-F]+)h\))");
    for (const std::string& line : lines_of(outcome.out)) {
        std::smatch match;
        const std::size_t colon = line.find(": ");
        if (std::regex_match(line, match, heading)) {
            fru = &frus[static_cast<uint8_t>(std::stoi(match[1], nullptr, 16))];
        } else if (fru != nullptr && line.rfind("  FRU ", 0) == 0 && colon != std::string::npos) {
            const std::string label = line.substr(6, colon - 6);
            const std::string value = line.substr(colon + 2);
            std::string field = field_named(ipmi_fru_labels, label);
            if (!field.empty()) area = field.substr(0, field.find('.'));
            if (label == "FRU File ID") field = area + ".FruFileId";
            if (label == "Error") field = note;
            add(*fru, field, field == "Board.Date" ? date_of(value, "%D - %T") : value);
        }
    }
    return frus;
}

}  // namespace vpdd::test
