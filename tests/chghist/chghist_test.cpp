// SPDX-License-Identifier: Apache-2.0
#include <dlfcn.h>
#include <gmock/gmock.h>
#include <sqlite3.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>
#include <ctime>
#include <set>
#include <thread>

#include "host/chghist/vpdd_chghist.h"
#include "host/open_server.h"
#include "platform/change_history.h"

namespace vpdd::test {
namespace {

using testing::IsEmpty;
using testing::SizeIs;

template <std::size_t Size>
void put(char (&field)[Size], const std::string& text) {
    field[text.copy(field, Size - 1)] = '\0';
}

ChangeHistoryRecord row(const std::string& name, const std::string& serial, int32_t status,
                        uint32_t time = 1700000000) {
    ChangeHistoryRecord row{};
    put(row.name, name);
    put(row.serial_number, serial);
    put(row.mfg_id, "Example Fans");
    put(row.part_number, "EXF-5760");
    put(row.board_extra, "REV 03");
    row.time = time;
    row.one = 1;
    row.status = status;
    row.entity_instance = 7;
    return row;
}

int insert(ChangeHistoryRecord row) { return insert_hw_log(&row); }

std::vector<VpddChange> changes() {
    std::vector<VpddChange> changes;
    const auto visit = [](void* context, const VpddChange* change) {
        static_cast<std::vector<VpddChange>*>(context)->push_back(*change);
        return 0;
    };
    EXPECT_EQ(vpdd_chghist_each_change(visit, &changes), 0);
    return changes;
}

std::vector<ComponentVpdRecord> components() {
    ComponentVpdRecord* records = nullptr;
    const int count = chghist_read_components(&records, nullptr);
    EXPECT_GE(count, 0);
    std::vector<ComponentVpdRecord> read(records, records + std::max(count, 0));
    EXPECT_EQ(chghist_release_components(records), 0);
    return read;
}

bool are_equal(const ChangeHistoryRecord& one, const ChangeHistoryRecord& other) {
    return std::memcmp(&one, &other, sizeof one) == 0;
}

class ChangeHistory : public testing::Test {
protected:
    ChangeHistory() { vpdd_chghist_use_directory(folder.c_str()); }

