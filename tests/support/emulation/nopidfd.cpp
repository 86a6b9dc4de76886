// Preloaded into the cross build's test programs under qemu-user. QProcess's
// forkfd uses clone(CLONE_PIDFD) when waitid(P_PIDFD) looks supported, which
// qemu-user cannot emulate; failing that probe makes it use fork() and a pipe.
#include <cerrno>
#include <cstdarg>
#include <cstdlib>
#include <dlfcn.h>
#include <sys/syscall.h>

// Children (tools started through the emulator again) must not inherit it.
__attribute__((constructor)) static void dropPreload() {
    unsetenv("LD_PRELOAD");
}

extern "C" long syscall(long number, ...) {
    va_list list;
    va_start(list, number);
    long args[6];
    for (long& arg : args)
        arg = va_arg(list, long);
    va_end(list);
    if (number == SYS_waitid && args[0] == 3 /* P_PIDFD */) {
        errno = EINVAL;
        return -1;
    }
    static const auto next = reinterpret_cast<long (*)(long, ...)>(dlsym(RTLD_NEXT, "syscall"));
    return next(number, args[0], args[1], args[2], args[3], args[4], args[5]);
}
