#pragma once

#include "gateway/ApiText.hpp"

#include <cstddef>
#include <deque>
#include <functional>
#include <map>
#include <string>

namespace gateway {

/// Asks the broker for what it has about each device.
///
/// A broker queues about a thousand messages for a subscriber and drops what is beyond, without a
/// word and retained ones too. So each device is subscribed to by itself, a few at a time, and
/// asked for again when what has come does not fit together.
class Retrieval {
public:
    /// All of them are needed.
    struct Handlers {
        /// Subscribes to everything about an instance.
        std::function<void(const std::string& instance)> begin;
        /// Whether what has come since then fits together.
        std::function<bool(const std::string& instance)> isWhole;
        /// Everything should have come.
        std::function<void(const std::string& instance)> end;
    };
    explicit Retrieval(Handlers itsHandlers);

    /// The connection is lost, and everything has to be asked for again.
    void reset();
    /// There is such an instance. It is asked for once.
    void add(const std::string& instance);
    /// It is there no more.
    void remove(const std::string& instance);
    /// The broker has told something about it.
    void heard(const std::string& instance, bool isRetained, Clock::time_point now);
    /// Several times a second.
    void tick(Clock::time_point now);

private:
    struct Entry {
        enum class Phase {
            /// It will be asked for.
            waiting,
            /// What it has is coming.
            asked,
            /// What it has should be here; some may be late.
            ending,
            /// Nothing is expected.
            quiet,
            /// Something has come by itself, and is looked at when more has had time to follow.
            changed,
        } phase = Phase::waiting;
        /// Since the phase began, or since the last message while asked.
        Clock::time_point since;
        unsigned attempts = 0;
        /// How often it did not fit together after all attempts.
        unsigned failures = 0;
    };

    void enter(const std::string& instance, Entry& entry, Entry::Phase phase,
               Clock::time_point now);
    void askNext(Clock::time_point now);
    void look(const std::string& instance, Entry& entry, Clock::time_point now);

    Handlers handlers;
    std::map<std::string, Entry> entries;
    std::deque<std::string> queue;
    std::size_t asked = 0;
};

} // namespace gateway
