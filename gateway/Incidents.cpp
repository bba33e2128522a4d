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
    const std::string more =
        tally.untold == 0 ? ""
                          : "; " + std::to_string(tally.untold) + " more since the last such line";
    Logger::log(Logger::LOG_LEVEL_WRN, "%s (%s): %s%s", kind.c_str(), reason.c_str(), shown.c_str(),
                more.c_str());
    tally.told = now;
    tally.untold = 0;
}

Incidents::Counts Incidents::counts(std::string_view kind,
                                    std::initializer_list<const char*> reasons) const {
    Counts result;
    for (const char* const reason : reasons) {
        result[reason] = 0;
    }
    if (const auto occurred = tallies.find(kind); occurred != tallies.end()) {
        for (const auto& [reason, tally] : occurred->second) {
            result[reason] = tally.total;
        }
    }
    return result;
}

} // namespace gateway
