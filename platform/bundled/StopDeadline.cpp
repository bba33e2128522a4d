#include "platform/api/StopDeadline.hpp"

#include "platform/api/Logger.hpp"

#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <ctime>
#include <system_error>

namespace {

constexpr std::int64_t kNever = INT64_MAX;
/// Short, because each send to a consumer with a full queue blocks until the next tick.
constexpr long kTickNs = 1'000'000;
constexpr std::int64_t kSecondNs = 1'000'000'000;

// Used from signal handlers, so everything here is lock-free and plain.
timer_t ticker{};
std::atomic<bool> prepared{false};
std::atomic<std::int64_t> endNs{kNever};
std::atomic<int> status{0};
static_assert(std::atomic<std::int64_t>::is_always_lock_free);

std::int64_t nowNs() {
    timespec now{};
    ::clock_gettime(CLOCK_MONOTONIC, &now);
    return now.tv_sec * kSecondNs + now.tv_nsec;
}

extern "C" void onTick(int) {
    if (nowNs() >= endNs) {
        ::_exit(status);
    }
}

} // namespace

void StopDeadline::prepare() {
    if (prepared) {
        return;
    }
    // No SA_RESTART: each tick is to interrupt whatever call the thread is blocked in.
    struct sigaction action {};
    action.sa_handler = onTick;
    sigfillset(&action.sa_mask);
    sigevent event{};
    event.sigev_notify = SIGEV_SIGNAL;
    event.sigev_signo = SIGALRM;
    if (::sigaction(SIGALRM, &action, nullptr) != 0 ||
        ::timer_create(CLOCK_MONOTONIC, &event, &ticker) != 0) {
        throw std::system_error(errno, std::system_category(), "stop deadline");
    }
    prepared = true;
}

bool StopDeadline::armed() noexcept {
    return endNs != kNever;
}

void StopDeadline::arm(int exitStatus, std::chrono::milliseconds limit) noexcept {
    if (!prepared) {
        return;
    }
    status = exitStatus;
    Logger::writeAtOnce();
    bringForward(limit);
    const itimerspec every{{0, kTickNs}, {0, kTickNs}};
    (void)::timer_settime(ticker, 0, &every, nullptr);
}

void StopDeadline::bringForward(std::chrono::milliseconds limit) noexcept {
    endNs = std::min<std::int64_t>(endNs, nowNs() + std::chrono::nanoseconds(limit).count());
}
