#pragma once

#include "gateway/ApiText.hpp"
#include "tools/client/ListeningConsumer.hpp"

#include <zmq.hpp>

#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace gateway {

/// One message of the service, as it came.
struct RawMessage {
    std::string text;
    Clock::time_point taken;
};

/// The consumer that the service sends to, on a thread that does nothing but take. Whatever the
/// rest of the gateway does, the service never finds this queue full.
///
/// What has been taken waits in a bounded inbox. When the inbox is full, everything in it is
/// discarded: the state is then read anew, which costs less than to catch up.
class Ingest {
public:
    static constexpr std::size_t kMaxMessages = 4096;
    static constexpr std::size_t kMaxBytes = std::size_t{8} * 1024 * 1024;

    /// Listens on `consumer`. `wake` is called on the thread, when the inbox is no longer empty.
    /// Throws client::BadEndpoint.
    Ingest(zmq::context_t& context, const std::string& consumer, std::function<void()> wake);
    ~Ingest();
    Ingest(const Ingest&) = delete;
    Ingest& operator=(const Ingest&) = delete;
    Ingest(Ingest&&) = delete;
    Ingest& operator=(Ingest&&) = delete;

    struct Taken {
        std::vector<RawMessage> messages;
        /// Messages discarded since the last call.
        std::uint64_t dropped = 0;
        bool more = false;
    };

    /// The oldest messages, so many that others can be served in between.
    Taken take();

private:
    void run();
    void put(std::string text);

    client::ListeningConsumer consumer;
    std::function<void()> wake;
    int stopDescriptor;
    std::mutex mutex;
    std::deque<RawMessage> inbox;
    std::size_t inboxBytes = 0;
    std::uint64_t dropped = 0;
    std::thread thread;
};

} // namespace gateway
