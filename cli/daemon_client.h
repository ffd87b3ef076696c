// SPDX-License-Identifier: Apache-2.0
// What the daemon that runs on this machine answers.
#pragma once

#include <iosfwd>
#include <stdexcept>
#include <string>
#include <vector>

#include "cli/inventory.h"
#include "cli/status.h"
#include "daemon/vpdd_protocol.h"
#include "orva_vpdd.h"

namespace vpdd::cli {

/// No daemon can be reached, or it has nothing to tell yet; the text says what to do about it.
class NoDaemon : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

class DaemonClient {
public:
    using Records = std::vector<ComponentVpdRecord>;

    /// @param log where the library's traces go; null: nowhere
    DaemonClient(std::ostream* log, const DaemonPatience& patience) : log_(log), patience_(patience) {}

    // All throw NoDaemon, and std::runtime_error when the daemon has no answer.
    Records components() const;
    Records log() const;
    MachineVpdRecord machine() const;
    OemMachineRecord oem_machine() const;
    Inventory inventory() const;
    ServerStatus status() const;

    struct News {
        VpddChanges head{};
        std::vector<VpddChangeEntry> changes;
    };
    /// @param after a sequence number
    /// @param wait seconds to wait for a change, when there is none yet
    News changes(uint64_t after, unsigned wait) const;

    /// Only for root and the daemon's user.
    void refresh() const;
    void clean_log() const;

private:
    /// Empty when the daemon has nothing to say to this.
    /// @param expected_wait seconds that the answer takes when all is well
    std::vector<uint8_t> ask(const std::string& request, std::size_t room, unsigned expected_wait = 0) const;
    /// The same, and waits for a daemon that is starting.
    std::vector<uint8_t> ask_when_ready(const std::string& request, std::size_t room, unsigned expected_wait = 0) const;
    /// Lines "key=value".
    std::string daemon_status() const;
    bool is_starting() const;
    template <class Record>
    std::vector<Record> ask_records(const std::string& request, std::size_t most) const;
    template <class Record>
    Record ask_record(const std::string& request, const char* what) const;
    void order(const std::string& request) const;

    std::ostream* log_;
    const DaemonPatience patience_;
};

}  // namespace vpdd::cli
