// SPDX-License-Identifier: Apache-2.0
// What the tests of the activity log share: the files, entries, and the log as it lies on flash and as it is loaded.
#pragma once

#include <cstring>
#include <filesystem>
#include <fstream>
#include <span>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include "fake_clock.h"
#include "fake_platform.h"

namespace vpdd::test {

inline constexpr int error = 11, warning = 12, info = 14;

inline constexpr char log_path[] = "/flash/data0/component_activity.log";
inline constexpr char backup_path[] = "/flash/data0/component_activity.log.backup";
inline constexpr char lock_path[] = "/tmp/vpdd_lock";

inline constexpr char back_up[] =
    "/bin/cp -f /flash/data0/component_activity.log /flash/data0/component_activity.log.backup";
inline constexpr char discard_backup[] = "/bin/rm -f /flash/data0/component_activity.log.backup";
inline constexpr char put_backup_back[] =
    "/bin/mv /flash/data0/component_activity.log.backup /flash/data0/component_activity.log";

inline constexpr int32_t absent = 0, present = 1, no_sensor = 255;

inline constexpr std::size_t entry_size = 1512;
inline constexpr std::size_t crc_covered = 680;  // bytes of an entry

/// IEEE 802.3, a bit at a time.
inline uint32_t bitwise_crc(std::span<const uint8_t> bytes) {
    uint32_t crc = 0xFFFFFFFF;
    for (const uint8_t byte : bytes) {
        crc ^= byte;
        for (int bit = 0; bit < 8; ++bit) crc = crc >> 1U ^ ((crc & 1U) != 0 ? 0xEDB88320U : 0U);
    }
    return ~crc;
}

inline uint32_t right_crc(const ComponentVpdRecord& entry) {
    return bitwise_crc({reinterpret_cast<const uint8_t*>(&entry), crc_covered});
}

inline ComponentVpdRecord with_right_crc(ComponentVpdRecord entry) {
    entry.crc = right_crc(entry);
    return entry;
}

template <std::size_t Size>
void set_text(char (&field)[Size], std::string_view text) {
    std::memset(field, 0, Size);
    text.copy(field, Size);
}

/// An installation of a fan, unless told otherwise.
inline ComponentVpdRecord make_entry(uint8_t fru_id, std::string_view serial, int32_t status = present,
                                     int64_t timestamp = 1000) {
    ComponentVpdRecord entry{};
    entry.fru_id = fru_id;
    set_text(entry.name, "Fan " + std::to_string(fru_id));
    set_text(entry.serial_number, serial);
    set_text(entry.mfg_id, "Zelt");
    set_text(entry.part_number, "00FC123");
    entry.entity_id = 29;  // fan
    entry.entity_instance = fru_id;
    entry.is_cached = 1;
    entry.status = status;
    entry.timestamp = timestamp;
    return with_right_crc(entry);
}

using Entries = std::vector<ComponentVpdRecord>;

/// `count` entries of one component, told apart by their serial numbers "S1", "S2" ...
inline Entries make_entries(std::size_t count, uint8_t fru_id = 5) {
    Entries entries;
    for (std::size_t i = 1; i <= count; ++i) {
        const auto time = static_cast<int64_t>(1000 + i);
        entries.push_back(make_entry(fru_id, "S" + std::to_string(i), i % 2 == 1 ? present : absent, time));
    }
    return entries;
}

inline void write_file(const char* path, std::string_view bytes) {
    std::ofstream(path, std::ios::binary | std::ios::trunc) << bytes;
}

inline std::string read_file(const char* path) {
    std::ostringstream bytes;
    bytes << std::ifstream(path, std::ios::binary).rdbuf();
    return bytes.str();
}

inline testing::AssertionResult file_holds(const char* path, const std::string& bytes) {
    const std::string found = read_file(path);
    if (found == bytes) return testing::AssertionSuccess();
    return testing::AssertionFailure() << path << " holds " << found.size() << " bytes other than the " << bytes.size()
                                       << " expected";
}

inline std::string file_image(const Entries& entries) {
    return {reinterpret_cast<const char*>(entries.data()), entries.size() * sizeof entries[0]};
}

inline void write_log(const Entries& entries, const char* path = log_path) { write_file(path, file_image(entries)); }

/// The whole entries of the file, right or not.
inline Entries log_on_flash(const char* path = log_path) {
    const std::string bytes = read_file(path);
    Entries entries(bytes.size() / entry_size);
    if (!entries.empty()) std::memcpy(entries.data(), bytes.data(), entries.size() * entry_size);
    return entries;
}

inline std::string serial_of(const ComponentVpdRecord& entry) {
    return {entry.serial_number, strnlen(entry.serial_number, sizeof entry.serial_number)};
}

/// "serial status", a word an entry.
inline std::vector<std::string> summary(const Entries& entries) {
    std::vector<std::string> words;
    for (const auto& entry : entries) words.push_back(serial_of(entry) + " " + std::to_string(entry.status));
    return words;
}

inline std::vector<std::string> serials(const Entries& entries) {
    std::vector<std::string> words;
    for (const auto& entry : entries) words.push_back(serial_of(entry));
    return words;
}

/// A list whose nodes are freed with it.
struct List : StatusList {
    List() : StatusList{} {}
    ~List() {
        while (head != nullptr) remove_status_node(this, head);
    }
    List(const List&) = delete;
    List& operator=(const List&) = delete;

