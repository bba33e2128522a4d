#pragma once

#include "platform/PlatformProtocol.hpp"

#include <zmq.hpp>

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <thread>
#include <vector>

/// Sends one message of these frames.
void sendAll(zmq::socket_t& socket, const std::vector<std::string>& frames);

/// A service that publishes notifications (session manager, system manager, PTP management), as a
/// test plays it. It queues without a limit and forgets everything when it is destroyed.
class PlayedPublisher {
public:
    /// Waits until the endpoint is free, then binds it.
    PlayedPublisher(zmq::context_t& context, const char* endpoint);

    /// Waits until somebody has subscribed to `kind`.
    bool waitForSubscription(unsigned kind,
                             std::chrono::milliseconds limit = std::chrono::seconds(10));

    /// Publishes a well-formed notification; `payload` is JSON text.
    void send(unsigned kind, const std::string& payload);
    void sendFrames(const std::vector<std::string>& frames) { sendAll(socket, frames); }

private:
    zmq::socket_t socket;
    std::set<std::string> topics;
};

/// The NMOS node, as a test plays it, on a thread of its own. It answers every request with the
/// same text or, when silent, with nothing until it is told to.
class PlayedNmosNode {
public:
    explicit PlayedNmosNode(zmq::context_t& context,
                            const char* endpoint = platform_protocol::kNmosNodeEndpoint);
    /// Returns when nobody can connect any more.
    ~PlayedNmosNode();
    PlayedNmosNode(const PlayedNmosNode&) = delete;
    PlayedNmosNode& operator=(const PlayedNmosNode&) = delete;
    PlayedNmosNode(PlayedNmosNode&&) = delete;
    PlayedNmosNode& operator=(PlayedNmosNode&&) = delete;

    /// The answer of a node that knows the device as `deviceId`; this is what a new object gives,
    /// with the id "dev".
    static std::string deviceAnswer(const std::string& deviceId);

    void answerWith(std::optional<std::string> body);
    void staySilent() { answerWith(std::nullopt); }

    /// Answers request number `index`, counted from 0, now: late, or once more.
    void answerRequest(std::size_t index, const std::string& body);

    bool waitForRequests(std::size_t count,
                         std::chrono::milliseconds limit = std::chrono::seconds(10));
    std::vector<std::string> requests();

private:
    void run(zmq::socket_t router, zmq::socket_t orders);

    std::string boundTo;
    std::mutex mutex;
    std::condition_variable changed;
    std::optional<std::string> answer = deviceAnswer("dev");
    std::vector<std::string> clients;
    std::vector<std::string> bodies;
    /// What the thread is to send; an empty message ends it.
    zmq::socket_t control;
    std::thread thread;
};
