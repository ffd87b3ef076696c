// SPDX-License-Identifier: Apache-2.0
#include "daemon/server.h"

#include <sys/epoll.h>

#include <algorithm>
#include <cerrno>

namespace vpdd::daemon {

namespace {

constexpr int connections_at_once = 16;  // then everybody else gets a turn
constexpr std::chrono::milliseconds pause_without_descriptors{100};

/// Nobody where the system does not say: such a client may ask, but change nothing.
ucred peer_of(int fd) {
    ucred peer{};
    socklen_t length = sizeof peer;
    if (getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &peer, &length) == 0) return peer;
    constexpr uid_t nobody = 65534;
    return {0, nobody, nobody};
}

}  // namespace

Server::Server(const EventLoop& loop, int listening, std::size_t most_clients, ClientSession::Handler handler)
    : loop_(loop),
      listening_(listening),
      most_clients_(most_clients),
      handler_(std::move(handler)),
      resumption_(loop, [this] { watch_->set_events(EPOLLIN); }) {
    listen_at(listening);
}

void Server::listen_at(int listening) {
    listening_ = listening;
    watch_.emplace(loop_, listening, EPOLLIN, [this](uint32_t) { on_connection(); });
}

void Server::on_connection() {
    for (int i = 0; i < connections_at_once; ++i) {
        const int fd = accept4(listening_, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
        if (fd >= 0) {
            admit(fd);
        } else if (errno != EINTR && errno != ECONNABORTED) {
            if (errno != EAGAIN) pause();
            return;
        }
    }
}

/// Without descriptors the waiting connection would wake the loop again and again.
void Server::pause() {
    watch_->set_events(0);
    resumption_.start(pause_without_descriptors);
}

void Server::admit(int fd) {
    const ucred peer = peer_of(fd);
    const auto is_same_user = [&](const ClientSession& session) { return session.peer().uid == peer.uid; };
    const auto is_anybody = [](const ClientSession&) { return true; };
    const bool has_place = (!has_all_its_places(peer) || make_place(is_same_user)) &&
                           (sessions_.size() < most_clients_ || make_place(is_anybody));
    if (!has_place) {
        close(fd);
        return;
    }
    sessions_.emplace_back(loop_, fd, peer, handler_);
}

/// One unprivileged user never takes more than half of the places.
bool Server::has_all_its_places(const ucred& peer) const {
    if (may_change(peer)) return false;
    const auto is_same_user = [&](const ClientSession& session) { return session.peer().uid == peer.uid; };
    const auto count = static_cast<std::size_t>(std::ranges::count_if(sessions_, is_same_user));
    return count >= std::max<std::size_t>(most_clients_ / 2, 1);
}

/// Who has kept a place longest without having asked anything loses it, then who has waited longest for a change.
template <class Condition>
bool Server::make_place(Condition may_lose_its_place) {
    // They stand in the order in which they came.
    const auto oldest = [&](auto is_meant) {
        return std::ranges::find_if(
            sessions_, [&](const ClientSession& session) { return may_lose_its_place(session) && is_meant(session); });
    };
    auto loser = oldest([](const ClientSession& session) { return session.is_reading(); });
    if (loser == sessions_.end()) {
        loser = oldest([](const ClientSession& session) { return session.pending().has_value(); });
    }
    if (loser == sessions_.end()) return false;
    // Not by a callback of its own: this is the callback of the listening socket.
    sessions_.erase(loser);
    return true;
}

void Server::reap() {
    sessions_.remove_if([](const ClientSession& session) { return session.has_ended(); });
}

}  // namespace vpdd::daemon
