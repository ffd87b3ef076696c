// SPDX-License-Identifier: Apache-2.0
#include "host/images/spd_image.h"

#include <strings.h>

#include <algorithm>
#include <array>
#include <bit>
#include <optional>
#include <stdexcept>
#include <type_traits>

namespace vpdd::images {

namespace {

using Bytes = std::vector<uint8_t>;

struct Range {
    std::size_t first, length;
};

/// Where bits of a value stand in an image.
struct BitField {
    std::size_t byte;
    unsigned lowest, count;
};

/// Bytes `first` to `first` + `length` - 1 and where their checksum stands.
struct Checksum {
    Range covered;
    std::size_t crc;
};

/// Bits of supported latencies: bit i of the bytes stands for latency `first` + i x `step`.
struct LatencyBits {
    Range bytes;
    unsigned first, step;
};

// The codes of a field are the positions in its list.
using Codes = std::span<const unsigned>;

constexpr unsigned no_value = ~0U;  // a code that nothing asks for
constexpr std::array<unsigned, 7> ddr3_densities_mbit{256, 512, 1024, 2048, 4096, 8192, 16384};
constexpr std::array<unsigned, 8> ddr4_densities_mbit{256, 512, 1024, 2048, 4096, 8192, 16384, 32768};
constexpr std::array<unsigned, 9> ddr5_densities_mbit{no_value, 4096, 8192, 12288, 16384, 24576, 32768, 49152, 65536};
constexpr std::array<unsigned, 4> device_widths{4, 8, 16, 32};
constexpr std::array<unsigned, 4> bus_widths{8, 16, 32, 64};
constexpr std::array<unsigned, 8> rank_counts{1, 2, 3, 4, 5, 6, 7, 8};
constexpr std::array<unsigned, 5> ddr3_rank_counts{1, 2, 3, 4, 8};
constexpr std::array<unsigned, 2> ecc_8{0, 8};
constexpr std::array<unsigned, 3> ecc_4_or_8{0, 4, 8};
constexpr std::array<unsigned, 1> one_die{1};
constexpr std::array<unsigned, 6> ddr5_die_counts{1, no_value, 2, 4, 8, 16};

unsigned code_of(Codes codes, unsigned value, const char* what) {
    const auto found = std::find(codes.begin(), codes.end(), value);
    if (found == codes.end()) throw std::invalid_argument("no module has " + std::to_string(value) + " as its " + what);
    return static_cast<unsigned>(found - codes.begin());
}

uint8_t bcd(unsigned number) { return static_cast<uint8_t>(number / 10 % 10 << 4U | number % 10); }

uint8_t with_odd_parity(uint8_t value) {
    const bool is_even = std::popcount(static_cast<unsigned>(value & 0x7FU)) % 2 == 0;
    return static_cast<uint8_t>((value & 0x7FU) | (is_even ? 0x80U : 0U));
}

void set_bits(Bytes& image, const BitField& field, unsigned code) {
    const unsigned mask = ((1U << field.count) - 1U) << field.lowest;
    image[field.byte] = static_cast<uint8_t>((image[field.byte] & ~mask) | code << field.lowest);
}

/// Deliberately not the library's own: the images test that one.
uint16_t crc_of(std::span<const uint8_t> bytes) {
    uint16_t crc = 0;
    for (const uint8_t byte : bytes) {
        for (unsigned bit = 0x80; bit != 0; bit >>= 1U) {
            const bool feedback = ((crc & 0x8000U) != 0) != ((byte & bit) != 0);
            crc = static_cast<uint16_t>(crc << 1U ^ (feedback ? 0x1021U : 0U));
        }
    }
    return crc;
}

// JEDEC's clock periods in ps of DDR3 and DDR4 data rates.
struct SpeedBin {
    unsigned megatransfers, clock_ps;
};
constexpr std::array<SpeedBin, 10> speed_bins{{{800, 2500},
                                               {1066, 1875},
                                               {1333, 1500},
                                               {1600, 1250},
                                               {1866, 1071},
                                               {2133, 937},
                                               {2400, 833},
                                               {2666, 750},
                                               {2933, 682},
                                               {3200, 625}}};

unsigned clock_of(unsigned megatransfers) {
    for (const SpeedBin& bin : speed_bins)
        if (bin.megatransfers == megatransfers) return bin.clock_ps;
    throw std::invalid_argument("no JEDEC data rate: " + std::to_string(megatransfers));
}

// Latency bytes of the speed bins B of DDR5.
struct Ddr5SpeedBin {
    unsigned megatransfers;
    std::array<uint8_t, 5> latencies;
};
constexpr std::array<Ddr5SpeedBin, 9> ddr5_speed_bins{{{3200, {0x1A}},
                                                       {3600, {0x7A}},
                                                       {4000, {0x7A, 0x01}},
                                                       {4400, {0x7A, 0x05}},
                                                       {4800, {0x7A, 0x0D}},
                                                       {5200, {0x7A, 0x2D}},
                                                       {5600, {0x7A, 0xAD}},
                                                       {6000, {0x7A, 0xED, 0x02}},
                                                       {6400, {0x7A, 0xED, 0x07}}}};

const Ddr5SpeedBin& ddr5_bin_of(unsigned megatransfers) {
    for (const Ddr5SpeedBin& bin : ddr5_speed_bins)
        if (bin.megatransfers == megatransfers) return bin;
    throw std::invalid_argument("no JEDEC data rate of DDR5: " + std::to_string(megatransfers));
}

constexpr unsigned medium_timebase_ps = 125;

/// The clock period of DDR3 and DDR4: a count of medium timebases, and a signed correction of 1 ps each.
template <class Layout>
void set_clock(SpdImage<Layout>& image, unsigned megatransfers) {
    const unsigned clock = clock_of(megatransfers);
    const unsigned count = (clock + medium_timebase_ps - 1) / medium_timebase_ps;
    image.byte(Layout::clock, static_cast<uint8_t>(count));
    image.byte(Layout::clock_correction, static_cast<uint8_t>(clock - count * medium_timebase_ps));
}

constexpr unsigned single_load_stack = 2;

}  // namespace

// JEDEC 21-C Annex K.
struct Ddr3 {
    static constexpr std::size_t size = 256;
    static constexpr unsigned default_gbit = 4;
    static constexpr unsigned default_speed = 1600;
    static constexpr unsigned default_bus_width = 64;

