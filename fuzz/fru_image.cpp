// SPDX-License-Identifier: Apache-2.0
// A FRU image through creation, update and the readers of FRU 0.
// Input: options, image. Options: bits 0 and 1 the entity, bit 7 makes the multirecords' checksums right.
#include <array>

#include "fuzz/input.h"
#include "fuzz/seal.h"
#include "host/images/sdr_record.h"

using namespace vpdd::fuzz;

namespace {

constexpr std::array<uint8_t, 4> entities{0x03, 0x0A, 0x07, 0x0F};  // processor, power supply, board, backplane

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
    Input input({data, size});
    const uint8_t options = input.byte();
    const auto bytes = input.rest();
    Bytes image(bytes.begin(), bytes.end());
    if ((options & 0x80) != 0) seal_fru_image(image);

    Round round;
    world().frus[0] = std::move(image);
    world().sdr = {vpdd::images::FruLocator(0, "Board 1").entity(entities[options & 3U], 1)};
    round.create();
    cached_records();
    UpdateComponentVPDCache();
    cached_records();

    MachineFieldsRecord fields{};
    uint32_t length = 0;
    GetMachineFields(&length, sizeof fields, 0, reinterpret_cast<uint8_t*>(&fields));
    return 0;
}
