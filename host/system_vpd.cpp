// SPDX-License-Identifier: Apache-2.0
#include "host/system_vpd.h"

#include <algorithm>
#include <array>
#include <charconv>

#include "host/server.h"
#include "host/server_defaults.h"
#include "platform/system_vpd.h"

namespace vpdd::host {

namespace {

enum class Padding { zeros, spaces_behind, spaces_in_front, oem };

struct Field {
    uint32_t id;
    uint32_t size;  // bytes
    Padding padding = Padding::zeros;
    const char* key = nullptr;  // name of a plain text in the description
};

constexpr uint32_t reserved = 0;

constexpr uint32_t id_version = 1, id_serial_number_format = 4, id_vpd = 5, id_pos_extension = 6, id_pos = 7;
constexpr uint32_t id_short_type_model = 8, id_short_serial_number = 9, id_first_host_mac = 19, id_uuid = 27;
constexpr uint32_t id_iana = 40, id_long_type_model = 56, id_long_serial_number = 57, id_first_code_level = 81;
constexpr uint32_t id_port_macs = 108;

// In the order in which they lie in the device.
constexpr Field fields[] = {
    {id_version, 2},
    {id_serial_number_format, 1},
    {reserved, 5},
    {id_vpd, 2},
    {id_pos_extension, 2},
    {id_pos, 2},
    {reserved, 2},
    {id_short_type_model, 33},
    {id_short_serial_number, 33, Padding::spaces_in_front},
    {10, 32, Padding::spaces_behind, "asset_id"},
    {11, 33, Padding::spaces_behind, "card_part_number"},
    {12, 12, Padding::spaces_behind, "card_fru_number"},
    {13, 33, Padding::spaces_behind, "card_serial_number"},
    {14, 33, Padding::spaces_in_front, "manufacturer_id"},
    {18, 10, Padding::zeros, "card_manufactured"},
    {19, 8},
    {20, 8},
    {21, 8},
    {22, 8},
    {23, 8},
    {24, 8},
    {25, 8},
    {26, 8},
    {id_uuid, 32},
    {id_iana, 4},
    {46, 4, Padding::spaces_in_front, "sub_manufacturer"},
    {48, 128, Padding::spaces_behind, "product_name"},
    {50, 10, Padding::spaces_behind, "ec_level"},
    {51, 12, Padding::spaces_behind, "second_part_number"},
    {52, 12, Padding::spaces_behind, "second_serial_number"},
    {53, 32, Padding::spaces_behind, "manufacturer"},
    {54, 16, Padding::spaces_behind, "ismp_name"},
    {id_long_type_model, 33},
    {id_long_serial_number, 33, Padding::spaces_in_front},
    {60, 33, Padding::oem, "type_model"},
    {61, 33, Padding::oem, "serial_number"},
    {62, 33, Padding::oem, "card_part_number"},
    {63, 33, Padding::oem, "card_serial_number"},
    {65, 33, Padding::oem, "manufacturer_id"},
    {81, 36},
    {82, 36},
    {83, 36},
    {84, 36},
    {85, 36},
    {86, 36},
    {id_port_macs, 64},
};
constexpr std::size_t field_count = std::size(fields);

constexpr uint32_t device_size = 4096;  // bytes

constexpr std::array<uint32_t, field_count> offsets = [] {
    std::array<uint32_t, field_count> sums{};
    for (std::size_t row = 1; row < field_count; ++row) sums[row] = sums[row - 1] + fields[row - 1].size;
    return sums;
}();
static_assert(fields[4].id == id_pos_extension && offsets[4] == 0x000A, "the OEM read takes it from there");
static_assert(offsets.back() + fields[field_count - 1].size <= device_size);

/// Row of a field, or none.
std::optional<std::size_t> row_of(uint32_t id) {
    const auto* field = std::ranges::find(fields, id, &Field::id);
    if (id == reserved || field == std::end(fields)) return {};
    return field - std::begin(fields);
}

Bytes padded(std::string_view text, const Field& field) {
    Bytes bytes(field.size, field.padding == Padding::zeros || field.padding == Padding::oem ? 0 : ' ');
    // An OEM text begins behind a zero byte.
    const std::size_t start = field.padding == Padding::oem               ? 1
                              : field.padding == Padding::spaces_in_front ? field.size - text.size()
                                                                          : 0;
    std::ranges::copy(text, bytes.begin() + static_cast<std::ptrdiff_t>(start));
    return bytes;
}

/// Puts the description's values into the image.
class Writer {
public:
    explicit Writer(Bytes& image) : image_(image) {}

