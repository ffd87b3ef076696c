// SPDX-License-Identifier: Apache-2.0
// The PCI log over a change-history database that this program plays.
#include <cstdlib>
#include <cstring>

#include "failing_allocator.h"
#include "fake_platform.h"
#include "platform/change_history.h"

using namespace vpdd::test;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

namespace {

constexpr std::size_t record_size = 158;
constexpr int read_code = 51, reserved_code = 52, free_code = 53, clean_code = 54;

/// The database's answer and what it was asked for.
struct Database {
    Bytes records;
    int count = 0;
    uint32_t table_code = 0, reserved = 77;
    int reads = 0;
    const uint8_t* handed_out = nullptr;
    std::vector<const uint8_t*> released;
    std::string printed_before_release;
    const CaptureStdout* output = nullptr;
};

Database database;

Bytes record(uint8_t number) {
    Bytes bytes(record_size);
    for (std::size_t i = 0; i < record_size; ++i) bytes[i] = static_cast<uint8_t>(number * 31 + i);
    return bytes;
}

/// The records 1 to `count`.
void fill_database(int count) {
    database = {};
    database.count = count;
    for (int i = 1; i <= count; ++i) {
        const Bytes bytes = record(static_cast<uint8_t>(i));
        database.records.insert(database.records.end(), bytes.begin(), bytes.end());
    }
}

std::vector<Bytes> records_of(const PciList* list) {
    std::vector<Bytes> records;
    for (const PciNode* node = list->head; node != nullptr; node = node->next) {
        records.emplace_back(std::begin(node->record), std::end(node->record));
    }
    return records;
}

class PciLogTest : public PlatformTest {
protected:
    void SetUp() override { fill_database(0); }
    ~PciLogTest() override {
        const CaptureStdout silence;
        access_pci_log(free_code, &handle);
    }

    template <class Operation>
    int run(const Operation& operation) {
        const CaptureStdout output;
        database.output = &output;
        const int result = operation();
        database.output = nullptr;
        printed = output.text();
        return result;
    }
    int access(int code) {
        return run([&] { return access_pci_log(code, &handle); });
    }
    static std::string line(const char* what, const void* address) {
        return formatted("--> vpdd:access_pci_log - %s log buffer %p\n", what, address);
    }

    PciList* handle = nullptr;
    std::string printed;
};

}  // namespace

extern "C" int chghist_read_pci(uint8_t** records, uint32_t table_code, uint32_t reserved) {
    ++database.reads;
    database.table_code = table_code;
    database.reserved = reserved;
    *records = nullptr;
    if (!database.records.empty()) {
        *records = static_cast<uint8_t*>(std::malloc(database.records.size()));
        std::memcpy(*records, database.records.data(), database.records.size());
    }
    database.handed_out = *records;
    return database.count;
}

extern "C" int chghist_release_pci(uint8_t* records) {
    database.released.push_back(records);
    if (database.output != nullptr) database.printed_before_release = database.output->text();
    std::free(records);
    return 0;
}

