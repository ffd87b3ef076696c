// SPDX-License-Identifier: Apache-2.0
// One property of the management controller by its path.
#include "property/query.h"

#include <atomic>
#include <cstdio>
#include <cstring>
#include <span>

#include "base/log_line.h"
#include "base/scoped_lock.h"
#include "ipmi/maker.h"
#include "ipmi/request.h"
#include "orva_vpdd.h"

using namespace vpdd;

namespace {

constexpr uint8_t get_property = 0x32;  // below netfn_oem_group

constexpr int bad_argument = -1;
constexpr int ipmi_failed = -2;
constexpr int no_value = -3;
constexpr int undecodable = -4;

constexpr char single_query[] = "vpdd_get_single_property";

struct PropertyRequest {
    uint8_t maker[maker_iana_size];  // least significant byte first
    uint8_t reserved[2];             // zero
    uint8_t path_size;
    uint8_t path[longest_string_tlv];
};
constexpr std::size_t request_head_size = offsetof(PropertyRequest, path);
static_assert(request_head_size == 6);

struct PropertyAnswer {
    uint8_t completion_code;
    uint8_t maker[maker_iana_size];  // deliberately not checked
    uint8_t status;
    uint8_t length_high;
    uint8_t length_low;
    uint8_t value[249];
};
static_assert(sizeof(PropertyAnswer) == 256);
static_assert(sizeof(PropertyAnswer::value) >= longest_string_tlv, "no value reaches behind the answer");

/// What was last logged of refused properties: a refusal that comes again and again is logged once. All threads share
/// it without a lock, so each character is read and written by itself; the last one stays the terminator.
class LastRefusal {
public:
    /// Whether the text is another one than before; it is remembered.
    bool changes_to(const char* text) {
        bool is_other = false;
        for (std::size_t i = 0; i + 1 < std::size(characters_); ++i) {
            if (characters_[i].load(std::memory_order_relaxed) != text[i]) {
                characters_[i].store(text[i], std::memory_order_relaxed);
                is_other = true;
            }
            if (text[i] == '\0') break;
        }
        return is_other;
    }

private:
    std::atomic<char> characters_[1024] = {};
};

constinit LastRefusal last_refusal;

void log_refusal(uint8_t status, const uint8_t* path_tlv) {
    char text[1024];
    std::snprintf(text, sizeof text, "pid=%d, %s - Invalid Response [4](%x), property(%.*s).\n", getpid(), single_query,
                  status, static_cast<int>(string_length(*path_tlv)), reinterpret_cast<const char*>(path_tlv + 1));
    if (last_refusal.changes_to(text)) log_text(log_warning, "%s", text);
}

int send(const uint8_t* path_tlv, PropertyAnswer& answer) {
    const uint32_t path_size = 1 + string_length(*path_tlv);
    PropertyRequest data{};
    for (uint32_t i = 0; i < maker_iana_size; ++i) data.maker[i] = static_cast<uint8_t>(maker_iana >> 8U * i);
    data.path_size = static_cast<uint8_t>(path_size);
    std::memcpy(data.path, path_tlv, path_size);

    const std::span sent(reinterpret_cast<const uint8_t*>(&data), request_head_size + path_size);
    const std::span received(reinterpret_cast<uint8_t*>(&answer), sizeof answer);
    return carry_out(netfn_oem_group, get_property, sent, received);
}

template <class T>
int decode(int (*decoder)(const uint8_t*, T**, uint32_t*), const char* name, const uint8_t* tlv, Property& property) {
    T* value = nullptr;
    if (decoder(tlv, &value, &property.length) != 0) {
        log_line(log_warning, single_query, "TLV 2 %s Failed, First Byte = 0x%02x.\n", name, *tlv);
        return undecodable;
    }
    property.value.reset(value);
    return 0;
}

int decode_value(const uint8_t* tlv, Property& property) {
    property.type = check_property_type(tlv);
    switch (property.type) {
        case tlv_words:
            return decode(vpdd_tlv2word, "WORD", tlv, property);
        case tlv_string:
            return decode(vpdd_tlv2string, "String", tlv, property);
        case tlv_bytes:
            return decode(vpdd_tlv2byte, "Byte", tlv, property);
        default:
            log_line(log_warning, single_query, "Invalid BMC property head(%x).\n", *tlv);
            return bad_argument;
    }
}

int query(const uint8_t* path_tlv, Property& property) {
    PropertyAnswer answer{};  // what a short answer lacks is zero
    if (send(path_tlv, answer) != 0) {
        log_line(log_warning, single_query, "Send IPMI Command Failed.\n");
        return ipmi_failed;
    }
    if (answer.status != 0) {
        log_refusal(answer.status, path_tlv);
        return no_value;
    }
    if (answer.length_low == 0) {  // deliberate: the high byte does not count
        log_line(log_warning, single_query, "Invalid firmware property length(%x%x).\n", answer.length_high,
                 answer.length_low);
        return no_value;
    }
    return decode_value(answer.value, property);
}

enum class Stripping { none, blanks };

int copy_property(Stripping stripping, const char* path, void* dest, uint32_t* length_out) {
    if (dest == nullptr || length_out == nullptr) return -1;
    Property property;
    const int result = read_property(path, property);
    *length_out = property.length;
    if (result != 0) return result;
    if (stripping == Stripping::blanks && property.is_terminated()) trim_string(property.text());
    // Deliberate: the length from before the stripping, without a terminator, and of a words value as many bytes as
    // there are words.
    std::memcpy(dest, property.value.get(), property.length);
    return 0;
}

}  // namespace

int vpdd::read_property(const char* path, Property& property) {
    const ScopedLock lock(compvpd_getproperty_mutex);
    uint8_t* tlv = nullptr;
    if (vpdd_string2tlv(path, &tlv) != 0) {
        log_line(log_warning, "vpdd_get_property", "String 2 TLV Failed\n");
        return -1;
    }
    const HeapBlock<uint8_t> path_tlv(tlv);
    return query(path_tlv.get(), property) == 0 ? 0 : -1;
}

extern "C" int vpdd_get_single_property(const uint8_t* path_tlv, void** value_out, uint32_t* length_out) {
    if (path_tlv == nullptr || value_out == nullptr || length_out == nullptr) return bad_argument;
    Property property;
    const int result = query(path_tlv, property);
    *length_out = property.length;
    *value_out = property.value.release();
    return result;
}

extern "C" int vpdd_get_property(const char* path, void** value_out, uint32_t* length_out) {
    if (value_out == nullptr || length_out == nullptr) return -1;
    Property property;
    const int result = read_property(path, property);
    *length_out = property.length;
    *value_out = property.value.release();
    return result;
}

extern "C" int GetStringPropertyViaVpdd(uint32_t* length_out, uint32_t /*size*/, const char* path, void* dest) {
    const ScopedLock lock(compvpd_getstringproperty_mutex);
    return copy_property(Stripping::blanks, path, dest, length_out);
}

extern "C" int GetBytePropertyViaVpdd(uint32_t* length_out, uint32_t /*size*/, const char* path, void* dest) {
    const ScopedLock lock(compvpd_getbyteproperty_mutex);
    return copy_property(Stripping::none, path, dest, length_out);
}
