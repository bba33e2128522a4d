#include "tests/torture/MannerlyNmosNode.hpp"

#include "platform/PlatformProtocol.hpp"
#include "tests/support/TcpPort.hpp"

#include <list>
#include <utility>

namespace {

using Clock = std::chrono::steady_clock;

struct PendingAnswer {
    Clock::time_point due;
    zmq::message_t client;
    std::string body;
};

zmq::socket_t bindNode(zmq::context_t& context) {
    zmq::socket_t socket(context, zmq::socket_type::router);
    socket.set(zmq::sockopt::linger, 0);
    // The node before this one gives the port back in the background.
    waitUntilFree(platform_protocol::kNmosNodeEndpoint);
    socket.bind(platform_protocol::kNmosNodeEndpoint);
    return socket;
}

void send(zmq::socket_t& socket, PendingAnswer& answer) {
    socket.send(answer.client, zmq::send_flags::sndmore);
    socket.send(zmq::message_t(), zmq::send_flags::sndmore);
    socket.send(zmq::buffer(answer.body), zmq::send_flags::none);
}

} // namespace

MannerlyNmosNode::MannerlyNmosNode(zmq::context_t& context, std::function<Manner(int)> behaviour)
    : manners(std::move(behaviour)),
      thread([this](zmq::socket_t socket) { play(std::move(socket)); }, bindNode(context)) {}

MannerlyNmosNode::~MannerlyNmosNode() {
    stopping = true;
    thread.join();
}

void MannerlyNmosNode::play(zmq::socket_t socket) {
    constexpr int kLookMs = 5;
    socket.set(zmq::sockopt::rcvtimeo, kLookMs);
    std::list<PendingAnswer> pending;
    while (!stopping) {
        zmq::message_t client;
        if (socket.recv(client)) {
            zmq::message_t rest;
            do {
                (void)socket.recv(rest);
            } while (rest.more());
            Manner manner = manners(++requestsTaken);
            if (manner.vanishes) {
                return;
            }
            if (manner.answers) {
                pending.push_back(
                    {Clock::now() + manner.after, std::move(client), std::move(manner.answer)});
            }
        }
        for (auto answer = pending.begin(); answer != pending.end();) {
            if (answer->due <= Clock::now()) {
                send(socket, *answer);
                answer = pending.erase(answer);
            } else {
                ++answer;
            }
        }
    }
}
