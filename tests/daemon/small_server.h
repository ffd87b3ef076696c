// SPDX-License-Identifier: Apache-2.0
// A server of few components, so that a daemon starts at once.
#pragma once

#include <gmock/gmock.h>

#include <filesystem>
#include <fstream>

#include "daemon_process.h"

namespace vpdd::test {

/// A processor with its sensor, a module, a fan, and a fan without a part.
inline constexpr std::string_view small_description =
    R"({"name": "small", "machine": {"serial_number": "MACHINE1"}, "frus": [
  {"fru_id": 1, "name": "CPU 1", "entity": "processor", "instance": 1, "content": {"areas": {
    "product": {"version": "ES-1", "serial_number": "EC1"}, "ppin": "123456781"}}},
  {"fru_id": 4, "name": "DIMM 2", "entity": "memory device", "instance": 2, "content": {"dimm": {
    "generation": "DDR4", "module": "RDIMM", "size_gib": 16, "ranks": 1, "device_width": 4, "speed": 3200,
    "maker": "Samsung", "part_number": "M393A2K40DB3", "serial_number": "00000011", "year": 2023, "week": 5}}},
  {"fru_id": 5, "name": "Fan 1", "entity": "fan", "instance": 1, "content": {"areas": {
    "board": {"manufacturer": "Example Fans", "serial_number": "FN1", "part_number": "EXF-1"}}}},
  {"fru_id": 6, "name": "Fan 2", "entity": "fan", "instance": 2, "content": {"absent": true}}],
  "sensors": [{"name": "CPU 1 Status", "type": 7, "state": 128}]})";

/// The files that a daemon leaves go with each test; the test program runs in a private root.
class DaemonTest : public testing::Test {
protected:
    void SetUp() override {
        remove_files();
        describe(small_description);
    }
    void TearDown() override { remove_files(); }

    static void describe(std::string_view description) { std::ofstream("/tmp/server.json") << description; }

    static std::vector<std::string> arguments(const std::vector<std::string>& more = {}) {
        std::vector<std::string> all{"--server", "/tmp/server.json", "--state", "/tmp/state", "--poll", "0.1"};
        all.insert(all.end(), more.begin(), more.end());
        return all;
    }

private:
    static void remove_files() {
        for (const char* path : {"/tmp/server.json", "/tmp/state", "/tmp/vpdd.sock", "/tmp/machine.cache",
                                 "/tmp/oemMachine.cache", "/flash/data0/component_activity.log"}) {
            std::filesystem::remove_all(path);
        }
    }
};

}  // namespace vpdd::test
