// SPDX-License-Identifier: Apache-2.0
// The event loop of libsystemd, with an owner for each thing that it watches.
#pragma once

#include <systemd/sd-event.h>

#include <chrono>
#include <functional>
#include <memory>

namespace vpdd::daemon {

class EventLoop {
public:
    /// @throws std::system_error, as all of this file do
    EventLoop();

    sd_event* handle() const { return loop_.get(); }

    /// Tells the service manager's watchdog, where there is one, that the loop runs.
    void keep_watchdog() const;

    /// Waits for the next event and carries it out.
    void run_once() const;

private:
    struct Unref {
        void operator()(sd_event* loop) const { sd_event_unref(loop); }
    };
    std::unique_ptr<sd_event, Unref> loop_;
};

struct DisableUnref {
    void operator()(sd_event_source* source) const { sd_event_source_disable_unref(source); }
};
using EventSource = std::unique_ptr<sd_event_source, DisableUnref>;

/// Watches a file descriptor for as long as it lives. Must not be destroyed by its own callback.
class DescriptorWatch {
public:
    using Callback = std::function<void(uint32_t events)>;

    /// @param events EPOLLIN, EPOLLOUT; a hang-up is always told
    DescriptorWatch(const EventLoop& loop, int fd, uint32_t events, Callback callback);

    void set_events(uint32_t events);

private:
    const std::unique_ptr<Callback> callback_;
    EventSource source_;
};

/// Calls once after each start. Must not be destroyed by its own callback.
class Timer {
public:
    using Callback = std::function<void()>;

    Timer(const EventLoop& loop, Callback callback);

    void start(std::chrono::milliseconds delay);

private:
    const std::unique_ptr<Callback> callback_;
    EventSource source_;
};

/// The signal is blocked from now on, in this thread and in those that it starts.
class SignalWatch {
public:
    using Callback = std::function<void()>;

    SignalWatch(const EventLoop& loop, int signal, Callback callback);

private:
    const std::unique_ptr<Callback> callback_;
    EventSource source_;
};

}  // namespace vpdd::daemon
