#pragma once

#include "platform/records/IpcMsg.hpp"
#include "publisher/FrameEncoder.hpp"
#include "publisher/RemoteConsumer.hpp"

#include <zmq.hpp>

#include <cstddef>
#include <list>
#include <map>
#include <memory>
#include <string>
#include <vector>

/// The remote consumers that asked to be informed, and the way of a message to them.
///
/// A consumer is known by its address alone: a ZeroMQ endpoint, used and compared byte for byte as
/// it was given ("tcp://a:1" and "tcp://a:01" are two consumers). Each has one PUSH connection with
/// the library's defaults. There is no automatic removal: a consumer that goes away stays, and
/// messages for it queue up. One thread uses a publisher.
class WebNotifierPublisher {
public:
    WebNotifierPublisher() = default;
    /// Closes every connection; what is queued goes on leaving in the background.
    virtual ~WebNotifierPublisher();
    WebNotifierPublisher(const WebNotifierPublisher&) = delete;
    WebNotifierPublisher& operator=(const WebNotifierPublisher&) = delete;
    WebNotifierPublisher(WebNotifierPublisher&&) = delete;
    WebNotifierPublisher& operator=(WebNotifierPublisher&&) = delete;

    /// Registers a consumer. Returns 0 when it is registered afterwards, also when it was before;
    /// -33, with a line in the log, when the address is no endpoint that can be connected or the
    /// context has no socket left. Whether anybody listens there plays no part.
    int addRemote(zmq::context_t& context, std::string& address);

    /// Takes a consumer out, if it is there, and closes its connection. Returns 0.
    int removeRemote(std::string& address);

    /// Appends every address to `out`, in byte-wise ascending order. Returns 0.
    int getRemoteServersList(std::list<std::string>& out);

    /// Sends `message` as one frame of compact JSON to the consumer registered as `target`, or to
    /// every consumer, in the order of their addresses, when `target` is empty. Waits while a
    /// consumer's queue is full; the log says so. A failed send is logged and skipped. The message
    /// is not const because its payload is on loan meanwhile. Returns 0.
    ///
    /// While messages are held back, this one is encoded and logged at once, but sent later.
    int publishMessage(IpcMsg& message, std::string target);

    /// Holds back what is published from now on, so that the messages of a burst leave together:
    /// the library's own thread is then woken, and writes to the network, once for all that a
    /// consumer gets instead of once for each. When 64 KiB are held they are sent. The registry
    /// must not change meanwhile.
    void holdBack() { holding = true; }

    /// Sends what is held back: everything for which there is room, one consumer after the other,
    /// before any full queue is waited for. Call this before anything that takes long.
    void sendHeld();

    /// Sends what is held back, and ends the holding back.
    void release();

    bool hasRemotes() const { return !remotes.empty(); }

private:
    enum class WhenFull { wait, leave };

    struct Remote {
        std::unique_ptr<RemoteConsumer> connection;
        /// How many of the held messages it has been sent, or is not concerned by.
        std::size_t heldDone = 0;
    };

    struct Held {
        zmq::message_t frame;
        std::string target;
    };

    /// False when the queue is full and `whenFull` says to leave it so. A failure is logged.
    bool send(zmq::message_t& frame, const std::string& address, RemoteConsumer& consumer,
              WhenFull whenFull);
    void sendHeldTo(const std::string& address, Remote& remote, WhenFull whenFull);

    std::map<std::string, Remote> remotes;
    FrameEncoder encoder;
    /// Refers to the frame that is being sent; kept, since making one for each send would show.
    zmq::message_t copy;
    bool holding = false;
    std::vector<Held> held;
    std::size_t heldBytes = 0;
};
