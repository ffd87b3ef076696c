// SPDX-License-Identifier: Apache-2.0
#include <dlfcn.h>

#include <atomic>
#include <thread>

#include "orva_vpdd.h"
#include "platform/configuration.h"
#include "platform/sdr_repository.h"
#include "platform_calls.h"

using namespace vpdd::test;

namespace {

const std::string board = R"({"areas": {"board": {"manufacturer": "Example Boards"}}})";

TEST(Server, TellsOfTheFirstReadOfEachFru) {
    struct Step {
        uint8_t fru_id;
        uint32_t number, total;

        bool operator==(const Step&) const = default;
    };
    std::vector<Step> steps;
    VpddHostOptions options{};
    options.progress = [](void* context, uint8_t fru_id, uint32_t number, uint32_t total) {
        static_cast<std::vector<Step>*>(context)->push_back({fru_id, number, total});
    };
    options.progress_context = &steps;
    const OpenServer server(server_text(fru_text(20, "A", board) + "," + fru_text(7, "B", R"({"absent": true})") + "," +
                                        fru_text(3, "C", board)),
                            options);

    fru_size(20);
    read_fru_data(3, 8, 1);
    read_fru_data(7, 0, 1);
    read_fru_data(20, 0, 1);
    read_fru_data(3, 0, 1);

    EXPECT_EQ(steps, (std::vector<Step>{{3, 3, 3}, {20, 1, 3}}));
}

TEST(Server, MayBeAskedByItsOwnCallbacks) {
    VpddHostOptions options{};
    options.progress = [](void*, uint8_t fru_id, uint32_t, uint32_t) { tarn_config_set_int("reading", fru_id, 0); };
    const OpenServer server(server_text(fru_text(20, "A", board)), options);
    int32_t reading = 0;

    read_fru_data(20, 0, 1);

    EXPECT_NE(tarn_config_get_int("reading", &reading), 0);
    EXPECT_EQ(reading, 20);
}

TEST(Server, OpenedInPlaceOfAnotherOneReplacesIt) {
    const OpenServer first(server_text(fru_text(1, "A", board)));
    const OpenServer second(server_text(fru_text(2, "B", board)));

    EXPECT_EQ(fru_size(1), (Bytes{0xCB}));
    EXPECT_EQ(fru_size(2)[0], 0x00);
}

TEST(Server, AnswersManyThreadsAtOnceWhileItIsExchanged) {
    const std::string text = server_text(fru_text(1, "A", board));
    std::atomic<int> wrong = 0;
    const auto use = [&](int thread) {
        const std::string name = "variable" + std::to_string(thread);
        Bytes record(64);
        uint16_t next = 0;
        int32_t length = 0;
        for (int round = 0; round < 200; ++round) {
            const Bytes answer = read_fru_data(1, 0, 8);
            if (!answer.empty() && answer.size() != 10) ++wrong;
            tarn_config_set_int(name.c_str(), round, 0);
            if (mosk_sdr_get_entry(1, 0, 64, &next, &length, record.data()) == 0 && next != 0xFFFF) ++wrong;
            SmbiosTable* table = nullptr;
            vpdd_load_smbios_table(&table);
            vpdd_free_smbios_table(&table);
        }
    };
    std::vector<std::thread> threads;
    for (int thread = 0; thread < 4; ++thread) threads.emplace_back(use, thread);
    for (int round = 0; round < 20; ++round)
        vpdd_host_open_text(text.c_str(), text.size(), nullptr, nullptr, nullptr, 0);
    for (std::thread& thread : threads) thread.join();
    vpdd_host_close();

    EXPECT_EQ(wrong, 0);
}

TEST(Server, DescriptionsStandInTheServerFolder) {
    const std::filesystem::path folder = vpdd_host_server_folder();

    for (const char* name : {"ddr3-small.json", "ddr4-2s.json", "ddr5-2s.json", "schema.json"})
        EXPECT_TRUE(std::filesystem::exists(folder / name)) << folder / name;
}

TEST(Server, BringsTheChangeHistoryThatTheLibraryLoadsByItsName) {
    void* const handle = dlopen("liborvadb_chghist.so", RTLD_LAZY | RTLD_NOLOAD);

    EXPECT_NE(handle, nullptr) << "the library's constructor has loaded it";
    EXPECT_EQ(vpdd_load_chghist_lib(), 1);
}

}  // namespace
