#pragma once

#include "gateway/ApiText.hpp"

#include <json/value.h>

#include <functional>
#include <optional>
#include <string_view>
#include <utility>

namespace gateway {

/// How the service is doing, as its command interface shows.
enum class SourceState {
    /// A command has been answered within the last ten seconds.
    live,
    /// It is connected, but answers nothing: it waits for another consumer.
    heldUp,
    /// Nothing is there.
    lost,
};

/// Whether a word is that of a state: "live", "held-up" or "lost".
bool isSourceWord(std::string_view word);

/// What is known of the service itself, and how old what it has told is.
class Source {
public:
    /// `onChange` is called for each new state, of which the log tells with this name.
    Source(const char* nameInLog, std::function<void()> onChange)
        : name(nameInLog), changed(std::move(onChange)), stateSince(WallClock::now()) {}

    /// A message has come.
    void heard() { lastContact = Clock::now(); }
    /// A command has been answered.
    void answered() { lastAnswer = lastContact = Clock::now(); }
    /// The connection is lost, and with it all that was known.
    void gone();
    /// Looks at the time. `waiting` is how long the service has not answered a command that it has
    /// been sent; nothing when it is not connected.
    void update(std::optional<Clock::duration> waiting);

    SourceState state() const { return shownState; }

    /// When the service was last heard of; nothing before the first time.
    std::optional<Clock::time_point> contact() const { return lastContact; }

    /// The API's "source".
    Json::Value toJson() const;

private:
    const char* name;
    std::function<void()> changed;
    std::optional<Clock::time_point> lastAnswer;
    std::optional<Clock::time_point> lastContact;
    SourceState shownState = SourceState::lost;
    WallClock::time_point stateSince;
};

} // namespace gateway
