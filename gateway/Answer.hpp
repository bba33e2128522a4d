#pragma once

#include "gateway/ApiText.hpp"

#include <json/value.h>

#include <charconv>
#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace gateway {

class EventRing;

/// What a path gives.
struct Answer {
    unsigned status = 200;
    std::string type;
    SharedText body;
    /// Further header fields.
    std::vector<std::pair<std::string, std::string>> fields;
};

/// What a request asks for, as far as it matters here.
struct Question {
    /// Without the query.
    std::string_view path;
    std::string_view query;
    std::string_view ifNoneMatch;
    bool acceptsGzip = false;
};

/// What every body about the state has: epoch and number of the last event, and the time.
Json::Value bodyHead(const EventRing& ring);

Answer jsonAnswer(const Json::Value& body);
Answer textAnswer(unsigned status, const std::string& text);

/// An error as RFC 9457 has it. `detail` is a sentence for a person.
Answer problem(unsigned status, const std::string& title, const std::string& detail);

/// A body that takes long to write: many who ask at once share one.
class RecentBody {
public:
    /// What `make` gives or gave, unless an event came since then or it is older than 100 ms.
    template <typename Make>
    SharedText get(std::uint64_t lastEvent, Make&& make) {
        constexpr std::chrono::milliseconds kShared{100};
        const Clock::time_point now = Clock::now();
        if (!text || seq != lastEvent || now - made > kShared) {
            text = jsonAnswer(std::forward<Make>(make)()).body;
            seq = lastEvent;
            made = now;
        }
        return text;
    }

private:
    SharedText text;
    std::uint64_t seq = 0;
    Clock::time_point made;
};

/// The value of a key of a query, empty when it is not there. Nothing that this API takes needs to
/// be decoded.
std::string_view queryValue(std::string_view query, std::string_view key);

/// Nothing when `text` is not wholly a number.
template <typename Number>
std::optional<Number> number(std::string_view text) {
    Number value{};
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (text.empty() || error != std::errc() || end != text.data() + text.size()) {
        return std::nullopt;
    }
    return value;
}

} // namespace gateway
