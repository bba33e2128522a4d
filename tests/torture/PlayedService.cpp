#include "tests/torture/PlayedService.hpp"

#include "platform/PlatformProtocol.hpp"
#include "tests/torture/Notifier.hpp"

#include <poll.h>

#include <cstdlib>
#include <string>

namespace {

void pauseMs(int milliseconds) {
    ::poll(nullptr, 0, milliseconds);
}

/// Notifies for good; a new subscription is answered with the current state, out of turn.
template <typename Notify>
[[noreturn]] void notifyForever(const char* endpoint, int everyMs, Notify notify) {
    zmq::context_t context;
    Notifier notifier(context, endpoint);
    for (unsigned number = 0;; ++number) {
        while (notifier.newSubscription() != 0) {
            notify(notifier, number++);
        }
        notify(notifier, number);
        pauseMs(everyMs);
    }
}

[[noreturn]] void playSessionManager(const std::string& life) {
    constexpr unsigned kAnonymousEvery = 20;
    notifyForever(platform_protocol::kSessionManagerEndpoint, 1,
                  [&](Notifier& notifier, unsigned number) {
                      const std::string mark = life + "-" + std::to_string(number);
                      if (number % kAnonymousEvery == 0) {
                          notifier.send(AvmgrPublisher::avmgr_session_status,
                                        sessionStatus(PlayedService::kAnonymousSession, mark, ""));
                      }
                      notifier.send(AvmgrPublisher::avmgr_session_status,
                                    sessionStatus(PlayedService::kNumberedSession, mark));
                  });
}

[[noreturn]] void playOther(std::string_view name, const std::string& life) {
    constexpr int kEveryMs = 5;
    if (name == PlayedService::kSystemManager) {
        notifyForever(platform_protocol::kSystemManagerEndpoint, kEveryMs,
                      [&](Notifier& notifier, unsigned number) {
                          notifier.send(
                              SysmgrPublisher::sysmgr_dynamic_information_update,
                              portReport(life + "-" + std::to_string(number), number % 2 == 0));
                      });
    }
    notifyForever(platform_protocol::kPtpManagementEndpoint, kEveryMs,
                  [&](Notifier& notifier, unsigned number) {
                      notifier.send(ZatPmcPublisher::zat_pmc_status_change,
                                    ptpStatus(life + "-" + std::to_string(number)));
                  });
}

[[noreturn]] void playNmosNode(const std::string& life) {
    zmq::context_t context;
    zmq::socket_t socket(context, zmq::socket_type::rep);
    socket.bind(platform_protocol::kNmosNodeEndpoint);
    for (;;) {
        zmq::message_t request;
        (void)socket.recv(request);
        socket.send(zmq::buffer(nmosReply("node-" + life)), zmq::send_flags::none);
    }
}

} // namespace

int PlayedService::run(std::string_view name, std::string_view life) {
    if (name == kSessionManager) {
        playSessionManager(std::string(life));
    }
    if (name == kNmosNode) {
        playNmosNode(std::string(life));
    }
    playOther(name, std::string(life));
}
