// SPDX-License-Identifier: Apache-2.0
// Every prefix of an image and every byte of it changed: each variant is the image of one component, is decoded by a
// creation and by an update or fails cleanly, and the good component beside it stays as it is.
#include <algorithm>
#include <functional>
#include <optional>

#include "module_fixture.h"
#include "samples.h"

using namespace vpdd::test;
using vpdd::images::Field;
using vpdd::images::FruImage;
using vpdd::images::FruLocator;
using vpdd::images::OemProcessor;

namespace {

constexpr uint8_t good_fru = 1;
constexpr uint8_t last_fru = 0xFF;
constexpr int fru_unreadable = -10;

struct Format {
    const char* name;
    Bytes (*image)();
    const char* samples;  ///< folder; null where another row has it
    uint8_t modifier;
    uint8_t entity;
};

void PrintTo(const Format& format, std::ostream* stream) { *stream << format.name; }

/// Fields up to the firmware versions.
Bytes power_supply_image() {
    const std::vector<Field> custom{"LEVEL 07", "c2", "c3", "c4", "c5", "c6", "c7", "c8", Field::bcd_plus({0x01, 0x02}),
                                    "12.34"};
    return FruImage()
        .board({.manufacturer = "Acme Power", .product = "Supply", .serial = "SN-1", .part = "PN-1", .custom = custom})
        .padded_to(256)
        .build();
}

Bytes processor_image() {
    OemProcessor oem;
    oem.texts = {"Model X", "2.4 GHz", "28", "56", "t4", "t5", "t6", "t7", "t8", "t9", "stepping 3"};
    oem.raw = Field::binary({1, 2, 3, 4, 5});
    oem.trailing = {0xC1, 0, 0};
    return FruImage()
        .product({.manufacturer = "Zelt", .name = "CPU", .part = "Model X", .version = "v1", .serial = "S1"})
        .multirecord(0x02, {1, 2, 3})
        .multirecord(OemProcessor::record_type, oem.data())
        .padded_to(256)
        .build();
}

const Format formats[] = {
    {"Board", power_supply_image, nullptr, 0, power_supply},
    {"Product", processor_image, "fru", 0, processor},
    {"Ddr3", ddr3, "spd/ddr3", dimm, memory_device},
    {"Ddr4", ddr4, "spd/ddr4", dimm, memory_device},
    {"Ddr5", [] { return ddr5(ddr5_bytes_256); }, "spd/ddr5", dimm, memory_device},
};

template <std::size_t Size>
void expect_ended(const char (&text)[Size]) {
    EXPECT_LT(strnlen(text, Size), Size);
}

void expect_ended_texts(const ComponentVpdRecord& record) {
    expect_ended(record.board_extra);
    expect_ended(record.serial_number);
    expect_ended(record.mfg_id);
    expect_ended(record.mfg_date);
    expect_ended(record.part_number);
    expect_ended(record.product_version);
    expect_ended(record.ppin);
    for (const auto& text : record.oem_cpu.text) expect_ended(text);
    expect_ended(record.psu_fw.primary);
    expect_ended(record.psu_fw.secondary);
    expect_ended(record.spd_info.part_number);
    expect_ended(record.spd_info.serial_number);
    expect_ended(record.spd_info.mfg_id);
    expect_ended(record.spd_info.cas_latencies_supports);
}

class ImageVariants : public ModuleCacheTest, public testing::WithParamInterface<Format> {
protected:
    /// One more component; a full server is created, updated and destroyed.
    void add(const Bytes& image) {
        images_.push_back(with_a_size(image));
        if (images_.size() == last_fru - good_fru) decode();
    }
    void add_prefixes(const Bytes& image) {
        for (std::size_t size = 0; size <= image.size(); ++size) {
            add(Bytes(image.begin(), image.begin() + static_cast<std::ptrdiff_t>(size)));
        }
    }
    /// For each byte the ends of its range, an end of fields, the longest text, and each bit turned over.
    void add_flips(const Bytes& image) {
        for (std::size_t at = 0; at < image.size(); ++at) {
            for (const uint8_t value : {0x00, 0xFF, 0xC1, 0x7F}) add_changed(image, at, value);
            for (unsigned bit = 0; bit < 8; ++bit) {
                add_changed(image, at, static_cast<uint8_t>(image[at] ^ 1U << bit));
            }
        }
    }

