// SPDX-License-Identifier: Apache-2.0
#include "cli/fru_report.h"

#include <map>
#include <nlohmann/json.hpp>
#include <ostream>

#include "cli/component.h"
#include "cli/display_text.h"
#include "cli/fru_names.h"
#include "cli/table.h"

namespace vpdd::cli {

namespace {

// Language codes (section 15): both stand for English.
constexpr uint8_t english_by_default = 0;
constexpr uint8_t english = 25;

/// The name of a field for people.
std::string field_label(const std::string& name) {
    static const std::map<std::string, std::string> labels = {
        {"Manufacturer", "Manufacturer"}, {"ProductName", "Product name"}, {"SerialNumber", "Serial number"},
        {"PartNumber", "Part number"},    {"FruFileId", "FRU file id"},    {"Version", "Version"},
        {"AssetTag", "Asset tag"},        {custom_field_name, "Custom"},
    };
    return labels.at(name);
}

const char* encoding_name(FieldEncoding encoding) {
    switch (encoding) {
        case FieldEncoding::binary:
            return "Binary";
        case FieldEncoding::bcd_plus:
            return "BcdPlus";
        case FieldEncoding::six_bit:
            return "SixBitAscii";
        case FieldEncoding::text:
            break;
    }
    return "Text";
}

const char* checksum_name(AreaChecksum checksum) {
    switch (checksum) {
        case AreaChecksum::right:
            return "Ok";
        case AreaChecksum::wrong:
            return "Bad";
        case AreaChecksum::cut_off:
            break;
    }
    return "Truncated";
}

const char* checksum_text(AreaChecksum checksum) {
    switch (checksum) {
        case AreaChecksum::right:
            return "right";
        case AreaChecksum::wrong:
            return "WRONG";
        case AreaChecksum::cut_off:
            break;
    }
    return "CUT OFF";
}

std::string language_text(uint8_t code) {
    const bool is_english = code == english_by_default || code == english;
    return is_english ? "English" : "code " + std::to_string(code);
}

std::string date_text(const BoardDate& date) { return date.minutes == 0 ? "unspecified (0)" : date.text; }

/// The library hands out packed text as it is stored.
bool library_reads_differently(const FruText& field) {
    return field.encoding == FieldEncoding::bcd_plus || field.encoding == FieldEncoding::six_bit;
}

bool bytes_add_something(const FruText& field) {
    if (field.encoding != FieldEncoding::text) return true;
    return field.value != std::string(field.stored.begin(), field.stored.end());
}

std::string value_text(const FruText& field) {
    std::string text = field.value;
    if (field.encoding == FieldEncoding::binary) text += " (binary)";
    if (library_reads_differently(field)) {
        text += field.encoding == FieldEncoding::bcd_plus ? " (BCD plus" : " (6-bit ASCII";
        text += ", bytes " + hex_bytes(field.stored) + ')';
    }
    return field.cut_off ? text + " (cut off)" : text;
}

std::string place_text(std::size_t offset, std::size_t length) {
    return "bytes " + std::to_string(offset) + '-' + std::to_string(offset + length - (length == 0 ? 0 : 1));
}

void print_area(std::ostream& out, const Style& style, const char* name, const FruArea& area, ValueList list) {
    for (const FruText& field : area.fields) list.add(field_label(field.name), value_text(field));
    out << '\n'
        << style.heading(name) << "  " << place_text(area.offset, area.length) << ", checksum "
        << checksum_text(area.checksum) << '\n';
    list.print(out, style);
}

void print_chassis(std::ostream& out, const Style& style, const FruArea& area) {
    const std::string name = chassis_type_name(area.kind);
    ValueList list;
    list.add("Type", name.empty() ? hex_number(area.kind) : name);
    print_area(out, style, "Chassis", area, std::move(list));
}

void print_board(std::ostream& out, const Style& style, const FruArea& area, const std::optional<BoardDate>& date) {
    ValueList list;
    list.add("Language", language_text(area.kind));
    if (date) list.add("Manufactured", date_text(*date));
    print_area(out, style, "Board", area, std::move(list));
}

void print_product(std::ostream& out, const Style& style, const FruArea& area) {
    ValueList list;
    list.add("Language", language_text(area.kind));
    print_area(out, style, "Product", area, std::move(list));
}

bool is_oem(const FruMultirecord& record) { return multirecord_name(record.type) == "OEM record"; }

/// The IANA enterprise number at the start of an OEM record, least significant byte first.
std::optional<uint32_t> oem_manufacturer(const FruMultirecord& record) {
    if (!is_oem(record) || record.content.size() < 3) return std::nullopt;
    return record.content[0] | static_cast<uint32_t>(record.content[1]) << 8U |
           static_cast<uint32_t>(record.content[2]) << 16U;
}

std::string what_record_holds(const FruMultirecord& record) {
    std::string text = multirecord_name(record.type);
    if (const auto maker = oem_manufacturer(record)) text += " of enterprise " + std::to_string(*maker);
    return text;
}

void print_multirecords(std::ostream& out, const Style& style, const std::vector<FruMultirecord>& records) {
    if (records.empty()) return;
    Table table({{"Byte", Align::right},
                 {"Type", Align::right},
                 {"Kind"},
                 {"Length", Align::right},
                 {"Header"},
                 {"Record"},
                 {"Content", Align::left, true}},
                2);
    for (const FruMultirecord& record : records) {
        table.add({std::to_string(record.offset), hex_number(record.type), what_record_holds(record),
                   std::to_string(record.length), record.header_right ? "right" : "WRONG",
                   checksum_text(record.checksum), hex_bytes(record.content)});
    }
    out << '\n' << style.heading("Multirecords (" + std::to_string(records.size()) + ')') << '\n';
    table.print(out, style);
    for (const FruMultirecord& record : records) {
        if (!record.oem_processor) continue;
        ValueList list;
        list.add("Index", std::to_string(record.oem_processor->index));
        for (const std::string& text : oem_processor_texts(*record.oem_processor)) list.add("Text", text);
        out << '\n' << style.heading("OEM processor record at byte " + std::to_string(record.offset)) << '\n';
        list.print(out, style);
    }
}

void print_sentences(std::ostream& out, const Style& style, const char* title, const std::vector<std::string>& lines) {
    if (lines.empty()) return;
    out << '\n' << style.heading(title) << '\n';
    for (const std::string& line : lines) out << "  " << displayable(line) << '\n';
}

Json field_json(const FruText& field) {
    Json object = {{"Name", field.name}, {"Encoding", encoding_name(field.encoding)}, {"Value", field.value}};
    if (library_reads_differently(field)) object["LibraryValue"] = field.library_value;
    if (bytes_add_something(field)) object["Hex"] = hex_bytes(field.stored);
    if (field.cut_off) object["Truncated"] = true;
    return object;
}

/// Named fields are properties of their own, so that a program finds them; `Fields` has them all with their encoding.
void add_area(Json& object, const FruArea& area) {
    for (const FruText& field : area.fields) {
        if (field.name != custom_field_name) object[field.name] = field.value;
    }
    object["CustomFields"] = custom_values(area);
    object["OffsetBytes"] = area.offset;
    object["LengthBytes"] = area.length;
    object["Checksum"] = checksum_name(area.checksum);
    object["ReadByLibrary"] = area.read_by_library;
    object["Fields"] = Json::array();
    for (const FruText& field : area.fields) object["Fields"].push_back(field_json(field));
}

Json multirecord_json(const FruMultirecord& record) {
    Json object = {{"OffsetBytes", record.offset},
                   {"Type", record.type},
                   {"TypeName", multirecord_name(record.type)},
                   {"FormatVersion", record.format_version},
                   {"EndOfList", record.ends_list},
                   {"LengthBytes", record.length},
                   {"HeaderChecksum", record.header_right ? "Ok" : "Bad"},
                   {"RecordChecksum", checksum_name(record.checksum)}};
    if (const auto maker = oem_manufacturer(record)) object["OemManufacturerId"] = *maker;
    object["Hex"] = hex_bytes(record.content);
    if (!record.oem_processor) return object;
    Json texts = Json::array();
    for (const auto& text : record.oem_processor->text) texts.push_back(field_text(text));
    object["OemProcessorRecord"] = {{"Index", record.oem_processor->index}, {"Texts", texts}};
    return object;
}

}  // namespace

void print_fru(std::ostream& out, const FruContents& contents, const std::string& file, const Style& style) {
    out << style.heading("FRU image " + displayable(file)) << '\n'
        << "  " << contents.size << " bytes, format version " << int{contents.format_version} << ", header checksum "
        << (contents.header_right ? "right" : "WRONG") << '\n';
    if (contents.internal_use) out << "  Internal use area from byte " << *contents.internal_use << " on\n";
    if (contents.chassis) print_chassis(out, style, *contents.chassis);
    if (contents.board) print_board(out, style, *contents.board, contents.board_date);
    if (contents.product) print_product(out, style, *contents.product);
    print_multirecords(out, style, contents.multirecords);
    print_sentences(out, style, "Faults", contents.faults);
    print_sentences(out, style, "Notes", contents.notes);
}

Json fru_json(const FruContents& contents, const std::string& file) {
    Json document = {{"File", file}, {"SizeBytes", contents.size}};
    document["Header"] = {{"FormatVersion", contents.format_version},
                          {"Checksum", contents.header_right ? "Ok" : "Bad"}};
    if (contents.internal_use) document["InternalUse"] = {{"OffsetBytes", *contents.internal_use}};
    if (contents.chassis) {
        document["Chassis"] = {{"ChassisType", contents.chassis->kind},
                               {"ChassisTypeName", chassis_type_name(contents.chassis->kind)}};
        add_area(document["Chassis"], *contents.chassis);
    }
    if (contents.board) {
        document["Board"]["Language"] = contents.board->kind;
        if (contents.board_date) {
            document["Board"]["ManufactureDate"] = contents.board_date->text;
            document["Board"]["ManufactureDateSpecified"] = contents.board_date->minutes != 0;
            document["Board"]["ManufactureMinutes"] = contents.board_date->minutes;
        }
        add_area(document["Board"], *contents.board);
    }
    if (contents.product) {
        document["Product"]["Language"] = contents.product->kind;
        add_area(document["Product"], *contents.product);
    }
    document["MultirecordsReadByLibrary"] = contents.multirecords_read_by_library;
    document["Multirecords"] = Json::array();
    for (const FruMultirecord& record : contents.multirecords) {
        document["Multirecords"].push_back(multirecord_json(record));
    }
    document["Faults"] = contents.faults;
    document["Notes"] = contents.notes;
    return document;
}

}  // namespace vpdd::cli
