/// @file zlst.h
/// Intrusive doubly linked lists. Every list element starts with a
/// `struct znode`, so the element's address is its node's address. A list
/// head is a `zhead_t` holding the first node, NULL for an empty list; a NULL
/// head and a zero-filled element are all the preparation a list needs.
/// The functions take no lock: callers hold whatever guards the list.
#ifndef ZLST_H
#define ZLST_H

#ifdef __cplusplus
extern "C" {
#endif

/// Header of every list element.
struct znode {
    struct znode *next;   ///< next node, NULL at the end
    struct znode *prev;   ///< previous node, NULL at the first
    struct znode *tail;   ///< on the first node only: the last node
    const char *name;     ///< type name of the element (not copied)
    int key;              ///< free for the owner of the list
};

/// A list: its first node, NULL when empty.
typedef struct znode *zhead_t;

/// Appends `node` (an element starting with a znode) at the tail of the
/// list, in constant time. Returns 0, or -1 if `head` or `node` is NULL.
int zlst_push(zhead_t *head, void *node);

/// Takes `node`, which must be on the list `*head`, off it, in constant
/// time. `*head` is NULL once the last node is gone. Returns 0, or -1 if
/// an argument is NULL or the list is empty.
int zlst_delete(zhead_t *head, void *node);

/// Takes the first node off the list and returns it; NULL for an empty
/// list or a NULL `head`.
void *zlst_pop(zhead_t *head);

/// Sets the element's type name to `name`, which is not copied and must
/// outlive the element. Returns 0, or -1 if `node` is NULL.
int zlst_set_name(void *node, const char *name);

#ifdef __cplusplus
}
#endif

#endif
