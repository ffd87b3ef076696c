// SPDX-License-Identifier: Apache-2.0
#include "daemon/keeper.h"

#include <syslog.h>

#include <algorithm>
#include <ctime>
#include <string_view>
#include <utility>

namespace vpdd::daemon {

namespace {

constexpr int restore_from_log = 0;
constexpr int look_for_presence = 1;
constexpr int cache_gone = -1;  // of UpdateComponentStatus(): the cache is locked for good
constexpr int32_t present = 1;
constexpr uint8_t memory_device = 0x20;  // IPMI 2.0 table 43-13

/// The host's network ports on the system board and on an extra module.
constexpr std::array<const char*, 2> watched_paths{"/ac/zeltc/lom-active", "/ac/zeltc/xlom-active"};

Keeper& keeper_of(void* context) { return *static_cast<Keeper*>(context); }

/// Whether a change of one path is one of the other: either may lie below the other.
bool concerns(std::string_view changed, std::string_view watched) {
    const auto is_below = [](std::string_view path, std::string_view folder) {
        return path.starts_with(folder) && (path.size() == folder.size() || path[folder.size()] == '/');
    };
    return is_below(changed, watched) || is_below(watched, changed);
}

/// What the log says of a component that is looked at for the first time since the start; nothing: it was not there.
ComponentVpdRecord logged_form(const ComponentVpdRecord& record, const Records& log) {
    const auto same = [&](const ComponentVpdRecord& entry) { return entry.fru_id == record.fru_id; };
    const auto newest = std::find_if(log.rbegin(), log.rend(), same);
    if (newest != log.rend()) return *newest;
    ComponentVpdRecord unknown = record;
    unknown.status = 0;
    return unknown;
}

/// What has changed since the daemon ran last. Memory devices are never logged, so nothing is known of those.
Changes changes_since_last_run(const Records& log, const Inventory& now) {
    Inventory former;
    former.machine = now.machine;
    former.oem_machine = now.oem_machine;
    for (const ComponentVpdRecord& record : now.components) former.components.push_back(logged_form(record, log));
    for (std::size_t i = 0; i < now.components.size(); ++i) {
        ComponentVpdRecord& record = former.components[i];
        std::copy(std::begin(now.components[i].name), std::end(now.components[i].name), std::begin(record.name));
        if (now.components[i].entity_id == memory_device) record = now.components[i];
    }
    return changes_between(former, now);
}

}  // namespace

Keeper::Keeper(const VpddPlatformLibrary& platform, const KeeperOptions& options, Log log, std::function<void()> wake)
    : platform_(platform), options_(options), log_(log), wake_(std::move(wake)) {
    reports_.context = this;
    reports_.system_vpd_changed = [](void* keeper) {
        keeper_of(keeper).add_work([](Work& work) { work.system_vpd = true; });
    };
    reports_.fru_changed = [](void* keeper, uint8_t fru_id) {
        vpd_compvpd_changed_notify_callback(fru_id);
        keeper_of(keeper).add_work([](Work& work) { work.poll = true; });
    };
    reports_.sdr_changed = [](void* keeper) { keeper_of(keeper).add_work([](Work& work) { work.rebuild = true; }); };
    reports_.property_changed = [](void* keeper, const char* path) {
        for (std::size_t i = 0; i < watched_paths.size(); ++i) {
            if (!concerns(path, watched_paths[i])) continue;
            keeper_of(keeper).add_work([i](Work& work) { work.property_paths[i] = true; });
        }
    };
    reports_.message = [](void* keeper, int level, const char* text) { keeper_of(keeper).log_(level, text); };
}

Keeper::~Keeper() {
    begin_stop();
    worker_.join();
}

template <class Change>
void Keeper::add_work(Change change) {
    const std::scoped_lock lock(mutex_);
    change(work_);
    work_came_.notify_all();
}

void Keeper::start() {
    worker_.start([this] { run(); });
}

void Keeper::begin_stop() {
    const std::scoped_lock lock(mutex_);
    is_stopping_ = true;
    work_came_.notify_all();
}

bool Keeper::is_stopping() {
    const std::scoped_lock lock(mutex_);
    return is_stopping_;
}

bool Keeper::wait_for_stop(std::chrono::milliseconds limit) { return worker_.wait_for_end(limit); }

uint64_t Keeper::order(Order order) {
    const std::scoped_lock lock(mutex_);
    work_.poll = true;
    work_.refresh |= order == Order::refresh;
    work_.clean_log |= order == Order::clean_log;
    work_.reload |= order == Order::reload;
    work_came_.notify_all();
    return passes_begun_ + 1;
}

std::vector<PassResult> Keeper::take() {
    const std::scoped_lock lock(mutex_);
    return std::exchange(results_, {});
}

void Keeper::note(int priority, const std::string& text) { log_(priority, text.c_str()); }

bool Keeper::fail(const std::string& reason) {
    note(LOG_ERR, reason);
    has_failed_ = true;
    wake_();
    return false;
}

void Keeper::run() {
    if (!begin()) return;
    for (Work work = next_work(); !is_stopping(); work = next_work()) {
        if (!carry_out(work)) return;
    }
    DestroyComponentVPDCache();
}

/// The first inventory.
bool Keeper::begin() {
    if (!create_cache()) return false;
    if (is_stopping()) return true;
    update_machine_vpd_cache_file();
    const Records log = copy_log();
    restore();
    if (!poll_presence()) return false;
    const auto inventory = take_inventory();
    publish(false, looked_ != 0 ? changes_since_last_run(log, *inventory) : Changes{}, inventory);
    is_anything_new_there();  // what cannot be read now is nothing new later
    return true;
}

bool Keeper::create_cache() {
    looked_ = 0;
    const int result = CreateComponentVPDCache();
    if (result == 0) return true;
    // The library may have left its lock held: nothing that needs it must follow.
    return fail("the component cache cannot be created: " +
                (result == -3 ? std::string("the SDR repository cannot be read") : "result " + std::to_string(result)));
}

/// The update reads what creation leaves out (a processor's PPIN): without it the first one would look like a change.
void Keeper::restore() {
    if (UpdateComponentStatus(restore_from_log) != 0) {
        note(LOG_ERR, "the activity log cannot be created: is there a folder /flash/data0? Nothing will be logged");
    }
    update_cache();
}

void Keeper::update_cache() {
    refreshed_ = std::chrono::steady_clock::now();
    update_result_ = UpdateComponentVPDCache();
}

/// What is to be done next, when it is due.
Keeper::Work Keeper::next_work() {
    std::unique_lock lock(mutex_);
    const auto has_work = [this] {
        return is_stopping_ || work_.poll || work_.reload || work_.rebuild || work_.system_vpd ||
               std::ranges::find(work_.property_paths, true) != work_.property_paths.end();
    };
    work_came_.wait_for(lock, options_.poll_interval, has_work);
    ++passes_begun_;
    return std::exchange(work_, {});
}

bool Keeper::carry_out(const Work& work) {
    if (work.reload) reload();
    if (platform_.check != nullptr) platform_.check();
    if (work.clean_log) clean_log();
    if (work.rebuild && !rebuild()) return false;
    if (work.system_vpd) vpd_sysvpd_changed_notify_callback();
    update_ports(work);
    refresh_if_needed(work.refresh);
    if (!poll_presence()) return false;

    const auto inventory = take_inventory();
    publish(work.reload, changes_to(*inventory), inventory);
    return true;
}

/// Until presence has been looked at, the last that is known of it is the log.
Changes Keeper::changes_to(const Inventory& now) const {
    const bool is_first_look = now.looked != 0 && current_->looked == 0;
    return is_first_look ? changes_since_last_run(current_->log, now) : changes_between(*current_, now);
}

/// The ports' addresses are part of the machine's record.
void Keeper::update_ports(const Work& work) {
    for (std::size_t i = 0; i < watched_paths.size(); ++i) {
        if (work.property_paths[i]) vpdd_property_change_cache(watched_paths[i]);
    }
    if (std::ranges::count(work.property_paths, true) > 0) update_machine_vpd_cache_file();
}

void Keeper::reload() {
    if (platform_.reload == nullptr) return;
    std::array<char, 1024> error{};
    if (platform_.reload(error.data(), error.size()) == 0) return;
    note(LOG_ERR, std::string("the configuration stays as it was: ") + error.data());
}

/// The components that the SDR repository names are others now.
bool Keeper::rebuild() {
    DestroyComponentVPDCache();
    if (!create_cache()) return false;
    restore();
    return true;
}

void Keeper::refresh_if_needed(bool is_wanted) {
    const bool is_due = std::chrono::steady_clock::now() - refreshed_ >= options_.refresh_interval;
    // Cleared first, so that a change during the update leads to another one.
    const bool is_reported = vpd_get_fru_changed_flag() != 0;
    if (is_reported) vpd_set_fru_changed_flag(0);
    const bool is_new = is_anything_new_there();
    if (is_wanted || is_due || is_reported || is_new) update_cache();
}

/// A component that was absent or could not be read answers now: its data must be read before it counts as present.
/// This notices it also where the platform reports nothing.
bool Keeper::is_anything_new_there() {
    bool is_new = false;
    for (const ComponentVpdRecord& record : current_->components) {
        bool& was_there = was_there_[record.fru_id];
        uint32_t size = 0;
        const bool is_known = record.is_cached != 0 && record.status == present;
        const bool is_there = !is_known && read_fru_size(record.fru_id, &size) == 0;
        is_new |= is_there && !was_there;
        was_there = is_there;
    }
    return is_new;
}

/// False when the library has locked the cache for good.
bool Keeper::poll_presence() {
    status_result_ = UpdateComponentStatus(look_for_presence);
    if (status_result_ == cache_gone) return fail("the component cache went away during a pass");
    if (status_result_ == 0) looked_ = time(nullptr);
    return true;
}

/// "update=-10 status=-32"; empty: none.
std::string Keeper::trouble() const {
    std::string text = update_result_ != 0 ? "update=" + std::to_string(update_result_) : "";
    if (status_result_ == 0) return text;
    if (!text.empty()) text += ' ';
    return text + "status=" + std::to_string(status_result_);
}

/// Between two passes, so that no rewrite is under way.
void Keeper::clean_log() {
    vpdd_serv_cleanlog();
    note(LOG_NOTICE, "the activity log was emptied");
}

std::shared_ptr<Inventory> Keeper::take_inventory() {
    auto inventory = std::make_shared<Inventory>();
    inventory->components = copy_components(room_);
    const LogStamp stamp = log_stamp();
    inventory->log = current_ && stamp == log_stamp_ ? current_->log : copy_log();
    log_stamp_ = stamp;
    copy_machine(*inventory);
    inventory->taken = time(nullptr);
    inventory->looked = looked_;
    inventory->trouble = trouble();
    return inventory;
}

void Keeper::publish(bool is_reload_done, Changes changes, std::shared_ptr<Inventory> inventory) {
    const std::scoped_lock lock(mutex_);
    inventory->pass = passes_begun_;
    current_ = inventory;
    results_.push_back({std::move(inventory), std::move(changes), is_reload_done});
    wake_();
}

}  // namespace vpdd::daemon
