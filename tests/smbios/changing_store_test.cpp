// SPDX-License-Identifier: Apache-2.0
// The store may change a structure while it is being looked up. A look-up that has found its entry then sees another
// type there. The C functions that compare serials and slots stand in for the moment of the change.
#include <dlfcn.h>

#include <cstdlib>
#include <functional>

#include "smbios_test.h"

namespace {

std::function<void()> at_comparison;

template <class Function>
Function* c_library(const char* name) {
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

}  // namespace

extern "C" int strcasecmp(const char* left, const char* right) noexcept {
    if (at_comparison) at_comparison();
    static auto* const original = c_library<int(const char*, const char*)>("strcasecmp");
    return original(left, right);
}

extern "C" long strtol(const char* text, char** end, int base) noexcept {
    if (at_comparison) at_comparison();
    static auto* const original = c_library<long(const char*, char**, int)>("strtol");
    return original(text, end, base);
}

using namespace vpdd::test;
using testing::Contains;
using vpdd::images::MemoryDeviceImage;

namespace {

constexpr uint32_t all_ones = 0xFFFFFFFF;

class ChangingStore : public SmbiosTest {
protected:
    ChangingStore()
        : structure_(MemoryDeviceImage().device_locator("DIMM 7").serial_number("12345678").size(1).bytes()) {
        at_comparison = [this] { structure_[0] = 0xAB; };
        debug();
    }
    ~ChangingStore() override { at_comparison = nullptr; }

    Bytes structure_;
    SmbiosEntry entry_{structure_.data(), nullptr};
    SmbiosTypeGroup group_{17, 1, &entry_, nullptr};
    SmbiosTable table_{&group_};
    uint32_t size_ = 5, speed_ = 6;
};

TEST_F(ChangingStore, SetsSizeAndSpeedOfAnotherTypeFoundBySerialToAllOnes) {
    EXPECT_EQ(vpdd_get_size_speed_from_smbios_by_serial_number(&table_, "12345678", &size_, &speed_), -3);

    EXPECT_EQ(size_, all_ones);
    EXPECT_EQ(speed_, all_ones);
    EXPECT_THAT(platform.log(), Contains(debug_line("vpdd_get_size_speed_from_smbios_by_serial_number",
                                                    "This is not dimm type 0x11(ab)\n")));
}

TEST_F(ChangingStore, SetsSizeAndSpeedOfAnotherTypeFoundBySlotToAllOnes) {
    int comparisons = 0;
    at_comparison = [&] {
        if (++comparisons == 2) structure_[0] = 0xAB;  // the first one reads the slot text
    };

    EXPECT_EQ(vpdd_get_size_speed_from_smbios_by_device_locator(&table_, "7", &size_, &speed_), -3);

    EXPECT_EQ(size_, all_ones);
    EXPECT_EQ(speed_, all_ones);
    EXPECT_THAT(platform.log(), Contains(debug_line("vpdd_get_size_speed_from_smbios_by_device_locator",
                                                    "This is not dimm type 0x11(ab)\n")));
}

TEST_F(ChangingStore, LeavesTheConfiguredSpeedOfAnotherTypeAlone) {
    EXPECT_EQ(vpdd_get_config_speed_from_smbios_by_serial_number(&table_, "12345678", &speed_), -3);

    EXPECT_EQ(speed_, 6u);
    EXPECT_THAT(platform.log(), Contains(debug_line("vpdd_get_config_speed_from_smbios_by_serial_number",
                                                    "This is not dimm type 0x11(ab)\n")));
}

TEST_F(ChangingStore, YieldsNoSerialNumberOfAnotherType) {
    char out[16];

    EXPECT_EQ(vpdd_get_serial_num_from_smbios_by_serial_number(&table_, "12345678", out, sizeof out), -4);

    EXPECT_THAT(platform.log(), Contains(debug_line("vpdd_get_serial_num_from_smbios_by_serial_number",
                                                    "There is no serial number\n")));
}

}  // namespace
