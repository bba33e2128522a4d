#pragma once

#include "platform/records/IJsonSerializable.hpp"
#include "platform/session/AudioStreamData.hpp"
#include "platform/session/VideoStreamData.hpp"

#include <cstdint>
#include <list>
#include <string>

/// The configuration of a media session, as the session manager announces a new one:
/// {"id": u64, "nmos_id": text, "audio": [stream...], "video": [stream...]}, the two lists left out
/// when they are empty. It is read into fresh records; a key that is missing anywhere in it takes
/// the value that a fresh record holds.
class SessionConfigData : public IJsonSerializable {
public:
    std::uint64_t id = 0;
    /// The session's NMOS id (AMWA IS-04).
    std::string nmosId;
    /// Both in the session manager's order.
    std::list<AudioStreamData> audio;
    std::list<VideoStreamData> video;

    void Serialize(Json::Value& out) const override;
    void Deserialize(Json::Value& in) override;
};
