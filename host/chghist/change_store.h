// SPDX-License-Identifier: Apache-2.0
// The tables of the change-history database.
#pragma once

#include <vector>

#include "host/chghist/vpdd_chghist.h"
#include "host/database.h"

namespace vpdd::host {

class ChangeStore {
public:
    /// @param path the database file; empty: in memory
    /// @throws std::runtime_error
    explicit ChangeStore(const std::filesystem::path& path);

    /// @throws std::runtime_error
    void insert(const ChangeHistoryRecord& row);
    std::vector<VpddChange> changes();
    /// The newest state of each component, which its name and serial number tell from others.
    std::vector<ComponentVpdRecord> components();
    /// The stored records of a table, one behind the other.
    std::vector<uint8_t> pci_records(uint32_t table_code);

private:
    Database database_;
    Database::Statement insert_, list_, set_component_, list_components_, list_pci_;
};

}  // namespace vpdd::host
