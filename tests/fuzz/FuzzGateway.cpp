// Sends what a client may send over a connection to the gateway, and reads to its end: answers
// follow each other without a gap. Behind a "!" a password is asked for; "EPOCH" stands for that of
// this run.

#include "gateway/Api.hpp"
#include "gateway/HttpSession.hpp"
#include "gateway/Transport.hpp"
#include "gateway/Users.hpp"
#include "platform/api/Logger.hpp"
#include "tests/fuzz/Expect.hpp"

#include <boost/asio/basic_socket_acceptor.hpp>

#include <array>
#include <charconv>
#include <cstdint>

namespace {

using namespace gateway;

void expectAnswers(std::string_view bytes) {
    constexpr std::string_view kLength = "Content-Length: ";
    while (!bytes.empty()) {
        const std::string_view head = bytes.substr(0, bytes.find("\r\n\r\n"));
        expect(head.starts_with("HTTP/1.1 ") && head.size() < bytes.size(), "an answer has a head");
        bytes.remove_prefix(head.size() + 4);
        if (bytes.starts_with("retry: ")) {
            return; // A stream is the last.
        }
        if (bytes.empty() || bytes.starts_with("HTTP/1.1 ")) {
            continue; // Without a body, as for HEAD.
        }
        const auto length = head.find(kLength);
        expect(length != std::string_view::npos, "an answer has a length");
        std::size_t size = 0;
        std::from_chars(head.data() + length + kLength.size(), head.data() + head.size(), size);
        expect(size <= bytes.size(), "an answer is whole");
        bytes.remove_prefix(size);
    }
}

/// A gateway without a service.
struct Fuzzed {
    void run(std::string input) {
        const bool isGuarded = input.starts_with('!');
        input.erase(0, isGuarded ? 1 : 0);
        if (const auto epoch = input.find("EPOCH"); epoch != std::string::npos) {
            input.replace(epoch, 5, ring.epoch());
        }
        Socket client(loop);
        client.connect(acceptor.local_endpoint());
        Users users(FUZZ_USERS); // Each has few attempts.
        HttpSession::serve({acceptor.accept(), {}, connections.admit("", true, {})}, shared,
                           isGuarded ? &users : nullptr);
        client.send(boost::asio::buffer(input));
        client.shutdown(Socket::shutdown_send);
        client.non_blocking(true);
        std::string answers;
        boost::system::error_code end;
        while (!end || end == boost::asio::error::would_block) {
            loop.restart();
            loop.poll();
            std::array<char, 65536> bytes{};
            answers.append(bytes.data(), client.read_some(boost::asio::buffer(bytes), end));
        }
        expectAnswers(answers);
    }

    Incidents incidents;
    Connections connections;
    Clients clients;
    EventRing ring{{}};
    DeviceState device;
    Monitors monitors;
    PtpHistory history;
    std::uint64_t dropped = 0;
    Source source{"service", [] {}};
    Api api{{device, monitors, history, ring, clients, incidents, source, dropped}, true};
    HttpSession::Shared shared{[this](const Question& question) { return api.answer(question); },
                               {ring, clients, incidents,
                                [this](std::uint64_t) {
                                    return Snapshot{
                                        ring.last(),
                                        std::make_shared<const std::string>("event: snapshot\n\n")};
                                }},
                               {},
                               {}};
    boost::asio::io_context loop{1};
    boost::asio::basic_socket_acceptor<Tcp, boost::asio::io_context::executor_type> acceptor{
        loop, {boost::asio::ip::address_v4::loopback(), 0}};
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static Fuzzed* fuzzed = nullptr;
    if (fuzzed == nullptr) {
        Logger::createLogger(Logger::kLevelMask | Logger::kToFile, "/dev/null", "fuzz");
        fuzzed = new Fuzzed;
        fuzzed->device.takeSession({});
        fuzzed->ring.publish("device", {}, Clock::now());
        fuzzed->ring.publish("device", {}, Clock::now());
    }
    fuzzed->run(std::string(reinterpret_cast<const char*>(data), size));
    return 0;
}
