#pragma once

#include "bench/Peers.hpp"

#include <cstddef>
#include <cstdint>
#include <random>
#include <string>
#include <string_view>
#include <vector>

/// A text with room for two numbers of ten digits, each at any number of places: which event this
/// is and which session it is about. Both count from 1,000,000,000, so their width never changes.
class NumberedText {
public:
    /// The numbers' places in `withPlaces` are marked by ten '@' and ten '#'.
    explicit NumberedText(std::string withPlaces);

    /// Appends the text with both numbers to `out`.
    void appendTo(std::string& out, std::uint64_t event, std::uint64_t session) const;

private:
    std::string text;
    std::vector<std::size_t> eventPlaces;
    std::vector<std::size_t> sessionPlaces;
};

/// Endless events of one sort: the bytes that cause each, and those that every consumer must
/// receive for it. A session has `streams` streams (at least 1), one alarm, and an alarm for each
/// fourth stream.
class Workload {
public:
    enum class Order { cyclic, random };

    /// What stands before an event's number in a session's status, and the number of event 0.
    static constexpr std::string_view kBeforeNumber = "-4c3b-9f7e-00";
    static constexpr std::uint64_t kFirstNumber = 1'000'000'000;

    /// Statuses of `sessions` sessions in turn, or at random but the same in every run.
    static Workload sessionStatuses(const Peers& peers, unsigned streams, std::uint64_t sessions,
                                    Order order);

    /// PTP statuses, each answered with the whole document. It holds the sessions as the first
    /// round of sessionStatuses, in turn, has left them.
    static Workload documents(const Peers& peers, unsigned streams, std::uint64_t sessions);

    /// Appends the bytes that cause the event and replaces `delivery` by those that must arrive.
    void produce(std::uint64_t event, std::string& causes, std::string& delivery);

    /// Where the causes are written.
    int source() const { return sourceDescriptor; }

private:
    Workload(int source, std::string causeText, std::string deliveryText,
             std::uint64_t sessionCount, Order sessionOrder);

    int sourceDescriptor;
    NumberedText cause;
    NumberedText delivered;
    std::uint64_t sessions;
    Order order;
    std::mt19937_64 random;
};
