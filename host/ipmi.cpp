// SPDX-License-Identifier: Apache-2.0
// The IPMI stack: a table of the commands that this controller knows, unless the server has a BMC of its own.
#include <algorithm>
#include <array>
#include <optional>
#include <span>

#include "host/ipmi_response.h"
#include "host/property_commands.h"
#include "host/server.h"
#include "platform/ipmi_stack.h"

namespace vpdd::host {

namespace {

/// The bytes from `offset` on, fewer than `count` at the end.
std::span<const uint8_t> part_of(std::span<const uint8_t> bytes, std::size_t offset, std::size_t count) {
    return bytes.subspan(offset, std::min(count, bytes.size() - offset));
}

Response get_device_id(Server& server, Request) {
    const uint32_t iana = server.description.iana;
    return {completed,
            {0x20,  // device id
             0x81,  // provides SDRs; revision 1
             0x01,  // firmware 1.0
             0x00,  //
             0x02,  // IPMI 2.0
             0x8F,  // chassis, FRU inventory, SEL, SDR repository, sensors
             static_cast<uint8_t>(iana), static_cast<uint8_t>(iana >> 8U), static_cast<uint8_t>(iana >> 16U), 0x01,
             0x00}};  // product id
}

Response run_initialization_agent(Server&, Request) {
    constexpr uint8_t initialization_completed = 0x01;
    return {completed, {initialization_completed}};
}

/// A FRU that is there, or null.
const Fru* find_fru(const Server& server, uint8_t id) {
    const auto fru = server.description.frus.find(id);
    return fru != server.description.frus.end() && fru->second.image ? &fru->second : nullptr;
}

Response get_fru_inventory_area_info(Server& server, Request request) {
    const Fru* fru = find_fru(server, request[0]);
    if (fru == nullptr) return {not_present};
    if (fru->fault.size_completion_code) return {*fru->fault.size_completion_code};
    const std::size_t size = fru->image->size();
    constexpr uint8_t accessed_by_bytes = 0;
    return {completed, {static_cast<uint8_t>(size), static_cast<uint8_t>(size >> 8U), accessed_by_bytes}};
}

void report_progress(Server& server, uint8_t fru_id, const Fru& fru) {
    if (server.options.progress == nullptr || !server.read_progress.is_first_read(fru_id)) return;
    server.options.progress(server.options.progress_context, fru_id, fru.position,
                            static_cast<uint32_t>(server.description.frus.size()));
}

Response read_fru_data(Server& server, Request request) {
    const uint8_t fru_id = request[0];
    const uint32_t offset = request[1] | static_cast<uint32_t>(request[2]) << 8U;
    const uint8_t count = request[3];

    const Fru* fru = find_fru(server, fru_id);
    if (fru == nullptr) return {not_present};
    report_progress(server, fru_id, *fru);
    if (fru->fault.read_completion_code && offset + count > fru->fault.read_from)
        return {*fru->fault.read_completion_code};
    if (offset >= fru->image->size()) return {offset_out_of_range};
    if (count + 2U > response_room) return {too_much_requested};

    const auto part = part_of(*fru->image, offset, count);
    Response response{completed, {static_cast<uint8_t>(part.size())}};
    response.data.insert(response.data.end(), part.begin(), part.end());
    return response;
}

Response read_system_vpd(Server& server, Request request) {
    constexpr uint8_t system_vpd_device = 0x10;
    const uint32_t offset = request[0] | static_cast<uint32_t>(request[1]) << 8U;
    const uint8_t count = request[3];
    if (request[2] != system_vpd_device) return {invalid_data_field};
    if (count + 1U > response_room) return {too_much_requested};

    Response response{completed, Bytes(count)};
    if (!server.system_vpd.read(offset, response.data)) return {offset_out_of_range};
    return response;
}

struct Command {
    uint8_t netfn, cmd;
    uint32_t request_length;  // bytes
    Response (*carry_out)(Server&, Request);
};

constexpr uint32_t any_length = UINT32_MAX;  // the command looks itself

constexpr std::array commands{
    Command{0x06, 0x01, 0, get_device_id},                // IPMI 2.0 section 20.1
    Command{0x0A, 0x10, 1, get_fru_inventory_area_info},  // section 34.1
    Command{0x0A, 0x11, 4, read_fru_data},                // section 34.2
    Command{0x0A, 0x2C, 1, run_initialization_agent},     // section 33.21
    Command{0x3A, 0x0B, 4, read_system_vpd},              // OEM
    Command{0x2E, 0x32, any_length, get_property},        // OEM
    Command{0x3A, 0xC4, any_length, get_properties},      // OEM
};

Response carry_out(Server& server, uint8_t netfn, uint8_t cmd, Request request) {
    const auto* command =
        std::ranges::find_if(commands, [&](const Command& row) { return row.netfn == netfn && row.cmd == cmd; });
    if (command == commands.end()) return {invalid_command};
    if (command->request_length != any_length && request.size() != command->request_length)
        return {request_length_invalid};
    return command->carry_out(server, request);
}

constexpr uint8_t netfn_storage = 0x0A, read_fru_data_command = 0x11;

/// As the library's progress wants it: the locators come first, then the FRUs.
void report_bmc_progress(Server& server, uint8_t fru_id) {
    const auto [position, total] = server.seen_locators.position(fru_id);
    if (server.options.progress == nullptr || position == 0 || !server.read_progress.is_first_read(fru_id)) return;
    server.options.progress(server.options.progress_context, fru_id, position, total);
}

/// A command of the platform functions.
struct Frame {
    uint8_t address, netfn, lun, cmd;
    Request request;
};

/// Completion code and data, as far as they fit. @return bytes written
std::size_t put(const Response& response, std::span<uint8_t> out) {
    if (out.empty()) return 0;
    out[0] = response.completion_code;
    const std::size_t length = std::min(response.data.size(), out.size() - 1);
    std::copy_n(response.data.begin(), length, out.begin() + 1);
    return length + 1;
}

/// @return bytes written; none when the stack failed
std::optional<uint32_t> answer(Server& server, const Frame& frame, std::span<uint8_t> out) {
    if (!server.bmc) {
        return static_cast<uint32_t>(put(carry_out(server, frame.netfn, frame.cmd, frame.request), out));
    }
    const bool reads_fru = frame.netfn == netfn_storage && frame.cmd == read_fru_data_command;
    if (reads_fru && !frame.request.empty()) report_bmc_progress(server, frame.request[0]);
    auto length = static_cast<uint32_t>(out.size());
    const int result =
        server.bmc->command(server.bmc->context, frame.address, frame.netfn, frame.lun, frame.cmd, frame.request.data(),
                            static_cast<uint32_t>(frame.request.size()), out.data(), &length);
    if (result != 0) return {};
    return length;
}

}  // namespace

}  // namespace vpdd::host

