// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <cstdint>
#include <string_view>

#include "ipmi/fru_format.h"

namespace vpdd {

/// One field taken from a walk.
struct WalkedField {
    bool decoded = false;  // false: there was no field to decode
    uint8_t type = 0;
    uint8_t length = 0;  // 0: decoded, but without data
    std::array<char, max_field_length + 1> data{};

    bool has_data() const { return length > 0; }
    /// The data as trimmed text.
    const char* text() {
        trim_string(data.data());
        return data.data();
    }
};

/// Takes fields one after the other. A walk that has ended stays ended: its position is null.
class FieldWalk {
public:
    /// `end` is the bound that fru_tlv2raw() takes. Where a buffer ends at `limit`, a field that does not lie wholly
    /// before it ends the walk undecoded.
    FieldWalk(const uint8_t* position, const uint8_t* end, const uint8_t* limit = nullptr)
        : position_(end != nullptr ? position : nullptr), end_(end), limit_(limit) {}

    WalkedField next() {
        WalkedField field;
        if (position_ == nullptr) return field;
        if (limit_ != nullptr && !lies_before_limit()) {
            position_ = nullptr;
            return field;
        }
        const FieldHead head = read_field_head(position_, end_);
        field.decoded = true;
        field.length = head.length;
        if (head.length > 0) {
            field.type = head.type;
            decode_field_data(position_, head, reinterpret_cast<uint8_t*>(field.data.data()));
        }
        position_ = head.next;
        return field;
    }

    void skip(int fields) {
        while (fields-- > 0 && position_ != nullptr) position_ = read_field_head(position_, end_).next;
    }

    /// The next field's type/length byte, or null behind the last field.
    const uint8_t* position() const { return position_; }

private:
    bool lies_before_limit() const {
        return position_ < limit_ && read_field_head(position_, end_).length < limit_ - position_;
    }

    const uint8_t* position_;
    const uint8_t* end_;
    const uint8_t* limit_;
};

}  // namespace vpdd
