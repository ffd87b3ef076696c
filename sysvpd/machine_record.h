// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "orva_vpdd.h"

namespace vpdd {

/// The manufacturer that an OEM machine record names for a result of read_POSID_ext(): empty for a failed read.
const char* product_manufacturer(int posid_result);

/// Assembles the OEM machine record.
void fill_oem_machine_record(const MachineVpdRecord& machine, const MachineFieldsRecord& fields,
                             const char* manufacturer, OemMachineRecord& record);

}  // namespace vpdd
