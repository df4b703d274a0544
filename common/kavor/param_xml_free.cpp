// param_xml_free.cpp - releases what the reader allocated inside a block:
// the buffers of counted rows and the nodes of list rows, found through the
// block's table, at any depth.
//
// Invariant: whatever is freed is first emptied (nested buffers and nodes
// go before the buffer or node that holds them), and every pointer to it is
// left NULL, its count 0, its list head empty, so the block can be read
// into again or released twice. Memory the application owns (the block, the
// array behind a PT_STRUM pointer) is walked into, never freed.
//
// Flow: param_xml_free -> per row, by what its kind takes (kKindInfo):
// counted buffers, list nodes, or structures walked into by param_xml_free
// again. Of the codec it uses only param_xml.cpp.
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
    if (kind_info_of(row->type)->table == KT_PDESC)
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
        const struct kind_info *k = kind_info_of(row->type);
        if (!k) {
            KV_LOG(4, "param_xml_free: %s bad type(0x%X)", text_or_null(row->name),
                   static_cast<unsigned>(row->type));
            continue;
        }
        bool structures = k->table == KT_PDESC;  // lists are told by their memory
        if (row_is_counted(row)) {
            free_buffers(mem_base, row, structures);
        } else if (k->memory == KM_HEADS) {
            free_lists(mem_base, row);
        } else if (structures && k->memory == KM_POINTER) {
            if (char *first = static_cast<char *>(load_ptr(at(mem_base, row->offset))))
                free_structures(first, row->count, row->size, row->pdesc);
        } else if (structures) {
            free_structures(at(mem_base, row->offset), row->count, row->size, row->pdesc);
        }
    }
}
