#pragma once

/* What crosses into and out of a loaded module besides plain numbers and pointers. Only C
   types cross: a module may be built by another compiler or standard library than the
   program, and no exception may unwind through its frames. */

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* The entry points are all a module shows: it is built with hidden visibility. */
#define PW_MODULE_EXPORT __attribute__((visibility("default")))

enum { PW_MODULE_OK = 0, PW_MODULE_FAILED = -1 };

/* A failure inside a module: a run-time error number and its full text, NUL-terminated. */
typedef struct pw_module_error {
    int32_t number;
    char text[8192];
} pw_module_error;

#ifdef __cplusplus
}
#endif
