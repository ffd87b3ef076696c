// SPDX-License-Identifier: Apache-2.0
// Two full servers in which every second image is damaged: they come up, and the good half is as it should be.
#include <random>

#include "module_fixture.h"

using namespace vpdd::test;
using testing::SizeIs;
using vpdd::images::Ddr4Image;
using vpdd::images::Ddr5Image;
using vpdd::images::FruImage;
using vpdd::images::FruLocator;
using vpdd::images::OemProcessor;

namespace {

constexpr int components = 256;

template <std::size_t Size>
void put(char (&field)[Size], const std::string& text) {
    ASSERT_LT(text.size(), Size);
    std::memcpy(field, text.data(), text.size());
}

std::string name_of(int id) { return formatted("Slot %d", id); }
std::string serial_of(int id) { return formatted("SN%05d", id * 331); }

class DamagedServerTest : public ComponentCacheTest, public testing::WithParamInterface<uint32_t> {
protected:
    uint32_t any(uint32_t first, uint32_t last) {
        return std::uniform_int_distribution<uint32_t>(first, last)(random_);
    }
    uint8_t any_byte() { return static_cast<uint8_t>(any(0, 255)); }

    /// Flips, overwrites, cuts or extends an image.
    Bytes damaged(Bytes image) {
        for (uint32_t faults = any(1, 6); faults > 0; --faults) {
            const uint32_t at = any(0, static_cast<uint32_t>(image.size() - 1));
            switch (any(0, 5)) {
                case 0:
                    image[at] = static_cast<uint8_t>(image[at] ^ 1U << any(0, 7));
                    break;
                case 1:
                    for (std::size_t i = at; i < std::min<std::size_t>(at + 16, image.size()); ++i)
                        image[i] = any_byte();
                    break;
                case 2:
                    image.resize(at + 1);
                    break;
                case 3:
                    image.resize(image.size() + any(1, 900), any_byte());
                    break;
                case 4:  // area offsets, memory type
                    image[std::min<std::size_t>(any(0, 8), image.size() - 1)] = any_byte();
                    break;
                default:
                    std::fill(image.begin() + at, image.end(), static_cast<uint8_t>(any(0, 1) * 0xFF));
                    break;
            }
        }
        return image;
    }

    template <class ImageOf, class ExpectedOf>
    void expect_good_half(ImageOf image_of, ExpectedOf expected_of, uint8_t modifier, uint8_t entity) {
        std::vector<Bytes> locators;
        for (int id = 0; id < components; ++id) {
            const auto fru_id = static_cast<uint8_t>(id);
            const Bytes image = image_of(id);
            platform.fru(fru_id, id % 2 == 0 ? image : with_a_size(damaged(image)));
            locators.push_back(FruLocator(fru_id, name_of(id)).modifier(modifier).entity(entity, fru_id & 0x7F));
        }
        create(locators);

        const auto found = records();
        ASSERT_THAT(found, SizeIs(components));
        for (std::size_t id = 0; id < components; id += 2) {
            ComponentVpdRecord expected = expected_of(static_cast<int>(id));
            if (id == 0) expected.next_fru_id = 0xFF;
            EXPECT_TRUE(is_same_record(found[id], expected)) << "FRU " << id;
        }
        for (std::size_t id = 1; id < components; id += 2) {
            EXPECT_EQ(found[id].fru_id, id);
            EXPECT_EQ(std::string(found[id].name), name_of(static_cast<int>(id)));
            EXPECT_EQ(found[id].ppin_dump, 0U);
        }
        EXPECT_TRUE(all_locks_are_free());
    }

private:
    std::mt19937 random_{GetParam()};
};

INSTANTIATE_TEST_SUITE_P(Seeds, DamagedServerTest, testing::Range(1U, 9U));

TEST_P(DamagedServerTest, ComesUpWithFruImages) {
    const auto image_of = [](int id) {
        OemProcessor oem;
        oem.texts.fill(formatted("core %d", id));
        oem.trailing = {0xC1, 0, 0};
        return FruImage()
            .board(
                {.manufacturer = "maker", .product = "board", .serial = serial_of(id), .part = "part", .file_id = "f1"})
            .product({.manufacturer = "other", .serial = "other"})
            .multirecord(OemProcessor::record_type, oem.data())
            .padded_to(static_cast<std::size_t>(300 + id))
            .build();
    };
    const auto expected_of = [](int id) {
        ComponentVpdRecord record{};
        record.fru_id = static_cast<uint8_t>(id);
        record.entity_id = processor;
        record.entity_instance = static_cast<uint8_t>(id & 0x7F);
        put(record.name, name_of(id));
        put(record.mfg_id, "maker");
        put(record.serial_number, serial_of(id));
        put(record.part_number, "part");
        put(record.mfg_date, "1996-01-01");
        record.is_cached = 1;
        record.vpd_format = 2;
        for (auto& text : record.oem_cpu.text) put(text, formatted("core %d", id));
        return record;
    };

    expect_good_half(image_of, expected_of, 0, processor);
}

TEST_P(DamagedServerTest, ComesUpWithModules) {
    // Without a name in JEP106, an SMBIOS table or anything else that the builder decides.
    const auto image_of = [](int id) {
        return Ddr5Image()
            .byte(0, 0x10)
            .put(2, {0x12, 0x02, 0x04})
            .byte(6, 0x20)
            .byte(16, 0x00)
            .put(20, {0x65, 0x01})  // 357 ps
            .put(24, {0x02, 0x00, 0x00, 0x00, 0x00})
            .put(194, {0x00, 0x00})
            .put(234, {0x00, 0x22})
            .put(512, {0x00, 0x00, 0x00, 0x01, 0x01, 0x00, 0x00, 0x00, static_cast<uint8_t>(id)})
            .put(521, Bytes(30, 'P'))
            .seal()
            .build();
    };
    const auto expected_of = [](int id) {
        ComponentVpdRecord record{};
        record.fru_id = static_cast<uint8_t>(id);
        record.entity_id = memory_device;
        record.entity_instance = static_cast<uint8_t>(id & 0x7F);
        put(record.name, name_of(id));
        put(record.mfg_date, "2001-01-01");
        record.is_cached = 1;
        SpdInfo& module = record.spd_info;
        put(module.description, name_of(id));
        put(module.part_number, std::string(30, 'P'));
        put(module.serial_number, formatted("0000000101000000%02X", id));
        put(module.device_type, "DDR5");
        put(module.module_type, "UDIMM");
        module.module_ranks = 1;
        module.module_bus_width = 32;
        module.sdram_frequency = 5600;
        put(module.cas_latencies_supports, "22");
        module.mfg_week = 1;
        module.mfg_year = 1;
        module.ram_size = 16384;  // 2 channels x 32 / 8 bits x 1 die x 2 GB x 1 rank
        return record;
    };

    expect_good_half(image_of, expected_of, dimm, memory_device);
}

}  // namespace
