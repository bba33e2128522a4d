#include "tests/support/ServiceTest.hpp"
#include "tests/support/TcpPort.hpp"
#include "tests/support/TemporaryDirectory.hpp"

#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <filesystem>

using testing::StartsWith;

namespace {

/// Runs the demo as a terminal does, in a process group of its own, and looks for what it leaves
/// behind: processes, which become this one's children, and files.
class Demo : public ServiceTest {
public:
    Demo() {
        ::prctl(PR_SET_CHILD_SUBREAPER, 1);
        ::setenv("TMPDIR", directory.path().c_str(), 1);
    }
    void TearDown() override { ::unsetenv("TMPDIR"); }

protected:
    static std::vector<std::string> command() { return {"/usr/bin/setsid", DEMO, KAIKLA_BIN_DIR}; }

    /// Call once the demo has been waited for and nothing else runs.
    void expectNothingLeft() {
        const pid_t left = ::waitpid(-1, nullptr, WNOHANG);
        EXPECT_TRUE(left == -1 && errno == ECHILD) << "a process is left";
        EXPECT_TRUE(std::filesystem::is_empty(directory.path())) << "a file is left";
    }

    /// The demo refuses to start with one sentence that begins with `sentence`.
    static void expectRefusal(const std::string& sentence) {
        const Outcome demo = run(command());
        EXPECT_NE(demo.status.value_or(0), 0);
        EXPECT_THAT(demo.error, StartsWith(sentence));
        EXPECT_EQ(countOf(demo.error, "\n"), 1) << demo.error;
        EXPECT_EQ(demo.output, "");
    }

private:
    TemporaryDirectory directory;
};

TEST_F(Demo, playsTheDayAndLeavesNothingBehind) {
    ChildProcess demo(command());
    ASSERT_EQ(demo.waitForExit(std::chrono::seconds(30)), 0) << demo.error();
    expectNothingLeft();
    EXPECT_TRUE(demo.waitForOutput("\n}\n"));
    const std::string output = demo.output();
    std::size_t from = 0;
    const std::vector<std::string> course = {
        "  status-all      whole status: 0 sessions, no alarm, PTP locked",
        "  status-session  session 1 new (2 streams)\n",
        "  status-session  session 2 new (3 streams)\n",
        " alarm raised: ",
        " alarm cleared: ",
        "  status-all      PTP lost its lock",
        "  status-all      PTP locked",
        "  status-all      port eth1 down\n",
        "  status-all      port eth1 up\n",
        "  status-all      session 1 removed",
        "\n{\n  \"device_id\": ",
    };
    for (const std::string& line : course) {
        const auto at = output.find(line, from);
        ASSERT_NE(at, std::string::npos) << line << " is missing or too early in\n" << output;
        from = at;
    }
    const Json::Value document = parseJson(output.substr(output.find("\n{\n")));
    EXPECT_EQ(document["sessions"].size(), 1U);
    EXPECT_EQ(document["sessions"][0]["id"], 2);
}

TEST_F(Demo, endsCleanlyWhereverItIsInterrupted) {
    struct Moment {
        std::string seen;
        int signal;
    };
    // The first ones come while the parts start up.
    for (const Moment& moment :
         {Moment{"", SIGINT}, Moment{"", SIGTERM}, Moment{"A consumer registers", SIGINT},
          Moment{"A consumer registers", SIGTERM}, Moment{"whole status", SIGINT},
          Moment{"whole status", SIGTERM}, Moment{"session 1 new", SIGINT}}) {
        ChildProcess demo(command());
        ASSERT_TRUE(moment.seen.empty() || demo.waitForOutput(moment.seen)) << demo.error();
        // Ctrl-C reaches every process of the terminal's foreground group, a plain kill only one.
        const pid_t target = moment.signal == SIGINT ? -demo.pid() : demo.pid();
        while (::kill(target, moment.signal) != 0) {
            ASSERT_EQ(errno, ESRCH) << "the group is about to be made";
        }
        EXPECT_EQ(demo.waitForExit(), 128 + moment.signal) << moment.seen;
        expectNothingLeft();
    }
}

TEST_F(Demo, namesAPortThatIsTaken) {
    startService();
    expectRefusal(std::string("demo: ") + platform_protocol::kCommandEndpoint + " is taken");
    EXPECT_EQ(client.request(kList)["result"], 0) << "the running service is left alone";
    EXPECT_EQ(stop(SIGTERM), 0);
    service.reset();

    zmq::socket_t stranger(context, zmq::socket_type::router);
    stranger.bind(platform_protocol::kCommandBindEndpoint);
    expectRefusal(std::string("demo: ") + platform_protocol::kCommandBindEndpoint + " is taken");
    stranger.close();
    waitUntilFree(platform_protocol::kCommandEndpoint);

    ptp.emplace(context, platform_protocol::kPtpManagementEndpoint);
    expectRefusal("demo: the simulated device does not start: ");
    expectNothingLeft();
}

} // namespace
