// SPDX-License-Identifier: Apache-2.0
#include "host/chghist/change_store.h"

#include <unistd.h>

#include <cstring>
#include <ctime>
#include <stdexcept>

#include "host/chghist/component_record.h"

namespace vpdd::host {

namespace {

// A row's texts have columns of their own for people with an SQL shell; `raw` is the row as it came.
constexpr char create_tables[] = R"sql(
    CREATE TABLE changes(
        number INTEGER PRIMARY KEY, recorded INTEGER NOT NULL, process INTEGER NOT NULL, time INTEGER NOT NULL,
        status INTEGER NOT NULL,
        name TEXT NOT NULL, serial_number TEXT NOT NULL, part_number TEXT NOT NULL, maker TEXT NOT NULL,
        board_extra TEXT NOT NULL, entity_instance INTEGER NOT NULL, raw BLOB NOT NULL);
    CREATE TABLE components(
        name TEXT NOT NULL, serial_number TEXT NOT NULL, change INTEGER NOT NULL REFERENCES changes(number),
        record BLOB NOT NULL, PRIMARY KEY(name, serial_number));
    CREATE TABLE pci(number INTEGER PRIMARY KEY, table_code INTEGER NOT NULL, record BLOB NOT NULL);
)sql";
constexpr const char* steps[] = {create_tables};

constexpr char insert_sql[] =
    "INSERT INTO changes(recorded, process, time, status, name, serial_number, part_number, maker, board_extra,"
    " entity_instance, raw) VALUES(?1, ?2, ?3, ?4, ?5, ?6, ?7, ?8, ?9, ?10, ?11)";
constexpr char list_sql[] = "SELECT number, recorded, process, raw FROM changes ORDER BY number";
constexpr char set_component_sql[] =
    "INSERT INTO components(name, serial_number, change, record) VALUES(?1, ?2, last_insert_rowid(), ?3)"
    " ON CONFLICT(name, serial_number) DO UPDATE SET change = excluded.change, record = excluded.record";
constexpr char list_components_sql[] = "SELECT record FROM components ORDER BY change";
constexpr char list_pci_sql[] = "SELECT record FROM pci WHERE table_code = ?1 ORDER BY number";

template <std::size_t Size>
std::string_view text(const char (&field)[Size]) {
    return {field, strnlen(field, Size)};
}

template <class Record>
std::span<const uint8_t> bytes_of(const Record& record) {
    return {reinterpret_cast<const uint8_t*>(&record), sizeof record};
}

/// A record from its bytes; zeros where somebody else has stored fewer.
template <class Record>
Record record_of(std::span<const uint8_t> bytes) {
    Record record{};
    if (!bytes.empty()) std::memcpy(&record, bytes.data(), std::min(bytes.size(), sizeof record));
    return record;
}

}  // namespace

ChangeStore::ChangeStore(const std::filesystem::path& path)
    : database_(path, steps),
      insert_(database_.prepared(insert_sql)),
      list_(database_.prepared(list_sql)),
      set_component_(database_.prepared(set_component_sql)),
      list_components_(database_.prepared(list_components_sql)),
      list_pci_(database_.prepared(list_pci_sql)) {}

void ChangeStore::insert(const ChangeHistoryRecord& row) {
    Transaction transaction(database_);
    const bool inserted = Run(insert_)
                              .bind(int64_t{std::time(nullptr)})
                              .bind(int64_t{getpid()})
                              .bind(row.time)
                              .bind(row.status)
                              .bind(text(row.name))
                              .bind(text(row.serial_number))
                              .bind(text(row.part_number))
                              .bind(text(row.mfg_id))
                              .bind(text(row.board_extra))
                              .bind(row.entity_instance)
                              .bind(bytes_of(row))
                              .complete();
    const ComponentVpdRecord component = component_record(row);
    const bool updated =
        Run(set_component_).bind(text(row.name)).bind(text(row.serial_number)).bind(bytes_of(component)).complete();
    if (!inserted || !updated) throw std::runtime_error("the row cannot be stored");
    transaction.commit();
}

std::vector<VpddChange> ChangeStore::changes() {
    std::vector<VpddChange> changes;
    for (Run run(list_); run.next_row();) {
        changes.push_back(
            {run.integer(0), run.integer(1), run.integer(2), record_of<ChangeHistoryRecord>(run.bytes(3))});
    }
    return changes;
}

std::vector<ComponentVpdRecord> ChangeStore::components() {
    std::vector<ComponentVpdRecord> components;
    for (Run run(list_components_); run.next_row();) {
        components.push_back(record_of<ComponentVpdRecord>(run.bytes(0)));
    }
    return components;
}

std::vector<uint8_t> ChangeStore::pci_records(uint32_t table_code) {
    std::vector<uint8_t> records;
    Run run(list_pci_);
    run.bind(table_code);
    while (run.next_row()) {
        const std::span<const uint8_t> record = run.bytes(0);
        if (record.size() != sizeof PciNode::record) continue;
        records.insert(records.end(), record.begin(), record.end());
    }
    return records;
}

}  // namespace vpdd::host
