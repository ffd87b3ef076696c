// SPDX-License-Identifier: Apache-2.0
// How long look-ups take from 1 to 8 threads while another thread updates the cache again and again.
#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <thread>
#include <vector>

#include "bench/worlds.h"

namespace {

using namespace vpdd::bench;
using Clock = std::chrono::steady_clock;

constexpr std::size_t components = 255;
constexpr int updates = 50;
constexpr auto pause_between_updates = std::chrono::milliseconds(2);

using Times = std::vector<double>;  // ns

double seconds_for(const auto& job) {
    const auto begin = Clock::now();
    job();
    return std::chrono::duration<double>(Clock::now() - begin).count();
}

Times look_up_until(const std::atomic<bool>& is_over, unsigned first_id) {
    Times times;
    ComponentVpdRecord record;
    for (unsigned i = 0; !is_over; ++i) {
        const auto fru_id = static_cast<uint8_t>((first_id + i * 7) % components + 1);
        uint32_t length = 0;
        times.push_back(1e9 * seconds_for([&] { GetComponentVPDByFruID(&length, sizeof record, &fru_id, &record); }));
    }
    return times;
}

struct Result {
    Times times;                // sorted
    double longest_update = 0;  // seconds
};

Result measure(unsigned thread_count) {
    Result result;
    std::atomic<bool> is_over = false;
    std::vector<Times> times(thread_count);
    std::vector<std::thread> threads;
    for (unsigned i = 0; i < thread_count; ++i) {
        threads.emplace_back([&, i] { times[i] = look_up_until(is_over, i * 31); });
    }
    for (int i = 0; i < updates; ++i) {
        std::this_thread::sleep_for(pause_between_updates);
        result.longest_update = std::max(result.longest_update, seconds_for([] { UpdateComponentVPDCache(); }));
    }
    is_over = true;
    for (std::thread& thread : threads) thread.join();
    for (const Times& part : times) result.times.insert(result.times.end(), part.begin(), part.end());
    std::sort(result.times.begin(), result.times.end());
    return result;
}

/// In microseconds.
double percentile(const Times& sorted, double part) {
    return sorted[static_cast<std::size_t>(part * static_cast<double>(sorted.size() - 1))] / 1000;
}

}  // namespace

int main() {
    create_cache(components, Kind::board, fru_image(256));
    std::printf("look-ups beside updates of %zu components, us\n", components);
    std::printf("%-8s %9s %9s %9s %9s %9s   %8s %15s\n", "threads", "50 %", "90 %", "99 %", "99.9 %", "longest",
                "look-ups", "longest update");
    for (unsigned threads = 1; threads <= 8; ++threads) {
        const Result result = measure(threads);
        std::printf("%-8u %9.2f %9.2f %9.2f %9.2f %9.2f %10zu %15.2f\n", threads, percentile(result.times, 0.5),
                    percentile(result.times, 0.9), percentile(result.times, 0.99), percentile(result.times, 0.999),
                    result.times.back() / 1000, result.times.size(), result.longest_update * 1e6);
    }
    return 0;
}