    /// What has not filled a server yet.
    void TearDown() override {
        decode();
        EXPECT_TRUE(all_locks_are_free());
    }

private:
    void add_changed(Bytes image, std::size_t at, uint8_t value) {
        image[at] = value;
        add(image);
    }

    void decode() {
        if (images_.empty()) return;
        platform.reset();
        smbios("DIMM 1", "FF");
        std::vector<Bytes> locators;
        add_component(locators, good_fru, GetParam().image());
        for (std::size_t i = 0; i < images_.size(); ++i) {
            add_component(locators, static_cast<uint8_t>(good_fru + 1 + i), images_[i]);
        }
        create(std::move(locators));
        expect_good_records(created_);
        // The platform has no byte of an empty image to answer with.
        const bool has_empty = std::any_of(images_.begin(), images_.end(), std::mem_fn(&Bytes::empty));
        EXPECT_EQ(UpdateComponentVPDCache(), has_empty ? fru_unreadable : 0);
        expect_good_records(updated_);
        EXPECT_EQ(DestroyComponentVPDCache(), 0);
        images_.clear();
    }

    void add_component(std::vector<Bytes>& locators, uint8_t fru_id, const Bytes& image) {
        platform.fru(fru_id, image);
        locators.push_back(
            FruLocator(fru_id, "Slot 1").modifier(GetParam().modifier).entity(GetParam().entity, fru_id & 0x7F));
    }

    /// `first` is the good component's record of the first server, which it has in every other one.
    void expect_good_records(std::optional<ComponentVpdRecord>& first) {
        auto found = records();
        ASSERT_EQ(found.size(), images_.size() + 1);
        for (std::size_t i = 0; i < found.size(); ++i) {
            EXPECT_EQ(found[i].fru_id, good_fru + i);
            EXPECT_EQ(found[i].ppin_dump, 0U);
            expect_ended_texts(found[i]);
        }
        found[0].next_fru_id = 0;
        EXPECT_EQ(found[0].is_cached, 1);
        if (!first) first = found[0];
        EXPECT_TRUE(is_same_record(found[0], *first));
    }

    std::vector<Bytes> images_;
    std::optional<ComponentVpdRecord> created_, updated_;
};

std::string name_of(const testing::TestParamInfo<Format>& format) { return format.param.name; }

INSTANTIATE_TEST_SUITE_P(Of, ImageVariants, testing::ValuesIn(formats), name_of);

class SampleVariants : public ImageVariants {};

INSTANTIATE_TEST_SUITE_P(Of, SampleVariants, testing::ValuesIn(formats + 1, std::end(formats)), name_of);

TEST_P(ImageVariants, DecodeOrFailAtEveryLength) { add_prefixes(GetParam().image()); }

TEST_P(ImageVariants, DecodeOrFailWithEveryByteChanged) { add_flips(GetParam().image()); }

TEST_P(SampleVariants, DecodeOrFailAtEveryLength) {
    const auto samples = sample_images(GetParam().samples);
    if (samples.empty()) GTEST_SKIP() << "no samples";
    for (const auto& sample : samples) add_prefixes(file_bytes(sample));
}

TEST_P(SampleVariants, DecodeOrFailWithEveryByteChanged) {
    for (const auto& sample : sample_images(GetParam().samples)) {
        Bytes image = file_bytes(sample);
        if (image.size() < 256) continue;
        image.resize(256);
        add_flips(image);
        return;
    }
    GTEST_SKIP() << "no samples";
}

}  // namespace