    static constexpr std::array<uint8_t, 4> module_types{1, 2, 3, 11};
    static constexpr BitField density{4, 0, 4}, ranks{7, 3, 3}, device_width{7, 0, 3}, bus_width{8, 0, 3}, ecc{8, 3, 2};
    static constexpr Codes densities = ddr3_densities_mbit, rank_codes = ddr3_rank_counts, ecc_codes = ecc_8;
    static constexpr BitField dies{6, 0, 0};  // no bits: a package counts as one die
    static constexpr Codes die_counts = one_die;
    static constexpr LatencyBits latencies{{14, 2}, 4, 1};
    static constexpr std::size_t clock = 12, clock_correction = 34;
    static constexpr std::size_t maker = 117, location = 119, year = 120, week = 121, serial = 122, dram_maker = 148;
    static constexpr Range part{128, 18};
    static constexpr std::optional<uint8_t> nvdimm_mark{};

    static void set_speed(SpdImage<Ddr3>& image, unsigned megatransfers) { set_clock(image, megatransfers); }

    static void set_defaults(SpdImage<Ddr3>& image) {
        image.put(0, {0x92, 0x11, 0x0B});     // 176 of 256 bytes used, checksum over 0-116; revision 1.1; DDR3
        image.byte(5, 0x21);                  // 16 row bits, 10 column bits
        image.put(9, {0x11, 1, 8});           // timebases 1 ps and 1/8 ns
        image.put(16, {110, 120, 110, 48});   // tAA, tWR, tRCD, tRRD in 1/8 ns
        image.put(20, {110, 0x11, 24, 134});  // tRP 13.75 ns, tRAS 35 ns, tRC 48.75 ns
        image.put(24, {0x20, 0x08});          // tRFC 260 ns
        image.cas_latencies({6, 7, 8, 9, 10, 11});
    }

