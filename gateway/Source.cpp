#include "gateway/Source.hpp"

#include "platform/api/Logger.hpp"

#include <algorithm>
#include <array>

namespace gateway {
namespace {

constexpr std::chrono::seconds kAnswerLimit{10};
/// One that has just been connected is given time for its first answer.
constexpr std::chrono::seconds kFirstAnswerLimit{2};

const char* word(SourceState state) {
    switch (state) {
    case SourceState::live:
        return "live";
    case SourceState::heldUp:
        return "held-up";
    case SourceState::lost:
        break;
    }
    return "lost";
}

} // namespace

bool isSourceWord(std::string_view text) {
    constexpr std::array kStates = {SourceState::live, SourceState::heldUp, SourceState::lost};
    return std::any_of(kStates.begin(), kStates.end(),
                       [text](SourceState state) { return text == word(state); });
}

void Source::update(std::optional<Clock::duration> waiting) {
    SourceState state = shownState == SourceState::heldUp ? shownState : SourceState::lost;
    if (!waiting) {
        state = SourceState::lost;
    } else if (*waiting > kFirstAnswerLimit) {
        state = SourceState::heldUp;
    }
    if (lastAnswer && Clock::now() - *lastAnswer < kAnswerLimit) {
        state = SourceState::live;
    }
    if (state == shownState) {
        return;
    }
    shownState = state;
    stateSince = WallClock::now();
    Logger::log(state == SourceState::live ? Logger::LOG_LEVEL_NTF : Logger::LOG_LEVEL_WRN,
                "the %s is %s", name, word(state));
    changed();
}

void Source::gone() {
    lastAnswer.reset();
    update(std::nullopt);
}

Json::Value Source::toJson() const {
    Json::Value json;
    json["state"] = word(shownState);
    json["since"] = timeText(stateSince);
    json["age_ms"] = Json::Value();
    if (lastContact) {
        const auto age =
            std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - *lastContact);
        json["age_ms"] = Json::Int64{age.count()};
    }
    return json;
}

} // namespace gateway
