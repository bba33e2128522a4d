#include "platform/api/ProcessBasics.hpp"

#include "platform/api/DescriptorLimit.hpp"
#include "platform/api/StopDeadline.hpp"

#include <sys/eventfd.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <system_error>

namespace {

struct CaughtSignal {
    int number;
    /// Stays ignored when the process was started that way (nohup).
    bool unlessIgnored;
    bool caught;
    struct sigaction before;
};

std::array<CaughtSignal, 3> signals = {
    {{SIGTERM, false, false, {}}, {SIGINT, false, false, {}}, {SIGHUP, true, false, {}}}};

// What the handler may touch.
std::atomic<bool> stopFlag{false};
std::atomic<int> wakeDescriptor{-1};

extern "C" void onTerminationSignal(int) {
    const int savedErrno = errno;
    stopFlag = true;
    const std::uint64_t one = 1;
    (void)!::write(wakeDescriptor, &one, sizeof one);
    if (!StopDeadline::armed()) {
        StopDeadline::arm(EXIT_SUCCESS, StopDeadline::kGrace);
    }
    errno = savedErrno;
}

void catchSignals() {
    // No SA_RESTART: a signal is to interrupt the wait, or a send to a consumer that has stalled.
    struct sigaction action {};
    action.sa_handler = onTerminationSignal;
    sigemptyset(&action.sa_mask);
    sigset_t needed;
    sigemptyset(&needed);
    sigaddset(&needed, SIGALRM);
    for (CaughtSignal& signal : signals) {
        sigaddset(&needed, signal.number);
        ::sigaction(signal.number, nullptr, &signal.before);
        signal.caught = !(signal.unlessIgnored && signal.before.sa_handler == SIG_IGN);
        if (signal.caught) {
            ::sigaction(signal.number, &action, nullptr);
        }
    }
    // Whoever started the process may have left them blocked.
    ::pthread_sigmask(SIG_UNBLOCK, &needed, nullptr);
}

void holdBackSignals() {
    sigset_t caught;
    sigemptyset(&caught);
    for (const CaughtSignal& signal : signals) {
        if (signal.caught) {
            sigaddset(&caught, signal.number);
        }
    }
    ::pthread_sigmask(SIG_BLOCK, &caught, nullptr);
}

} // namespace

ProcessBasics::ProcessBasics(PollFds& pollFds)
    : descriptor(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
    if (descriptor < 0) {
        throw std::system_error(errno, std::system_category(), "signal descriptor");
    }
    StopDeadline::prepare();
    raiseDescriptorLimit();
    stopFlag = false;
    wakeDescriptor = descriptor;
    pollFds.addFd(descriptor, ZMQ_POLLIN);
    catchSignals();
}

ProcessBasics::~ProcessBasics() {
    restore();
}

bool ProcessBasics::stopRequested() {
    return stopFlag;
}

bool ProcessBasics::processSignalHandlerFd(const zmq_pollitem_t& item) {
    if (item.socket != nullptr || item.fd != descriptor) {
        return false;
    }
    std::uint64_t count = 0;
    (void)!::read(descriptor, &count, sizeof count);
    return true;
}

int ProcessBasics::tearDownCatchSignals(PollFds& pollFds) {
    pollFds.removeFd(descriptor);
    restore();
    return 0;
}

void ProcessBasics::restore() {
    if (descriptor < 0) {
        return;
    }
    if (StopDeadline::armed()) {
        // The end and its status are decided; one more request must not replace them.
        holdBackSignals();
    }
    for (CaughtSignal& signal : signals) {
        if (signal.caught) {
            ::sigaction(signal.number, &signal.before, nullptr);
            signal.caught = false;
        }
    }
    wakeDescriptor = -1;
    ::close(descriptor);
    descriptor = -1;
}
