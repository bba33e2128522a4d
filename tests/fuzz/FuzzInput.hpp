#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

/// The frames of one message in one input of the fuzzer.
constexpr char kFrameSeparator = '\x1e';

inline std::vector<std::string_view> framesOf(const std::uint8_t* data, std::size_t size) {
    std::string_view rest(reinterpret_cast<const char*>(data), size);
    std::vector<std::string_view> frames;
    for (auto end = rest.find(kFrameSeparator); end != std::string_view::npos;
         end = rest.find(kFrameSeparator)) {
        frames.push_back(rest.substr(0, end));
        rest.remove_prefix(end + 1);
    }
    frames.push_back(rest);
    return frames;
}
