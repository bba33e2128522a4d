#pragma once

#include <json/value.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <random>
#include <string>
#include <vector>

/// A text with room for two numbers of fixed width, each at one or more places: which event this
/// is and which session it is about.
class NumberedText {
public:
    /// The numbers that mark the places in a text.
    static constexpr std::int64_t kEventMark = 1'987'654'321;
    static constexpr std::int64_t kSessionMark = 1'876'543'210;
    /// Both count from here, so that they always have as many digits and never begin with a zero.
    static constexpr std::int64_t kFirst = 1'000'000'000;

    explicit NumberedText(std::string text);

    /// Appends the text to `out` with the two numbers in place.
    void appendTo(std::string& out, std::uint64_t event, std::uint64_t session) const;
    std::size_t size() const { return bytes.size(); }

private:
    std::string bytes;
    std::vector<std::size_t> eventPlaces;
    std::vector<std::size_t> sessionPlaces;
};

/// What one session of the load looks like.
struct SessionShape {
    unsigned streams = 4;
    /// One alarm of the session and one for each fourth stream.
    bool alarms = true;
};

/// How messages become bytes on a connection.
struct Framing {
    /// What is sent so that `published` goes out to the consumers: to the service a notification of
    /// this kind, to a broker the published message itself.
    std::function<std::string(unsigned kind, const std::string& notification,
                              const std::string& published)>
        cause;
    /// A published message, as a consumer receives it.
    std::function<std::string(const std::string& published)> delivery;
};

/// Endless events of one sort: what is sent to cause each, and what every consumer must receive on
/// account of it, byte for byte.
class Workload {
public:
    enum class Order { cyclic, random };

    /// Statuses of `sessions` sessions, in turn or, always the same way, at random.
    static Workload sessionStatuses(const SessionShape& shape, std::uint64_t sessions, Order order,
                                    const Framing& framing);

    /// PTP statuses, each of which makes the whole document go out. Its sessions are those that
    /// sessionStatuses, in turn, gave in its first round.
    static Workload documents(const SessionShape& shape, std::uint64_t sessions,
                              const Framing& framing);

    /// Appends the notification for an event and replaces `delivery` by what it must lead to.
    void produce(std::uint64_t event, std::string& notifications, std::string& delivery);

    std::size_t deliveryBytes() const { return delivered.size(); }

private:
    Workload(NumberedText notificationText, NumberedText deliveryText, std::uint64_t sessionCount,
             Order sessionOrder);

    NumberedText notification;
    NumberedText delivered;
    std::uint64_t sessions;
    Order order;
    std::mt19937_64 random;
};
