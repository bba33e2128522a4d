#include "model/StreamConfiguration.hpp"

#include "model/TextTable.hpp"
#include "platform/api/Logger.hpp"
#include "platform/records/JsonKey.hpp"
#include "platform/records/JsonMember.hpp"

#include <arpa/inet.h>
#include <netinet/in.h>

#include <algorithm>
#include <cctype>
#include <string_view>

using text_table::Row;
using text_table::textOf;
using text_table::Use;
using text_table::valueOf;

namespace {

constexpr JsonKey kClass{"class"};
constexpr JsonKey kState{"state"};
constexpr JsonKey kType{"type"};
constexpr JsonKey kRedundantType{"redundant-type"};
constexpr JsonKey kCodec{"codec"};
constexpr JsonKey kId{"id"};
constexpr JsonKey kPriority{"priority"};
constexpr JsonKey kTpid{"tpid"};
constexpr JsonKey kSource{"source"};
constexpr JsonKey kDestination{"destination"};
constexpr JsonKey kValue{"value"};
constexpr JsonKey kPayloadType{"payload-type"};
// Not a slip to be mended: the format spells the key of the synchronisation source this way.
constexpr JsonKey kSscr{"sscr"};
constexpr JsonKey kLocal{"local"};
constexpr JsonKey kTransport{"transport"};
constexpr JsonKey kDscp{"dscp"};
constexpr JsonKey kTtl{"ttl"};
constexpr JsonKey kString{"string"};
constexpr JsonKey kTimingMode{"timing-mode"};
constexpr JsonKey kTributary{"tributary"};
constexpr JsonKey kIndex{"index"};

constexpr Row<StreamClass::stream_class_t> kClasses[] = {
    {"receiver", StreamClass::receiver},
    {"sender", StreamClass::sender},
};

constexpr Row<State::state_t> kStates[] = {
    // Not read back by name: it is what every unknown text gives.
    {"Disabled", State::disabled, Use::written_only},
    {"Enabled", State::enabled},
    {"Paused", State::paused},
};

constexpr Row<StreamType::stream_type_t> kTypes[] = {
    {"audio", StreamType::audio},
    {"video", StreamType::video},
    // The format has it so: written, but not taken back; a reader keeps the type that it has.
    {"ancillary", StreamType::ancillary, Use::written_only},
};

constexpr Row<RedundantType::redundant_type_t> kRedundantTypes[] = {
    {"none", RedundantType::none},
    {"primary", RedundantType::primary},
    {"secondary", RedundantType::secondary},
};

/// One line here makes a codec known in both directions. The text is what is written; any letter
/// case of it is read. The numbers are the session manager's, 7 being taken; one that the code
/// never asks for needs no enumerator, Codec::codec_t{8} does.
constexpr Row<Codec::codec_t> kCodecs[] = {
    {"AM824", Codec::am824},
    {"L32", Codec::l32},
    {"L24", Codec::l24},
    {"L16", Codec::l16},
    {"SMPTE2022-6", Codec::smpte2022_6},
    {"AM824_TRANSPARENT", Codec::am824_transparent},
    {"raw", Codec::raw},
};

bool sameButForCase(std::string_view left, std::string_view right) {
    const auto sameLetter = [](unsigned char a, unsigned char b) {
        return std::tolower(a) == std::tolower(b);
    };
    return std::equal(left.begin(), left.end(), right.begin(), right.end(), sameLetter);
}

constexpr Row<Ssrc::ssrc_type_t> kSsrcTypes[] = {
    {"session-id", Ssrc::session_id},
    {"asio", Ssrc::asio},
    {"manual", Ssrc::manual},
    {"unspecified", Ssrc::unspecified},
};

/// What stands for a type without a name; no reader takes it for one.
constexpr const char* kNoSsrcType = "-";

std::string dottedQuad(std::uint32_t address) {
    in_addr network{};
    network.s_addr = htonl(address);
    return ::inet_ntoa(network);
}

void readAddress(const Json::Value& in, JsonKey key, std::uint32_t& address) {
    const std::string text = json_member::text(in, key);
    if (text.empty()) {
        return;
    }
    in_addr network{};
    if (::inet_pton(AF_INET, text.c_str(), &network) < 1) {
        Logger::log(Logger::LOG_LEVEL_ERR, "Error parsing IP [%s]: invalid IP address",
                    text.c_str());
        return;
    }
    address = ntohl(network.s_addr);
}

constexpr Row<VideoTimingParameters::timing_mode_t> kTimingModes[] = {
    // The format has it so: written, but it does not undo a mode that is set.
    {"unset", VideoTimingParameters::unset, Use::written_only},
    {"frame_sync", VideoTimingParameters::frame_sync},
    {"low_latency", VideoTimingParameters::low_latency},
    // The format has it so: a mode that is there but empty asks for low latency.
    {"", VideoTimingParameters::low_latency, Use::read_only},
    {"2059", VideoTimingParameters::st2059},
};

struct TuningNumber {
    JsonKey key;
    std::int32_t VideoTimingParameters::*member;
};

constexpr TuningNumber kTuningNumbers[] = {
    {"initBufDelay", &VideoTimingParameters::initBufDelay},
    {"minWrRdPtrThresh", &VideoTimingParameters::minWrRdPtrThresh},
    {"maxWrRdPtrThresh", &VideoTimingParameters::maxWrRdPtrThresh},
    {"rtpPktsPerFrame", &VideoTimingParameters::rtpPktsPerFrame},
};

constexpr Row<TributaryType::tributary_type_t> kTributaryTypes[] = {
    {"none", TributaryType::none},
    {"MULTI-2SI", TributaryType::multi_2si},
    {"MULTI-SD", TributaryType::multi_sd},
};

} // namespace

