#include "bench/Exchange.hpp"

#include <sys/epoll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <utility>

namespace {

constexpr std::size_t kIncomingBytes = std::size_t{256} * 1024;
constexpr int kStalledMs = 10'000;

[[noreturn]] void fail(const std::string& what) {
    throw std::runtime_error(what + ": " + std::strerror(errno));
}

} // namespace

Exchange::Exchange(const Peers& peers, std::size_t maxWindow, Workload& first)
    : poll(::epoll_create1(EPOLL_CLOEXEC)), events(maxWindow), incoming(kIncomingBytes) {
    for (const int descriptor : peers.consumers) {
        consumers.push_back({.descriptor = descriptor});
    }
    std::string delivery;
    first.produce(0, outgoing, delivery);
    send(first.source());
    for (Consumer& consumer : consumers) {
        skipThrough(consumer, delivery);
        epoll_event event{.events = EPOLLIN, .data = {.ptr = &consumer}};
        if (::epoll_ctl(poll, EPOLL_CTL_ADD, consumer.descriptor, &event) != 0) {
            fail("epoll_ctl");
        }
    }
}

Exchange::~Exchange() {
    ::close(poll);
}

Exchange::Outcome Exchange::runFor(std::chrono::nanoseconds duration, std::size_t window,
                                   Workload& workload) {
    constexpr std::uint64_t kWithoutEnd = UINT64_MAX;
    const std::uint64_t deliveriesBefore = deliveries;
    latencies.clear();
    const Clock::time_point start = Clock::now();
    while (Clock::now() - start < duration) {
        produce(kWithoutEnd, window, workload);
        receiveAll();
    }
    return {.deliveries = deliveries - deliveriesBefore,
            .elapsed = Clock::now() - start,
            .latencies = std::move(latencies)};
}

void Exchange::runThrough(std::uint64_t count, std::size_t window, Workload& workload) {
    for (const std::uint64_t end = sent + count; sent < end;) {
        produce(end, window, workload);
        receiveAll();
    }
    drain();
}

void Exchange::drain() {
    while (completed < sent) {
        receiveAll();
    }
    for (Consumer& consumer : consumers) {
        receive(consumer);
    }
}

void Exchange::produce(std::uint64_t end, std::size_t window, Workload& workload) {
    const Clock::time_point now = Clock::now();
    while (sent < end && sent - completed < window) {
        Event& event = slot(sent);
        workload.produce(sent, outgoing, event.delivery);
        event.consumersLeft = consumers.size();
        event.sent = now;
        ++sent;
    }
    send(workload.source());
}

void Exchange::send(int source) {
    const auto size = static_cast<ssize_t>(outgoing.size());
    if (::send(source, outgoing.data(), outgoing.size(), MSG_NOSIGNAL) != size) {
        fail("sending");
    }
    outgoing.clear();
}

void Exchange::receiveAll() {
    std::array<epoll_event, 64> ready{};
    const int count = ::epoll_wait(poll, ready.data(), static_cast<int>(ready.size()), kStalledMs);
    if (count == 0) {
        throw std::runtime_error("event " + std::to_string(completed) + " did not reach every " +
                                 "consumer within " + std::to_string(kStalledMs) + " ms");
    }
    for (int i = 0; i < count; ++i) {
        receive(*static_cast<Consumer*>(ready.at(static_cast<std::size_t>(i)).data.ptr));
    }
    const Clock::time_point now = Clock::now();
    while (completed < sent && slot(completed).consumersLeft == 0) {
        latencies.push_back(now - slot(completed).sent);
        ++completed;
    }
}

void Exchange::receive(Consumer& consumer) {
    const ssize_t count =
        ::recv(consumer.descriptor, incoming.data(), incoming.size(), MSG_DONTWAIT);
    if (count > 0) {
        compare(consumer, incoming.data(), static_cast<std::size_t>(count));
    } else if (count == 0 || errno != EAGAIN) {
        fail("receiving");
    }
}

void Exchange::skipThrough(Consumer& consumer, const std::string& delivery) {
    for (std::string received; !received.ends_with(delivery);) {
        const ssize_t count = ::recv(consumer.descriptor, incoming.data(), incoming.size(), 0);
        if (count <= 0) {
            fail("receiving event 0");
        }
        received.append(incoming.data(), static_cast<std::size_t>(count));
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
