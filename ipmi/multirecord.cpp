// SPDX-License-Identifier: Apache-2.0
#include "ipmi/multirecord.h"

#include <algorithm>
#include <cstring>

#include "base/log_line.h"
#include "base/text.h"
#include "ipmi/field_walk.h"
#include "ipmi/maker.h"

namespace {

// IPMI FRU 16.1: record header.
struct RecordHeader {
    uint8_t type, version, length, record_checksum, header_checksum;
};
constexpr uint32_t header_size = 5;
static_assert(sizeof(RecordHeader) == header_size);

constexpr uint8_t end_of_list = 0x80;
constexpr uint8_t oem_processor_record = 0xC0;
constexpr uint32_t oem_processor_decoded = 2;

RecordHeader read_header(const uint8_t* bytes) {
    RecordHeader header;
    std::memcpy(&header, bytes, header_size);
    return header;
}

bool is_all_zero(const RecordHeader& header) {
    return (header.type | header.version | header.length | header.record_checksum | header.header_checksum) == 0;
}

/// Deliberate order: the data first, by the length of a header that has not been verified.
bool checksums_are_right(const RecordHeader& header, const uint8_t* bytes) {
    const int data_sum = ipmi_fru_get_checksum(bytes + header_size, header.length);
    if (static_cast<uint8_t>(header.record_checksum + data_sum) != 0) {
        vpdd::log_text(vpdd::log_warning, "%s - Invalid fru multirec record checksum.\n", "process_multirec");
        return false;
    }
    const int header_sum = ipmi_fru_get_checksum(bytes, header_size);
    if (header_sum != 0) {
        vpdd::log_text(
            vpdd::log_warning,
            "%s - Invalid fru multirec header checksum. ID=%02X, V=%02X, l=%02X, rchk=%02X, hchk %02X != %02X",
            "process_multirec", header.type, header.version, header.length, header.record_checksum,
            header.header_checksum, static_cast<unsigned>(header_sum));
        return false;
    }
    return true;
}

/// `end` is null where the end is not known; a header of zeros, which no good record has, then ends the walk.
int walk_records(const uint8_t* position, const uint8_t* end, ComponentVpdRecord* record) {
    while (end == nullptr || position < end) {
        const RecordHeader header = read_header(position);
        if (end == nullptr && is_all_zero(header)) return 0;
        if (!checksums_are_right(header, position)) return -1;
        if (header.type == oem_processor_record &&
            process_zelt_oem_cpu_rec(position + header_size, header.length, &record->oem_cpu) == 0) {
            record->vpd_format = oem_processor_decoded;
        }
        if ((header.version & end_of_list) != 0) return 0;
        position += header_size + header.length;
    }
    return 0;
}

}  // namespace

namespace vpdd {

int process_multirecords(const uint8_t* first_header, const uint8_t* end, ComponentVpdRecord* record) {
    if (first_header == nullptr) return 0;
    return walk_records(first_header, end, record);
}

}  // namespace vpdd

extern "C" int process_multirec(const uint8_t* first_header, ComponentVpdRecord* record) {
    if (first_header == nullptr) return 0;
    return walk_records(first_header, nullptr, record);
}

extern "C" int process_zelt_oem_cpu_rec(const uint8_t* data, uint32_t length, OemCpuRecord* out) {
    if (length < vpdd::maker_iana_size) {
        vpdd::log_text(vpdd::log_warning, "%s - Invalid length encoding.\n", __func__);
        return -1;
    }
    const uint32_t iana = data[0] | static_cast<uint32_t>(data[1]) << 8U | static_cast<uint32_t>(data[2]) << 16U;
    if (iana != vpdd::maker_iana) {
        vpdd::log_text(vpdd::log_warning, "%s - Unexpected IANA 0x%02X%02X%02X.\n", __func__, data[2], data[1],
                       data[0]);
        return -1;
    }

    // Deliberate: the bound lies three bytes before the record's end.
    vpdd::FieldWalk walk(data + vpdd::maker_iana_size, data + length - vpdd::maker_iana_size, data + length);
    const vpdd::WalkedField index = walk.next();
    if (index.type == vpdd::field_binary && index.length == 1) out->index = static_cast<uint8_t>(index.data[0]);

    for (auto& slot : out->text) {
        vpdd::WalkedField field = walk.next();
        if (field.has_data()) vpdd::assign_text(slot, field.text(), field.length);
    }

    static_assert(vpdd::max_field_length < sizeof out->raw);
    const vpdd::WalkedField raw = walk.next();
    if (raw.has_data() && raw.type == vpdd::field_binary) {
        std::memset(out->raw, 0, sizeof out->raw);
        out->raw_length = raw.length;
        std::memcpy(out->raw, raw.data.data(), raw.length);
    }
    return 0;
}
