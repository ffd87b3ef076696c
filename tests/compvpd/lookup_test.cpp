// SPDX-License-Identifier: Apache-2.0
#include <sys/mman.h>
#include <sys/syscall.h>

#include <chrono>
#include <csignal>
#include <future>
#include <thread>

#include "cache_fixture.h"
#include "lock_journal.h"

using namespace vpdd::test;
using testing::AllOf;
using testing::Each;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;
using testing::StartsWith;
using vpdd::images::FruLocator;

namespace {

constexpr char not_created[] = "ERROR:Cache wasn't created(status: 0)\n";

class LookupTest : public ComponentCacheTest {
protected:
    /// Records with these FRU ids and the names "FRU <position>".
    void create_with_ids(const std::vector<uint8_t>& ids) {
        std::vector<Bytes> locators;
        for (const uint8_t id : ids) {
            locators.push_back(FruLocator(id, "FRU " + std::to_string(locators.size())).entity(7, 1));
        }
        create(locators);
        log_lines_of_creation_ = platform.log().size();
    }

    std::vector<LogLine> new_log() const {
        auto lines = platform.log();
        lines.erase(lines.begin(), lines.begin() + static_cast<std::ptrdiff_t>(log_lines_of_creation_));
        return lines;
    }

    /// Journal from now on, with the locks.
    std::vector<std::string> journal_of(const std::function<void()>& calls) const {
        const std::size_t before = platform.journal().size();
        {
            const LockJournal locks;
            calls();
        }
        auto lines = platform.journal();
        lines.erase(lines.begin(), lines.begin() + static_cast<std::ptrdiff_t>(before));
        return lines;
    }

    int get(uint8_t fru_id, uint32_t probe = 0) {
        const ComponentRequest request{fru_id, probe};
        return GetComponentVPD(&length, 0, &request, &copy);
    }
    int get_by_id(uint8_t fru_id) { return GetComponentVPDByFruID(&length, 0, &fru_id, &copy); }

    uint32_t length = 77;
    ComponentVpdRecord copy = filled_record();

private:
    static ComponentVpdRecord filled_record() {
        ComponentVpdRecord record;
        std::memset(&record, 0xEE, sizeof record);
        return record;
    }

