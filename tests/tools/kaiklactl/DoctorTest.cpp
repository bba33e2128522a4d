#include "tests/support/TcpPort.hpp"
#include "tests/tools/kaiklactl/KaiklactlTest.hpp"

#include <csignal>

using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

class KaiklactlDoctor : public KaiklactlTest {};

TEST_F(KaiklactlDoctor, findsNothingWrong) {
    startAll();
    Consumer consumer(context);
    registerAndGreet(consumer);
    const Outcome outcome = ctl({"doctor", consumer.address()});
    EXPECT_EQ(outcome.status, 0);
    EXPECT_THAT(outcome.output,
                AllOf(HasSubstr("ok    service     answers at " +
                                std::string(platform_protocol::kCommandEndpoint)),
                      HasSubstr("ok    registered  " + consumer.address() + " is registered.\n"),
                      HasSubstr("ok    reachable   a consumer listens at " + consumer.address()),
                      HasSubstr("ok    device id   dev.\n"),
                      HasSubstr("ok    messages    one came just now")));
    EXPECT_THAT(registered(), ElementsAre(consumer.address()));
    EXPECT_TRUE(consumer.staysSilent()) << "the consumer itself is left in peace";

    add(freeEndpoint());
    const Outcome all = ctl({"doctor"});
    EXPECT_EQ(all.status, 1);
    EXPECT_THAT(all.output,
                AllOf(HasSubstr("ok    registered  2 consumers.\n"),
                      HasSubstr("ok    reachable   "), HasSubstr("FAIL  reachable   ")));
}

TEST_F(KaiklactlDoctor, namesTheMissingService) {
    const Outcome outcome = ctl({"doctor", "--timeout", "0.1", "--server", freeEndpoint()});
    EXPECT_EQ(outcome.status, 3);
    EXPECT_THAT(outcome.output, HasSubstr("FAIL  service     no answer"));
}

TEST_F(KaiklactlDoctor, namesWhatIsWrongWithAnAddress) {
    startAll();
    const std::string nobody = freeEndpoint();
    zmq::socket_t wrongKind(context, zmq::socket_type::rep);
    wrongKind.bind("tcp://127.0.0.1:*");
    const std::string stranger = wrongKind.get(zmq::sockopt::last_endpoint);
    const std::vector<std::pair<std::string, std::string>> expectations = {
        {nobody, "FAIL  reachable   nobody accepts connections at " + nobody},
        {stranger, "FAIL  reachable   something listens at " + stranger},
        {"nonsense", "FAIL  reachable   nonsense is no address"},
    };
    for (const auto& [address, line] : expectations) {
        const Outcome outcome = ctl({"doctor", "--timeout", "1", address});
        EXPECT_EQ(outcome.status, 1);
        EXPECT_THAT(outcome.output,
                    AllOf(HasSubstr(line),
                          HasSubstr("FAIL  registered  " + address + " is not registered")));
    }
}

TEST_F(KaiklactlDoctor, namesTheMissingDeviceId) {
    startAll();
    node->answerWith(PlayedNmosNode::deviceAnswer(""));
    const Outcome nameless = ctl({"doctor"});
    EXPECT_EQ(nameless.status, 0);
    EXPECT_THAT(nameless.output, AllOf(HasSubstr("note  registered  no consumer is registered"),
                                       HasSubstr("note  device id   the NMOS node names none"),
                                       HasSubstr("ok    messages")));
    node.reset();
    const Outcome absent = ctl({"doctor"});
    EXPECT_EQ(absent.status, 1);
    EXPECT_THAT(absent.output, AllOf(HasSubstr("FAIL  device id   unknown"),
                                     HasSubstr(platform_protocol::kNmosNodeEndpoint),
                                     HasSubstr("FAIL  messages    none came")));
    EXPECT_THAT(registered(), IsEmpty());
}

TEST_F(KaiklactlDoctor, takesItsConsumerOutWhenItIsInterrupted) {
    startAll();
    node->staySilent();
    ChildProcess doctor({"kaiklactl", "doctor"});
    ASSERT_TRUE(node->waitForRequests(1)) << "the service carries out the registration";
    doctor.signal(SIGINT);
    EXPECT_EQ(doctor.waitForExit(), 128 + SIGINT);
    EXPECT_THAT(registered(), IsEmpty());
}

} // namespace
