// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "host/vpdd_host.h"

namespace vpdd::test {

using Bytes = std::vector<uint8_t>;

/// A description with these FRUs and, behind a comma each, further parts.
inline std::string server_text(const std::string& frus, const std::string& more = "", const std::string& machine = "") {
    return R"({"name": "test", "machine": {)" + machine + R"(}, "frus": [)" + frus + "]" + more + "}";
}

inline std::string fru_text(int id, const std::string& name, const std::string& content, const std::string& more = "") {
    return R"({"fru_id": )" + std::to_string(id) + R"(, "name": ")" + name +
           R"(", "entity": "system board", "instance": 1, "content": )" + content + more + "}";
}

/// The reason for which the text is refused, or nothing.
inline std::string refusal(const std::string& text, const char* folder = nullptr) {
    char error[512] = "";
    const int result = vpdd_host_open_text(text.c_str(), text.size(), folder, nullptr, error, sizeof error);
    vpdd_host_close();
    return result == 0 ? "" : error;
}

/// A server that is open as long as this lives.
class OpenServer {
public:
    explicit OpenServer(const std::string& text, const VpddHostOptions& options = {}, const char* folder = nullptr) {
        char error[512] = "";
        EXPECT_EQ(vpdd_host_open_text(text.c_str(), text.size(), folder, &options, error, sizeof error), 0) << error;
    }
    ~OpenServer() { vpdd_host_close(); }
    OpenServer(const OpenServer&) = delete;
    OpenServer& operator=(const OpenServer&) = delete;
};

struct SeenEvent {
    std::string name;
    int32_t type, argument0, argument1;

    bool operator==(const SeenEvent&) const = default;
};

/// The events of the open server, oldest first.
inline std::vector<SeenEvent> events() {
    std::vector<SeenEvent> seen;
    const auto visit = [](void* context, const VpddHostEvent* event) {
        static_cast<std::vector<SeenEvent>*>(context)->push_back(
            {event->name, event->type, event->argument0, event->argument1});
        return 0;
    };
    EXPECT_EQ(vpdd_host_each_event(visit, &seen), 0);
    return seen;
}

/// A folder that goes when this goes.
class TemporaryFolder {
public:
    TemporaryFolder() {
        const std::string placeholder(6, 'X');  // what mkdtemp() replaces
        std::string pattern = (std::filesystem::temp_directory_path() / ("vpdd-host-" + placeholder)).string();
        path_ = mkdtemp(pattern.data());
    }
    ~TemporaryFolder() { std::filesystem::remove_all(path_); }
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;

    const char* c_str() const { return path_.c_str(); }
    std::filesystem::path file(const std::string& name) const { return path_ / name; }
    void write(const std::string& name, const std::string& content) const {
        std::ofstream(file(name), std::ios::binary) << content;
    }

private:
    std::filesystem::path path_;
};

}  // namespace vpdd::test
