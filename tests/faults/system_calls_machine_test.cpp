// SPDX-License-Identifier: Apache-2.0
// Each call into the C library fails in what writes and reads the machine cache files, and in the daemon's client.
#include <dlfcn.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <set>

#include "faults/each_system_call.h"
#include "sysvpd/machine_world.h"

using namespace vpdd::test;
using testing::AnyOf;
namespace fs = std::filesystem;

// Stand in front of the C library's functions.
extern "C" int socket(int family, int type, int protocol) noexcept {
    static auto* const real = reinterpret_cast<int (*)(int, int, int)>(dlsym(RTLD_NEXT, "socket"));
    return NumberedCalls::take("socket", __builtin_return_address(0)) ? -1 : real(family, type, protocol);
}

extern "C" int connect(int fd, const sockaddr* address, socklen_t length) {
    static auto* const real = reinterpret_cast<decltype(connect)*>(dlsym(RTLD_NEXT, "connect"));
    return NumberedCalls::take("connect", __builtin_return_address(0)) ? -1 : real(fd, address, length);
}

namespace {

/// What a reader gets of a file, and how.
template <class Record>
struct Read {
    int result = 0;
    Record record{};
};

Read<MachineVpdRecord> read_standard() {
    Read<MachineVpdRecord> read;
    read.result = vpdd_machine_vpd_read(bytes(read.record), sizeof read.record);
    return read;
}

Read<OemMachineRecord> read_oem() {
    Read<OemMachineRecord> read;
    read.result = vpdd_machine_oem_vpd_read(bytes(read.record), sizeof read.record);
    return read;
}

class MachineCallFailure : public MachineTest {
protected:
    void SetUp() override {
        set_system_vpd(platform);
        set_posid(platform, 0xFF, 0xEE);
        platform.fru(0, seven_pairs());
    }

    /// Another machine, so that old files are told from new ones.
    void change_machine() {
        platform.field(8, "NEW-MTM");
        platform.fru(0, machine_fru({"NEW-LABEL", "NEW-VALUE"}));
    }

    void for_each_fault(const std::function<void(RunOfCalls&)>& body) {
        for_each_failing_call([&](RunOfCalls& run) {
            body(run);
            EXPECT_TRUE(no_file_lock_is_held("/tmp/vpdd_machine_lock"));
            EXPECT_TRUE(no_file_lock_is_held("/tmp/vpdd_machine_oem_lock"));
        });
    }

    /// Both files are there, each as a whole: the old one or the new one.
    static void expect_whole_files(bool are_new) {
        const auto standard = read_standard();
        const auto oem = read_oem();
        ASSERT_EQ(standard.result, 0);
        ASSERT_EQ(oem.result, 0);
        EXPECT_THAT(std::string(standard.record.machine_type_model), AnyOf("7X06AC1", "NEW-MTM"));
        EXPECT_THAT(std::string(oem.record.pair_0.label), AnyOf("LABEL-0", "NEW-LABEL"));
        if (!are_new) return;
        EXPECT_STREQ(standard.record.machine_type_model, "NEW-MTM");
        EXPECT_STREQ(oem.record.pair_0.label, "NEW-LABEL");
    }

    static void write_files() {
        const CaptureStdout silence;
        ASSERT_EQ(init_machine_vpd_cache_file(), 0);
    }

