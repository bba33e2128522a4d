#include "tests/torture/SoakLoad.hpp"

#include "platform/PlatformProtocol.hpp"
#include "tests/support/CommandClient.hpp"

#include <json/writer.h>

#include <algorithm>
#include <cstdlib>
#include <utility>

namespace {

constexpr std::int64_t kByte = 256;
constexpr const char* kDevice = "device";

std::string compact(const Json::Value& value) {
    static const Json::StreamWriterBuilder builder = [] {
        Json::StreamWriterBuilder compactBuilder;
        compactBuilder["indentation"] = "";
        return compactBuilder;
    }();
    return Json::writeString(builder, value);
}

std::string quoted(const std::string& text) {
    return '"' + text + '"';
}

std::int64_t numberBehind(const std::string& message, const char* key) {
    const auto at = message.find(key);
    return at == std::string::npos
               ? SoakLoad::kNothing
               : std::strtoll(message.c_str() + at + std::char_traits<char>::length(key), nullptr,
                              10);
}

} // namespace

std::int64_t sessionNumberIn(const std::string& message) {
    return numberBehind(message, R"("nmos_id":")");
}

std::int64_t ptpNumberIn(const std::string& message) {
    return numberBehind(message, R"("cfgSetting1":)") +
           kByte * (numberBehind(message, R"("cfgSetting2":)") +
                    kByte * numberBehind(message, R"("cfgSetting3":)"));
}

std::int64_t portsNumberIn(const std::string& message) {
    return numberBehind(message, R"("mac":")");
}

unsigned SoakLoad::below(unsigned limit) {
    return static_cast<unsigned>(generator() % limit);
}

SoakLoad::Notification SoakLoad::next() {
    // The state of every service first, then what happens all day.
    if (given[sessions] == kNothing) {
        return sessionStatus();
    }
    if (given[ptp] == kNothing) {
        return ptpStatus();
    }
    if (given[ports] == kNothing) {
        return portReport(true);
    }
    const unsigned percent = below(100);
    if (percent < 66) {
        return sessionStatus();
    }
    if (percent < 76) {
        return newSession();
    }
    if (percent < 84) {
        return removedSession();
    }
    if (percent < 90) {
        return ptpStatus();
    }
    if (percent < 94) {
        return ptpConfiguration();
    }
    return portReport(percent < 97);
}

std::string SoakLoad::alarms() {
    const unsigned count = below(4) == 0 ? 1 + below(3) : 0;
    std::string list;
    for (unsigned i = 0; i < count; ++i) {
        list += list.empty() ? R"("alarms":[)" : ",";
        list += R"({"description":"alarm )" + std::to_string(below(1000)) +
                R"(","severity":"major","type":)" + std::to_string(below(100)) + "}";
    }
    return list.empty() ? list : list + "],";
}

SoakLoad::Notification SoakLoad::sessionNotification(unsigned kind, std::string payload,
                                                     std::uint64_t id, const std::string& record) {
    present.remove_if([id](const Session& session) { return session.id == id; });
    present.push_back({id, record});
    return {sessions, kind, std::move(payload), true,
            R"({"command_id":1,"command_name":"status-session","payload":)" + record + "}"};
}

SoakLoad::Notification SoakLoad::sessionStatus() {
    const std::uint64_t id = someSession();
    std::string streams;
    for (unsigned stream = below(4); stream > 0; --stream) {
        streams += streams.empty() ? R"(,"stream":[)" : ",";
        streams += "{" + alarms() + R"("id":)" + std::to_string(stream) + "}";
    }
    streams += streams.empty() ? "" : "]";
    const std::string record = "{" + alarms() + R"("device_id":")" + kDevice + R"(","id":)" +
                               std::to_string(id) + R"(,"nmos_id":)" +
                               quoted(std::to_string(++given[sessions])) + streams + "}";
    return sessionNotification(AvmgrPublisher::avmgr_session_status, record, id, record);
}

SoakLoad::Notification SoakLoad::newSession() {
    const std::uint64_t id = someSession();
    const std::string number = quoted(std::to_string(++given[sessions]));
    // Audio streams come before video streams, wherever they stand in the configuration.
    const std::string config = R"({"id":)" + std::to_string(id) + R"(,"nmos_id":)" + number +
                               R"(,"video":[{"id":5}],"audio":[{"id":11},{"id":12}]})";
    const std::string record = R"({"device_id":")" + std::string(kDevice) + R"(","id":)" +
                               std::to_string(id) + R"(,"nmos_id":)" + number +
                               R"(,"stream":[{"id":11},{"id":12},{"id":5}]})";
    return sessionNotification(AvmgrPublisher::avmgr_new_session, config, id, record);
}

