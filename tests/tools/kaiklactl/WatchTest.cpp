#include "tests/tools/kaiklactl/KaiklactlTest.hpp"

#include <csignal>

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

namespace {

class KaiklactlWatch : public KaiklactlTest {
protected:
    /// A watch that has the whole status.
    void startWatch(std::vector<std::string> options = {}) {
        options.insert(options.begin(), {"kaiklactl", "watch"});
        watch.emplace(std::move(options));
        ASSERT_TRUE(watch->waitForOutput("whole status")) << watch->error();
        ASSERT_TRUE(watch->waitForError("is registered with")) << watch->error();
    }

    void sendPtp(const char* payload) {
        ptp->send(ZatPmcPublisher::zat_pmc_status_change, payload);
    }

    std::optional<ChildProcess> watch;
};

TEST_F(KaiklactlWatch, printsEachMessageWhenItComesAndRemovesItself) {
    startAll();
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
        sendPtp(kPtpUnlocked);
        startWatch();
        EXPECT_THAT(registered(), SizeIs(1));
        sendPtp(kPtpLocked);
        EXPECT_TRUE(watch->waitForOutput("  status-all      PTP locked, offset 7 ns\n"));
        session->send(AvmgrPublisher::avmgr_session_status,
                      R"({"id":7,"device_id":"dev","stream":[{"id":1,"alarms":[{}]}]})");
        EXPECT_TRUE(watch->waitForOutput(" alarm raised: warning"));
        session->send(AvmgrPublisher::avmgr_removed_session, R"({"id":7})");
        sendPtp(kPtpUnlocked);
        EXPECT_TRUE(watch->waitForOutput("session 7 removed; PTP lost its lock\n"));
        watch->signal(signal);
        EXPECT_EQ(watch->waitForExit(), 0);
        EXPECT_THAT(registered(), IsEmpty()) << "after signal " << signal;
    }
}

TEST_F(KaiklactlWatch, endsWhenNobodyReadsItsOutputAnyLonger) {
    startAll();
    // The reader goes after the first line; no further message tells the writer so.
    const Outcome outcome = shell("kaiklactl watch | head -n 1");
    EXPECT_EQ(outcome.status, 0) << outcome.error;
    EXPECT_THAT(outcome.output, HasSubstr("whole status"));
    EXPECT_THAT(registered(), IsEmpty());
}

TEST_F(KaiklactlWatch, endsAfterTheMessagesAskedForEachOneAsItCame) {
    startAll();
    Consumer consumer(context);
    registerAndGreet(consumer);
    ChildProcess three({"kaiklactl", "watch", "--json", "--count", "3"});
    ASSERT_TRUE(three.waitForOutput("\n"));
    // The same document, sent once more.
    add(consumer.address());
    std::string expected = *consumer.receiveText() + "\n";
    for (const char* payload : {kPtpUnlocked, kPtpLocked}) {
        sendPtp(payload);
        expected += *consumer.receiveText() + "\n";
    }
    sendPtp(kPtpUnlocked);
    const Outcome outcome = three.finish();
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.output, expected);
    EXPECT_THAT(registered(), ElementsAre(consumer.address()));
}

TEST_F(KaiklactlWatch, listensWhereItIsToldAndRegistersWhatItIsTold) {
    startAll();
    startWatch({"--bind", "tcp://0.0.0.0:17001"});
    EXPECT_THAT(registered(), ElementsAre("tcp://127.0.0.1:17001"))
        << "nobody can connect to 0.0.0.0";
    watch->signal(SIGTERM);
    EXPECT_EQ(watch->waitForExit(), 0);
    startWatch({"--bind", "tcp://127.0.0.1:17002", "--address", "tcp://localhost:17002"});
    EXPECT_THAT(registered(), ElementsAre("tcp://localhost:17002"));
}

TEST_F(KaiklactlWatch, registersAgainWithAServiceThatHasRestarted) {
    startAll();
    startWatch();
    const std::vector<std::string> before = registered();
    for (int restart = 1; restart <= 2; ++restart) {
        ASSERT_EQ(stop(SIGTERM), 0);
        EXPECT_TRUE(watch->waitForError("the service is gone", restart));
        startService();
        EXPECT_TRUE(watch->waitForError("is registered again", restart));
        EXPECT_TRUE(watch->waitForOutput("whole status", restart + 1));
        EXPECT_EQ(registered(), before);
    }
    service->signal(SIGKILL);
    EXPECT_TRUE(watch->waitForError("the service is gone", 3));
    watch->signal(SIGTERM);
    EXPECT_EQ(watch->waitForExit(std::chrono::seconds(1)), 0) << "there is nothing to wait for";
}

