#include "platform/session/SessionConfigData.hpp"

#include "tests/support/RecordText.hpp"

#include <gtest/gtest.h>

#include <type_traits>

namespace {

// A stream is moved into its session. One that lost its move would be copied, lists and all.
static_assert(std::is_nothrow_move_constructible_v<AudioStreamData>);
static_assert(std::is_nothrow_move_constructible_v<VideoStreamData>);

/// A session with an audio sender and a video receiver. Every key is there, and no value is what a
/// missing key would give.
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
     "rtpPktsPerFrame": 4320, "tributary": {"type": "MULTI-2SI", "index": 2}}]
})";

TEST(SessionConfigData, WholeConfigurationIsWrittenBackAsItWasRead) {
    const auto session = recordFrom<SessionConfigData>(kSession);
    EXPECT_EQ(textOf(session), toCompactJson(parseJson(kSession)));
    EXPECT_EQ(session.video.front().vlan.id, 200);
    EXPECT_EQ(session.audio.front().channels.back().daif.text, "right");
}

TEST(SessionConfigData, ListThatIsNoneIsRefused) {
    EXPECT_EQ(rewritten<SessionConfigData>(R"({"audio":null,"video":[]})"),
              R"({"id":0,"nmos_id":""})");
    for (const char* text :
         {R"({"audio":5})", R"({"video":{}})", R"({"audio":[{"channels":"none"}]})"}) {
        EXPECT_THROW(recordFrom<SessionConfigData>(text), Json::Exception) << text;
    }
}

} // namespace
