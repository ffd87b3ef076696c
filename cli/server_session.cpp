// SPDX-License-Identifier: Apache-2.0
#include "cli/server_session.h"

#include <dlfcn.h>
#include <syslog.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <iostream>
#include <stdexcept>

#include "cli/command.h"
#include "cli/display_text.h"
#include "cli/input_file.h"
#include "host/ipmi/vpdd_ipmi.h"
#include "orva_vpdd.h"

namespace vpdd::cli {

namespace {

using ErrorText = std::array<char, 1024>;

constexpr auto severities =
    std::to_array<const char*>({"emerg", "alert", "crit", "err", "warning", "notice", "info", "debug"});

/// "user.err"; "platform.err"; or "trace.4": the trace has levels of its own.
std::string origin(VpddHostMessageKind kind, int level) {
    if (kind == VPDD_HOST_TRACE) return "trace." + std::to_string(level);
    const char* severity = severities[static_cast<std::size_t>(LOG_PRI(level))];
    if (kind == VPDD_HOST_PLATFORM) return std::string("platform.") + severity;
    return (level & LOG_FACMASK) == LOG_USER ? std::string("user.") + severity : severity;
}

/// A bare name stands for one of the servers that came with vpdctl, unless there is such a file.
std::string server_path(const std::string& name) {
    std::error_code ignored;
    const bool bare = name.find('/') == std::string::npos;
    if (!bare || std::filesystem::exists(name, ignored)) return name;
    const std::filesystem::path shipped = std::filesystem::path(vpdd_host_server_folder()) / (name + ".json");
    return std::filesystem::exists(shipped, ignored) ? shipped.string() : name;
}

/// vpdd_ipmi_open_file() of the library that comes with vpdctl. It is loaded when it is wanted: only few machines have
/// what it needs.
decltype(&vpdd_ipmi_open_file) ipmi_platform() {
    void* library = dlopen("libvpdd_ipmi.so", RTLD_NOW);
    void* function = library != nullptr ? dlsym(library, "vpdd_ipmi_open_file") : nullptr;
    if (function == nullptr) throw std::runtime_error(std::string("no IPMI platform: ") + dlerror());
    return reinterpret_cast<decltype(&vpdd_ipmi_open_file)>(function);
}

/// One of the results of CreateComponentVPDCache().
constexpr int no_sdr_records = -3;

std::string creation_failure(int result) {
    switch (result) {
        case -1:
            return "a DDR5 module does not state the size of its SPD image";
        case no_sdr_records:
            return "the SDR repository cannot be read";
        default:
            return "result " + std::to_string(result);
    }
}

}  // namespace

ServerSession::ServerSession(const SessionOptions& options) : state_directory_(options.state_directory) {
    if (options.log == "-") log_ = &std::cerr;
    if (log_ == nullptr && !options.log.empty()) {
        log_file_.open(options.log);
        if (!log_file_) throw std::runtime_error(displayable(options.log) + ": cannot write: " + std::strerror(errno));
        log_ = &log_file_;
    }
    host_options_.state_directory = state_directory_.empty() ? nullptr : state_directory_.c_str();
    host_options_.sleep_factor = options.real_time ? 1.0 : 0.0;
    host_options_.progress = on_progress;
    host_options_.progress_context = this;
    vpdd_host_set_message_sink(on_message, this);
}

ServerSession::~ServerSession() {
    vpdd_host_close();
    vpdd_host_set_message_sink(nullptr, nullptr);
}

void ServerSession::open(const ServerChoice& choice) {
    if (choice.is_bmc() && choice.bmc.empty()) throw WrongUsage("--platform ipmi needs --bmc FILE");
    if (choice.platform == "host" && !choice.bmc.empty()) throw WrongUsage("--bmc is not of --platform host");
    if (choice.is_bmc()) return open_bmc(choice.bmc);
    if (choice.server.empty()) throw WrongUsage("--server is required, or --bmc");
    open_file(choice.server);
}

void ServerSession::open_bmc(const std::string& path) {
    constexpr int wrong_file = -1;
    ErrorText error{};
    const int result = ipmi_platform()(path.c_str(), &host_options_, error.data(), error.size());
    if (result == wrong_file) throw BadInput(displayable(error.data()));
    if (result != 0) throw std::runtime_error(displayable(error.data()));
}

void ServerSession::require_bmc() const {
    if (!lost_bmc_.empty()) throw std::runtime_error(lost_bmc_);
}

void ServerSession::open_file(const std::string& path) {
    ErrorText error{};
    if (vpdd_host_open_file(server_path(path).c_str(), &host_options_, error.data(), error.size()) != 0) {
        throw BadInput(displayable(error.data()));
    }
    description_ = path;
}

void ServerSession::open_text(const std::string& text) {
    ErrorText error{};
    if (vpdd_host_open_text(text.data(), text.size(), nullptr, &host_options_, error.data(), error.size()) != 0) {
        throw std::runtime_error(displayable(error.data()));
    }
}

void ServerSession::open_module(std::span<const uint8_t> image) {
    ErrorText error{};
    if (vpdd_host_open_module(image.data(), image.size(), &host_options_, error.data(), error.size()) != 0) {
        throw std::runtime_error(displayable(error.data()));
    }
}

VpddHostChangedFru ServerSession::change_fru(VpddHostChange change, const std::string& fru, const char* serial_number) {
    constexpr int impossible = -2;
    ErrorText error{};
    VpddHostChangedFru changed{};
    const int result = vpdd_host_change_fru(change, fru.c_str(), serial_number, &changed, error.data(), error.size());
    if (result == impossible) throw WrongUsage(displayable(error.data()));
    if (result != 0) throw std::runtime_error(displayable(error.data()));
    return changed;
}

void ServerSession::enter_private_root() const {
    ErrorText error{};
    if (vpdd_host_enter_private_root(host_options_.state_directory, error.data(), error.size()) != 0) {
        throw std::runtime_error(displayable(error.data()));
    }
}

void ServerSession::create_cache() {
    const int result = CreateComponentVPDCache();
    progress_.erase();
    // After a failure the library may have left its lock held: no look-up must follow.
    if (result != 0 && !lost_bmc_.empty()) throw std::runtime_error(lost_bmc_);
    // Of a described server every record can be read that there is.
    if (result == no_sdr_records && !description_.empty()) {
        throw BadInput(displayable(description_) + ": the server has no FRUs");
    }
    if (result != 0) throw std::runtime_error("the component cache could not be created: " + creation_failure(result));
}

void ServerSession::on_message(void* context, VpddHostMessageKind kind, int level, const char* text) {
    auto* session = static_cast<ServerSession*>(context);
    if (kind == VPDD_HOST_PLATFORM) session->lost_bmc_ = displayable(text);
    if (session->log_ == nullptr) return;
    session->progress_.erase();
    std::string_view line(text);
    line = line.substr(0, line.find_last_not_of('\n') + 1);
    *session->log_ << origin(kind, level) << ' ' << displayable(line) << '\n';
}

void ServerSession::on_progress(void* context, uint8_t /*fru_id*/, uint32_t number, uint32_t total) {
    static_cast<ServerSession*>(context)->progress_.show("Reading FRUs", number, total);
}

}  // namespace vpdd::cli
