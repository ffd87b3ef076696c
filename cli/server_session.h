// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <fstream>
#include <ostream>
#include <span>
#include <string>

#include "cli/terminal.h"
#include "host/vpdd_host.h"

namespace vpdd::cli {

/// How long vpdd is waited for.
struct DaemonPatience {
    unsigned seconds = 30;    ///< while it reads the components for the first time
    bool is_awaited = false;  ///< also until it runs at all
};

struct SessionOptions {
    bool real_time = false;
    std::string state_directory;  ///< empty: the configuration store stays in memory
    std::string log;              ///< file of the messages, "-" for standard error; empty: none
    DaemonPatience patience;
};

/// Which server is meant.
struct ServerChoice {
    std::string server;    ///< its description, or the name of one that came with vpdctl
    std::string platform;  ///< "host", "ipmi" or empty
    std::string bmc;       ///< the platform file of a BMC that is asked over IPMI

    /// Without one the daemon is asked.
    bool is_made() const { return !server.empty() || !platform.empty() || !bmc.empty(); }
    bool is_bmc() const { return !bmc.empty() || platform == "ipmi"; }
    /// For people.
    const std::string& name() const { return is_bmc() ? bmc : server; }
};

/// A server of the development platform, open for as long as the object lives, and its component cache.
class ServerSession {
public:
    /// Throws std::runtime_error when the log cannot be written.
    explicit ServerSession(const SessionOptions& options);
    ~ServerSession();
    ServerSession(const ServerSession&) = delete;
    ServerSession& operator=(const ServerSession&) = delete;

    /// Open the chosen server. Throws WrongUsage without a choice, BadInput, and std::runtime_error when its BMC cannot
    /// be reached.
    void open(const ServerChoice& choice);
    /// Open the server that a file describes; the name of a server that came with vpdctl will do. Throws BadInput.
    void open_file(const std::string& path);
    /// Open the server that a JSON text describes. Throws std::runtime_error.
    void open_text(const std::string& text);
    /// Open a server whose only part, FRU 1, is a memory module with this image. Throws std::runtime_error.
    void open_module(std::span<const uint8_t> image);

    /// Change the open server for good. Throws WrongUsage when the FRU is not in the state for it.
    VpddHostChangedFru change_fru(VpddHostChange change, const std::string& fru, const char* serial_number);

    /// Give the process a /flash and a /tmp in the state directory, or in memory without one. Throws
    /// std::runtime_error.
    void enter_private_root() const;

    /// Why the BMC has stopped to answer; empty as long as it does.
    const std::string& lost_bmc() const { return lost_bmc_; }
    /// Throws std::runtime_error when the BMC has stopped to answer, so that what was shown is not taken for all.
    void require_bmc() const;

    /// Where the library's messages go; null: nowhere.
    std::ostream* log() const { return log_; }

    /// Build the component cache, with a progress line. Throws std::runtime_error when it does not stand afterwards,
    /// BadInput when the described server has nothing to put into it.
    void create_cache();

private:
    void open_bmc(const std::string& path);
    static void on_message(void* context, VpddHostMessageKind kind, int level, const char* text);
    static void on_progress(void* context, uint8_t fru_id, uint32_t number, uint32_t total);

    VpddHostOptions host_options_{};
    std::string state_directory_;
    std::ofstream log_file_;
    std::ostream* log_ = nullptr;
    std::string lost_bmc_;
    std::string description_;  ///< the open file; empty: the server is no described one
    ProgressLine progress_;
};

}  // namespace vpdd::cli