TEST_F(KaiklactlWatch, endsWhenSomebodyElseRemovesIt) {
    startAll();
    startWatch();
    remove(registered().at(0));
    EXPECT_EQ(watch->waitForExit(), 1);
    EXPECT_TRUE(watch->waitForError("somebody else has removed"));
}

TEST_F(KaiklactlWatch, saysSoWhenNothingComes) {
    startAll();
    node.reset();
    ChildProcess waiting({"kaiklactl", "watch"});
    EXPECT_TRUE(waiting.waitForError("nothing has come yet; \"kaiklactl doctor tcp://127.0.0.1:"));
    node.emplace(context);
    sendPtp(kPtpLocked);
    EXPECT_TRUE(waiting.waitForOutput("whole status"));
}

TEST_F(KaiklactlWatch, takesMessagesAlthoughItsOutputIsNotRead) {
    startAll();
    // What the output pipe, both queues and the network hold together is well below this.
    constexpr int kMessages = 30'000;
    ChildProcess unread({"/bin/bash", "-c",
                         "exec " + builtProgram("kaiklactl") +
                             " watch > >(exec tail --pid=$$ -f /dev/null >/dev/null 2>&1)"});
    ASSERT_TRUE(unread.waitForError("is registered with"));
    for (int i = 0; i < kMessages; ++i) {
        sendPtp(i % 2 == 0 ? kPtpLocked : kPtpUnlocked);
    }
    sendPtp(R"({"clock_id":"last"})");
    Json::Value reply;
    do {
        reply = client.request(kGetStatus);
        ASSERT_TRUE(reply.isObject()) << "the service waits for this consumer";
    } while (reply["payload"]["status"]["ptp"]["clock_id"] != "last");
    unread.signal(SIGTERM);
    EXPECT_EQ(unread.waitForExit(), 0);
    EXPECT_THAT(registered(), IsEmpty());
}

TEST_F(KaiklactlWatch, leavesNoRegistrationBehindWithABusyService) {
    PlayedStranger busy(context);
    ChildProcess process({"kaiklactl", "watch", "--timeout", "0.3", "--server", busy.endpoint()});
    EXPECT_THAT(busy.receive().value_or(""), HasSubstr("Add remote info consumer"));
    EXPECT_EQ(process.waitForExit(), 3);
    EXPECT_THAT(busy.receive().value_or(""), HasSubstr("Remove remote info consumer"))
        << "the service will come to both requests later";

    ChildProcess refused({"kaiklactl", "watch", "--server", busy.endpoint()});
    ASSERT_TRUE(busy.receive());
    busy.answer(R"({"command_id":1,"result":-33,"error":"No."})");
    EXPECT_EQ(refused.waitForExit(), 1);
    EXPECT_TRUE(refused.waitForError("kaiklactl: No.\n"));
}

TEST_F(KaiklactlWatch, tellsWhatItCouldNotRemove) {
    startAll();
    startWatch({"--timeout", "1"});
    service->signal(SIGSTOP);
    watch->signal(SIGINT);
    EXPECT_EQ(watch->waitForExit(), 3);
    EXPECT_TRUE(watch->waitForError("may still be registered: \"kaiklactl remove tcp://"));
    service->signal(SIGCONT);

    ChildProcess second({"kaiklactl", "watch", "--timeout", "60"});
    ASSERT_TRUE(second.waitForOutput("whole status"));
    service->signal(SIGSTOP);
    second.signal(SIGINT);
    second.signal(SIGTERM);
    EXPECT_EQ(second.waitForExit(), 0) << "told twice, it does not wait";
    service->signal(SIGCONT);
}

TEST_F(KaiklactlWatch, survivesWhatStrangersSend) {
    startAll();
    startWatch({"--bind", "tcp://127.0.0.1:17003"});
    zmq::socket_t stranger(context, zmq::socket_type::push);
    stranger.connect("tcp://127.0.0.1:17003");
    stranger.send(zmq::str_buffer("nonsense\x1b[2J"), zmq::send_flags::none);
    stranger.send(zmq::str_buffer("{}"), zmq::send_flags::sndmore);
    stranger.send(zmq::str_buffer("{}"), zmq::send_flags::none);
    EXPECT_TRUE(watch->waitForOutput("this message cannot be read", 2));
    stranger.close();
    sendPtp(kPtpLocked);
    EXPECT_TRUE(watch->waitForOutput("PTP reported: locked"));
    EXPECT_THAT(registered(), SizeIs(1)) << "a stranger's leaving is not the service's";
}

} // namespace