    std::size_t log_lines_of_creation_ = 0;
};

/// Both look-ups by id do the same but for the way the id comes.
using ById = int (*)(uint32_t*, uint8_t, ComponentVpdRecord*);

int by_request(uint32_t* length, uint8_t fru_id, ComponentVpdRecord* out) {
    const ComponentRequest request{fru_id, 0};
    return GetComponentVPD(length, 0, &request, out);
}
int by_pointer(uint32_t* length, uint8_t fru_id, ComponentVpdRecord* out) {
    return GetComponentVPDByFruID(length, 0, &fru_id, out);
}

struct ByIdCase {
    ById look_up;
    const char* function;
};

class LookupByIdTest : public LookupTest, public testing::WithParamInterface<ByIdCase> {
protected:
    int look_up(uint8_t fru_id) { return GetParam().look_up(&length, fru_id, &copy); }
};

INSTANTIATE_TEST_SUITE_P(EachLookup, LookupByIdTest,
                         testing::Values(ByIdCase{by_request, "GetComponentVPD"},
                                         ByIdCase{by_pointer, "GetComponentVPDByFruID"}),
                         [](const auto& test) { return std::string(test.param.function); });

TEST_P(LookupByIdTest, CopiesTheWholeRecordOfTheId) {
    create_with_ids({9, 5, 200});

    EXPECT_EQ(look_up(5), 0);

    EXPECT_EQ(length, 1512U);
    ComponentVpdRecord expected = *cached(5);
    expected.next_fru_id = 200;
    EXPECT_TRUE(is_same_record(copy, expected));
    EXPECT_STREQ(copy.name, "FRU 1");
}

TEST_P(LookupByIdTest, CopiesTheRecordAlsoWithoutAPlaceForTheLength) {
    create_with_ids({9, 5, 200});

    EXPECT_EQ(GetParam().look_up(nullptr, 5, &copy), 0);

    EXPECT_STREQ(copy.name, "FRU 1");
}

TEST_P(LookupByIdTest, TakesId0AndFFForTheFirstRecord) {
    create_with_ids({9, 5, 200});

    for (const uint8_t id : {uint8_t{0}, uint8_t{0xFF}}) {
        copy = {};
        EXPECT_EQ(look_up(id), 0);
        EXPECT_EQ(copy.fru_id, 9);
        EXPECT_EQ(copy.next_fru_id, 5);
    }
}

TEST_P(LookupByIdTest, TakesId0AndFFForTheFirstRecordAlsoWhereOthersBearThem) {
    create_with_ids({9, 0, 0xFF});

    look_up(0);
    EXPECT_EQ(copy.fru_id, 9);
    look_up(0xFF);
    EXPECT_EQ(copy.fru_id, 9);
}

TEST_P(LookupByIdTest, EndsTheIterationAtTheLastRecordWithFF) {
    create_with_ids({9, 5, 200});

    EXPECT_EQ(look_up(200), 0);

    EXPECT_EQ(copy.next_fru_id, 0xFF);
}

TEST_P(LookupByIdTest, WalksTheWholeCacheAlongTheCursor) {
    create_with_ids({9, 5, 200, 3});

    std::vector<uint8_t> seen;
    uint8_t id = 0;
    do {
        ASSERT_EQ(look_up(id), 0);
        seen.push_back(copy.fru_id);
        id = copy.next_fru_id;
    } while (id != 0xFF);

    EXPECT_THAT(seen, ElementsAre(9, 5, 200, 3));
}

TEST_P(LookupByIdTest, NeverWritesTheCursorIntoTheCachedRecord) {
    create_with_ids({9, 5, 200});

    look_up(9);
    look_up(5);
    look_up(200);

    for (const uint8_t id : {9, 5, 200}) EXPECT_EQ(cached(id)->next_fru_id, 0);
}

TEST_P(LookupByIdTest, ReturnsTheFirstOfSeveralRecordsWithTheSameId) {
    create_with_ids({9, 5, 5, 7});

    look_up(5);

    EXPECT_STREQ(copy.name, "FRU 1");
    EXPECT_EQ(copy.next_fru_id, 5);
}

TEST_P(LookupByIdTest, ReportsAnIdThatIsNotInTheCache) {
    create_with_ids({9, 5, 200});
    const ComponentVpdRecord before = copy;

    EXPECT_EQ(look_up(6), -7);

    EXPECT_TRUE(platform.logged(info, formatted("vpdd:%s - No such FRU record.\n", GetParam().function)));
    EXPECT_EQ(length, 77U);
    EXPECT_TRUE(is_same_record(copy, before));
    EXPECT_TRUE(all_locks_are_free());
}

TEST_P(LookupByIdTest, ReportsAnEmptyCacheForEachId) {
    create_with_ids({});

    for (const uint8_t id : {uint8_t{0}, uint8_t{1}, uint8_t{0xFF}}) EXPECT_EQ(look_up(id), -7);

    EXPECT_EQ(platform.times_logged(info, formatted("vpdd:%s - No such FRU record.\n", GetParam().function)), 3U);
    EXPECT_TRUE(all_locks_are_free());
}

TEST_P(LookupByIdTest, RefusesToWorkBeforeTheCacheWasCreated) {
    const ComponentVpdRecord before = copy;

    EXPECT_EQ(look_up(0), -1);

    EXPECT_TRUE(platform.logged_located(info, GetParam().function, not_created));
    EXPECT_EQ(length, 77U);
    EXPECT_TRUE(is_same_record(copy, before));
    EXPECT_TRUE(all_locks_are_free());
}

TEST_P(LookupByIdTest, TestsTheStatusBeforeTheOutRecord) {
    EXPECT_EQ(GetParam().look_up(&length, 0, nullptr), -1);

    EXPECT_TRUE(platform.logged_located(info, GetParam().function, not_created));
}

TEST_P(LookupByIdTest, RefusesANullOutRecord) {
    create_with_ids({9});

    EXPECT_EQ(GetParam().look_up(&length, 9, nullptr), -1);

    EXPECT_TRUE(platform.logged_located(info, GetParam().function, "ERROR:p_info is null\n"));
    EXPECT_EQ(length, 77U);
    EXPECT_TRUE(all_locks_are_free());
}

TEST_P(LookupByIdTest, ReportsANullOutRecordUnderTheOuterLockAlone) {
    create_with_ids({9});

    std::vector<std::string> lines = journal_of([this] { GetParam().look_up(&length, 9, nullptr); });

    std::erase_if(lines, [](const std::string& line) { return line.starts_with("log 8"); });
    EXPECT_THAT(lines, ElementsAre("lock compvpd_readonly_mutex", HasSubstr("ERROR:p_info is null"),
                                   "unlock compvpd_readonly_mutex"));
}

TEST_P(LookupByIdTest, TakesTheOuterLockFirstAndReleasesItLast) {
    create_with_ids({9});

    std::vector<std::string> lines = journal_of([this] { look_up(9); });

    std::erase_if(lines, [](const std::string& line) { return line.starts_with("log"); });
    EXPECT_THAT(lines, ElementsAre("lock compvpd_readonly_mutex", "lock compvpd_access_mutex",
                                   "unlock compvpd_access_mutex", "unlock compvpd_readonly_mutex"));
}

TEST_P(LookupByIdTest, ReportsAMissingRecordUnderBothLocks) {
    create_with_ids({9});

    std::vector<std::string> lines = journal_of([this] { look_up(8); });

    std::erase_if(lines, [](const std::string& line) { return line.starts_with("log 8"); });
    EXPECT_THAT(
        lines, ElementsAre("lock compvpd_readonly_mutex", "lock compvpd_access_mutex", HasSubstr("No such FRU record."),
                           "unlock compvpd_access_mutex", "unlock compvpd_readonly_mutex"));
}

TEST_P(LookupByIdTest, RefusesUnderTheOuterLockAlone) {
    std::vector<std::string> lines = journal_of([this] { look_up(9); });

    std::erase_if(lines, [](const std::string& line) { return line.starts_with("log 8"); });
    EXPECT_THAT(lines, ElementsAre("lock compvpd_readonly_mutex", HasSubstr("Cache wasn't created"),
                                   "unlock compvpd_readonly_mutex"));
}

using GetComponentVpdTest = LookupTest;

TEST_F(GetComponentVpdTest, RefusesANullRequestBeforeAnythingElse) {
    const auto lines = journal_of([] { EXPECT_EQ(GetComponentVPD(nullptr, 0, nullptr, nullptr), -1); });

    // The message comes behind the unlocking.
    EXPECT_THAT(lines, ElementsAre("lock compvpd_readonly_mutex", "unlock compvpd_readonly_mutex",
                                   "log 12 " + pid_line("GetComponentVPD - Invalid requested data.\n")));
    EXPECT_TRUE(all_locks_are_free());
}

TEST_F(GetComponentVpdTest, LogsNothingWhenItFindsTheRecord) {
    create_with_ids({9});

    get(9);

    EXPECT_THAT(new_log(), IsEmpty());
}

TEST_F(GetComponentVpdTest, IgnoresTheBufferSize) {
    create_with_ids({9});
    const ComponentRequest request{9, 0};

    EXPECT_EQ(GetComponentVPD(&length, 1, &request, &copy), 0);

    EXPECT_EQ(length, 1512U);
}

TEST_F(GetComponentVpdTest, AProbeOfTwoRecordsOrMoreAnswersTheFirstRecordsOwnId) {
    create_with_ids({9, 5});
    ComponentVpdRecord expected = copy;
    expected.next_fru_id = 9;

    EXPECT_EQ(get(5, 1), 0);

    EXPECT_TRUE(is_same_record(copy, expected));
    EXPECT_EQ(length, 77U);
}

TEST_F(GetComponentVpdTest, AProbeOfOneRecordAnswersThatThereIsNothingMore) {
    create_with_ids({9});
    ComponentVpdRecord expected = copy;
    expected.next_fru_id = 0xFF;

    EXPECT_EQ(get(9, 0x80000000), 0);

    EXPECT_TRUE(is_same_record(copy, expected));
    EXPECT_EQ(length, 77U);
}

TEST_F(GetComponentVpdTest, AProbeOfAnEmptyCacheSucceeds) {
    create_with_ids({});
    ComponentVpdRecord expected = copy;
    expected.next_fru_id = 0xFF;

    EXPECT_EQ(get(0, 1), 0);

    EXPECT_TRUE(is_same_record(copy, expected));
    EXPECT_THAT(new_log(), IsEmpty());
    EXPECT_TRUE(all_locks_are_free());
}

TEST_F(GetComponentVpdTest, AProbeIsRefusedBeforeTheCacheWasCreated) {
    EXPECT_EQ(get(0, 1), -1);

    EXPECT_TRUE(platform.logged_located(info, "GetComponentVPD", not_created));
}

TEST_F(GetComponentVpdTest, AProbeWithoutAnOutRecordIsRefused) {
    create_with_ids({9, 5});
    const ComponentRequest request{5, 1};

    EXPECT_EQ(GetComponentVPD(&length, 0, &request, nullptr), -1);

    EXPECT_TRUE(platform.logged_located(info, "GetComponentVPD", "ERROR:p_info is null\n"));
    EXPECT_TRUE(all_locks_are_free());
}

TEST_F(GetComponentVpdTest, AProbeHoldsBothLocks) {
    create_with_ids({9});

    EXPECT_THAT(journal_of([this] { get(0, 1); }),
                ElementsAre("lock compvpd_readonly_mutex", "lock compvpd_access_mutex", "unlock compvpd_access_mutex",
                            "unlock compvpd_readonly_mutex"));
}

using GetComponentVpdByFruIdTest = LookupTest;

TEST_F(GetComponentVpdByFruIdTest, RefusesANullIdBeforeAnythingElse) {
    const auto lines = journal_of([] { EXPECT_EQ(GetComponentVPDByFruID(nullptr, 0, nullptr, nullptr), -1); });

    EXPECT_THAT(lines, ElementsAre("lock compvpd_readonly_mutex", "unlock compvpd_readonly_mutex",
                                   "log 12 " + pid_line("GetComponentVPDByFruID - Invalid requested data.\n")));
}

TEST_F(GetComponentVpdByFruIdTest, AnnouncesEachLookUpAtTheHighestPriority) {
    create_with_ids({9});

    get_by_id(9);
    get_by_id(255);

    EXPECT_THAT(new_log(), ElementsAre(LogLine{emergency, "Get component VPD by FRU ID(9)\n"},
                                       LogLine{emergency, "Get component VPD by FRU ID(255)\n"}));
}

TEST_F(GetComponentVpdByFruIdTest, AnnouncesTheLookUpBeforeItTestsTheStatus) {
    get_by_id(9);

    ASSERT_THAT(platform.log(), SizeIs(2));
    EXPECT_EQ(platform.log()[0], (LogLine{emergency, "Get component VPD by FRU ID(9)\n"}));
    EXPECT_THAT(platform.log()[1].text, HasSubstr("Cache wasn't created"));
}

class BulkCopyTest : public LookupTest {
protected:
    /// Room for `records` records and some bytes of which none may be touched.
    int copy_all(uint32_t size, std::size_t records) {
        buffer.assign(records * sizeof(ComponentVpdRecord) + 8, 0xEE);
        return GetComponentVPD_KIVA(&length, size, nullptr, buffer.data());
    }
    ComponentVpdRecord at(std::size_t index) const {
        ComponentVpdRecord record;
        std::memcpy(&record, buffer.data() + index * sizeof record, sizeof record);
        return record;
    }
    Bytes behind(std::size_t records) const {
        return Bytes(buffer.begin() + static_cast<std::ptrdiff_t>(records * sizeof(ComponentVpdRecord)), buffer.end());
    }

