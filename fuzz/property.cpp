// SPDX-License-Identifier: Apache-2.0
// Property TLVs, and the controller's answers to queries of one property and of all properties below a path.
// Input: options, then TLVs or answers (answers.h). Options: bits 0 and 1 choose TLVs, single properties, or pages; the
// others choose the firmware image.
#include <array>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "fuzz/answers.h"

using namespace vpdd::fuzz;

namespace {

constexpr std::array<const char*, 8> images{"orva", "orva2_backup", "orva3_backup", "orva3_primary_pending",
                                            "uefi", "nexol",        "qsv",          "unknown"};

struct Free {
    void operator()(void* block) const { std::free(block); }
};

template <class T>
void decode(int (*decoder)(const uint8_t*, T**, uint32_t*), const uint8_t* tlv) {
    T* value = nullptr;
    uint32_t length = 0;
    const int result = decoder(tlv, &value, &length);
    const std::unique_ptr<T, Free> owned(value);
    require((result == 0) == (value != nullptr), "a value without success");
}

/// Each TLV in a block of the size that its head announces. Of a head with several type bits every decoder looks at
/// its own one: the block holds the longest of what they take.
void decode_each(std::span<const uint8_t> bytes) {
    Input input(bytes);
    while (!input.is_empty()) {
        Bytes tlv{input.byte()};
        uint32_t type = 0;
        const uint32_t announced = vpdd_path_size(tlv[0], &type);
        const bool is_string = (tlv[0] & 0x80) != 0;
        const auto data = input.take(is_string ? announced : 16);
        tlv.insert(tlv.end(), data.begin(), data.end());
        tlv.resize(1 + (is_string ? std::max(announced, 16U) : 16));
        tlv.shrink_to_fit();
        decode(vpdd_tlv2string, tlv.data());
        decode(vpdd_tlv2byte, tlv.data());
        decode(vpdd_tlv2word, tlv.data());
    }
}

/// `data` in a block of exactly its size.
void format(const Bytes& data) {
    VpddAllProperties* list = nullptr;
    const int result = vpdd_format_all_properties(data.data(), static_cast<uint32_t>(data.size()), &list);
    require(result == 0 || list == nullptr, "a list without success");
    for (const VpddAllProperties* property = list; property != nullptr; property = property->next) {
        require(property->length < sizeof property->value, "a property's length");
        require(strnlen(property->path, sizeof property->path) < sizeof property->path, "a path's end");
    }
    freeVpddAllProperites(&list);
}

void read_single(const char* image) {
    const auto firmware = std::make_unique<FirmwareVpd>();
    GetFirmwareVPD(nullptr, 0, image, firmware.get());
    const auto require_ended = [](const auto& text) { require(strnlen(text, sizeof text) < sizeof text, "a text"); };
    require_ended(firmware->name);
    require_ended(firmware->build_id);
    require_ended(firmware->build_date);
    require_ended(firmware->build_version);

    uint32_t length = 0;
    Bytes text(127);  // the longest value
    text.shrink_to_fit();
    GetStringPropertyViaVpdd(&length, 0, "/v2/text", text.data());
    GetBytePropertyViaVpdd(&length, 0, "/v2/bytes", text.data());
}

void read_pages() {
    uint8_t* data = nullptr;
    uint32_t length = 0;
    if (vpdd_get_properties("/v2", &data, &length) == 0 && length > 0) format({data, data + length});
    std::free(data);

    for (uint8_t id = 19; id <= 26; ++id) world().fields[id] = Bytes(8, id < 21 ? id : 0);
    vpdd_property_change_cache("/ac/zeltc/lom-active");
    vpdd_property_change_cache("/ac/zeltc/xlom-active");
    for (const auto& mac : host_mac_cache) require(strnlen(mac, sizeof mac) < sizeof mac, "a MAC's end");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
    Input input({data, size});
    const uint8_t options = input.byte();
    const auto bytes = input.rest();

    const Round round;
    AnswerReader answers(bytes, false);
    world().answer_ipmi = [&](const IpmiCall&) { return answers.ipmi(); };
    switch (options & 3U) {
        case 0:
            decode_each(bytes);
            if (!bytes.empty()) format({bytes.begin(), bytes.end()});
            break;
        case 1:
            read_single(images[options >> 2U & 7U]);
            break;
        default:
            read_pages();
            break;
    }
    world().answer_ipmi = nullptr;
    return 0;
}
