#include "tools/process/StopSignals.hpp"

#include <poll.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <system_error>

namespace {

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

bool StopSignals::arrived() const {
    pollfd item{signalDescriptor, POLLIN, 0};
    constexpr int kWithoutWaiting = 0;
    return ::poll(&item, 1, kWithoutWaiting) > 0;
}

int StopSignals::take() {
    signalfd_siginfo signal{};
    const ssize_t size = ::read(signalDescriptor, &signal, sizeof signal);
    return size == sizeof signal ? static_cast<int>(signal.ssi_signo) : 0;
}
