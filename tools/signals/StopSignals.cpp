#include "tools/signals/StopSignals.hpp"

#include <sys/signalfd.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <system_error>

namespace {

extern "C" void endProcess(int) {
    ::_exit(EXIT_SUCCESS);
}

bool isIgnored(int number) {
    struct sigaction current {};
    ::sigaction(number, nullptr, &current);
    return current.sa_handler == SIG_IGN;
}

sigset_t stopSignals() {
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGTERM);
    sigaddset(&set, SIGINT);
    if (!isIgnored(SIGHUP)) {
        sigaddset(&set, SIGHUP);
    }
    return set;
}

} // namespace

void StopSignals::endProcessAtOnce() {
    const sigset_t stopping = stopSignals();
    struct sigaction action {};
    action.sa_handler = endProcess;
    sigfillset(&action.sa_mask);
    for (const int number : {SIGTERM, SIGINT, SIGHUP}) {
        if (sigismember(&stopping, number) == 1) {
            ::sigaction(number, &action, nullptr);
        }
    }
    // Whoever started the process may have left them blocked.
    ::pthread_sigmask(SIG_UNBLOCK, &stopping, nullptr);
}

StopSignals::StopSignals() {
    const sigset_t caught = stopSignals();
    ::pthread_sigmask(SIG_BLOCK, &caught, nullptr);
    signalDescriptor = ::signalfd(-1, &caught, SFD_CLOEXEC | SFD_NONBLOCK);
    if (signalDescriptor < 0) {
        throw std::system_error(errno, std::system_category(), "cannot wait for signals");
    }
}

StopSignals::~StopSignals() {
    ::close(signalDescriptor);
}

int StopSignals::take() {
    signalfd_siginfo signal{};
    const ssize_t size = ::read(signalDescriptor, &signal, sizeof signal);
    return size == sizeof signal ? static_cast<int>(signal.ssi_signo) : 0;
}
