// SPDX-License-Identifier: Apache-2.0
// Builds the SPD images of memory modules: DDR3 (JEDEC 21-C Annex K, 256 bytes), DDR4 (Annex L, 512 bytes) and DDR5
// (JESD400-5, 1024 bytes). Everything is right by default; every byte can be made wrong on purpose.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "orva_vpdd.h"

namespace vpdd::images {

/// The two bytes of a JEP106 id as an image has them: the number of continuation codes, and the code, both with odd
/// parity in bit 7.
struct MakerId {
    uint8_t bank = 0;
    uint8_t code = 0;

    bool operator==(const MakerId&) const = default;
};

/// The id for a number of continuation codes and a code with its parity bit.
MakerId maker_id(uint8_t continuation_codes, uint8_t code);
/// The id of a manufacturer by its name in the library's JEP106 list, in upper or lower case. Its user links the
/// library.
/// @throw std::invalid_argument when the list has no such name
MakerId maker_named(std::string_view name, std::span<const Jep106Row> list);

enum class ModuleType : uint8_t { rdimm, udimm, so_dimm, lrdimm };

struct Ddr3;
struct Ddr4;
struct Ddr5;

/// A new image is an UDIMM of one rank of x8 devices with 8 Gbit each (DDR3: 4, DDR5: 16), without ECC, with the
/// generation's usual latencies and no identity. The setters throw std::invalid_argument for what the generation cannot
/// express.
template <class Layout>
class SpdImage {
public:
    using Self = SpdImage;

    SpdImage();

    Self& type(ModuleType type);
    Self& rdimm() { return type(ModuleType::rdimm); }
    Self& udimm() { return type(ModuleType::udimm); }
    Self& so_dimm() { return type(ModuleType::so_dimm); }
    Self& lrdimm() { return type(ModuleType::lrdimm); }
    /// An NVDIMM in this generation's layout. DDR3 has none.
    Self& persistent();

    Self& density_gbit(unsigned gigabits);
    /// Dies that a package stacks behind one load; DDR3 does not count them.
    Self& dies(unsigned count);
    Self& ranks(unsigned count);
    Self& device_width(unsigned bits);
    /// DDR5: of each of the two sub-channels.
    Self& bus_width(unsigned bits);
    /// DDR3 and DDR4: 0 or 8. DDR5: 0, 4 or 8 of each sub-channel.
    Self& ecc_bits(unsigned bits);

    /// Clock period of a JEDEC data rate in MT/s; DDR5 also takes over the latencies of that rate's speed bin B.
    Self& speed(unsigned megatransfers);
    /// In units of the layout's latency bits, low range.
    Self& cas_latencies(std::initializer_list<unsigned> latencies);

    Self& maker(MakerId id);
    Self& maker(uint8_t bank, uint8_t code) { return maker(MakerId{bank, code}); }
    Self& dram_maker(MakerId id);
    Self& dram_maker(uint8_t bank, uint8_t code) { return dram_maker(MakerId{bank, code}); }
    Self& location(uint8_t code);
    /// The year's last two digits count.
    Self& made(unsigned year, unsigned week);
    /// Most significant byte first, as labels have it.
    Self& serial(uint32_t number);
    /// Cut to the field, blanks behind it.
    Self& part(std::string_view text);

    /// Any byte, any bytes.
    Self& byte(std::size_t offset, uint8_t value);
    Self& put(std::size_t offset, std::span<const uint8_t> bytes);
    Self& put(std::size_t offset, std::initializer_list<uint8_t> bytes) {
        return put(offset, std::span(bytes.begin(), bytes.size()));
    }
    /// Writes the checksums over what is there now.
    Self& seal();

    std::vector<uint8_t> build() const { return image_; }

private:
    std::vector<uint8_t> image_;
};

extern template class SpdImage<Ddr3>;
extern template class SpdImage<Ddr4>;
extern template class SpdImage<Ddr5>;

using Ddr3Image = SpdImage<Ddr3>;
using Ddr4Image = SpdImage<Ddr4>;
using Ddr5Image = SpdImage<Ddr5>;

enum class Generation : uint8_t { ddr3, ddr4, ddr5 };

/// A module as a server's description has it.
struct Module {
    Generation generation = Generation::ddr4;
    ModuleType type = ModuleType::rdimm;
    unsigned size_gb = 16;
    unsigned ranks = 1;
    unsigned dies = 1;  ///< of each package
    unsigned device_width = 8;
    bool has_ecc = true;
    unsigned speed = 3200;  ///< MT/s
    MakerId maker{};
    MakerId dram_maker{};
    uint8_t location = 0;
    std::string part{};
    uint32_t serial = 0;
    unsigned year = 0, week = 0;
};

/// The sealed image of a module.
/// @throw std::invalid_argument when no device density makes up the size, or for what the generation cannot express
std::vector<uint8_t> spd_image(const Module& module);

}  // namespace vpdd::images
