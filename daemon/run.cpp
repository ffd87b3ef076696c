// SPDX-License-Identifier: Apache-2.0
// The daemon's life: platform, socket, inventory, clients, signals, and its words with the service manager.
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <syslog.h>
#include <systemd/sd-daemon.h>

#include <array>
#include <csignal>
#include <ctime>
#include <memory>
#include <system_error>

#include "daemon/answers.h"
#include "daemon/exit_code.h"
#include "daemon/firmware_reader.h"
#include "daemon/keeper.h"
#include "daemon/program.h"
#include "daemon/server.h"
#include "daemon/server_socket.h"

namespace vpdd::daemon {

namespace {

constexpr std::chrono::milliseconds longest_order{60000};
constexpr std::chrono::milliseconds longest_firmware_look{20000};
constexpr std::chrono::milliseconds longest_stop{10000};

int new_wake_descriptor() {
    const int fd = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    if (fd < 0) throw std::system_error(errno, std::generic_category(), "eventfd");
    return fd;
}

class Daemon {
public:
    Daemon(const Options& options, const VpddPlatformLibrary& platform, const Program& program);

    bool open_platform();
    int run();

private:
    void on_wake();
    void on_request(ClientSession& session, const Request& request, std::size_t room);
    void read_firmware(ClientSession& session, const Request& request, std::size_t room);
    void on_late(ClientSession& session);
    void on_reload();
    void take(const PassResult& result);
    void answer_pending();
    void answer_firmware(const FirmwareReader::Finding& finding);
    void answer_from_holdings(ClientSession& session, const Request& request, std::size_t room);
    std::unique_ptr<ServerSocket> new_socket() const;
    void renew_socket();
    void stop_threads();

    const Options& options_;
    const VpddPlatformLibrary& platform_;
    const Program& program_;
    bool is_stopping_ = false;

