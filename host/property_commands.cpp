// SPDX-License-Identifier: Apache-2.0
#include "host/property_commands.h"

#include <unistd.h>

#include <algorithm>

#include "host/server.h"

namespace vpdd::host {

namespace {

constexpr uint8_t no_such_property = 0x80;  // status of a single property

enum class PageStatus : uint8_t { more_follow = 0, nothing = 8, last = 9 };

// Property TLVs: the head byte has the type in its high bits and the length in its low ones.
constexpr uint8_t string_type = 0x80, string_length = 0x7F;
constexpr uint8_t handle_head = 0x11;  // one byte

std::optional<std::string> text_of(Request tlv) {
    if (tlv.empty() || (tlv[0] & string_type) == 0) return {};
    const std::size_t length = tlv[0] & string_length;
    if (length == 0 || tlv.size() != length + 1) return {};
    return std::string(tlv.begin() + 1, tlv.end());
}

void delay(const PropertyFault* fault) {
    constexpr uint32_t microseconds_in_millisecond = 1000;
    if (fault != nullptr && fault->delay > 0) usleep(fault->delay * microseconds_in_millisecond);
}

void append_big_endian(Bytes& bytes, std::size_t word) {
    bytes.push_back(static_cast<uint8_t>(word >> 8U));
    bytes.push_back(static_cast<uint8_t>(word));
}

/// Enterprise number, status, length, value.
Response property_response(Request enterprise_number, uint8_t status, const Bytes& value) {
    Response response{completed, Bytes(enterprise_number.begin(), enterprise_number.end())};
    response.data.push_back(status);
    append_big_endian(response.data, value.size());
    response.data.insert(response.data.end(), value.begin(), value.end());
    return response;
}

Response page_response(PageStatus status) { return {completed, {static_cast<uint8_t>(status), 0, 0, 0}}; }

Response page_of(Server& server, PropertyTransfer transfer) {
    const PropertyFault* const fault = transfer.fault;
    if (fault != nullptr && fault->page == transfer.page) {
        delay(fault);
        if (fault->completion_code) return {*fault->completion_code};
        if (fault->status) return page_response(PageStatus{*fault->status});
    }
    const Bytes& pairs = *transfer.pairs;
    if (pairs.empty()) return page_response(PageStatus::nothing);

    const std::size_t begin = transfer.offset;
    const std::size_t end = std::min(begin + server.description.properties.page_size, pairs.size());
    const bool is_last = end == pairs.size();
    transfer.offset = end;
    ++transfer.page;
    const uint8_t handle = is_last ? uint8_t{0} : server.property_transfers.keep(transfer);

    const auto status = is_last ? PageStatus::last : PageStatus::more_follow;
    Response response{completed, {static_cast<uint8_t>(status)}};
    append_big_endian(response.data, end - begin + sizeof handle);
    response.data.push_back(handle);
    response.data.insert(response.data.end(), pairs.begin() + static_cast<std::ptrdiff_t>(begin),
                         pairs.begin() + static_cast<std::ptrdiff_t>(end));
    return response;
}

}  // namespace

uint8_t PropertyTransfers::keep(PropertyTransfer transfer) {
    const std::scoped_lock lock(mutex_);
    transfers_[next_handle_] = std::move(transfer);
    return next_handle_++;
}

std::optional<PropertyTransfer> PropertyTransfers::find(uint8_t handle) {
    const std::scoped_lock lock(mutex_);
    return transfers_[handle];
}

Response get_property(Server& server, Request request) {
    constexpr std::size_t header_length = 6;  // enterprise number (3), two zeros, size of the path's TLV
    if (request.size() <= header_length || request.size() != header_length + request[5])
        return {request_length_invalid};
    const auto path = text_of(request.subspan(header_length));
    if (!path) return {invalid_data_field};

    const Request enterprise_number = request.first(3);
    const PropertyTree& tree = server.description.properties;
    const PropertyFault* const fault = tree.fault(*path);
    delay(fault);
    if (fault != nullptr && fault->completion_code) return {*fault->completion_code};
    if (fault != nullptr && fault->status) return property_response(enterprise_number, *fault->status, {});
    const auto value = tree.values.find(*path);
    if (value == tree.values.end()) return property_response(enterprise_number, no_such_property, {});
    return property_response(enterprise_number, completed, value->second);
}

Response get_properties(Server& server, Request request) {
    constexpr std::size_t header_length = 4;  // 0x02, 0x00, size of the key's TLV plus one, 0x01
    if (request.size() <= header_length || request.size() != header_length + request[2] - 1U)
        return {request_length_invalid};
    const Request key = request.subspan(header_length);
    if (key[0] == handle_head && key.size() == 2) {
        const auto transfer = server.property_transfers.find(key[1]);
        return transfer ? page_of(server, *transfer) : Response{invalid_data_field};
    }
    const auto path = text_of(key);
    if (!path) return {invalid_data_field};
    const PropertyTree& tree = server.description.properties;
    return page_of(server, {std::make_shared<const Bytes>(tree.below(*path)), 0, 1, tree.fault(*path)});
}

}  // namespace vpdd::host
