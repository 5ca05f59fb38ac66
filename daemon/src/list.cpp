#include "list.h"

#include <cassert>

extern "C" {

void __list_add(struct list *entry, struct list *prev, struct list *next) {
    next->prev = entry;
    entry->next = next;
    entry->prev = prev;
    prev->next = entry;
}

void __list_del(struct list *prev, struct list *next) {
    next->prev = prev;
    prev->next = next;
}

void list_add(struct list *entry, struct list *head) {
    __list_add(entry, head, head->next);
}

void list_add_tail(struct list *entry, struct list *head) {
    __list_add(entry, head->prev, head);
}

void list_del(struct list *entry) {
    __list_del(entry->prev, entry->next);
}

void list_del_init(struct list *entry) {
    list_del(entry);
    list_init(entry);
}

void list_replace(struct list *orig, struct list *repl) {
    if (list_empty(orig)) {
        list_init(repl);
        return;
    }
    repl->next = orig->next;
    repl->prev = orig->prev;
    repl->next->prev = repl;
    repl->prev->next = repl;
    list_init(orig);
}

int list_empty(const struct list *head) {
    return head->next == head;
}

struct list *list_remove_head(struct list *head) {
    /* A link whose neighbours do not point back at it means the list memory is corrupt. */
    assert(((head)->prev->next == (head)) && ((head) == (head)->next->prev));
    struct list *p = head->next;
    if (p == head)
        return head;
    assert(((p)->prev->next == (p)) && ((p) == (p)->next->prev));
    list_del(p);
    return p;
}

} // extern "C"
