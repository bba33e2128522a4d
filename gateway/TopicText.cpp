#include "gateway/TopicText.hpp"

#include <algorithm>
#include <charconv>

namespace gateway {
namespace {

bool isPlain(char c) {
    constexpr std::string_view kRead = "/+#%";
    return c >= ' ' && c <= '~' && kRead.find(c) == std::string_view::npos;
}

bool isPartOfInstanceName(char c) {
    return c == '-' || c == '_' || c == '.' || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') ||
           (c >= '0' && c <= '9');
}

} // namespace

std::string topicLevel(std::string_view name) {
    constexpr std::string_view kDigits = "0123456789ABCDEF";
    std::string level;
    for (const char c : name) {
        if (isPlain(c)) {
            level += c;
        } else {
            const auto byte = static_cast<unsigned char>(c);
            level += {'%', kDigits[byte / kDigits.size()], kDigits[byte % kDigits.size()]};
        }
    }
    return level;
}

std::optional<std::string> nameOfLevel(std::string_view level) {
    constexpr std::size_t kCodeLength = 3;
    constexpr int kBase = 16;
    std::string name;
    for (std::size_t i = 0; i < level.size();) {
        if (level[i] != '%') {
            name += level[i++];
            continue;
        }
        const std::string_view digits = level.substr(i + 1, kCodeLength - 1);
        unsigned char byte = 0;
        (void)std::from_chars(digits.data(), digits.data() + digits.size(), byte, kBase);
        name += static_cast<char>(byte);
        i += kCodeLength;
    }
    // What is written in another way, or is cut off, names nothing.
    return topicLevel(name) == level ? std::optional(name) : std::nullopt;
}

std::string topicBranch(std::string_view instance) {
    return std::string(kTopicRoot).append(instance) + "/";
}

std::string portTopic(std::string_view name) {
    return std::string(kPortTopics) + topicLevel(name);
}

std::string sessionTopic(std::string_view id) {
    return std::string(kSessionTopics).append(id);
}

bool isInstanceName(std::string_view text) {
    constexpr std::size_t kLongest = 64;
    return !text.empty() && text.size() <= kLongest &&
           std::all_of(text.begin(), text.end(), isPartOfInstanceName);
}

} // namespace gateway
