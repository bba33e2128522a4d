#include "bench/load/Exchange.hpp"

#include <sys/epoll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <stdexcept>

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

Exchange::Outcome Exchange::run(Workload& workload, const TcpSocket& source, const Limits& limits) {
    const std::uint64_t first = completed;
    const Clock::time_point start = Clock::now();
    Outcome outcome;
    for (bool more = true; more || completed < sent;) {
        const Clock::time_point now = Clock::now();
        if (more && (now - start >= limits.duration || sent - first == limits.events)) {
            more = false;
            outcome.events = completed - first;
            outcome.elapsed = now - start;
        }
        while (more && sent - completed < limits.window && sent - first < limits.events &&
               outgoing.size() < kOutgoingBytes) {
            Event& event = slot(sent);
            workload.produce(sent, outgoing, event.delivery);
            event.consumersLeft = consumers.size();
            event.sent = now;
            ++sent;
        }
        flush(source);
        if (completed < sent) {
            waitAndReceive();
        }
        const Clock::time_point received = Clock::now();
        while (completed < sent && slot(completed).consumersLeft == 0) {
            outcome.latencies.push_back(received - slot(completed).sent);
            ++completed;
        }
    }
    return outcome;
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
        }
    }
}

void Exchange::expectSilence() {
    for (Consumer& consumer : consumers) {
        receive(consumer);
    }
}