    static std::set<std::string> files() {
        std::set<std::string> names;
        for (const auto& entry : fs::directory_iterator("/tmp")) names.insert(entry.path().filename());
        return names;
    }
    static void remove_files() {
        for (const std::string& name : files()) {
            if (name.find("achine") != std::string::npos) fs::remove("/tmp/" + name);
        }
    }
};

TEST_F(MachineCallFailure, LeavesEachCacheFileWhole) {
    write_files();
    const std::set<std::string> names = files();
    for_each_fault([&](RunOfCalls& run) {
        write_files();
        change_machine();
        int result = 77;
        run([&] { result = init_machine_vpd_cache_file(); });

        EXPECT_THAT(result, AnyOf(0, -1));
        EXPECT_TRUE(run.has_failed() || result == 0);
        expect_whole_files(result == 0);
        EXPECT_TRUE(run.fails_from_then_on() || files() == names) << "a part of a file is left";
        write_files();
        expect_whole_files(true);
        EXPECT_EQ(files(), names) << "the next writing removes what is left";
    });
}

TEST_F(MachineCallFailure, LeavesNoPartOfAFirstCacheFile) {
    for_each_fault([&](RunOfCalls& run) {
        remove_files();
        int result = 77;
        run([&] { result = init_machine_vpd_cache_file(); });

        const auto standard = read_standard();
        EXPECT_THAT(standard.result, AnyOf(0, -1));
        EXPECT_EQ(standard.result, fs::exists("/tmp/machine.cache") ? 0 : -1) << "a file that is there is whole";
        EXPECT_EQ(read_oem().result, fs::exists("/tmp/oemMachine.cache") ? 0 : -1);
        EXPECT_TRUE(result != 0 || read_oem().result == 0);
    });
}

TEST_F(MachineCallFailure, IsOverInTheNextAttemptToRebuild) {
    for_each_fault([&](RunOfCalls& run) {
        int result = 77;
        run([&] { result = update_machine_vpd_cache_file(); });

        EXPECT_THAT(result, AnyOf(0, -1));
        EXPECT_TRUE(run.fails_from_then_on() || result == 0) << "thirty attempts";
        if (result == 0) expect_whole_files(false);
    });
}

TEST_F(MachineCallFailure, FailsAReaderOrCostsItNothing) {
    write_files();
    const auto standard = read_standard();
    const auto oem = read_oem();
    for_each_fault([&](RunOfCalls& run) {
        Read<MachineVpdRecord> standard_now;
        Read<OemMachineRecord> oem_now;
        run([&] {
            standard_now = read_standard();
            oem_now = read_oem();
        });

        EXPECT_THAT(standard_now.result, AnyOf(0, -1));
        EXPECT_THAT(oem_now.result, AnyOf(0, -1));
        EXPECT_TRUE(standard_now.result == -1 || content(standard_now.record) == content(standard.record));
        EXPECT_TRUE(oem_now.result == -1 || content(oem_now.record) == content(oem.record));
        EXPECT_TRUE(run.has_failed() || (standard_now.result == 0 && oem_now.result == 0));
    });
}

TEST_F(MachineCallFailure, IsTheResultOfWaitingForALock) {
    for (auto* const wait : {vpdd_machine_cache_file_lock_wait, vpdd_machine_oem_cache_file_lock_wait}) {
        for_each_fault([&](RunOfCalls& run) {
            constexpr int32_t untouched = 0x5EAD;
            int32_t fd = untouched;
            int result = 77;
            run([&] {
                result = wait(&fd);
                if (result >= 0) vpdd_machine_cache_file_unlock(fd);
            });

            EXPECT_THAT(result, AnyOf(0, -1));
            EXPECT_TRUE(result < 0 ? fd == -1 || fd == untouched : fd >= 0);
        });
    }
}

// ---- the daemon's client

TEST(DaemonCallFailure, IsAFailureToConnect) {
    constexpr char path[] = "/tmp/vpdd.sock";
    fs::remove(path);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strcpy(address.sun_path, path);
    const int listening = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    ASSERT_EQ(bind(listening, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    ASSERT_EQ(listen(listening, 64), 0);
    for_each_failing_call([](RunOfCalls& run) {
        uint32_t size = 77, reply = 77;
        int result = 77;
        run([&] { result = vpdd_read_component_data("request", &size, 0, sizeof reply, &reply); });

        const bool never_connected = run.failed() == "socket" || run.failed() == "connect";
        EXPECT_EQ(result, never_connected ? -1 : 0);
        EXPECT_EQ(FakePlatform::instance().send_data.count() == 0, never_connected);
        EXPECT_EQ(size, 77U) << "there was no reply";
        EXPECT_EQ(reply, 77U);
    });
    close(listening);
}

}  // namespace
