#include "gateway/Answer.hpp"

#include "gateway/EventRing.hpp"

#include <algorithm>
#include <memory>

namespace gateway {

Json::Value bodyHead(const EventRing& ring) {
    Json::Value json;
    json["epoch"] = ring.epoch();
    json["seq"] = Json::UInt64{ring.last()};
    json["time"] = timeText(WallClock::now());
    return json;
}

Answer jsonAnswer(const Json::Value& body) {
    return {
        200, "application/json", std::make_shared<const std::string>(jsonText(body) + "\n"), {}};
}

Answer textAnswer(unsigned status, const std::string& text) {
    return {status, "text/plain; charset=utf-8", std::make_shared<const std::string>(text), {}};
}

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

} // namespace gateway
