// What the handler owes its caller, a derived class and the set-up, as no message shows it.

#include "handler/WebNotifierHandler.hpp"
#include "platform/PlatformProtocol.hpp"
#include "platform/api/Logger.hpp"
#include "platform/api/ResultCode.hpp"

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

namespace {

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
    EXPECT_EQ(derived.avmgrNotifyNewSessionEvent(config), -7);
    EXPECT_EQ(derived.seen.deviceId, "device");
    EXPECT_EQ(derived.seen.id, 5U);
    EXPECT_EQ(derived.seen.nmosId, "n");
}

TEST(Handler, CallersGetTheCodeOfWhatFailed) {
    WebNotifierHandler handler;
    unsigned long long unknown = 7;
    EXPECT_EQ(handler.avmgrNotifyRemovedSessionEvent(unknown), result_code::kUnknownSession);
    // Nobody can be asked for the device id.
    PtpCommonInfo ptp;
    SysParametersDynamic information;
    EXPECT_EQ(handler.notifyDynamicInfoUpdate(information), 0);
    information.eths.emplace_back();
    for (const int code :
         {handler.zatPmcPtpStatusChangeEvent(ptp), handler.notifyDynamicInfoUpdate(information)}) {
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

/// Ends the process with the code of init, without its sign, when there are only so many sockets in
/// the context and places in the poll set.
void initWith(int sockets, int places, int placesTaken) {
    Logger::createLogger(Logger::kToStandardError | Logger::LOG_LEVEL_ERR, "", "test");
    PollFds pollFds;
    const int filled = static_cast<int>(PollFds::kMaxItems) - places;
    while (pollFds.getPollListSize() < filled) {
        pollFds.addFd(0, ZMQ_POLLIN);
    }
    zmq::context_t context;
    context.set(zmq::ctxopt::max_sockets, sockets);
    WebNotifierHandler handler;
    const int code = handler.init(context, pollFds);
    std::_Exit(pollFds.getPollListSize() == filled + placesTaken ? -code : 1);
}

TEST(HandlerInitDeathTest, ChecksEveryStepExceptTheSystemManagers) {
    constexpr int kPlenty = 100;
    constexpr int kFull = -platform_protocol::kErrorPollSetFull;
    constexpr int kNoSocket = -platform_protocol::kErrorSocket;
    const std::string checked = R"(CHK\(int WebNotifierHandler::init\()";
    // In order: command socket, session manager, system manager, PTP management, NMOS node.
    for (int places = 0; places < 4; ++places) {
        EXPECT_EXIT(initWith(kPlenty, places, places), testing::ExitedWithCode(kFull), checked);
    }
    int sockets = 0;
    for (const char* first : {"session manager: ", "system manager: .*PTP management: ",
                              "PTP management: ", "request"}) {
        ++sockets;
        EXPECT_EXIT(initWith(sockets, kPlenty, sockets), testing::ExitedWithCode(kNoSocket),
                    std::string("ERR test: ").append(first).append(".*").append(checked));
    }
    EXPECT_EXIT(initWith(kPlenty, 4, 4), testing::ExitedWithCode(0), "^$");
}

} // namespace
