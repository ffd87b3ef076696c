// SPDX-License-Identifier: Apache-2.0
// A BMC that nobody here wrote: OpenIPMI's simulator on a free port of the loopback interface.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "host/images/bytes.h"
#include "vpdctl_process.h"

namespace vpdd::test {

struct SimulatedSensor {
    uint8_t number;
    uint8_t type;
    uint16_t state;
    bool is_scanned = true;
};

/// What the BMC has.
struct SimulatedBmc {
    std::map<uint8_t, images::Bytes> frus{};
    std::vector<images::Bytes> sdr{};
    std::vector<SimulatedSensor> sensors{};
};

inline constexpr const char* simulated_user = "orva";
inline constexpr const char* simulated_password = "secret";

/// Whether the simulator and the tools to compare with are installed.
bool simulator_is_installed();

/// Runs until it is stopped, or the test program ends, or two minutes are over.
class Simulator {
public:
    /// Returns when the BMC answers. @throws std::runtime_error
    explicit Simulator(const SimulatedBmc& bmc);
    ~Simulator() { stop(); }
    Simulator(const Simulator&) = delete;
    Simulator& operator=(const Simulator&) = delete;

    uint16_t port() const { return port_; }
    void stop();

private:
    void write_files(const SimulatedBmc& bmc);
    void start();
    void wait_until_it_answers() const;

    ScratchFolder folder_;
    uint16_t port_;
    pid_t process_ = -1;
};

/// A UDP port that is free now.
uint16_t free_port();

}  // namespace vpdd::test
