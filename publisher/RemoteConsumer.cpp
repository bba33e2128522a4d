#include "publisher/RemoteConsumer.hpp"

#include "platform/api/Logger.hpp"
#include "platform/api/ProcessBasics.hpp"
#include "platform/sockets/ConnectionAttempt.hpp"

#include <cerrno>
#include <chrono>
#include <utility>

namespace {

/// Every so many messages one tells.
constexpr std::uint64_t kTellersApart = 64;

/// What a message that tells refers to.
struct Teller {
    zmq::message_t frame;
    std::shared_ptr<std::atomic<std::uint64_t>> left;
    std::uint64_t leftWithIt;
};

extern "C" void tell(void* /*data*/, void* hint) {
    const std::unique_ptr<Teller> teller(static_cast<Teller*>(hint));
    if (teller->left) {
        *teller->left = teller->leftWithIt;
    }
}

/// A message that has not been taken has not left either: its end must not tell.
class Silence {
public:
    explicit Silence(Teller& unsent) : teller(&unsent) {}
    ~Silence() {
        if (teller != nullptr) {
            teller->left.reset();
        }
    }
    Silence(const Silence&) = delete;
    Silence& operator=(const Silence&) = delete;
    Silence(Silence&&) = delete;
    Silence& operator=(Silence&&) = delete;

    void lift() { teller = nullptr; }

private:
    Teller* teller;
};

} // namespace

RemoteConsumer::RemoteConsumer(zmq::context_t& context, std::string consumerAddress)
    : zmqContext(&context), address(std::move(consumerAddress)),
      socket(context, zmq::socket_type::push) {
    socket.connect(address);
}

bool RemoteConsumer::sendAtOnce(zmq::message_t& frame) {
    if (taken % kTellersApart == 0 ? !sendTelling(frame)
                                   : !socket.send(frame, zmq::send_flags::dontwait)) {
        return false;
    }
    ++taken;
    return true;
}

bool RemoteConsumer::sendTelling(zmq::message_t& frame) {
    auto owned = std::make_unique<Teller>();
    owned->frame.copy(frame);
    owned->left = left;
    owned->leftWithIt = taken + 1;
    zmq::message_t message(owned->frame.data(), owned->frame.size(), tell, owned.get());
    // From here on the library owns it and calls tell.
    Silence silence(*owned.release());
    if (!socket.send(message, zmq::send_flags::dontwait)) {
        return false;
    }
    silence.lift();
    return true;
}

void RemoteConsumer::sendWhenThereIsRoom(zmq::message_t& frame) {
    // A full queue is by design and holds up the whole service, so the log says whom it waits for.
    constexpr long kStepMs = 500;
    constexpr int kStepsForOneLook = 10;
    int step = 0;
    do {
        if (ProcessBasics::stopRequested()) {
            throw zmq::error_t(EINTR);
        }
        if (isGivenUp() || (step % kStepsForOneLook == 0 && isAnsweredByAnother())) {
            connectAgain();
            continue;
        }
        if (step++ == 0) {
            Logger::log(Logger::LOG_LEVEL_WRN,
                        "WebnotifierPublisher: the queue to %s is full, waiting for it to be read",
                        address.c_str());
            Logger::flush();
        }
        zmq_pollitem_t item{socket.handle(), -1, ZMQ_POLLOUT, 0};
        if (zmq_poll(&item, 1, kStepMs) < 0) {
            throw zmq::error_t();
        }
    } while (!sendAtOnce(frame));
}

/// The library hears of messages that have left by halves of the high-water mark, and takes
/// messages again as soon as it hears: less than that mark beyond the last half is no full queue.
bool RemoteConsumer::isGivenUp() {
    // In this order: for whatever has left, the library has been told by then.
    const std::uint64_t leftByNow = *left;
    if ((socket.get(zmq::sockopt::events) & ZMQ_POLLOUT) != 0) {
        return false;
    }
    const auto highWaterMark = static_cast<std::uint64_t>(socket.get(zmq::sockopt::sndhwm));
    const std::uint64_t half = (highWaterMark + 1) / 2;
    return taken < highWaterMark + leftByNow / half * half;
}

/// Looks what a second connection meets; twice, because a consumer that is just ending hangs up,
/// too.
bool RemoteConsumer::isAnsweredByAnother() {
    constexpr std::chrono::milliseconds kLimit{200};
    constexpr int kLooks = 2;
    try {
        for (int look = 0; look < kLooks; ++look) {
            zmq::socket_t second(*zmqContext, zmq::socket_type::push);
            second.set(zmq::sockopt::linger, 0);
            ConnectionAttempt attempt(*zmqContext, second);
            second.connect(address);
            if (attempt.outcomeWithin(kLimit) != ConnectionAttempt::Outcome::hungUp) {
                return false;
            }
        }
        return true;
    } catch (const zmq::error_t&) {
        // There is no socket left to look with.
        return false;
    }
}

void RemoteConsumer::connectAgain() {
    Logger::log(Logger::LOG_LEVEL_WRN,
                "WebnotifierPublisher: %s was not taken for a consumer, connecting again",
                address.c_str());
    socket.disconnect(address);
    socket.connect(address);
    taken = 0;
    left = std::make_shared<Count>(0);
}
