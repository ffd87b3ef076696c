// SPDX-License-Identifier: Apache-2.0
#include "fields.h"

#include <array>
#include <cctype>
#include <ctime>
#include <regex>
#include <sstream>

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
    field += field.empty() ? text : "; " + text;
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

/// Bytes as ipmitool writes them: "00 43", or "00h 43h", becomes "0043".
std::string joined_bytes(const std::string& text) {
    std::string digits;
    std::istringstream words(text);
    for (std::string word; words >> word;) {
        for (const char digit : word.substr(0, 2)) digits += static_cast<char>(std::tolower(digit));
    }
    return digits;
}

/// As ipmi-fru writes bytes.
bool is_bytes(const std::string& text) { return std::regex_match(text, std::regex("([0-9A-F]{2}h ?)+")); }

void add_area(Fields& fields, const Json& document, const std::string& area) {
    if (!document.contains(area)) return;
    for (const Json& field : document[area]["Fields"]) {
        const std::string value = field["Value"];
        add(fields, area + '.' + field["Name"].get<std::string>(),
            field["Encoding"] == "Binary" ? joined_bytes(value) : value);
    }
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
    if (outcome.out.empty()) return {};
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

Fields ipmitool_fields(uint16_t port, uint8_t fru_id) {
    const Outcome outcome =
        run_tool({"ipmitool", "-v", "-I", "lanplus", "-C", "3", "-H", "127.0.0.1", "-p", std::to_string(port), "-U",
                  simulated_user, "-P", simulated_password, "fru", "print", std::to_string(fru_id)});
    Fields fields;
    for (const std::string& line : lines_of(outcome.out)) {
        const std::size_t colon = line.find(" : ");
        if (colon == std::string::npos) continue;
        const std::string field = field_named(ipmitool_labels, trimmed(line.substr(0, colon)));
        const std::string value = trimmed(line.substr(colon + 3));
        add(fields, field, field == "Board.Date" ? date_of(value, "%a %b %d %H:%M:%S %Y") : value);
    }
    if (outcome.code != 0) add(fields, note, "exit code " + std::to_string(outcome.code));
    return fields;
}

Fields ipmi_fru_fields(uint16_t port, uint8_t fru_id, const std::string& cache) {
    const Outcome outcome =
        run_tool({"ipmi-fru", "--driver-type=LAN_2_0", "-W", "opensesspriv", "-h", "127.0.0.1:" + std::to_string(port),
                  "-u", simulated_user, "-p", simulated_password, "-l", "ADMIN", "--sdr-cache-directory=" + cache,
                  "--quiet-cache", "--device-id=" + std::to_string(fru_id), "--verbose"});
    Fields fields;
    std::string area;
    for (const std::string& line : lines_of(outcome.out)) {
        const std::size_t colon = line.find(": ");
        if (line.rfind("  FRU ", 0) != 0 || colon == std::string::npos) continue;
        const std::string label = line.substr(6, colon - 6);
        const std::string value = line.substr(colon + 2);
        std::string field = field_named(ipmi_fru_labels, label);
        if (!field.empty()) area = field.substr(0, field.find('.'));
        if (label == "FRU File ID") field = area + ".FruFileId";
        if (label == "Error") field = note;
        if (field == "Board.Date") {
            add(fields, field, date_of(value, "%D - %T"));
        } else {
            add(fields, field, is_bytes(value) ? joined_bytes(value) : value);
        }
    }
    return fields;
}

Fields record_fields(const Fields& fields) {
    const bool has_board = fields.contains("Board.Manufacturer");
    const auto value = [&](const std::string& name) {
        const auto found = fields.find((has_board ? "Board." : "Product.") + name);
        return found == fields.end() ? std::string() : found->second;
    };
    Fields record;
    for (const std::string name : {"Manufacturer", "PartNumber", "SerialNumber", "Version"}) {
        add(record, "Record." + name, value(name));
    }
    add(record, "Record.Date", value("Date").substr(0, value("Date").find(' ')));
    add(record, "Record.Custom", value("Custom").substr(0, value("Custom").find(';')));
    return record;
}

Fields record_fields_of_component(const Json& component) {
    Fields record;
    for (const std::string name : {"Manufacturer", "PartNumber", "SerialNumber", "Version"}) {
        add(record, "Record." + name, component.value(name, ""));
    }
    add(record, "Record.Date", component.value("ManufactureDate", ""));
    add(record, "Record.Custom", component.value("BoardCustomField", ""));
    return record;
}

}  // namespace vpdd::test
