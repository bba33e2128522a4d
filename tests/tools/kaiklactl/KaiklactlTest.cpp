#include "tests/tools/kaiklactl/KaiklactlTest.hpp"

#include <zmq_addon.hpp>

#include <iterator>
#include <utility>

KaiklactlTest::Outcome KaiklactlTest::run(std::vector<std::string> arguments) {
    ChildProcess process(std::move(arguments));
    return finish(process);
}

KaiklactlTest::Outcome KaiklactlTest::ctl(std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), "kaiklactl");
    return run(std::move(arguments));
}

KaiklactlTest::Outcome KaiklactlTest::finish(ChildProcess& process) {
    Outcome outcome;
    outcome.status = process.waitForExit();
    if (outcome.status) {
        // Returns when the stream has been read to its end.
        const std::string never(1, '\0');
        process.waitForOutput(never);
        process.waitForError(never);
    }
    outcome.output = process.output();
    outcome.error = process.error();
    return outcome;
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
    socket.send(zmq::buffer(client), zmq::send_flags::sndmore);
    socket.send(zmq::message_t(), zmq::send_flags::sndmore);
    socket.send(zmq::buffer(body), zmq::send_flags::none);
}
