#include "tests/support/PlayedServices.hpp"

#include "tests/support/TcpPort.hpp"

#include <zmq_addon.hpp>

#include <array>
#include <atomic>
#include <iterator>
#include <utility>

namespace {

zmq::socket_t makeBound(zmq::context_t& context, zmq::socket_type type, const char* endpoint) {
    zmq::socket_t socket(context, type);
    socket.set(zmq::sockopt::linger, 0);
    socket.set(zmq::sockopt::sndhwm, 0);
    waitUntilFree(endpoint);
    socket.bind(endpoint);
    return socket;
}

} // namespace

void sendAll(zmq::socket_t& socket, const std::vector<std::string>& frames) {
    for (std::size_t i = 0; i < frames.size(); ++i) {
        socket.send(zmq::buffer(frames[i]),
                    i + 1 < frames.size() ? zmq::send_flags::sndmore : zmq::send_flags::none);
    }
}

PlayedPublisher::PlayedPublisher(zmq::context_t& context, const char* endpoint)
    : socket(makeBound(context, zmq::socket_type::xpub, endpoint)) {}

bool PlayedPublisher::waitForSubscription(unsigned kind, std::chrono::milliseconds limit) {
    socket.set(zmq::sockopt::rcvtimeo, static_cast<int>(limit.count()));
    const std::string topic = "\1" + std::to_string(kind);
    zmq::message_t event;
    while (!topics.contains(topic)) {
        if (!socket.recv(event)) {
            return false;
        }
        topics.insert(event.to_string());
    }
    return true;
}

void PlayedPublisher::send(unsigned kind, const std::string& payload) {
    const std::string number = std::to_string(kind);
    sendFrames({number, R"({"command_id":)" + number + R"(,"payload":)" + payload + "}"});
}

PlayedNmosNode::PlayedNmosNode(zmq::context_t& context, const char* endpoint)
    : boundTo(endpoint), control(context, zmq::socket_type::pair) {
    control.set(zmq::sockopt::linger, 0);
    // A name is given back in the background, so each object takes a new one.
    static std::atomic<int> number{0};
    const std::string name = "inproc://orders-" + std::to_string(++number);
    control.bind(name);
    zmq::socket_t orders(context, zmq::socket_type::pair);
    orders.connect(name);
    thread = std::thread(&PlayedNmosNode::run, this,
                         makeBound(context, zmq::socket_type::router, endpoint), std::move(orders));
}

PlayedNmosNode::~PlayedNmosNode() {
    zmq_send(control.handle(), nullptr, 0, 0);
    thread.join();
    waitUntilFree(boundTo);
}

std::string PlayedNmosNode::deviceAnswer(const std::string& deviceId) {
    return R"({"command_id":0,"result":0,"payload":{"device":{"id":")" + deviceId + R"("}}})";
}

void PlayedNmosNode::answerWith(std::optional<std::string> body) {
    const std::lock_guard lock(mutex);
    answer = std::move(body);
}

void PlayedNmosNode::answerRequest(std::size_t index, const std::string& body) {
    const std::lock_guard lock(mutex);
    sendAll(control, {clients.at(index), "", body});
}

bool PlayedNmosNode::waitForRequests(std::size_t count, std::chrono::milliseconds limit) {
    std::unique_lock lock(mutex);
    return changed.wait_for(lock, limit, [&] { return bodies.size() >= count; });
}

std::vector<std::string> PlayedNmosNode::requests() {
    const std::lock_guard lock(mutex);
    return bodies;
}

void PlayedNmosNode::run(zmq::socket_t router, zmq::socket_t orders) {
    std::array<zmq::pollitem_t, 2> items = {
        {{router.handle(), 0, ZMQ_POLLIN, 0}, {orders.handle(), 0, ZMQ_POLLIN, 0}}};
    for (;;) {
        zmq::poll(items.data(), items.size(), std::chrono::milliseconds(-1));
        std::vector<zmq::message_t> frames;
        if (items[1].revents != 0) {
            (void)zmq::recv_multipart(orders, std::back_inserter(frames));
            if (frames.size() == 1) {
                return;
            }
            (void)zmq::send_multipart(router, frames);
        } else {
            (void)zmq::recv_multipart(router, std::back_inserter(frames));
            const std::lock_guard lock(mutex);
            clients.push_back(frames.front().to_string());
            bodies.push_back(frames.back().to_string());
            if (answer) {
                sendAll(router, {clients.back(), "", *answer});
            }
            changed.notify_all();
        }
    }
}
