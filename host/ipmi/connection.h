// SPDX-License-Identifier: Apache-2.0
// The session with a BMC, by FreeIPMI. A BMC that no longer answers costs the settings' time once; then it counts as
// gone for a while, and every command fails at once.
#pragma once

#include <freeipmi/freeipmi.h>

#include <memory>
#include <mutex>

#include "host/ipmi/exchange.h"
#include "host/ipmi/settings.h"

namespace vpdd::host::ipmi {

/// Its functions may be called on any thread; commands are carried out one after the other.
class Connection {
public:
    using Report = std::function<void(const std::string& text)>;

    /// @param report receives a sentence when the BMC is lost
    /// @throws std::runtime_error when the BMC cannot be reached
    Connection(Settings settings, Report report);

    /// None when the BMC did not answer.
    std::optional<Answer> carry_out(const Command& command);

private:
    using Clock = std::chrono::steady_clock;
    struct Destroy {
        void operator()(ipmi_ctx_t context) const {
            ipmi_ctx_close(context);
            ipmi_ctx_destroy(context);
        }
    };
    using Context = std::unique_ptr<ipmi_ctx, Destroy>;

    /// Empty for success.
    std::string open();
    bool is_open();
    std::optional<Answer> send(const Command& command);
    void lose(const std::string& reason);

    const Settings settings_;
    const Report report_;
    std::mutex mutex_;
    Context context_;  ///< null: there is no session
    Clock::time_point last_answer_;
    Clock::time_point gone_until_;
};

}  // namespace vpdd::host::ipmi
