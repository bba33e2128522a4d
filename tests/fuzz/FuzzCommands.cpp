// Anything as a request: one reply that says what happened, and the document is as it was.

#include "platform/PlatformProtocol.hpp"
#include "platform/api/ResultCode.hpp"
#include "platform/records/JsonText.hpp"
#include "tests/fuzz/Expect.hpp"
#include "tests/fuzz/FuzzInput.hpp"
#include "tests/fuzz/FuzzedHandler.hpp"

#include <random>
#include <string>

namespace {

/// A client and a command socket of the handler that need no network between them.
class Interface {
public:
    Interface()
        : server(handler.context(), zmq::socket_type::rep),
          client(handler.context(), zmq::socket_type::dealer) {
        // A name that no registered address can hit upon.
        const std::string endpoint = "inproc://commands-" + std::to_string(std::random_device()());
        server.bind(endpoint);
        client.connect(endpoint);
    }

    std::string exchange(const std::vector<std::string_view>& frames) {
        client.send(zmq::message_t(), zmq::send_flags::sndmore);
        for (std::size_t i = 0; i < frames.size(); ++i) {
            client.send(zmq::buffer(frames[i]),
                        i + 1 < frames.size() ? zmq::send_flags::sndmore : zmq::send_flags::none);
        }
        handler.ipcPreProcessMsg(&server);
        zmq::message_t delimiter;
        zmq::message_t reply;
        expect(client.recv(delimiter, zmq::recv_flags::dontwait) && delimiter.more() &&
                   client.recv(reply, zmq::recv_flags::dontwait) && !reply.more(),
               "a request gets one reply of one frame");
        zmq::message_t surplus;
        expect(!client.recv(surplus, zmq::recv_flags::dontwait), "a request gets one reply");
        return reply.to_string();
    }

    FuzzedHandler handler;

private:
    zmq::socket_t server;
    zmq::socket_t client;
};

void checkReply(const std::string& text) {
    static JsonDecoder decoder;
    Json::Value reply;
    expect(decoder.decodeObject(text, reply).empty(), "a reply is JSON");
    const int result = reply["result"].asInt();
    expect(result == 0 || result == result_code::kUnknownId ||
               result == result_code::kConsumerNotConnected ||
               result == platform_protocol::kErrorMalformed,
           "a reply has one of the known results");
    expect(reply["command_id"].isUInt() && reply["command_name"].isString() &&
               reply["payload"].isObject(),
           "a reply has all its members");
    expect(reply.isMember("error") == (result < 0) &&
               (result == 0 || !reply["error"].asString().empty()),
           "a refusal, and nothing else, has its reason");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    // Never destroyed, as in the service: the command socket stays open.
    static auto* const commands = new Interface;
    static const std::string document = commands->handler.soundDocument();
    checkReply(commands->exchange(framesOf(data, size)));
    commands->handler.readMail();
    expect(commands->handler.soundDocument() == document, "a command changes no document");
    commands->handler.tidyUp();
    return 0;
}
