// Preloaded into the cross build's test programs while they run under
// qemu-user (see tests/CMakeLists.txt). Qt's QProcess starts children through
// forkfd, which uses clone(CLONE_PIDFD) when waitid(P_PIDFD) looks supported;
// qemu-user passes that probe to the host kernel but cannot emulate the
// clone, and the child's descriptor comes back broken. Failing the probe
// makes forkfd use fork() and a pipe, which qemu-user handles.
#include <cerrno>
#include <cstdarg>
#include <cstdlib>
#include <dlfcn.h>
#include <sys/syscall.h>

namespace {

constexpr long pidfdIdType = 3; // P_PIDFD

using SyscallFunction = long (*)(long, ...);

// Children (the tools a test starts, through the emulator again) must not
// inherit the preload.
__attribute__((constructor)) void dropPreload() {
    unsetenv("LD_PRELOAD");
}

} // namespace

extern "C" long syscall(long number, ...) {
    va_list list;
    va_start(list, number);
    long args[6];
    for (long& arg : args)
        arg = va_arg(list, long);
    va_end(list);
    if (number == SYS_waitid && args[0] == pidfdIdType) {
        errno = EINVAL;
        return -1;
    }
    static const auto next = reinterpret_cast<SyscallFunction>(dlsym(RTLD_NEXT, "syscall"));
    return next(number, args[0], args[1], args[2], args[3], args[4], args[5]);
}
