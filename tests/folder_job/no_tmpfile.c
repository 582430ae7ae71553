/* Loaded before the C library in a test, it answers every request for an unnamed file
 * (O_TMPFILE) as a file system without them does (FAT sticks, some network shares), so that
 * the named stand-in that such a file system leaves behind after a kill can be tried. */
#define _GNU_SOURCE
#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <stdarg.h>

typedef int (*open_fn)(const char *, int, ...);

static int forward(const char *name, const char *path, int flags, mode_t mode)
{
    if ((flags & O_TMPFILE) == O_TMPFILE) {
        errno = EOPNOTSUPP;
        return -1;
    }
    open_fn next = (open_fn)dlsym(RTLD_NEXT, name);
    return next(path, flags, mode);
}

int open(const char *path, int flags, ...)
{
    va_list args;
    va_start(args, flags);
    const mode_t mode = (flags & O_CREAT) || (flags & O_TMPFILE) == O_TMPFILE ? va_arg(args, mode_t) : 0;
    va_end(args);
    return forward("open", path, flags, mode);
}

int open64(const char *path, int flags, ...)
{
    va_list args;
    va_start(args, flags);
    const mode_t mode = (flags & O_CREAT) || (flags & O_TMPFILE) == O_TMPFILE ? va_arg(args, mode_t) : 0;
    va_end(args);
    return forward("open64", path, flags, mode);
}
