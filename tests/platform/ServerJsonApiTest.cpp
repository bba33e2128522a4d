#include "platform/api/ServerJsonApi.hpp"

#include "platform/PlatformProtocol.hpp"
#include "platform/api/ResultCode.hpp"
#include "tests/support/CommandClient.hpp"
#include "tests/support/PlayedServices.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using testing::HasSubstr;

/// Command 1 answers with its payload's "text", 2 fails with that number, 3 wants no reply.
class PlayedServer : public ServerJsonApi {
public:
    int getCommandDescription(unsigned int commandId, std::string& description) override {
        description += "command " + std::to_string(commandId);
        return 0;
    }
    int ipcProcessMsg(IpcMsg& request, Json::Value& reply, bool& replyWanted) override {
        switch (request.commandId) {
        case 1:
            reply["text"] = request.payload["text"].asString();
            return 0;
        case 2:
            return request.payload["code"].asInt();
        default:
            reply["text"] = "unwanted";
            replyWanted = false;
            return 0;
        }
    }
};

class ServerJsonApiTest : public testing::Test {
protected:
    ServerJsonApiTest() {
        replier.bind("inproc://commands");
        requester.connect("inproc://commands");
        requester.set(zmq::sockopt::rcvtimeo, 10'000);
    }

    /// The reply to one request of these frames; `result` is what the server gave its caller.
    std::string replyTo(const std::vector<std::string>& frames) {
        sendAll(requester, frames);
        zmq_pollitem_t item{replier.handle(), -1, ZMQ_POLLIN, 0};
        zmq_poll(&item, 1, 10'000);
        result = server.ipcPreProcessMsg(&replier);
        zmq::message_t reply;
        EXPECT_TRUE(requester.recv(reply));
        return reply.to_string();
    }

    zmq::context_t context;
    zmq::socket_t replier{context, zmq::socket_type::rep};
    zmq::socket_t requester{context, zmq::socket_type::req};
    PlayedServer server;
    int result = 0;
};

TEST_F(ServerJsonApiTest, ReplyIsOneCompactObjectAroundWhatTheCommandLeft) {
    EXPECT_EQ(replyTo({R"({"command_id":1,"command_name":"whatever","payload":{"text":"t"}})"}),
              R"({"command_id":1,"command_name":"command 1","payload":{"text":"t"},"result":0})");
    EXPECT_EQ(replyTo({R"({"command_id":3})"}),
              R"({"command_id":3,"command_name":"command 3","payload":{},"result":0})");
    EXPECT_EQ(result, 0);
}

TEST_F(ServerJsonApiTest, NegativeResultComesWithASentence) {
    struct Row {
        int code;
        const char* sentence;
    };
    for (const Row& row : {Row{result_code::kUnknownId, "no command with this command_id"},
                           Row{result_code::kConsumerNotConnected, "cannot connect to this"},
                           Row{platform_protocol::kErrorUnreachable, "cannot be reached"},
                           Row{platform_protocol::kErrorSocket, "socket"}, Row{-7, "code -7"}}) {
        const Json::Value reply = parseJson(
            replyTo({R"({"command_id":2,"payload":{"code":)" + std::to_string(row.code) + "}}"}));
        EXPECT_EQ(result, row.code);
        EXPECT_EQ(reply["result"], row.code);
        EXPECT_EQ(reply["payload"], Json::Value(Json::objectValue));
        EXPECT_THAT(reply["error"].asString(), HasSubstr(row.sentence));
        EXPECT_THAT(reply["error"].asString(), testing::EndsWith("."));
    }
}

TEST_F(ServerJsonApiTest, WhatCannotBeDecodedGetsOneReplyThatSaysWhy) {
    const std::string good = R"({"command_id":1,"payload":{"text":"t"}})";
    struct Row {
        std::vector<std::string> frames;
        const char* error;
        unsigned commandId = 0;
        const char* commandName = "";
    };
    for (const Row& row : {
             Row{{good, good}, "several frames"},
             Row{{"", good}, "several frames"},
             Row{{""}, "not JSON"},
             Row{{std::string("\xff\0{}", 4)}, "not JSON"},
             Row{{good + "x"}, "not JSON"},
             Row{{"[1]"}, "not a JSON object"},
             Row{{std::string(platform_protocol::kMaxFrameBytes + 1, ' ')}, "longer than"},
             Row{{R"({"command_id":1,"payload":)" + std::string(300'000, '[')}, "deeper"},
             Row{{"{}"}, R"("command_id" is missing)"},
             Row{{R"({"command_id":-1})"}, R"("command_id" is not)"},
             Row{{R"({"command_id":"1"})"}, R"("command_id" is not)"},
             Row{{R"({"command_id":1,"payload":{"text":{}}})"},
                 "cannot be decoded",
                 1,
                 "command 1"},
             Row{{R"({"command_id":1,"payload":"text"})"}, "cannot be decoded", 1, "command 1"},
         }) {
        const Json::Value reply = parseJson(replyTo(row.frames));
        EXPECT_EQ(result, platform_protocol::kErrorMalformed);
        EXPECT_EQ(reply["result"], platform_protocol::kErrorMalformed);
        EXPECT_EQ(reply["command_id"].asUInt(), row.commandId);
        EXPECT_EQ(reply["command_name"], row.commandName);
        EXPECT_EQ(reply["payload"], Json::Value(Json::objectValue));
        EXPECT_THAT(reply["error"].asString(), HasSubstr(row.error));
        EXPECT_EQ(reply.size(), 5U);
    }
    EXPECT_EQ(parseJson(replyTo({good}))["result"], 0);
}

TEST_F(ServerJsonApiTest, NothingToReceiveIsNoFault) {
    EXPECT_EQ(server.ipcPreProcessMsg(&replier), 0);
}

} // namespace
