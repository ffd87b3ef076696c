// SPDX-License-Identifier: Apache-2.0
// The DIMM slots of a board, and the memory modules of the cache in them.
#pragma once

#include <cstdint>
#include <iosfwd>
#include <optional>
#include <string>
#include <vector>

#include "cli/json_output.h"
#include "cli/table.h"
#include "cli/terminal.h"
#include "orva_vpdd.h"

namespace vpdd::cli {

enum class SlotState {
    unknown,  ///< there is no server to look into
    empty,
    populated,
    unread  ///< something is there that could not be read
};

/// What the cache says of one slot.
struct SlotContent {
    SlotState state = SlotState::unknown;
    ComponentVpdRecord record{};
    std::string reason;  ///< why it was not read
};

struct Slot {
    DimmSlotMapRow place;
    SlotContent content;
};

struct Board {
    uint32_t platform_id = 0;
    std::string server;  ///< empty: nothing is known but the slots
    std::vector<Slot> slots;
    std::vector<SlotContent> without_slot;  ///< modules whose names give no slot of this board, or one that is taken

    std::size_t count(SlotState state) const;
    uint32_t socket_count() const;
    uint64_t memory_mib() const;
    /// Every module was read and has its slot.
    bool is_complete() const;
};

/// What the cache, which stands, says of the memory modules of the open server.
std::vector<SlotContent> memory_contents();

/// The slots of the running platform. Throws std::runtime_error when the library has no map of it.
Board board_of_platform();

/// Puts each module into the slot with the last number in its name, or with its entity instance.
void populate(Board& board, const std::vector<SlotContent>& contents);

/// "0x00500085"
std::string platform_text(uint32_t platform_id);
/// "2 sockets, 32 slots, 31 modules, 1856 GiB"
std::string summary(const Board& board);
/// "64 GiB 4800", "empty", "not read", or nothing
std::string slot_text(const SlotContent& content);
/// Sentences about what could not be read, and about what has no slot.
std::vector<std::string> notes(const Board& board);

/// The board in characters.
void print_board(std::ostream& out, const Board& board, const Style& style);
/// The board as an SVG document that needs nothing else.
void write_board_svg(std::ostream& out, const Board& board);
/// Rules for a page with that document in it that is shown light on dark.
const char* board_svg_dark_style();
/// The slots with their places and what is in them.
Table board_table(const Board& board);
Json board_json(const Board& board);

}  // namespace vpdd::cli