    /// Byte 0 bit 7 leaves the bytes from 117 out.
    static std::vector<Checksum> checksums(const Bytes& image) {
        return {{{0, (image[0] & 0x80U) != 0 ? 117U : 126U}, 126}};
    }
};

// JEDEC 21-C Annex L.
struct Ddr4 {
    static constexpr std::size_t size = 512;
    static constexpr unsigned default_gbit = 8;
    static constexpr unsigned default_speed = 3200;
    static constexpr unsigned default_bus_width = 64;

    static constexpr std::array<uint8_t, 4> module_types{1, 2, 3, 4};
    static constexpr BitField density{4, 0, 4}, ranks{12, 3, 3}, device_width{12, 0, 3}, bus_width{13, 0, 3},
        ecc{13, 3, 2}, dies{6, 4, 3}, stack{6, 0, 2};
    static constexpr Codes die_counts = rank_counts;
    static constexpr Codes densities = ddr4_densities_mbit, rank_codes = rank_counts, ecc_codes = ecc_8;
    static constexpr LatencyBits latencies{{20, 4}, 7, 1};
    static constexpr std::size_t clock = 18, clock_correction = 125;
    static constexpr std::size_t maker = 320, location = 322, year = 323, week = 324, serial = 325, dram_maker = 350;
    static constexpr Range part{329, 20};
    static constexpr std::optional<uint8_t> nvdimm_mark = '#';

    static void set_speed(SpdImage<Ddr4>& image, unsigned megatransfers) { set_clock(image, megatransfers); }

    static void set_defaults(SpdImage<Ddr4>& image) {
        image.put(0, {0x23, 0x12, 0x0C});                     // 384 of 512 bytes used; revision 1.2; DDR4
        image.put(4, {0x80, 0x21});                           // 4 bank groups of 4 banks; 16 row bits, 10 column bits
        image.byte(11, 0x03);                                 // 1.2 V
        image.byte(19, 13).byte(124, 0xE7);                   // tCKmax 1.6 ns
        image.put(24, {110, 110, 110, 0x11, 0x00, 0x6E});     // tAA, tRCD, tRP 13.75 ns, tRAS 32 ns, tRC 45.75 ns
        image.put(30, {0xF0, 0x0A, 0x20, 0x08, 0x00, 0x05});  // tRFC1 350, tRFC2 260, tRFC4 160 ns
        image.cas_latencies({10, 11, 12, 13, 14, 15, 16, 17, 18, 19, 20, 21, 22, 24});
    }

    static std::vector<Checksum> checksums(const Bytes&) { return {{{0, 126}, 126}, {{128, 126}, 254}}; }
};

// JESD400-5.
struct Ddr5 {
    static constexpr std::size_t size = 1024;
    static constexpr unsigned default_gbit = 16;
    static constexpr unsigned default_speed = 4800;
    static constexpr unsigned default_bus_width = 32;

    static constexpr std::array<uint8_t, 4> module_types{1, 2, 3, 4};
    static constexpr BitField density{4, 0, 5}, ranks{234, 3, 3}, device_width{6, 5, 3}, bus_width{235, 0, 3},
        ecc{235, 3, 2}, dies{4, 5, 3};
    static constexpr Codes die_counts = ddr5_die_counts;
    static constexpr Codes densities = ddr5_densities_mbit, rank_codes = rank_counts, ecc_codes = ecc_4_or_8;
    static constexpr LatencyBits latencies{{24, 5}, 20, 2};
    static constexpr std::size_t maker = 512, location = 514, year = 515, week = 516, serial = 517, dram_maker = 552;
    static constexpr Range part{521, 30};
    static constexpr std::optional<uint8_t> nvdimm_mark = '0';

    static void set_speed(SpdImage<Ddr5>& image, unsigned megatransfers) {
        const Ddr5SpeedBin& bin = ddr5_bin_of(megatransfers);
        const unsigned clock = 2'000'000 / megatransfers;  // rounded down
        image.put(20, {static_cast<uint8_t>(clock), static_cast<uint8_t>(clock >> 8U)});
        image.put(latencies.bytes.first, bin.latencies);
    }

