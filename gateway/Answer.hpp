#pragma once

#include "gateway/ApiText.hpp"

#include <json/value.h>

#include <charconv>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace gateway {

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

Answer jsonAnswer(const Json::Value& body);
Answer textAnswer(unsigned status, const std::string& text);

/// An error as RFC 9457 has it. `detail` is a sentence for a person.
Answer problem(unsigned status, const std::string& title, const std::string& detail);

/// The body that `make` gives, with `tag` as its ETag; 304 without it when the client has that one.
template <typename Make>
Answer taggedAnswer(const Question& question, const std::string& tag, Make&& make) {
    // Weak or not is of no interest to this comparison.
    const std::string_view opaque = std::string_view(tag).substr(tag.find('"'));
    const bool isKnown =
        question.ifNoneMatch.find(opaque) != std::string_view::npos || question.ifNoneMatch == "*";
    Answer answer = isKnown ? textAnswer(304, "") : jsonAnswer(std::forward<Make>(make)());
    answer.fields.emplace_back("ETag", tag);
    return answer;
}

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
