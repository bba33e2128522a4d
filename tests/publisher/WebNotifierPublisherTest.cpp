#include "publisher/WebNotifierPublisher.hpp"

#include "platform/api/ResultCode.hpp"
#include "tests/support/CommandClient.hpp"
#include "tests/support/LogLines.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <optional>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class PublisherTest : public testing::Test {
protected:
    PublisherTest() { publisher.emplace(); }

    int add(std::string address) { return publisher->addRemote(context, address); }
    int remove(std::string address) { return publisher->removeRemote(address); }
    std::list<std::string> list() {
        std::list<std::string> addresses;
        EXPECT_EQ(publisher->getRemoteServersList(addresses), 0);
        return addresses;
    }

    /// A consumer that listens at `address`, registered.
    zmq::socket_t consumerAt(const std::string& address) {
        zmq::socket_t socket(context, zmq::socket_type::pull);
        socket.bind(address);
        EXPECT_EQ(add(address), 0);
        return socket;
    }

    int publish(const std::string& target) {
        IpcMsg message;
        message.commandId = 1;
        message.commandName = "status-session";
        message.payload = parseJson(
            R"({"stream":[{"id":7},{"id":18446744073709551615}],"nmos_id":"a b","device_id":"\u00e9"})");
        return publisher->publishMessage(message, target);
    }
    static constexpr const char* kBody =
        R"({"command_id":1,"command_name":"status-session","payload":{"device_id":"\u00e9",)"
        R"("nmos_id":"a b","stream":[{"id":7},{"id":18446744073709551615}]}})";

    static std::string published(const std::string& address) {
        return "INF Publishing message to socket (" + address + ") size " +
               std::to_string(std::string(kBody).size());
    }

    zmq::context_t context;
    std::optional<WebNotifierPublisher> publisher;
    CapturedLog log;
};

/// The next message, which must be there and of one frame.
zmq::message_t next(zmq::socket_t& consumer) {
    zmq::message_t message;
    EXPECT_TRUE(consumer.recv(message, zmq::recv_flags::dontwait));
    EXPECT_FALSE(message.more());
    return message;
}

bool hasMessage(zmq::socket_t& consumer) {
    return (consumer.get(zmq::sockopt::events) & ZMQ_POLLIN) != 0;
}

TEST_F(PublisherTest, RegistryComparesAndOrdersAddressesByteForByte) {
    EXPECT_THAT(list(), IsEmpty());
    for (const char* address : {"inproc://b:1", "inproc://a:2", "inproc://a:10", "inproc://A:2",
                                "inproc://a:1", "inproc://a:01"}) {
        EXPECT_EQ(add(address), 0);
    }
    const std::list<std::string> all = {"inproc://A:2",  "inproc://a:01", "inproc://a:1",
                                        "inproc://a:10", "inproc://a:2",  "inproc://b:1"};
    EXPECT_EQ(list(), all);
    EXPECT_EQ(add("inproc://a:2"), 0);
    EXPECT_EQ(list(), all);
    EXPECT_EQ(remove("inproc://B:1"), 0);
    EXPECT_EQ(remove("inproc://a"), 0);
    EXPECT_EQ(remove(""), 0);
    EXPECT_EQ(list(), all);
    EXPECT_EQ(remove("inproc://a:01"), 0);
    EXPECT_EQ(remove("inproc://a:01"), 0);
    EXPECT_EQ(list().size(), 5U);

    std::list<std::string> appended = {"before"};
    EXPECT_EQ(publisher->getRemoteServersList(appended), 0);
    EXPECT_EQ(appended.front(), "before");
    EXPECT_EQ(appended.size(), 6U);

    publisher.reset();
    EXPECT_THAT(log.lines(),
                ElementsAre("ERR WebnotifierPublisher: we already have a connection to this remote "
                            "server inproc://a:2. ignoring it.",
                            "WRN WebnotifierPublisher: destroying socket to inproc://a:01",
                            "INF Destroying 5 active connections"));
}

TEST_F(PublisherTest, AddressThatCannotBeConnectedIsLoggedAndLeavesTheRegistryAsItWas) {
    ASSERT_EQ(add("inproc://good"), 0);
    for (const auto& [address, error] : std::map<std::string, std::string>{
             {"", "[22]::Invalid argument"},
             {"nonsense", "[22]::Invalid argument"},
             {"tcp://", "[22]::Invalid argument"},
             {"tcp://127.0.0.1", "[22]::Invalid argument"},
             {"foo://127.0.0.1:7000", "[93]::Protocol not supported"},
             {" tcp://127.0.0.1:7000", "[93]::Protocol not supported"}}) {
        EXPECT_EQ(add(address), result_code::kConsumerNotConnected) << address;
        std::string line = "ERR WebnotifierPublisher: Error  Connecting socket on addr ";
        line.append(address).append(". Error ").append(error);
        EXPECT_THAT(log.lines(), ElementsAre(line));
    }
    EXPECT_THAT(list(), ElementsAre("inproc://good"));
}

