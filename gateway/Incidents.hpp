#pragma once

#include "gateway/ApiText.hpp"

#include <cstdint>
#include <initializer_list>
#include <map>
#include <string>
#include <string_view>

namespace gateway {

/// What the gateway refuses, drops or closes: each is counted, and told in the log at most once in
/// ten seconds for each kind and reason.
class Incidents {
public:
    /// The kinds; the metrics have one counter each, with the reason as its label.
    static constexpr const char* kRefusal = "refusal";
    static constexpr const char* kResync = "resync";
    static constexpr const char* kEviction = "eviction";

    using Counts = std::map<std::string, std::uint64_t, std::less<>>;

    /// `reason` is one of a fixed few words; `detail` is for the log alone and may come from the
    /// network.
    void count(const std::string& kind, const std::string& reason, std::string_view detail);

    /// How often, for each reason of a kind that has occurred, and for each of `reasons`.
    Counts counts(std::string_view kind, std::initializer_list<const char*> reasons = {}) const;

private:
    struct Tally {
        std::uint64_t total = 0;
        std::uint64_t untold = 0;
        Clock::time_point told;
    };
    std::map<std::string, std::map<std::string, Tally, std::less<>>, std::less<>> tallies;
};

} // namespace gateway
