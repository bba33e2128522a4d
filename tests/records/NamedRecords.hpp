#pragma once

#include "model/DeviceStatus.hpp"
#include "model/StreamConfiguration.hpp"
#include "platform/records/AdvSessionEntry.hpp"
#include "platform/records/IpcMsg.hpp"
#include "platform/records/PtpCommonInfo.hpp"
#include "platform/records/SysParametersDynamic.hpp"
#include "platform/records/ZatPmcPtpCfg.hpp"
#include "platform/session/SessionConfigData.hpp"

#include <json/value.h>

#include <array>
#include <string_view>
#include <type_traits>

/// Every record by name, for programs that exercise one from outside.
struct NamedRecord {
    std::string_view name;
    /// Makes a record, puts the number "hold" into its enumeration, reads each element of "read"
    /// and writes the record into "into". Reading and writing change the elements in place.
    void (*exercise)(Json::Value& request);
};

template <typename Record, auto Enumeration = nullptr>
void exercise(Json::Value& request) {
    Record record;
    if constexpr (!std::is_null_pointer_v<decltype(Enumeration)>) {
        if (request.isMember("hold")) {
            using Enum = std::remove_reference_t<decltype(record.*Enumeration)>;
            record.*Enumeration = static_cast<Enum>(request["hold"].asInt());
        }
    }
    for (Json::Value& text : request["read"]) {
        record.Deserialize(text);
    }
    record.Serialize(request["into"]);
}

inline constexpr std::array<NamedRecord, 23> kNamedRecords = {{
    {"alarm", exercise<StreamAlarmData>},
    {"stream-status", exercise<StreamStatusData>},
    {"session-status", exercise<SessionStatusData>},
    {"document", exercise<WebNotifierDeviceStatus>},
    {"message", exercise<IpcMsg>},
    {"advertisement", exercise<AdvSessionEntry>},
    {"ptp-status", exercise<PtpCommonInfo>},
    {"ptp-configuration", exercise<ZatPmcPtpCfg>},
    {"dynamic-information", exercise<SysParametersDynamic>},
    {"session-configuration", exercise<SessionConfigData>},
    {"class", exercise<StreamClass, &StreamClass::value>},
    {"state", exercise<State, &State::value>},
    {"type", exercise<StreamType, &StreamType::value>},
    {"redundancy", exercise<RedundantType, &RedundantType::value>},
    {"codec", exercise<Codec, &Codec::value>},
    {"vlan", exercise<Vlan>},
    {"udp-port", exercise<UdpPort>},
    {"ssrc", exercise<Ssrc, &Ssrc::type>},
    {"rtp", exercise<Rtp>},
    {"ip", exercise<IpAddrCfg>},
    {"daif", exercise<DaifType>},
    {"timing", exercise<VideoTimingParameters, &VideoTimingParameters::timingMode>},
    {"tributary", exercise<TributaryType, &TributaryType::type>},
}};
