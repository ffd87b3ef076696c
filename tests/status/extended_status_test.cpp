// SPDX-License-Identifier: Apache-2.0
// The merging of the change-history database's components into the log.
#include <cstdlib>

#include "log_world.h"
#include "platform/change_history.h"

using namespace vpdd::test;

namespace {

using Words = std::vector<std::string>;

/// What the readers of the change-history database below answer from and keep.
struct Database {
    Entries records;
    int count = 0;
    bool has_no_memory = false;
    void* asked_with = nullptr;
    ComponentVpdRecord* handed_out = nullptr;
    std::vector<ComponentVpdRecord*> released;
};

Database& database() {
    static Database instance;
    return instance;
}

}  // namespace

extern "C" int chghist_read_components(ComponentVpdRecord** records, void* current) {
    Database& db = database();
    db.asked_with = current;
    if (db.has_no_memory) {
        *records = nullptr;
        return db.count;
    }
    db.handed_out = static_cast<ComponentVpdRecord*>(std::calloc(db.records.size() + 1, entry_size));
    std::copy(db.records.begin(), db.records.end(), db.handed_out);
    *records = db.handed_out;
    return db.count;
}

extern "C" int chghist_release_components(ComponentVpdRecord* records) {
    database().released.push_back(records);
    std::free(records);
    return 77;
}

namespace {

class Merge : public LogTest {
protected:
    void SetUp() override {
        LogTest::SetUp();
        write_log({});
        database() = {};
    }

    static void store(const Entries& records) {
        database().records = records;
        database().count = static_cast<int>(records.size());
    }

    int merge_with(const Entries& current) {
        for (const auto& entry : current) {
            auto* const node = static_cast<StatusNode*>(std::calloc(1, sizeof(StatusNode)));
            node->entry = entry;
            insert_status_node_last(&list_, node);
        }
        return UpdateExtendComponentStatus(nullptr, &list_);
    }

    static std::string line(const char* mark, const char* serial) {
        return formatted("[%s] FRU_Name Fan 5, MFG ID Zelt, SN %s\n", mark, serial);
    }

    List list_;
};

}  // namespace

TEST_F(Merge, AppendsRecordsThatNobodyKnows) {
    store({make_entry(5, "A"), make_entry(5, "B", absent)});
    EXPECT_EQ(merge_with({make_entry(5, "C")}), 77);
    EXPECT_EQ(summary(log_on_flash()), (Words{"A 1", "B 0"}));
    EXPECT_TRUE(platform.logged(info, line("New", "A")));
    EXPECT_TRUE(platform.logged(info, line("New", "B")));
}

TEST_F(Merge, TakesEveryRecordForNewWithoutACurrentList) {
    store({make_entry(5, "A")});
    EXPECT_EQ(UpdateExtendComponentStatus(nullptr, nullptr), 77);
    EXPECT_EQ(summary(log_on_flash()), (Words{"A 1"}));
    EXPECT_EQ(database().asked_with, nullptr);
}

TEST_F(Merge, TakesNothingFromADatabaseThatCountsRecordsButHandsOutNone) {
    store({make_entry(5, "A")});
    database().has_no_memory = true;
    EXPECT_EQ(merge_with({}), 77);
    EXPECT_TRUE(log_on_flash().empty());
    EXPECT_EQ(database().released, (std::vector<ComponentVpdRecord*>{nullptr}));
}

TEST_F(Merge, HandsTheCurrentListToTheDatabase) {
    store({});
    merge_with({make_entry(5, "A")});
    EXPECT_EQ(database().asked_with, &list_);
}

TEST_F(Merge, AppendsAComponentThatCameBack) {
    store({make_entry(5, "A", present)});
    merge_with({make_entry(5, "A", absent)});
    EXPECT_EQ(summary(log_on_flash()), (Words{"A 1"}));
    EXPECT_TRUE(platform.logged(info, line("Status Change", "A")));
}

TEST_F(Merge, AppendsAComponentThatWentAway) {
    store({make_entry(5, "A", absent)});
    merge_with({make_entry(5, "A", present)});
    EXPECT_EQ(summary(log_on_flash()), (Words{"A 0"}));
    EXPECT_TRUE(platform.logged(info, line("Status Change", "A")));
}

TEST_F(Merge, LeavesEveryOtherPairOfStatusesAlone) {
    for (const auto& [stored, current] :
         {std::pair{1, 1}, {0, 0}, {255, 0}, {255, 1}, {0, 255}, {1, 255}, {255, 255}}) {
        store({make_entry(5, "A", stored)});
        while (list_.head != nullptr) remove_status_node(&list_, list_.head);
        merge_with({make_entry(5, "A", current)});
        EXPECT_TRUE(file_holds(log_path, "")) << stored << ' ' << current;
    }
    EXPECT_TRUE(platform.logged_nothing());
}

TEST_F(Merge, ComparesWithTheNewestMatchingRecord) {
    store({make_entry(5, "A", present)});
    merge_with({make_entry(5, "A", absent), make_entry(5, "A", present)});
    EXPECT_TRUE(file_holds(log_path, ""));
}

