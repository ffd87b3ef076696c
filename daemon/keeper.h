// SPDX-License-Identifier: Apache-2.0
// Keeps the inventory up to date on a thread of its own, the only one that calls the VPD library's cache, status and
// machine functions: each of them may take minutes.
#pragma once

#include <array>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>

#include "daemon/inventory.h"
#include "daemon/worker.h"
#include "host/platform_library.h"

namespace vpdd::daemon {

/// What one pass found.
struct PassResult {
    SharedInventory inventory;
    Changes changes;
    bool is_reload_done = false;
};

struct KeeperOptions {
    std::chrono::milliseconds poll_interval;
    std::chrono::milliseconds refresh_interval;
};

class Keeper {
public:
    using Log = void (*)(int priority, const char* text);

    /// @param wake called on the keeper's thread when there is something for take()
    Keeper(const VpddPlatformLibrary& platform, const KeeperOptions& options, Log log, std::function<void()> wake);
    ~Keeper();
    Keeper(const Keeper&) = delete;
    Keeper& operator=(const Keeper&) = delete;

    /// For the platform, from now on until the keeper is destroyed.
    const VpddPlatformReports& reports() const { return reports_; }

    void start();
    /// Asks the thread to end after what it does now, and to destroy the cache.
    void begin_stop();
    /// @return whether the thread has ended in time
    bool wait_for_stop(std::chrono::milliseconds limit);

    enum class Order { poll, refresh, clean_log, reload };
    /// @return the pass that will have carried it out
    uint64_t order(Order order);

    /// What the passes since the last call found, oldest first.
    std::vector<PassResult> take();

    /// The cache cannot be created, or the library has locked it for good; the text says why.
    bool has_failed() const { return has_failed_; }

private:
    /// What waits to be done in the next pass.
    struct Work {
        bool poll = false;
        bool refresh = false;
        bool clean_log = false;
        bool reload = false;
        bool rebuild = false;
        bool system_vpd = false;
        std::array<bool, 2> property_paths{};
    };

    void run();
    bool is_stopping();
    bool begin();
    bool create_cache();
    void restore();
    void update_cache();
    Work next_work();
    bool carry_out(const Work& work);
    void update_ports(const Work& work);
    void reload();
    bool rebuild();
    void refresh_if_needed(bool is_wanted);
    bool is_anything_new_there();
    bool poll_presence();
    void clean_log();
    void publish(bool is_reload_done, Changes changes, std::shared_ptr<Inventory> inventory);
    std::shared_ptr<Inventory> take_inventory();
    Changes changes_to(const Inventory& now) const;
    std::string trouble() const;
    void note(int priority, const std::string& text);
    bool fail(const std::string& reason);

    template <class Change>
    void add_work(Change change);

    const VpddPlatformLibrary& platform_;
    const KeeperOptions options_;
    const Log log_;
    const std::function<void()> wake_;
    VpddPlatformReports reports_{};

    std::mutex mutex_;
    std::condition_variable work_came_;
    Work work_;
    uint64_t passes_begun_ = 0;
    bool is_stopping_ = false;
    std::vector<PassResult> results_;
    std::atomic<bool> has_failed_ = false;
    Worker worker_;

    // Of the keeper's thread.
    SharedInventory current_;
    std::array<bool, 256> was_there_{};  ///< FRU ids that answered while their component was absent or unread
    std::chrono::steady_clock::time_point refreshed_;
    LogStamp log_stamp_;
    Records room_;
    int64_t looked_ = 0;     ///< when presence was last looked at, seconds since the Unix epoch; 0: not yet
    int update_result_ = 0;  ///< of the last UpdateComponentVPDCache()
    int status_result_ = 0;  ///< of the last look at the presence
};

}  // namespace vpdd::daemon