    static void set_defaults(SpdImage<Ddr5>& image) {
        image.put(0, {0x30, 0x10, 0x12});                     // 1024 bytes; revision 1.0; DDR5
        image.byte(7, 0x62);                                  // 8 bank groups of 4 banks
        image.put(22, {0xF2, 0x03});                          // tCKmax 1010 ps
        image.put(30, {0x80, 0x3E, 0x80, 0x3E, 0x80, 0x3E});  // tAA, tRCD, tRP 16000 ps
        image.put(36, {0x00, 0x7D, 0x80, 0xBB, 0x30, 0x75});  // tRAS 32000, tRC 48000, tWR 30000 ps
        image.byte(192, 0x10);                                // module information revision 1.0
        image.byte(235, 0x20);                                // two sub-channels
    }

    static std::vector<Checksum> checksums(const Bytes&) { return {{{0, 510}, 510}}; }
};

template <class Layout>
SpdImage<Layout>::SpdImage() : image_(Layout::size) {
    Layout::set_defaults(*this);
    udimm().density_gbit(Layout::default_gbit).ranks(1).device_width(8);
    bus_width(Layout::default_bus_width).speed(Layout::default_speed);
}

template <class Layout>
SpdImage<Layout>& SpdImage<Layout>::type(ModuleType type) {
    return byte(3, Layout::module_types[static_cast<std::size_t>(type)]);
}

template <class Layout>
SpdImage<Layout>& SpdImage<Layout>::persistent() {
    constexpr std::optional<uint8_t> mark = Layout::nvdimm_mark;
    if (!mark) throw std::invalid_argument("no NVDIMM has this layout");
    return byte(0, *mark).byte(2, 0x0D);
}

template <class Layout>
SpdImage<Layout>& SpdImage<Layout>::density_gbit(unsigned gigabits) {
    set_bits(image_, Layout::density, code_of(Layout::densities, gigabits * 1024, "density in Mbit"));
    return *this;
}

template <class Layout>
SpdImage<Layout>& SpdImage<Layout>::dies(unsigned count) {
    set_bits(image_, Layout::dies, code_of(Layout::die_counts, count, "number of dies"));
    if constexpr (std::is_same_v<Layout, Ddr4>) set_bits(image_, Layout::stack, count > 1 ? single_load_stack : 0);
    return *this;
}

template <class Layout>
SpdImage<Layout>& SpdImage<Layout>::ranks(unsigned count) {
    set_bits(image_, Layout::ranks, code_of(Layout::rank_codes, count, "number of ranks"));
    return *this;
}

template <class Layout>
SpdImage<Layout>& SpdImage<Layout>::device_width(unsigned bits) {
    set_bits(image_, Layout::device_width, code_of(device_widths, bits, "device width"));
    return *this;
}

template <class Layout>
SpdImage<Layout>& SpdImage<Layout>::bus_width(unsigned bits) {
    set_bits(image_, Layout::bus_width, code_of(bus_widths, bits, "bus width"));
    return *this;
}

template <class Layout>
SpdImage<Layout>& SpdImage<Layout>::ecc_bits(unsigned bits) {
    set_bits(image_, Layout::ecc, code_of(Layout::ecc_codes, bits, "ECC width"));
    return *this;
}

template <class Layout>
SpdImage<Layout>& SpdImage<Layout>::speed(unsigned megatransfers) {
    Layout::set_speed(*this, megatransfers);
    return *this;
}

template <class Layout>
SpdImage<Layout>& SpdImage<Layout>::cas_latencies(std::initializer_list<unsigned> latencies) {
    constexpr LatencyBits layout = Layout::latencies;
    Bytes bytes(layout.bytes.length);
    for (const unsigned latency : latencies) {
        const unsigned bit = latency < layout.first ? ~0U : (latency - layout.first) / layout.step;
        if (bit >= bytes.size() * 8 || (latency - layout.first) % layout.step != 0)
            throw std::invalid_argument("no bit stands for CAS latency " + std::to_string(latency));
        bytes[bit / 8] = static_cast<uint8_t>(bytes[bit / 8] | 1U << bit % 8);
    }
    return put(layout.bytes.first, bytes);
}

template <class Layout>
SpdImage<Layout>& SpdImage<Layout>::maker(MakerId id) {
    return put(Layout::maker, {id.bank, id.code});
}

template <class Layout>
SpdImage<Layout>& SpdImage<Layout>::dram_maker(MakerId id) {
    return put(Layout::dram_maker, {id.bank, id.code});
}

template <class Layout>
SpdImage<Layout>& SpdImage<Layout>::location(uint8_t code) {
    return byte(Layout::location, code);
}

template <class Layout>
SpdImage<Layout>& SpdImage<Layout>::made(unsigned year, unsigned week) {
    return byte(Layout::year, bcd(year)).byte(Layout::week, bcd(week));
}

template <class Layout>
SpdImage<Layout>& SpdImage<Layout>::serial(uint32_t number) {
    return put(Layout::serial, {static_cast<uint8_t>(number >> 24U), static_cast<uint8_t>(number >> 16U),
                                static_cast<uint8_t>(number >> 8U), static_cast<uint8_t>(number)});
}

template <class Layout>
SpdImage<Layout>& SpdImage<Layout>::part(std::string_view text) {
    std::string padded(text);
    padded.resize(Layout::part.length, ' ');
    return put(Layout::part.first, Bytes(padded.begin(), padded.end()));
}

template <class Layout>
SpdImage<Layout>& SpdImage<Layout>::byte(std::size_t offset, uint8_t value) {
    image_.at(offset) = value;
    return *this;
}

template <class Layout>
SpdImage<Layout>& SpdImage<Layout>::put(std::size_t offset, std::span<const uint8_t> bytes) {
    for (const uint8_t value : bytes) image_.at(offset++) = value;
    return *this;
}

template <class Layout>
SpdImage<Layout>& SpdImage<Layout>::seal() {
    for (const auto& [covered, place] : Layout::checksums(image_)) {
        const uint16_t crc = crc_of(std::span(image_).subspan(covered.first, covered.length));
        put(place, {static_cast<uint8_t>(crc), static_cast<uint8_t>(crc >> 8U)});
    }
    return *this;
}

template class SpdImage<Ddr3>;
template class SpdImage<Ddr4>;
template class SpdImage<Ddr5>;

MakerId maker_id(uint8_t continuation_codes, uint8_t code) { return {with_odd_parity(continuation_codes), code}; }

MakerId maker_named(std::string_view name, std::span<const Jep106Row> list) {
    const std::string wanted(name);
    const auto has_name = [&](const Jep106Row& row) { return strcasecmp(row.name, wanted.c_str()) == 0; };
    const auto found = std::find_if(list.begin(), list.end(), has_name);
    if (wanted.empty() || found == list.end())
        throw std::invalid_argument("not in the list of manufacturers: '" + wanted + "'");
    return maker_id(found->bank, found->code);
}

namespace {

/// Gbit of one die, given 64 bits of devices in each rank.
unsigned density_of(const Module& module) {
    const unsigned bits = module.size_gb * 8 * module.device_width;
    const unsigned devices = 64 * module.ranks * module.dies;
    if (devices == 0 || bits % devices != 0)
        throw std::invalid_argument("no device density makes up " + std::to_string(module.size_gb) + " GB");
    return bits / devices;
}

template <class Image>
Bytes module_image(const Module& module, unsigned ecc_bits) {
    Image image;
    image.type(module.type)
        .ranks(module.ranks)
        .dies(module.dies)
        .device_width(module.device_width)
        .density_gbit(density_of(module));
    image.ecc_bits(ecc_bits).speed(module.speed);
    image.maker(module.maker).dram_maker(module.dram_maker).location(module.location);
    image.made(module.year, module.week).serial(module.serial).part(module.part);
    return image.seal().build();
}

/// Unregistered DDR5 modules have half the ECC devices.
unsigned ddr5_ecc_bits(const Module& module) {
    const bool is_registered = module.type == ModuleType::rdimm || module.type == ModuleType::lrdimm;
    if (!module.has_ecc) return 0;
    return is_registered ? 8 : 4;
}

}  // namespace

Bytes spd_image(const Module& module) {
    switch (module.generation) {
        case Generation::ddr3:
            return module_image<Ddr3Image>(module, module.has_ecc ? 8 : 0);
        case Generation::ddr4:
            return module_image<Ddr4Image>(module, module.has_ecc ? 8 : 0);
        case Generation::ddr5:
            return module_image<Ddr5Image>(module, ddr5_ecc_bits(module));
    }
    throw std::invalid_argument("no such generation of memory");
}

}  // namespace vpdd::images
