#pragma once

#include <json/value.h>

#include <array>
#include <cstdint>
#include <list>
#include <random>
#include <string>

/// An endless, repeatable stream of notifications, and what must come of it: the document as it has
/// to be, and the messages that consumers have to get. It shares nothing with the service's code.
///
/// Everything that consumers are told carries a number: sessions have one count, in the NMOS id;
/// PTP and ports have one each, in the three PTP settings and in the first port's MAC address.
class SoakLoad {
public:
    enum Source : std::size_t { sessions, ptp, ports, sources };
    /// How far something has come, in the counts of the three sources; kNothing before the first.
    using Progress = std::array<std::int64_t, sources>;
    static constexpr std::int64_t kNothing = -1;

    struct Notification {
        Source source = sessions;
        unsigned kind = 0;
        std::string payload;
        /// Consumers are told of it, under the present number of its source.
        bool told = true;
        /// What they are told of a session, byte for byte; with the other sources it is the whole
        /// document.
        std::string message;
    };

    Notification next();

    /// The last number given of each source.
    const Progress& numbers() const { return given; }
    /// The document after everything that next() has given.
    Json::Value document() const;

private:
    Notification newSession();
    Notification sessionStatus();
    Notification removedSession();
    Notification ptpStatus();
    Notification ptpConfiguration();
    Notification portReport(bool changed);

    unsigned below(unsigned limit);
    std::uint64_t someSession() { return 1 + below(kSessions); }
    std::string alarms();
    Notification sessionNotification(unsigned kind, std::string payload, std::uint64_t id,
                                     const std::string& record);
    Json::Value settings(std::int64_t number) const;

    static constexpr unsigned kSessions = 12;

    struct Session {
        std::uint64_t id;
        std::string record;
    };

    std::mt19937 generator{20260301};
    Progress given{kNothing, kNothing, kNothing};
    std::list<Session> present;
    Json::Value ptpState;
    Json::Value portStates;
};

/// What number a message to consumers stands for. Texts only: there are too many to parse them.
std::int64_t sessionNumberIn(const std::string& message);
std::int64_t ptpNumberIn(const std::string& message);
std::int64_t portsNumberIn(const std::string& message);
