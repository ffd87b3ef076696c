// SPDX-License-Identifier: Apache-2.0
// A stream of answers from the IPMI stack and the SDR repository, as one run of the library takes them.
// IPMI: flags, completion code (flag 2), reported length in two bytes (flag 4), number of data bytes, data.
// SDR: flags, next record id in two bytes, number of bytes, record. Flag 1 of both: the stack fails.
#pragma once

#include <algorithm>

#include "fuzz/input.h"
#include "fuzz/platform.h"

namespace vpdd::fuzz {

enum AnswerFlag : uint8_t { answer_fails = 1, has_completion_code = 2, has_length = 4 };

/// Reads the answers from an input.
class AnswerReader {
public:
    /// Behind its end a stream begins again, or else everything fails.
    AnswerReader(std::span<const uint8_t> stream, bool repeats) : stream_(stream), input_(stream), repeats_(repeats) {}

    IpmiAnswer ipmi() {
        if (!has_more()) return {.result = -1};
        const uint8_t flags = input_.byte();
        IpmiAnswer answer{.result = (flags & answer_fails) != 0 ? -1 : 0};
        answer.bytes.push_back((flags & has_completion_code) != 0 ? input_.byte() : uint8_t{0});
        if ((flags & has_length) != 0) answer.length = static_cast<int16_t>(input_.word());
        take_bytes(answer.bytes);
        return answer;
    }

    SdrAnswer sdr() {
        if (!has_more()) return {.result = -1};
        const uint8_t flags = input_.byte();
        SdrAnswer answer{.result = (flags & answer_fails) != 0 ? -1 : 0};
        answer.next_record_id = input_.word();
        take_bytes(answer.record);
        return answer;
    }

private:
    bool has_more() {
        if (input_.is_empty() && repeats_) input_ = Input(stream_);
        return !input_.is_empty();
    }

    void take_bytes(Bytes& to) {
        const auto taken = input_.take(input_.byte());
        to.insert(to.end(), taken.begin(), taken.end());
    }

    std::span<const uint8_t> stream_;
    Input input_;
    bool repeats_;
};

/// Writes the stream that gives these answers.
class AnswerWriter {
public:
    void add(const IpmiAnswer& answer) {
        const bool is_good = answer.result == 0 && !answer.bytes.empty();
        stream_.push_back(is_good ? has_completion_code : answer_fails);
        if (is_good) stream_.push_back(answer.bytes[0]);
        add_bytes(is_good ? std::span(answer.bytes).subspan(1) : std::span<const uint8_t>());
    }
    void add(const SdrAnswer& answer) {
        stream_.push_back(answer.result != 0 ? answer_fails : uint8_t{0});
        stream_.push_back(static_cast<uint8_t>(answer.next_record_id));
        stream_.push_back(static_cast<uint8_t>(answer.next_record_id >> 8U));
        add_bytes(answer.record);
    }

    const Bytes& stream() const { return stream_; }

private:
    void add_bytes(std::span<const uint8_t> bytes) {
        const auto count = std::min<std::size_t>(bytes.size(), 0xFF);
        stream_.push_back(static_cast<uint8_t>(count));
        stream_.insert(stream_.end(), bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(count));
    }

    Bytes stream_;
};

}  // namespace vpdd::fuzz
