#pragma once

#include <json/value.h>
#include <zmq.hpp>

#include <memory>
#include <string>

/// The base of a client of another service's JSON commands, one synchronous request at a time.
///
/// The client copes with a service that is absent, silent, late or answers nonsense: each request
/// either gives that request's own answer or fails, and the next one starts afresh.
class ClientJsonApi {
public:
    ClientJsonApi(const ClientJsonApi&) = delete;
    ClientJsonApi& operator=(const ClientJsonApi&) = delete;

    /// Connects to the service, which may be absent. Returns 0 or -103. `context` must outlive this
    /// object.
    int init(zmq::context_t& context);

protected:
    /// `endpoint` is where the service listens; a connected service has `answerTimeoutMs` to
    /// answer.
    ClientJsonApi(const char* endpoint, int answerTimeoutMs);
    ~ClientJsonApi();

    /// Sends the command and waits for its answer. On success `reply` is the answer's payload, {}
    /// for a null or missing one. Returns 0; -101 when the answer cannot be decoded; -102 when the
    /// service accepts no connection within 50 ms, does not answer in time, or a stop is requested
    /// meanwhile; the answer's own result when that is negative. A failure is logged at level 2.
    int request(unsigned commandId, const char* commandName, Json::Value& reply);

private:
    struct Impl;
    std::unique_ptr<Impl> impl;
};