SoakLoad::Notification SoakLoad::removedSession() {
    const std::uint64_t id = someSession();
    present.remove_if([id](const Session& session) { return session.id == id; });
    return {sessions, AvmgrPublisher::avmgr_removed_session, R"({"id":)" + std::to_string(id) + "}",
            false, ""};
}

Json::Value SoakLoad::settings(std::int64_t number) const {
    Json::Value value;
    value["cfgSetting1"] = Json::Int64{number % kByte};
    value["cfgSetting2"] = Json::Int64{number / kByte % kByte};
    value["cfgSetting3"] = Json::Int64{number / (kByte * kByte) % kByte};
    return value;
}

SoakLoad::Notification SoakLoad::ptpStatus() {
    Json::Value status = settings(++given[ptp]);
    status["cfgFlag"] = below(2) == 1;
    status["clock_id"] = "08-00-11-ff-fe-21-e1-b0";
    status["grandmaster_id"] = "08-00-11-ff-fe-21-e1-b" + std::to_string(below(10));
    status["locked"] = below(2) == 1;
    status["offset_ns"] = static_cast<int>(below(2000)) - 1000;
    status["mean_path_delay_ns"] = static_cast<int>(below(1000));
    Json::Value& profile = status["profile"];
    profile["name"] = "SMPTE ST 2059-2";
    profile["domain"] = 127;
    profile["announce_interval"] = -2;
    profile["sync_interval"] = -3;
    profile["delay_req_interval"] = -3;
    for (Json::ArrayIndex port = 0; port < 2; ++port) {
        Json::Value& entry = status["ports"][port];
        entry["portNumber"] = port + 1;
        entry["state"] = below(2) == 1 ? "SLAVE" : "PASSIVE";
        entry["portSetting1"] = below(kByte);
        entry["portSetting2"] = below(kByte);
        entry["portSetting3"] = below(kByte);
    }
    ptpState = status;
    return {ptp, ZatPmcPublisher::zat_pmc_status_change, compact(status), true, ""};
}

SoakLoad::Notification SoakLoad::ptpConfiguration() {
    Json::Value config = settings(++given[ptp]);
    for (const char* key : {"cfgSetting1", "cfgSetting2", "cfgSetting3"}) {
        ptpState[key] = config[key];
    }
    config["cfgFlag"] = below(3);
    ptpState["cfgFlag"] = config["cfgFlag"] != 0U;
    // One of the status's ports and one that it does not have.
    const Json::ArrayIndex port = below(2);
    Json::Value& known = config["ports"][0];
    for (const char* key : {"portSetting1", "portSetting2", "portSetting3"}) {
        known[key] = below(kByte);
        ptpState["ports"][port][key] = known[key];
    }
    known["portNumber"] = port + 1;
    config["ports"][1]["portNumber"] = 9;
    return {ptp, ZatPmcPublisher::zat_pmc_configuration_change, compact(config), true, ""};
}

SoakLoad::Notification SoakLoad::portReport(bool changed) {
    const unsigned toggled = below(2);
    Json::Value report;
    for (Json::ArrayIndex port = 0; port < 2; ++port) {
        Json::Value& entry = report["eths"][port];
        const bool up = !portStates.empty() && portStates[port]["state"].asUInt() == 1;
        entry["name"] = "eth" + std::to_string(port);
        entry["state"] = up != (changed && port == toggled) ? 1 : 0;
        entry["mac"] = changed && port == 0 ? std::to_string(given[ports] + 1) : "unseen";
        entry["ip"] = "192.0.2.10";
        entry["speed_mbps"] = 25000;
        Json::Value& sfp = entry["sfp"];
        sfp["present"] = true;
        sfp["vendor"] = "vendor";
        sfp["part_number"] = "part";
        sfp["serial"] = "serial";
        sfp["temperature_c"] = 40 + below(20) / 2.0;
        sfp["tx_power_dbm"] = -1.5;
        sfp["rx_power_dbm"] = -2.5;
    }
    if (changed) {
        ++given[ports];
        portStates = report["eths"];
    }
    return {ports, SysmgrPublisher::sysmgr_dynamic_information_update, compact(report), changed,
            ""};
}

Json::Value SoakLoad::document() const {
    Json::Value expected;
    expected["device_id"] = kDevice;
    expected["eths"] = portStates;
    expected["ptp"] = ptpState;
    Json::ArrayIndex index = 0;
    for (const Session& session : present) {
        expected["sessions"][index++] = parseJson(session.record);
    }
    // Numbers compare by their JSON type too, so both sides have to come from a text.
    return parseJson(compact(expected));
}
