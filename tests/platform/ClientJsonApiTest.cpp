#include "platform/api/ClientJsonApi.hpp"

#include "platform/PlatformProtocol.hpp"
#include "tests/support/CommandClient.hpp"
#include "tests/support/LogLines.hpp"
#include "tests/support/PlayedServices.hpp"
#include "tests/support/TcpPort.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using std::chrono::milliseconds;
using testing::ElementsAre;
using testing::HasSubstr;

constexpr milliseconds kTimeout{500};

class Client : public ClientJsonApi {
public:
    explicit Client(const char* endpoint)
        : ClientJsonApi(endpoint, static_cast<int>(kTimeout.count())) {}

    /// The code of one request, or 0; `id` is then the device id of the answer.
    int ask() {
        Json::Value reply;
        const auto start = std::chrono::steady_clock::now();
        const int code = request(0, "GET device info", reply);
        took = std::chrono::duration_cast<milliseconds>(std::chrono::steady_clock::now() - start);
        id = code == 0 ? reply["device"]["id"].asString() : "";
        return code;
    }

    std::string id;
    milliseconds took{0};
};

class ClientJsonApiTest : public testing::Test {
protected:
    void SetUp() override { ASSERT_EQ(client.init(context), 0); }

    zmq::context_t context;
    std::string endpoint = freeEndpoint();
    std::optional<PlayedNmosNode> node;
    Client client{endpoint.c_str()};
    CapturedLog log;
};

TEST_F(ClientJsonApiTest, AsksInTheFormOfARequestAndGivesTheAnswersPayload) {
    node.emplace(context, endpoint.c_str());
    EXPECT_EQ(client.ask(), 0);
    EXPECT_EQ(client.id, "dev");
    EXPECT_THAT(node->requests(),
                ElementsAre(R"({"command_id":0,"command_name":"GET device info","payload":null})"));
}

TEST_F(ClientJsonApiTest, AbsentServiceFailsAtOnceAndIsFoundWhenItComesAndComesBack) {
    for (int round = 0; round < 3; ++round) {
        EXPECT_EQ(client.ask(), platform_protocol::kErrorUnreachable);
        EXPECT_LT(client.took, kTimeout);
        EXPECT_THAT(log.lines(), ElementsAre("ERR request to " + endpoint + ": not connected"));
        node.emplace(context, endpoint.c_str());
        EXPECT_EQ(client.ask(), 0);
        node.reset();
        log.lines();
    }
}

TEST_F(ClientJsonApiTest, SilentServiceFailsInTimeAndItsLateAnswersAreNeverTaken) {
    node.emplace(context, endpoint.c_str());
    node->staySilent();
    EXPECT_EQ(client.ask(), platform_protocol::kErrorUnreachable);
    EXPECT_GE(client.took, kTimeout);
    EXPECT_THAT(log.lines(), ElementsAre("ERR request to " + endpoint + ": no answer in time"));

    node->answerRequest(0, PlayedNmosNode::deviceAnswer("late"));
    node->answerWith(PlayedNmosNode::deviceAnswer("second"));
    EXPECT_EQ(client.ask(), 0);
    EXPECT_EQ(client.id, "second");

    // An answer given twice: the surplus one comes while the next request is under way.
    node->staySilent();
    std::thread asking([this] { EXPECT_EQ(client.ask(), 0); });
    ASSERT_TRUE(node->waitForRequests(3));
    node->answerRequest(1, PlayedNmosNode::deviceAnswer("surplus"));
    node->answerRequest(2, PlayedNmosNode::deviceAnswer("third"));
    asking.join();
    EXPECT_EQ(client.id, "third");
}

TEST_F(ClientJsonApiTest, AnswersThatAreNoneFailAndTheNextRequestStartsAfresh) {
    node.emplace(context, endpoint.c_str());
    struct Row {
        std::string answer;
        const char* reason;
        int code = platform_protocol::kErrorMalformed;
    };
    for (const Row& row : {
             Row{"", "not JSON"},
             Row{"nonsense", "not JSON"},
             Row{"[]", "not a JSON object"},
             Row{R"({"a":)" + std::string(100'000, '['), "nested deeper"},
             Row{std::string(platform_protocol::kMaxFrameBytes + 1, ' '), "longer than"},
             Row{R"({"result":"x"})", "cannot be decoded"},
             Row{R"({"result":-7,"error":"no"})", "refused: no", -7},
         }) {
        node->answerWith(row.answer);
        EXPECT_EQ(client.ask(), row.code) << row.reason;
        EXPECT_THAT(log.lines(), ElementsAre(HasSubstr(row.reason)));
        node->answerWith(PlayedNmosNode::deviceAnswer("fine"));
        EXPECT_EQ(client.ask(), 0);
        EXPECT_EQ(client.id, "fine");
    }
}

TEST_F(ClientJsonApiTest, AnswerOfSeveralFramesIsRefused) {
    zmq::socket_t service(context, zmq::socket_type::rep);
    service.set(zmq::sockopt::linger, 0);
    service.bind(endpoint);
    std::thread answering([&service] {
        for (const std::size_t frames : {2U, 1U}) {
            zmq::message_t request;
            (void)service.recv(request);
            sendAll(service, std::vector<std::string>(frames, "{}"));
        }
    });
    EXPECT_EQ(client.ask(), platform_protocol::kErrorMalformed);
    EXPECT_THAT(log.lines(), ElementsAre(HasSubstr("several frames")));
    EXPECT_EQ(client.ask(), 0);
    answering.join();
}

TEST_F(ClientJsonApiTest, SocketThatCannotBeMadeGivesItsCode) {
    zmq::context_t tiny;
    tiny.set(zmq::ctxopt::max_sockets, 1);
    const zmq::socket_t only(tiny, zmq::socket_type::pair);
    Client other(endpoint.c_str());
    EXPECT_EQ(other.ask(), platform_protocol::kErrorUnreachable);
    EXPECT_EQ(other.init(tiny), platform_protocol::kErrorSocket);
}

} // namespace
