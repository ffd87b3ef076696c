// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <array>

#include "base/log_line.h"
#include "ipmi/request.h"
#include "orva_vpdd.h"
#include "platform/ipmi_stack.h"

namespace {

constexpr int attempts = 3;
constexpr useconds_t pause_after_failure = 300000;  // microseconds

constexpr uint8_t get_device_id = 0x01;             // IPMI 2.0, 20.1
constexpr uint8_t run_initialization_agent = 0x2C;  // IPMI 2.0, 33.21
constexpr uint8_t initialization_completed = 0x01;

/// `leftovers` is zeroed between the attempts.
int retry(IpmiRequest& request, std::span<uint8_t> leftovers) {
    const int32_t capacity = request.response_length;
    int result = 0;
    for (int attempt = 0; attempt < attempts; ++attempt) {
        if (attempt > 0) std::ranges::fill(leftovers, uint8_t{0});
        // A stack that takes the length as the buffer's capacity finds it whole on each attempt.
        request.response_length = capacity;
        result = IPMI_DoIPMICmd(request.netfn, request.cmd, request.request, request.request_length, request.response,
                                &request.response_length);
        if (result == 0 && request.response[0] == vpdd::ipmi_not_present) return VPDD_IPMI_NOT_PRESENT;
        if (result == 0 && request.response[0] == vpdd::ipmi_ok && request.response_length > 0) return 0;
        usleep(pause_after_failure);
    }

    if (result == 0 && request.response[0] == vpdd::ipmi_ok) return 0;  // an empty success
    return request.response[0] == vpdd::ipmi_not_present ? VPDD_IPMI_NOT_PRESENT : -1;
}

}  // namespace

namespace vpdd {

int carry_out(uint8_t netfn, uint8_t cmd, std::span<const uint8_t> data, std::span<uint8_t> response) {
    IpmiRequest request{
        data.data(), response.data(), static_cast<uint32_t>(data.size()), static_cast<int32_t>(response.size()), netfn,
        cmd};
    constexpr std::size_t completion_code_size = 1;
    return retry(request, response.subspan(completion_code_size));
}

}  // namespace vpdd

extern "C" int ipmi_cmd_retry(IpmiRequest* request) {
    if (request == nullptr || request->response == nullptr) return -1;
    return retry(*request, {});  // how large the caller's response is, is not known
}

extern "C" int test_ipmi_stack() {
    vpdd::IpmiResponse response{};
    return vpdd::carry_out(vpdd::netfn_app, get_device_id, {}, response) == 0 ? 0 : -1;
}

extern "C" int is_ipmi_sensor_ready() {
    constexpr std::array<uint8_t, 3> get_status{};
    vpdd::IpmiResponse response{};
    if (vpdd::carry_out(vpdd::netfn_storage, run_initialization_agent, std::span(get_status).first<1>(), response) !=
        0) {
        vpdd::log_text(vpdd::log_info, "%s() Check IPMI Sensor ready is fail\n", __func__);
        return 0;
    }

    const uint8_t completion_code = response[0];
    const uint8_t status = response[1];
    vpdd::log_text(vpdd::log_info, "%s() NET:0x%02x, CMD:0x%02x, CC:0x%02x, ST:0x%02x\n", __func__, vpdd::netfn_storage,
                   run_initialization_agent, completion_code, status);
    if (completion_code != vpdd::ipmi_ok || status != initialization_completed) return 0;
    vpdd::log_text(vpdd::log_info, "%s() IPMI Sensor is ready\n", __func__);
    return 1;
}
