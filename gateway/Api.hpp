#pragma once

#include "gateway/Answer.hpp"
#include "gateway/Page.hpp"
#include "gateway/Parts.hpp"

#include <string_view>

namespace gateway {

/// Every path but the event stream: what it answers. It reads and never changes anything.
class Api {
public:
    Api(const Parts& describedParts, bool withSessionMetrics);

    Answer answer(const Question& question) const;

    /// The body of the whole state.
    Json::Value status() const;

private:
    Answer statusAnswer(const Question& question) const;
    Answer sessionAnswer(std::string_view id) const;
    Answer historyAnswer(std::string_view query) const;
    Answer monitorsAnswer() const;
    Answer clientsAnswer() const;
    Answer readiness() const;

    Parts parts;
    bool sessionMetrics;
    WallClock::time_point started = WallClock::now();
    Page page{{{"/", "index.html"}}};
    mutable RecentBody recentStatus;
};

} // namespace gateway
