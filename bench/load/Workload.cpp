#include "bench/load/Workload.hpp"

#include "platform/PlatformProtocol.hpp"

#include <json/writer.h>

#include <array>
#include <charconv>
#include <utility>

namespace {

constexpr const char* kDeviceId = "0d7b9f4e-61c2-4c1a-9a43-5f2be8a1d6f0";
constexpr const char* kNmosIdHead = "6f1c8d0e-52a4-4c3b-9f7e-00";
constexpr std::size_t kDigits = 10;

std::string compact(const Json::Value& value) {
    Json::StreamWriterBuilder builder;
    builder["indentation"] = "";
    return Json::writeString(builder, value);
}

std::string message(unsigned id, const char* name, Json::Value payload) {
    Json::Value envelope;
    envelope["command_id"] = id;
    envelope["command_name"] = name;
    envelope["payload"] = std::move(payload);
    return compact(envelope);
}

Json::Value alarm(const char* severity, const char* description, int type) {
    Json::Value value;
    value["severity"] = severity;
    value["description"] = description;
    value["type"] = type;
    return value;
}

/// The status that event `event` reports for session `session`; the NMOS id carries the event.
Json::Value sessionStatus(const SessionShape& shape, std::int64_t event, std::int64_t session) {
    constexpr unsigned kStreamsForOneAlarm = 4;
    Json::Value status;
    status["id"] = Json::Int64{session};
    status["nmos_id"] = kNmosIdHead + std::to_string(event);
    status["device_id"] = kDeviceId;
    if (shape.alarms) {
        status["alarms"].append(alarm("major", "Essence differs from its description", 12));
    }
    for (unsigned i = 0; i < shape.streams; ++i) {
        Json::Value stream;
        stream["id"] = i + 1;
        if (shape.alarms && i % kStreamsForOneAlarm == 1) {
            stream["alarms"].append(alarm("minor", "RTP packets missing on secondary path", 3));
        }
        status["stream"].append(std::move(stream));
    }
    return status;
}

/// The PTP status that event `event` reports; the offset carries the event.
Json::Value ptpStatus(std::int64_t event) {
    Json::Value ptp;
    ptp["clock_id"] = "08-00-11-ff-fe-21-e1-b0";
    ptp["grandmaster_id"] = "ec-46-70-ff-fe-0a-9b-32";
    ptp["locked"] = true;
    ptp["offset_ns"] = Json::Int64{event};
    ptp["mean_path_delay_ns"] = 1184;
    Json::Value& profile = ptp["profile"];
    profile["name"] = "SMPTE ST 2059-2";
    profile["domain"] = 127;
    profile["announce_interval"] = -2;
    profile["sync_interval"] = -3;
    profile["delay_req_interval"] = -3;
    ptp["cfgSetting1"] = 1;
    ptp["cfgSetting2"] = 2;
    ptp["cfgSetting3"] = 0;
    ptp["cfgFlag"] = true;
    for (int number = 1; number <= 2; ++number) {
        Json::Value port;
        port["portNumber"] = number;
        port["state"] = number == 1 ? "SLAVE" : "PASSIVE";
        port["portSetting1"] = 1;
        port["portSetting2"] = 0;
        port["portSetting3"] = number;
        ptp["ports"].append(std::move(port));
    }
    return ptp;
}

Json::Value document(const SessionShape& shape, std::uint64_t sessions) {
    Json::Value value;
    value["device_id"] = kDeviceId;
    value["ptp"] = ptpStatus(NumberedText::kEventMark);
    for (std::uint64_t i = 0; i < sessions; ++i) {
        const std::int64_t number = NumberedText::kFirst + static_cast<std::int64_t>(i);
        value["sessions"].append(sessionStatus(shape, number, number));
    }
    return value;
}

std::vector<std::size_t> findAll(const std::string& text, std::int64_t mark) {
    const std::string digits = std::to_string(mark);
    std::vector<std::size_t> places;
    for (auto at = text.find(digits); at != std::string::npos; at = text.find(digits, at + 1)) {
        places.push_back(at);
    }
    return places;
}

void put(std::string& text, std::size_t start, const std::vector<std::size_t>& places,
         std::uint64_t number) {
    std::array<char, kDigits> digits{};
    std::to_chars(digits.data(), digits.data() + digits.size(), NumberedText::kFirst + number);
    for (const std::size_t place : places) {
        text.replace(start + place, digits.size(), digits.data(), digits.size());
    }
}

} // namespace

NumberedText::NumberedText(std::string text)
    : bytes(std::move(text)), eventPlaces(findAll(bytes, kEventMark)),
      sessionPlaces(findAll(bytes, kSessionMark)) {}

void NumberedText::appendTo(std::string& out, std::uint64_t event, std::uint64_t session) const {
    const std::size_t start = out.size();
    out += bytes;
    put(out, start, eventPlaces, event);
    put(out, start, sessionPlaces, session);
}

Workload::Workload(NumberedText notificationText, NumberedText deliveryText,
                   std::uint64_t sessionCount, Order sessionOrder)
    : notification(std::move(notificationText)), delivered(std::move(deliveryText)),
      sessions(sessionCount), order(sessionOrder) {}

Workload Workload::sessionStatuses(const SessionShape& shape, std::uint64_t sessions, Order order,
                                   const Framing& framing) {
    const Json::Value status =
        sessionStatus(shape, NumberedText::kEventMark, NumberedText::kSessionMark);
    constexpr unsigned kKind = AvmgrPublisher::avmgr_session_status;
    const std::string published = message(1, "status-session", status);
    return {NumberedText(framing.cause(kKind, message(kKind, "session status", status), published)),
            NumberedText(framing.delivery(published)), sessions, order};
}

Workload Workload::documents(const SessionShape& shape, std::uint64_t sessions,
                             const Framing& framing) {
    const Json::Value status = ptpStatus(NumberedText::kEventMark);
    constexpr unsigned kKind = ZatPmcPublisher::zat_pmc_status_change;
    const std::string published = message(0, "status-all", document(shape, sessions));
    return {NumberedText(framing.cause(kKind, message(kKind, "PTP status", status), published)),
            NumberedText(framing.delivery(published)), sessions, Order::cyclic};
}

void Workload::produce(std::uint64_t event, std::string& notifications, std::string& delivery) {
    const std::uint64_t session = order == Order::cyclic ? event % sessions : random() % sessions;
    notification.appendTo(notifications, event, session);
    delivery.clear();
    delivered.appendTo(delivery, event, session);
}
