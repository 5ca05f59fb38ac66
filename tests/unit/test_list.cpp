#include "list.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

struct item {
    struct list link; /* first member: the element's address is its link's */
    int value;
};

std::vector<int> drain(struct list *head) {
    std::vector<int> values;
    for (struct list *p = list_remove_head(head); p != head; p = list_remove_head(head))
        values.push_back(reinterpret_cast<item *>(p)->value);
    return values;
}

TEST(List, QueueOrderReplaceAndDelInit) {
    struct list head, repl;
    list_init(&head);
    EXPECT_EQ(list_remove_head(&head), &head) << "an empty list gives its head";
    repl.next = repl.prev = nullptr; /* garbage links must not matter */
    list_replace(&head, &repl);
    EXPECT_TRUE(list_empty(&repl));

    item items[5] = {{{}, 1}, {{}, 2}, {{}, 3}, {{}, 4}, {{}, 5}};
    list_add_tail(&items[1].link, &head);
    list_add_tail(&items[2].link, &head);
    list_add(&items[0].link, &head);
    list_add_tail(&items[4].link, &head);
    list_add_tail(&items[3].link, &head);
    list_del_init(&items[3].link);
    EXPECT_TRUE(list_empty(&items[3].link));
    list_replace(&head, &repl);
    EXPECT_TRUE(list_empty(&head));
    EXPECT_EQ(drain(&repl), (std::vector<int>{1, 2, 3, 5}));
    EXPECT_TRUE(list_empty(&repl));
}

TEST(ListDeathTest, CorruptHeadOrFirstElementStopsTheProcess) {
    for (int corrupt_head = 0; corrupt_head < 2; corrupt_head++) {
        struct list head;
        list_init(&head);
        item a{{}, 1}, b{{}, 2};
        list_add_tail(&a.link, &head);
        list_add_tail(&b.link, &head);
        if (corrupt_head)
            head.prev = &a.link; /* head->prev->next no longer leads back to head */
        else
            b.link.prev = &head; /* head checks out, the first element does not */
        EXPECT_DEATH(list_remove_head(&head), "") << corrupt_head;
    }
}

} // namespace
