// fuzz_reader.cpp - bytes parsed as a document (strict parser, then the
// recovery parser, as a load does) and walked by xml2param over the rich
// table, from the root element and from each of its children; then the
// filled block is written back by param2xml, which follows every buffer and
// list the reader made, so a count that disagrees with its buffer shows.
#include <stddef.h>
#include <stdint.h>

#include "fuzz_support.h"
#include "fuzz_table.h"
#include "param_xml_limit.h"

extern "C" int LLVMFuzzerInitialize(int *, char ***)
{
    fuzz::setup();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size > (1u << 20))
        return 0;
    fuzz::begin_input();
    int len = static_cast<int>(size);
    const char *text = reinterpret_cast<const char *>(data);
    xmlDocPtr doc = xmlReadMemory(text, len, "fuzz.xml", nullptr, 0);
    if (doc == nullptr)
        doc = xmlReadMemory(text, len, "fuzz.xml", nullptr, XML_PARSE_RECOVER);
    if (doc != nullptr && doc->intSubset == nullptr && doc->extSubset == nullptr) {
        // (A load refuses a document with a DTD; fuzz_load covers that.)
        xmlNodePtr root = xmlDocGetRootElement(doc);
        if (root != nullptr) {
            // A limit as a load sets one, smaller than the load's 64 MiB so
            // that inputs near it don't slow the search down.
            param_xml_read_limit(1u << 20);
            fuzz::RichBlock b;
            fuzz::reset(&b);
            xml2param(&b.all, root, fx_table);
            for (xmlNodePtr c = root->children; c != nullptr; c = c->next)
                xml2param(&b.all, c, fx_table);
            xmlNodePtr out = xmlNewNode(nullptr, BAD_CAST "out");
            if (out != nullptr) {
                param2xml(&b.all, out, fx_table);
                xmlFreeNode(out);
            }
        }
    }
    xmlFreeDoc(doc);
    fuzz::release_reader_blocks();
    return 0;
}
