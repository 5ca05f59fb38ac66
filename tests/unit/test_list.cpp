#include "list.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

struct item {
    struct list link; /* first member: the element's address is its link's */
    int value;
};

std::vector<int> values_of(const struct list *head) {
    std::vector<int> values;
    for (const struct list *p = head->next; p != head; p = p->next)
        values.push_back(reinterpret_cast<const item *>(p)->value);
    return values;
}

std::vector<int> drain(struct list *head) {
    std::vector<int> values;
    for (struct list *p = list_remove_head(head); p != head; p = list_remove_head(head))
        values.push_back(reinterpret_cast<item *>(p)->value);
    return values;
}

TEST(List, RemoveHeadOfEmptyListReturnsHeadUnchanged) {
    struct list head;
    list_init(&head);
    EXPECT_EQ(list_remove_head(&head), &head);
    EXPECT_EQ(head.next, &head);
    EXPECT_EQ(head.prev, &head);
    EXPECT_TRUE(list_empty(&head));
}

TEST(List, TailAddsLeaveInArrivalOrderFrontAddsInReverse) {
    struct list head;
    list_init(&head);
    item items[4] = {{{}, 1}, {{}, 2}, {{}, 3}, {{}, 4}};
    list_add_tail(&items[1].link, &head);
    list_add_tail(&items[2].link, &head);
    list_add(&items[0].link, &head);
    list_add_tail(&items[3].link, &head);
    EXPECT_EQ(drain(&head), (std::vector<int>{1, 2, 3, 4}));
    EXPECT_TRUE(list_empty(&head));
}

TEST(List, ReplaceMovesAllElementsOrEmptiesReplacement) {
    struct list orig, repl;
    list_init(&orig);
    repl.next = repl.prev = nullptr; /* garbage links must not matter */
    list_replace(&orig, &repl);
    EXPECT_TRUE(list_empty(&repl));
    EXPECT_EQ(repl.prev, &repl);

    item items[3] = {{{}, 7}, {{}, 8}, {{}, 9}};
    for (auto &it : items)
        list_add_tail(&it.link, &orig);
    list_replace(&orig, &repl);
    EXPECT_EQ(values_of(&repl), (std::vector<int>{7, 8, 9}));
    EXPECT_TRUE(list_empty(&orig));
    EXPECT_EQ(drain(&repl), (std::vector<int>{7, 8, 9}));
}

TEST(List, DelInitLeavesElementAnEmptyHeadDelKeepsOldLinks) {
    struct list head;
    list_init(&head);
    item a{{}, 1}, b{{}, 2}, c{{}, 3};
    list_add_tail(&a.link, &head);
    list_add_tail(&b.link, &head);
    list_add_tail(&c.link, &head);

    list_del_init(&b.link);
    EXPECT_TRUE(list_empty(&b.link));
    EXPECT_EQ(values_of(&head), (std::vector<int>{1, 3}));

    list_del(&a.link);
    EXPECT_EQ(a.link.next, &c.link); /* still points at its former neighbours */
    EXPECT_EQ(a.link.prev, &head);
    EXPECT_EQ(values_of(&head), (std::vector<int>{3}));
}

TEST(ListDeathTest, CorruptHeadStopsWithAssertion) {
    struct list head;
    list_init(&head);
    item a{{}, 1};
    list_add_tail(&a.link, &head);
    a.link.next = &a.link; /* head->prev->next no longer leads back to head */
    EXPECT_DEATH(
        list_remove_head(&head),
        R"(list\.cpp:[0-9]+: .*list_remove_head.*\(\(head\)->prev->next == \(head\)\) && \(\(head\) == \(head\)->next->prev\))");
}

TEST(ListDeathTest, CorruptFirstElementStopsWithAssertion) {
    struct list head;
    list_init(&head);
    item a{{}, 1}, b{{}, 2};
    list_add_tail(&a.link, &head);
    list_add_tail(&b.link, &head);
    b.link.prev = &head; /* head checks out, the first element does not */
    EXPECT_DEATH(list_remove_head(&head), R"(\(p\)->prev->next == \(p\))");
}

} // namespace
