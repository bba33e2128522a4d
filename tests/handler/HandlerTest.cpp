// What the handler owes its caller, a derived class and the set-up, as no message shows it.

#include "handler/WebNotifierHandler.hpp"
#include "platform/PlatformProtocol.hpp"
#include "platform/api/Logger.hpp"
#include "platform/api/ResultCode.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <string>

namespace {

using testing::HasSubstr;

/// What `action` logs.
template <typename Action>
std::string logOf(Action action) {
    testing::internal::CaptureStderr();
    Logger::createLogger(Logger::kToStandardError | Logger::LOG_LEVEL_VERBOSE, "", "test");
    action();
    Logger::createLogger(0, "", "");
    return testing::internal::GetCapturedStderr();
}

TEST(Handler, NewSessionCallsTheUpdateOfADerivedClassAndReturnsItsCode) {
    class Derived : public WebNotifierHandler {
    public:
        int avmgrNotifyUpdateSessionStatusEvent(SessionStatusData& status) override {
            seen = status;
            return -7;
        }
        SessionStatusData seen;
    };
    Derived derived;
    SessionStatusData known;
    known.deviceId = "device";
    ASSERT_EQ(derived.WebNotifierHandler::avmgrNotifyUpdateSessionStatusEvent(known), 0);
    SessionConfigData config;
    config.id = 5;
    config.nmosId = "n";
    const std::string log =
        logOf([&] { EXPECT_EQ(derived.avmgrNotifyNewSessionEvent(config), -7); });
    EXPECT_EQ(derived.seen.deviceId, "device");
    EXPECT_EQ(derived.seen.id, 5U);
    EXPECT_EQ(derived.seen.nmosId, "n");
    EXPECT_THAT(log, HasSubstr("CHK(virtual int WebNotifierHandler::avmgrNotifyNewSessionEvent("
                               "SessionConfigData&))::"));
}

TEST(Handler, CallersGetTheCodeOfWhatFailed) {
    WebNotifierHandler handler;
    unsigned long long unknown = 7;
    EXPECT_EQ(handler.avmgrNotifyRemovedSessionEvent(unknown), result_code::kUnknownSession);
    // Nobody can be asked for the device id.
    SessionConfigData config;
    SessionStatusData status;
    PtpCommonInfo ptp;
    ZatPmcPtpCfg ptpConfig;
    SysParametersDynamic information;
    EXPECT_EQ(handler.notifyDynamicInfoUpdate(information), 0);
    information.eths.emplace_back();
    for (const int code :
         {handler.avmgrNotifyNewSessionEvent(config),
          handler.avmgrNotifyUpdateSessionStatusEvent(status),
          handler.zatPmcPtpStatusChangeEvent(ptp), handler.zatPmcPtpConfigChangeEvent(ptpConfig),
          handler.notifyDynamicInfoUpdate(information), handler.publishAllDeviceStatus("")}) {
        EXPECT_EQ(code, platform_protocol::kErrorUnreachable);
    }
    int stranger = 0;
    EXPECT_FALSE(handler.processIncomingEvents({&stranger, -1, ZMQ_POLLIN, ZMQ_POLLIN}));
    EXPECT_FALSE(handler.processIncomingEvents({nullptr, 0, ZMQ_POLLIN, ZMQ_POLLIN}));
}

TEST(Handler, DescriptionReplacesForAKnownCommandAndIsAppendedForAnUnknownOne) {
    WebNotifierHandler handler;
    std::string known = "prefix ";
    std::string unknown = "prefix ";
    EXPECT_EQ(handler.getCommandDescription(3, known), 0);
    EXPECT_EQ(handler.getCommandDescription(4, unknown), 0);
    EXPECT_EQ(known, "GET Server list");
    EXPECT_EQ(unknown, "prefix not recognized");
}

/// What init logs when there are only so many sockets in the context and places in the poll set;
/// at the end its code and the places it took. In a process of its own, because a handler never
/// closes its command socket.
std::string initWith(int sockets, int places) {
    return logOf([=] {
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
    });
}

TEST(HandlerInit, ChecksEveryStepExceptTheSystemManagers) {
    constexpr int kPlenty = 100;
    // In order: command socket, session manager, system manager, PTP management, NMOS node.
    struct Row {
        int sockets;
        int places;
        int code;
        int items;
    };
    for (const Row& row : {
             Row{kPlenty, 0, platform_protocol::kErrorPollSetFull, 0},
             Row{kPlenty, 1, platform_protocol::kErrorPollSetFull, 1},
             Row{kPlenty, 2, platform_protocol::kErrorPollSetFull, 2},
             Row{kPlenty, 3, platform_protocol::kErrorPollSetFull, 3},
             Row{1, kPlenty, platform_protocol::kErrorSocket, 1},
             Row{2, kPlenty, platform_protocol::kErrorSocket, 2},
             Row{3, kPlenty, platform_protocol::kErrorSocket, 3},
             Row{4, kPlenty, platform_protocol::kErrorSocket, 4},
             Row{kPlenty, 4, 0, 4},
         }) {
        const std::string log = initWith(row.sockets, row.places);
        EXPECT_THAT(log, HasSubstr(" test: " + std::to_string(row.code) + ", " +
                                   std::to_string(row.items) + " items\n"));
        const bool checked = log.find("CHK(int WebNotifierHandler::init(") != std::string::npos;
        EXPECT_EQ(checked, row.code < 0) << log;
    }
}

} // namespace
