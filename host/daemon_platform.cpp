// SPDX-License-Identifier: Apache-2.0
// The host platform as a platform library of vpdd: the server that a description plays.
#include <algorithm>

#include "host/platform_library.h"
#include "host/schema.h"
#include "host/server.h"

namespace vpdd::host {

namespace {

std::filesystem::path description_file;
const VpddPlatformReports* reports = nullptr;

int fail(const std::string& reason, char* error, std::size_t error_size) {
    if (error == nullptr || error_size == 0) return -1;
    error[reason.copy(error, error_size - 1)] = '\0';
    return -1;
}

/// A bare name stands for one of the servers that came with this library, unless there is such a file.
std::filesystem::path server_path(const std::string& name) {
    std::error_code ignored;
    if (name.find('/') != std::string::npos || std::filesystem::exists(name, ignored)) return name;
    std::filesystem::path shipped = std::filesystem::path(vpdd_host_server_folder()) / (name + ".json");
    return std::filesystem::exists(shipped, ignored) ? shipped : std::filesystem::path(name);
}

int open_platform(const VpddPlatformSetting* settings, std::size_t count, const VpddPlatformReports* to, char* error,
                  std::size_t error_size) try {
    VpddHostOptions options{};
    description_file.clear();
    for (const VpddPlatformSetting& setting : std::span(settings, count)) {
        const std::string_view key(setting.key);
        if (key == "server") {
            description_file = server_path(setting.value);
        } else if (key == "state") {
            options.state_directory = setting.value;
        } else {
            return fail("the host platform has no setting \"" + std::string(key) + "\": it has server and state", error,
                        error_size);
        }
    }
    if (description_file.empty()) return fail("the host platform needs --server FILE", error, error_size);
    reports = to;
    return vpdd_host_open_file(description_file.c_str(), &options, error, error_size);
} catch (const std::exception& reason) {
    return fail(reason.what(), error, error_size);
}

bool has_same_frus(const Server& one, const Server& other) {
    return std::ranges::equal(one.description.sdr, other.description.sdr, [](const SdrRecord& a, const SdrRecord& b) {
        return a.id == b.id && a.bytes == b.bytes;
    });
}

void report_changed_frus(const Server& former, const Server& now) {
    for (const auto& [id, fru] : now.description.frus) {
        const auto old = former.description.frus.find(id);
        if (old != former.description.frus.end() && old->second.image == fru.image) continue;
        reports->fru_changed(reports->context, id);
    }
}

void report_changed_properties(const Server& former, const Server& now) {
    const auto properties_of = [](const Server& server) { return server.document.value("properties", Json::object()); };
    for (const Json& difference : Json::diff(properties_of(former), properties_of(now))) {
        reports->property_changed(reports->context, difference["path"].get<std::string>().c_str());
    }
}

/// Plays another form of the server from now on.
void replace(const Server& former, const std::shared_ptr<Server>& now) {
    use_server(now);
    if (has_same_frus(former, *now)) {
        report_changed_frus(former, *now);
    } else {
        reports->sdr_changed(reports->context);
    }
    if (former.description.system_vpd.bytes != now->description.system_vpd.bytes) {
        reports->system_vpd_changed(reports->context);
    }
    report_changed_properties(former, *now);
}

/// `vpdctl simulate` has pulled, inserted or swapped something in the state directory.
void check() try {
    const auto server = current_server();
    if (!server || server->store->fru_changes() == server->changes) return;
    replace(*server, std::make_shared<Server>(server->document, server->folder, server->options));
} catch (const std::exception& reason) {
    constexpr int error_level = 3;
    reports->message(reports->context, error_level, reason.what());
}

int reload(char* error, std::size_t error_size) try {
    const auto server = current_server();
    const Bytes content = file_content(description_file, largest_description);
    const std::string_view text(reinterpret_cast<const char*>(content.data()), content.size());
    replace(*server, std::make_shared<Server>(checked_document(text, schema_text), server->folder, server->options));
    return 0;
} catch (const std::exception& reason) {
    return fail(description_file.string() + ": " + reason.what(), error, error_size);
}

constexpr VpddPlatformLibrary library{VPDD_PLATFORM_VERSION, "host", 0, open_platform, check, reload, vpdd_host_close};

}  // namespace

}  // namespace vpdd::host

extern "C" const VpddPlatformLibrary* vpdd_platform_library(void) { return &vpdd::host::library; }