TEST_F(PublisherTest, NumberOfConsumersEndsWithTheSocketsOfTheContext) {
    zmq::context_t small;
    small.set(zmq::ctxopt::max_sockets, 2);
    WebNotifierPublisher limited;
    std::string addresses[] = {"tcp://127.0.0.1:1", "tcp://127.0.0.1:2", "tcp://127.0.0.1:3"};
    EXPECT_EQ(limited.addRemote(small, addresses[0]), 0);
    EXPECT_EQ(limited.addRemote(small, addresses[1]), 0);
    EXPECT_EQ(limited.addRemote(small, addresses[2]), result_code::kConsumerNotConnected);
    EXPECT_THAT(log.lines(),
                ElementsAre("ERR WebnotifierPublisher: Error  Connecting socket on "
                            "addr tcp://127.0.0.1:3. Error [24]::Too many open files"));
}

TEST_F(PublisherTest, EveryConsumerGetsTheSameBytesInOneFrameInAddressOrder) {
    zmq::socket_t b = consumerAt("inproc://b");
    zmq::socket_t a = consumerAt("inproc://a");
    EXPECT_EQ(publish(""), 0);
    EXPECT_THAT(log.lines(), ElementsAre(published("inproc://a"), published("inproc://b")));
    const zmq::message_t atA = next(a);
    const zmq::message_t atB = next(b);
    EXPECT_EQ(atA.to_string(), kBody);
    // Not copied on the way: within the process both are one buffer.
    EXPECT_EQ(atA.data(), atB.data());
}

TEST_F(PublisherTest, MessageOfAnyLengthArrivesWholeAndTheNextOneIsAFrameOfItsOwn) {
    zmq::socket_t consumer = consumerAt("inproc://a");
    IpcMsg longMessage;
    constexpr std::size_t kLength = 5'000'000;
    longMessage.payload = std::string(kLength, 'x');
    EXPECT_EQ(publisher->publishMessage(longMessage, ""), 0);
    EXPECT_EQ(longMessage.payload.asString().size(), kLength);
    EXPECT_EQ(publish(""), 0);
    const zmq::message_t first = next(consumer);
    EXPECT_EQ(first.to_string(), R"({"command_id":0,"command_name":"","payload":")" +
                                     std::string(kLength, 'x') + "\"}");
    EXPECT_EQ(next(consumer).to_string(), kBody);
}

TEST_F(PublisherTest, TargetIsMatchedByteForByteAndNobodyElseIsSentAnything) {
    zmq::socket_t one = consumerAt("inproc://a:1");
    zmq::socket_t ten = consumerAt("inproc://a:10");
    EXPECT_EQ(publish("inproc://a:1"), 0);
    EXPECT_THAT(log.lines(), ElementsAre(published("inproc://a:1")));
    EXPECT_EQ(next(one).to_string(), kBody);
    for (const char* unknown : {"inproc://a:", "inproc://a:100", "inproc://A:1", "x"}) {
        EXPECT_EQ(publish(unknown), 0);
    }
    EXPECT_FALSE(hasMessage(one));
    EXPECT_FALSE(hasMessage(ten));
    EXPECT_EQ(remove("inproc://a:1"), 0);
    EXPECT_EQ(remove("inproc://a:10"), 0);
    log.lines();
    EXPECT_EQ(publish(""), 0);
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(PublisherTest, FailedSendIsLoggedForEachConsumerAndEndsNothing) {
    const zmq::socket_t a = consumerAt("inproc://a");
    const zmq::socket_t b = consumerAt("inproc://b");
    context.shutdown();
    EXPECT_EQ(publish(""), 0);
    EXPECT_THAT(
        log.lines(),
        ElementsAre(
            published("inproc://a"),
            "ERR [WebnotifierPublisher] Error: sending message to socket inproc://a interrupted",
            published("inproc://b"),
            "ERR [WebnotifierPublisher] Error: sending message to socket inproc://b interrupted"));
    EXPECT_EQ(list().size(), 2U);
}

} // namespace
