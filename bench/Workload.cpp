#include "bench/Workload.hpp"

#include "platform/PlatformProtocol.hpp"

#include <array>
#include <charconv>
#include <utility>

namespace {

constexpr std::string_view kEventMark = "@@@@@@@@@@";
constexpr std::string_view kSessionMark = "##########";

constexpr const char* kDeviceId = R"("device_id":"0d7b9f4e-61c2-4c1a-9a43-5f2be8a1d6f0",)";

// Members are in the order in which the subject's JSON library writes them.

std::string sessionStatus(unsigned streams) {
    constexpr unsigned kStreamsForOneAlarm = 4;
    std::string text =
        R"({"alarms":[{"description":"Essence differs from its description","severity":"major",)"
        R"("type":12}],)";
    text += kDeviceId;
    text += R"("id":##########,"nmos_id":"6f1c8d0e-52a4)";
    text.append(Workload::kBeforeNumber).append(kEventMark).append(R"(","stream":[)");
    for (unsigned i = 0; i < streams; ++i) {
        text += i == 0 ? "{" : ",{";
        if (i % kStreamsForOneAlarm == 1) {
            text += R"("alarms":[{"description":"RTP packets missing on secondary path",)"
                    R"("severity":"minor","type":3}],)";
        }
        text += R"("id":)" + std::to_string(i + 1) + "}";
    }
    return text + "]}";
}

std::string ptpStatus() {
    return R"({"cfgFlag":true,"cfgSetting1":1,"cfgSetting2":2,"cfgSetting3":0,)"
           R"("clock_id":"08-00-11-ff-fe-21-e1-b0","grandmaster_id":"ec-46-70-ff-fe-0a-9b-32",)"
           R"("locked":true,"mean_path_delay_ns":1184,"offset_ns":@@@@@@@@@@,"ports":[)"
           R"({"portNumber":1,"portSetting1":1,"portSetting2":0,"portSetting3":1,"state":"SLAVE"},)"
           R"({"portNumber":2,"portSetting1":1,"portSetting2":0,"portSetting3":2,)"
           R"("state":"PASSIVE"}],"profile":{"announce_interval":-2,"delay_req_interval":-3,)"
           R"("domain":127,"name":"SMPTE ST 2059-2","sync_interval":-3}})";
}

std::string document(unsigned streams, std::uint64_t sessions) {
    const NumberedText session(sessionStatus(streams));
    std::string text =
        std::string("{") + kDeviceId + R"("ptp":)" + ptpStatus() + R"(,"sessions":[)";
    for (std::uint64_t i = 0; i < sessions; ++i) {
        text += i == 0 ? "" : ",";
        session.appendTo(text, i, i);
    }
    return text + "]}";
}

std::string message(unsigned id, const std::string& name, const std::string& payload) {
    return R"({"command_id":)" + std::to_string(id) + R"(,"command_name":")" + name +
           R"(","payload":)" + payload + "}";
}

std::vector<std::size_t> findAll(const std::string& text, std::string_view mark) {
    std::vector<std::size_t> places;
    for (auto at = text.find(mark); at != std::string::npos; at = text.find(mark, at + 1)) {
        places.push_back(at);
    }
    return places;
}

void put(std::string& text, std::size_t start, const std::vector<std::size_t>& places,
         std::uint64_t number) {
    std::array<char, kEventMark.size()> digits{};
    std::to_chars(digits.data(), digits.data() + digits.size(), Workload::kFirstNumber + number);
    for (const std::size_t place : places) {
        text.replace(start + place, digits.size(), digits.data(), digits.size());
    }
}

} // namespace

NumberedText::NumberedText(std::string withPlaces)
    : text(std::move(withPlaces)), eventPlaces(findAll(text, kEventMark)),
      sessionPlaces(findAll(text, kSessionMark)) {}

void NumberedText::appendTo(std::string& out, std::uint64_t event, std::uint64_t session) const {
    const std::size_t start = out.size();
    out += text;
    put(out, start, eventPlaces, event);
    put(out, start, sessionPlaces, session);
}

Workload::Workload(int source, std::string causeText, std::string deliveryText,
                   std::uint64_t sessionCount, Order sessionOrder)
    : sourceDescriptor(source), cause(std::move(causeText)), delivered(std::move(deliveryText)),
      sessions(sessionCount), order(sessionOrder) {}

Workload Workload::sessionStatuses(const Peers& peers, unsigned streams, std::uint64_t sessions,
                                   Order order) {
    constexpr unsigned kKind = AvmgrPublisher::avmgr_session_status;
    const std::string status = sessionStatus(streams);
    const std::string published = message(1, "status-session", status);
    return {peers.sessionSource,
            peers.cause(kKind, message(kKind, "session status", status), published),
            peers.delivery(published), sessions, order};
}

Workload Workload::documents(const Peers& peers, unsigned streams, std::uint64_t sessions) {
    constexpr unsigned kKind = ZatPmcPublisher::zat_pmc_status_change;
    const std::string published = message(0, "status-all", document(streams, sessions));
    return {peers.ptpSource,
            peers.cause(kKind, message(kKind, "PTP status", ptpStatus()), published),
            peers.delivery(published), sessions, Order::cyclic};
}

void Workload::produce(std::uint64_t event, std::string& causes, std::string& delivery) {
    const std::uint64_t session = order == Order::cyclic ? event % sessions : random() % sessions;
    cause.appendTo(causes, event, session);
    delivery.clear();
    delivered.appendTo(delivery, event, session);
}
