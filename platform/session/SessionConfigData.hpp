#pragma once

#include "platform/records/IJsonSerializable.hpp"

#include <cstdint>
#include <list>
#include <string>

/// What the streams of every medium have in common.
class StreamData : public IJsonSerializable {
public:
    std::uint64_t id = 0;

    void Serialize(Json::Value& out) const override;
    void Deserialize(Json::Value& in) override;
};

/// One audio stream of a session.
class AudioStreamData : public StreamData {};

/// One video stream of a session.
class VideoStreamData : public StreamData {};

/// The configuration of a media session, as the session manager announces a new one.
class SessionConfigData : public IJsonSerializable {
public:
    std::uint64_t id = 0;
    /// The session's NMOS id (AMWA IS-04).
    std::string nmosId;
    std::list<AudioStreamData> audio;
    std::list<VideoStreamData> video;

    void Serialize(Json::Value& out) const override;
    void Deserialize(Json::Value& in) override;
};
