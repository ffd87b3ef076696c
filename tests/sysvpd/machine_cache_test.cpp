// SPDX-License-Identifier: Apache-2.0
#include <dlfcn.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include <algorithm>
#include <atomic>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <future>
#include <iterator>
#include <regex>
#include <thread>

#include "golden_file.h"
#include "machine_world.h"
#include "watched_files.h"

using namespace vpdd::test;
using testing::Contains;
using testing::Each;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;
using testing::Not;
namespace fs = std::filesystem;

// A cancelled thread leaves its stack frames poisoned, and AddressSanitizer's own clean-up of the signal stack at the
// thread's end would stumble over them.
extern "C" const char* __asan_default_options() { return "use_sigaltstack=0"; }

namespace {

/// Called before the library sets the cancellation state of its thread.
std::function<void(int state)> before_setting_cancellation;

/// The C library's function.
int set_cancellation(int state, int* former) {
    static auto* const real = reinterpret_cast<int (*)(int, int*)>(dlsym(RTLD_NEXT, "pthread_setcancelstate"));
    return real(state, former);
}

}  // namespace

// Stands in front of the C library's function.
extern "C" int pthread_setcancelstate(int state, int* former) {
    if (before_setting_cancellation) before_setting_cancellation(state);
    return set_cancellation(state, former);
}

namespace {

constexpr int untouched = 0x5EAD;
constexpr int64_t one_second = 1'000'000;
constexpr int64_t unlock_pause = 100'000;
constexpr int64_t lock_pause = 100'000;
constexpr unsigned hang_limit = 60;  // seconds; ends a test program that waits for ever

constexpr char reader[] = "read_machine_vpd_cache_file";
constexpr char writer[] = "create_machine_vpd_cache_file";
constexpr char builder[] = "init_machine_vpd_cache_file";
constexpr char outside[] = "/tmp/outside";

/// One of the two cache files and the functions that belong to it.
struct Cache {
    const char* name;
    uint32_t oem;
    uint32_t size;
    const char* path;
    const char* lock_path;
    int (*read)(uint8_t*, uint32_t);
    int (*lock_wait)(int32_t*);
    int (*unlock)(int32_t);

