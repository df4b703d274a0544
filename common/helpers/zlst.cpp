// zlst.cpp - intrusive doubly linked lists with constant-time append.
//
// Invariant: on a non-empty list the first node's `tail` points at the last
// node, every other node's `tail` is NULL, `prev` of the first and `next` of
// the last are NULL. Push, delete and pop keep this in constant time.
#include "zlst.h"

#include <cstddef>

namespace {

struct znode *as_node(void *p)
{
    return static_cast<struct znode *>(p);
}

}  // namespace

extern "C" int zlst_push(zhead_t *head, void *node)
{
    struct znode *n = as_node(node);
    if (!head || !n)
        return -1;
    n->next = nullptr;
    n->tail = nullptr;
    struct znode *first = *head;
    if (!first) {
        n->prev = nullptr;
        n->tail = n;
        *head = n;
        return 0;
    }
    struct znode *last = first->tail;
    if (!last) {                 // a first node not pushed here: find the end once
        last = first;
        while (last->next)
            last = last->next;
    }
    last->next = n;
    n->prev = last;
    first->tail = n;
    return 0;
}

extern "C" int zlst_delete(zhead_t *head, void *node)
{
    struct znode *n = as_node(node);
    if (!head || !n || !*head)
        return -1;
    struct znode *first = *head;
    if (!n->prev && n != first)  // not on this list
        return -1;
    struct znode *last = first->tail;
    if (!last) {                 // a first node not pushed here: find the end once
        last = first;
        while (last->next)
            last = last->next;
    }
    if (n->prev)
        n->prev->next = n->next;
    if (n->next)
        n->next->prev = n->prev;
    if (n == first) {
        *head = n->next;
        first = *head;
    }
    if (first)
        first->tail = (n == last) ? n->prev : last;
    n->next = nullptr;
    n->prev = nullptr;
    n->tail = nullptr;
    return 0;
}

extern "C" void *zlst_pop(zhead_t *head)
{
    if (!head || !*head)
        return nullptr;
    struct znode *n = *head;
    zlst_delete(head, n);
    return n;
}

extern "C" int zlst_set_name(void *node, const char *name)
{
    struct znode *n = as_node(node);
    if (!n)
        return -1;
    n->name = name;
    return 0;
}
