// SPDX-License-Identifier: Apache-2.0
// A BMC in the form that libvpdd_host.so takes.
#pragma once

#include "host/ipmi/connection.h"
#include "host/ipmi/fru_reads.h"
#include "host/ipmi/sensors.h"
#include "host/vpdd_host.h"

namespace vpdd::host::ipmi {

class RemoteBmc {
public:
    /// @throws std::runtime_error when the BMC cannot be reached
    RemoteBmc(const Settings& settings, Connection::Report report);

    /// The table of functions; its release deletes this object.
    VpddHostBmc functions();

    std::optional<Answer> carry_out(const Command& command);
    SdrRepository& repository() { return repository_; }
    Sensors& sensors() { return sensors_; }

private:
    Connection connection_;
    const Exchange exchange_ = [this](const Command& command) { return connection_.carry_out(command); };
    FruReads fru_reads_{exchange_};
    SdrRepository repository_{exchange_};
    Sensors sensors_{repository_, exchange_};
};

}  // namespace vpdd::host::ipmi
