#include "model/StreamConfiguration.hpp"
#include "model/TextTable.hpp"
#include "platform/api/Logger.hpp"
#include "platform/records/JsonKey.hpp"
#include "platform/records/JsonMember.hpp"

#include <arpa/inet.h>
#include <netinet/in.h>

using text_table::Row;

namespace {

constexpr JsonKey kId{"id"};
constexpr JsonKey kPriority{"priority"};
constexpr JsonKey kTpid{"tpid"};
constexpr JsonKey kSource{"source"};
constexpr JsonKey kDestination{"destination"};
constexpr JsonKey kType{"type"};
constexpr JsonKey kValue{"value"};
constexpr JsonKey kPayloadType{"payload-type"};
// Not a slip to be mended: the format spells the key of the synchronisation source this way.
constexpr JsonKey kSscr{"sscr"};
constexpr JsonKey kLocal{"local"};
constexpr JsonKey kTransport{"transport"};
constexpr JsonKey kDscp{"dscp"};
constexpr JsonKey kTtl{"ttl"};
constexpr JsonKey kString{"string"};

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

} // namespace

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
    out[kType] = text_table::textOf(kSsrcTypes, type, kNoSsrcType);
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
    type = text_table::valueOf(kSsrcTypes, text).value_or(type);
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
