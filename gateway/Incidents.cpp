#include "gateway/Incidents.hpp"

#include "platform/api/Logger.hpp"

namespace gateway {

void Incidents::count(const std::string& kind, const std::string& reason, std::string_view detail) {
    constexpr std::chrono::seconds kQuiet{10};
    Tally& tally = tallies[kind][reason];
    const Clock::time_point now = Clock::now();
    const bool first = tally.total == 0;
    ++tally.total;
    if (!first && now - tally.told < kQuiet) {
        ++tally.untold;
        return;
    }
    constexpr std::string_view::size_type kLongestDetail = 200;
    const std::string shown(detail.substr(0, kLongestDetail));
    Logger::log(Logger::LOG_LEVEL_WRN, "%s (%s): %s; %llu more since the last such line",
                kind.c_str(), reason.c_str(), shown.c_str(),
                static_cast<unsigned long long>(tally.untold));
    tally.told = now;
    tally.untold = 0;
}

Incidents::Counts Incidents::counts(std::string_view kind) const {
    Counts result;
    if (const auto reasons = tallies.find(kind); reasons != tallies.end()) {
        for (const auto& [reason, tally] : reasons->second) {
            result[reason] = tally.total;
        }
    }
    return result;
}

} // namespace gateway
