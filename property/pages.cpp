// SPDX-License-Identifier: Apache-2.0
// All properties below a path, which the controller hands out page by page.
#include <cstring>
#include <span>
#include <utility>

#include "base/byte_view.h"
#include "base/heap.h"
#include "base/log_line.h"
#include "ipmi/request.h"
#include "orva_vpdd.h"
#include "property/tlv.h"

using namespace vpdd;

namespace {

constexpr uint8_t get_properties = 0xC4;  // below netfn_oem

constexpr int bad_argument = -1;
constexpr int deeper_page_failed = -1;
constexpr int ipmi_failed = -2;
constexpr int unexpected_answer = -3;
constexpr int wrong_key = -5;
constexpr int no_memory = -6;

constexpr char transfer_name[] = "vpdd_get_all_properties";

struct PageRequest {
    uint8_t constant_2;
    uint8_t constant_0;
    uint8_t key_size_and_1;
    uint8_t constant_1;
    uint8_t key[longest_string_tlv];
};
constexpr std::size_t request_head_size = offsetof(PageRequest, key);
static_assert(request_head_size == 4);

struct PageAnswer {
    uint8_t completion_code;
    uint8_t status;
    uint8_t length[2];  // big-endian; counts the handle and the data
    uint8_t handle;
    uint8_t data[251];
};
static_assert(sizeof(PageAnswer) == 256);

enum PageStatus : uint8_t { more_pages = 0, nothing = 8, last_page = 9 };

// Ends a transfer whose controller never says that a page is the last one. The handles cannot tell: a controller may
// use one for the whole transfer. This many pages hold a megabyte, and no controller keeps that much in properties.
constexpr uint32_t most_pages = 4096;

/// The data of the pages so far.
class PageData {
public:
    /// False when there is no memory; what was there stays.
    bool append(std::span<const uint8_t> page) {
        if (page.empty()) return true;
        auto* const grown = static_cast<uint8_t*>(std::realloc(data_.get(), length_ + page.size()));
        if (grown == nullptr) return false;
        static_cast<void>(data_.release());  // freed by realloc
        data_.reset(grown);
        std::memcpy(grown + length_, page.data(), page.size());
        length_ += static_cast<uint32_t>(page.size());
        return true;
    }

    uint32_t length() const { return length_; }
    uint8_t* release() { return data_.release(); }

private:
    HeapBlock<uint8_t> data_;
    uint32_t length_ = 0;
};

int request_page(const uint8_t* key, PageAnswer& answer) {
    uint32_t type = 0;
    const uint32_t key_size = 1 + vpdd_path_size(*key, &type);
    if (type != tlv_string && type != tlv_bytes) {
        log_line(log_warning, transfer_name, "the type of vpdd_tlv is error.\n");
        return wrong_key;
    }
    PageRequest data{0x02, 0x00, static_cast<uint8_t>(key_size + 1), 0x01, {}};
    std::memcpy(data.key, key, key_size);

    const std::span sent(reinterpret_cast<const uint8_t*>(&data), request_head_size + key_size);
    const std::span received(reinterpret_cast<uint8_t*>(&answer), sizeof answer);
    if (carry_out(netfn_oem, get_properties, sent, received) == 0) return 0;
    log_line(log_warning, transfer_name, "IPMI didn't complete.\n");
    return ipmi_failed;
}

/// Whether the answer is a page with data that it has room for.
bool is_page(const PageAnswer& answer) {
    const uint32_t length = big_endian_16(answer.length);
    return (answer.status == more_pages || answer.status == last_page) && length >= sizeof answer.handle &&
           length <= sizeof answer.handle + sizeof answer.data;
}

/// Adds the page of this key. `next_key` stays null when it was the last one.
int transfer_page(const uint8_t* key, PageData& data, HeapBlock<uint8_t>& next_key) {
    PageAnswer answer{};  // what a short answer lacks is zero
    const int result = request_page(key, answer);
    if (result != 0) return result;
    if (answer.status == nothing) return 0;
    if (!is_page(answer)) {
        log_line(log_warning, transfer_name, "IPMI didn't return correctly.\n");
        return unexpected_answer;
    }
    if (!data.append(std::span(answer.data).first(big_endian_16(answer.length) - sizeof answer.handle))) {
        log_line(log_warning, transfer_name, "cannot allocate the space.\n");
        return no_memory;
    }
    if (answer.status == last_page) return 0;

    uint8_t* tlv = nullptr;
    if (vpdd_byte2tlv(&answer.handle, &tlv, sizeof answer.handle) != 0) {
        log_line(log_warning, transfer_name, "byte2tlv error.\n");
        return bad_argument;
    }
    next_key.reset(tlv);
    return 0;
}

int transfer(const uint8_t* first_key, PageData& data) {
    HeapBlock<uint8_t> next_key;
    const int result = transfer_page(first_key, data, next_key);
    if (result != 0) return result;

    for (uint32_t pages = 1; next_key != nullptr; ++pages) {
        if (pages == most_pages) {
            log_line(log_warning, transfer_name, "IPMI didn't return correctly.\n");
            return deeper_page_failed;
        }
        const HeapBlock<uint8_t> key = std::exchange(next_key, nullptr);
        // Deliberate: whatever fails on a page behind the first one.
        if (transfer_page(key.get(), data, next_key) != 0) return deeper_page_failed;
    }
    return 0;
}

void clear_outputs(uint8_t** data_out, uint32_t* length_out) {
    if (data_out != nullptr) *data_out = nullptr;
    if (length_out != nullptr) *length_out = 0;
}

}  // namespace

extern "C" int vpdd_get_all_properties(const uint8_t* key_tlv, uint8_t** data_out, uint32_t* length_out) {
    clear_outputs(data_out, length_out);
    if (key_tlv == nullptr || data_out == nullptr || length_out == nullptr) return bad_argument;
    PageData data;
    const int result = transfer(key_tlv, data);
    if (result != 0) return result;
    *length_out = data.length();
    *data_out = data.release();
    return 0;
}

extern "C" int vpdd_get_properties(const char* path, uint8_t** data_out, uint32_t* length_out) {
    clear_outputs(data_out, length_out);
    uint8_t* tlv = nullptr;
    if (vpdd_string2tlv(path, &tlv) != 0) return -1;
    const HeapBlock<uint8_t> key(tlv);
    return vpdd_get_all_properties(key.get(), data_out, length_out) == 0 ? 0 : -1;
}
