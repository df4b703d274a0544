// param_xml_limit.h - the reader's allocation limit: with the walk's options
// and report (param_xml_walk.h), the piece of the codec's inside that the
// file manager uses (a load sets the limit around its walk of one document). Internal to the library: nothing here is
// exported. Defined in param_xml_read.cpp.
#ifndef KAVOR_PARAM_XML_LIMIT_H
#define KAVOR_PARAM_XML_LIMIT_H

#include <stddef.h>

/// Sets how many bytes of buffers and list nodes the reader may still
/// allocate on this thread (SIZE_MAX: no limit, the default) and returns the
/// setting it replaces. A load of a file sets a limit for its walk, so that
/// no document, whatever its "cnt" values and node counts, makes the reader
/// allocate more; a buffer or node over what is left is refused at level 4
/// like one that can't be allocated. Takes no lock: the limit is the
/// calling thread's own.
size_t param_xml_read_limit(size_t bytes);

#endif
