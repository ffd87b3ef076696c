// SPDX-License-Identifier: Apache-2.0
// The list of path and value pairs in the data of a paged transfer.
#include <algorithm>
#include <array>
#include <cstring>
#include <span>

#include "base/heap.h"
#include "base/log_line.h"
#include "base/text.h"
#include "orva_vpdd.h"
#include "property/tlv.h"

using namespace vpdd;

namespace {

constexpr int wrong_length = -1;
constexpr int bad_argument = -2;
constexpr int undecodable = -3;
constexpr int wrong_type = -4;
constexpr int no_memory = -4;

constexpr char format_name[] = "vpdd_format_all_properties";

int failure(int result, const char* text) {
    log_line(log_warning, format_name, "%s", text);
    return result;
}

int length_failure() { return failure(wrong_length, "the length of vpdd property is wrong.\n"); }

/// The TLV at the beginning of data. One that reaches behind the end of the data reads as if zeros followed.
class Tlv {
public:
    explicit Tlv(std::span<const uint8_t> data) : data_(data) {
        if (data.empty()) return;
        length_ = vpdd_path_size(data.front(), &type_);
        if (length_ >= data.size()) std::ranges::copy(data, completed_.begin());
    }

    uint32_t type() const { return type_; }
    /// Of the data behind the head; 0 also without a head.
    uint32_t length() const { return length_; }
    const uint8_t* bytes() const { return length_ < data_.size() ? data_.data() : completed_.data(); }
    std::span<const uint8_t> behind() const { return data_.subspan(std::min(data_.size(), std::size_t{1} + length_)); }

private:
    std::span<const uint8_t> data_;
    std::array<uint8_t, longest_string_tlv> completed_{};
    uint32_t type_ = 0;
    uint32_t length_ = 0;
};

/// Copies what a decoder makes of a TLV, without its terminator, into a zeroed field.
template <class T, class Element, std::size_t Size>
bool decode(int (*decoder)(const uint8_t*, T**, uint32_t*), const Tlv& tlv, Element (&field)[Size]) {
    static_assert(Size > longest_string);
    T* decoded = nullptr;
    uint32_t length = 0;
    if (decoder(tlv.bytes(), &decoded, &length) != 0) return false;
    const HeapBlock<T> owned(decoded);
    std::memcpy(field, decoded, length);
    return true;
}

int decode_path(const Tlv& path, VpddAllProperties& node) {
    if (path.length() == 0) return length_failure();
    if (path.type() != tlv_string) return failure(wrong_type, "the path is not string.\n");
    if (!decode(vpdd_tlv2string, path, node.path)) return failure(undecodable, "vpdd_tlv2string error.\n");
    return 0;
}

int decode_value(const Tlv& value, VpddAllProperties& node) {
    if (value.length() == 0) return length_failure();
    node.type = value.type();
    node.length = value.length();
    if (value.type() != tlv_string && value.type() != tlv_bytes) {
        return failure(wrong_type, "the type of value is not correct.\n");
    }
    if (value.type() == tlv_string) {
        if (!decode(vpdd_tlv2string, value, node.value)) return failure(undecodable, "vpdd_tlv2string error.\n");
        return 0;
    }
    if (!decode(vpdd_tlv2byte, value, node.value)) return failure(undecodable, "vpdd_tlv2byte error.\n");
    return 0;
}

/// Links one node for each pair behind `*link`; after a failure the whole ones stay linked.
int append_pairs(std::span<const uint8_t> data, VpddAllProperties** link) {
    while (!data.empty()) {
        HeapBlock<VpddAllProperties> node = allocate_zeroed<VpddAllProperties>();
        if (node == nullptr) return no_memory;
        const Tlv path(data);
        int result = decode_path(path, *node);
        if (result != 0) return result;
        const Tlv value(path.behind());
        result = decode_value(value, *node);
        if (result != 0) return result;

        data = value.behind();
        *link = node.release();
        link = &(*link)->next;
    }
    return 0;
}

}  // namespace

extern "C" int vpdd_format_all_properties(const uint8_t* data, uint32_t length, VpddAllProperties** list_out) {
    if (list_out != nullptr) *list_out = nullptr;
    if (list_out == nullptr || data == nullptr) return failure(bad_argument, "the para is error.\n");
    const int result = append_pairs({data, length}, list_out);
    if (result != 0) freeVpddAllProperites(list_out);
    return result;
}

extern "C" void freeVpddAllProperites(VpddAllProperties** head) {
    if (head == nullptr) return;
    while (*head != nullptr) {
        const HeapBlock<VpddAllProperties> node(*head);
        *head = node->next;
    }
}
