/* Preloaded into a command under test: kills the process with SIGKILL just
 * before its Nth rename or unlink (N from QUILLET_KILL_AT_CALL), so that a
 * test can cut a swap of files off at each of its steps. */
#define _GNU_SOURCE
#include <dlfcn.h>
#include <signal.h>
#include <stdlib.h>

static long calls;

static void CountCall(void) {
    const char* at = getenv("QUILLET_KILL_AT_CALL");
    if (at && ++calls == atol(at)) raise(SIGKILL);
}

int renameat2(int fromDir, const char* from, int toDir, const char* to, unsigned int flags) {
    CountCall();
    int (*real)(int, const char*, int, const char*, unsigned int) = dlsym(RTLD_NEXT, "renameat2");
    return real(fromDir, from, toDir, to, flags);
}

int rename(const char* from, const char* to) {
    CountCall();
    int (*real)(const char*, const char*) = dlsym(RTLD_NEXT, "rename");
    return real(from, to);
}

int unlink(const char* path) {
    CountCall();
    int (*real)(const char*) = dlsym(RTLD_NEXT, "unlink");
    return real(path);
}
