#pragma once

#include <zmq.hpp>

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>

/// The way to one remote consumer: a PUSH socket with the library's defaults, connected to the
/// consumer's address, and what is known of the messages queued for it.
///
/// The library gives a connection up for good when something that is no PULL socket answers at the
/// address. From outside that looks like a full queue, and a send would wait forever; it is known
/// by the queue, which cannot be full yet. So now and then a message tells when the library has
/// freed it, which it does in order: whatever was queued before has left. Where that leaves a
/// doubt, a second connection shows what answers.
class RemoteConsumer {
public:
    /// Connects; whether anybody listens plays no part. Throws zmq::error_t when the address is no
    /// endpoint or the context has no socket left.
    RemoteConsumer(zmq::context_t& context, std::string consumerAddress);

    /// Queues the bytes of `frame`, which may be left empty. Returns false, and leaves `frame` as
    /// it is, when the queue is full. Throws zmq::error_t when the context goes down.
    bool sendAtOnce(zmq::message_t& frame);

    /// Waits until there is room in the queue, after the log has said so, and queues the bytes of
    /// `frame`, which may be left empty. Where the connection has been given up, begins a new one,
    /// which the log says too. Throws zmq::error_t when a signal ends the wait (EINTR), at once
    /// when a stop has been requested, or when the context goes down.
    void sendWhenThereIsRoom(zmq::message_t& frame);

private:
    using Count = std::atomic<std::uint64_t>;

    bool sendTelling(zmq::message_t& frame);
    bool isGivenUp();
    bool isAnsweredByAnother();
    void connectAgain();

    zmq::context_t* zmqContext;
    std::string address;
    zmq::socket_t socket;
    /// Messages that the connection has taken.
    std::uint64_t taken = 0;
    /// How many of these have left at least. Shared with the messages that tell, which may outlive
    /// the connection.
    std::shared_ptr<Count> left = std::make_shared<Count>(0);
};
