#include "app/WebNotifierServer.hpp"

#include "platform/api/Chk.hpp"
#include "platform/api/Logger.hpp"
#include "platform/api/StopDeadline.hpp"

#include <cerrno>
#include <cstring>

WebNotifierServer::WebNotifierServer() : processBasics(pollFds) {}

WebNotifierServer::~WebNotifierServer() {
    if (!handler.hasRemotes()) {
        StopDeadline::bringForward(StopDeadline::kNoConsumers);
    }
}

int WebNotifierServer::init() {
    return CHK(handler.init(context, pollFds));
}

int WebNotifierServer::mainLoop() {
    constexpr long kWithoutLimit = -1;
    Logger::log(Logger::LOG_LEVEL_INF, "WebNotifierServer - waiting for commands! poll size %d",
                pollFds.getPollListSize());
    while (!ProcessBasics::stopRequested()) {
        Logger::flush();
        const int ready = zmq_poll(pollFds.getPollList(), pollFds.getPollListSize(), kWithoutLimit);
        if (ready == -1) {
            if (errno != EINTR) {
                Logger::log(Logger::LOG_LEVEL_ERR, "WebNotifierServer:: Poll event received: %s",
                            std::strerror(errno));
            }
            continue;
        }
        Logger::log(Logger::LOG_LEVEL_DBG, "WebNotifierServer: something received");
        if (ready == 0) {
            continue;
        }
        if (ready > 1) {
            Logger::log(Logger::LOG_LEVEL_VERBOSE,
                        "WebNotifierServer: Poll event received: %d events", ready);
        }
        dispatchEvents();
    }
    Logger::log(Logger::LOG_LEVEL_WRN, "WebNotifierServer:: Main loop interrupted.");
    return processBasics.tearDownCatchSignals(pollFds);
}

void WebNotifierServer::dispatchEvents() {
    // A handler may add items, so the list and its size are read anew at every step. The handler
    // is asked first, the signal catching after it.
    for (int index = 0; index < pollFds.getPollListSize(); ++index) {
        const zmq_pollitem_t item = pollFds.getPollList()[index];
        if (item.revents == 0) {
            continue;
        }
        if (!handler.processIncomingEvents(item) && !processBasics.processSignalHandlerFd(item)) {
            Logger::log(Logger::LOG_LEVEL_ERR, "WebNotifierServer... a message to no one!!!");
        }
    }
}
