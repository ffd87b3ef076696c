// SPDX-License-Identifier: Apache-2.0
#include <pthread.h>
#include <sys/syscall.h>

#include <thread>

#include "fake_platform.h"
#include "lock_journal.h"

using namespace vpdd::test;
using testing::ElementsAre;

namespace {

using FruChangedFlagTest = PlatformTest;

TEST_F(FruChangedFlagTest, IsClearAtFirst) {
    EXPECT_EQ(gb_fru_changed_flag, 0);
    EXPECT_EQ(vpd_get_fru_changed_flag(), 0);
}

TEST_F(FruChangedFlagTest, SettingAnotherValueStoresIt) {
    EXPECT_EQ(vpd_set_fru_changed_flag(1), 0);
    EXPECT_EQ(vpd_get_fru_changed_flag(), 1);
    EXPECT_EQ(gb_fru_changed_flag, 1);

    EXPECT_EQ(vpd_set_fru_changed_flag(0), 0);
    EXPECT_EQ(vpd_get_fru_changed_flag(), 0);
}

TEST_F(FruChangedFlagTest, SettingTheSameValueReportsNoChange) {
    EXPECT_EQ(vpd_set_fru_changed_flag(0), -1);
    EXPECT_EQ(vpd_get_fru_changed_flag(), 0);

    vpd_set_fru_changed_flag(1);
    EXPECT_EQ(vpd_set_fru_changed_flag(1), -1);
    EXPECT_EQ(vpd_get_fru_changed_flag(), 1);
}

TEST_F(FruChangedFlagTest, ReadsWhatTheProgramStoredInTheSharedVariable) {
    gb_fru_changed_flag = 1;

    EXPECT_EQ(vpd_get_fru_changed_flag(), 1);
    EXPECT_EQ(vpd_set_fru_changed_flag(1), -1);
}

TEST_F(FruChangedFlagTest, TheCallbackLogsAndRaisesTheFlag) {
    EXPECT_EQ(vpd_compvpd_changed_notify_callback(37), 0);

    EXPECT_EQ(vpd_get_fru_changed_flag(), 1);
    EXPECT_THAT(
        platform.log(),
        ElementsAre(LogLine{14, pid_line("vpd_compvpd_changed_notify_callback - info: compvpd changed,fru=%d", 37)}));
}

TEST_F(FruChangedFlagTest, TheCallbackReportsAFlagThatWasSetAlready) {
    vpd_compvpd_changed_notify_callback(1);

    EXPECT_EQ(vpd_compvpd_changed_notify_callback(-2), -1);

    EXPECT_EQ(vpd_get_fru_changed_flag(), 1);
    EXPECT_TRUE(platform.logged(14, pid_line("vpd_compvpd_changed_notify_callback - info: compvpd changed,fru=-2")));
}

TEST_F(FruChangedFlagTest, IsReadAndWrittenUnderItsMutex) {
    const LockJournal locks;

    vpd_get_fru_changed_flag();
    vpd_set_fru_changed_flag(1);
    vpd_set_fru_changed_flag(1);

    const char* lock = "lock g_fru_changed_flag_mutex";
    const char* unlock = "unlock g_fru_changed_flag_mutex";
    EXPECT_THAT(platform.journal(), ElementsAre(lock, unlock, lock, unlock, lock, unlock));
}

TEST_F(FruChangedFlagTest, TheCallbackLogsBeforeItTakesTheMutex) {
    const LockJournal locks;

    vpd_compvpd_changed_notify_callback(3);

    EXPECT_THAT(platform.journal(),
                ElementsAre("log 14 " + pid_line("vpd_compvpd_changed_notify_callback - info: compvpd changed,fru=3"),
                            "lock g_fru_changed_flag_mutex", "unlock g_fru_changed_flag_mutex"));
}

TEST(ThreadId, IsTheKernelsIdOfTheCallingThread) {
    EXPECT_EQ(gettid(), syscall(SYS_gettid));
    EXPECT_EQ(gettid(), getpid());

    pid_t other = 0, expected = 0;
    std::thread([&] {
        other = gettid();
        expected = static_cast<pid_t>(syscall(SYS_gettid));
    }).join();

    EXPECT_EQ(other, expected);
    EXPECT_NE(other, getpid());
}

TEST(GlobalMutexes, AreUnlockedAndNotRecursive) {
    pthread_mutex_t* const mutexes[] = {
        &compvpd_access_mutex,
        &g_list_access_mutex,
        &compvpd_readonly_mutex,
        &compvpd_kiva_readonly_mutex,
        &g_fru_changed_flag_mutex,
        &compvpd_getproperty_mutex,
        &compvpd_getstringproperty_mutex,
        &compvpd_getbyteproperty_mutex,
        &fwvpd_access_mutex,
        &sysvpd_access_mutex,
    };
    for (pthread_mutex_t* mutex : mutexes) {
        EXPECT_EQ(pthread_mutex_trylock(mutex), 0);
        EXPECT_EQ(pthread_mutex_trylock(mutex), EBUSY);
        EXPECT_EQ(pthread_mutex_unlock(mutex), 0);
    }
}

}  // namespace
