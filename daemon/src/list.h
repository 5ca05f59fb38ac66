/*
 * Intrusive circular doubly linked list. An element embeds a struct list as its first
 * member, so the element's address and its link's address are the same. The list owns
 * nothing and takes no lock: its user guards it.
 */
#ifndef KERV_LIST_H
#define KERV_LIST_H

#ifdef __cplusplus
extern "C" {
#endif

struct list {
    struct list *prev;
    struct list *next;
};

static inline void list_init(struct list *head) {
    head->prev = head;
    head->next = head;
}

void __list_add(struct list *entry, struct list *prev, struct list *next);
void __list_del(struct list *prev, struct list *next);
void list_add(struct list *entry, struct list *head);
void list_add_tail(struct list *entry, struct list *head);
void list_del(struct list *entry);
void list_del_init(struct list *entry);
void list_replace(struct list *orig, struct list *repl);
int list_empty(const struct list *head);
/* Removes and returns the first element, or head itself when the list is empty. */
struct list *list_remove_head(struct list *head);

#ifdef __cplusplus
}
#endif

#endif /* KERV_LIST_H */
