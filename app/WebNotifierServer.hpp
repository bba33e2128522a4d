#pragma once

#include "handler/WebNotifierHandler.hpp"
#include "platform/api/PollFds.hpp"
#include "platform/api/ProcessBasics.hpp"

#include <zmq.hpp>

/// The process-level object: it owns everything that lives as long as the service, and runs the
/// service's only loop. All work happens inside mainLoop, on one thread.
class WebNotifierServer {
public:
    /// Throws zmq::error_t when the ZeroMQ context cannot be created.
    WebNotifierServer();
    /// Once init() has created the command socket, which is never closed, context termination
    /// blocks: StopDeadline, armed by the termination signal or by the caller, ends the process.
    virtual ~WebNotifierServer();
    WebNotifierServer(const WebNotifierServer&) = delete;
    WebNotifierServer& operator=(const WebNotifierServer&) = delete;

    /// Sets the handler up. Returns 0 or the handler's negative code.
    int init();

    /// Waits for events and hands each to its owner until a termination signal has been caught.
    /// Returns the result of tearing down the signal catching.
    int mainLoop();

private:
    void dispatchEvents();

    // Constructed in this order and destroyed in the reverse.
    zmq::context_t context;
    PollFds pollFds;
    ProcessBasics processBasics;
    WebNotifierHandler handler;
};
