// SPDX-License-Identifier: Apache-2.0
// The answers of the IPMI stack and of the SDR repository through a creation, an update and everything else that asks.
// Input: options, answers (answers.h). Options: bit 0 lets the answers begin again behind their end.
#include "fuzz/answers.h"

using namespace vpdd::fuzz;

namespace {

/// Enough for a server of a few components; longer inputs only take longer.
constexpr std::size_t longest_stream = 4096;

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
    Input input({data, size});
    const uint8_t options = input.byte();

    Round round;
    AnswerReader answers(input.take(longest_stream), (options & 1U) != 0);
    world().answer_sdr = [&](uint16_t) { return answers.sdr(); };
    world().answer_ipmi = [&](const IpmiCall&) { return answers.ipmi(); };
    round.create();
    cached_records();
    UpdateComponentVPDCache();
    cached_records();
    is_ipmi_sensor_ready();
    read_POSID_ext();
    Bytes system_vpd(300);
    readvpd_from_ipmi(static_cast<uint32_t>(system_vpd.size()), system_vpd.data());
    world() = {};
    return 0;
}
