// Any JSON for any record: what a record has read it writes, and reads again to the same.

#include "model/DeviceStatus.hpp"
#include "model/StreamConfiguration.hpp"
#include "platform/records/AdvSessionEntry.hpp"
#include "platform/records/IpcMsg.hpp"
#include "platform/records/JsonText.hpp"
#include "platform/records/PtpCommonInfo.hpp"
#include "platform/records/SysParametersDynamic.hpp"
#include "platform/records/ZatPmcPtpCfg.hpp"
#include "platform/session/SessionConfigData.hpp"
#include "tests/fuzz/Expect.hpp"
#include "tests/fuzz/FuzzInput.hpp"

#include <json/value.h>

#include <algorithm>
#include <array>
#include <string>

namespace {

template <typename Record>
std::string readAndWrite(Json::Value& json) {
    Record record;
    record.Deserialize(json);
    Json::Value out;
    record.Serialize(out);
    return toCompactJson(out);
}

struct NamedRecord {
    std::string_view name;
    std::string (*readAndWrite)(Json::Value&);
};

constexpr std::array<NamedRecord, 22> kRecords = {{
    {"alarm", readAndWrite<StreamAlarmData>},
    {"stream-status", readAndWrite<StreamStatusData>},
    {"session-status", readAndWrite<SessionStatusData>},
    {"document", readAndWrite<WebNotifierDeviceStatus>},
    {"message", readAndWrite<IpcMsg>},
    {"advertisement", readAndWrite<AdvSessionEntry>},
    {"ptp-status", readAndWrite<PtpCommonInfo>},
    {"ptp-configuration", readAndWrite<ZatPmcPtpCfg>},
    {"dynamic-information", readAndWrite<SysParametersDynamic>},
    {"session-configuration", readAndWrite<SessionConfigData>},
    {"class", readAndWrite<StreamClass>},
    {"state", readAndWrite<State>},
    {"type", readAndWrite<StreamType>},
    {"redundancy", readAndWrite<RedundantType>},
    {"codec", readAndWrite<Codec>},
    {"vlan", readAndWrite<Vlan>},
    {"udp-port", readAndWrite<UdpPort>},
    {"rtp", readAndWrite<Rtp>},
    {"ip", readAndWrite<IpAddrCfg>},
    {"daif", readAndWrite<DaifType>},
    {"timing", readAndWrite<VideoTimingParameters>},
    {"tributary", readAndWrite<TributaryType>},
}};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static JsonDecoder decoder;
    const auto frames = framesOf(data, size);
    const auto* const record =
        std::find_if(kRecords.begin(), kRecords.end(), [&](const NamedRecord& candidate) {
            return candidate.name == frames.front();
        });
    Json::Value json;
    if (record == kRecords.end() || !decoder.decodeObject(frames.back(), json).empty()) {
        return 0;
    }
    std::string text;
    try {
        text = record->readAndWrite(json);
    } catch (const Json::Exception&) {
        return 0;
    }
    Json::Value again;
    expect(decoder.decodeObject(text, again).empty(), "what a record writes is JSON");
    expect(record->readAndWrite(again) == text, "what a record has written it reads to the same");
    return 0;
}
