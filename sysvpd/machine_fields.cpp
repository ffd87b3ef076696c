// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>

#include "base/log_line.h"
#include "base/text.h"
#include "ipmi/field_walk.h"
#include "ipmi/fru_image.h"
#include "orva_vpdd.h"
#include "platform/configuration.h"

namespace {

constexpr uint8_t machine_fru = 0;
constexpr unsigned retry_wait = 10;  // seconds
constexpr int retries = 3;

constexpr int fru_unreadable = -9;

// IPMI FRU 12: product info area.
constexpr int product_first_field = 3;
constexpr int fields_before_file_id = 6;

constexpr char fields_name[] = "GetMachineFields";

/// The labels of the first pairs are published.
constexpr std::array<const char*, 2> label_variables{
    "tarn_str_machine_vpd_oem_MTM_LABEL",
    "tarn_str_machine_vpd_oem_serial_number_LABEL",
};

void wait_for_ipmi() {
    int result = test_ipmi_stack();
    for (int retry = 0; result != 0 && retry < retries; ++retry) {
        sleep(retry_wait);
        vpdd::log_line(vpdd::log_warning, fields_name, "IPMI stack isn't ready yet..\n");
        result = test_ipmi_stack();
    }
    if (result != 0) {
        vpdd::log_line(vpdd::log_warning, fields_name, "Wait IPMI stack timeout.. ,execute anyway..\n");
    }
}

/// A text of a pair on its way to the record. It keeps what it held when a field has no data, and deliberately also the
/// tail of a longer text.
class Staging {
public:
    void take(const vpdd::WalkedField& field) {
        std::memcpy(characters_, field.data.data(), std::min<std::size_t>(field.length, limit));
    }
    std::string_view text() const { return vpdd::bounded_view(characters_, limit); }

private:
    static constexpr std::size_t limit = sizeof(MachineFieldPair::label) - 1;
    char characters_[limit + 1] = {};
};

bool read_image(vpdd::FruImage& image, uint32_t size) {
    if (!image.allocate(size)) {
        vpdd::log_text(vpdd::log_warning, "%s(%d) - calloc FRU data fail\n", fields_name, __LINE__);
        return false;
    }
    const vpdd::FruImage::ReadEnd end = image.read(machine_fru, size);
    if (end.result == 0) return true;
    vpdd::log_text(vpdd::log_warning, "%s(%d) Read SYSVPD FRU fail! fru_left=%d, offset=%d\n", fields_name, __LINE__,
                   static_cast<int>(end.remaining), static_cast<int>(end.offset));
    return false;
}

/// Walks over the standard fields to the first custom one.
void decode_product(const uint8_t* product, const vpdd::FruImage& image, uint8_t* record) {
    vpdd::FieldWalk walk(product + product_first_field, image.end());
    walk.skip(fields_before_file_id);
    const uint8_t* const file_id = walk.position();
    if (walk.next().has_data()) {
        vpdd::log_text(vpdd::log_warning,
                       "%s(%d) File ID is not empty, either BMC version upgraded or FRU error ! fru_size=%d, file id "
                       "type length=%d\n",
                       fields_name, __LINE__, static_cast<int>(image.size()), *file_id);
    }
    process_oemfields(walk.position(), image.end(), record);
}

}  // namespace

extern "C" int GetMachineFields(uint32_t* out_length, uint32_t /*capacity*/, uint32_t /*reserved*/, uint8_t* record) {
    if (record == nullptr) {
        vpdd::log_line(vpdd::log_warning, __func__, "response buffer is null.\n");
        return -1;
    }
    std::memset(record, 0, sizeof(MachineFieldsRecord));
    wait_for_ipmi();

    uint32_t size = 0;
    if (read_fru_size(machine_fru, &size) != 0) {
        vpdd::log_line(vpdd::log_warning, __func__, "FRU read size error.. \n");
        return fru_unreadable;
    }
    vpdd::FruImage image;
    if (!read_image(image, size)) return fru_unreadable;

    FruAreaPointers areas{};
    parse_fru_header(image.bytes(), &areas);
    if (areas.product == nullptr) {
        vpdd::log_text(vpdd::log_warning,
                       "%s(%d) product area empty, either BMC version upgraded or FRU error ! fru_size=%d, "
                       "product=%p\n",
                       __func__, __LINE__, static_cast<int>(size), static_cast<const void*>(areas.product));
    } else {
        decode_product(areas.product, image, record);
        if (out_length != nullptr) *out_length = sizeof(MachineFieldsRecord);
    }
    std::printf("--> leave %s\n", __func__);
    return 0;
}

extern "C" int process_oemfields(const uint8_t* first_custom_field, const uint8_t* end, uint8_t* record) {
    auto& pairs = reinterpret_cast<MachineFieldsRecord*>(record)->pairs;
    vpdd::FieldWalk walk(first_custom_field, end);
    Staging label;
    Staging value;
    for (std::size_t i = 0; i < std::size(pairs); ++i) {
        label.take(walk.next());
        value.take(walk.next());
        // Deliberate: behind the end of the fields every further pair receives the last texts.
        vpdd::assign_text(pairs[i].label, label.text());
        vpdd::assign_text(pairs[i].value, value.text());
        if (i < label_variables.size()) tarn_config_set_str(label_variables[i], pairs[i].label, 1);
    }
    return 0;
}
