#include "platform/system/SignalCallsInternal.h"

#include <cerrno>
#include <pthread.h>
#include <sys/mman.h>
#include <unistd.h>

namespace zon {

SystemResult<> installSignalHandler(int signal, SignalHandler handler, int flags)
{
    struct sigaction action { };
    action.sa_sigaction = handler;
    action.sa_flags = flags | SA_SIGINFO;
    sigemptyset(&action.sa_mask);
    if (::sigaction(signal, &action, nullptr) != 0)
        return SystemError::last("sigaction");
    return {};
}

SystemResult<void*> mapSignalStack(size_t bytes)
{
    void* base = ::mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_STACK, -1, 0);
    if (base == MAP_FAILED)
        return SystemError::last("mmap");
    return base;
}

void unmapSignalStack(void* base, size_t bytes) noexcept
{
    if (base)
        ::munmap(base, bytes);
}

SystemResult<> setAlternateSignalStack(void* base, size_t bytes)
{
    stack_t stack {};
    stack.ss_sp = base;
    stack.ss_size = bytes;
    stack.ss_flags = base ? 0 : SS_DISABLE;
    if (::sigaltstack(&stack, nullptr) != 0)
        return SystemError::last("sigaltstack");
    return {};
}

void restoreDefaultSignalAction(int signal) noexcept
{
    struct sigaction action { };
    action.sa_handler = SIG_DFL;
    sigemptyset(&action.sa_mask);
    ::sigaction(signal, &action, nullptr);
}

void raiseSignal(int signal) noexcept
{
    const int saved = errno;
    ::raise(signal);
    errno = saved;
}

void unblockSignal(int signal) noexcept
{
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, signal);
    ::pthread_sigmask(SIG_UNBLOCK, &set, nullptr);
}

void armAlarm(unsigned seconds) noexcept { ::alarm(seconds); }

void writeToStandardError(const char* text, size_t length) noexcept
{
    while (length > 0) {
        const ssize_t written = ::write(STDERR_FILENO, text, length);
        if (written < 0 && errno == EINTR)
            continue;
        if (written <= 0)
            return;
        text += written;
        length -= static_cast<size_t>(written);
    }
}

} // namespace zon
