#include "bench/load/Exchange.hpp"

#include <sys/epoll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <limits>
#include <stdexcept>
#include <utility>

namespace {

constexpr std::size_t kIncomingBytes = std::size_t{256} * 1024;
/// Written in one call at most, unless one event alone is longer.
constexpr std::size_t kOutgoingBytes = std::size_t{64} * 1024;
constexpr int kStalledMs = 10'000;

void watch(int poll, int descriptor, std::uint32_t events, void* owner) {
    epoll_event event{};
    event.events = events;
    event.data.ptr = owner;
    if (::epoll_ctl(poll, EPOLL_CTL_ADD, descriptor, &event) != 0) {
        throw std::runtime_error(std::string("epoll_ctl: ") + std::strerror(errno));
    }
}

} // namespace

Exchange::Exchange(const Peers& peersToUse, std::size_t maxWindow)
    : poll(::epoll_create1(EPOLL_CLOEXEC)), events(maxWindow), incoming(kIncomingBytes) {
    for (const TcpSocket& consumer : peersToUse.consumers) {
        consumers.push_back({.descriptor = consumer.fileDescriptor()});
    }
    for (Consumer& consumer : consumers) {
        watch(poll, consumer.descriptor, EPOLLIN, &consumer);
    }
    for (const TcpSocket& source : peersToUse.sources) {
        // Reported once whenever a source that was full can take more.
        watch(poll, source.fileDescriptor(), EPOLLOUT | EPOLLET, nullptr);
    }
}

Exchange::~Exchange() {
    ::close(poll);
}

Exchange::Outcome Exchange::runFor(std::chrono::nanoseconds duration, std::size_t window,
                                   Workload& workload, const TcpSocket& source) {
    constexpr std::uint64_t kWithoutEnd = std::numeric_limits<std::uint64_t>::max();
    const std::uint64_t deliveriesBefore = deliveries;
    latencies.clear();
    const Clock::time_point start = Clock::now();
    while (Clock::now() - start < duration) {
        produce(kWithoutEnd, window, workload);
        exchange(source);
    }
    return {.deliveries = deliveries - deliveriesBefore,
            .elapsed = Clock::now() - start,
            .latencies = std::move(latencies)};
}

void Exchange::runThrough(std::uint64_t count, std::size_t window, Workload& workload,
                          const TcpSocket& source) {
    for (const std::uint64_t end = sent + count; sent < end;) {
        produce(end, window, workload);
        exchange(source);
    }
    drain(source);
}

void Exchange::drain(const TcpSocket& source) {
    while (completed < sent) {
        exchange(source);
    }
}

void Exchange::produce(std::uint64_t end, std::size_t window, Workload& workload) {
    const Clock::time_point now = Clock::now();
    while (sent < end && sent - completed < window && outgoing.size() < kOutgoingBytes) {
        Event& event = slot(sent);
        workload.produce(sent, outgoing, event.delivery);
        event.consumersLeft = consumers.size();
        event.sent = now;
        ++sent;
    }
}

void Exchange::exchange(const TcpSocket& source) {
    flush(source);
    waitAndReceive();
    const Clock::time_point now = Clock::now();
    while (completed < sent && slot(completed).consumersLeft == 0) {
        latencies.push_back(now - slot(completed).sent);
        ++completed;
    }
}

void Exchange::flush(const TcpSocket& source) {
    while (written < outgoing.size()) {
        const ssize_t count = ::send(source.fileDescriptor(), outgoing.data() + written,
                                     outgoing.size() - written, MSG_DONTWAIT | MSG_NOSIGNAL);
        if (count < 0 && errno == EAGAIN) {
            return;
        }
        if (count < 0) {
            throw std::runtime_error(std::string("the subject is gone: ") + std::strerror(errno));
        }
        written += static_cast<std::size_t>(count);
    }
    outgoing.clear();
    written = 0;
}

void Exchange::waitAndReceive() {
    std::array<epoll_event, 64> ready{};
    const int count = ::epoll_wait(poll, ready.data(), static_cast<int>(ready.size()), kStalledMs);
    if (count == 0) {
        throw std::runtime_error("event " + std::to_string(completed) + " did not reach every " +
                                 "consumer within " + std::to_string(kStalledMs) + " ms");
    }
    for (int i = 0; i < count; ++i) {
        if (void* const owner = ready.at(static_cast<std::size_t>(i)).data.ptr; owner != nullptr) {
            receive(*static_cast<Consumer*>(owner));
        }
    }
}

void Exchange::receive(Consumer& consumer) {
    const ssize_t count =
        ::recv(consumer.descriptor, incoming.data(), incoming.size(), MSG_DONTWAIT);
    if (count == 0) {
        throw std::runtime_error("the subject closed a consumer's connection");
    }
    if (count > 0) {
        compare(consumer, incoming.data(), static_cast<std::size_t>(count));
    } else if (errno != EAGAIN) {
        throw std::runtime_error(std::string("receiving: ") + std::strerror(errno));
    }
}

void Exchange::compare(Consumer& consumer, const char* bytes, std::size_t size) {
    while (size > 0) {
        if (consumer.event == sent) {
            throw std::runtime_error("a consumer received more than was sent");
        }
        Event& event = slot(consumer.event);
        const std::size_t part = std::min(size, event.delivery.size() - consumer.offset);
        if (std::memcmp(bytes, event.delivery.data() + consumer.offset, part) != 0) {
            throw std::runtime_error("a consumer received something else in the place of event " +
                                     std::to_string(consumer.event));
        }
        bytes += part;
        size -= part;
        consumer.offset += part;
        if (consumer.offset == event.delivery.size()) {
            consumer.offset = 0;
            ++consumer.event;
            --event.consumersLeft;
            ++deliveries;
        }
    }
}

void Exchange::expectSilence() {
    for (Consumer& consumer : consumers) {
        receive(consumer);
    }
}
