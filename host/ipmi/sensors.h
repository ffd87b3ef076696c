// SPDX-License-Identifier: Apache-2.0
// Sensors that the SDR repository names, read one by one.
#pragma once

#include <string>

#include "host/ipmi/sdr_repository.h"

namespace vpdd::host::ipmi {

/// Where a sensor is read, from its record.
struct SensorAddress {
    uint8_t owner = 0;  ///< IPMB address
    uint8_t lun = 0;
    uint8_t number = 0;
    uint8_t type = 0;
    std::string name{};
};

struct SensorReading {
    std::string name;
    uint16_t state = 0;
    bool is_available = false;
};

class Sensors {
public:
    Sensors(SdrRepository& repository, Exchange exchange) : repository_(repository), exchange_(std::move(exchange)) {}

    /// Those of an IPMI sensor type. None when the BMC does not answer, or the repository cannot be read.
    std::optional<std::vector<SensorReading>> read(uint8_t type);

private:
    std::optional<std::vector<SensorAddress>> addresses();

    SdrRepository& repository_;
    Exchange exchange_;
    std::mutex mutex_;
    std::optional<SdrTimes> known_times_;  ///< of the repository from which `known_` comes
    std::vector<SensorAddress> known_;
};

}  // namespace vpdd::host::ipmi
