// SPDX-License-Identifier: Apache-2.0
#include "cli/change_sentences.h"

#include <algorithm>
#include <cstring>

#include "cli/display_text.h"

namespace vpdd::cli {

namespace {

constexpr int32_t status_removed = 0;
constexpr int32_t status_installed = 1;
constexpr int32_t status_no_sensor = 255;

using Rows = std::vector<VpddChange>;

bool same_place(const ChangeHistoryRecord& one, const ChangeHistoryRecord& other) {
    return field_text(one.name) == field_text(other.name) && one.entity_instance == other.entity_instance;
}

/// The rows of one place, in their order.
class Place {
public:
    Place(const Rows& rows, std::size_t position) : rows_(rows), position_(position) {}

    const VpddChange* before() const {
        for (std::size_t other = position_; other-- > 0;) {
            if (same_place(rows_[other].row, rows_[position_].row)) return &rows_[other];
        }
        return nullptr;
    }

    const VpddChange* next() const {
        const std::size_t position = next_position();
        return position < rows_.size() ? &rows_[position] : nullptr;
    }

    std::size_t next_position() const {
        std::size_t other = position_ + 1;
        while (other < rows_.size() && !same_place(rows_[other].row, rows_[position_].row)) ++other;
        return other;
    }

private:
    const Rows& rows_;
    std::size_t position_;
};

bool same_serial(const ChangeHistoryRecord& one, const ChangeHistoryRecord& other) {
    return field_text(one.serial_number) == field_text(other.serial_number);
}

/// The time of a removal is when it was found out. The library announces a replacement as the removal of the old part,
/// at the time of that part's installation, and in the same pass the installation of the new one.
bool begins_replacement(const VpddChange& removal, const Place& place) {
    constexpr int64_t tolerance = 1;  // second: the log puts the new part one second behind the old one
    const VpddChange* next = place.next();
    if (removal.row.status != status_removed || next == nullptr || next->row.status != status_installed) return false;
    if (removal.process != next->process) return false;
    const VpddChange* before = place.before();
    if (before == nullptr) return removal.recorded - removal.row.time > tolerance;
    const int64_t distance = int64_t{removal.row.time} - before->row.time;
    return distance >= 0 && distance <= tolerance;
}

Change replacement(const ChangeHistoryRecord& old_part, const ChangeHistoryRecord& new_part) {
    const bool same = same_serial(old_part, new_part);
    return {new_part.time, same ? Happening::data_changed : Happening::replaced, new_part,
            same ? "" : field_text(old_part.serial_number)};
}

Change installation(const ChangeHistoryRecord& row, const VpddChange* before) {
    if (before == nullptr) return {row.time, Happening::installed, row, ""};
    if (same_serial(before->row, row)) return {row.time, Happening::installed_again, row, ""};
    return {row.time, Happening::installed, row, field_text(before->row.serial_number)};
}

Change single(const ChangeHistoryRecord& row, const VpddChange* before) {
    switch (row.status) {
        case status_installed:
            return installation(row, before);
        case status_removed:
            return {row.time, Happening::removed, row, ""};
        case status_no_sensor:
            return {row.time, Happening::sensor_missing, row, ""};
        default:
            return {row.time, Happening::unknown, row, ""};
    }
}

std::string in_brackets(const std::string& serial) { return serial.empty() ? "" : " (serial " + serial + ')'; }

std::string serial_or_none(const std::string& serial) { return serial.empty() ? "(none)" : serial; }

std::string installed_text(const Change& change, const std::string& serial) {
    if (change.previous_serial.empty()) return "installed" + in_brackets(serial);
    return "installed (serial " + serial_or_none(serial) + " in place of " + change.previous_serial + ')';
}

std::string predicate(const Change& change) {
    const std::string serial = field_text(change.row.serial_number);
    switch (change.happening) {
        case Happening::installed:
            return installed_text(change, serial);
        case Happening::installed_again:
            return "installed again" + in_brackets(serial);
        case Happening::removed:
            return "removed" + in_brackets(serial);
        case Happening::replaced:
            return "serial " + serial_or_none(change.previous_serial) + " replaced by " + serial_or_none(serial);
        case Happening::data_changed:
            return "its data changed" + in_brackets(serial);
        case Happening::sensor_missing:
            return "its presence sensor is missing" + in_brackets(serial);
        case Happening::unknown:
            break;
    }
    return "status " + std::to_string(change.row.status) + in_brackets(serial);
}

}  // namespace

std::vector<Change> changes_in(const Rows& rows) {
    std::vector<Change> changes;
    std::vector<bool> is_told(rows.size(), false);
    for (std::size_t position = 0; position < rows.size(); ++position) {
        if (is_told[position]) continue;
        const Place place(rows, position);
        const VpddChange& change = rows[position];
        if (begins_replacement(change, place)) {
            is_told[place.next_position()] = true;
            changes.push_back(replacement(change.row, place.next()->row));
        } else {
            changes.push_back(single(change.row, place.before()));
        }
    }
    return changes;
}

std::optional<std::vector<Change>> recorded_changes() {
    const auto collect = [](void* context, const VpddChange* change) {
        static_cast<Rows*>(context)->push_back(*change);
        return 0;
    };
    Rows rows;
    if (vpdd_chghist_each_change(collect, &rows) != 0) return std::nullopt;
    return changes_in(rows);
}

std::string unreadable_history() {
    return "the change history cannot be read: " + displayable(vpdd_chghist_last_error());
}

std::string sentence(const Change& change) { return field_text(change.row.name) + ": " + predicate(change); }

std::string happening_name(Happening happening) {
    switch (happening) {
        case Happening::installed:
        case Happening::installed_again:
            return "Installed";
        case Happening::removed:
            return "Removed";
        case Happening::replaced:
            return "Replaced";
        case Happening::data_changed:
            return "DataChanged";
        case Happening::sensor_missing:
            return "SensorMissing";
        case Happening::unknown:
            break;
    }
    return "Unknown";
}

}  // namespace vpdd::cli