    void bytes(uint32_t id, std::span<const uint8_t> value) {
        std::ranges::copy(value, image_.begin() + offsets[*row_of(id)]);
    }
    void text(uint32_t id, const std::string& value) { bytes(id, padded(value, fields[*row_of(id)])); }
    /// "0x" and four digits, most significant byte first.
    void word(uint32_t id, const std::string& value) { bytes(id, bytes_of_hex(std::string_view(value).substr(2))); }

private:
    Bytes& image_;
};

Bytes mac_bytes(std::string text) {
    std::erase(text, ':');
    return bytes_of_hex(text);
}

void write_plain_texts(Writer& writer, const Json& values, bool oem) {
    for (const Field& field : fields) {
        if (field.key != nullptr && (field.padding == Padding::oem) == oem && values.contains(field.key))
            writer.text(field.id, values.at(field.key));
    }
}

constexpr std::size_t short_type_model_length = 7;
constexpr uint8_t long_form_bit = 0x40;

/// The format byte, and type/model and serial number in the fields that it selects.
void write_identity(Writer& writer, const Json& machine) {
    constexpr std::array<std::string_view, 3> formats{"11S", "8S", "11S and 8S"};
    const auto format = std::ranges::find(formats, machine.value("serial_number_format", "11S")) - formats.begin();
    const std::string type_model = machine.value("type_model", "");
    const bool is_long = type_model.size() > short_type_model_length;

    const auto format_byte = static_cast<uint8_t>(format | (is_long ? long_form_bit : 0));
    writer.bytes(id_serial_number_format, {&format_byte, 1});
    writer.text(is_long ? id_long_type_model : id_short_type_model, type_model);
    writer.text(is_long ? id_long_serial_number : id_short_serial_number, machine.value("serial_number", ""));
}

void write_numbers(Writer& writer, const Json& machine) {
    writer.word(id_version, machine.value("vpd_version", "0x0300"));
    writer.word(id_vpd, machine.value("vpd_id", "0x0000"));
    writer.word(id_pos, machine.value("pos_id", "0x0000"));

    const uint32_t iana = machine.value("iana", default_iana);
    writer.bytes(id_iana, Bytes{0, static_cast<uint8_t>(iana >> 16U), static_cast<uint8_t>(iana >> 8U),
                                static_cast<uint8_t>(iana)});

    std::string uuid = machine.value("uuid", "");
    std::erase(uuid, '-');
    writer.bytes(id_uuid, bytes_of_hex(uuid));
}

void write_lists(Writer& writer, const Json& machine) {
    uint32_t host_mac = id_first_host_mac;
    for (const std::string mac : machine.value("host_macs", Json::array())) writer.bytes(host_mac++, mac_bytes(mac));

    constexpr std::size_t port_mac_size = 8;  // two bytes stay zero
    Bytes port_macs;
    for (const std::string mac : machine.value("port_macs", Json::array())) {
        std::ranges::copy(mac_bytes(mac), std::back_inserter(port_macs));
        port_macs.resize((port_macs.size() + port_mac_size - 1) / port_mac_size * port_mac_size);
    }
    writer.bytes(id_port_macs, port_macs);

    uint32_t code_level = id_first_code_level;
    for (const std::string level : machine.value("code_levels", Json::array())) writer.text(code_level++, level);
}

void write_oem_identity(Writer& writer, const Json& machine) {
    if (!machine.contains("oem")) return;
    writer.word(id_pos_extension, "0xFFEE");
    write_plain_texts(writer, machine.at("oem"), true);
}

void write_raw_fields(Writer& writer, const Json& machine) {
    const Json given = machine.value("fields", Json::object());
    for (const auto& [number, digits] : given.items()) {
        const Json::json_pointer place = Json::json_pointer("/machine/fields") / number;
        uint32_t id = 0;
        std::from_chars(number.data(), number.data() + number.size(), id);
        const auto row = row_of(id);
        if (!row) throw DescriptionError(place, "The system VPD has no such field.");
        const Bytes value = bytes_of_hex(digits.get<std::string>());
        if (value.size() > fields[*row].size)
            throw DescriptionError(place, "The field has " + std::to_string(fields[*row].size) + " bytes.");
        writer.bytes(id, value);
    }
}

std::shared_ptr<Server> server_of(uint32_t instance) { return instance == 0 ? current_server() : nullptr; }

}  // namespace

SystemVpdImage system_vpd_image(const Json& machine) {
    SystemVpdImage image{Bytes(device_size), machine.value("unreadable", std::set<uint32_t>{})};
    Writer writer(image.bytes);
    write_identity(writer, machine);
    write_plain_texts(writer, machine, false);
    write_numbers(writer, machine);
    write_lists(writer, machine);
    write_oem_identity(writer, machine);
    write_raw_fields(writer, machine);
    return image;
}

uint32_t SystemVpd::field_size(uint32_t id) {
    const auto row = row_of(id);
    return row ? fields[*row].size : 0;
}

bool SystemVpd::read_field(uint32_t id, std::span<uint8_t> out) const {
    const auto row = row_of(id);
    if (!row || image_.unreadable.contains(id)) return false;
    return read(offsets[*row], out.first(std::min<std::size_t>(out.size(), fields[*row].size)));
}

bool SystemVpd::read(uint32_t offset, std::span<uint8_t> out) const {
    const std::scoped_lock lock(mutex_);
    if (!holds(offset, out.size())) return false;
    std::copy_n(image_.bytes.begin() + offset, out.size(), out.begin());
    return true;
}

bool SystemVpd::write(uint32_t offset, std::span<const uint8_t> bytes) {
    const std::scoped_lock lock(mutex_);
    if (!holds(offset, bytes.size())) return false;
    std::ranges::copy(bytes, image_.bytes.begin() + offset);
    return true;
}

bool SystemVpd::holds(uint32_t offset, std::size_t length) const {
    return offset <= image_.bytes.size() && length <= image_.bytes.size() - offset;
}

}  // namespace vpdd::host

using vpdd::host::SystemVpd;

extern "C" uint32_t c_vpd_read_field_size(uint32_t instance, uint32_t id) {
    return vpdd::host::server_of(instance) ? SystemVpd::field_size(id) : 0;
}

extern "C" int c_vpd_read_field(uint32_t instance, uint32_t id, uint32_t size, uint8_t* buffer) {
    const auto server = vpdd::host::server_of(instance);
    return server && buffer != nullptr && server->system_vpd.read_field(id, {buffer, size});
}

extern "C" uint8_t* c_vpd_read(uint32_t instance, uint32_t offset, uint32_t length, uint8_t* buffer) {
    const auto server = vpdd::host::server_of(instance);
    return server && buffer != nullptr && server->system_vpd.read(offset, {buffer, length}) ? buffer : nullptr;
}

extern "C" int c_vpd_write(uint32_t instance, uint32_t offset, uint32_t length, const uint8_t* buffer, int) {
    const auto server = vpdd::host::server_of(instance);
    return server && buffer != nullptr && server->system_vpd.write(offset, {buffer, length});
}
