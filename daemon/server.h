// SPDX-License-Identifier: Apache-2.0
// Lets clients in and holds their sessions, within limits.
#pragma once

#include <list>
#include <optional>

#include "daemon/client_session.h"

namespace vpdd::daemon {

class Server {
public:
    /// @param listening a socket that listens, for as long as the server lives
    Server(const EventLoop& loop, int listening, std::size_t most_clients, ClientSession::Handler handler);

    /// At another socket from now on. Not from within its own callbacks; the former socket is still open.
    void listen_at(int listening);

    std::size_t client_count() const { return sessions_.size(); }

    /// Calls for each client that waits for an answer.
    template <class Visitor>
    void each_pending(Visitor visitor) {
        for (ClientSession& session : sessions_) {
            if (session.pending() && !session.has_ended()) visitor(session);
        }
    }

    /// Lets go of the sessions that have ended; after each run of the loop.
    void reap();

private:
    void on_connection();
    void admit(int fd);
    bool has_all_its_places(const ucred& peer) const;
    /// @param may_lose_its_place which sessions are considered
    template <class Condition>
    bool make_place(Condition may_lose_its_place);
    void pause();

    const EventLoop& loop_;
    int listening_;
    const std::size_t most_clients_;
    const ClientSession::Handler handler_;
    std::list<ClientSession> sessions_;
    std::optional<DescriptorWatch> watch_;
    Timer resumption_;
};

}  // namespace vpdd::daemon