    Bytes buffer;
};

TEST_F(BulkCopyTest, CopiesAllRecordsAndMarksTheFirstOne) {
    create_with_ids({9, 5, 200});

    EXPECT_EQ(copy_all(10 * 1512, 10), 0);

    EXPECT_EQ(length, 3 * 1512U);
    ComponentVpdRecord first = *cached(9);
    first.next_fru_id = 0xFF;
    EXPECT_TRUE(is_same_record(at(0), first));
    EXPECT_TRUE(is_same_record(at(1), *cached(5)));
    EXPECT_TRUE(is_same_record(at(2), *cached(200)));
    EXPECT_THAT(behind(3), Each(0xEE));
}

TEST_F(BulkCopyTest, CopiesAllRecordsAlsoWithoutAPlaceForTheLength) {
    create_with_ids({9, 5});
    buffer.assign(2 * sizeof(ComponentVpdRecord), 0xEE);

    EXPECT_EQ(GetComponentVPD_KIVA(nullptr, 2 * 1512, nullptr, buffer.data()), 0);

    EXPECT_STREQ(at(0).name, "FRU 0");
    EXPECT_STREQ(at(1).name, "FRU 1");
}

TEST_F(BulkCopyTest, NamesTheFirstRecordLeftOut) {
    create_with_ids({9, 5, 200, 31, 32});

    EXPECT_EQ(copy_all(3 * 1512, 3), 0);

    EXPECT_EQ(length, 4536U);
    EXPECT_EQ(at(0).next_fru_id, 31);
    EXPECT_EQ(at(1).next_fru_id, 0);
    EXPECT_EQ(at(2).next_fru_id, 0);
    EXPECT_EQ(at(2).fru_id, 200);
    EXPECT_THAT(behind(3), Each(0xEE));
}

TEST_F(BulkCopyTest, CountsOnlyWholeRecordsOfRoom) {
    create_with_ids({9, 5, 200});

    EXPECT_EQ(copy_all(3 * 1512 - 1, 3), 0);

    EXPECT_EQ(length, 2 * 1512U);
    EXPECT_EQ(at(0).next_fru_id, 200);
    EXPECT_THAT(behind(2), Each(0xEE));
}

TEST_F(BulkCopyTest, MarksTheEndWhenTheRecordsFitExactly) {
    create_with_ids({9, 5, 200});

    EXPECT_EQ(copy_all(3 * 1512, 3), 0);

    EXPECT_EQ(length, 3 * 1512U);
    EXPECT_EQ(at(0).next_fru_id, 0xFF);
}

TEST_F(BulkCopyTest, CopiesOneRecordIntoABufferThatIsTooSmall) {
    create_with_ids({9, 5, 200});

    for (const uint32_t size : {0U, 100U, 1511U, 1512U}) {
        EXPECT_EQ(copy_all(size, 1), 0);
        EXPECT_EQ(length, 1512U) << size;
        EXPECT_EQ(at(0).fru_id, 9);
        EXPECT_EQ(at(0).next_fru_id, 5);
        EXPECT_THAT(behind(1), Each(0xEE));
    }
}

TEST_F(BulkCopyTest, MarksTheEndOfACacheOfOneRecord) {
    create_with_ids({9});

    EXPECT_EQ(copy_all(100, 1), 0);

    EXPECT_EQ(at(0).next_fru_id, 0xFF);
}

TEST_F(BulkCopyTest, LeavesTheCachedRecordsAlone) {
    create_with_ids({9, 5, 200});

    copy_all(1512, 3);

    for (const uint8_t id : {9, 5, 200}) EXPECT_EQ(cached(id)->next_fru_id, 0);
}

TEST_F(BulkCopyTest, KeepsTheCursorsThatTheOtherRecordsHave) {
    create_with_ids({9, 5, 200, 31});
    cached(9)->next_fru_id = 0x41;
    cached(5)->next_fru_id = 0x42;
    cached(200)->next_fru_id = 0x43;

    EXPECT_EQ(copy_all(3 * 1512, 3), 0);

    EXPECT_EQ(at(0).next_fru_id, 31) << "the mark";
    EXPECT_EQ(at(1).next_fru_id, 0x42);
    EXPECT_EQ(at(2).next_fru_id, 0x43);
    EXPECT_EQ(cached(9)->next_fru_id, 0x41);
}

TEST_F(BulkCopyTest, NeverCopiesMoreThan2048Records) {
    std::vector<uint8_t> ids(2050);
    for (std::size_t i = 0; i < ids.size(); ++i) ids[i] = static_cast<uint8_t>(i % 251);
    create_with_ids(ids);

    EXPECT_EQ(copy_all(2050 * 1512, 2050), 0);

    EXPECT_EQ(length, 3096576U);
    EXPECT_EQ(at(0).next_fru_id, 2048 % 251);
    EXPECT_STREQ(at(2047).name, "FRU 2047");
    EXPECT_THAT(behind(2048), Each(0xEE));
}

TEST_F(BulkCopyTest, MarksTheEndOfExactly2048Records) {
    create_with_ids(std::vector<uint8_t>(2048, 1));

    EXPECT_EQ(copy_all(2048 * 1512, 2048), 0);

    EXPECT_EQ(length, 3096576U);
    EXPECT_EQ(at(0).next_fru_id, 0xFF);
}

TEST_F(BulkCopyTest, ReportsAnEmptyCache) {
    create_with_ids({});

    EXPECT_EQ(copy_all(1512, 1), -7);

    EXPECT_TRUE(platform.logged_containing(emergency, "[GetComponentVPD_KIVA]("));
    const std::string text = platform.log(emergency).back().text;
    EXPECT_EQ(text.substr(text.find(')')), ") -No such FRU record.- ");
    EXPECT_EQ(length, 77U);
    EXPECT_TRUE(all_locks_are_free());
}

TEST_F(BulkCopyTest, RefusesToWorkBeforeTheCacheWasCreated) {
    EXPECT_EQ(GetComponentVPD_KIVA(&length, 1512, nullptr, nullptr), -1);

    EXPECT_TRUE(platform.logged_located(info, "GetComponentVPD_KIVA", not_created));
    EXPECT_THAT(platform.log(), SizeIs(1));
    EXPECT_TRUE(all_locks_are_free());
}

TEST_F(BulkCopyTest, RefusesANullBuffer) {
    create_with_ids({9});

    EXPECT_EQ(GetComponentVPD_KIVA(&length, 1512, nullptr, nullptr), -1);

    EXPECT_TRUE(platform.logged_located(info, "GetComponentVPD_KIVA", "ERROR:p_info is null\n"));
    EXPECT_EQ(length, 77U);
    EXPECT_TRUE(all_locks_are_free());
}

TEST_F(BulkCopyTest, TakesItsOwnOuterLockFirstAndReleasesItLast) {
    create_with_ids({9});

    EXPECT_THAT(journal_of([this] { copy_all(1512, 1); }),
                ElementsAre("lock compvpd_kiva_readonly_mutex", "lock compvpd_access_mutex",
                            "unlock compvpd_access_mutex", "unlock compvpd_kiva_readonly_mutex"));
}

TEST_F(BulkCopyTest, RefusesUnderItsOuterLockAlone) {
    const auto lines = journal_of([this] { copy_all(1512, 1); });

    EXPECT_THAT(lines, ElementsAre("lock compvpd_kiva_readonly_mutex", HasSubstr("Cache wasn't created"),
                                   "unlock compvpd_kiva_readonly_mutex"));
}

TEST_F(BulkCopyTest, ReportsANullBufferUnderItsOuterLockAlone) {
    create_with_ids({9});

    EXPECT_THAT(journal_of([this] { GetComponentVPD_KIVA(&length, 1512, nullptr, nullptr); }),
                ElementsAre("lock compvpd_kiva_readonly_mutex", HasSubstr("ERROR:p_info is null"),
                            "unlock compvpd_kiva_readonly_mutex"));
}

TEST_F(BulkCopyTest, ReportsAnEmptyCacheUnderBothLocks) {
    create_with_ids({});

    EXPECT_THAT(
        journal_of([this] { copy_all(1512, 1); }),
        ElementsAre("lock compvpd_kiva_readonly_mutex", "lock compvpd_access_mutex", HasSubstr("No such FRU record."),
                    "unlock compvpd_access_mutex", "unlock compvpd_kiva_readonly_mutex"));
}

using FindFruRecordTest = LookupTest;

TEST_F(FindFruRecordTest, HandsOutTheCachedRecordAndPrintsItsAddress) {
    create_with_ids({9, 5, 200});
    ComponentVpdRecord* record = nullptr;
    std::string printed;
    {
        const CaptureStdout captured;
        EXPECT_EQ(FindFRURecord(5, &record), 0);
        printed = captured.text();
    }

    ASSERT_NE(record, nullptr);
    EXPECT_STREQ(record->name, "FRU 1");
    EXPECT_EQ(printed, formatted("--> Found FRU, comp_info address = %p, fru id = 5\n", static_cast<void*>(record)));
    record->status = 1;
    get(5);
    EXPECT_EQ(copy.status, 1);
    EXPECT_THAT(new_log(), IsEmpty());
}

TEST_F(FindFruRecordTest, TellsWhetherThereIsARecordAlsoWithoutAPlaceForIt) {
    create_with_ids({9, 5});

    const CaptureStdout silence;
    EXPECT_EQ(FindFRURecord(5, nullptr), 0);
    EXPECT_EQ(FindFRURecord(6, nullptr), -1);
}

TEST_F(FindFruRecordTest, UsesTheLowByteOfTheId) {
    create_with_ids({9, 5, 200});

    ComponentVpdRecord* record = nullptr;
    std::string printed;
    {
        const CaptureStdout captured;
        EXPECT_EQ(FindFRURecord(0xABCD05, &record), 0);
        printed = captured.text();
    }

    ASSERT_NE(record, nullptr);
    EXPECT_EQ(record->fru_id, 5);
    EXPECT_THAT(printed, testing::EndsWith(", fru id = 5\n"));
}

TEST_F(FindFruRecordTest, KnowsNoSpecialIds) {
    create_with_ids({9, 5});
    ComponentVpdRecord* record = &copy;
    {
        const CaptureStdout captured;
        EXPECT_EQ(FindFRURecord(0, &record), -1);
        EXPECT_EQ(record, nullptr);
        record = &copy;
        EXPECT_EQ(FindFRURecord(0xFF, &record), -1);
        EXPECT_EQ(captured.text(), "");
    }
    EXPECT_EQ(record, nullptr);
    EXPECT_TRUE(all_locks_are_free());
}

TEST_F(FindFruRecordTest, MatchesTheIds0AndFFLikeAnyOther) {
    create_with_ids({9, 0, 0xFF});

    EXPECT_STREQ(cached(0)->name, "FRU 1");
    EXPECT_STREQ(cached(0xFF)->name, "FRU 2");
}

TEST_F(FindFruRecordTest, FindsTheFirstOfSeveralRecordsWithTheSameId) {
    create_with_ids({9, 5, 5});

    EXPECT_STREQ(cached(5)->name, "FRU 1");
}

TEST_F(FindFruRecordTest, FindsTheSameRecordAfterAnUpdate) {
    create_with_ids({4, 5, 5});
    const ComponentVpdRecord* const before = cached(5);
    UpdateComponentVPDCache();
    EXPECT_EQ(cached(5), before);
    EXPECT_STREQ(cached(5)->name, "FRU 1");
}

TEST_F(FindFruRecordTest, FindsOnlyRecordsOfTheNewCacheAfterTheOldOneWasDestroyed) {
    create_with_ids({5, 6, 7});
    ASSERT_EQ(DestroyComponentVPDCache(), 0);
    create_with_ids({7, 5, 9});
    EXPECT_EQ(cached(6), nullptr);
    ASSERT_NE(cached(5), nullptr);
    EXPECT_STREQ(cached(5)->name, "FRU 1");
    EXPECT_STREQ(cached(7)->name, "FRU 0");
}

TEST_F(FindFruRecordTest, FindsARecordUnderTheIdThatItsHolderGaveIt) {
    create_with_ids({5, 6});
    ComponentVpdRecord* const record = cached(5);
    record->fru_id = 9;
    EXPECT_EQ(cached(9), record);
    EXPECT_EQ(cached(5), nullptr);
}

TEST_F(FindFruRecordTest, FindsTheFirstOfTwoRecordsOneOfWhichGotItsIdFromItsHolder) {
    create_with_ids({5, 6, 7});
    ComponentVpdRecord* const first = cached(5);
    ComponentVpdRecord* const last = cached(7);
    last->fru_id = 6;
    EXPECT_NE(cached(6), last) << "it stands behind";
    first->fru_id = 6;
    EXPECT_EQ(cached(6), first);
    EXPECT_EQ(get_by_id(6), 0);
    EXPECT_STREQ(copy.name, first->name);
}

TEST_F(FindFruRecordTest, FindsNothingInAnEmptyCache) {
    create_with_ids({});
    ComponentVpdRecord* record = &copy;

    EXPECT_EQ(FindFRURecord(0, &record), -1);

    EXPECT_EQ(record, nullptr);
}

TEST_F(FindFruRecordTest, RefusesToWorkBeforeTheCacheWasCreated) {
    ComponentVpdRecord* record = &copy;

    EXPECT_EQ(FindFRURecord(5, &record), -4);

    EXPECT_TRUE(platform.logged_located(info, "FindFRURecord", not_created));
    EXPECT_EQ(record, &copy);
}

TEST_F(FindFruRecordTest, TestsTheStatusWithoutALockAndWalksUnderOne) {
    ComponentVpdRecord* record = nullptr;
    EXPECT_THAT(journal_of([&] { FindFRURecord(5, &record); }), ElementsAre(HasSubstr("Cache wasn't created")));

    create_with_ids({9});

    EXPECT_THAT(journal_of([&] { FindFRURecord(5, &record); }),
                ElementsAre("lock compvpd_access_mutex", "unlock compvpd_access_mutex"));
}

// ---- writing under the lock

/// A page whose first write stops at a look at a mutex.
class WatchedPage {
public:
    explicit WatchedPage(pthread_mutex_t& mutex) {
        page = mmap(nullptr, size, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        watched = &mutex;
        is_written = false;
        is_locked = false;
        struct sigaction action {};
        action.sa_handler = at_first_write;
        sigaction(SIGSEGV, &action, &former_);
    }
    ~WatchedPage() {
        sigaction(SIGSEGV, &former_, nullptr);
        munmap(page, size);
    }
    WatchedPage(const WatchedPage&) = delete;
    WatchedPage& operator=(const WatchedPage&) = delete;

    void* address() const { return page; }
    bool was_written() const { return is_written; }
    bool was_written_under_the_lock() const { return is_written && is_locked; }

private:
    static constexpr std::size_t size = 4096;

    static void at_first_write(int) {
        // A fault elsewhere comes back here at once: it then has its usual end.
        if (is_written) signal(SIGSEGV, SIG_DFL);
        is_written = true;
        is_locked = !is_free(*watched);
        mprotect(page, size, PROT_READ | PROT_WRITE);
    }

    static inline void* page;
    static inline pthread_mutex_t* watched;
    static inline volatile bool is_written, is_locked;

    struct sigaction former_ {};
};

struct WritingLookup {
    const char* name;
    int (*call)(void* out);
};

const WritingLookup writing_lookups[] = {
    {"GetComponentVPD",
     [](void* out) {
         const ComponentRequest request{5, 0};
         return GetComponentVPD(nullptr, 0, &request, static_cast<ComponentVpdRecord*>(out));
     }},
    {"Probe",
     [](void* out) {
         const ComponentRequest request{5, 1};
         return GetComponentVPD(nullptr, 0, &request, static_cast<ComponentVpdRecord*>(out));
     }},
    {"GetComponentVPDByFruID",
     [](void* out) {
         const uint8_t id = 5;
         return GetComponentVPDByFruID(nullptr, 0, &id, static_cast<ComponentVpdRecord*>(out));
     }},
    {"GetComponentVPD_KIVA", [](void* out) { return GetComponentVPD_KIVA(nullptr, 0, nullptr, out); }},
    {"FindFRURecord",
     [](void* out) {
         const CaptureStdout silence;
         return FindFRURecord(5, static_cast<ComponentVpdRecord**>(out));
     }},
};

class WritingLookupTest : public LookupTest, public testing::WithParamInterface<WritingLookup> {};

INSTANTIATE_TEST_SUITE_P(EachLookup, WritingLookupTest, testing::ValuesIn(writing_lookups),
                         [](const auto& test) { return std::string(test.param.name); });

TEST_P(WritingLookupTest, AnswersWhileItHoldsTheCache) {
    create_with_ids({9, 5});
    const WatchedPage out(compvpd_access_mutex);

    EXPECT_EQ(GetParam().call(out.address()), 0);

    EXPECT_TRUE(out.was_written());
    EXPECT_TRUE(out.was_written_under_the_lock());
    EXPECT_TRUE(all_locks_are_free());
}

// ---- waiting

/// Holds a mutex while it lives.
class Held {
public:
    explicit Held(pthread_mutex_t& mutex) : mutex_(mutex) { pthread_mutex_lock(&mutex_); }
    ~Held() { pthread_mutex_unlock(&mutex_); }
    Held(const Held&) = delete;
    Held& operator=(const Held&) = delete;

private:
    pthread_mutex_t& mutex_;
};

struct AnyLookup {
    const char* name;
    const char* function;
    int (*call)();
    int result_without_cache;
};

ComponentVpdRecord thread_copy;
uint32_t thread_length;

const AnyLookup lookups[] = {
    {"GetComponentVPD", "GetComponentVPD",
     [] {
         const ComponentRequest request{};
         return GetComponentVPD(&thread_length, 0, &request, &thread_copy);
     },
     -1},
    {"Probe", "GetComponentVPD",
     [] {
         const ComponentRequest request{0, 1};
         return GetComponentVPD(&thread_length, 0, &request, &thread_copy);
     },
     -1},
    {"GetComponentVPDByFruID", "GetComponentVPDByFruID",
     [] {
         const uint8_t id = 0;
         return GetComponentVPDByFruID(&thread_length, 0, &id, &thread_copy);
     },
     -1},
    {"GetComponentVPD_KIVA", "GetComponentVPD_KIVA",
     [] { return GetComponentVPD_KIVA(&thread_length, 0, nullptr, &thread_copy); }, -1},
    {"FindFRURecord", "FindFRURecord",
     [] {
         ComponentVpdRecord* record = nullptr;
         return FindFRURecord(9, &record);
     },
     -4},
};

/// Long enough for a call that does not wait; a call that does wait costs this.
constexpr auto moment = std::chrono::milliseconds(50);
constexpr auto long_time = std::chrono::seconds(60);

class WaitingLookupTest : public LookupTest, public testing::WithParamInterface<AnyLookup> {
protected:
    std::future<int> start() { return std::async(std::launch::async, GetParam().call); }
};

INSTANTIATE_TEST_SUITE_P(EachLookup, WaitingLookupTest, testing::ValuesIn(lookups),
                         [](const auto& test) { return std::string(test.param.name); });

TEST_P(WaitingLookupTest, IsRefusedOnceTheCacheWasDestroyed) {
    create_with_ids({9, 5});
    ASSERT_EQ(DestroyComponentVPDCache(), 0);

    EXPECT_EQ(GetParam().call(), GetParam().result_without_cache);

    EXPECT_TRUE(platform.logged_located(info, GetParam().function, "ERROR:Cache wasn't created(status: 2)\n"));
}

TEST_P(WaitingLookupTest, NamesTheThreadThatItRefuses) {
    pid_t thread = 0;
    std::thread([&] {
        thread = static_cast<pid_t>(syscall(SYS_gettid));
        GetParam().call();
    }).join();

    ASSERT_NE(thread, getpid());
    const std::string head = formatted("pid=%d, tid=%d, %s(", getpid(), thread, GetParam().function);
    EXPECT_THAT(platform.log(info),
                ElementsAre(testing::Field(&LogLine::text, AllOf(StartsWith(head), HasSubstr("(status: 0)")))));
}

TEST_P(WaitingLookupTest, IsRefusedWithoutWaitingForARunThatHoldsTheCache) {
    std::future<int> result;
    {
        const Held creation(compvpd_access_mutex);
        result = start();
        EXPECT_EQ(result.wait_for(long_time), std::future_status::ready);
    }
    EXPECT_EQ(result.get(), GetParam().result_without_cache);
}

TEST_P(WaitingLookupTest, WaitsForTheCacheOnceItWasCreated) {
    create_with_ids({9, 5});
    std::future<int> result;
    {
        const Held writer(compvpd_access_mutex);
        result = start();
        EXPECT_EQ(result.wait_for(moment), std::future_status::timeout);
    }
    EXPECT_EQ(result.get(), 0);
}

TEST_F(LookupTest, ReadersByIdWaitForEachOtherAndNotForTheBulkCopy) {
    create_with_ids({9, 5});
    std::future<int> results[std::size(lookups)];
    {
        const Held reader(compvpd_readonly_mutex);
        for (std::size_t i = 0; i < std::size(lookups); ++i)
            results[i] = std::async(std::launch::async, lookups[i].call);
        EXPECT_EQ(results[3].wait_for(long_time), std::future_status::ready);
        EXPECT_EQ(results[4].wait_for(long_time), std::future_status::ready);
        for (const int i : {0, 1, 2}) EXPECT_EQ(results[i].wait_for(moment), std::future_status::timeout);
    }
    for (auto& result : results) EXPECT_EQ(result.get(), 0);
}

TEST_F(LookupTest, BulkCopiesWaitForEachOtherAndNotForTheOthers) {
    create_with_ids({9, 5});
    std::future<int> bulk;
    {
        const Held reader(compvpd_kiva_readonly_mutex);
        bulk = std::async(std::launch::async, lookups[3].call);
        for (const int i : {0, 1, 2, 4}) EXPECT_EQ(std::async(std::launch::async, lookups[i].call).get(), 0);
        EXPECT_EQ(bulk.wait_for(moment), std::future_status::timeout);
    }
    EXPECT_EQ(bulk.get(), 0);
}

}  // namespace
