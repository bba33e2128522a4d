#include "bench/Peers.hpp"

#include <fcntl.h>
#include <mosquitto.h>

#include <stdexcept>

namespace {

constexpr const char* kTopic = "status";

void check(int result) {
    if (result != MOSQ_ERR_SUCCESS) {
        throw std::runtime_error(std::string("the broker: ") + mosquitto_strerror(result));
    }
}

/// A client of the broker, connected and subscribed by the library. After that only the descriptor
/// is used: the library takes four system calls for each message, which would limit the load.
class BrokerClient {
public:
    BrokerClient(std::uint16_t port, const char* topic)
        : client(mosquitto_new(nullptr, true, this), mosquitto_destroy) {
        constexpr int kKeepAliveSeconds = 3600;
        mosquitto_subscribe_callback_set(
            client.get(), [](mosquitto*, void* self, int, int, const int* granted) {
                static_cast<BrokerClient*>(self)->subscribed = *granted == 0;
            });
        check(mosquitto_int_option(client.get(), MOSQ_OPT_TCP_NODELAY, 1));
        check(mosquitto_connect(client.get(), "127.0.0.1", port, kKeepAliveSeconds));
        check(mosquitto_subscribe(client.get(), nullptr, topic, 0));
        while (!subscribed) {
            check(mosquitto_loop(client.get(), -1, 1));
        }
        // The library's descriptors do not wait, the load's do.
        ::fcntl(descriptor(), F_SETFL, 0);
    }

    int descriptor() const { return mosquitto_socket(client.get()); }

private:
    std::unique_ptr<mosquitto, void (*)(mosquitto*)> client;
    bool subscribed = false;
};

class BrokerPeers : public Peers {
public:
    BrokerPeers(std::uint16_t port, std::size_t count) {
        check(mosquitto_lib_init());
        sessionSource = ptpSource = connect(port, "unused");
        while (consumers.size() < count) {
            consumers.push_back(connect(port, kTopic));
        }
    }

    std::string cause(unsigned /*kind*/, const std::string& /*notification*/,
                      const std::string& published) const override {
        return delivery(published);
    }

    /// A PUBLISH packet at QoS 0 (MQTT 3.1.1): type, remaining length in groups of seven bits,
    /// topic, payload. The broker hands on the same bytes.
    std::string delivery(const std::string& published) const override {
        constexpr unsigned kGroup = 0x80;
        const std::string topic(kTopic);
        std::string bytes(1, '\x30');
        for (std::size_t left = 2 + topic.size() + published.size(); left > 0; left /= kGroup) {
            bytes += static_cast<char>(left % kGroup | (left >= kGroup ? kGroup : 0));
        }
        bytes += '\0';
        bytes += static_cast<char>(topic.size());
        return bytes + topic + published;
    }

private:
    int connect(std::uint16_t port, const char* topic) {
        return clients.emplace_back(std::make_unique<BrokerClient>(port, topic))->descriptor();
    }

    std::vector<std::unique_ptr<BrokerClient>> clients;
};

} // namespace

std::unique_ptr<Peers> connectToBroker(std::uint16_t port, std::size_t consumers) {
    return std::make_unique<BrokerPeers>(port, consumers);
}
