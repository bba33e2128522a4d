#include "tools/kaikla-sim/ScenarioLine.hpp"

#include "platform/PlatformProtocol.hpp"
#include "platform/records/IpcMsg.hpp"
#include "platform/records/JsonMember.hpp"

#include <json/writer.h>

#include <algorithm>
#include <array>
#include <utility>

namespace sim {

namespace {

constexpr const char* kAtMs = "at_ms";
constexpr const char* kService = "service";
constexpr const char* kKind = "kind";
constexpr const char* kPayload = "payload";
constexpr JsonKey kId{"id"};

void checkKeys(const Json::Value& line) {
    constexpr std::array<const char*, 4> kKeys = {kAtMs, kService, kKind, kPayload};
    for (const std::string& key : line.getMemberNames()) {
        if (std::find(kKeys.begin(), kKeys.end(), key) == kKeys.end()) {
            throw NotPlayable("there is no such key as " + Json::valueToQuotedString(key.c_str()));
        }
    }
    for (const char* const key : kKeys) {
        if (!line.isMember(key)) {
            throw NotPlayable("\"" + std::string(key) + "\" is missing");
        }
    }
}

std::chrono::milliseconds readTime(const Json::Value& value) {
    const auto latest = static_cast<std::uint64_t>(ScenarioLine::kLatest.count());
    if (!value.isUInt64() || value.asUInt64() > latest) {
        throw NotPlayable("\"at_ms\" must be a whole number from 0 to " + std::to_string(latest));
    }
    return std::chrono::milliseconds(value.asUInt64());
}

const Kind& readKind(const Json::Value& serviceValue, const Json::Value& kindValue) {
    const std::optional<Service> service =
        serviceValue.isString() ? findService(serviceValue.asString()) : std::nullopt;
    if (!service) {
        throw NotPlayable(R"("service" must be "session", "system" or "ptp")");
    }
    if (!kindValue.isUInt()) {
        throw NotPlayable("\"kind\" must be the number of a kind");
    }
    const Kind* const kind = findKind(*service, kindValue.asUInt());
    if (kind == nullptr) {
        throw NotPlayable("\"" + std::string(infoOf(*service).key) + "\" has no kind " +
                          std::to_string(kindValue.asUInt()));
    }
    return *kind;
}

void checkPayload(const Kind& kind, const Json::Value& payload) {
    if (!payload.isObject()) {
        throw NotPlayable("\"payload\" must be an object");
    }
    const std::string whose = "the payload of kind " + kind.topic() + " (" + kind.name + ")";
    // Receivers would take a missing id for 0; in a scenario that is a slip.
    if (kind.hasId() && json_member::find(payload, kId) == nullptr) {
        throw NotPlayable(whose + " has no \"id\"");
    }
    try {
        Json::Value read = payload;
        kind.decode(read);
    } catch (const Json::Exception& error) {
        throw NotPlayable(whose + " cannot be decoded: " + error.what());
    }
}

} // namespace

std::uint64_t ScenarioLine::id() const {
    return kind->hasId() ? json_member::unsigned64(payload, kId) : 0;
}

std::string ScenarioLine::encode() const {
    Json::Value line(Json::objectValue);
    line[kAtMs] = Json::UInt64{static_cast<std::uint64_t>(at.count())};
    line[kService] = infoOf(kind->service).key;
    line[kKind] = kind->number;
    line[kPayload] = payload;
    return toCompactJson(line);
}

ScenarioLine ScenarioLineDecoder::decode(std::string_view text) {
    Json::Value json;
    if (const std::string reason = decoder.decodeObject(text, json); !reason.empty()) {
        throw NotPlayable(reason);
    }
    checkKeys(json);
    ScenarioLine line;
    line.at = readTime(json[kAtMs]);
    line.kind = &readKind(json[kService], json[kKind]);
    checkPayload(*line.kind, json[kPayload]);
    line.payload = std::move(json[kPayload]);
    return line;
}

std::string encodeNotification(const Kind& kind, Json::Value payload) {
    IpcMsg message;
    message.commandId = kind.number;
    message.commandName = kind.name;
    message.payload = std::move(payload);
    Json::Value json;
    message.Serialize(json);
    std::string text = toCompactJson(json);
    checkSize(text);
    return text;
}

void checkSize(const std::string& message) {
    if (message.size() > platform_protocol::kMaxFrameBytes) {
        throw NotPlayable("the notification would be " + std::to_string(message.size()) +
                          " bytes long, " + std::to_string(platform_protocol::kMaxFrameBytes) +
                          " are allowed");
    }
}

} // namespace sim
