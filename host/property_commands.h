// SPDX-License-Identifier: Apache-2.0
// The OEM commands that hand out the controller's properties.
#pragma once

#include <array>
#include <memory>
#include <mutex>
#include <optional>

#include "host/ipmi_response.h"
#include "host/property_tree.h"

namespace vpdd::host {

class Server;

/// What is still to be sent of a transfer that goes over several pages.
struct PropertyTransfer {
    std::shared_ptr<const Bytes> pairs;
    std::size_t offset = 0;  ///< of the next page
    uint32_t page = 1;       ///< number of the next page
    const PropertyFault* fault = nullptr;
};

/// The transfers by their continuation handles. A handle stays good for repeats until 256 others were given out.
class PropertyTransfers {
public:
    uint8_t keep(PropertyTransfer transfer);
    std::optional<PropertyTransfer> find(uint8_t handle);

private:
    std::mutex mutex_;
    std::array<std::optional<PropertyTransfer>, 256> transfers_;
    uint8_t next_handle_ = 1;
};

/// The value of one path.
Response get_property(Server& server, Request request);
/// A page of everything below a path.
Response get_properties(Server& server, Request request);

}  // namespace vpdd::host
