// SPDX-License-Identifier: Apache-2.0
// A thread whose end can be waited for with a limit.
#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>
#include <utility>

namespace vpdd::daemon {

class Worker {
public:
    template <class Work>
    void start(Work work) {
        is_running_ = true;
        thread_ = std::thread([this, work = std::move(work)] {
            work();
            const std::scoped_lock lock(mutex_);
            is_running_ = false;
            ended_.notify_all();
        });
    }

    /// @return whether the thread has ended in time
    bool wait_for_end(std::chrono::milliseconds limit) {
        std::unique_lock lock(mutex_);
        return ended_.wait_for(lock, limit, [this] { return !is_running_; });
    }

    void join() {
        if (thread_.joinable()) thread_.join();
    }

private:
    std::mutex mutex_;
    std::condition_variable ended_;
    bool is_running_ = false;
    std::thread thread_;
};

}  // namespace vpdd::daemon
