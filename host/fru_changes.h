// SPDX-License-Identifier: Apache-2.0
// FRUs that are pulled out of the described server, put back, and exchanged for others.
#pragma once

#include <optional>

#include "host/config_store.h"
#include "host/document.h"
#include "host/vpdd_host.h"

namespace vpdd::host {

/// What is asked for cannot be done with this FRU; the text says why.
class ImpossibleChange : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// Gives the description's FRUs the state that they have come to.
void apply_changes(const FruChanges& changes, Json& document);

struct ChangedFru {
    uint8_t fru_id = 0;
    std::string name;
    std::string old_serial_number;
    std::string new_serial_number;
    FruChange change;
};

/**
 * The next state of a FRU.
 * @param document as it was read, without the changes so far
 * @param fru its id or its name
 * @param serial_number of the part that comes in; none: the one that follows
 * @throws ImpossibleChange
 */
ChangedFru changed_fru(const Json& document, const FruChanges& changes, VpddHostChange change, const std::string& fru,
                       const std::optional<std::string>& serial_number);

/// The serial number that follows: digits count on as digits, letters as letters.
std::string next_serial_number(std::string text);

}  // namespace vpdd::host
