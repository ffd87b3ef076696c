// SPDX-License-Identifier: Apache-2.0
// What three programs say of the FRUs of one BMC, in the same words: "Board.SerialNumber" and so on. Custom fields are
// one value, separated by " | "; the board's date is in UTC; empty fields are left out.
#pragma once

#include <cstdint>
#include <map>
#include <string>

#include "simulator.h"

namespace vpdd::test {

using Fields = std::map<std::string, std::string>;
using FieldsByFru = std::map<uint8_t, Fields>;

/// A platform file for vpdctl, in a folder that goes with it.
class PlatformFile {
public:
    /// @param settings further keys of "bmc"
    explicit PlatformFile(uint16_t port, const Json& settings = Json::object(), const Json& rest = Json::object());

    std::string path() const { return folder_.path("bmc.json"); }

private:
    ScratchFolder folder_;
};

/// Of one FRU, by `vpdctl fru`.
Fields vpdctl_fields(const PlatformFile& bmc, uint8_t fru_id);
/// Of all, by `ipmitool fru print`.
FieldsByFru ipmitool_fields(uint16_t port);
/// Of all, by `ipmi-fru`.
FieldsByFru ipmi_fru_fields(uint16_t port);

/// What ipmitool says of a FRU in the place of fields: "Device not present"; empty without.
inline constexpr const char* note = "Note";

}  // namespace vpdd::test
