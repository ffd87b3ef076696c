// SPDX-License-Identifier: Apache-2.0
// The board as a picture: a panel for each socket with its slots in their order to both sides of the processor, and
// below them their channels and memory controllers.
#include <algorithm>
#include <array>
#include <functional>
#include <map>
#include <ostream>
#include <sstream>

#include "cli/board.h"
#include "cli/component.h"
#include "cli/display_text.h"
#include "cli/markup.h"

namespace vpdd::cli {

namespace {

using Slots = std::vector<const Slot*>;

// Lengths in the picture's own unit, a pixel unless it is scaled.
constexpr int margin = 24;
constexpr int header_height = 84;
constexpr int panel_gap = 20;
constexpr int panel_padding = 18;
constexpr int panel_height = 276;
constexpr int stick_top = 62;
constexpr int stick_height = 150;
constexpr int stick_width = 30;
constexpr int stick_pitch = 36;
constexpr int processor_width = 110;
constexpr int processor_gap = 14;
constexpr int smallest_width = 700;
constexpr int line_height = 24;
constexpr int panels_across = 2;

constexpr const char* style_sheet =
    "text{font-family:system-ui,'DejaVu Sans',Arial,sans-serif;fill:#1f2933}"
    ".title{font-size:20px;font-weight:600}.summary{font-size:14px;fill:#52606d}"
    ".socket{font-size:15px;font-weight:600}.number{font-size:12px;text-anchor:middle}"
    ".group{font-size:11px;text-anchor:middle;fill:#3e4c59}.note{font-size:13px}"
    ".stick{font-size:13px;text-anchor:middle}"
    ".module{fill:#fff}.empty{fill:#7b8794}.unread{fill:#8e2a1e}"
    ".bracket{stroke:#7b8794;stroke-width:1.5;fill:none}"
    ".paper{fill:#fff}.board{fill:#f1f4f1}.processor{fill:#d5dae0}.failed{fill:#fbe3dc}";

constexpr auto module_colors =
    std::to_array<const char*>({"#2f5d8a", "#2e7d5b", "#7a3b69", "#a1561f", "#4a5568", "#8a6d00"});

struct Box {
    int x, y, width, height;
};

void write_text(std::ostream& out, int x, int y, const char* style_class, const std::string& text) {
    out << "<text x=\"" << x << "\" y=\"" << y << "\" class=\"" << style_class << "\">" << markup_text(text)
        << "</text>\n";
}

void write_box(std::ostream& out, const Box& box, const std::string& look, int radius) {
    out << "<rect x=\"" << box.x << "\" y=\"" << box.y << "\" width=\"" << box.width << "\" height=\"" << box.height
        << "\" rx=\"" << radius << "\" " << look << "/>\n";
}

/// Kinds of modules, each with a color of its own as far as there are colors.
class Kinds {
public:
    explicit Kinds(const Board& board) {
        for (const Slot& slot : board.slots) {
            if (slot.content.state == SlotState::populated) ++count_[slot_text(slot.content)];
        }
    }

    std::string look(const SlotContent& content) const {
        switch (content.state) {
            case SlotState::populated:
                return look_of_kind(slot_text(content));
            case SlotState::unread:
                return R"(class="failed" stroke="#c0392b")";
            case SlotState::empty:
                return R"(class="paper" stroke="#9aa5b1" stroke-dasharray="4 3")";
            case SlotState::unknown:
                break;
        }
        return R"(class="paper" stroke="#9aa5b1")";
    }

    std::string look_of_kind(const std::string& kind) const {
        const auto index = static_cast<std::size_t>(std::distance(count_.begin(), count_.find(kind)));
        return std::string("fill=\"") + module_colors[index % module_colors.size()] + '"';
    }

