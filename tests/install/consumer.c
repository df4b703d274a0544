/* A program built only against the installed library: converts a small
 * described structure to an element tree and back. */
#include <stdio.h>
#include <string.h>

#include <kavor.h>
#include <param_xml.h>

struct sample {
    char label[16];
    int32_t values[3];
};

static struct pdesc table[] = {
    {0, 0, 16, PT_STRI, offsetof(struct sample, label), 0, 0, 16, "label", NULL, 0},
    {0, 0, 3, PT_SINT, offsetof(struct sample, values), 0, 0, 4, "values", NULL, 0},
    {0, 0, 0, 0, 0, 0, 0, 0, NULL, NULL, 0},
};

int main(int argc, char **argv)
{
    struct sample in = {"probe", {-7, 0, 2147483647}};
    struct sample out;
    xmlDoc *doc;
    xmlNode *root;
    struct znode node;
    zhead_t head = NULL;
    (void)argc;
    (void)argv;

    memset(&out, 0, sizeof out);
    doc = xmlNewDoc((const xmlChar *)"1.0");
    root = xmlNewDocNode(doc, NULL, (const xmlChar *)"root", NULL);
    xmlDocSetRootElement(doc, root);
    param2xml(&in, root, table);
    xml2param(&out, root, table);
    xmlFreeDoc(doc);
    if (strcmp(out.label, "probe") != 0 || memcmp(in.values, out.values, sizeof in.values) != 0) {
        fprintf(stderr, "round trip differs\n");
        return 1;
    }
    memset(&node, 0, sizeof node);
    zlst_push(&head, &node);
    if (zlst_pop(&head) != &node || head != NULL) {
        fprintf(stderr, "list functions differ\n");
        return 1;
    }
    return 0;
}
