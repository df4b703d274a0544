// Tests of intrusive lists: order after pushes, deletes at head, middle and
// tail keep `tail` and the order right, pop to empty, NULL arguments.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "zlst.h"

namespace {

struct item {
    struct znode node;
    int value;
};

// The values from head to end, checking links and the tail field on the way.
std::string walk(zhead_t head)
{
    std::string out;
    struct znode *prev = nullptr;
    for (struct znode *n = head; n; n = n->next) {
        EXPECT_EQ(n->prev, prev);
        EXPECT_EQ(n->tail == nullptr, n != head) << "tail kept only on the first node";
        out += std::to_string(reinterpret_cast<item *>(n)->value);
        prev = n;
    }
    if (head) {
        EXPECT_EQ(head->tail, prev) << "tail of the first node is the last node";
    }
    return out;
}

TEST(Zlst, PushKeepsOrder)
{
    item it[5] = {};
    zhead_t head = nullptr;
    for (int i = 0; i < 5; ++i) {
        it[i].value = i;
        ASSERT_EQ(zlst_push(&head, &it[i]), 0);
    }
    EXPECT_EQ(walk(head), "01234");
}

TEST(Zlst, DeleteAtEveryPositionKeepsTailAndOrder)
{
    struct { int victim; const char *want; } rows[] = {
        {0, "1234"}, {2, "0134"}, {4, "0123"}, {3, "0124"}, {1, "0234"}};
    for (const auto &r : rows) {
        item it[5] = {};
        zhead_t head = nullptr;
        for (int i = 0; i < 5; ++i) {
            it[i].value = i;
            zlst_push(&head, &it[i]);
        }
        ASSERT_EQ(zlst_delete(&head, &it[r.victim]), 0);
        EXPECT_EQ(walk(head), r.want) << "delete " << r.victim;
        EXPECT_EQ(it[r.victim].node.next, nullptr);
        EXPECT_EQ(it[r.victim].node.prev, nullptr);
        item extra = {};
        extra.value = 9;
        zlst_push(&head, &extra);   // the tail must still be right for the next push
        EXPECT_EQ(walk(head), std::string(r.want) + "9") << "delete " << r.victim;
    }
}

TEST(Zlst, DeleteEverythingLeavesEmptyHeadAndReuseWorks)
{
    item it[3] = {};
    zhead_t head = nullptr;
    for (int i = 0; i < 3; ++i) {
        it[i].value = i;
        zlst_push(&head, &it[i]);
    }
    EXPECT_EQ(zlst_delete(&head, &it[2]), 0);
    EXPECT_EQ(zlst_delete(&head, &it[0]), 0);
    EXPECT_EQ(walk(head), "1");
    EXPECT_EQ(zlst_delete(&head, &it[1]), 0);
    EXPECT_EQ(head, nullptr);
    EXPECT_EQ(zlst_delete(&head, &it[1]), -1);
    zlst_push(&head, &it[2]);
    zlst_push(&head, &it[0]);
    EXPECT_EQ(walk(head), "20");
}

TEST(Zlst, DeleteOfNodeNotOnListIsRefused)
{
    item a = {}, b = {}, stranger = {};
    zhead_t head = nullptr;
    zlst_push(&head, &a);
    zlst_push(&head, &b);
    EXPECT_EQ(zlst_delete(&head, &stranger), -1);
    EXPECT_EQ(walk(head), "00");
}

TEST(Zlst, PopTakesFirstUntilEmpty)
{
    item it[4] = {};
    zhead_t head = nullptr;
    for (int i = 0; i < 4; ++i) {
        it[i].value = i;
        zlst_push(&head, &it[i]);
    }
    for (int i = 0; i < 4; ++i) {
        EXPECT_EQ(zlst_pop(&head), &it[i]);
        walk(head);
    }
    EXPECT_EQ(head, nullptr);
    EXPECT_EQ(zlst_pop(&head), nullptr);
}

TEST(Zlst, NameIsKeptAndNullsAreRefused)
{
    item a = {};
    static const char kName[] = "wifi_ap";
    EXPECT_EQ(zlst_set_name(&a, kName), 0);
    zhead_t head = nullptr;
    zlst_push(&head, &a);
    EXPECT_EQ(head->name, kName);
    EXPECT_EQ(zlst_set_name(nullptr, kName), -1);
    EXPECT_EQ(zlst_push(nullptr, &a), -1);
    EXPECT_EQ(zlst_push(&head, nullptr), -1);
    EXPECT_EQ(zlst_delete(nullptr, &a), -1);
    EXPECT_EQ(zlst_delete(&head, nullptr), -1);
    EXPECT_EQ(zlst_pop(nullptr), nullptr);
    EXPECT_EQ(walk(head), "0");
}

}  // namespace
