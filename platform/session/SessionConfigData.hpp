#pragma once

#include "model/StreamConfiguration.hpp"
#include "platform/records/IJsonSerializable.hpp"

#include <cstdint>
#include <list>
#include <string>

// The configuration of a media session, as the session manager announces a new one. The records are
// read fresh: a key that is missing takes the value that a fresh record holds. A list is left out
// when it is empty.

/// One channel of an audio stream, as an object with the keys of its attribute.
class ChannelId : public IJsonSerializable {
public:
    DaifType daif;

    void Serialize(Json::Value& out) const override { daif.Serialize(out); }
    void Deserialize(Json::Value& in) override { daif.Deserialize(in); }
};

/// What the streams of every medium have in common: {"id": u64}, the keys of each attribute record
/// beside it, and the VLAN tag nested under "vlan".
class StreamData : public IJsonSerializable {
public:
    /// Given by the session manager.
    std::uint64_t id = 0;
    StreamClass streamClass;
    State state;
    StreamType type;
    RedundantType redundantType;
    Codec codec;
    Vlan vlan;
    UdpPort udpPort;
    Rtp rtp;
    IpAddrCfg ipAddrCfg;

    void Serialize(Json::Value& out) const override;
    void Deserialize(Json::Value& in) override;
};

/// One audio stream of a session: a stream with "channels".
class AudioStreamData : public StreamData {
public:
    /// In the order in which the stream carries them.
    std::list<ChannelId> channels;

    void Serialize(Json::Value& out) const override;
    void Deserialize(Json::Value& in) override;
};

/// One video or ancillary stream of a session: a stream with the keys of its timing and the nested
/// tributary.
class VideoStreamData : public StreamData {
public:
    VideoTimingParameters timing;
    TributaryType tributary;

    void Serialize(Json::Value& out) const override;
    void Deserialize(Json::Value& in) override;
};

/// {"id": u64, "nmos_id": text, "audio": [stream...], "video": [stream...]}
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
