#include "platform/api/AvmgrSubscriber.hpp"
#include "platform/api/Logger.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <optional>
#include <string>

namespace {

using testing::EndsWith;
using testing::HasSubstr;

class ConfigurationKeeper : public AvmgrSubscriber {
public:
    std::optional<SessionConfigData> last;

    int avmgrNotifyNewSessionEvent(SessionConfigData& config) override {
        last = config;
        return 0;
    }
};

/// A session manager of this test's own and a subscriber to it.
class NewSessionNotification : public testing::Test {
protected:
    static constexpr auto kKind = AvmgrPublisher::avmgr_new_session;
    static constexpr int kTimeoutMs = 10000;

    zmq::context_t context;
    zmq::socket_t manager{context, zmq::socket_type::xpub};
    PollFds pollFds;
    ConfigurationKeeper subscriber;

    void SetUp() override {
        Logger::createLogger(Logger::kToStandardError | Logger::LOG_LEVEL_ERR, "", "test");
        manager.set(zmq::sockopt::rcvtimeo, kTimeoutMs);
        manager.bind(platform_protocol::kSessionManagerEndpoint);
        ASSERT_EQ(subscriber.init(context, pollFds), 0);
        ASSERT_EQ(subscriber.subscribe(kKind), 0);
        zmq::message_t subscription;
        ASSERT_TRUE(manager.recv(subscription));
    }

    /// Sends a new session with one audio stream and returns what was logged on its account.
    std::string announce(const std::string& stream) {
        const std::string kind = std::to_string(kKind);
        const std::string message =
            R"({"command_id":)" + kind + R"(,"payload":{"id":7,"audio":[)" + stream + "]}}";
        manager.send(zmq::buffer(kind), zmq::send_flags::sndmore);
        manager.send(zmq::buffer(message), zmq::send_flags::none);
        EXPECT_EQ(zmq_poll(pollFds.getPollList(), pollFds.getPollListSize(), kTimeoutMs), 1);
        testing::internal::CaptureStderr();
        EXPECT_TRUE(subscriber.processEvent(*pollFds.getPollList()));
        return testing::internal::GetCapturedStderr();
    }
};

TEST_F(NewSessionNotification, ValueThatCannotBeConvertedDropsItWhole) {
    for (const std::string stream : {R"({"id":1},{"id":2,"ttl":-1})", R"({"sscr":"1"})",
                                     R"({"vlan":[]})", R"({"channels":[5]})", "6"}) {
        const std::string log = announce(stream);
        EXPECT_FALSE(subscriber.last) << stream;
        EXPECT_THAT(log, HasSubstr("ERR test: session manager: notification 1000 dropped: "));
        EXPECT_THAT(log, EndsWith("\n"));
        EXPECT_EQ(log.find('\n'), log.size() - 1) << log;
    }
    EXPECT_EQ(announce(R"({"id":3})"), "");
    EXPECT_TRUE(subscriber.last);
}

TEST_F(NewSessionNotification, InvalidAddressIsLoggedAndTheRestCounts) {
    const std::string log = announce(R"({"id":1,"local":"10.0.0.300","transport":"239.1.1.1"})");
    EXPECT_THAT(log, EndsWith("ERR test: Error parsing IP [10.0.0.300]: invalid IP address\n"));
    EXPECT_EQ(log.find('\n'), log.size() - 1) << log;
    ASSERT_TRUE(subscriber.last);
    const IpAddrCfg& address = subscriber.last->audio.front().ipAddrCfg;
    EXPECT_EQ(address.local, 0U);
    EXPECT_EQ(address.transport, 0xef010101U);
}

} // namespace
