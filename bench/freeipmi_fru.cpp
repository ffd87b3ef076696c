// SPDX-License-Identifier: Apache-2.0
#include "bench/freeipmi_fru.h"

#include <freeipmi/freeipmi.h>

#include <cstdio>
#include <cstdlib>
#include <initializer_list>

namespace vpdd::bench {

namespace {

constexpr unsigned custom_fields = 8;

/// One open image.
class Parser {
public:
    explicit Parser(const Bytes& image) : context_(ipmi_fru_ctx_create(nullptr)) {
        if (context_ != nullptr &&
            ipmi_fru_open_device_id_with_buffer(context_, image.data(), static_cast<unsigned>(image.size())) == 0) {
            return;
        }
        std::fprintf(stderr, "freeipmi: %s\n", ipmi_fru_ctx_errormsg(context_));
        std::exit(EXIT_FAILURE);
    }
    ~Parser() { ipmi_fru_ctx_destroy(context_); }
    Parser(const Parser&) = delete;
    Parser& operator=(const Parser&) = delete;

    void walk() {
        do {
            read_area();
        } while (ipmi_fru_next(context_) == 1);
    }

private:
    void read_area() {
        unsigned type = 0;
        unsigned length = 0;
        if (ipmi_fru_read_data_area(context_, &type, &length, area_, sizeof area_) < 0 || length == 0) return;
        if (type == IPMI_FRU_AREA_TYPE_BOARD_INFO_AREA) read_board(length);
        if (type == IPMI_FRU_AREA_TYPE_PRODUCT_INFO_AREA) read_product(length);
        if (type == IPMI_FRU_AREA_TYPE_MULTIRECORD_OEM) read_oem_record(length);
    }

    void read_board(unsigned length) {
        uint8_t language = 0;
        uint32_t made = 0;
        ipmi_fru_field_t maker, product, serial, part, file_id, custom[custom_fields];
        ipmi_fru_board_info_area(context_, area_, length, &language, &made, &maker, &product, &serial, &part, &file_id,
                                 custom, custom_fields);
        for (const ipmi_fru_field_t* field : {&maker, &serial, &part, &custom[0]}) make_text(*field, language);
    }

    void read_product(unsigned length) {
        uint8_t language = 0;
        ipmi_fru_field_t maker, name, model, version, serial, asset_tag, file_id, custom[custom_fields];
        ipmi_fru_product_info_area(context_, area_, length, &language, &maker, &name, &model, &version, &serial,
                                   &asset_tag, &file_id, custom, custom_fields);
        for (const ipmi_fru_field_t* field : {&maker, &model, &version, &serial}) make_text(*field, language);
    }

    void read_oem_record(unsigned length) {
        uint32_t maker = 0;
        uint8_t data[IPMI_FRU_AREA_TYPE_LENGTH_FIELD_MAX];
        unsigned data_length = sizeof data;
        ipmi_fru_multirecord_oem_record(context_, area_, length, &maker, data, &data_length);
    }

    void make_text(const ipmi_fru_field_t& field, uint8_t language) {
        if (field.type_length_field_length == 0) return;
        char text[IPMI_FRU_AREA_STRING_MAX + 1];
        unsigned length = sizeof text;
        ipmi_fru_type_length_field_to_string(context_, field.type_length_field, field.type_length_field_length,
                                             language, text, &length);
    }

    ipmi_fru_ctx_t context_;
    uint8_t area_[IPMI_FRU_AREA_SIZE_MAX];
};

}  // namespace

void decode_with_freeipmi(const Bytes& image) { Parser(image).walk(); }

}  // namespace vpdd::bench
