// main.cpp - the `kavor` program. libxml2's own messages about damaged
// files are not shown: the command reports what it found itself.
#include <libxml/parser.h>

#include "kavor_cli.h"

namespace {
void quiet(void *, const char *, ...) {}
void quiet_structured(void *, xmlErrorPtr) {}
}  // namespace

int main(int argc, char **argv)
{
    xmlSetGenericErrorFunc(nullptr, quiet);
    xmlSetStructuredErrorFunc(nullptr, quiet_structured);
    int rc = kavor_cli(argc, argv);
    xmlCleanupParser();
    return rc;
}
