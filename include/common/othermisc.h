/// @file othermisc.h
/// Small file-system helpers.
#ifndef OTHERMISC_H
#define OTHERMISC_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/// Makes every missing directory of the directory part of `path` (the text
/// before its last '/'). `mode` is written in decimal digits that read as
/// octal permissions: 777 means 0777, limited by the process's umask.
/// Returns 0 when the directories exist afterwards, -1 otherwise.
int32_t make_dir_from_filename(const char *path, int32_t mode);

#ifdef __cplusplus
}
#endif

#endif