    EventLoop loop_;
    SignalWatch terminate_{loop_, SIGTERM, [this] { is_stopping_ = true; }};
    SignalWatch interrupt_{loop_, SIGINT, [this] { is_stopping_ = true; }};
    SignalWatch hang_up_{loop_, SIGHUP, [this] { on_reload(); }};
    const SocketLock socket_lock_;
    std::unique_ptr<ServerSocket> socket_;
    const ScopedFd wake_{new_wake_descriptor()};
    Holdings holdings_;
    Keeper keeper_;
    FirmwareReader firmware_reader_{[this] { eventfd_write(wake_.get(), 1); }};
    DescriptorWatch wake_watch_{loop_, wake_.get(), EPOLLIN, [this](uint32_t) { on_wake(); }};
    Server server_;
};

Daemon::Daemon(const Options& options, const VpddPlatformLibrary& platform, const Program& program)
    : options_(options),
      platform_(platform),
      program_(program),
      socket_lock_(options.socket_path),
      socket_(new_socket()),
      keeper_(platform, {options.poll_interval, options.refresh_interval}, program.write_message,
              [this] { eventfd_write(wake_.get(), 1); }),
      server_(loop_, socket_->fd(), options.most_clients,
              {[this](ClientSession& session, const Request& request, std::size_t room) {
                   on_request(session, request, room);
               },
               [this](ClientSession& session) { on_late(session); }}) {
    holdings_.platform = platform.name;
    holdings_.started = time(nullptr);
}

std::unique_ptr<ServerSocket> Daemon::new_socket() const {
    return std::make_unique<ServerSocket>(options_.socket_path, options_.socket_mode, options_.socket_group);
}

/// Somebody who cleans up /tmp has removed it. Who is connected stays so.
void Daemon::renew_socket() {
    try {
        auto fresh = new_socket();
        server_.listen_at(fresh->fd());
        socket_ = std::move(fresh);
        program_.write_message(LOG_WARNING, (options_.socket_path + " was removed; it is there again").c_str());
    } catch (const SocketError& error) {
        program_.write_message(LOG_ERR, error.what());
    }
}

bool Daemon::open_platform() {
    std::vector<VpddPlatformSetting> settings;
    for (const auto& [key, value] : options_.platform_settings) settings.push_back({key.c_str(), value.c_str()});
    std::array<char, 1024> error{};
    if (platform_.open(settings.data(), settings.size(), &keeper_.reports(), error.data(), error.size()) == 0) {
        return true;
    }
    program_.write_message(LOG_ERR, error.data());
    return false;
}

int Daemon::run() {
    loop_.keep_watchdog();
    keeper_.start();
    firmware_reader_.start();
    while (!is_stopping_ && !keeper_.has_failed()) {
        loop_.run_once();
        server_.reap();
    }
    sd_notify(0, "STOPPING=1\nSTATUS=Ending");
    stop_threads();
    return keeper_.has_failed() ? exit_no_cache : exit_ok;
}

/// A platform function that never returns must not keep the process for ever.
void Daemon::stop_threads() {
    keeper_.begin_stop();
    firmware_reader_.begin_stop();
    program_.end_pauses();
    if (keeper_.wait_for_stop(longest_stop) && firmware_reader_.wait_for_stop(longest_stop)) {
        platform_.close();
        return;
    }
    program_.write_message(LOG_ERR, "the platform does not come back: ending without it");
    socket_->remove();
    socket_lock_.remove();
    _exit(exit_ok);
}

void Daemon::on_wake() {
    eventfd_t ignored = 0;
    eventfd_read(wake_.get(), &ignored);
    for (const PassResult& result : keeper_.take()) take(result);
    if (socket_->is_missing()) renew_socket();
    answer_pending();
    for (const FirmwareReader::Finding& finding : firmware_reader_.take()) answer_firmware(finding);
}

void Daemon::answer_firmware(const FirmwareReader::Finding& finding) {
    server_.each_pending([&](ClientSession& session) {
        const ClientSession::Pending& pending = *session.pending();
        if (pending.request.subject != Subject::firmware || pending.request.image_name != finding.image_name) return;
        if (!finding.firmware) return session.answer(refusal(VPDD_REPLY_NOT_FOUND));
        const auto* const bytes = reinterpret_cast<const uint8_t*>(&*finding.firmware);
        session.answer(reply_with({bytes, bytes + sizeof *finding.firmware}, 0));
    });
}

void Daemon::take(const PassResult& result) {
    const bool is_first = holdings_.inventory == nullptr;
    holdings_.inventory = result.inventory;
    holdings_.feed.add(result.changes);
    const std::size_t components = result.inventory->components.size();
    if (is_first) {
        const std::string text = "serving " + std::to_string(components) + " components at " + options_.socket_path;
        program_.write_message(LOG_NOTICE, text.c_str());
    }
    if (is_first || result.is_reload_done) sd_notify(0, "READY=1");
    if (is_first || !result.changes.empty()) {
        sd_notifyf(0, "STATUS=%zu components, %llu changes since the start", components,
                   static_cast<unsigned long long>(holdings_.feed.newest()));
    }
}

void Daemon::answer_pending() {
    if (!holdings_.inventory) return;
    server_.each_pending([this](ClientSession& session) {
        const ClientSession::Pending pending = *session.pending();
        const bool is_news =
            pending.request.subject == Subject::changes && holdings_.feed.newest() != pending.request.sequence;
        const bool is_carried_out = is_privileged(pending.request.subject) && holdings_.inventory->pass >= pending.pass;
        if (is_news || is_carried_out) answer_from_holdings(session, pending.request, pending.room);
    });
}

void Daemon::answer_from_holdings(ClientSession& session, const Request& request, std::size_t room) {
    holdings_.clients = server_.client_count();
    holdings_.waiting = 0;
    server_.each_pending([this](const ClientSession&) { ++holdings_.waiting; });
    session.answer(answer(holdings_, request, room));
}

void Daemon::on_request(ClientSession& session, const Request& request, std::size_t room) {
    ++holdings_.requests;
    if (is_privileged(request.subject)) {
        const auto order = request.subject == Subject::refresh ? Keeper::Order::refresh : Keeper::Order::clean_log;
        return session.wait({request, room, keeper_.order(order)}, longest_order);
    }
    if (request.subject == Subject::firmware) return read_firmware(session, request, room);
    // A number that has not been given yet is one of a former daemon.
    const bool has_nothing_new = holdings_.inventory && holdings_.feed.newest() == request.sequence;
    if (request.subject == Subject::changes && request.wait > 0 && has_nothing_new) {
        return session.wait({request, room, 0}, std::chrono::seconds(request.wait));
    }
    answer_from_holdings(session, request, room);
}

void Daemon::read_firmware(ClientSession& session, const Request& request, std::size_t room) {
    if (room < sizeof(FirmwareVpd)) return session.answer(refusal(VPDD_REPLY_NO_ROOM));
    if (!firmware_reader_.ask(request.image_name)) return session.answer(refusal(VPDD_REPLY_TOO_LATE));
    session.wait({request, room, 0}, longest_firmware_look);
}

void Daemon::on_late(ClientSession& session) {
    const ClientSession::Pending pending = *session.pending();
    if (pending.request.subject != Subject::changes) return session.answer(refusal(VPDD_REPLY_TOO_LATE));
    answer_from_holdings(session, pending.request, pending.room);
}

void Daemon::on_reload() {
    sd_notify(0, "RELOADING=1");
    keeper_.order(Keeper::Order::reload);
}

int run(const Options& options, const VpddPlatformLibrary& platform, const Program& program) {
    try {
        Daemon daemon(options, platform, program);
        return daemon.open_platform() ? daemon.run() : exit_no_platform;
    } catch (const SocketError& error) {
        program.write_message(LOG_ERR, error.what());
        return exit_no_socket;
    }
}

}  // namespace

}  // namespace vpdd::daemon

extern "C" int vpdd_daemon_run(const vpdd::daemon::Options& options, const VpddPlatformLibrary& platform,
                               const vpdd::daemon::Program& program) {
    return vpdd::daemon::run(options, platform, program);
}
