// SPDX-License-Identifier: Apache-2.0
// Writes FRU and SPD images of every shape into a folder, for a test that runs vpdctl on them.
// usage: image_files FOLDER
#include <filesystem>
#include <fstream>
#include <iostream>

#include "host/images/fru_image.h"
#include "host/images/spd_image.h"

namespace {

using vpdd::images::Bytes;
using vpdd::images::Field;
using vpdd::images::FruImage;
using vpdd::images::OemProcessor;

class Folder {
public:
    explicit Folder(std::filesystem::path path) : path_(std::move(path)) {
        std::filesystem::create_directories(path_ / "fru");
        std::filesystem::create_directories(path_ / "spd");
    }

    void add(const char* name, const std::vector<uint8_t>& image) const {
        std::ofstream file(path_ / name, std::ios::binary);
        file.exceptions(std::ios::failbit | std::ios::badbit);
        file.write(reinterpret_cast<const char*>(image.data()), static_cast<std::streamsize>(image.size()));
        file.close();
    }

private:
    std::filesystem::path path_;
};

FruImage full_fru() {
    OemProcessor processor;
    processor.texts = {"Model X", "28"};
    processor.raw = Field::binary({1, 2, 3});
    return FruImage()
        .internal_use({1, 2, 3, 4})
        .chassis({.part = "C-PART", .serial = "C-SERIAL", .custom = {"C-1"}})
        .board({.manufacturer = Field::six_bit("MAKER"),
                .product = "Board",
                .serial = Field::bcd_plus({0x12, 0x34}),
                .part = Field::binary({0xAB, 0xCD}),
                .file_id = "fru.bin",
                .custom = {"B-1"},
                .date = 14757840})
        .product({.manufacturer = "Maker",
                  .name = "Product",
                  .part = "P-PART",
                  .version = "1",
                  .serial = "P-SERIAL",
                  .asset_tag = "TAG",
                  .file_id = "fru.bin",
                  .custom = {"P-1"}})
        .multirecord({.type = 0x01, .data = Bytes(13, 0x11)})
        .multirecord({.type = 0x02, .data = {1, 2}, .record_checksum = 0x77})
        .multirecord({.type = 0xC5, .data = {0x57, 0x01, 0x00, 0xAB}})
        .multirecord(OemProcessor::record_type, processor.data());
}

void add_frus(const Folder& folder) {
    const Bytes full = full_fru().build();
    folder.add("fru/full.bin", full);
    folder.add("fru/cut_off.bin", Bytes(full.begin(), full.begin() + 60));
    folder.add("fru/header_only.bin", FruImage().build());
    folder.add("fru/wrong_checksum.bin", FruImage().board({.serial = "B", .end = {.checksum = uint8_t{0x55}}}).build());
}

template <class Image>
Image identified(Image image) {
    return image.rdimm().ranks(2).ecc_bits(8).maker(0x80, 0xCE).serial(0x059E7884).made(2023, 50).part("PART-1").seal();
}

void add_modules(const Folder& folder) {
    const Bytes ddr4 = identified(vpdd::images::Ddr4Image()).build();
    folder.add("spd/ddr3.bin", identified(vpdd::images::Ddr3Image()).build());
    folder.add("spd/ddr3_wrong_checksum.bin", identified(vpdd::images::Ddr3Image()).byte(126, 0x55).build());
    folder.add("spd/ddr4.bin", ddr4);
    folder.add("spd/ddr4_cut_off.bin", Bytes(ddr4.begin(), ddr4.begin() + 256));
    folder.add("spd/ddr4_persistent.bin", identified(vpdd::images::Ddr4Image().persistent()).build());
    folder.add("spd/ddr5.bin", identified(vpdd::images::Ddr5Image()).build());
    folder.add("spd/unknown.bin", Bytes(256, 0x00));
}

}  // namespace

int main(int count, char** arguments) {
    if (count != 2) {
        std::cerr << "usage: image_files FOLDER\n";
        return 2;
    }
    const Folder folder(arguments[1]);
    add_frus(folder);
    add_modules(folder);
    return 0;
}