void StreamClass::Serialize(Json::Value& out) const {
    out[kClass] = textOf(kClasses, value, "undefined");
}

void StreamClass::Deserialize(Json::Value& in) {
    value = valueOf(kClasses, json_member::text(in, kClass)).value_or(value);
}

void State::Serialize(Json::Value& out) const {
    out[kState] = textOf(kStates, value, "Undefined");
}

void State::Deserialize(Json::Value& in) {
    value = valueOf(kStates, json_member::text(in, kState)).value_or(disabled);
}

void StreamType::Serialize(Json::Value& out) const {
    out[kType] = textOf(kTypes, value, "undefined");
}

void StreamType::Deserialize(Json::Value& in) {
    value = valueOf(kTypes, json_member::text(in, kType)).value_or(value);
}

void RedundantType::Serialize(Json::Value& out) const {
    out[kRedundantType] = textOf(kRedundantTypes, value, "none");
}

void RedundantType::Deserialize(Json::Value& in) {
    const std::string text = json_member::text(in, kRedundantType, "none");
    value = valueOf(kRedundantTypes, text).value_or(value);
}

void Codec::Serialize(Json::Value& out) const {
    out[kCodec] = textOf(kCodecs, value, "Not-supported");
}

void Codec::Deserialize(Json::Value& in) {
    const std::string text = json_member::text(in, kCodec, "AM824");
    value = valueOf(kCodecs, text, sameButForCase).value_or(not_supported);
}

void Vlan::Serialize(Json::Value& out) const {
    out[kId] = id;
    out[kPriority] = priority;
    out[kTpid] = tpid;
}

void Vlan::Deserialize(Json::Value& in) {
    id = static_cast<std::uint16_t>(json_member::signed32(in, kId));
    priority = static_cast<std::uint8_t>(json_member::signed32(in, kPriority));
    tpid = static_cast<std::uint16_t>(json_member::signed32(in, kTpid, kDefaultTpid));
}

void UdpPort::Serialize(Json::Value& out) const {
    out[kSource] = source;
    out[kDestination] = destination;
}

void UdpPort::Deserialize(Json::Value& in) {
    source = static_cast<std::uint16_t>(json_member::signed32(in, kSource));
    destination = static_cast<std::uint16_t>(json_member::signed32(in, kDestination));
}

void Ssrc::Serialize(Json::Value& out) const {
    out[kType] = textOf(kSsrcTypes, type, kNoSsrcType);
    out[kValue] = value;
}

void Ssrc::Deserialize(Json::Value& in) {
    if (in.isNull()) {
        return;
    }
    if (!in.isObject()) {
        type = session_id;
        value = in.asUInt();
        return;
    }
    const std::string text = json_member::text(in, kType, kNoSsrcType);
    value = json_member::unsigned32(in, kValue);
    type = valueOf(kSsrcTypes, text).value_or(type);
}

void Rtp::Serialize(Json::Value& out) const {
    out[kPayloadType] = payloadType;
    ssrc.Serialize(out[kSscr]);
}

void Rtp::Deserialize(Json::Value& in) {
    payloadType =
        static_cast<std::uint8_t>(json_member::unsigned32(in, kPayloadType, kDefaultPayloadType));
    ssrc.Deserialize(in[kSscr]);
}

void IpAddrCfg::Serialize(Json::Value& out) const {
    out[kLocal] = dottedQuad(local);
    out[kTransport] = dottedQuad(transport);
    out[kDscp] = dscp;
    out[kTtl] = ttl;
}

void IpAddrCfg::Deserialize(Json::Value& in) {
    readAddress(in, kLocal, local);
    readAddress(in, kTransport, transport);
    dscp = static_cast<std::uint8_t>(json_member::unsigned32(in, kDscp, kDefaultDscp));
    ttl = static_cast<std::uint8_t>(json_member::unsigned32(in, kTtl, kDefaultTtl));
}

void DaifType::Serialize(Json::Value& out) const {
    out[kType] = type;
    out[kString] = text;
}

void DaifType::Deserialize(Json::Value& in) {
    type = json_member::signed32(in, kType, kDefaultType);
    text = json_member::text(in, kString, kDefaultText);
}

void VideoTimingParameters::Serialize(Json::Value& out) const {
    out[kTimingMode] = textOf(kTimingModes, timingMode, "ERROR");
    for (const TuningNumber& number : kTuningNumbers) {
        if (this->*number.member != kNotSet) {
            out[number.key] = this->*number.member;
        }
    }
}

void VideoTimingParameters::Deserialize(Json::Value& in) {
    if (const Json::Value* mode = json_member::find(in, kTimingMode); mode != nullptr) {
        timingMode = valueOf(kTimingModes, mode->asString()).value_or(timingMode);
    }
    for (const TuningNumber& number : kTuningNumbers) {
        this->*number.member = json_member::signed32(in, number.key, this->*number.member);
    }
}

void TributaryType::Serialize(Json::Value& out) const {
    Json::Value& tributary = out[kTributary];
    tributary[kType] = textOf(kTributaryTypes, type, "none");
    tributary[kIndex] = index;
}

void TributaryType::Deserialize(Json::Value& in) {
    const Json::Value& tributary = in[kTributary];
    const std::string text = json_member::text(tributary, kType, "none");
    type = valueOf(kTributaryTypes, text).value_or(type);
    index = json_member::signed32(tributary, kIndex, kNoIndex);
}
