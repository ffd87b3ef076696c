// SPDX-License-Identifier: Apache-2.0
#include "daemon/event_loop.h"

#include <sys/epoll.h>

#include <csignal>
#include <system_error>

namespace vpdd::daemon {

namespace {

constexpr uint64_t timer_accuracy = 1000;  // microseconds

int checked(int result, const char* what) {
    if (result < 0) throw std::system_error(-result, std::generic_category(), what);
    return result;
}

int on_descriptor(sd_event_source*, int, uint32_t events, void* callback) {
    (*static_cast<DescriptorWatch::Callback*>(callback))(events);
    return 0;
}

int on_time(sd_event_source*, uint64_t, void* callback) {
    (*static_cast<Timer::Callback*>(callback))();
    return 0;
}

int on_signal(sd_event_source*, const signalfd_siginfo*, void* callback) {
    (*static_cast<SignalWatch::Callback*>(callback))();
    return 0;
}

}  // namespace

EventLoop::EventLoop() {
    sd_event* loop = nullptr;
    checked(sd_event_new(&loop), "event loop");
    loop_.reset(loop);
}

void EventLoop::keep_watchdog() const { checked(sd_event_set_watchdog(handle(), 1), "watchdog"); }

void EventLoop::run_once() const { checked(sd_event_run(handle(), UINT64_MAX), "event loop"); }

DescriptorWatch::DescriptorWatch(const EventLoop& loop, int fd, uint32_t events, Callback callback)
    : callback_(std::make_unique<Callback>(std::move(callback))) {
    sd_event_source* source = nullptr;
    checked(sd_event_add_io(loop.handle(), &source, fd, events, on_descriptor, callback_.get()), "descriptor");
    source_.reset(source);
}

void DescriptorWatch::set_events(uint32_t events) {
    checked(sd_event_source_set_io_events(source_.get(), events), "descriptor");
}

Timer::Timer(const EventLoop& loop, Callback callback) : callback_(std::make_unique<Callback>(std::move(callback))) {
    sd_event_source* source = nullptr;
    checked(sd_event_add_time(loop.handle(), &source, CLOCK_MONOTONIC, UINT64_MAX, timer_accuracy, on_time,
                              callback_.get()),
            "timer");
    source_.reset(source);
    checked(sd_event_source_set_enabled(source, SD_EVENT_OFF), "timer");
}

void Timer::start(std::chrono::milliseconds delay) {
    const auto microseconds = static_cast<uint64_t>(std::chrono::microseconds(delay).count());
    checked(sd_event_source_set_time_relative(source_.get(), microseconds), "timer");
    checked(sd_event_source_set_enabled(source_.get(), SD_EVENT_ONESHOT), "timer");
}

SignalWatch::SignalWatch(const EventLoop& loop, int signal, Callback callback)
    : callback_(std::make_unique<Callback>(std::move(callback))) {
    sigset_t blocked;
    sigemptyset(&blocked);
    sigaddset(&blocked, signal);
    checked(-pthread_sigmask(SIG_BLOCK, &blocked, nullptr), "signal mask");
    sd_event_source* source = nullptr;
    checked(sd_event_add_signal(loop.handle(), &source, signal, on_signal, callback_.get()), "signal");
    source_.reset(source);
}

}  // namespace vpdd::daemon
