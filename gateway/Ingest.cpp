#include "gateway/Ingest.hpp"

#include "gateway/EventStream.hpp"

#include <sys/eventfd.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <iterator>
#include <optional>
#include <system_error>
#include <utility>

namespace gateway {

Ingest::Ingest(zmq::context_t& context, const std::string& consumerAddress,
               std::function<void()> wakeFunction)
    : consumer(context, consumerAddress, consumerAddress), wake(std::move(wakeFunction)),
      stopDescriptor(::eventfd(0, EFD_CLOEXEC)) {
    if (stopDescriptor < 0) {
        throw std::system_error(errno, std::system_category(), "cannot make a descriptor");
    }
    thread = std::thread([this] { run(); });
}

Ingest::~Ingest() {
    const std::uint64_t one = 1;
    (void)!::write(stopDescriptor, &one, sizeof one);
    thread.join();
    ::close(stopDescriptor);
}

void Ingest::run() {
    std::array<zmq_pollitem_t, 2> items = {consumer.messageItem(),
                                           zmq_pollitem_t{nullptr, stopDescriptor, ZMQ_POLLIN, 0}};
    for (;;) {
        constexpr long kForEver = -1;
        (void)zmq_poll(items.data(), static_cast<int>(items.size()), kForEver);
        if (items.back().revents != 0) {
            return;
        }
        // Now and then a look at the stop, however fast messages come.
        constexpr int kAtATime = 256;
        for (int i = 0; i < kAtATime; ++i) {
            std::optional<std::string> text = consumer.receive();
            if (!text) {
                break;
            }
            put(std::move(*text));
        }
        // The events of the connection are not of interest here, but must not pile up.
        (void)consumer.lostConnection();
    }
}

void Ingest::put(std::string text) {
    bool wasEmpty = false;
    {
        const std::lock_guard lock(mutex);
        wasEmpty = inbox.empty() && dropped == 0;
        if (inbox.size() == kMaxMessages || inboxBytes + text.size() > kMaxBytes) {
            dropped += inbox.size() + 1;
            inbox.clear();
            inboxBytes = 0;
        } else {
            inboxBytes += text.size();
            inbox.push_back({std::move(text), Clock::now()});
        }
    }
    if (wasEmpty) {
        wake();
    }
}

Ingest::Taken Ingest::take() {
    // A session's message makes three events at most: with its monitor's and the device's. No more
    // come at a time than a client's write takes, so that a burst leaves no client behind.
    constexpr std::size_t kMaxTaken = EventStream::kMaxWritten / 3;
    constexpr std::size_t kMaxTakenBytes = std::size_t{128} * 1024;
    std::size_t bytes = 0;
    Taken taken;
    const std::lock_guard lock(mutex);
    taken.dropped = std::exchange(dropped, 0);
    while (!inbox.empty() && taken.messages.size() < kMaxTaken && bytes < kMaxTakenBytes) {
        bytes += inbox.front().text.size();
        inboxBytes -= inbox.front().text.size();
        taken.messages.push_back(std::move(inbox.front()));
        inbox.pop_front();
    }
    taken.more = !inbox.empty();
    return taken;
}

} // namespace gateway