    Entries entries() const {
        Entries copies;
        for (const StatusNode* node = head; node != nullptr; node = node->next) copies.push_back(node->entry);
        return copies;
    }
};

inline Entries loaded_log() {
    List list;
    log_inventory(&list);
    return list.entries();
}

inline std::string bytes_of_entry(const ComponentVpdRecord& entry) {
    return {reinterpret_cast<const char*>(&entry), sizeof entry};
}

/// Whether all 1512 bytes are equal. The failure message names the first bytes that are not.
inline testing::AssertionResult is_same_entry(const ComponentVpdRecord& actual, const ComponentVpdRecord& expected) {
    const std::string is = bytes_of_entry(actual), should = bytes_of_entry(expected);
    if (is == should) return testing::AssertionSuccess();
    std::string differences;
    for (std::size_t i = 0, count = 0; i < is.size() && count < 8; ++i) {
        if (is[i] == should[i]) continue;
        ++count;
        differences += formatted("\n  byte %zu is %02X, should be %02X", i, static_cast<uint8_t>(is[i]),
                                 static_cast<uint8_t>(should[i]));
    }
    return testing::AssertionFailure() << "bytes differ" << differences;
}

/// Does what the commands of the log do.
inline int run_command(const std::string& command) {
    namespace fs = std::filesystem;
    std::error_code failed;
    if (command == back_up) fs::copy_file(log_path, backup_path, fs::copy_options::overwrite_existing, failed);
    if (command == discard_backup) fs::remove(backup_path, failed);
    if (command == put_backup_back) fs::rename(backup_path, log_path, failed);
    return failed ? 1 : 0;
}

/// Nothing at the fixed paths; shell commands are carried out.
class LogTest : public PlatformTest {
protected:
    void SetUp() override {
        namespace fs = std::filesystem;
        fs::create_directories("/flash/data0");
        for (const char* path : {log_path, backup_path, lock_path}) fs::remove_all(path);
        platform.shell_command.model(run_command);
        set_clock(now);
    }

    std::vector<std::string> commands() const { return platform.shell_command.calls(); }

    /// Whether nobody holds the mutex.
    static bool is_free(pthread_mutex_t& mutex) {
        if (pthread_mutex_trylock(&mutex) != 0) return false;
        pthread_mutex_unlock(&mutex);
        return true;
    }

    static constexpr int64_t now = 1700000000;
};

}  // namespace vpdd::test