namespace {

TEST_F(PciLogTest, Code51BuildsAListOfTheRecordsInTheirOrder) {
    fill_database(3);

    EXPECT_EQ(access(read_code), 0);

    ASSERT_NE(handle, nullptr);
    EXPECT_THAT(records_of(handle), ElementsAre(record(1), record(2), record(3)));
    EXPECT_EQ(Bytes(std::begin(handle->tail->record), std::end(handle->tail->record)), record(3));
    EXPECT_EQ(handle->head->prev, nullptr);
    EXPECT_EQ(handle->tail->prev->prev, handle->head);
    EXPECT_EQ(printed, line("Created", handle));
}

TEST_F(PciLogTest, Code51AsksForThePciTable) {
    fill_database(1);
    access(read_code);

    EXPECT_EQ(database.reads, 1);
    EXPECT_EQ(database.table_code, 86564U);
    EXPECT_EQ(database.reserved, 0U);
}

TEST_F(PciLogTest, Code51ReleasesTheArrayBehindItsMessage) {
    fill_database(2);
    access(read_code);

    EXPECT_THAT(database.released, ElementsAre(database.handed_out));
    EXPECT_EQ(database.printed_before_release, line("Created", handle));
}

TEST_F(PciLogTest, Code51ReleasesTheArrayAndFailsWithoutRecords) {
    for (const int count : {0, -1, INT32_MIN}) {
        fill_database(1);
        database.count = count;

        EXPECT_EQ(access(read_code), -1) << count;

        EXPECT_THAT(database.released, ElementsAre(database.handed_out)) << count;
        EXPECT_EQ(handle, nullptr);
        EXPECT_EQ(printed, "");
    }
}

TEST_F(PciLogTest, Code51FailsOnACountWithoutAnArray) {
    database.count = 3;

    EXPECT_EQ(access(read_code), -1);

    EXPECT_EQ(handle, nullptr);
}

TEST_F(PciLogTest, Code51NeedsAPlaceForTheHandle) {
    fill_database(1);

    EXPECT_EQ(access_pci_log(read_code, nullptr), -1);

    EXPECT_EQ(database.released.size(), static_cast<std::size_t>(database.reads)) << "nothing is left unreleased";
}

TEST_F(PciLogTest, Code51FailsWithoutMemoryForTheHeaderAndReleasesTheArray) {
    if (!allocator_can_fail) GTEST_SKIP() << "the sanitizer's allocator is in the way";
    fill_database(2);
    const AllocationWatch failing(1);

    EXPECT_EQ(access(read_code), -1);

    EXPECT_EQ(handle, nullptr);
    EXPECT_EQ(printed, "");
    EXPECT_THAT(database.released, ElementsAre(database.handed_out));
}

TEST_F(PciLogTest, Code51StopsAtTheFirstNodeForWhichThereIsNoMemory) {
    if (!allocator_can_fail) GTEST_SKIP() << "the sanitizer's allocator is in the way";
    fill_database(5);
    constexpr std::size_t header = 1;
    const AllocationWatch failing(header + 3);

    EXPECT_EQ(access(read_code), 0);

    ASSERT_NE(handle, nullptr);
    EXPECT_THAT(records_of(handle), ElementsAre(record(1), record(2)));
    EXPECT_EQ(failing.allocations(), header + 3);
    EXPECT_THAT(database.released, SizeIs(1));
}

TEST_F(PciLogTest, Code52DoesNothing) {
    fill_database(1);

    EXPECT_EQ(access(reserved_code), 0);
    EXPECT_EQ(access_pci_log(reserved_code, nullptr), 0);

    EXPECT_EQ(handle, nullptr);
    EXPECT_EQ(printed, "");
    EXPECT_EQ(database.reads, 0);
}

TEST_F(PciLogTest, Code53FreesTheListAndClearsTheHandle) {
    fill_database(3);
    const AllocationWatch watch;
    access(read_code);
    const PciList* const list = handle;
    ASSERT_EQ(watch.live_blocks(), allocator_can_fail ? 4U : 0U) << "header and nodes";

    EXPECT_EQ(access(free_code), 0);

    EXPECT_EQ(handle, nullptr);
    EXPECT_EQ(watch.live_blocks(), 0U);
    EXPECT_EQ(printed, line("Delete", list));
}

TEST_F(PciLogTest, Code53RefusesANullHandleAndAPointerToOne) {
    EXPECT_EQ(access(free_code), -1);
    EXPECT_EQ(access_pci_log(free_code, nullptr), -1);
    EXPECT_EQ(printed, "");
}

TEST_F(PciLogTest, RefusesOtherCodesCleaningIncluded) {
    fill_database(1);
    for (const int code : {clean_code, 55, 50, 0, -1}) EXPECT_EQ(access(code), -2) << code;

    EXPECT_EQ(database.reads, 0);
    EXPECT_EQ(printed, "");
}

TEST_F(PciLogTest, ClientsCannotReadIt) {
    fill_database(3);
    PciList list{};
    PciList* out = &list;

    EXPECT_EQ(run([&] { return vpdd_pci_readlog(&out); }), -1);

    EXPECT_EQ(out, nullptr);
    EXPECT_EQ(database.reads, 0);
    EXPECT_EQ(printed, "");
    EXPECT_EQ(vpdd_pci_readlog(nullptr), -1);
}

TEST_F(PciLogTest, ClientsFreeWhatTheyHave) {
    fill_database(2);
    const AllocationWatch watch;
    access(read_code);
    const PciList* const list = handle;

    EXPECT_EQ(run([&] { return vpdd_pci_freelog(&handle); }), 0);

    EXPECT_EQ(handle, nullptr);
    EXPECT_EQ(watch.live_blocks(), 0U);
    EXPECT_EQ(printed, line("Delete", list));
}

TEST_F(PciLogTest, ClientsFreeNoNullHandle) {
    EXPECT_EQ(run([&] { return vpdd_pci_freelog(&handle); }), -1);
    EXPECT_EQ(run([] { return vpdd_pci_freelog(nullptr); }), -1);

    EXPECT_EQ(printed, "");
}

// ---- the list

class PciListTest : public testing::Test {
protected:
    PciListTest() {
        for (PciNode* node : {a, b, c}) insert_pci_node_last(&list, node);
    }
    ~PciListTest() override {
        while (list.head != nullptr) remove_pci_node(&list, list.head);
    }
    static PciNode* node(char name) {
        auto* const made = static_cast<PciNode*>(std::calloc(1, sizeof(PciNode)));
        made->record[0] = static_cast<uint8_t>(name);
        return made;
    }
    /// The names forwards, then backwards.
    std::string order() const {
        std::string names;
        for (const PciNode* node = list.head; node != nullptr; node = node->next)
            names += static_cast<char>(node->record[0]);
        names += ' ';
        for (const PciNode* node = list.tail; node != nullptr; node = node->prev)
            names += static_cast<char>(node->record[0]);
        return names;
    }

