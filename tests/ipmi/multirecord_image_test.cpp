// SPDX-License-Identifier: Apache-2.0
// The walk over the multirecords of an image, whose end is known: what the component cache makes of it.
#include <algorithm>

#include "compvpd/cache_fixture.h"
#include "own_process.h"

using namespace vpdd::test;
using testing::ElementsAre;
using testing::IsEmpty;
using vpdd::images::Field;
using vpdd::images::FruArea;
using vpdd::images::FruImage;
using vpdd::images::FruLocator;
using vpdd::images::Multirecord;
using vpdd::images::OemProcessor;

namespace {

constexpr uint8_t first_fru = 5;
constexpr std::size_t list_offset = 8;  // behind the common header

Multirecord processor_record(uint8_t index) {
    OemProcessor oem{.iana = VPDD_MAKER_IANA, .index = Field::binary({index})};
    oem.trailing = {0xC1, 0, 0};
    return {OemProcessor::record_type, oem.data()};
}

/// A list of one record and what stands behind it, which is the image's end.
Bytes list_of(const Multirecord& first, const Bytes& behind) {
    Bytes list = first.bytes(false);
    vpdd::images::append(list, behind);
    return list;
}

LogLine wrong_header(const char* details) {
    return {warning, formatted("process_multirec - Invalid fru multirec header checksum. %s", details)};
}
const LogLine wrong_record{warning, "process_multirec - Invalid fru multirec record checksum.\n"};

class MultirecordsOfAnImage : public ComponentCacheTest {
protected:
    /// A component for each list; an image ends where its list does.
    void decode(const std::vector<Bytes>& lists) {
        platform.fru(0, FruImage().build());
        std::vector<Bytes> locators;
        uint8_t fru = first_fru;
        for (const Bytes& list : lists) {
            Bytes image = FruImage().raw_area(FruArea::multirecord, list).build();
            image.resize(list_offset + list.size());
            platform.fru(fru, image);
            locators.push_back(FruLocator(fru, "FRU").entity(7, fru));
            ++fru;
        }
        create(std::move(locators));
    }

    /// The processor index that each component got, in order; 0 without a processor record.
    static std::vector<uint32_t> indexes() {
        std::vector<uint32_t> found;
        for (const ComponentVpdRecord& record : records()) {
            EXPECT_EQ(record.vpd_format, record.oem_cpu.index == 0 ? 0U : 2U);
            found.push_back(record.oem_cpu.index);
        }
        return found;
    }

    std::vector<LogLine> walk_log() const {
        auto lines = platform.log();
        std::erase_if(lines, [](const LogLine& line) { return !line.text.starts_with("process_multirec"); });
        return lines;
    }
};

TEST_F(MultirecordsOfAnImage, GoOnBehindAHeaderOfZeros) {
    decode({list_of({0x01, {}, 0, false, 0, 0}, processor_record(7).bytes(true)),
            list_of({0x00, {}, 0, false, 0, 0}, processor_record(8).bytes(true)),
            list_of(processor_record(9), Bytes(5))});

    EXPECT_THAT(indexes(), ElementsAre(0, 8, 9));
    EXPECT_THAT(walk_log(), ElementsAre(wrong_header("ID=01, V=00, l=00, rchk=00, hchk 00 != 01")));
}

TEST_F(MultirecordsOfAnImage, GoOnBehindARecordOfAnyVersionWithoutTheEndOfListBit) {
    std::vector<Bytes> lists;
    for (const uint8_t version : {0x00, 0x01, 0x03, 0x0F, 0x12, 0x22, 0x42, 0x72, 0x7F}) {
        lists.push_back(list_of({0xC1, {1, 2}, version}, processor_record(7).bytes(true)));
    }

    decode(lists);

    EXPECT_EQ(indexes(), std::vector<uint32_t>(lists.size(), 7));
    EXPECT_THAT(walk_log(), IsEmpty());
}

TEST_F(MultirecordsOfAnImage, EndAtTheEndOfListBitOfAnyVersion) {
    std::vector<Bytes> lists;
    for (const uint8_t version : {0x80, 0x81, 0x82, 0x92, 0xFF}) {
        lists.push_back(list_of({0xC1, {1, 2}, version}, processor_record(7).bytes(true)));
    }

    decode(lists);

    EXPECT_EQ(indexes(), std::vector<uint32_t>(lists.size(), 0));
    EXPECT_THAT(walk_log(), IsEmpty());
}

TEST_F(MultirecordsOfAnImage, AreCheckedDownToAHeaderInTheLastByte) {
    // What the image lacks of a header reads as zeros.
    decode({list_of(processor_record(1), {0xAB}), list_of(processor_record(2), {0xAB, 0x02}),
            list_of(processor_record(3), {0xAB, 0x02, 0x00}), list_of(processor_record(4), {0xAB, 0x02, 0x00, 0x11})});

    EXPECT_THAT(indexes(), ElementsAre(1, 2, 3, 4));
    EXPECT_THAT(walk_log(), ElementsAre(wrong_header("ID=AB, V=00, l=00, rchk=00, hchk 00 != AB"),
                                        wrong_header("ID=AB, V=02, l=00, rchk=00, hchk 00 != AD"),
                                        wrong_header("ID=AB, V=02, l=00, rchk=00, hchk 00 != AD"), wrong_record));
}

TEST_F(MultirecordsOfAnImage, EndBehindAHeaderWhoseRecordLiesWhollyBehindTheImage) {
    // Four records of 260 bytes, and of a fifth only type, version and length: FF + 02 + FF is 0 modulo 256, and 255
    // zeros behind the image need no checksum.
    Bytes list;
    for (int i = 0; i < 4; ++i) vpdd::images::append(list, Multirecord{0xC1, Bytes(255, 0x5A)}.bytes(false));
    vpdd::images::append(list, Bytes{0xFF, 0x02, 0xFF});
    ASSERT_GT(list.size(), 1024U);

    decode({list});

    EXPECT_THAT(indexes(), ElementsAre(0));
    EXPECT_THAT(walk_log(), IsEmpty());
}

}  // namespace
