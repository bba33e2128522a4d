#include "handler/WebNotifierHandler.hpp"
#include "platform/PlatformProtocol.hpp"
#include "platform/api/Logger.hpp"
#include "tests/support/LogLines.hpp"
#include "tests/support/TcpPort.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>

namespace {

using testing::ElementsAre;

/// What a handler logs when there are only so many sockets in the context and places in the poll
/// set; the last line is "INF CODE, N items". In a process of its own, because a handler never
/// closes its command socket.
std::vector<std::string> initWith(int sockets, int places) {
    CapturedLog log;
    const pid_t child = ::fork();
    if (child == 0) {
        PollFds pollFds;
        const int filled = static_cast<int>(PollFds::kMaxItems) - places;
        while (pollFds.getPollListSize() < filled) {
            pollFds.addFd(0, ZMQ_POLLIN);
        }
        zmq::context_t context;
        context.set(zmq::ctxopt::max_sockets, sockets);
        WebNotifierHandler handler;
        const int code = handler.init(context, pollFds);
        Logger::log(Logger::LOG_LEVEL_INF, "%d, %d items", code,
                    pollFds.getPollListSize() - filled);
        Logger::flush();
        std::_Exit(0);
    }
    int status = 0;
    ::waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
    return log.lines();
}

TEST(HandlerInit, EveryStepsFailureIsCheckedExceptTheSystemManagers) {
    waitUntilFree(platform_protocol::kCommandEndpoint);
    constexpr int kPlenty = 100;
    // In order: command socket, session manager, system manager, PTP management, NMOS node.
    struct Row {
        int sockets;
        int places;
        int code;
        int items;
        std::size_t lines;
    };
    for (const Row& row : {
             Row{kPlenty, 0, platform_protocol::kErrorPollSetFull, 0, 2},
             Row{kPlenty, 1, platform_protocol::kErrorPollSetFull, 1, 2},
             Row{kPlenty, 2, platform_protocol::kErrorPollSetFull, 2, 2},
             Row{kPlenty, 3, platform_protocol::kErrorPollSetFull, 3, 2},
             // Each socket that cannot be made has a line of its own before the check.
             Row{1, kPlenty, platform_protocol::kErrorSocket, 1, 3},
             Row{2, kPlenty, platform_protocol::kErrorSocket, 2, 4},
             Row{3, kPlenty, platform_protocol::kErrorSocket, 3, 3},
             Row{4, kPlenty, platform_protocol::kErrorSocket, 4, 3},
         }) {
        const auto lines = initWith(row.sockets, row.places);
        ASSERT_EQ(lines.size(), row.lines);
        EXPECT_EQ(
            lines[row.lines - 2],
            "ERR CHK(int WebNotifierHandler::init(zmq::context_t&, PollFds&))::# Error Code " +
                std::to_string(row.code));
        EXPECT_EQ(lines.back(),
                  "INF " + std::to_string(row.code) + ", " + std::to_string(row.items) + " items");
    }
    EXPECT_THAT(initWith(kPlenty, 4), ElementsAre("INF 0, 4 items"));
}

TEST(HandlerInit, TakenPortHasItsOwnCodeAndLine) {
    zmq::context_t context;
    waitUntilFree(platform_protocol::kCommandEndpoint);
    zmq::socket_t other(context, zmq::socket_type::rep);
    other.bind(platform_protocol::kCommandBindEndpoint);
    EXPECT_THAT(initWith(100, 100),
                ElementsAre("ERR WebnotifierHandler: Error binding on socket " +
                                std::string(platform_protocol::kCommandBindEndpoint) +
                                ". Error [98]::Address already in use",
                            "INF -35, 0 items"));
}

} // namespace