    TemporaryFolder folder;
};

TEST_F(ChangeHistory, KeepsEveryByteOfARow) {
    ChangeHistoryRecord whole{};
    auto* bytes = reinterpret_cast<uint8_t*>(&whole);
    for (std::size_t offset = 0; offset < sizeof whole; ++offset) bytes[offset] = static_cast<uint8_t>(offset * 7 + 1);

    ASSERT_EQ(insert(whole), 0);

    ASSERT_THAT(changes(), SizeIs(1));
    EXPECT_TRUE(are_equal(changes()[0].row, whole));
}

TEST_F(ChangeHistory, HasTheRowsInTheirOrderWithTheTimeOfStoring) {
    const int64_t before = time(nullptr);
    insert(row("Fan 1", "A", 1, 2000));
    insert(row("Fan 1", "A", 0, 1000));
    const int64_t after = time(nullptr);

    const std::vector<VpddChange> stored = changes();

    ASSERT_THAT(stored, SizeIs(2));
    EXPECT_EQ(stored[0].number, 1);
    EXPECT_EQ(stored[1].number, 2);
    EXPECT_EQ(stored[0].row.time, 2000U);
    EXPECT_EQ(stored[1].row.time, 1000U);
    EXPECT_GE(stored[0].recorded, before);
    EXPECT_LE(stored[1].recorded, after);
    EXPECT_EQ(stored[0].process, getpid());
}

TEST_F(ChangeHistory, HasColumnsForPeople) {
    insert(row("Fan 1", "FN1", 1));
    sqlite3* database = nullptr;
    ASSERT_EQ(sqlite3_open(folder.file("change_history.sqlite").c_str(), &database), SQLITE_OK);
    std::string line;
    const auto visit = [](void* context, int count, char** values, char**) {
        for (int column = 0; column < count; ++column)
            *static_cast<std::string*>(context) += std::string(values[column]) + '|';
        return 0;
    };

    sqlite3_exec(
        database,
        "SELECT time, status, name, serial_number, part_number, maker, board_extra, entity_instance, length(raw)"
        " FROM changes",
        visit, &line, nullptr);
    sqlite3_close(database);

    EXPECT_EQ(line, "1700000000|1|Fan 1|FN1|EXF-5760|Example Fans|REV 03|7|616|");
}

TEST_F(ChangeHistory, SurvivesItsProcess) {
    insert(row("Fan 1", "FN1", 1));
    vpdd_chghist_use_directory("/");  // closes the database
    vpdd_chghist_use_directory(folder.c_str());

    EXPECT_THAT(changes(), SizeIs(1));
}

TEST_F(ChangeHistory, RefusesANullRow) { EXPECT_EQ(insert_hw_log(nullptr), -1); }

TEST_F(ChangeHistory, EndsAWalkWhenTheVisitorSaysSo) {
    insert(row("Fan 1", "FN1", 1));
    insert(row("Fan 2", "FN2", 1));
    int visited = 0;

    const auto stop = [](void* context, const VpddChange*) { return ++*static_cast<int*>(context); };
    EXPECT_EQ(vpdd_chghist_each_change(stop, &visited), 0);

    EXPECT_EQ(visited, 1);
}

TEST_F(ChangeHistory, InAPlaceThatIsNoDatabaseFails) {
    folder.write("change_history.sqlite",
                 "This is no database, and it is longer than SQLite's header of 100 bytes. " + std::string(100, '-'));

    EXPECT_EQ(insert(row("Fan 1", "FN1", 1)), -1);
    EXPECT_EQ(vpdd_chghist_each_change([](void*, const VpddChange*) { return 0; }, nullptr), -1);
    ComponentVpdRecord* records = nullptr;
    EXPECT_EQ(chghist_read_components(&records, nullptr), -1);
    EXPECT_EQ(records, nullptr);
    EXPECT_EQ(vpdd_chghist_last_error(), folder.file("change_history.sqlite").string() + ": file is not a database");

    const TemporaryFolder other;
    vpdd_chghist_use_directory(other.c_str());
    EXPECT_EQ(insert(row("Fan 1", "FN1", 1)), 0);
    EXPECT_STREQ(vpdd_chghist_last_error(), "");
}

TEST_F(ChangeHistory, TakesRowsOfManyProcessesAtOnce) {
    constexpr int processes = 8, rows = 25;
    std::vector<pid_t> children;
    for (int process = 0; process < processes; ++process) {
        children.push_back(fork());
        if (children.back() != 0) continue;
        int failures = 0;
        for (int number = 0; number < rows; ++number) {
            failures += insert(row("Fan " + std::to_string(process), "S" + std::to_string(number), 1)) != 0;
        }
        _exit(failures);
    }
    for (const pid_t child : children) {
        int status = -1;
        waitpid(child, &status, 0);
        EXPECT_EQ(status, 0);
    }

    std::set<std::string> seen;
    int64_t number = 0;
    for (const VpddChange& change : changes()) {
        EXPECT_EQ(change.number, ++number);
        seen.insert(std::string(change.row.name) + change.row.serial_number);
    }
    EXPECT_THAT(seen, SizeIs(processes * rows));
    EXPECT_THAT(components(), SizeIs(processes * rows));
}

TEST_F(ChangeHistory, TakesRowsOfManyThreadsAtOnce) {
    constexpr int threads = 4, rows = 25;
    std::vector<std::thread> running;
    for (int thread = 0; thread < threads; ++thread) {
        running.emplace_back([thread] {
            for (int number = 0; number < rows; ++number) insert(row("Fan " + std::to_string(thread), "S", number % 2));
        });
    }
    for (std::thread& thread : running) thread.join();

    EXPECT_THAT(changes(), SizeIs(threads * rows));
    EXPECT_THAT(components(), SizeIs(threads));
}

TEST(ChangeHistoryPlace, IsTheDirectoryOfTheEnvironmentWhenNobodyNamesAnother) {
    const TemporaryFolder folder;
    setenv("VPDD_STATE_DIRECTORY", folder.c_str(), 1);

    insert(row("Fan 1", "FN1", 1));

    EXPECT_TRUE(std::filesystem::exists(folder.file("change_history.sqlite")));
}

TEST(ChangeHistoryPlace, IsMemoryWithoutADirectory) {
    unsetenv("VPDD_STATE_DIRECTORY");

    EXPECT_EQ(insert(row("Fan 1", "FN1", 1)), 0);

    EXPECT_THAT(changes(), SizeIs(1));
    EXPECT_FALSE(std::filesystem::exists("change_history.sqlite"));
}

TEST(ChangeHistoryPlace, IsTheStateDirectoryOfTheOpenServer) {
    const TemporaryFolder folder;
    VpddHostOptions options{};
    options.state_directory = folder.c_str();
    const OpenServer server(server_text(""), options);

    insert(row("Fan 1", "FN1", 1));

    EXPECT_TRUE(std::filesystem::exists(folder.file("change_history.sqlite")));
}

TEST_F(ChangeHistory, HasTheNewestStateOfEachNameAndSerialNumber) {
    insert(row("Fan 1", "A", 1, 1000));
    insert(row("Fan 1", "A", 0, 2000));
    insert(row("Fan 1", "B", 1, 2000));
    insert(row("Fan 2", "A", 255, 3000));

    const std::vector<ComponentVpdRecord> read = components();

    ASSERT_THAT(read, SizeIs(3));
    EXPECT_STREQ(read[0].name, "Fan 1");
    EXPECT_STREQ(read[0].serial_number, "A");
    EXPECT_EQ(read[0].status, 0);
    EXPECT_EQ(read[0].timestamp, 2000);
    EXPECT_STREQ(read[1].serial_number, "B");
    EXPECT_EQ(read[1].status, 1);
    EXPECT_STREQ(read[2].name, "Fan 2");
    EXPECT_EQ(read[2].status, 255);
}

TEST_F(ChangeHistory, HasComponentsWithTheirFieldsAndTheRightChecksum) {
    constexpr uint32_t checked_length = 680;
    insert(row("Fan 1", "FN1", 1));

    const ComponentVpdRecord read = components().at(0);

    EXPECT_STREQ(read.mfg_id, "Example Fans");
    EXPECT_STREQ(read.part_number, "EXF-5760");
    EXPECT_STREQ(read.board_extra, "REV 03");
    EXPECT_EQ(read.entity_instance, 7);
    EXPECT_EQ(read.entity_id, 0);
    EXPECT_EQ(read.ppin_dump, 0U);
    EXPECT_EQ(read.crc, calc_crc(reinterpret_cast<const uint8_t*>(&read), checked_length));
}

TEST_F(ChangeHistory, KnowsAProcessorByItsWords) {
    ChangeHistoryRecord processor = row("CPU 1", "EC1", 1);
    std::memcpy(processor.cpu_words, "123456789\0EC", sizeof processor.cpu_words);
    insert(processor);

    const ComponentVpdRecord read = components().at(0);

    EXPECT_EQ(read.entity_id, 3);
    EXPECT_STREQ(read.ppin, "123456789");
    EXPECT_STREQ(read.serial_number, "EC1");
}

TEST_F(ChangeHistory, CutsTextsThatAComponentHasNoRoomFor) {
    insert(row(std::string(63, 'N'), std::string(63, 'S'), 1));

    EXPECT_EQ(components().at(0).serial_number, std::string(24, 'S'));
}

TEST_F(ChangeHistory, HasNoComponentsAtFirst) { EXPECT_THAT(components(), IsEmpty()); }

std::string pci_row(int table, std::size_t size, const std::string& hex_byte) {
    std::string digits;
    for (std::size_t byte = 0; byte < size; ++byte) digits += hex_byte;
    return "(" + std::to_string(table) + ", x'" + digits + "')";
}

TEST_F(ChangeHistory, ServesTheWholePciRecordsOfATable) {
    constexpr int asked = 86564, other = 1;
    constexpr std::size_t size = 158;
    EXPECT_THAT(changes(), IsEmpty());
    sqlite3* database = nullptr;
    sqlite3_open(folder.file("change_history.sqlite").c_str(), &database);
    const std::string sql = "INSERT INTO pci(table_code, record) VALUES" + pci_row(asked, size, "41") + "," +
                            pci_row(other, size, "42") + "," + pci_row(asked, size - 1, "43") + "," +
                            pci_row(asked, size, "44");
    EXPECT_EQ(sqlite3_exec(database, sql.c_str(), nullptr, nullptr, nullptr), SQLITE_OK);
    sqlite3_close(database);
    PciList* list = nullptr;

    ASSERT_EQ(access_pci_log(51, &list), 0);

    const std::string first(list->head->record, list->head->record + size);
    const std::string second(list->tail->record, list->tail->record + size);
    EXPECT_EQ(first, std::string(size, 'A'));
    EXPECT_EQ(second, std::string(size, 'D'));
    EXPECT_EQ(list->head->next, list->tail);
    access_pci_log(53, &list);
}

TEST(ChangeHistoryLibrary, ShowsOnlyWhatIsAskedOfIt) {
    void* const handle = dlopen("liborvadb_chghist.so", RTLD_LAZY | RTLD_NOLOAD);
    ASSERT_NE(handle, nullptr);
    Dl_info home{};
    ASSERT_NE(dladdr(dlsym(handle, "insert_hw_log"), &home), 0);
    Dl_info checksum{};
    void* const calc = dlsym(RTLD_DEFAULT, "calc_crc");
    ASSERT_NE(dladdr(calc, &checksum), 0);

    EXPECT_STRNE(home.dli_fname, checksum.dli_fname) << "the library's own function stays its own";
    dlclose(handle);
}

}  // namespace
}  // namespace vpdd::test
