// SPDX-License-Identifier: Apache-2.0
#include "host/ipmi/settings.h"

#include <sys/stat.h>

#include <cstdlib>

#include "host/ipmi/schema.h"

namespace vpdd::host::ipmi {

namespace {

constexpr std::size_t longest_password = 20;         // bytes, IPMI 2.0 section 13.28
constexpr std::size_t largest_password_file = 4096;  // bytes

Transport transport_of(const Json& bmc) {
    const std::string name = bmc.value("interface", "lanplus");
    if (name == "local") return Transport::local;
    return name == "lan" ? Transport::lan : Transport::lan_plus;
}

std::string environment(const char* name) {
    const char* value = std::getenv(name);
    return value != nullptr ? value : "";
}

/// A password that others may read is none.
void refuse_open_file(const std::filesystem::path& path) {
    struct stat status {};
    if (stat(path.c_str(), &status) == 0 && (status.st_mode & S_IRWXO) != 0) {
        throw std::runtime_error(path.string() + ": others may read the password; take their rights away (chmod o=)");
    }
}

std::string first_line(const std::filesystem::path& path) {
    const Bytes content = file_content(path, largest_password_file);
    const std::string_view text(reinterpret_cast<const char*>(content.data()), content.size());
    return std::string(text.substr(0, text.find_first_of("\r\n")));
}

std::string password_of(const Json& bmc, const std::filesystem::path& folder) {
    std::string password = environment("VPDD_BMC_PASSWORD");
    if (password.empty() && bmc.contains("password_file")) {
        const std::filesystem::path path = folder / bmc["password_file"].get<std::string>();
        refuse_open_file(path);
        password = first_line(path);
    }
    if (password.size() > longest_password) throw std::runtime_error("the password has more than 20 characters");
    return password;
}

Settings settings_of(const Json& bmc, const std::filesystem::path& folder) {
    Settings settings;
    settings.transport = transport_of(bmc);
    settings.host = bmc.value("host", "");
    settings.port = bmc.value("port", settings.port);
    settings.device = bmc.value("device", "/dev/ipmi0");
    settings.user = bmc.value("user", "");
    settings.authentication = bmc.value("authentication", "md5");
    settings.privilege = bmc.value("privilege", "user");
    settings.cipher_suite = bmc.value("cipher_suite", settings.cipher_suite);
    settings.timeout = std::chrono::milliseconds(bmc.value("timeout_ms", settings.timeout.count()));
    if (settings.transport == Transport::local) return settings;
    if (settings.host.empty()) throw DescriptionError(Json::json_pointer("/bmc"), "must have \"host\"");
    settings.password = password_of(bmc, folder);
    return settings;
}

/// What is left without the BMC, which has the FRUs, the SDR repository and the sensors.
std::string rest_of_server(Json document, const std::string& name) {
    document.erase("bmc");
    document.erase("$schema");
    for (const char* key : {"frus", "sdr_records", "sensors"}) {
        if (document.contains(key)) throw DescriptionError(Json::json_pointer() / key, "comes from the BMC");
    }
    document["frus"] = Json::array();
    if (!document.contains("machine")) document["machine"] = Json::object();
    if (!document.contains("name")) document["name"] = name;
    return document.dump();
}

}  // namespace

std::string Settings::name() const {
    if (transport == Transport::local) return device;
    const bool is_ipv6 = host.find(':') != std::string::npos;
    return (is_ipv6 ? '[' + host + ']' : host) + ':' + std::to_string(port);
}

PlatformFile read_platform_file(const std::filesystem::path& path) try {
    const Bytes content = file_content(path, largest_description);
    const std::string_view text(reinterpret_cast<const char*>(content.data()), content.size());
    const Json document = checked_document(text, bmc_schema_text);
    const std::filesystem::path folder = path.parent_path();
    Settings settings = settings_of(document["bmc"], folder);
    std::string rest = rest_of_server(document, settings.name());
    return {std::move(settings), std::move(rest), folder};
} catch (const DescriptionError& error) {
    throw DescriptionError(path.string() + ": " + error.what());
}

}  // namespace vpdd::host::ipmi
