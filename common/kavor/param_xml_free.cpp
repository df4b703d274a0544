// param_xml_free.cpp - releases what the reader allocated inside a block:
// the buffers of counted rows and the nodes of list rows, found through the
// block's table, at any depth.
//
// Invariant: whatever is freed is first emptied (nested buffers and nodes
// go before the buffer or node that holds them), and every pointer to it is
// left NULL, its count 0, its list head empty, so the block can be read
// into again or released twice. Memory the application owns (the block, the
// array behind a PT_STRUM pointer) is walked into, never freed.
#include "param_xml.h"
#include "param_xml_private.h"
#include "xml_trace.h"

namespace {

void free_structures(char *first, int count, size_t size, struct pdesc *sub)
{
    for (int i = 0; i < count; i++)
        param_xml_free(first + static_cast<size_t>(i) * size, sub);
}

// Counted row: every buffer with what it holds, then the buffer itself.
void free_buffers(void *mem_base, struct pdesc *row, bool structures)
{
    char *ptrs = at(mem_base, row->offset);
    char *cob = at(mem_base, row->boffset);
    for (int i = 0; i < row->count; i++) {
        char *ptr_entry = ptrs + static_cast<size_t>(i) * sizeof(void *);
        char *cob_entry = cob + static_cast<size_t>(i) * sizeof(int);
        char *buf = static_cast<char *>(load_ptr(ptr_entry));
        if (buf) {
            if (structures)
                free_structures(buf, load_int(cob_entry), row->size, row->pdesc);
            xmlFree(buf);
            store_ptr(ptr_entry, nullptr);
        }
        store_int(cob_entry, 0);
    }
}

// The sub-table of one list node: the row's own, or for a variant list the
// alternative named by the node; NULL when no table describes it.
struct pdesc *node_table(const struct pdesc *row, const struct znode *node)
{
    if ((row->type & PT_KIND_MASK) == PT_LIST)
        return row->pdesc;
    const struct adesc *table = reinterpret_cast<const struct adesc *>(row->aux);
    const struct adesc *alt = table ? find_alternative(table, node->name) : nullptr;
    return alt ? alt->pdesc : nullptr;
}

void free_lists(void *mem_base, struct pdesc *row)
{
    char *heads = at(mem_base, row->offset);
    for (int i = 0; i < row->count; i++) {
        zhead_t *head = reinterpret_cast<zhead_t *>(heads + static_cast<size_t>(i) * sizeof(zhead_t));
        struct znode *node = *head;
        while (node) {
            struct znode *next = node->next;
            struct pdesc *sub = node_table(row, node);
            if (sub)
                param_xml_free(node, sub);
            xmlFree(node);
            node = next;
        }
        *head = nullptr;
    }
}

}  // namespace

extern "C" void param_xml_free(void *mem_base, struct pdesc *pdesc)
{
    for (struct pdesc *row = pdesc; row->type != 0; row++) {
        bool counted = (row->type & PT_F_COB) != 0;
        switch (row->type & PT_KIND_MASK) {
        case PT_SINT:
        case PT_UINT:
        case PT_FLOT:
            if (counted)
                free_buffers(mem_base, row, false);
            break;
        case PT_STRU:
            if (counted)
                free_buffers(mem_base, row, true);
            else
                free_structures(at(mem_base, row->offset), row->count, row->size, row->pdesc);
            break;
        case PT_STRUM:
            if (counted)
                free_buffers(mem_base, row, true);
            else if (char *first = static_cast<char *>(load_ptr(at(mem_base, row->offset))))
                free_structures(first, row->count, row->size, row->pdesc);
            break;
        case PT_LIST:
        case PT_VLST:
            free_lists(mem_base, row);
            break;
        case PT_STRI:
        case PT_ENUM:
            break;
        default:
            KV_LOG(4, "param_xml_free: %s bad type(0x%X)", shown(row->name),
                   static_cast<unsigned>(row->type));
            break;
        }
    }
}
