// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <cstdlib>
#include <vector>

#include "failing_allocator.h"
#include "orva_vpdd.h"

namespace {

using Nodes = std::vector<ComponentVpdNode*>;

ComponentVpdNode* new_node() { return static_cast<ComponentVpdNode*>(std::calloc(1, sizeof(ComponentVpdNode))); }

class ComponentListTest : public testing::Test {
protected:
    ~ComponentListTest() override {
        while (list.head != nullptr) remove_vpd_node(&list, list.head);
    }

    ComponentVpdNode* appended() {
        ComponentVpdNode* node = new_node();
        insert_vpd_node_last(&list, node);
        return node;
    }

    Nodes forwards() const {
        Nodes nodes;
        for (auto* node = list.head; node != nullptr; node = node->next) nodes.push_back(node);
        return nodes;
    }
    Nodes backwards() const {
        Nodes nodes;
        for (auto* node = list.tail; node != nullptr; node = node->prev) nodes.insert(nodes.begin(), node);
        return nodes;
    }
    void expect(const Nodes& nodes) const {
        EXPECT_EQ(forwards(), nodes);
        EXPECT_EQ(backwards(), nodes);
    }

    ComponentVpdList list{};
};

TEST_F(ComponentListTest, AppendingToAnEmptyListMakesTheNodeItsOnlyElement) {
    ComponentVpdNode* node = new_node();
    node->prev = node->next = node;  // whatever was there is overwritten

    EXPECT_EQ(insert_vpd_node_last(&list, node), nullptr);

    EXPECT_EQ(list.head, node);
    EXPECT_EQ(list.tail, node);
    EXPECT_EQ(node->prev, nullptr);
    EXPECT_EQ(node->next, nullptr);
}

TEST_F(ComponentListTest, AppendingBehindATailReturnsTheList) {
    ComponentVpdNode* first = appended();
    ComponentVpdNode* second = new_node();

    EXPECT_EQ(insert_vpd_node_last(&list, second), &list);

    expect({first, second});
}

TEST_F(ComponentListTest, AppendingToAListWithoutATailStartsItAnew) {
    ComponentVpdNode* orphan = new_node();
    ComponentVpdNode* node = new_node();
    list.head = orphan;

    EXPECT_EQ(insert_vpd_node_last(&list, node), nullptr);

    expect({node});
    std::free(orphan);
}

TEST_F(ComponentListTest, InsertsBehindTheTailAndMovesIt) {
    ComponentVpdNode* first = appended();
    ComponentVpdNode* second = new_node();

    EXPECT_EQ(insert_vpd_node_back(&list, first, second), &list);

    expect({first, second});
}

TEST_F(ComponentListTest, InsertsBehindANodeInTheMiddle) {
    ComponentVpdNode* first = appended();
    ComponentVpdNode* third = appended();
    ComponentVpdNode* second = new_node();

    EXPECT_EQ(insert_vpd_node_back(&list, first, second), &list);

    expect({first, second, third});
}

TEST_F(ComponentListTest, InsertsBeforeTheHeadAndMovesIt) {
    ComponentVpdNode* second = appended();
    ComponentVpdNode* first = new_node();

    insert_vpd_node(&list, second, first);

    expect({first, second});
}

TEST_F(ComponentListTest, InsertsBeforeANodeInTheMiddle) {
    ComponentVpdNode* first = appended();
    ComponentVpdNode* third = appended();
    ComponentVpdNode* second = new_node();

    insert_vpd_node(&list, third, second);

    expect({first, second, third});
}

TEST_F(ComponentListTest, RemovesTheHeadTheMiddleAndTheTail) {
    ComponentVpdNode* first = appended();
    ComponentVpdNode* second = appended();
    ComponentVpdNode* third = appended();
    ComponentVpdNode* fourth = appended();

    remove_vpd_node(&list, second);
    expect({first, third, fourth});
    remove_vpd_node(&list, first);
    expect({third, fourth});
    remove_vpd_node(&list, fourth);
    expect({third});
}

TEST_F(ComponentListTest, RemovingTheOnlyNodeEmptiesTheList) {
    remove_vpd_node(&list, appended());

    EXPECT_EQ(list.head, nullptr);
    EXPECT_EQ(list.tail, nullptr);
}

TEST_F(ComponentListTest, RemovingANodeFreesItAndAPpinDumpThatWasNotTaken) {
    const vpdd::test::AllocationWatch watch;
    ComponentVpdNode* node = appended();
    const uint8_t image[16] = {};
    ASSERT_EQ(get_ppin_hexdump(&node->record, image + 12), 0);
    ASSERT_NE(node->record.ppin_dump, 0U);

    remove_vpd_node(&list, node);

    EXPECT_EQ(watch.live_blocks(), 0U);
    // The node itself is the test's allocation: a leak checker sees that it was freed.
}

TEST_F(ComponentListTest, InsertingWithANullNodeChangesNothingAndReturnsTheList) {
    ComponentVpdNode* node = appended();

    EXPECT_EQ(insert_vpd_node_back(&list, nullptr, node), &list);
    EXPECT_EQ(insert_vpd_node_back(&list, node, nullptr), &list);
    EXPECT_EQ(insert_vpd_node_last(&list, nullptr), &list);
    insert_vpd_node(&list, nullptr, node);
    insert_vpd_node(&list, node, nullptr);
    remove_vpd_node(&list, nullptr);

    expect({node});
}

TEST_F(ComponentListTest, InsertingIntoNoListChangesNothingAndReturnsNull) {
    ComponentVpdNode* first = appended();
    ComponentVpdNode* second = appended();
    ComponentVpdNode* lone = new_node();

    EXPECT_EQ(insert_vpd_node_back(nullptr, first, lone), nullptr);
    EXPECT_EQ(insert_vpd_node_last(nullptr, lone), nullptr);
    insert_vpd_node(nullptr, second, lone);
    remove_vpd_node(nullptr, first);

    expect({first, second});
    EXPECT_EQ(lone->prev, nullptr);
    EXPECT_EQ(lone->next, nullptr);
    std::free(lone);
}

}  // namespace
