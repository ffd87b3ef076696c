// SPDX-License-Identifier: Apache-2.0
// Reads what is installed of firmware images, on a thread of its own: a controller that does not answer costs seconds.
#pragma once

#include <chrono>
#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "daemon/worker.h"
#include "orva_vpdd.h"

namespace vpdd::daemon {

class FirmwareReader {
public:
    struct Finding {
        std::string image_name;
        std::optional<FirmwareVpd> firmware;  ///< none: the library does not know the image
    };

    /// @param wake called on the reader's thread when there is something for take()
    explicit FirmwareReader(std::function<void()> wake);
    ~FirmwareReader();
    FirmwareReader(const FirmwareReader&) = delete;
    FirmwareReader& operator=(const FirmwareReader&) = delete;

    void start();
    void begin_stop();
    /// @return whether the thread has ended in time
    bool wait_for_stop(std::chrono::milliseconds limit);

    /// All who ask for an image before it has been read get the same finding.
    /// @return false: too much is waiting already
    bool ask(const std::string& image_name);
    std::vector<Finding> take();

private:
    void run();

    const std::function<void()> wake_;
    std::mutex mutex_;
    std::condition_variable asked_;
    std::deque<std::string> waiting_;
    std::vector<Finding> found_;
    bool is_stopping_ = false;
    Worker worker_;
};

}  // namespace vpdd::daemon
