#pragma once

#include "gateway/Incidents.hpp"

#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace gateway {

class Clients;
class EventRing;

/// The Prometheus text exposition format, version 0.0.4, as it is written.
class Exposition {
public:
    static constexpr const char* kType = "text/plain; version=0.0.4; charset=utf-8";

    using Labels = std::vector<std::pair<const char*, std::string_view>>;

    /// The samples that follow belong to this metric.
    void family(const std::string& familyName, const char* type, const char* help);

    void sample(double value) { line("", value); }
    /// Values of labels may be any text. Samples whose labels are the same once these have been cut
    /// and escaped are given once.
    void sample(const Labels& labels, double value);
    /// As one of the samples of a histogram.
    void part(const char* suffix, const std::string& labels, double value);

    /// What the side towards clients counts.
    void server(const EventRing& ring, const Clients& clients, const Incidents& incidents);

    std::string text;

private:
    void line(const std::string& labels, double value);
    void incidents(const Incidents::Counts& counts, const char* family, const char* help);
    void deliveries(const Clients& clients);

    std::string name;
    std::set<std::string> changed;
};

} // namespace gateway
