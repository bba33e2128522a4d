#include "gateway/Api.hpp"

#include "gateway/Exposition.hpp"
#include "gateway/Metrics.hpp"

#include <memory>
#include <optional>

namespace gateway {

Api::Api(const Parts& describedParts, bool withSessionMetrics)
    : parts(describedParts), sessionMetrics(withSessionMetrics) {}

Answer Api::answer(const Question& question) const {
    constexpr std::string_view kSessions = "/api/v1/sessions/";
    const std::string_view path = question.path;
    if (path == "/api/v1/status") {
        return statusAnswer(question);
    }
    if (path.starts_with(kSessions)) {
        return sessionAnswer(path.substr(kSessions.size()));
    }
    if (path == "/api/v1/ptp/history") {
        return historyAnswer(question.query);
    }
    if (path == "/api/v1/monitors") {
        return monitorsAnswer();
    }
    if (path == "/api/v1/clients") {
        return clientsAnswer();
    }
    if (path == "/metrics") {
        return {200,
                Exposition::kType,
                std::make_shared<const std::string>(metricsText(parts, sessionMetrics)),
                {}};
    }
    if (path == "/healthz") {
        return textAnswer(200, "ok\n");
    }
    if (path == "/readyz") {
        return readiness();
    }
    return page.answer(question).value_or(
        problem(404, "Not Found", "There is nothing at this path."));
}

Json::Value Api::status() const {
    Json::Value json = bodyHead(parts.ring);
    json["started"] = timeText(started);
    json["source"] = parts.source.toJson();
    json["device"] = parts.device.toJson();
    json["monitors"] = parts.monitors.words();
    return json;
}

Answer Api::statusAnswer(const Question& question) const {
    const std::uint64_t seq = parts.ring.last();
    const std::string id = "\"" + parts.ring.id(seq) + "\"";
    const std::string_view known = question.ifNoneMatch;
    Answer answer =
        known == "*" || known.find(id) != std::string_view::npos
            ? Answer{304, "application/json", std::make_shared<const std::string>(), {}}
            : Answer{
                  200, "application/json", recentStatus.get(seq, [this] { return status(); }), {}};
    // Weak: the time and the age of the data are part of the body, and change by themselves.
    answer.fields.emplace_back("ETag", "W/" + id);
    return answer;
}

Answer Api::sessionAnswer(std::string_view id) const {
    const std::optional<std::uint64_t> key = number<std::uint64_t>(id);
    const Json::Value* const session = key ? parts.device.session(*key) : nullptr;
    return session != nullptr ? jsonAnswer(*session)
                              : problem(404, "Not Found", "There is no session with this id.");
}

Answer Api::historyAnswer(std::string_view query) const {
    std::optional<int> seconds = static_cast<int>(PtpHistory::kLongest.count());
    if (const std::string_view text = queryValue(query, "seconds"); !text.empty()) {
        seconds = number<int>(text);
    }
    if (!seconds || *seconds < 1 || *seconds > PtpHistory::kLongest.count()) {
        return problem(400, "Bad Request", "seconds must be a number from 1 to 3600.");
    }
    Json::Value body = bodyHead(parts.ring);
    body["rows"] = parts.history.rows(std::chrono::seconds(*seconds), WallClock::now());
    return jsonAnswer(body);
}

Answer Api::monitorsAnswer() const {
    Json::Value body = bodyHead(parts.ring);
    body["monitors"] = parts.monitors.details();
    return jsonAnswer(body);
}

Answer Api::clientsAnswer() const {
    Json::Value body = bodyHead(parts.ring);
    body["clients"] = parts.clients.toJson();
    return jsonAnswer(body);
}

Answer Api::readiness() const {
    switch (parts.source.state()) {
    case SourceState::live:
        return textAnswer(200, "ok\n");
    case SourceState::heldUp:
        return problem(503, "Service Unavailable",
                       "The service answers no command: it waits for another consumer.");
    case SourceState::lost:
        break;
    }
    return problem(503, "Service Unavailable", "The service is not there.");
}

} // namespace gateway
