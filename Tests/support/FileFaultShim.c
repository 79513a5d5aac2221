// Preloaded into a copying process (LD_PRELOAD) to make its file I/O fail on demand. Each variable
// names one file; calls on a descriptor open on that file misbehave, all others pass through:
//
//   ZON_FAULT_READ_PATH        read and copy_file_range from it fail with EIO
//   ZON_FAULT_WRITE_PATH       write and copy_file_range to it fail with EIO
//   ZON_FAULT_KERNEL_COPY_PATH copy_file_range from it fails with EIO; read and write work
//   ZON_FAULT_UNLINK_PATH      copy_file_range to it is refused (EXDEV), so that the file is written
//                              in blocks, and the file is removed after the first block
//
// While any is set, clones (FICLONE) are refused, so that the faults are reached.

#define _GNU_SOURCE
#include <dlfcn.h>
#include <errno.h>
#include <linux/fs.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/types.h>
#include <unistd.h>

static int refersTo(int fd, const char* variable)
{
    const char* wanted = getenv(variable);
    if (!wanted || !*wanted)
        return 0;
    char link[64];
    char target[4096];
    snprintf(link, sizeof link, "/proc/self/fd/%d", fd);
    const ssize_t n = readlink(link, target, sizeof target - 1);
    if (n < 0)
        return 0;
    target[n] = '\0';
    return strcmp(target, wanted) == 0;
}

static int anyFault(void)
{
    return getenv("ZON_FAULT_READ_PATH") || getenv("ZON_FAULT_WRITE_PATH") || getenv("ZON_FAULT_KERNEL_COPY_PATH")
        || getenv("ZON_FAULT_UNLINK_PATH");
}

ssize_t read(int fd, void* buffer, size_t count)
{
    static ssize_t (*next)(int, void*, size_t);
    if (!next)
        next = (ssize_t(*)(int, void*, size_t))dlsym(RTLD_NEXT, "read");
    if (refersTo(fd, "ZON_FAULT_READ_PATH")) {
        errno = EIO;
        return -1;
    }
    return next(fd, buffer, count);
}

ssize_t write(int fd, const void* buffer, size_t count)
{
    static ssize_t (*next)(int, const void*, size_t);
    if (!next)
        next = (ssize_t(*)(int, const void*, size_t))dlsym(RTLD_NEXT, "write");
    if (refersTo(fd, "ZON_FAULT_WRITE_PATH")) {
        errno = EIO;
        return -1;
    }
    const int removeAfter = refersTo(fd, "ZON_FAULT_UNLINK_PATH");
    const ssize_t written = next(fd, buffer, count);
    if (removeAfter && written > 0)
        unlink(getenv("ZON_FAULT_UNLINK_PATH"));
    return written;
}

ssize_t copy_file_range(int in, loff_t* inOffset, int out, loff_t* outOffset, size_t length, unsigned int flags)
{
    static ssize_t (*next)(int, loff_t*, int, loff_t*, size_t, unsigned int);
    if (!next)
        next = (ssize_t(*)(int, loff_t*, int, loff_t*, size_t, unsigned int))dlsym(RTLD_NEXT, "copy_file_range");
    if (refersTo(in, "ZON_FAULT_READ_PATH") || refersTo(out, "ZON_FAULT_WRITE_PATH") || refersTo(in, "ZON_FAULT_KERNEL_COPY_PATH")) {
        errno = EIO;
        return -1;
    }
    if (refersTo(out, "ZON_FAULT_UNLINK_PATH")) {
        errno = EXDEV;
        return -1;
    }
    return next(in, inOffset, out, outOffset, length, flags);
}

int ioctl(int fd, unsigned long request, ...)
{
    static int (*next)(int, unsigned long, ...);
    if (!next)
        next = (int (*)(int, unsigned long, ...))dlsym(RTLD_NEXT, "ioctl");
    va_list arguments;
    va_start(arguments, request);
    void* argument = va_arg(arguments, void*);
    va_end(arguments);
    if (request == FICLONE && anyFault()) {
        errno = EOPNOTSUPP;
        return -1;
    }
    return next(fd, request, argument);
}
