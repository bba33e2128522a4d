#pragma once

#include "tests/torture/SoakLoad.hpp"

#include <zmq.hpp>

#include <cstdint>
#include <deque>
#include <string>

/// What consumers have to be told of sessions, by number, for as long as somebody may still get it.
class ToldSessions {
public:
    void add(std::string message) { messages.push_back(std::move(message)); }
    const std::string& at(std::int64_t number) const;
    void forgetUpTo(std::int64_t number);
    std::int64_t oldestKept() const { return first; }

private:
    std::deque<std::string> messages;
    std::int64_t first = 0;
};

/// A consumer that holds every message against what has been notified: nothing is lost, nothing
/// comes twice or out of order, and what it is told of a session is right byte for byte.
class SoakConsumer {
public:
    SoakConsumer(zmq::context_t& context, const ToldSessions& toldSessions);

    const std::string& address() const { return endpoint; }
    zmq_pollitem_t pollItem() { return {socket.handle(), -1, ZMQ_POLLIN, 0}; }

    /// Reads what has come; throws BrokenPromise. Returns the number of messages.
    int readAll();

    /// The last numbers read; kNothing for a source that has not been heard of.
    const SoakLoad::Progress& progress() const { return heard; }
    /// The last session message that it cannot get any more.
    std::int64_t doneWithSessions() const;
    bool hasHeard(const SoakLoad::Progress& target) const;

private:
    void take(const std::string& message);
    void takeDocument(const std::string& message);

    const ToldSessions& told;
    zmq::socket_t socket;
    std::string endpoint;
    std::int64_t oldestWhenItCame;
    SoakLoad::Progress heard{SoakLoad::kNothing, SoakLoad::kNothing, SoakLoad::kNothing};
    bool welcomed = false;
};
