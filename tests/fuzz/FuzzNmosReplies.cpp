// Anything as the NMOS node's answer: a device description that can be used, or a negative code.

#include "platform/PlatformProtocol.hpp"
#include "platform/api/NmosClientIpc.hpp"
#include "platform/records/JsonMember.hpp"
#include "tests/fuzz/Expect.hpp"
#include "tests/fuzz/FuzzInput.hpp"

#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace {

/// A node that answers every request with what it was last told to.
class Node {
public:
    Node() {
        zmq::socket_t socket(context, zmq::socket_type::router);
        socket.bind(platform_protocol::kNmosNodeEndpoint);
        std::thread([this](zmq::socket_t bound) { answerForever(bound); }, std::move(socket))
            .detach();
    }

    void answerWith(const std::vector<std::string_view>& frames) {
        const std::lock_guard lock(mutex);
        answer.assign(frames.begin(), frames.end());
    }

private:
    void answerForever(zmq::socket_t& socket) {
        for (;;) {
            zmq::message_t client;
            (void)socket.recv(client);
            for (zmq::message_t rest; socket.get(zmq::sockopt::rcvmore);) {
                (void)socket.recv(rest);
            }
            const std::lock_guard lock(mutex);
            socket.send(client, zmq::send_flags::sndmore);
            socket.send(zmq::message_t(), zmq::send_flags::sndmore);
            for (std::size_t i = 0; i < answer.size(); ++i) {
                socket.send(zmq::buffer(answer[i]), i + 1 < answer.size() ? zmq::send_flags::sndmore
                                                                          : zmq::send_flags::none);
            }
        }
    }

    zmq::context_t context;
    std::mutex mutex;
    std::vector<std::string> answer;
};

struct Exchange {
    Node node;
    zmq::context_t context;
    NmosClientIpc client;
    Exchange() { expect(client.init(context) == 0, "the client starts"); }
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static auto* const exchange = new Exchange;
    exchange->node.answerWith(framesOf(data, size));
    Json::Value reply;
    const int code = exchange->client.getDeviceInfo(reply);
    expect(code <= 0, "an operation returns 0 or a negative code");
    expect(code == 0 || reply.isNull(), "a failed request leaves no reply");
    if (code != 0) {
        return 0;
    }
    // As the handler reads it: this must not throw.
    if (const Json::Value* device = json_member::find(reply, "device"); device != nullptr) {
        (void)json_member::text(*device, "id");
    }
    return 0;
}
