// SPDX-License-Identifier: Apache-2.0
#include "daemon/firmware_reader.h"

#include <algorithm>
#include <utility>

namespace vpdd::daemon {

namespace {

constexpr std::size_t most_waiting = 64;  // image names

/// The library leaves the record of an image that it does not know zero.
std::optional<FirmwareVpd> read_firmware(const std::string& image_name) {
    FirmwareVpd firmware{};
    uint32_t size = 0;
    if (GetFirmwareVPD(&size, 0, image_name.c_str(), &firmware) != 0 || firmware.name[0] == '\0') return std::nullopt;
    return firmware;
}

}  // namespace

FirmwareReader::FirmwareReader(std::function<void()> wake) : wake_(std::move(wake)) {}

FirmwareReader::~FirmwareReader() {
    begin_stop();
    worker_.join();
}

void FirmwareReader::start() {
    worker_.start([this] { run(); });
}

void FirmwareReader::begin_stop() {
    const std::scoped_lock lock(mutex_);
    is_stopping_ = true;
    asked_.notify_all();
}

bool FirmwareReader::wait_for_stop(std::chrono::milliseconds limit) { return worker_.wait_for_end(limit); }

bool FirmwareReader::ask(const std::string& image_name) {
    const std::scoped_lock lock(mutex_);
    if (std::ranges::find(waiting_, image_name) != waiting_.end()) return true;
    if (waiting_.size() >= most_waiting) return false;
    waiting_.push_back(image_name);
    asked_.notify_all();
    return true;
}

std::vector<FirmwareReader::Finding> FirmwareReader::take() {
    const std::scoped_lock lock(mutex_);
    return std::exchange(found_, {});
}

void FirmwareReader::run() {
    std::unique_lock lock(mutex_);
    for (;;) {
        asked_.wait(lock, [this] { return is_stopping_ || !waiting_.empty(); });
        if (is_stopping_) return;
        // It is waiting no longer: who asks while it is read wants what comes after.
        const std::string image_name = waiting_.front();
        waiting_.pop_front();
        lock.unlock();
        auto firmware = read_firmware(image_name);
        lock.lock();
        found_.push_back({image_name, firmware});
        wake_();
    }
}

}  // namespace vpdd::daemon
