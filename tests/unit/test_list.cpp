#include "list.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

struct item {
    struct list link; /* first member: the element's address is its link's */
    int value;
};

TEST(List, ElementsLeaveInQueueOrderAndReplaceMovesThemAll) {
    struct list head, repl;
    list_init(&head);
    EXPECT_EQ(list_remove_head(&head), &head) << "an empty list gives its head";
    item items[4] = {{{}, 1}, {{}, 2}, {{}, 3}, {{}, 4}};
    list_add_tail(&items[1].link, &head);
    list_add(&items[0].link, &head);
    list_add_tail(&items[3].link, &head);
    list_add_tail(&items[2].link, &head);
    list_del_init(&items[2].link);
    EXPECT_TRUE(list_empty(&items[2].link));
    list_replace(&head, &repl);
    EXPECT_TRUE(list_empty(&head));
    std::vector<int> values;
    for (struct list *p = list_remove_head(&repl); p != &repl; p = list_remove_head(&repl))
        values.push_back(reinterpret_cast<item *>(p)->value);
    EXPECT_EQ(values, (std::vector<int>{1, 2, 4}));
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
