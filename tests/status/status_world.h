// SPDX-License-Identifier: Apache-2.0
// What the tests of the component status share: a cache of components, what their sensors and FRUs answer, and what is
// told to the world.
#pragma once

#include "chghist_rows.h"
#include "host/images/sdr_record.h"
#include "log_world.h"
#include "watched_calls.h"

namespace vpdd::test {

inline constexpr int restore_mode = 0, poll_mode = 1;

inline constexpr uint8_t processor = 3, fan = 29, memory_device = 32;
inline constexpr uint8_t processor_sensor = 7;
inline constexpr uint16_t presence_bit = 0x80;

using Words = std::vector<std::string>;

/// A sensor as the platform returns it: validity at byte 2, name at 6, state at 198, its text at 202.
struct Sensor {
    std::string name;
    uint16_t state = presence_bit;
    std::string text = "";
    uint16_t validity = 1;

    Bytes entry() const {
        Bytes bytes(1492);
        bytes[2] = static_cast<uint8_t>(validity);
        bytes[3] = static_cast<uint8_t>(validity >> 8U);
        name.copy(reinterpret_cast<char*>(&bytes[6]), 192);
        bytes[198] = static_cast<uint8_t>(state);
        bytes[199] = static_cast<uint8_t>(state >> 8U);
        text.copy(reinterpret_cast<char*>(&bytes[202]), 1290);
        return bytes;
    }
};

inline Bytes sensor_entries(const std::vector<Sensor>& sensors) {
    Bytes bytes;
    for (const Sensor& sensor : sensors) {
        const Bytes entry = sensor.entry();
        bytes.insert(bytes.end(), entry.begin(), entry.end());
    }
    return bytes;
}

inline ComponentVpdRecord make_cpu(uint8_t fru_id, uint8_t slot, std::string_view serial, int32_t status = present,
                                   int64_t timestamp = 1000) {
    ComponentVpdRecord cpu = make_entry(fru_id, serial, status, timestamp);
    set_text(cpu.name, "CPU " + std::to_string(slot));
    set_text(cpu.ppin, "0123ABCD");
    set_text(cpu.product_version, "Xeon");
    cpu.entity_id = processor;
    cpu.entity_instance = slot;
    return with_right_crc(cpu);
}

inline ComponentVpdRecord make_dimm(uint8_t fru_id, std::string_view serial, int32_t status = present) {
    ComponentVpdRecord dimm = make_entry(fru_id, serial, status);
    set_text(dimm.name, "DIMM " + std::to_string(fru_id));
    dimm.entity_id = memory_device;
    return with_right_crc(dimm);
}

/// The same component with other VPD; its sum is still the old one.
inline ComponentVpdRecord changed(ComponentVpdRecord record) {
    set_text(record.part_number, "00FC999");
    return record;
}

inline std::string update_line(const char* mark, const ComponentVpdRecord& record) {
    return formatted("UpdateComponentStatus: [%s]FRU = %s, FRUID = %d, status = %d, crc = %u.\n", mark, record.name,
                     record.fru_id, record.status, record.crc);
}

class StatusTest : public LogTest {
protected:
    /// Makes a cache of these very records, in this order, on a platform that knows nothing yet: FRUs are absent.
    void cache(const Entries& records) {
        std::vector<Bytes> locators;
        for (const auto& record : records) {
            locators.push_back(images::FruLocator(record.fru_id, "X").entity(record.entity_id, record.entity_instance));
        }
        if (locators.empty()) locators.push_back(images::full_sensor_record(1, "Ambient"));
        platform.sdr(images::numbered(std::move(locators)));
        ASSERT_EQ(CreateComponentVPDCache(), 0);
        for (const auto& record : records) {
            ASSERT_NE(cached(record.fru_id), nullptr);
            *cached(record.fru_id) = record;
        }
        forget();
    }

    /// The cached record itself.
    static ComponentVpdRecord* cached(uint8_t fru_id) {
        const CaptureStdout silence;
        ComponentVpdRecord* record = nullptr;
        FindFRURecord(fru_id, &record);
        return record;
    }

    /// The platform as new.
    void forget() {
        platform.reset();
        platform.shell_command.model(run_command);
    }

    void insert(uint8_t fru_id) { platform.fru(fru_id, Bytes(64)); }
    void sensors(const std::vector<Sensor>& of_processors) {
        platform.sensors(processor_sensor, sensor_entries(of_processors));
    }

    /// The names in the software events.
    Words announced() const {
        Words names;
        for (const SoftwareMessage& message : platform.software_message.calls()) {
            names.emplace_back(reinterpret_cast<const char*>(message.payload.data() + 12));
        }
        return names;
    }

    /// "serial status" of each row of the change history.
    Words recorded() const {
        Words words;
        for (const auto& row : history.rows())
            words.push_back(std::string(row.serial_number) + " " + std::to_string(row.status));
        return words;
    }

    /// Whether a pass told nobody anything and left the log alone.
    testing::AssertionResult nothing_happened() const {
        if (!commands().empty()) return testing::AssertionFailure() << "the log was rewritten";
        if (!announced().empty()) return testing::AssertionFailure() << "a software event was sent";
        if (!recorded().empty()) return testing::AssertionFailure() << "the change history got a row";
        if (!platform.events().empty()) return testing::AssertionFailure() << "an event was raised";
        return testing::AssertionSuccess();
    }

    const std::vector<Event> state_event{{4, "compvpd_state_event", 0, 0}};
    ChangeHistoryRows history;
};

}  // namespace vpdd::test
