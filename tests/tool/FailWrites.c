/* Preloaded into a command under test: from its Nth write on (N from
 * QUILLET_FAIL_WRITES_FROM) every write or truncation of a file whose path
 * contains QUILLET_FAIL_WRITES_TO fails with ENOSPC, as on a disk that
 * stays full. Journals are spared, so that the old bytes are kept. */
#define _GNU_SOURCE
#include <dlfcn.h>
#include <errno.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

static long calls;

static int Fails(int fd) {
    const char* from = getenv("QUILLET_FAIL_WRITES_FROM");
    const char* to = getenv("QUILLET_FAIL_WRITES_TO");
    char link[64], path[4096];
    snprintf(link, sizeof link, "/proc/self/fd/%d", fd);
    ssize_t n = from && to ? readlink(link, path, sizeof path - 1) : -1;
    if (n < 0) return 0;
    path[n] = 0;
    if (!strstr(path, to) || strstr(path, "journal") || ++calls < atol(from)) return 0;
    errno = ENOSPC;
    return 1;
}

ssize_t write(int fd, const void* data, size_t n) {
    ssize_t (*real)(int, const void*, size_t) = dlsym(RTLD_NEXT, "write");
    return Fails(fd) ? -1 : real(fd, data, n);
}

ssize_t pwrite64(int fd, const void* data, size_t n, off_t at) {
    ssize_t (*real)(int, const void*, size_t, off_t) = dlsym(RTLD_NEXT, "pwrite64");
    return Fails(fd) ? -1 : real(fd, data, n, at);
}

ssize_t pwrite(int fd, const void* data, size_t n, off_t at) {
    return pwrite64(fd, data, n, at);
}

int ftruncate64(int fd, off_t length) {
    int (*real)(int, off_t) = dlsym(RTLD_NEXT, "ftruncate64");
    return Fails(fd) ? -1 : real(fd, length);
}

int ftruncate(int fd, off_t length) {
    return ftruncate64(fd, length);
}
