#include "tests/tools/kaiklactl/KaiklactlTest.hpp"

#include <zmq_addon.hpp>

#include <iterator>
#include <utility>

Outcome KaiklactlTest::ctl(std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), "kaiklactl");
    return run(std::move(arguments));
}

Outcome KaiklactlTest::shell(const std::string& line) {
    return run({"/bin/bash", "-c", "set -o pipefail; PATH=" KAIKLA_BIN_DIR ":$PATH; " + line});
}

std::vector<std::string> KaiklactlTest::registered() {
    std::vector<std::string> addresses;
    const Json::Value list = client.request(kList)["payload"]["remote"];
    for (const Json::Value& address : list) {
        addresses.push_back(address.asString());
    }
    return addresses;
}

PlayedStranger::PlayedStranger(zmq::context_t& context)
    : socket(context, zmq::socket_type::router) {
    socket.set(zmq::sockopt::linger, 0);
    constexpr int kPatienceMs = 10'000;
    socket.set(zmq::sockopt::rcvtimeo, kPatienceMs);
    socket.bind("tcp://127.0.0.1:*");
    boundTo = socket.get(zmq::sockopt::last_endpoint);
}

std::optional<std::string> PlayedStranger::receive() {
    std::vector<zmq::message_t> frames;
    if (!zmq::recv_multipart(socket, std::back_inserter(frames))) {
        return std::nullopt;
    }
    client = frames.front().to_string();
    return frames.back().to_string();
}

void PlayedStranger::answer(const std::string& body) {
    sendAll(socket, {client, "", body});
}
