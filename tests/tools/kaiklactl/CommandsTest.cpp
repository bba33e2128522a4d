#include "tests/support/TcpPort.hpp"
#include "tests/tools/kaiklactl/KaiklactlTest.hpp"

using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

namespace {

class KaiklactlCommands : public KaiklactlTest {};

TEST_F(KaiklactlCommands, registersListsAndRemovesConsumers) {
    startService();
    EXPECT_EQ(ctl({"list"}).output, "");
    EXPECT_EQ(ctl({"add", "tcp://127.0.0.1:7002"}).status, 0);
    EXPECT_EQ(ctl({"add", "tcp://127.0.0.1:7001"}).output, "tcp://127.0.0.1:7001 is registered.\n");
    EXPECT_THAT(registered(), ElementsAre("tcp://127.0.0.1:7001", "tcp://127.0.0.1:7002"));
    EXPECT_EQ(ctl({"list"}).output, "tcp://127.0.0.1:7001\ntcp://127.0.0.1:7002\n");
    EXPECT_EQ(ctl({"remove", "tcp://127.0.0.1:7002"}).status, 0);
    EXPECT_THAT(registered(), ElementsAre("tcp://127.0.0.1:7001"));

    const Outcome refused = ctl({"add", "nonsense"});
    EXPECT_EQ(refused.status, 1);
    EXPECT_EQ(refused.output, "");
    EXPECT_THAT(refused.error, StartsWith("kaiklactl: The service cannot connect to this address"));
}

TEST_F(KaiklactlCommands, printsTheDocument) {
    startAll();
    ptp->send(ZatPmcPublisher::zat_pmc_status_change,
              R"({"clock_id":"é\u001b[2J","locked":true,"offset_ns":-9223372036854775808})");
    while (!document()["ptp"]["locked"].asBool()) {
    }
    const std::string asItCame = *client.exchange(R"({"command_id":0})");

    const Outcome json = ctl({"status", "--json"});
    EXPECT_EQ(json.status, 0);
    ASSERT_THAT(json.output, EndsWith("}\n"));
    EXPECT_THAT(asItCame,
                HasSubstr(R"("status":)" + json.output.substr(0, json.output.size() - 1) + "}"));

    const Outcome pretty = ctl({"status", "--pretty"});
    EXPECT_EQ(parseJson(pretty.output), document());
    EXPECT_THAT(pretty.output, HasSubstr("\n    \"cfgFlag\": false,\n"));

    const Outcome text = ctl({"status"});
    EXPECT_EQ(text.status, 0);
    EXPECT_THAT(text.output, HasSubstr("PTP       locked, offset -9223372036854775808 ns"));
    EXPECT_THAT(text.output, Not(HasSubstr("\x1b"))) << "no colour and no control in a pipe";
}

TEST_F(KaiklactlCommands, paintsOnATerminalOnly) {
    startService();
    const auto onTerminal = [](const std::string& environment) {
        return shell("script -qec '" + environment + " kaiklactl status' /dev/null");
    };
    EXPECT_THAT(onTerminal("TERM=xterm NO_COLOR=").output, HasSubstr("\x1b[32mnone\x1b[0m"));
    EXPECT_THAT(onTerminal("TERM=xterm NO_COLOR=1").output, Not(HasSubstr("\x1b")));
    EXPECT_THAT(onTerminal("TERM=dumb NO_COLOR=").output, Not(HasSubstr("\x1b")));
}

TEST_F(KaiklactlCommands, tellsMistakesOfTheCommandLineApart) {
    const std::vector<std::vector<std::string>> mistakes = {
        {},
        {"nonsense"},
        {"add"},
        {"remove"},
        {"list", "surplus"},
        {"status", "--nonsense"},
        {"status", "--server", "nonsense"},
        {"status", "--timeout", "0"},
        {"status", "--timeout", "soon"},
        {"watch", "--count", "0"},
        {"watch", "--bind", "nonsense"},
        {"watch", "--bind", "tcp://192.0.2.1:7000"},
    };
    for (const std::vector<std::string>& arguments : mistakes) {
        const Outcome outcome = ctl(arguments);
        EXPECT_EQ(outcome.status, 2) << testing::PrintToString(arguments);
        EXPECT_EQ(outcome.output, "") << testing::PrintToString(arguments);
        EXPECT_NE(outcome.error, "") << testing::PrintToString(arguments);
    }
    for (const char* question : {"--help", "--version"}) {
        const Outcome outcome = ctl({question});
        EXPECT_EQ(outcome.status, 0);
        EXPECT_THAT(outcome.output, HasSubstr("kaiklactl"));
    }
}

TEST_F(KaiklactlCommands, saysWhyNoAnswerCame) {
    const Outcome nobody = ctl({"status", "--timeout", "0.1", "--server", freeEndpoint()});
    EXPECT_EQ(nobody.status, 3);
    EXPECT_THAT(nobody.error, HasSubstr("within 0.1 s: kaikla does not run there"));

    PlayedStranger stranger(context);
    const Outcome silent = ctl({"list", "--timeout", "0.3", "--server", stranger.endpoint()});
    EXPECT_EQ(silent.status, 3);
    EXPECT_THAT(silent.error, HasSubstr("it is there but busy"));

    for (const char* answer :
         {"nonsense", "[]", R"({"result":"none"})", R"({"result":0,"payload":7})",
          R"({"result":0,"payload":{"status":{"device_id":[]}}})"}) {
        PlayedStranger talkative(context);
        ChildProcess process({"kaiklactl", "status", "--server", talkative.endpoint()});
        ASSERT_TRUE(talkative.receive());
        talkative.answer(answer);
        const Outcome outcome = process.finish();
        EXPECT_EQ(outcome.status, 3) << answer;
        EXPECT_THAT(outcome.error, StartsWith("kaiklactl: the answer ")) << answer;
    }
}

TEST_F(KaiklactlCommands, makesTheServicesWordsPrintable) {
    PlayedStranger stranger(context);
    ChildProcess refused({"kaiklactl", "add", "x", "--server", stranger.endpoint()});
    ASSERT_TRUE(stranger.receive());
    stranger.answer(R"({"command_id":1,"result":-1,"error":"No.\u001b[2J\r\n"})");
    EXPECT_EQ(refused.finish().error, "kaiklactl: No.\\x1b[2J\\r\\n\n");

    ChildProcess list({"kaiklactl", "list", "--server", stranger.endpoint()});
    ASSERT_TRUE(stranger.receive());
    stranger.answer(R"({"command_id":3,"result":0,"payload":{"remote":["a\nb"]}})");
    EXPECT_EQ(list.finish().output, "a\\nb\n");
}

TEST_F(KaiklactlCommands, failsWhenTheOutputIsLost) {
    startAll();
    for (const char* command : {"status", "watch"}) {
        EXPECT_EQ(shell("kaiklactl " + std::string(command) + " >/dev/full").status, 4) << command;
        EXPECT_THAT(registered(), IsEmpty());
    }
}

} // namespace
