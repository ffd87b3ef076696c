// SPDX-License-Identifier: Apache-2.0
// A multirecord list, and the OEM processor record by itself.
// Input: options, bytes. Options: bit 0 makes the checksums right, bit 1 takes the bytes for the data of one record.
#include <cstring>

#include "fuzz/input.h"
#include "fuzz/seal.h"

using namespace vpdd::fuzz;

namespace {

/// What a caller of process_multirec() guarantees: the list ends. A record that begins in the input ends 260 bytes
/// behind it at the latest, where the zeros of the last header follow.
constexpr std::size_t longest_record = 260;
constexpr std::size_t last_header = 5;

void walk_list(Bytes list, bool is_sealed) {
    if (is_sealed) seal_multirecords(list);
    list.resize(list.size() + longest_record + last_header);
    ComponentVpdRecord record{};
    process_multirec(list.data(), &record);
    for (const auto& text : record.oem_cpu.text) require(strnlen(text, sizeof text) < sizeof text, "a text's end");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
    Input input({data, size});
    const uint8_t options = input.byte();
    const auto bytes = input.rest();

    const Round round;
    if ((options & 2U) == 0) {
        walk_list({bytes.begin(), bytes.end()}, (options & 1U) != 0);
        return 0;
    }
    OemCpuRecord record{};
    const Bytes exact(bytes.begin(), bytes.end());
    process_zelt_oem_cpu_rec(exact.data(), static_cast<uint32_t>(exact.size()), &record);
    require(record.raw_length <= sizeof record.raw, "the raw length");
    return 0;
}