    /// Where the calling thread writes the next content until it is whole.
    std::string new_path() const { return std::string(path) + "." + std::to_string(gettid()) + ".new"; }
};

constexpr Cache standard{"Standard",
                         0,
                         1106,
                         "/tmp/machine.cache",
                         "/tmp/vpdd_machine_lock",
                         vpdd_machine_vpd_read,
                         vpdd_machine_cache_file_lock_wait,
                         vpdd_machine_cache_file_unlock};
constexpr Cache oem{"Oem",
                    1,
                    1342,
                    "/tmp/oemMachine.cache",
                    "/tmp/vpdd_machine_oem_lock",
                    vpdd_machine_oem_vpd_read,
                    vpdd_machine_oem_cache_file_lock_wait,
                    vpdd_machine_oem_cache_file_unlock};

void clean_up() {
    for (const Cache& cache : {standard, oem}) {
        for (const std::string& path : {std::string(cache.path), cache.new_path(), std::string(cache.lock_path)}) {
            fs::remove_all(path);
        }
    }
    fs::remove_all(outside);
}

Bytes file_content(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return Bytes(std::istreambuf_iterator<char>(file), {});
}

void write_file(const std::string& path, const Bytes& content) {
    std::ofstream file(path, std::ios::binary);
    file.write(reinterpret_cast<const char*>(content.data()), static_cast<std::streamsize>(content.size()));
}

std::size_t open_descriptors() {
    return static_cast<std::size_t>(std::distance(fs::directory_iterator("/proc/self/fd"), {}));
}

/// Runs in a process of its own; its result, at most 255.
int in_another_process(const std::function<int()>& work) {
    const pid_t child = fork();
    if (child == 0) _exit(work());
    int status = 0;
    waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

/// Whether another process sees that this one holds a write lock on the file.
bool is_locked_by_this_process(const char* path) {
    const pid_t holder = getpid();
    return in_another_process([=] {
               struct flock query {};
               query.l_type = F_RDLCK;  // only a write lock stands in its way
               query.l_whence = SEEK_SET;
               const int fd = open(path, O_RDWR);
               if (fd < 0 || fcntl(fd, F_GETLK, &query) != 0) return 2;
               const bool is_whole = query.l_start == 0 && query.l_len == 0;
               return query.l_type == F_WRLCK && query.l_pid == holder && is_whole ? 1 : 0;
           }) == 1;
}

/// A process that holds the lock from the beginning of this object's life to its end, or until it is told to release
/// it.
class LockOfAnotherProcess {
public:
    explicit LockOfAnotherProcess(const Cache& cache) {
        int ready[2], release[2];
        if (pipe2(ready, O_CLOEXEC) != 0 || pipe2(release, O_CLOEXEC) != 0) std::abort();
        child_ = fork();
        if (child_ == 0) {
            close(release[1]);
            int32_t fd = -1;
            char byte = cache.lock_wait(&fd) == 0 ? 'y' : 'n';
            if (::write(ready[1], &byte, 1) != 1) _exit(1);
            _exit(::read(release[0], &byte, 1) == 0 ? 0 : 1);  // the end of the pipe; the exit ends the lock
        }
        char byte = 0;
        is_held_ = ::read(ready[0], &byte, 1) == 1 && byte == 'y';
        for (const int end : {ready[0], ready[1], release[0]}) close(end);
        release_ = release[1];
    }
    ~LockOfAnotherProcess() { release(); }
    LockOfAnotherProcess(const LockOfAnotherProcess&) = delete;
    LockOfAnotherProcess& operator=(const LockOfAnotherProcess&) = delete;

    bool is_held() const { return is_held_; }
    void release() {
        if (!std::exchange(is_held_, false)) return;
        close(release_);
        waitpid(child_, nullptr, 0);
    }

private:
    pid_t child_ = -1;
    int release_ = -1;
    bool is_held_ = false;
};

class MachineCacheBase : public MachineTest {
protected:
    MachineCacheBase() {
        clean_up();
        alarm(hang_limit);
    }
    ~MachineCacheBase() override {
        alarm(0);
        clean_up();
    }
};

class MachineCache : public MachineCacheBase, public testing::WithParamInterface<Cache> {
protected:
    Bytes record(uint8_t fill) const { return Bytes(cache.size, fill); }
    int create(const Bytes& content) const {
        return create_machine_vpd_cache_file(content.data(), static_cast<uint32_t>(content.size()), cache.oem);
    }
    int read_unlocked(Bytes& buffer) const {
        return read_machine_vpd_cache_file(buffer.data(), static_cast<uint32_t>(buffer.size()), cache.oem);
    }
    int read(Bytes& buffer) const { return cache.read(buffer.data(), static_cast<uint32_t>(buffer.size())); }
    /// The path holds exactly this, as a file of its own.
    testing::AssertionResult is_plain_file(const Bytes& content) const {
        if (!fs::is_regular_file(fs::symlink_status(cache.path))) return testing::AssertionFailure() << "no plain file";
        return same_bytes(file_content(cache.path), content);
    }

    const Cache& cache = GetParam();
};

INSTANTIATE_TEST_SUITE_P(Files, MachineCache, testing::Values(standard, oem),
                         [](const auto& instance) { return instance.param.name; });

// ---- the lock

TEST_P(MachineCache, LockIsAFileOfItsOwnThatOnlyItsOwnerMayUse) {
    const mode_t mask = umask(0);
    int32_t fd = untouched;

    EXPECT_EQ(cache.lock_wait(&fd), 0);

    umask(mask);
    EXPECT_GE(fd, 0);
    EXPECT_EQ(fs::status(cache.lock_path).permissions(), fs::perms::owner_all);
    EXPECT_FALSE(fs::exists(cache.path));
    EXPECT_EQ(cache.unlock(fd), 0);
}

TEST_P(MachineCache, LockIsAskedForOverTheWholeFileAndWaitedFor) {
    const WatchedFiles files;
    int32_t fd = untouched;

    EXPECT_EQ(cache.lock_wait(&fd), 0);

    ASSERT_EQ(files.requests().size(), 1U);
    const LockRequest request = files.requests()[0];
    EXPECT_EQ(request.command, F_SETLKW);
    EXPECT_EQ(request.lock.l_type, F_WRLCK);
    EXPECT_EQ(request.lock.l_whence, SEEK_SET);
    EXPECT_EQ(request.lock.l_start, 0);
    EXPECT_EQ(request.lock.l_len, 0);
    EXPECT_EQ(request.lock.l_pid, getpid());
    EXPECT_EQ(fcntl(fd, F_GETFL) & O_ACCMODE, O_RDWR);
    EXPECT_THAT(platform.sleeps(), IsEmpty());
    cache.unlock(fd);
}

TEST_P(MachineCache, LockIsSeenByOtherProcessesUntilItIsReleased) {
    int32_t fd = untouched;
    ASSERT_EQ(cache.lock_wait(&fd), 0);
    EXPECT_TRUE(is_locked_by_this_process(cache.lock_path));

    EXPECT_EQ(cache.unlock(fd), 0);

    EXPECT_FALSE(is_locked_by_this_process(cache.lock_path));
}

TEST_P(MachineCache, LockDoesNotTakeTheOtherFilesLock) {
    const Cache& other = cache.oem == 0 ? oem : standard;
    write_file(other.lock_path, {});
    int32_t fd = untouched;
    ASSERT_EQ(cache.lock_wait(&fd), 0);

    EXPECT_FALSE(is_locked_by_this_process(other.lock_path));

    cache.unlock(fd);
}

TEST_P(MachineCache, LockWaitsUntilAnotherProcessReleasesIt) {
    int ready[2];
    ASSERT_EQ(pipe(ready), 0);
    const pid_t child = fork();
    if (child == 0) {
        int32_t fd = untouched;
        cache.lock_wait(&fd);
        const bool told = ::write(ready[1], "", 1) == 1;
        poll(nullptr, 0, 100);
        write_file(outside, Bytes{1});
        _exit(told ? 0 : 1);  // which ends the lock
    }
    char byte = 0;
    ASSERT_EQ(::read(ready[0], &byte, 1), 1);
    int32_t fd = untouched;

    EXPECT_EQ(cache.lock_wait(&fd), 0);

    EXPECT_TRUE(fs::exists(outside));
    cache.unlock(fd);
    waitpid(child, nullptr, 0);
    close(ready[0]);
    close(ready[1]);
}

TEST_P(MachineCache, LockLeavesTheDescriptorAloneWhenItsFileCannotBeOpened) {
    fs::create_directory(cache.lock_path);
    int32_t fd = untouched;

    EXPECT_EQ(cache.lock_wait(&fd), -1);

    EXPECT_EQ(fd, untouched);
    EXPECT_TRUE(platform.logged_nothing());
}

TEST_P(MachineCache, LockStoresMinusOneAndClosesWhenLockingFails) {
    const std::size_t before = open_descriptors();
    WatchedFiles files;
    files.fail_lock([](const LockRequest&) { return true; });
    int32_t fd = untouched;

    EXPECT_LT(cache.lock_wait(&fd), 0);

    EXPECT_EQ(fd, -1);
    EXPECT_EQ(open_descriptors(), before);
    EXPECT_EQ(files.requests().size(), 1U);
}

TEST_P(MachineCache, LockIsWaitedForHalfAMinuteWhereTheKernelSeesADeadlock) {
    int answers_left = 10'000;
    WatchedFiles files;
    files.fail_lock([&](const LockRequest&) { return --answers_left > 0; }, EDEADLK);
    int32_t fd = untouched;

    EXPECT_LT(cache.lock_wait(&fd), 0);

    EXPECT_EQ(fd, -1);
    EXPECT_EQ(files.requests().size(), 3000U);
    EXPECT_EQ(platform.sleeps(), std::vector<int64_t>(2999, 10'000));
}

TEST_P(MachineCache, LockIsNotInheritedByAProgramThatIsStarted) {
    const WatchedFiles files;
    for (const bool file_is_there : {false, true}) {
        int32_t fd = untouched;
        EXPECT_EQ(fs::exists(cache.lock_path), file_is_there);
        EXPECT_EQ(cache.lock_wait(&fd), 0);

        EXPECT_EQ(fcntl(fd, F_GETFD), FD_CLOEXEC);
        cache.unlock(fd);
    }
    EXPECT_THAT(files.inherited(), IsEmpty());
}

TEST_P(MachineCache, LockNeitherFollowsALinkNorWaitsForAPipe) {
    write_file(outside, Bytes{1, 2, 3});
    int32_t fd = untouched;

    fs::create_symlink(outside, cache.lock_path);
    EXPECT_EQ(cache.lock_wait(&fd), -1);
    EXPECT_EQ(fd, untouched);

    fs::remove(cache.lock_path);
    fs::create_symlink("/tmp/outside_dangling", cache.lock_path);
    EXPECT_EQ(cache.lock_wait(&fd), -1);
    EXPECT_FALSE(fs::exists("/tmp/outside_dangling"));

    fs::remove(cache.lock_path);
    ASSERT_EQ(mkfifo(cache.lock_path, 0600), 0);
    EXPECT_EQ(cache.lock_wait(&fd), -1);
    EXPECT_EQ(fd, untouched);
    EXPECT_EQ(file_content(outside), (Bytes{1, 2, 3}));
}

TEST_P(MachineCache, LockLeavesTheContentOfItsFileAlone) {
    write_file(outside, Bytes{1, 2, 3});
    fs::create_hard_link(outside, cache.lock_path);
    int32_t fd = untouched;

    EXPECT_EQ(cache.lock_wait(&fd), 0);
    EXPECT_EQ(cache.unlock(fd), 0);

    EXPECT_EQ(file_content(outside), (Bytes{1, 2, 3}));
}

// ---- the unlocking, which the log's lock shares

struct Unlocking {
    const char* name;
    int (*unlock)(int);
};

class Unlock : public MachineCacheBase, public testing::WithParamInterface<Unlocking> {
protected:
    Unlock() { standard.lock_wait(&fd); }

    int32_t fd = untouched;
};

INSTANTIATE_TEST_SUITE_P(Functions, Unlock,
                         testing::Values(Unlocking{"Log", vpdd_file_unlock},
                                         Unlocking{"Standard", vpdd_machine_cache_file_unlock},
                                         Unlocking{"Oem", vpdd_machine_oem_cache_file_unlock}),
                         [](const auto& instance) { return instance.param.name; });

TEST_P(Unlock, ReleasesTheWholeFileOnceAndPauses) {
    const WatchedFiles files;

    EXPECT_EQ(GetParam().unlock(fd), 0);

    ASSERT_EQ(files.requests().size(), 1U);
    const LockRequest request = files.requests()[0];
    EXPECT_EQ(request.command, F_SETLK);
    EXPECT_EQ(request.lock.l_type, F_UNLCK);
    EXPECT_EQ(request.lock.l_whence, SEEK_SET);
    EXPECT_EQ(request.lock.l_start, 0);
    EXPECT_EQ(request.lock.l_len, 0);
    EXPECT_EQ(request.lock.l_pid, getpid());
    EXPECT_THAT(platform.sleeps(), ElementsAre(unlock_pause));
    EXPECT_EQ(fcntl(fd, F_GETFD), -1);
}

TEST_P(Unlock, PausesAfterTheReleaseAndBeforeClosing) {
    bool was_locked = true;
    bool was_open = false;
    platform.during_sleep([&](int64_t) {
        was_locked = is_locked_by_this_process(standard.lock_path);
        was_open = fcntl(fd, F_GETFD) >= 0;
    });

    EXPECT_EQ(GetParam().unlock(fd), 0);

    EXPECT_FALSE(was_locked);
    EXPECT_TRUE(was_open);
}

TEST_P(Unlock, TriesAgainUntilItSucceeds) {
    int failures_left = 1;
    WatchedFiles files;
    files.fail_lock([&](const LockRequest&) { return failures_left-- > 0; });

    EXPECT_EQ(GetParam().unlock(fd), 0);

    EXPECT_EQ(files.requests().size(), 2U);
    EXPECT_THAT(platform.sleeps(), ElementsAre(unlock_pause, unlock_pause));
}

TEST_P(Unlock, ClosesAfterThreeAttempts) {
    WatchedFiles files;
    files.fail_lock([](const LockRequest&) { return true; });

    EXPECT_EQ(GetParam().unlock(fd), 0);

    EXPECT_EQ(files.requests().size(), 3U);
    EXPECT_THAT(platform.sleeps(), ElementsAre(unlock_pause, unlock_pause, unlock_pause));
    EXPECT_EQ(fcntl(fd, F_GETFD), -1);
    EXPECT_FALSE(is_locked_by_this_process(standard.lock_path));
}

TEST_P(Unlock, ReturnsTheResultOfClosing) {
    EXPECT_EQ(GetParam().unlock(-1), -1);

    EXPECT_EQ(platform.sleeps().size(), 3U);
    EXPECT_EQ(GetParam().unlock(fd), 0);
}

// ---- reading

TEST_P(MachineCache, FileIsNamedInTheTable) { EXPECT_STREQ(machine_vpd_cache_file[cache.oem], cache.path); }

TEST_P(MachineCache, ReadYieldsWhatWasCreated) {
    Bytes content = record(0);
    for (std::size_t i = 0; i < content.size(); ++i) content[i] = static_cast<uint8_t>(i * 7);
    ASSERT_EQ(create(content), 0);
    Bytes buffer = record(0xEE);
    Bytes unlocked = record(0xEE);

    EXPECT_EQ(read(buffer), 0);
    EXPECT_EQ(read_unlocked(unlocked), 0);

    EXPECT_TRUE(is_plain_file(content));
    EXPECT_TRUE(same_bytes(buffer, content));
    EXPECT_TRUE(same_bytes(unlocked, content));
    EXPECT_TRUE(platform.logged_nothing());
}

TEST_P(MachineCache, ReadLocksThenOpensThenReleases) {
    create(record('a'));
    platform.reset();
    const WatchedFiles files;
    Bytes buffer = record(0);

    EXPECT_EQ(read(buffer), 0);

    EXPECT_THAT(files.events(), ElementsAre(std::string("open ") + cache.lock_path, "lock",
                                            std::string("open ") + cache.path, "unlock"));
    EXPECT_THAT(platform.sleeps(), ElementsAre(unlock_pause));
}

TEST_P(MachineCache, ReadOfANullBufferFailsUnderTheLock) {
    create(record('a'));
    platform.reset();
    const WatchedFiles files;

    EXPECT_EQ(cache.read(nullptr, cache.size), -1);

    EXPECT_THAT(platform.log(), ElementsAre(LogLine{warning, pid_line("%s - input buffer is null\n", reader)}));
    EXPECT_THAT(files.events(), ElementsAre(std::string("open ") + cache.lock_path, "lock", "unlock"));
}

TEST_P(MachineCache, ReadOfAnotherSizeOpensNoFile) {
    create(record('a'));
    const Cache& other = cache.oem == 0 ? oem : standard;
    for (const uint32_t size : {cache.size - 1, cache.size + 1, other.size, 0U}) {
        platform.reset();
        const WatchedFiles files;
        Bytes buffer(2000, 0xEE);

        EXPECT_EQ(read_machine_vpd_cache_file(buffer.data(), size, cache.oem), -1);

        EXPECT_THAT(platform.log(), ElementsAre(LogLine{warning, pid_line("%s - input size = %u, expect size = %u\n",
                                                                          reader, size, cache.size)}));
        EXPECT_THAT(files.opened(), IsEmpty());
        EXPECT_THAT(buffer, Each(0xEE));
    }
}

TEST_P(MachineCache, LockedReadOfAnotherSizeOpensTheLockAlone) {
    create(record('a'));
    const WatchedFiles files;
    Bytes buffer(cache.size - 1);

    EXPECT_EQ(read(buffer), -1);

    EXPECT_THAT(files.events(), ElementsAre(std::string("open ") + cache.lock_path, "lock", "unlock"));
    EXPECT_TRUE(platform.logged(
        warning, pid_line("%s - input size = %u, expect size = %u\n", reader, cache.size - 1, cache.size)));
}

TEST_P(MachineCache, ReadReportsAMissingFile) {
    Bytes buffer = record(0xEE);

    EXPECT_EQ(read(buffer), -1);

    EXPECT_THAT(platform.log(), ElementsAre(LogLine{warning, pid_line("%s - open %s failed\n", reader, cache.path)}));
    EXPECT_THAT(platform.sleeps(), ElementsAre(unlock_pause));
    EXPECT_FALSE(is_locked_by_this_process(cache.lock_path));
    EXPECT_FALSE(fs::exists(cache.path));
}

TEST_P(MachineCache, ReadReportsAShortFile) {
    for (const std::size_t size : {std::size_t{0}, std::size_t{1}, std::size_t{cache.size} - 1}) {
        platform.reset();
        write_file(cache.path, Bytes(size, 'x'));
        const std::size_t descriptors = open_descriptors();
        Bytes buffer = record(0);

        EXPECT_EQ(read(buffer), -1) << size;

        EXPECT_THAT(platform.log(),
                    ElementsAre(LogLine{warning, pid_line("%s - read data (0) in %s failed\n", reader, cache.path)}));
        EXPECT_EQ(open_descriptors(), descriptors);
    }
}

TEST_P(MachineCache, ReadYieldsTheFirstRecordOfALongerFile) {
    Bytes content = record('a');
    content.insert(content.end(), cache.size, 'b');
    for (const std::size_t size : {content.size(), std::size_t{cache.size} + 1}) {
        write_file(cache.path, Bytes(content.begin(), content.begin() + static_cast<std::ptrdiff_t>(size)));
        Bytes buffer = record(0);

        EXPECT_EQ(read(buffer), 0);

        EXPECT_EQ(buffer, record('a'));
    }
}

TEST_P(MachineCache, ReadPrintsAndFailsWithoutLookingAtItsArgumentsWhenItCannotLock) {
    fs::create_directory(cache.lock_path);
    const CaptureStderr errors;

    EXPECT_EQ(cache.read(nullptr, 0), -1);

    EXPECT_EQ(errors.text(), "vpdd_serv_readlog : fail to lock.\n");
    EXPECT_TRUE(platform.logged_nothing());
    EXPECT_THAT(platform.sleeps(), IsEmpty());
}

TEST_P(MachineCache, ReadPrintsAndFailsWhenLockingFails) {
    create(record('a'));
    platform.reset();
    WatchedFiles files;
    files.fail_lock([](const LockRequest& request) { return !request.is_unlock(); });
    const CaptureStderr errors;
    Bytes buffer = record(0xEE);

    EXPECT_EQ(read(buffer), -1);

    EXPECT_EQ(errors.text(), "vpdd_serv_readlog : fail to lock.\n");
    EXPECT_THAT(files.opened(), ElementsAre(cache.lock_path));
    EXPECT_THAT(buffer, Each(0xEE));
    EXPECT_TRUE(platform.logged_nothing());
}

TEST_P(MachineCache, ReadNeitherFollowsALinkNorWaitsForAPipeNorReadsAFolder) {
    write_file(outside, record('o'));
    Bytes buffer = record(0xEE);

    fs::create_symlink(outside, cache.path);
    EXPECT_EQ(read(buffer), -1);

    fs::remove(cache.path);
    ASSERT_EQ(mkfifo(cache.path, 0600), 0);
    EXPECT_EQ(read(buffer), -1);

    fs::remove(cache.path);
    fs::create_directory(cache.path);
    EXPECT_EQ(read(buffer), -1);

    EXPECT_EQ(platform.times_logged(warning, pid_line("%s - open %s failed\n", reader, cache.path)), 3U);
    EXPECT_THAT(buffer, Each(0xEE));
}

TEST_P(MachineCache, ReadLeavesNoDescriptorOpen) {
    create(record('a'));
    const std::size_t before = open_descriptors();
    Bytes buffer = record(0);

    EXPECT_EQ(read(buffer), 0);
    EXPECT_EQ(cache.read(nullptr, 0), -1);

    EXPECT_EQ(open_descriptors(), before);
}

TEST_P(MachineCache, ReadOpensNothingThatAStartedProgramInherits) {
    create(record('a'));
    const WatchedFiles files;
    Bytes buffer = record(0);

    EXPECT_EQ(read(buffer), 0);

    EXPECT_THAT(files.opened(), ElementsAre(cache.lock_path, cache.path));
    EXPECT_THAT(files.inherited(), IsEmpty());
}

// ---- creating

TEST_P(MachineCache, CreateOfAnotherSizeWritesNothing) {
    create(record('a'));
    const Cache& other = cache.oem == 0 ? oem : standard;
    const Bytes content(2000, 'b');
    for (const uint32_t size : {cache.size - 1, cache.size + 1, other.size, 0U}) {
        platform.reset();
        const WatchedFiles files;

        EXPECT_EQ(create_machine_vpd_cache_file(content.data(), size, cache.oem), -1);

        EXPECT_THAT(platform.log(), ElementsAre(LogLine{warning, pid_line("%s - input size = %u, expect size = %u\n",
                                                                          writer, size, cache.size)}));
        EXPECT_THAT(files.opened(), IsEmpty());
        EXPECT_TRUE(is_plain_file(record('a')));
    }
}

TEST_P(MachineCache, CreateOfANullBufferWritesNothing) {
    create(record('a'));

    EXPECT_EQ(create_machine_vpd_cache_file(nullptr, cache.size, cache.oem), -1);

    EXPECT_TRUE(is_plain_file(record('a')));
}

TEST_P(MachineCache, CreateReplacesAnOrdinaryFile) {
    write_file(cache.path, Bytes(5000, 'x'));
    const std::size_t before = open_descriptors();

    EXPECT_EQ(create(record('a')), 0);
    EXPECT_TRUE(is_plain_file(record('a')));
    EXPECT_EQ(create(record('b')), 0);
    EXPECT_TRUE(is_plain_file(record('b')));

    EXPECT_FALSE(fs::exists(cache.new_path()));
    EXPECT_EQ(open_descriptors(), before);
    EXPECT_FALSE(is_locked_by_this_process(cache.lock_path));
}

TEST_P(MachineCache, CreateMakesAFileThatTheUmaskAloneRestricts) {
    constexpr std::pair<mode_t, unsigned> modes[] = {{0, 0666}, {022, 0644}, {077, 0600}};
    for (const auto& [mask, expected] : modes) {
        const mode_t former = umask(mask);

        EXPECT_EQ(create(record('a')), 0);

        umask(former);
        EXPECT_EQ(static_cast<unsigned>(fs::status(cache.path).permissions()), expected) << mask;
    }
}

TEST_P(MachineCache, CreateLeavesTheOtherFileAlone) {
    const Cache& other = cache.oem == 0 ? oem : standard;
    write_file(other.path, Bytes{1, 2, 3});

    EXPECT_EQ(create(record('a')), 0);

    EXPECT_EQ(file_content(other.path), (Bytes{1, 2, 3}));
}

TEST_P(MachineCache, CreateReportsAFolderInItsPlace) {
    fs::create_directory(cache.path);

    EXPECT_EQ(create(record('a')), -1);

    EXPECT_THAT(platform.log(), ElementsAre(LogLine{warning, pid_line("%s - open %s failed\n", writer, cache.path)}));
    EXPECT_TRUE(fs::is_directory(cache.path));
    EXPECT_TRUE(fs::is_empty(cache.path));
    EXPECT_FALSE(fs::exists(cache.new_path()));
}

TEST_P(MachineCache, CreateReportsThatItMayNotWrite) {
    create(record('a'));
    platform.reset();
    WatchedFiles files;
    files.fail_open([](const std::string& path) { return path.find("lock") == std::string::npos; });

    EXPECT_EQ(create(record('b')), -1);

    EXPECT_THAT(platform.log(), ElementsAre(LogLine{warning, pid_line("%s - open %s failed\n", writer, cache.path)}));
    EXPECT_TRUE(is_plain_file(record('a')));
    EXPECT_THAT(files.events(), Contains("unlock"));
}

TEST_P(MachineCache, CreateKeepsTheOldRecordWhenTheNewOneDoesNotFit) {
    create(record('a'));
    rlimit old_limit{};
    getrlimit(RLIMIT_FSIZE, &old_limit);
    const auto old_handler = std::signal(SIGXFSZ, SIG_IGN);
    const rlimit limit{100, old_limit.rlim_max};
    setrlimit(RLIMIT_FSIZE, &limit);

    const int result = create(record('b'));

    setrlimit(RLIMIT_FSIZE, &old_limit);
    std::signal(SIGXFSZ, old_handler);
    EXPECT_EQ(result, -1);
    EXPECT_TRUE(is_plain_file(record('a')));
    EXPECT_FALSE(fs::exists(cache.new_path()));
}

TEST_P(MachineCache, CreateKeepsTheOldRecordWhenTheNewOneCannotBeClosed) {
    create(record('a'));
    platform.reset();
    WatchedFiles files;
    files.fail_close([&](const std::string& path) { return path == cache.new_path(); });

    EXPECT_EQ(create(record('b')), -1);

    EXPECT_THAT(platform.log(), ElementsAre(LogLine{warning, pid_line("%s - open %s failed\n", writer, cache.path)}));
    EXPECT_TRUE(is_plain_file(record('a')));
    EXPECT_FALSE(fs::exists(cache.new_path()));
}

TEST_P(MachineCache, CreateOpensNothingThatAStartedProgramInherits) {
    const WatchedFiles files;

    EXPECT_EQ(create(record('a')), 0);

    EXPECT_THAT(files.opened(), Contains(cache.new_path()));
    EXPECT_THAT(files.inherited(), IsEmpty());
}

TEST_P(MachineCache, CreateWritesNothingThroughALinkInItsPlace) {
    for (const bool is_hard : {false, true}) {
        clean_up();
        write_file(outside, Bytes{1, 2, 3});
        is_hard ? fs::create_hard_link(outside, cache.path) : fs::create_symlink(outside, cache.path);

        EXPECT_EQ(create(record('a')), 0) << is_hard;

        EXPECT_EQ(file_content(outside), (Bytes{1, 2, 3}));
        EXPECT_TRUE(is_plain_file(record('a')));
        EXPECT_EQ(fs::hard_link_count(outside), 1U);
    }
}

TEST_P(MachineCache, CreateDoesNotFollowALinkToNowhere) {
    fs::create_symlink(outside, cache.path);

    EXPECT_EQ(create(record('a')), 0);

    EXPECT_FALSE(fs::exists(outside));
    EXPECT_TRUE(is_plain_file(record('a')));
}

TEST_P(MachineCache, CreateReplacesAPipeInItsPlace) {
    ASSERT_EQ(mkfifo(cache.path, 0600), 0);

    EXPECT_EQ(create(record('a')), 0);

    EXPECT_TRUE(is_plain_file(record('a')));
}

TEST_P(MachineCache, CreateIsNotMisledByWhatLiesWhereTheNewFileIsWritten) {
    const std::pair<const char*, std::function<void()>> plants[] = {
        {"left by a killed process", [&] { write_file(cache.new_path(), Bytes(5000, 'x')); }},
        {"symbolic link", [&] { fs::create_symlink(outside, cache.new_path()); }},
        {"link to nowhere", [&] { fs::create_symlink("/tmp/outside_dangling", cache.new_path()); }},
        {"hard link", [&] { fs::create_hard_link(outside, cache.new_path()); }},
        {"pipe", [&] { mkfifo(cache.new_path().c_str(), 0600); }},
    };
    for (const auto& [name, plant] : plants) {
        SCOPED_TRACE(name);
        clean_up();
        write_file(outside, Bytes{1, 2, 3});
        plant();

        EXPECT_EQ(create(record('a')), 0);

        EXPECT_EQ(file_content(outside), (Bytes{1, 2, 3}));
        EXPECT_FALSE(fs::exists("/tmp/outside_dangling"));
        EXPECT_TRUE(is_plain_file(record('a')));
        EXPECT_FALSE(fs::exists(cache.new_path()));
    }
}

TEST_P(MachineCache, CreateOpensNoFileThatAppearsAtTheLastMoment) {
    create(record('a'));
    for (const bool is_hard : {false, true}) {
        fs::remove_all(cache.new_path());
        write_file(outside, Bytes{1, 2, 3});
        WatchedFiles files;
        files.fail_open([&](const std::string& path) {
            if (path != cache.new_path()) return false;
            is_hard ? fs::create_hard_link(outside, cache.new_path()) : fs::create_symlink(outside, cache.new_path());
            return false;
        });

        EXPECT_EQ(create(record('b')), -1) << is_hard;

        EXPECT_EQ(file_content(outside), (Bytes{1, 2, 3}));
        EXPECT_TRUE(is_plain_file(record('a')));
    }
}

TEST_P(MachineCache, CreateKeepsTheOldRecordWhenAFolderLiesWhereTheNewFileIsWritten) {
    create(record('a'));
    platform.reset();
    fs::create_directory(cache.new_path());

    EXPECT_EQ(create(record('b')), -1);

    EXPECT_TRUE(platform.logged(warning, pid_line("%s - open %s failed\n", writer, cache.path)));
    EXPECT_TRUE(is_plain_file(record('a')));
}

TEST_P(MachineCache, CreateNeedsNoLock) {
    write_file(outside, Bytes{1, 2, 3});
    const std::function<void()> plants[] = {
        [&] { fs::create_directory(cache.lock_path); },
        [&] { mkfifo(cache.lock_path, 0600); },
        [&] { fs::create_symlink(outside, cache.lock_path); },
    };
    for (const auto& plant : plants) {
        fs::remove(cache.lock_path);
        fs::remove(cache.path);
        plant();

        EXPECT_EQ(create(record('a')), 0);

        EXPECT_TRUE(is_plain_file(record('a')));
        EXPECT_EQ(file_content(outside), (Bytes{1, 2, 3}));
    }
    EXPECT_TRUE(platform.logged_nothing());
}

TEST_P(MachineCache, CreateHoldsTheLockFromBeforeTheNewFileIsOpenedUntilItHasItsName) {
    write_file(cache.lock_path, {});
    const WatchedFiles files;

    EXPECT_EQ(create(record('a')), 0);

    EXPECT_THAT(files.events(),
                ElementsAre(std::string("open ") + cache.lock_path, "lock", std::string("open ") + cache.new_path(),
                            std::string("rename ") + cache.path, "unlock"));
    ASSERT_EQ(files.requests().size(), 2U);
    EXPECT_EQ(files.requests()[0].lock.l_type, F_WRLCK);
    EXPECT_THAT(platform.sleeps(), ElementsAre(unlock_pause));
}

TEST_P(MachineCache, CreateWaitsForALockThatIsHeldOneSecondAndWritesAllTheSame) {
    const LockOfAnotherProcess other(cache);
    ASSERT_TRUE(other.is_held());
    const std::size_t descriptors = open_descriptors();

    EXPECT_EQ(create(record('a')), 0);

    EXPECT_THAT(platform.sleeps(), ElementsAreArray(std::vector<int64_t>(10, lock_pause)));
    EXPECT_TRUE(is_plain_file(record('a')));
    EXPECT_EQ(open_descriptors(), descriptors);
    EXPECT_TRUE(platform.logged_nothing());
}

TEST_P(MachineCache, CreateTakesALockThatIsReleasedWhileItWaits) {
    LockOfAnotherProcess other(cache);
    ASSERT_TRUE(other.is_held());
    const WatchedFiles files;
    platform.during_sleep([&](int64_t) {
        if (platform.sleeps().size() == 10) other.release();
    });

    EXPECT_EQ(create(record('a')), 0);

    // Eleven attempts with ten pauses between them, then the release with its own.
    std::vector<int64_t> sleeps(10, lock_pause);
    sleeps.push_back(unlock_pause);
    EXPECT_THAT(platform.sleeps(), ElementsAreArray(sleeps));
    EXPECT_EQ(files.requests().size(), 12U);
    EXPECT_EQ(files.events().back(), "unlock");
    EXPECT_TRUE(is_plain_file(record('a')));
}

TEST_P(MachineCache, CreateWaitsOnlyForALockThatIsHeld) {
    constexpr struct {
        int error;
        std::size_t requests;
    } answers[] = {{EAGAIN, 11}, {EACCES, 11}, {ENOLCK, 1}, {EINTR, 1}, {EDEADLK, 1}};
    for (const auto& answer : answers) {
        SCOPED_TRACE(answer.error);
        clean_up();
        platform.reset();
        WatchedFiles files;
        files.fail_lock([](const LockRequest&) { return true; }, answer.error);

        EXPECT_EQ(create(record('a')), 0);

        EXPECT_EQ(files.requests().size(), answer.requests);
        EXPECT_EQ(platform.sleeps(), std::vector<int64_t>(answer.requests - 1, lock_pause));
        EXPECT_TRUE(is_plain_file(record('a')));
    }
}

// ---- the flag

TEST(MachineCacheFlag, OfAnyOtherValueThanZeroSelectsTheOemFile) {
    for (const uint32_t flag : {2U, 0x100U, 0x80000000U, 0xFFFFFFFFU}) {
        SCOPED_TRACE(flag);
        clean_up();
        const Bytes content(oem.size, 'a');
        Bytes buffer(oem.size);

        EXPECT_EQ(create_machine_vpd_cache_file(content.data(), oem.size, flag), 0);
        EXPECT_TRUE(same_bytes(file_content(oem.path), content));
        EXPECT_TRUE(fs::exists(oem.lock_path));
        EXPECT_EQ(read_machine_vpd_cache_file(buffer.data(), oem.size, flag), 0);
        EXPECT_TRUE(same_bytes(buffer, content));

        EXPECT_EQ(create_machine_vpd_cache_file(content.data(), standard.size, flag), -1);
        EXPECT_EQ(read_machine_vpd_cache_file(buffer.data(), standard.size, flag), -1);
        EXPECT_FALSE(fs::exists(standard.path));
        EXPECT_FALSE(fs::exists(standard.lock_path));
    }
    clean_up();
}

// ---- readers against a writer

enum Outcome : int { whole = 0, torn = 1, unreadable = 2 };

/// The worst of many reads while the file changes between 'a' and 'b'.
template <class Read>
int worst_of(int reads, uint32_t size, Read read) {
    Bytes buffer(size);
    for (int i = 0; i < reads; ++i) {
        std::fill(buffer.begin(), buffer.end(), uint8_t{0});
        if (read(buffer.data(), size) != 0) return unreadable;
        const uint8_t first = buffer.front();
        if (first != 'a' && first != 'b') return torn;
        if (std::count(buffer.begin(), buffer.end(), first) != static_cast<std::ptrdiff_t>(size)) return torn;
    }
    return whole;
}

TEST_P(MachineCache, ReadersInOtherProcessesNeverFindAPartOfARecord) {
    constexpr int readers = 4;
    constexpr int reads_each = 2500;
    create(record('a'));
    // Half of them without the lock: what keeps the record whole must not depend on it.
    std::vector<pid_t> children;
    for (int i = 0; i < readers; ++i) {
        const pid_t child = fork();
        if (child == 0) {
            const auto unlocked = [&](uint8_t* buffer, uint32_t size) {
                return read_machine_vpd_cache_file(buffer, size, cache.oem);
            };
            _exit(i % 2 == 0 ? worst_of(reads_each, cache.size, cache.read)
                             : worst_of(reads_each, cache.size, unlocked));
        }
        children.push_back(child);
    }

    uint8_t fill = 'a';
    std::vector<int> outcomes;
    while (!children.empty()) {
        fill = fill == 'a' ? 'b' : 'a';
        EXPECT_EQ(create(record(fill)), 0);
        int status = 0;
        const pid_t ended = waitpid(-1, &status, WNOHANG);
        if (ended <= 0) continue;
        std::erase(children, ended);
        outcomes.push_back(WIFEXITED(status) ? WEXITSTATUS(status) : -1);
    }

    EXPECT_THAT(outcomes, ElementsAre(whole, whole, whole, whole));
    EXPECT_TRUE(platform.logged_nothing());
}

TEST_P(MachineCache, ReadersInTheWritersProcessNeverFindAPartOfARecord) {
    constexpr int reads_each = 5000;
    create(record('a'));
    std::atomic<bool> done = false;
    std::thread writing([&] {
        for (uint8_t fill = 'b'; !done; fill = fill == 'a' ? 'b' : 'a') EXPECT_EQ(create(record(fill)), 0);
    });

    auto one = std::async(std::launch::async, [&] { return worst_of(reads_each, cache.size, cache.read); });
    auto other = std::async(std::launch::async, [&] { return worst_of(reads_each, cache.size, cache.read); });
    const std::pair outcomes(one.get(), other.get());
    done = true;
    writing.join();

    EXPECT_EQ(outcomes, std::pair(int{whole}, int{whole}));
}

TEST_P(MachineCache, WritersInOneProcessDoNotDisturbEachOther) {
    constexpr int writes_each = 1000;
    create(record('a'));
    const auto write = [&](uint8_t fill) {
        int failures = 0;
        for (int i = 0; i < writes_each; ++i) failures += create(record(fill)) == 0 ? 0 : 1;
        return failures;
    };
    const auto unlocked = [&](uint8_t* buffer, uint32_t size) {
        return read_machine_vpd_cache_file(buffer, size, cache.oem);
    };

    auto one = std::async(std::launch::async, write, uint8_t{'a'});
    auto other = std::async(std::launch::async, write, uint8_t{'b'});
    const int outcome = worst_of(writes_each, cache.size, unlocked);

    EXPECT_EQ(one.get(), 0);
    EXPECT_EQ(other.get(), 0);
    EXPECT_EQ(outcome, whole);
    EXPECT_TRUE(platform.logged_nothing());
}

TEST_P(MachineCache, WritersInDifferentProcessesDoNotDisturbEachOther) {
    constexpr int writes_each = 1000;
    create(record('a'));
    std::vector<pid_t> children;
    for (const uint8_t fill : {'a', 'b'}) {
        const pid_t child = fork();
        if (child == 0) {
            for (int i = 0; i < writes_each; ++i) {
                if (create(record(fill)) != 0) _exit(unreadable);
            }
            _exit(whole);
        }
        children.push_back(child);
    }
    const auto unlocked = [&](uint8_t* buffer, uint32_t size) {
        return read_machine_vpd_cache_file(buffer, size, cache.oem);
    };

    const int outcome = worst_of(writes_each, cache.size, unlocked);

    for (const pid_t child : children) {
        int status = -1;
        waitpid(child, &status, 0);
        EXPECT_EQ(status, 0);
    }
    EXPECT_EQ(outcome, whole);
}

// ---- building

bool is_size_request(const IpmiCall& call) { return call.is(0x0A, 0x10); }
bool is_posid_request(const IpmiCall& call) { return call.is(0x3A, 0x0B); }

class MachineCacheBuild : public MachineCacheBase {
protected:
    MachineCacheBuild() {
        set_system_vpd(platform);
        platform.fru(0, seven_pairs());
        set_posid(platform, 0xFF, 0xEE);
    }

    std::vector<std::string> failures() const {
        std::vector<std::string> texts;
        for (const TraceLine& line : platform.trace()) {
            if (line.level == failure) texts.push_back(line.text);
        }
        return texts;
    }
    std::size_t rebuilds() const {
        const auto calls = platform.field_read.calls();
        return static_cast<std::size_t>(
            std::count_if(calls.begin(), calls.end(), [](const FieldCall& call) { return call.id == 6; }));
    }
    std::size_t long_sleeps() const {
        const auto sleeps = platform.sleeps();
        return static_cast<std::size_t>(std::count(sleeps.begin(), sleeps.end(), one_second));
    }
    OemMachineRecord oem_file() const {
        OemMachineRecord record{};
        const Bytes content = file_content(oem.path);
        EXPECT_EQ(content.size(), sizeof record);
        std::memcpy(&record, content.data(), std::min(content.size(), sizeof record));
        return record;
    }
};

TEST_F(MachineCacheBuild, WritesBothRecords) {
    EXPECT_EQ(init_machine_vpd_cache_file(), 0);

    EXPECT_TRUE(same_bytes(file_content(standard.path), golden_bytes("standard_machine.txt")));
    EXPECT_EQ(oem_file().pair_6.value, std::string("VALUE-6"));
    EXPECT_THAT(failures(), IsEmpty());
    EXPECT_TRUE(platform.logged_nothing());
}

TEST_F(MachineCacheBuild, WritesTheOemRecordAsLaidOut) {
    make_oem(platform);
    set_version(platform, 0x0310);
    set_format(platform, 0x41);

    EXPECT_EQ(init_machine_vpd_cache_file(), 0);

    EXPECT_TRUE(same_bytes(file_content(standard.path), golden_bytes("oem_machine.txt")));
    EXPECT_TRUE(same_bytes(file_content(oem.path), golden_bytes("oem_record.txt")));
}

TEST_F(MachineCacheBuild, WritesTheStandardFileBeforeItReadsTheFru) {
    bool first_request = true;
    platform.ipmi.during([&](const IpmiCall&) {
        if (!std::exchange(first_request, false)) return;
        EXPECT_EQ(file_content(standard.path).size(), 1106U);
        EXPECT_FALSE(fs::exists(oem.path));
    });

    EXPECT_EQ(init_machine_vpd_cache_file(), 0);

    EXPECT_FALSE(first_request);
    EXPECT_TRUE(fs::exists(oem.path));
}

TEST_F(MachineCacheBuild, ReadsFieldsThenFruThenPosId) {
    init_machine_vpd_cache_file();

    const auto journal = platform.journal();
    std::vector<std::string> requests;
    std::copy_if(journal.begin(), journal.end(), std::back_inserter(requests),
                 [](const std::string& line) { return line.starts_with("ipmi"); });
    EXPECT_THAT(requests, ElementsAre("ipmi 06/01", "ipmi 0A/10", "ipmi 0A/11", "ipmi 0A/11", "ipmi 3A/0B"));
    EXPECT_LT(std::find(journal.begin(), journal.end(), "field 48"),
              std::find(journal.begin(), journal.end(), "ipmi 06/01"));
}

TEST_F(MachineCacheBuild, EndsWithTheStandardFileThatCannotBeWritten) {
    fs::create_directory(standard.path);
    write_file(oem.path, Bytes{1});

    EXPECT_EQ(init_machine_vpd_cache_file(), -1);

    EXPECT_THAT(failures(), ElementsAre("[init_machine_vpd_cache_file]:CREATE MACHINE VPD CACHE FILE FAIL,RET[-1]"));
    EXPECT_THAT(platform.requests(), IsEmpty());
    EXPECT_EQ(file_content(oem.path), Bytes{1});
}

TEST_F(MachineCacheBuild, LeavesAFreshStandardFileBesideTheOlderOemFileWhenTheFruFails) {
    write_file(standard.path, Bytes{1});
    write_file(oem.path, Bytes{1});
    platform.remove_fru(0);

    EXPECT_EQ(init_machine_vpd_cache_file(), -9);

    EXPECT_THAT(failures(), ElementsAre("[init_machine_vpd_cache_file]:GET MACHINE FIELD FAIL,RET[-9]"));
    EXPECT_TRUE(same_bytes(file_content(standard.path), golden_bytes("standard_machine.txt")));
    EXPECT_EQ(file_content(oem.path), Bytes{1});
    EXPECT_FALSE(std::ranges::any_of(platform.requests(), is_posid_request));
}

TEST_F(MachineCacheBuild, WritesTheOemFileWithoutAManufacturerWhenThePosIdFails) {
    platform.ipmi.fail_when(is_posid_request);
    const CaptureStdout output;

    EXPECT_EQ(init_machine_vpd_cache_file(), 0);

    EXPECT_THAT(failures(), ElementsAre("[init_machine_vpd_cache_file]:READ POSID EXT FAIL,RET[0]"));
    EXPECT_TRUE(holds(oem_file().product_manufacturer, ""));
    EXPECT_TRUE(holds(oem_file().pair_0.label, "LABEL-0"));
    EXPECT_TRUE(std::regex_match(output.text(),
                                 std::regex("--> leave GetMachineFields\nvpdd:init_machine_vpd_cache_file, line:\\d+ - "
                                            "read_POSID_ext, productmfg=, ret=0\n")))
        << output.text();
}

TEST_F(MachineCacheBuild, NamesTheManufacturerByThePosId) {
    constexpr struct {
        uint8_t first, second;
        const char* manufacturer;
        int classified;
    } machines[] = {{0x00, 0x00, "zelt", 1}, {0xFF, 0xEE, "oem", 2}, {0x00, 0x01, "zelt", 3}};
    for (const auto& machine : machines) {
        set_posid(platform, machine.first, machine.second);
        const CaptureStdout output;

        EXPECT_EQ(init_machine_vpd_cache_file(), 0);

        EXPECT_TRUE(holds(oem_file().product_manufacturer, machine.manufacturer));
        EXPECT_TRUE(std::regex_search(
            output.text(), std::regex(formatted("vpdd:%s, line:\\d+ - read_POSID_ext, productmfg=%s, ret=%d\n", builder,
                                                machine.manufacturer, machine.classified))))
            << output.text();
    }
    EXPECT_THAT(failures(), IsEmpty());
}

TEST_F(MachineCacheBuild, EndsWithTheOemFileThatCannotBeWritten) {
    fs::create_directory(oem.path);

    EXPECT_EQ(init_machine_vpd_cache_file(), -1);

    EXPECT_THAT(failures(),
                ElementsAre("[init_machine_vpd_cache_file]:CREATE MACHINE VPD OEM CACHE FILE FAIL,RET[-1]"));
    EXPECT_TRUE(same_bytes(file_content(standard.path), golden_bytes("standard_machine.txt")));
}

TEST_F(MachineCacheBuild, WritesAnOemFileWithoutPairsWhenThereIsNoProductArea) {
    platform.fru(0, vpdd::images::FruImage().padded_to(64).build());

    EXPECT_EQ(init_machine_vpd_cache_file(), 0);

    EXPECT_TRUE(holds(oem_file().pair_0.label, ""));
    EXPECT_TRUE(holds(oem_file().uuid, "00112233445566778899AABBCCDDEEFF"));
}

// ---- rebuilding

TEST_F(MachineCacheBuild, UpdateSleepsASecondAfterItsFirstSuccessToo) {
    EXPECT_EQ(update_machine_vpd_cache_file(), 0);

    EXPECT_EQ(rebuilds(), 1U);
    EXPECT_EQ(long_sleeps(), 1U);
    EXPECT_EQ(platform.journal().back(), "sleep 1000000");
    EXPECT_TRUE(fs::exists(oem.path));
}

TEST_F(MachineCacheBuild, UpdateStopsAtItsFirstSuccess) {
    // Each rule answers one call.
    for (int failing = 0; failing < 2; ++failing) platform.ipmi.nth_when(1, is_size_request, ipmi_completion(0xCB));

    EXPECT_EQ(update_machine_vpd_cache_file(), 0);

    EXPECT_EQ(rebuilds(), 3U);
    EXPECT_EQ(long_sleeps(), 3U);
}

TEST_F(MachineCacheBuild, UpdateEndsWithTheResultOfItsThirtiethAttempt) {
    platform.remove_fru(0);

    EXPECT_EQ(update_machine_vpd_cache_file(), -9);

    EXPECT_EQ(rebuilds(), 30U);
    EXPECT_EQ(long_sleeps(), 30U);
    EXPECT_EQ(platform.journal().back(), "sleep 1000000");
}

TEST_F(MachineCacheBuild, UpdateReturnsTheLastOfDifferentFailures) {
    platform.remove_fru(0);
    platform.during_sleep([&](int64_t microseconds) {
        if (microseconds == one_second && long_sleeps() == 29) {
            fs::remove(standard.path);
            fs::create_directory(standard.path);
        }
    });

    EXPECT_EQ(update_machine_vpd_cache_file(), -1);

    EXPECT_EQ(rebuilds(), 30U);
}

TEST_F(MachineCacheBuild, UpdateMaySucceedAtItsThirtiethAttempt) {
    platform.remove_fru(0);
    platform.during_sleep([&](int64_t microseconds) {
        if (microseconds == one_second && long_sleeps() == 29) platform.fru(0, seven_pairs());
    });

    EXPECT_EQ(update_machine_vpd_cache_file(), 0);

    EXPECT_EQ(rebuilds(), 30U);
    EXPECT_EQ(long_sleeps(), 30U);
}

// ---- the notification

int cancellation_state() {
    int state = 0;
    set_cancellation(PTHREAD_CANCEL_DISABLE, &state);
    int ignored = 0;
    set_cancellation(state, &ignored);
    return state;
}

bool is_free(pthread_mutex_t& mutex) {
    if (pthread_mutex_trylock(&mutex) != 0) return false;
    pthread_mutex_unlock(&mutex);
    return true;
}

TEST_F(MachineCacheBuild, NotificationPrintsLogsAndRebuilds) {
    const CaptureStdout output;

    vpd_sysvpd_changed_notify_callback();

    EXPECT_TRUE(output.text().starts_with("--> vpdd: sysvpd changed")) << output.text();
    EXPECT_EQ(platform.journal().front(),
              formatted("log 14 pid=%d, vpd_sysvpd_changed_notify_callback - info: sysvpd changed\n", getpid()));
    EXPECT_THAT(platform.log(), testing::SizeIs(1));
    EXPECT_TRUE(same_bytes(file_content(standard.path), golden_bytes("standard_machine.txt")));
    EXPECT_TRUE(fs::exists(oem.path));
    EXPECT_EQ(long_sleeps(), 1U);
}

TEST_F(MachineCacheBuild, NotificationReadsTheHostMacsAgain) {
    init_machine_vpd_cache_file();
    ASSERT_EQ(isHostMacCache, 1);
    platform.field(19, Bytes(8, 0x11));
    int flag_at_first_field = -1;
    platform.field_read.during([&](const FieldCall& call) {
        if (call.id == 6) flag_at_first_field = isHostMacCache;
    });

    vpd_sysvpd_changed_notify_callback();

    EXPECT_EQ(flag_at_first_field, 0);
    EXPECT_EQ(isHostMacCache, 1);
    EXPECT_STREQ(reinterpret_cast<const char*>(file_content(standard.path).data()) + 279, "11:11:11:11:11:11");
}

TEST_F(MachineCacheBuild, NotificationMakesUpToThirtyAttempts) {
    platform.remove_fru(0);

    vpd_sysvpd_changed_notify_callback();

    EXPECT_EQ(rebuilds(), 30U);
}

TEST_F(MachineCacheBuild, NotificationHoldsCancellationOffFromTheFirstFieldToTheLastSleep) {
    std::vector<int> states;
    platform.field_read.during([&](const FieldCall&) { states.push_back(cancellation_state()); });
    platform.ipmi.during([&](const IpmiCall&) { states.push_back(cancellation_state()); });
    platform.during_sleep([&](int64_t) { states.push_back(cancellation_state()); });

    vpd_sysvpd_changed_notify_callback();

    EXPECT_GT(states.size(), 40U);
    EXPECT_THAT(states, Each(int{PTHREAD_CANCEL_DISABLE}));
    EXPECT_EQ(cancellation_state(), PTHREAD_CANCEL_ENABLE);
}

TEST_F(MachineCacheBuild, NotificationEnablesCancellationWhateverItWas) {
    int former = 0;
    pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &former);

    vpd_sysvpd_changed_notify_callback();

    EXPECT_EQ(cancellation_state(), PTHREAD_CANCEL_ENABLE);
    pthread_setcancelstate(former, nullptr);
}

TEST_F(MachineCacheBuild, NotificationLogsWhileItCanBeCancelledAndClearsTheFlagWhenItCannot) {
    isHostMacCache = 1;
    std::vector<std::string> seen;
    const auto see = [&](const char* what) {
        const char* const state = cancellation_state() == PTHREAD_CANCEL_ENABLE ? "enabled" : "disabled";
        seen.push_back(formatted("%s: %s, flag %d", what, state, isHostMacCache));
    };
    platform.during_log([&](const LogLine&) { see("log"); });
    before_setting_cancellation = [&](int state) {
        see(state == PTHREAD_CANCEL_ENABLE ? "before enabling" : "before disabling");
    };
    platform.field_read.during([&](const FieldCall& call) {
        if (call.id == 6) see("first field");
    });

    vpd_sysvpd_changed_notify_callback();

    before_setting_cancellation = nullptr;
    EXPECT_THAT(seen, ElementsAre("log: enabled, flag 1", "before disabling: enabled, flag 1",
                                  "first field: disabled, flag 0", "before enabling: disabled, flag 1"));
}

/// A thread that is notified, and whether it came back from it.
struct NotifiedThread {
    pthread_t thread{};
    std::atomic<bool> came_back = false;

    static void* run(void* self) {
        vpd_sysvpd_changed_notify_callback();
        static_cast<NotifiedThread*>(self)->came_back = true;
        return nullptr;
    }
    void start() { pthread_create(&thread, nullptr, run, this); }
    void* join() const {
        void* result = nullptr;
        pthread_join(thread, &result);
        return result;
    }
};

class CancelledNotification : public MachineCacheBuild {
protected:
    /// Cancels the notified thread from inside its own rebuild.
    void cancel_in_first_field() {
        platform.field_read.during([this](const FieldCall& call) {
            if (call.id == 6 && !std::exchange(is_cancelled, true)) pthread_cancel(pthread_self());
        });
    }

    bool is_cancelled = false;
    NotifiedThread notified;
};

TEST_F(CancelledNotification, FinishesTheRebuildAndEndsTheThread) {
    cancel_in_first_field();

    notified.start();

    EXPECT_EQ(notified.join(), PTHREAD_CANCELED);
    EXPECT_FALSE(notified.came_back);
    EXPECT_TRUE(is_cancelled);
    EXPECT_TRUE(same_bytes(file_content(standard.path), golden_bytes("standard_machine.txt")));
    EXPECT_EQ(file_content(oem.path).size(), 1342U);
    EXPECT_EQ(long_sleeps(), 1U);
}

TEST_F(CancelledNotification, LeavesNothingLocked) {
    cancel_in_first_field();

    notified.start();
    ASSERT_EQ(notified.join(), PTHREAD_CANCELED);

    EXPECT_TRUE(is_free(sysvpd_access_mutex));
    EXPECT_FALSE(is_locked_by_this_process(standard.lock_path));
    EXPECT_FALSE(is_locked_by_this_process(oem.lock_path));
    EXPECT_EQ(init_machine_vpd_cache_file(), 0);
    Bytes buffer(1106);
    EXPECT_EQ(vpdd_machine_vpd_read(buffer.data(), 1106), 0);
}

TEST_F(CancelledNotification, MakesAllItsAttempts) {
    platform.remove_fru(0);
    cancel_in_first_field();

    notified.start();

    EXPECT_EQ(notified.join(), PTHREAD_CANCELED);
    EXPECT_EQ(rebuilds(), 30U);
}

TEST_F(CancelledNotification, OnlyEndsAThreadThatIsCancelled) {
    notified.start();

    EXPECT_EQ(notified.join(), nullptr);
    EXPECT_TRUE(notified.came_back);
}

TEST_F(CancelledNotification, DoesNotRebuildWhenTheLogHonoursAnEarlierRequest) {
    isHostMacCache = 1;
    platform.during_log([](const LogLine&) {
        pthread_cancel(pthread_self());
        pthread_testcancel();  // syslog() is a cancellation point
    });

    notified.start();

    EXPECT_EQ(notified.join(), PTHREAD_CANCELED);
    EXPECT_EQ(rebuilds(), 0U);
    EXPECT_EQ(isHostMacCache, 1);
    EXPECT_FALSE(fs::exists(standard.path));
}

TEST_F(CancelledNotification, HonoursARequestFromAnotherThread) {
    std::promise<void> rebuilding;
    std::promise<void> requested;
    bool first = true;
    platform.field_read.during([&](const FieldCall&) {
        if (!std::exchange(first, false)) return;
        rebuilding.set_value();
        requested.get_future().wait();
    });

    notified.start();
    rebuilding.get_future().wait();
    pthread_cancel(notified.thread);
    requested.set_value();

    EXPECT_EQ(notified.join(), PTHREAD_CANCELED);
    EXPECT_EQ(file_content(oem.path).size(), 1342U);
}

}  // namespace
