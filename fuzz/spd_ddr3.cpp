// SPDX-License-Identifier: Apache-2.0
#include "fuzz/module.h"

using namespace vpdd::fuzz;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
    decode_module({data, size}, type_ddr3, type_nvdimm);
    return 0;
}