    PciList list{};
    PciNode* a = node('a');
    PciNode* b = node('b');
    PciNode* c = node('c');
};

TEST_F(PciListTest, AppendsAtTheTail) {
    EXPECT_EQ(insert_pci_node_last(&list, node('d')), &list);
    EXPECT_EQ(order(), "abcd dcba");
}

TEST_F(PciListTest, TakesTheFirstNodeWithNullForAResult) {
    PciList empty{};
    PciNode* const only = node('x');
    EXPECT_EQ(insert_pci_node_last(&empty, only), nullptr);
    EXPECT_EQ(empty.head, only);
    EXPECT_EQ(empty.tail, only);
    remove_pci_node(&empty, only);
    EXPECT_EQ(empty.head, nullptr);
    EXPECT_EQ(empty.tail, nullptr);
}

TEST_F(PciListTest, InsertsBehindANode) {
    EXPECT_EQ(insert_pci_node_back(&list, a, node('x')), &list);
    EXPECT_EQ(order(), "axbc cbxa");
    insert_pci_node_back(&list, c, node('y'));
    EXPECT_EQ(order(), "axbcy ycbxa");
}

TEST_F(PciListTest, InsertsBeforeANode) {
    insert_pci_node(&list, a, node('x'));
    insert_pci_node(&list, c, node('y'));
    EXPECT_EQ(order(), "xabyc cybax");
}

TEST_F(PciListTest, RemovesAnyNode) {
    remove_pci_node(&list, b);
    EXPECT_EQ(order(), "ac ca");
    remove_pci_node(&list, a);
    EXPECT_EQ(order(), "c c");
}

TEST_F(PciListTest, LeavesTheListAloneWithoutAnArgument) {
    EXPECT_EQ(insert_pci_node_last(&list, nullptr), &list);
    EXPECT_EQ(insert_pci_node_last(nullptr, a), nullptr);
    EXPECT_EQ(insert_pci_node_back(&list, nullptr, a), &list);
    EXPECT_EQ(insert_pci_node_back(&list, a, nullptr), &list);
    EXPECT_EQ(insert_pci_node_back(nullptr, a, b), nullptr);
    insert_pci_node(&list, nullptr, a);
    insert_pci_node(&list, a, nullptr);
    insert_pci_node(nullptr, a, b);
    remove_pci_node(&list, nullptr);
    remove_pci_node(nullptr, a);

    EXPECT_EQ(order(), "abc cba");
}

}  // namespace
