/* kavor_so.c - the shared library's own translation unit. Everything it
 * exports comes from the internal static library, linked whole; the version
 * script libkavor.map decides what is visible. */
#include "kavor.h"