    const std::map<std::string, int>& all() const { return count_; }

private:
    std::map<std::string, int> count_;
};

/// Room for half of the slots, rounded up, on one side of the processor.
std::size_t half(const Slots& slots) { return (slots.size() + 1) / 2; }

int panel_width(const Slots& slots) {
    return 2 * panel_padding + static_cast<int>(slots.size()) * stick_pitch + processor_width + 2 * processor_gap;
}

int stick_x(const Slots& slots, std::size_t index) {
    const int beside_processor = index < half(slots) ? 0 : processor_width + 2 * processor_gap;
    const int inset = (stick_pitch - stick_width) / 2;
    return panel_padding + static_cast<int>(index) * stick_pitch + beside_processor + inset;
}

const char* text_class(SlotState state) {
    switch (state) {
        case SlotState::populated:
            return "stick module";
        case SlotState::unread:
            return "stick unread";
        default:
            return "stick empty";
    }
}

/// What a pointer over the slot shows.
std::string tooltip(const Slot& slot) {
    std::string text = "Slot " + std::to_string(slot.place.slot);
    if (slot.content.state != SlotState::populated) return text + ' ' + slot_text(slot.content);
    const Identity who = identity(slot.content.record);
    return text + ": " + slot_text(slot.content) + " MT/s, " + who.manufacturer + ' ' + who.part_number +
           ", serial number " + who.serial_number;
}

void write_stick(std::ostream& out, int x, const Slot& slot, const Kinds& kinds) {
    const int middle = x + stick_width / 2;
    const int center = stick_top + stick_height / 2;
    out << "<g><title>" << markup_text(tooltip(slot)) << "</title>\n";
    write_text(out, middle, stick_top - 8, "number", std::to_string(slot.place.slot));
    write_box(out, {x, stick_top, stick_width, stick_height}, kinds.look(slot.content), 3);
    out << "<text transform=\"translate(" << middle << ' ' << center << ") rotate(-90)\" dy=\".35em\" class=\""
        << text_class(slot.content.state) << "\">" << markup_text(slot_text(slot.content)) << "</text></g>\n";
}

/// Brackets under neighbouring slots that have something in common, on either side of the processor.
void write_brackets(std::ostream& out, const Slots& slots, int y, const char* name,
                    const std::function<uint32_t(const DimmSlotMapRow&)>& number) {
    for (std::size_t first = 0; first < slots.size();) {
        std::size_t end = first + 1;
        while (end < slots.size() && end != half(slots) && number(slots[end]->place) == number(slots[first]->place)) {
            ++end;
        }
        const int left = stick_x(slots, first);
        const int right = stick_x(slots, end - 1) + stick_width;
        out << "<path class=\"bracket\" d=\"M" << left << ' ' << y << "v5H" << right << "v-5\"/>\n";
        write_text(out, (left + right) / 2, y + 18, "group",
                   std::string(name) + ' ' + std::to_string(number(slots[first]->place)));
        first = end;
    }
}

void write_panel(std::ostream& out, const Slots& slots, const Kinds& kinds) {
    write_box(out, {0, 0, panel_width(slots), panel_height}, R"(class="board" stroke="#b8c4b8")", 8);
    write_text(out, panel_padding, 28, "socket", "Socket " + std::to_string(slots.front()->place.socket));
    for (std::size_t index = 0; index < slots.size(); ++index)
        write_stick(out, stick_x(slots, index), *slots[index], kinds);

    const int left = panel_padding + static_cast<int>(half(slots)) * stick_pitch + processor_gap;
    write_box(out, {left, stick_top + 20, processor_width, stick_height - 40}, R"(class="processor" stroke="#7b8794")",
              6);
    write_text(out, left + processor_width / 2, stick_top + stick_height / 2 + 4, "number", "Processor");

    const int below = stick_top + stick_height + 8;
    write_brackets(out, slots, below, "ch", [](const DimmSlotMapRow& place) { return place.channel; });
    write_brackets(out, slots, below + 26, "MC", [](const DimmSlotMapRow& place) { return place.controller; });
}

struct LegendEntry {
    std::string look;
    std::string text;
};

std::vector<LegendEntry> legend_of(const Board& board, const Kinds& kinds) {
    std::vector<LegendEntry> entries;
    const auto add = [&](SlotState state, const std::string& text) {
        const std::size_t count = board.count(state);
        if (count > 0) entries.push_back({kinds.look({state, {}, ""}), text + " (" + std::to_string(count) + ')'});
    };
    for (const auto& [kind, count] : kinds.all()) {
        entries.push_back({kinds.look_of_kind(kind), kind + " MT/s (" + std::to_string(count) + ')'});
    }
    add(SlotState::empty, "empty slot");
    add(SlotState::unread, "not read");
    add(SlotState::unknown, "slot");
    return entries;
}

/// @return its height
int write_legend(std::ostream& out, const std::vector<LegendEntry>& entries, int top, int width) {
    constexpr int swatch = 16, character_width = 8;
    int x = margin, y = top;
    for (const LegendEntry& entry : entries) {
        const int needed = swatch + 8 + static_cast<int>(display_width(entry.text)) * character_width + 20;
        if (x > margin && x + needed > width - margin) {
            x = margin;
            y += line_height;
        }
        write_box(out, {x, y - swatch + 3, swatch, swatch}, entry.look, 3);
        write_text(out, x + swatch + 8, y, "note", entry.text);
        x += needed;
    }
    y += line_height;
    write_text(out, margin, y, "note", "Above a slot: its number. ch: channel. MC: memory controller.");
    return y + line_height - top;
}

std::vector<Slots> slots_by_socket(const Board& board) {
    std::map<uint32_t, Slots> sockets;
    for (const Slot& slot : board.slots) sockets[slot.place.socket].push_back(&slot);
    std::vector<Slots> panels;
    panels.reserve(sockets.size());
    for (auto& [socket, slots] : sockets) panels.push_back(std::move(slots));
    return panels;
}

}  // namespace

const char* board_svg_dark_style() {
    return "svg text{fill:#e4e7eb}svg .summary,svg .group,svg .empty{fill:#9aa5b1}svg .module{fill:#fff}"
           "svg .unread{fill:#f6b5a8}svg .paper{fill:#14181c}svg .board{fill:#1f2a25}svg .processor{fill:#3e4c59}"
           "svg .failed{fill:#4a2019}";
}

void write_board_svg(std::ostream& out, const Board& board) {
    const std::vector<Slots> panels = slots_by_socket(board);
    const Kinds kinds(board);

    int widest = 0;
    for (const Slots& slots : panels) widest = std::max(widest, panel_width(slots));
    const int across = std::min(panels_across, static_cast<int>(panels.size()));
    const int rows = (static_cast<int>(panels.size()) + across - 1) / across;
    const int width = std::max(smallest_width, 2 * margin + across * widest + (across - 1) * panel_gap);
    std::ostringstream below;
    int height = header_height + rows * (panel_height + panel_gap) + line_height;
    height += write_legend(below, legend_of(board, kinds), height, width);
    for (const std::string& remark : notes(board)) {
        write_text(below, margin, height, "note", remark);
        height += line_height;
    }

    out << "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"" << width << "\" height=\"" << height
        << "\" viewBox=\"0 0 " << width << ' ' << height << "\">\n<style>" << style_sheet << "</style>\n";
    write_box(out, {0, 0, width, height}, "class=\"paper\"", 0);
    const std::string platform = "Platform " + platform_text(board.platform_id);
    write_text(out, margin, 40, "title", board.server.empty() ? platform : board.server);
    write_text(out, margin, 64, "summary", (board.server.empty() ? "" : platform + ": ") + summary(board));

    for (int index = 0; index < static_cast<int>(panels.size()); ++index) {
        const int x = margin + index % across * (widest + panel_gap);
        const int y = header_height + index / across * (panel_height + panel_gap);
        out << "<g transform=\"translate(" << x << ' ' << y << ")\">\n";
        write_panel(out, panels[static_cast<std::size_t>(index)], kinds);
        out << "</g>\n";
    }
    out << below.str() << "</svg>\n";
}

}  // namespace vpdd::cli
