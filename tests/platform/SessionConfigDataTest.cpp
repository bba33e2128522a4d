#include "platform/session/SessionConfigData.hpp"

#include "platform/records/JsonText.hpp"

#include <gtest/gtest.h>

#include <sstream>
#include <type_traits>

namespace {

// A stream is moved into its session. One that lost its move would be copied, lists and all.
static_assert(std::is_nothrow_move_constructible_v<AudioStreamData>);
static_assert(std::is_nothrow_move_constructible_v<VideoStreamData>);

Json::Value json(const char* text) {
    Json::Value value;
    std::istringstream(text) >> value;
    return value;
}

/// A session with an audio sender, the two legs of a redundant video receiver and an ancillary
/// stream. Every key is there, and no value is what a missing key would give.
constexpr const char* kSession = R"({
  "id": 18446744073709551615, "nmos_id": "5f1d", "audio": [
    {"id": 11, "class": "sender", "state": "Enabled", "type": "audio", "redundant-type": "primary",
     "codec": "L24", "vlan": {"id": 100, "priority": 5, "tpid": 34984},
     "source": 5004, "destination": 5006, "payload-type": 97,
     "sscr": {"type": "manual", "value": 4026531841},
     "local": "192.168.10.5", "transport": "239.10.0.1", "dscp": 46, "ttl": 32,
     "channels": [{"type": 1, "string": "left"}, {"type": 2, "string": "right"}]}],
  "video": [
    {"id": 21, "class": "receiver", "state": "Paused", "type": "video", "redundant-type": "primary",
     "codec": "raw", "vlan": {"id": 200, "priority": 4, "tpid": 37120},
     "source": 20000, "destination": 20002, "payload-type": 96,
     "sscr": {"type": "asio", "value": 7},
     "local": "192.168.10.5", "transport": "239.20.0.1", "dscp": 36, "ttl": 16,
     "timing-mode": "2059", "initBufDelay": 1, "minWrRdPtrThresh": 2, "maxWrRdPtrThresh": 3,
     "rtpPktsPerFrame": 4320, "tributary": {"type": "MULTI-2SI", "index": 2}},
    {"id": 22, "class": "receiver", "state": "Paused", "type": "video",
     "redundant-type": "secondary", "codec": "raw",
     "vlan": {"id": 201, "priority": 4, "tpid": 37120},
     "source": 20000, "destination": 20002, "payload-type": 96,
     "sscr": {"type": "unspecified", "value": 8},
     "local": "192.168.11.5", "transport": "239.21.0.1", "dscp": 36, "ttl": 16,
     "timing-mode": "frame_sync", "initBufDelay": 5, "minWrRdPtrThresh": 6, "maxWrRdPtrThresh": 7,
     "rtpPktsPerFrame": 4321, "tributary": {"type": "MULTI-SD", "index": 3}},
    {"id": 31, "class": "receiver", "state": "Enabled", "type": "ancillary",
     "redundant-type": "primary", "codec": "SMPTE2022-6",
     "vlan": {"id": 300, "priority": 3, "tpid": 37120},
     "source": 30000, "destination": 30002, "payload-type": 100,
     "sscr": {"type": "manual", "value": 9},
     "local": "192.168.10.5", "transport": "239.30.0.1", "dscp": 36, "ttl": 16,
     "timing-mode": "low_latency", "initBufDelay": 8, "minWrRdPtrThresh": 9,
     "maxWrRdPtrThresh": 10, "rtpPktsPerFrame": 1, "tributary": {"type": "MULTI-SD", "index": 0}}]
})";

TEST(SessionConfigData, WholeConfigurationIsWrittenBackAsItWasRead) {
    Json::Value in = json(kSession);
    SessionConfigData session;
    session.Deserialize(in);
    Json::Value out;
    session.Serialize(out);

    Json::Value expected = json(kSession);
    // The one loss: "ancillary" is written but not read.
    expected["video"][2]["type"] = "undefined";
    EXPECT_EQ(toCompactJson(out), toCompactJson(expected));
    EXPECT_EQ(session.video.front().vlan.id, 200);
    EXPECT_EQ(session.audio.front().channels.back().daif.text, "right");
}

} // namespace
