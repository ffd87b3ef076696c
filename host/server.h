// SPDX-License-Identifier: Apache-2.0
// The open server: what its description holds, and what happens to it while it is open.
#pragma once

#include <atomic>
#include <bitset>
#include <memory>

#include "host/bmc.h"
#include "host/config_store.h"
#include "host/description.h"
#include "host/log_messages.h"
#include "host/property_commands.h"
#include "host/system_vpd.h"
#include "host/vpdd_host.h"

namespace vpdd::host {

struct Options {
    std::filesystem::path state_directory;  ///< empty: nothing is kept
    double sleep_factor = 0;
    MessageSink sink;
    VpddHostProgress progress = nullptr;
    void* progress_context = nullptr;
};

/// Tells which FRU is being read, once for each.
class ReadProgress {
public:
    /// Whether the FRU had not been read before.
    bool is_first_read(uint8_t fru_id);

private:
    std::mutex mutex_;
    std::bitset<256> read_;
};

/// The FRU locators of a BMC, as they are read.
class SeenLocators {
public:
    void add(uint8_t fru_id);
    /// Position from 1, in the order of their first reading, and number of all; the position is 0 for an unseen one.
    std::pair<uint32_t, uint32_t> position(uint8_t fru_id);

private:
    std::mutex mutex_;
    std::vector<uint8_t> fru_ids_;
};

class Server {
public:
    /// @param server_document agrees with the schema
    /// @throws std::exception
    Server(Json server_document, std::filesystem::path server_folder, Options server_options, Bmc server_bmc = {});
    /// Without a document, and without a store behind it.
    Server(Description server_description, Options server_options);

    const Json document;  ///< without the changes in the store
    const std::filesystem::path folder;
    const Options options;
    const std::unique_ptr<ConfigStore> store;  ///< none: what the library publishes is dropped
    const FruChanges changes;                  ///< that the store had when the server was made
    const Description description;
    SystemVpd system_vpd;
    TraceFiles trace_files;
    ReadProgress read_progress;
    PropertyTransfers property_transfers;
    SeenLocators seen_locators;
    const Bmc bmc;  ///< none: the description answers
};

/// The open server or null. It lives at least as long as the caller holds it.
std::shared_ptr<Server> current_server();

/// Makes a server the open one, and its state directory that of the change history; null closes.
void use_server(const std::shared_ptr<Server>& server);

}  // namespace vpdd::host
