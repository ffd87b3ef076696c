// SPDX-License-Identifier: Apache-2.0
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <array>
#include <ctime>
#include <iomanip>
#include <iostream>
#include <memory>
#include <nlohmann/json.hpp>

#include "cli/command.h"
#include "cli/common_options.h"
#include "cli/daemon_client.h"
#include "cli/display_text.h"
#include "cli/time_text.h"
#include "daemon/changes.h"

namespace vpdd::cli {

namespace {

constexpr unsigned wait_for_change = 20;  // seconds
constexpr unsigned wait_for_daemon = 1;   // seconds
constexpr int width_of_event = 12;
constexpr int width_of_name = 18;

struct Arguments {
    bool json = false;
    bool all = false;
    uint64_t count = 0;
    SessionOptions session;
};

std::string event_name(uint32_t event) {
    switch (event) {
        case VPDD_CHANGE_INSTALLED:
            return "Installed";
        case VPDD_CHANGE_REMOVED:
            return "Removed";
        case VPDD_CHANGE_REPLACED:
            return "Replaced";
        case VPDD_CHANGE_DATA:
            return "DataChanged";
        case VPDD_CHANGE_NO_SENSOR:
            return "SensorMissing";
        case VPDD_CHANGE_MACHINE:
            return "MachineChanged";
        case VPDD_CHANGE_REBUILT:
            return "Rebuilt";
        default:
            return "Event" + std::to_string(event);
    }
}

bool concerns_component(const VpddChangeEntry& change) {
    return change.event != VPDD_CHANGE_MACHINE && change.event != VPDD_CHANGE_REBUILT;
}

Json change_json(const VpddChangeEntry& change) {
    Json object{{"Time", utc_time_text(change.time)}, {"Event", event_name(change.event)}};
    const auto add = [&](const char* name, const std::string& text) {
        if (!text.empty()) object[name] = text;
    };
    if (concerns_component(change)) object["FruId"] = change.fru_id;
    add("Name", field_text(change.name));
    add("SerialNumber", field_text(change.serial_number));
    add("PreviousSerialNumber", field_text(change.previous_serial_number));
    add("PartNumber", field_text(change.part_number));
    return object;
}

void print_line(std::ostream& out, const VpddChangeEntry& change) {
    const std::string previous = field_text(change.previous_serial_number);
    const std::string serial = field_text(change.serial_number);
    out << local_time_text(change.time) << "  " << std::left << std::setw(width_of_event) << event_name(change.event);
    if (concerns_component(change)) {
        out << "  " << std::setw(width_of_name) << displayable(field_text(change.name)) << "  "
            << displayable(previous.empty() ? serial : previous + " -> " + serial);
    }
    out << '\n';
}

/// Follows the daemon, and its successor when it is started again.
class Watch {
public:
    Watch(const Arguments& arguments, std::ostream* log)
        : arguments_(arguments), first_client_(log, arguments.session.patience), client_(log, {}) {}

    void run();

private:
    bool is_done() const { return arguments_.count != 0 && shown_ >= arguments_.count; }
    void begin();
    void follow();
    void catch_up(const VpddChanges& head, const std::string& reason);
    void show(const VpddChangeEntry& change);
    static void note(const std::string& text) { std::cerr << "vpdctl: " << text << std::endl; }

    const Arguments& arguments_;
    const DaemonClient first_client_;  ///< waits also for a daemon that does not run yet
    const DaemonClient client_;
    uint64_t daemon_ = 0;
    uint64_t sequence_ = 0;
    uint64_t shown_ = 0;
    bool is_daemon_missing_ = false;
    daemon::Records known_;  ///< as of the last change that was shown
};

void Watch::begin() {
    const DaemonClient::News news = first_client_.changes(0, 0);
    daemon_ = news.head.daemon;
    sequence_ = arguments_.all ? 0 : news.head.newest;
    known_ = client_.components();
}

/// What a daemon does not tell any more is found out by looking. What happens meanwhile is told twice rather than not.
void Watch::catch_up(const VpddChanges& head, const std::string& reason) {
    note(reason);
    const daemon::Records now = client_.components();
    for (const VpddChangeEntry& change : daemon::changes_between(known_, now, std::time(nullptr))) show(change);
    known_ = now;
    daemon_ = head.daemon;
    sequence_ = head.newest;
}

void Watch::follow() {
    // One that has just come back is looked at without waiting for what it notices next.
    const DaemonClient::News news = client_.changes(sequence_, is_daemon_missing_ ? 0 : wait_for_change);
    is_daemon_missing_ = false;
    if (news.head.daemon != daemon_) return catch_up(news.head, "vpdd was started anew");
    if (news.head.is_gap != 0) return catch_up(news.head, "some changes came too fast; what is there now:");
    if (news.changes.empty()) return;
    for (const VpddChangeEntry& change : news.changes) {
        show(change);
        sequence_ = change.sequence;
    }
    known_ = client_.components();
}

void Watch::show(const VpddChangeEntry& change) {
    if (is_done()) return;
    ++shown_;
    if (arguments_.json) {
        std::cout << change_json(change).dump(-1, ' ', true, Json::error_handler_t::replace) << '\n';
    } else {
        print_line(std::cout, change);
    }
    std::cout.flush();
    if (!std::cout) throw std::runtime_error("cannot write the output");
}

void Watch::run() {
    begin();
    while (!is_done()) {
        try {
            follow();
        } catch (const NoDaemon& reason) {
            if (!is_daemon_missing_) note("vpdd has ended; waiting for it to come back");
            is_daemon_missing_ = true;
            sleep(wait_for_daemon);
        }
    }
}

ExitCode run(const Arguments& arguments) {
    const ServerSession session(arguments.session);
    Watch(arguments, session.log()).run();
    return ExitCode::ok;
}

}  // namespace

Runner declare_watch(CLI::App& verb) {
    auto arguments = std::make_shared<Arguments>();
    verb.add_flag("--all", arguments->all, "Begin with what vpdd has noticed since its start");
    verb.add_option("--count", arguments->count, "End after so many changes")
        ->type_name("NUMBER")
        ->check(CLI::PositiveNumber.description(""));
    verb.add_flag("--json", arguments->json, "Print one JSON object for each change, on a line of its own");
    add_wait_option(verb, arguments->session.patience);
    add_log_option(verb, arguments->session.log);
    return [arguments] { return run(*arguments); };
}

}  // namespace vpdd::cli
