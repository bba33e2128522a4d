#include "gateway/Api.hpp"

#include "gateway/Assets.hpp"
#include "gateway/Metrics.hpp"

#include <charconv>
#include <optional>

namespace gateway {
namespace {

Answer jsonAnswer(const Json::Value& body) {
    return {
        200, "application/json", std::make_shared<const std::string>(jsonText(body) + "\n"), {}};
}

Answer textAnswer(unsigned status, const std::string& text) {
    return {status, "text/plain; charset=utf-8", std::make_shared<const std::string>(text), {}};
}

template <typename Number>
std::optional<Number> number(std::string_view text) {
    Number value{};
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (text.empty() || error != std::errc() || end != text.data() + text.size()) {
        return std::nullopt;
    }
    return value;
}

} // namespace

Answer problem(unsigned status, const std::string& title, const std::string& detail) {
    Json::Value body;
    body["type"] = "about:blank";
    body["title"] = title;
    body["status"] = status;
    body["detail"] = detail;
    return {status,
            "application/problem+json",
            std::make_shared<const std::string>(jsonText(body) + "\n"),
            {}};
}

std::string_view queryValue(std::string_view query, std::string_view key) {
    while (!query.empty()) {
        const std::string_view pair = query.substr(0, query.find('&'));
        query.remove_prefix(std::min(query.size(), pair.size() + 1));
        if (pair.size() > key.size() && pair.starts_with(key) && pair[key.size()] == '=') {
            return pair.substr(key.size() + 1);
        }
    }
    return {};
}

Api::Api(const Parts& describedParts, bool withSessionMetrics)
    : parts(describedParts), sessionMetrics(withSessionMetrics) {
    const auto text = [](std::span<const unsigned char> bytes) {
        return std::make_shared<const std::string>(bytes.begin(), bytes.end());
    };
    for (const Asset& asset : assets()) {
        files[std::string(asset.path)] = {asset.type, text(asset.plain), text(asset.gzip)};
    }
}

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
                kMetricsType,
                std::make_shared<const std::string>(metricsText(parts, sessionMetrics)),
                {}};
    }
    if (path == "/healthz") {
        return textAnswer(200, "ok\n");
    }
    if (path == "/readyz") {
        return readiness();
    }
    if (const auto file = files.find(path); file != files.end()) {
        return fileAnswer(file->second, question);
    }
    return problem(404, "Not Found", "There is nothing at this path.");
}

SharedText Api::snapshot() {
    constexpr std::chrono::milliseconds kShared{100};
    const Clock::time_point now = Clock::now();
    if (!snapshotText || snapshotSeq != parts.ring.last() || now - snapshotMade > kShared) {
        snapshotSeq = parts.ring.last();
        snapshotMade = now;
        snapshotText = std::make_shared<const std::string>(
            eventLines("snapshot", parts.ring.id(snapshotSeq), jsonText(status())));
    }
    return snapshotText;
}

Answer Api::fileAnswer(const File& file, const Question& question) const {
    // The page names its files after their content: only the page itself is ever asked for again.
    const bool isPage = question.path == "/";
    Answer answer{200,
                  file.type,
                  question.acceptsGzip ? file.gzip : file.plain,
                  {{"Cache-Control", isPage ? "no-cache" : "public, max-age=31536000, immutable"},
                   {"Vary", "Accept-Encoding"}}};
    if (question.acceptsGzip) {
        answer.fields.emplace_back("Content-Encoding", "gzip");
    }
    return answer;
}

Json::Value Api::head() const {
    Json::Value json;
    json["epoch"] = parts.ring.epoch();
    json["seq"] = Json::UInt64{parts.ring.last()};
    json["time"] = timeText(WallClock::now());
    return json;
}

Json::Value Api::status() const {
    Json::Value json = head();
    json["started"] = timeText(started);
    json["source"] = parts.source.toJson();
    json["device"] = parts.device.toJson();
    json["monitors"] = parts.monitors.words();
    return json;
}

Answer Api::statusAnswer(const Question& question) const {
    // Weak: the time and the age of the data are part of the body, and change by themselves.
    const std::string tag = "W/\"" + parts.ring.id(parts.ring.last()) + "\"";
    Answer answer;
    if (question.ifNoneMatch.find(tag) != std::string_view::npos || question.ifNoneMatch == "*") {
        answer = textAnswer(304, "");
    } else {
        answer = jsonAnswer(status());
    }
    answer.fields.emplace_back("ETag", tag);
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
    Json::Value body = head();
    body["rows"] = parts.history.rows(std::chrono::seconds(*seconds), WallClock::now());
    return jsonAnswer(body);
}

Answer Api::monitorsAnswer() const {
    Json::Value body = head();
    body["monitors"] = parts.monitors.details();
    return jsonAnswer(body);
}

Answer Api::clientsAnswer() const {
    Json::Value body = head();
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
