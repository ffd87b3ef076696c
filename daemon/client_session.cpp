// SPDX-License-Identifier: Apache-2.0
#include "daemon/client_session.h"

#include <sys/epoll.h>
#include <sys/uio.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace vpdd::daemon {

namespace {

constexpr std::chrono::milliseconds time_to_ask{5000};
constexpr std::chrono::milliseconds time_to_take{10000};

}  // namespace

ClientSession::ClientSession(const EventLoop& loop, int fd, const ucred& peer, const Handler& handler)
    : fd_(fd),
      peer_(peer),
      handler_(handler),
      watch_(loop, fd, EPOLLIN, [this](uint32_t events) { on_event(events); }),
      deadline_(loop, [this] { on_time(); }) {
    deadline_.start(time_to_ask);
}

void ClientSession::end() { state_ = State::ended; }

void ClientSession::on_event(uint32_t events) {
    switch (state_) {
        case State::reading:
            return read_request();
        case State::writing:
            return write_reply();
        case State::waiting:
            if ((events & (EPOLLHUP | EPOLLERR)) != 0) end();
            return;
        case State::ended:
            return;
    }
}

void ClientSession::on_time() {
    if (state_ != State::waiting) return end();
    handler_.on_late(*this);
}

void ClientSession::read_request() {
    const ssize_t count = recv(fd_.get(), input_.data() + received_, input_.size() - received_, MSG_DONTWAIT);
    if (count < 0 && (errno == EAGAIN || errno == EINTR)) return;
    if (count <= 0) return end();
    received_ += static_cast<std::size_t>(count);

    const char* const begin = input_.data();
    const char* const end_of_text =
        std::find(begin, begin + std::min<std::size_t>(received_, VPDD_LONGEST_REQUEST), '\n');
    const auto line_end = static_cast<std::size_t>(end_of_text - begin);
    if (line_end == VPDD_LONGEST_REQUEST) return answer(refusal(VPDD_REPLY_MALFORMED));
    if (line_end == received_ || received_ < line_end + 1 + sizeof(uint32_t)) return;
    take_request(line_end);
}

void ClientSession::take_request(std::size_t line_end) {
    uint32_t room = 0;
    std::memcpy(&room, input_.data() + line_end + 1, sizeof room);
    Request request;
    const VpddReply understood = parse_request({input_.data(), line_end}, request);
    if (understood != VPDD_REPLY_OK) return answer(refusal(understood));
    if (is_privileged(request.subject) && !may_change(peer_)) return answer(refusal(VPDD_REPLY_NOT_PERMITTED));
    handler_.on_request(*this, request, room);
}

void ClientSession::wait(Pending pending, std::chrono::milliseconds limit) {
    pending_ = std::move(pending);
    state_ = State::waiting;
    watch_.set_events(0);
    deadline_.start(limit);
}

void ClientSession::answer(Reply reply) {
    pending_.reset();
    reply_ = std::move(reply);
    const auto word = static_cast<uint32_t>(reply_.word);
    const auto size = static_cast<int32_t>(reply_.bytes.size());
    std::memcpy(head_.data(), &word, sizeof word);
    std::memcpy(head_.data() + sizeof word, &size, sizeof size);
    std::memcpy(head_.data() + sizeof word + sizeof size, &reply_.pass, sizeof reply_.pass);
    // The second word is only sent in front of data.
    head_length_ = size > 0 ? head_.size() : sizeof word + sizeof size;
    state_ = State::writing;
    deadline_.start(time_to_take);
    write_reply();
}

ssize_t ClientSession::write_some() {
    const std::size_t head_sent = std::min(sent_, head_length_);
    const std::size_t bytes_sent = sent_ - head_sent;
    std::array<iovec, 2> parts{};
    parts[0] = {head_.data() + head_sent, head_length_ - head_sent};
    // The system only reads through this pointer.
    parts[1] = {const_cast<uint8_t*>(reply_.bytes.data()) + bytes_sent, reply_.bytes.size() - bytes_sent};
    msghdr message{};
    message.msg_iov = parts.data();
    message.msg_iovlen = parts.size();
    const ssize_t count = sendmsg(fd_.get(), &message, MSG_DONTWAIT | MSG_NOSIGNAL);
    if (count < 0 && (errno == EAGAIN || errno == EINTR)) return 0;
    return count;
}

void ClientSession::write_reply() {
    const ssize_t count = write_some();
    if (count < 0) return end();
    sent_ += static_cast<std::size_t>(count);
    if (sent_ == head_length_ + reply_.bytes.size()) return end();
    watch_.set_events(EPOLLOUT);
}

}  // namespace vpdd::daemon
