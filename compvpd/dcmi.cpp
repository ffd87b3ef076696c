// SPDX-License-Identifier: Apache-2.0
#include "base/heap.h"
#include "base/log_line.h"
#include "ipmi/field_walk.h"
#include "ipmi/fru_image.h"
#include "orva_vpdd.h"
#include "platform/configuration.h"

namespace {

constexpr uint8_t system_fru = 0;
constexpr uint32_t usual_size = 256;

// IPMI FRU 12: product info area.
constexpr int product_language = 2;
constexpr int product_first_field = 3;
constexpr int fields_before_asset_tag = 5;

void publish(const uint8_t* product, const uint8_t* end) {
    vpdd::FieldWalk walk(product + product_first_field, end);
    walk.skip(fields_before_asset_tag);
    const uint8_t* asset_tag = walk.position();
    const int32_t type = asset_tag != nullptr ? *asset_tag >> 6U : vpdd::field_binary;
    tarn_config_set_int("fru_product_asset_tl_type", type, 1);
    tarn_config_set_int("fru_product_lang_code", product[product_language], 1);
}

}  // namespace

extern "C" int UpdateFRUID0InfoToTARNForDCMI() {
    // The block is not used: it probes that memory for one more component can be had.
    const auto scratch = vpdd::allocate_zeroed<ComponentVpdNode>();
    if (scratch == nullptr) {
        vpdd::log_text(vpdd::log_warning, "pid=%d,%s - ERROR:Allocate memory failed", getpid(), __func__);
        return -1;
    }
    uint32_t size = 0;
    if (read_fru_size(system_fru, &size) != 0) {
        vpdd::log_text(vpdd::log_warning, "%s(%d) - Failed to call read_fru_size()!", __func__, __LINE__);
        return -1;
    }
    if (size > usual_size) {
        vpdd::log_text(vpdd::log_warning, "%s(%d) - FRU size is larger than 256, fru_size=%d", __func__, __LINE__,
                       static_cast<int>(size));
    }
    vpdd::FruImage image;
    if (!image.allocate(size > usual_size ? size : usual_size)) {
        vpdd::log_text(vpdd::log_warning, "%s(%d) - realloc FRU data fail", __func__, __LINE__);
        return -1;
    }
    if (image.read(system_fru, size).result != 0) return -1;

    FruAreaPointers areas{};
    parse_fru_header(image.bytes(), &areas);
    if (areas.product != nullptr) publish(areas.product, image.end());
    return 0;
}