TEST_F(Merge, IgnoresUnknownRecordsFromTheFirstMatchOn) {
    store({make_entry(5, "NEW1"), make_entry(5, "KNOWN"), make_entry(5, "NEW2")});
    merge_with({make_entry(5, "KNOWN", absent)});
    EXPECT_EQ(serials(log_on_flash()), (Words{"NEW1", "KNOWN"}));
}

TEST_F(Merge, EndsTheNewPhaseAlsoAtAMatchWithoutAChange) {
    store({make_entry(5, "KNOWN"), make_entry(5, "NEW")});
    merge_with({make_entry(5, "KNOWN")});
    EXPECT_TRUE(file_holds(log_path, ""));
}

TEST_F(Merge, StillAppendsChangesBehindTheFirstMatch) {
    store({make_entry(5, "KNOWN"), make_entry(5, "GONE", absent)});
    merge_with({make_entry(5, "KNOWN"), make_entry(5, "GONE", present)});
    EXPECT_EQ(summary(log_on_flash()), (Words{"GONE 0"}));
}

TEST_F(Merge, ComparesTheSerialNumberWithoutItsCase) {
    store({make_entry(5, "abC", present)});
    merge_with({make_entry(5, "ABc", absent)});
    EXPECT_TRUE(platform.logged(info, line("Status Change", "abC")));
}

TEST_F(Merge, Compares25CharactersOfTheSerialNumber) {
    const std::string common(24, 'x');
    store({make_entry(5, common + "1", present), make_entry(5, common + "2", present)});
    merge_with({make_entry(5, common + "2", absent)});
    EXPECT_EQ(log_on_flash().size(), 2U);
    EXPECT_TRUE(platform.logged(info, line("New", (common + "1").c_str())));
    EXPECT_TRUE(platform.logged(info, line("Status Change", (common + "2").c_str())));
}

TEST_F(Merge, ComparesFourBytesOfThePartNumber) {
    ComponentVpdRecord same_start = make_entry(5, "A", present), other_start = make_entry(5, "A", present);
    set_text(same_start.part_number, "00FCZZZ");
    set_text(other_start.part_number, "00FX123");
    store({with_right_crc(other_start), with_right_crc(same_start)});
    merge_with({make_entry(5, "A", absent)});
    EXPECT_TRUE(platform.logged(info, line("New", "A")));
    EXPECT_TRUE(platform.logged(info, line("Status Change", "A")));
}

TEST_F(Merge, ComparesTheCaseOfThePartNumber) {
    ComponentVpdRecord record = make_entry(5, "A", present);
    set_text(record.part_number, "00fc123");
    store({with_right_crc(record)});
    merge_with({make_entry(5, "A", absent)});
    EXPECT_TRUE(platform.logged(info, line("New", "A")));
}

TEST_F(Merge, ComparesAllFourBytesOfAPartNumberThatEndsEarly) {
    ComponentVpdRecord record = make_entry(5, "A", present), current = make_entry(5, "A", absent);
    std::memcpy(record.part_number, "A\0BC", 5);
    std::memcpy(current.part_number, "A\0BD", 5);
    store({with_right_crc(record)});
    merge_with({current});
    EXPECT_TRUE(platform.logged(info, line("New", "A")));
}

TEST_F(Merge, PutsAWrongSumRight) {
    ComponentVpdRecord record = make_entry(5, "A");
    record.crc ^= 1U;
    store({record});
    merge_with({});
    EXPECT_EQ(platform.times_logged(error, "chghist db calc error, overwrite it\n"), 1U);
    ASSERT_EQ(log_on_flash().size(), 1U);
    EXPECT_TRUE(is_same_entry(log_on_flash()[0], make_entry(5, "A")));
}

TEST_F(Merge, SaysNothingOfARightSum) {
    store({make_entry(5, "A")});
    merge_with({});
    EXPECT_TRUE(platform.log(error).empty());
}

TEST_F(Merge, ReleasesTheArray) {
    store({make_entry(5, "A")});
    EXPECT_EQ(merge_with({}), 77);
    EXPECT_EQ(database().released, (std::vector<ComponentVpdRecord*>{database().handed_out}));
}

TEST_F(Merge, OnlyReleasesAnEmptyArray) {
    for (const int count : {0, -1, -100}) {
        store({make_entry(5, "A")});
        database().count = count;
        database().released.clear();
        EXPECT_EQ(merge_with({}), 77);
        EXPECT_EQ(database().released.size(), 1U) << count;
    }
    EXPECT_TRUE(file_holds(log_path, ""));
    EXPECT_TRUE(platform.logged_nothing());
}

TEST_F(Merge, CopesWithTextsThatFillTheirFields) {
    ComponentVpdRecord record = make_entry(5, "");
    std::memset(record.name, 'N', sizeof record.name);
    std::memset(record.serial_number, 'S', sizeof record.serial_number);
    std::memset(record.mfg_id, 'M', sizeof record.mfg_id);
    store({with_right_crc(record)});
    merge_with({with_right_crc(record)});
    EXPECT_TRUE(platform.logged_nothing());
    while (list_.head != nullptr) remove_status_node(&list_, list_.head);
    merge_with({});
    EXPECT_TRUE(platform.logged(info, formatted("[New] FRU_Name %s, MFG ID %s, SN %s\n", std::string(86, 'N').c_str(),
                                                std::string(31, 'M').c_str(), std::string(25, 'S').c_str())));
}
