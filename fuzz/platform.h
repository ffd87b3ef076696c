// SPDX-License-Identifier: Apache-2.0
// Stands in for the platform's libraries under a fuzzer: it answers from a small world that a target fills, formats
// what is logged and throws it away, and never sleeps.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <span>
#include <vector>

#include "orva_vpdd.h"

namespace vpdd::fuzz {

using Bytes = std::vector<uint8_t>;

struct IpmiCall {
    uint8_t netfn, cmd;
    std::span<const uint8_t> data;

    bool is(uint8_t of_netfn, uint8_t of_cmd) const { return netfn == of_netfn && cmd == of_cmd; }
};

struct IpmiAnswer {
    int result = 0;
    Bytes bytes{};                    ///< completion code first
    std::optional<int32_t> length{};  ///< reported instead of the number of bytes
};

struct SdrAnswer {
    int result = 0;
    Bytes record{};
    uint16_t next_record_id = 0xFFFF;
};

/// What the platform's functions answer from. What is not there cannot be read.
struct World {
    std::vector<Bytes> sdr;              ///< the repository, in order
    std::map<uint8_t, Bytes> frus;       ///< images by FRU id
    std::map<uint32_t, Bytes> fields;    ///< of the system VPD
    std::optional<uint32_t> field_size;  ///< that every field is said to have, whatever its bytes
    SmbiosTable* smbios = nullptr;
    Bytes sensors;  ///< entries of 1492 bytes, of every type

    // These take the place of the repository and of the FRUs.
    std::function<SdrAnswer(uint16_t record_id)> answer_sdr;
    std::function<IpmiAnswer(const IpmiCall&)> answer_ipmi;
};
World& world();

/// The answers of a stack with the world's FRUs behind it, and of the world's repository.
IpmiAnswer standard_ipmi_answer(const IpmiCall& call);
SdrAnswer standard_sdr_answer(uint16_t record_id);

/// Ends the process, which a fuzzer takes for a finding.
void require(bool is_so, const char* what);

/// One input: an empty world and an empty cache before it and behind it, and every lock free.
class Round {
public:
    Round();
    ~Round();
    Round(const Round&) = delete;
    Round& operator=(const Round&) = delete;

    /// CreateComponentVPDCache().
    int create();
};

/// All cached records, each looked at: its texts end inside their fields, and no PPIN dump is left over.
std::vector<ComponentVpdRecord> cached_records();

}  // namespace vpdd::fuzz
