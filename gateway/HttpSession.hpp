#pragma once

#include "gateway/Answer.hpp"
#include "gateway/EventStream.hpp"

#include <functional>
#include <list>
#include <string>
#include <vector>

namespace gateway {

class Users;

/// One connection's requests, one after the other. A request for the event stream takes the
/// connection over.
class HttpSession {
public:
    static constexpr std::size_t kMaxHeadBytes = std::size_t{8} * 1024;
    /// For the handshake of TLS, and for a request's head once it has begun.
    static constexpr std::chrono::seconds kHeadLimit{10};
    /// Between two requests.
    static constexpr std::chrono::seconds kIdleLimit{30};
    /// Without progress of an answer.
    static constexpr std::chrono::seconds kStallLimit{10};

    /// What every session of the gateway uses.
    struct Shared {
        std::function<Answer(const Question&)> answer;
        EventStream::Shared stream;
        /// Names besides the listeners' own that a request's Host may have.
        std::vector<std::string> hosts;
        /// Those that there are; who waits for a request stands in the order of its waiting.
        std::list<HttpSession*> sessions;
    };

    /// Serves a connection until either side ends it. With `users`, to these alone.
    static void serve(Transport transport, Shared& shared, Users* users);

    /// Closes the connection that has waited longest for a request. False when none waits.
    static bool makeRoom(Shared& shared);

    /// Closes the connection when its time is over.
    virtual void checkDeadline(Clock::time_point now) = 0;

    /// Closes the connection unless it is being answered; returns whether it has.
    virtual bool giveWay() = 0;

    HttpSession(const HttpSession&) = delete;
    HttpSession& operator=(const HttpSession&) = delete;
    HttpSession(HttpSession&&) = delete;
    HttpSession& operator=(HttpSession&&) = delete;

protected:
    HttpSession() = default;
    ~HttpSession() = default;
};

} // namespace gateway
