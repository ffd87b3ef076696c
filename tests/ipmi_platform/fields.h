// SPDX-License-Identifier: Apache-2.0
// What three programs say of the FRUs of one BMC, in the same words: "Board.SerialNumber" and so on. Custom fields are
// one value, separated by "; "; the board's date is in UTC; empty fields are left out.
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

/// Of one FRU, by `vpdctl fru`. None when it cannot be read or is no FRU image.
Fields vpdctl_fields(const PlatformFile& bmc, uint8_t fru_id);
/// By `ipmitool fru print`.
Fields ipmitool_fields(uint16_t port, uint8_t fru_id);
/// By `ipmi-fru`.
/// @param cache where it keeps the SDR repository from one call to the next
Fields ipmi_fru_fields(uint16_t port, uint8_t fru_id, const std::string& cache);

/// What the record of a FRU would be by these fields: "Record.Manufacturer" and so on. The board's, if there is a
/// board.
Fields record_fields(const Fields& fields);
/// What the inventory says of a component, in the same words.
Fields record_fields_of_component(const Json& component);

/// What a tool says of a FRU beside its fields: "exit code 1", "checksum invalid".
inline constexpr const char* note = "Note";

}  // namespace vpdd::test
