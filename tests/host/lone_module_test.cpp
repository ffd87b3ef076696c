// SPDX-License-Identifier: Apache-2.0
// A server that is nothing but one memory module.
#include "host/images/spd_image.h"
#include "orva_vpdd.h"
#include "platform/configuration.h"
#include "platform/messages.h"
#include "platform/smbios_store.h"
#include "platform_calls.h"

using namespace vpdd::test;

namespace {

/// Open as long as this lives.
class LoneModule {
public:
    explicit LoneModule(const Bytes& image, const VpddHostOptions* options = nullptr) {
        char error[256] = "";
        EXPECT_EQ(vpdd_host_open_module(image.data(), image.size(), options, error, sizeof error), 0) << error;
    }
    ~LoneModule() { vpdd_host_close(); }
    LoneModule(const LoneModule&) = delete;
    LoneModule& operator=(const LoneModule&) = delete;
};

std::string refused(const uint8_t* image, std::size_t size) {
    char error[256] = "";
    const int result = vpdd_host_open_module(image, size, nullptr, error, sizeof error);
    return result == -1 ? error : "";
}

int count_of_variables() {
    int count = 0;
    const auto visit = [](void* context, const VpddHostVariable*) { return ++*static_cast<int*>(context), 0; };
    EXPECT_EQ(vpdd_host_each_variable(visit, &count), 0);
    return count;
}

int count_of_events() {
    int count = 0;
    const auto visit = [](void* context, const VpddHostEvent*) { return ++*static_cast<int*>(context), 0; };
    EXPECT_EQ(vpdd_host_each_event(visit, &count), 0);
    return count;
}

TEST(LoneModule, HasTheRecordOfItsImage) {
    const LoneModule server(vpdd::images::Ddr4Image().build());
    constexpr uint8_t fru_id = 1;
    ComponentVpdRecord record{};
    uint32_t length = 0;

    ASSERT_EQ(CreateComponentVPDCache(), 0);
    ASSERT_EQ(GetComponentVPDByFruID(&length, sizeof record, &fru_id, &record), 0);
    DestroyComponentVPDCache();

    EXPECT_STREQ(record.name, "DIMM 1");
    EXPECT_EQ(record.is_cached, 1U);
    EXPECT_STREQ(record.spd_info.device_type, "DDR4");
}

TEST(LoneModule, TakesWhatIsPublishedAndKeepsNothing) {
    const LoneModule server(Bytes(256));
    int32_t value = 0;

    EXPECT_EQ(tarn_config_set_int("number", 5, 0), 1);
    EXPECT_EQ(tarn_config_set_str("text", "words", 0), 1);
    EXPECT_EQ(tarn_config_set_str_n("text", "words", 2, 0), 1);
    EXPECT_EQ(tarn_event_type_occurred(1, "event", 2, 3), 1);
    EXPECT_EQ(sw_msg_dispatcher(1, nullptr, 2, 3), 0);

    EXPECT_EQ(tarn_config_get_int("number", &value), 0);
    EXPECT_EQ(count_of_variables(), 0);
    EXPECT_EQ(count_of_events(), 0);
}

TEST(LoneModule, HasNothingElse) {
    const LoneModule server(Bytes(256));
    SmbiosTable* table = nullptr;

    EXPECT_EQ(fru_size(0), (Bytes{0xCB}));
    EXPECT_EQ(fru_size(1), (Bytes{0x00, 0x00, 0x01, 0x00}));
    EXPECT_EQ(fru_size(2), (Bytes{0xCB}));
    EXPECT_EQ(smbt_init(&table, 0, "", ""), -1);
}

TEST(LoneModule, LeavesTheStateDirectoryAlone) {
    const std::string unmakeable = "/dev/null/state";
    VpddHostOptions options{};
    options.state_directory = unmakeable.c_str();
    const LoneModule server(Bytes(256), &options);
    char error[256] = "";

    EXPECT_EQ(vpdd_host_change_fru(VPDD_HOST_PULL, "1", nullptr, nullptr, error, sizeof error), -1);
    EXPECT_STREQ(error, "a change needs a state directory");
}

TEST(LoneModule, RefusesWhatNoEepromHolds) {
    const Bytes largest(65535), larger(65536);

    EXPECT_EQ(refused(nullptr, 0), "no image given");
    EXPECT_EQ(refused(larger.data(), larger.size()), "The image exceeds 65535 bytes.");
    EXPECT_EQ(fru_size(1), Bytes{}) << "no server is open";
    EXPECT_EQ(refused(largest.data(), largest.size()), "");
    vpdd_host_close();
}

}  // namespace
