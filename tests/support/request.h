// request.h - builds the registration record the tests hand to
// kavor_register, kavor_param2file and kavor_file2param.
#ifndef KAVOR_TEST_REQUEST_H
#define KAVOR_TEST_REQUEST_H

#include <stdint.h>

#include <string>

#include "kavor.h"

/// A zeroed record naming `file`, `node` and `virt`, each cut to fit its
/// field with its NUL (names too long for a field arrive shortened, never
/// refused here), with `table`, `mem` and `ugz` as given.
kavor_file_rgst_t make_request(const std::string &file, const char *node, xml_pd_t *table,
                               void *mem, int32_t ugz, const std::string &virt = "");

#endif