extern "C" int IPMI_DoIPMICmd(uint8_t netfn, uint8_t cmd, const uint8_t* request, uint32_t request_length,
                              uint8_t* response, int32_t* response_length) {
    const auto server = vpdd::host::current_server();
    if (!server || response == nullptr || response_length == nullptr || (request == nullptr && request_length > 0))
        return -1;
    constexpr uint8_t own_address = 0x20, own_lun = 0;
    const auto length = vpdd::host::answer(*server, {own_address, netfn, own_lun, cmd, {request, request_length}},
                                           {response, vpdd::host::response_room});
    if (!length) return -1;
    *response_length = static_cast<int32_t>(*length);
    return 0;
}

extern "C" int send_ipmi_cmd(const uint8_t* raw_request, uint32_t* raw_request_length, uint8_t* response,
                             uint32_t* response_length) {
    constexpr uint32_t header_length = 4;  // target address, NetFn, LUN, command
    const auto server = vpdd::host::current_server();
    if (!server || raw_request == nullptr || raw_request_length == nullptr || response == nullptr ||
        response_length == nullptr || *raw_request_length < header_length)
        return -1;
    const auto length = vpdd::host::answer(*server,
                                           {raw_request[0],
                                            raw_request[1],
                                            raw_request[2],
                                            raw_request[3],
                                            {raw_request + header_length, *raw_request_length - header_length}},
                                           {response, *response_length});
    if (!length) return -1;
    *response_length = *length;
    return 0;
}
