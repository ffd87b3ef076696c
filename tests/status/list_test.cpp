// SPDX-License-Identifier: Apache-2.0
#include <cstdlib>

#include "log_world.h"

using namespace vpdd::test;

namespace {

StatusNode* new_node(const char* serial) {
    auto* const node = static_cast<StatusNode*>(std::calloc(1, sizeof(StatusNode)));
    node->entry = make_entry(1, serial);
    return node;
}

std::vector<std::string> forwards(const StatusList& list) {
    std::vector<std::string> found;
    for (const StatusNode* node = list.head; node != nullptr; node = node->next)
        found.push_back(serial_of(node->entry));
    return found;
}

std::vector<std::string> backwards(const StatusList& list) {
    std::vector<std::string> found;
    for (const StatusNode* node = list.tail; node != nullptr; node = node->prev)
        found.push_back(serial_of(node->entry));
    return found;
}

using Order = std::vector<std::string>;

/// "A", "B", "C".
class StatusListTest : public testing::Test {
protected:
    void SetUp() override {
        for (StatusNode* node : {a, b, c}) insert_status_node_last(&list, node);
    }

    StatusNode* a = new_node("A");
    StatusNode* b = new_node("B");
    StatusNode* c = new_node("C");
    List list;
};

}  // namespace

TEST(StatusList, TakesTheFirstNodeAsHeadAndTailWithoutLinks) {
    List list;
    StatusNode* const node = new_node("A");
    node->prev = node->next = node;
    EXPECT_EQ(insert_status_node_last(&list, node), nullptr);
    EXPECT_EQ(list.head, node);
    EXPECT_EQ(list.tail, node);
    EXPECT_EQ(node->prev, nullptr);
    EXPECT_EQ(node->next, nullptr);
}

TEST_F(StatusListTest, AppendsAtTheTail) {
    StatusNode* const node = new_node("D");
    EXPECT_EQ(insert_status_node_last(&list, node), &list);
    EXPECT_EQ(forwards(list), (Order{"A", "B", "C", "D"}));
    EXPECT_EQ(backwards(list), (Order{"D", "C", "B", "A"}));
}

TEST_F(StatusListTest, InsertsBehindANodeInTheMiddle) {
    insert_status_node_back(&list, a, new_node("D"));
    EXPECT_EQ(forwards(list), (Order{"A", "D", "B", "C"}));
    EXPECT_EQ(backwards(list), (Order{"C", "B", "D", "A"}));
}

TEST_F(StatusListTest, InsertsBehindTheTail) {
    insert_status_node_back(&list, c, new_node("D"));
    EXPECT_EQ(forwards(list), (Order{"A", "B", "C", "D"}));
    EXPECT_EQ(backwards(list), (Order{"D", "C", "B", "A"}));
}

TEST_F(StatusListTest, InsertsBeforeANodeInTheMiddle) {
    insert_status_node(&list, c, new_node("D"));
    EXPECT_EQ(forwards(list), (Order{"A", "B", "D", "C"}));
    EXPECT_EQ(backwards(list), (Order{"C", "D", "B", "A"}));
}

TEST_F(StatusListTest, InsertsBeforeTheHead) {
    insert_status_node(&list, a, new_node("D"));
    EXPECT_EQ(forwards(list), (Order{"D", "A", "B", "C"}));
    EXPECT_EQ(backwards(list), (Order{"C", "B", "A", "D"}));
}

TEST_F(StatusListTest, RemovesTheHead) {
    remove_status_node(&list, a);
    EXPECT_EQ(forwards(list), (Order{"B", "C"}));
    EXPECT_EQ(backwards(list), (Order{"C", "B"}));
}

TEST_F(StatusListTest, RemovesFromTheMiddle) {
    remove_status_node(&list, b);
    EXPECT_EQ(forwards(list), (Order{"A", "C"}));
    EXPECT_EQ(backwards(list), (Order{"C", "A"}));
}

TEST_F(StatusListTest, RemovesTheTail) {
    remove_status_node(&list, c);
    EXPECT_EQ(forwards(list), (Order{"A", "B"}));
    EXPECT_EQ(backwards(list), (Order{"B", "A"}));
}

TEST_F(StatusListTest, IsEmptyWithoutItsLastNode) {
    for (StatusNode* node : {b, a, c}) remove_status_node(&list, node);
    EXPECT_EQ(list.head, nullptr);
    EXPECT_EQ(list.tail, nullptr);
}

TEST_F(StatusListTest, IsLeftAloneWithoutANode) {
    insert_status_node_last(&list, nullptr);
    insert_status_node_back(&list, a, nullptr);
    insert_status_node(&list, a, nullptr);
    remove_status_node(&list, nullptr);
    EXPECT_EQ(forwards(list), (Order{"A", "B", "C"}));
}

TEST_F(StatusListTest, IsLeftAloneWithoutAPosition) {
    StatusNode node{};
    insert_status_node_back(&list, nullptr, &node);
    insert_status_node(&list, nullptr, &node);
    EXPECT_EQ(forwards(list), (Order{"A", "B", "C"}));
    EXPECT_EQ(node.prev, nullptr);
    EXPECT_EQ(node.next, nullptr);
}

TEST_F(StatusListTest, NeedsAList) {
    StatusNode node{};
    insert_status_node_last(nullptr, &node);
    insert_status_node_back(nullptr, a, &node);
    insert_status_node(nullptr, a, &node);
    remove_status_node(nullptr, a);
    EXPECT_EQ(forwards(list), (Order{"A", "B", "C"}));
    EXPECT_EQ(node.prev, nullptr);
    EXPECT_EQ(node.next, nullptr);
}
