/* example_dir.h - where an example writes: the directory given as argv[1]
 * (made if missing), or a fresh one under /tmp. Shared by the C examples. */
#ifndef KAVOR_EXAMPLE_DIR_H
#define KAVOR_EXAMPLE_DIR_H

#include <errno.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>

/* Fills `dir` (of `size` bytes); returns 0, or -1 with a message. */
static inline int example_dir(int argc, char **argv, char *dir, size_t size)
{
    if (argc > 1) {
        if ((size_t)snprintf(dir, size, "%s", argv[1]) >= size) {
            fprintf(stderr, "directory name too long\n");
            return -1;
        }
        if (mkdir(dir, 0777) != 0 && errno != EEXIST) {
            perror(dir);
            return -1;
        }
        return 0;
    }
    if ((size_t)snprintf(dir, size, "/tmp/kavor-example-XXXXXX") >= size) {
        return -1;
    }
    if (mkdtemp(dir) == NULL) {
        perror("mkdtemp");
        return -1;
    }
    return 0;
}

/* "<dir>/<name>" into `out`; -1 if it doesn't fit. */
static inline int example_path(char *out, size_t size, const char *dir, const char *name)
{
    return (size_t)snprintf(out, size, "%s/%s", dir, name) < size ? 0 : -1;
}

#endif
