#include "tools/kaiklactl/StopSignals.hpp"

#include <sys/signalfd.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <system_error>

namespace kaiklactl {

StopSignals::StopSignals() {
    sigset_t signals;
    ::sigemptyset(&signals);
    ::sigaddset(&signals, SIGINT);
    ::sigaddset(&signals, SIGTERM);
    struct sigaction hangUp {};
    ::sigaction(SIGHUP, nullptr, &hangUp);
    if (hangUp.sa_handler != SIG_IGN) {
        ::sigaddset(&signals, SIGHUP);
    }
    ::sigprocmask(SIG_BLOCK, &signals, nullptr);
    descriptor = ::signalfd(-1, &signals, SFD_CLOEXEC | SFD_NONBLOCK);
    if (descriptor < 0) {
        throw std::system_error(errno, std::generic_category(), "signalfd");
    }
    ::signal(SIGPIPE, SIG_IGN);
}

StopSignals::~StopSignals() {
    ::close(descriptor);
}

int StopSignals::take() {
    signalfd_siginfo signal{};
    const ssize_t size = ::read(descriptor, &signal, sizeof signal);
    return size == sizeof signal ? static_cast<int>(signal.ssi_signo) : 0;
}

} // namespace kaiklactl
