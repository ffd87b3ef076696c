// SPDX-License-Identifier: Apache-2.0
// The board in characters: a box for each socket, in which each memory controller leads to its channels and each
// channel to its slots.
#include <algorithm>
#include <array>
#include <ostream>

#include "cli/board.h"
#include "cli/display_text.h"

namespace vpdd::cli {

namespace {

using Lines = std::vector<std::string>;

struct Channel {
    uint32_t number;
    std::array<const Slot*, 2> slots{};  ///< by position
};

struct Controller {
    uint32_t number;
    std::vector<Channel> channels;
};

struct Socket {
    uint32_t number;
    std::vector<Controller> controllers;
};

/// The part with this number, which is added behind the others when it is new.
template <class Part>
Part& part(std::vector<Part>& parts, uint32_t number) {
    const auto found = std::ranges::find(parts, number, &Part::number);
    return found != parts.end() ? *found : parts.emplace_back(Part{number, {}});
}

/// In the order of the slots.
std::vector<Socket> sockets_of(const Board& board) {
    std::vector<Socket> sockets;
    for (const Slot& slot : board.slots) {
        const DimmSlotMapRow& place = slot.place;
        Controller& controller = part(part(sockets, place.socket).controllers, place.controller);
        part(controller.channels, place.channel).slots.at(place.dimm_in_channel) = &slot;
    }
    return sockets;
}

std::string repeated(const char* character, std::size_t count) {
    std::string text;
    for (; count > 0; --count) text += character;
    return text;
}

std::string right_aligned(uint32_t number, std::size_t width) {
    const std::string digits = std::to_string(number);
    return std::string(width - std::min(width, digits.size()), ' ') + digits;
}

/// How wide the parts of every line are, so that all sockets look alike.
struct Widths {
    std::size_t controller = 1;
    std::size_t channel = 1;
    std::size_t slot = 1;
    std::size_t text = 0;

    explicit Widths(const Board& board) {
        const auto widen = [](std::size_t& width, uint32_t number) {
            width = std::max(width, std::to_string(number).size());
        };
        for (const Slot& one : board.slots) {
            widen(controller, one.place.controller);
            widen(channel, one.place.channel);
            widen(slot, one.place.slot);
            text = std::max(text, display_width(slot_text(one.content)));
        }
    }

    /// "[12|64 GiB 4800]"
    std::size_t cell() const { return slot + text + (text > 0 ? 3 : 2); }
};

std::string cell(const Slot* slot, const Widths& widths) {
    if (slot == nullptr) return repeated("─", widths.cell());
    const std::string number = '[' + right_aligned(slot->place.slot, widths.slot);
    if (widths.text == 0) return number + ']';
    const std::string text = slot_text(slot->content);
    return number + "│" + text + std::string(widths.text - display_width(text), ' ') + ']';
}

std::string channel_text(const Channel& channel, const Widths& widths) {
    std::string text =
        "channel " + right_aligned(channel.number, widths.channel) + " ──" + cell(channel.slots[0], widths);
    if (channel.slots[1] != nullptr) text += "──" + cell(channel.slots[1], widths);
    return text;
}

/// What joins a channel to its controller.
const char* branch(std::size_t index, std::size_t count) {
    if (count == 1) return "─── ";
    if (index == 0) return "─┬─ ";
    return index + 1 < count ? " ├─ " : " └─ ";
}

Lines socket_lines(const Socket& socket, const Widths& widths) {
    Lines lines;
    for (const Controller& controller : socket.controllers) {
        std::string lead = "controller " + right_aligned(controller.number, widths.controller) + ' ';
        for (std::size_t index = 0; index < controller.channels.size(); ++index) {
            lines.push_back(lead + branch(index, controller.channels.size()) +
                            channel_text(controller.channels[index], widths));
            lead = std::string(lead.size(), ' ');
        }
    }
    return lines;
}

std::size_t widest(const Lines& lines) {
    std::size_t width = 0;
    for (const std::string& line : lines) width = std::max(width, display_width(line));
    return width;
}

Lines boxed(const std::string& title, const Lines& lines, std::size_t width) {
    Lines box{"┌─ " + title + ' ' + repeated("─", width - display_width(title) - 1) + "┐"};
    for (const std::string& line : lines) {
        box.push_back("│ " + line + std::string(width - display_width(line), ' ') + " │");
    }
    box.push_back("└" + repeated("─", width + 2) + "┘");
    return box;
}

/// Boxes of the same width, as many beside each other as the terminal has room for.
void print_boxes(std::ostream& out, const std::vector<Lines>& boxes, std::size_t width) {
    constexpr std::size_t indentation = 2, gap = 2;
    const std::size_t box_width = display_width(boxes.front().front());
    const std::size_t across =
        std::max<std::size_t>(1, (width - std::min(width, indentation) + gap) / (box_width + gap));
    for (std::size_t first = 0; first < boxes.size(); first += across) {
        const std::size_t end = std::min(first + across, boxes.size());
        std::size_t height = 0;
        for (std::size_t box = first; box < end; ++box) height = std::max(height, boxes[box].size());
        for (std::size_t line = 0; line < height; ++line) {
            std::string text;
            for (std::size_t box = first; box < end; ++box) {
                text += std::string(box == first ? indentation : gap, ' ');
                text += line < boxes[box].size() ? boxes[box][line] : std::string(box_width, ' ');
            }
            out << text.substr(0, text.find_last_not_of(' ') + 1) << '\n';
        }
    }
}

}  // namespace

void print_board(std::ostream& out, const Board& board, const Style& style) {
    if (!board.server.empty()) out << style.heading(displayable(board.server)) << '\n';
    out << "Platform " << platform_text(board.platform_id) << ": " << summary(board) << "\n\n";

    const Widths widths(board);
    std::vector<Lines> contents;
    std::size_t width = 0;
    const std::vector<Socket> sockets = sockets_of(board);
    for (const Socket& socket : sockets) {
        contents.push_back(socket_lines(socket, widths));
        width = std::max(width, widest(contents.back()));
    }
    std::vector<Lines> boxes;
    for (std::size_t index = 0; index < sockets.size(); ++index) {
        boxes.push_back(boxed("Socket " + std::to_string(sockets[index].number), contents[index], width));
    }
    print_boxes(out, boxes, style.width);

    out << "\n  [slot" << (board.server.empty() ? "]" : "│size, MT/s]") << "; position 0 of a channel comes first\n";
    for (const std::string& note : notes(board)) out << "  " << displayable(note) << '\n';
}

}  // namespace vpdd::cli
