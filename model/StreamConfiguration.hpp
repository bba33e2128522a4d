#pragma once

#include "platform/records/IJsonSerializable.hpp"

#include <cstdint>
#include <string>

// The attributes of a configured media stream, as the session manager describes them. Each record
// holds one property or a few that belong together, and puts its keys straight into the object of
// the stream that holds it, unless it says that it nests.
//
// A fresh record holds what reading an empty object gives. Reading into a record that is already
// filled differs from key to key: a missing key or an unknown text either keeps the old value or
// resets it, as each record states. Texts are compared exactly, letter case included, unless stated
// otherwise. Numbers are cut down to the member's width without a word. A value that cannot be
// converted at all, such as a text for a number or a negative number for an unsigned one, raises
// Json::Exception.
//
// Enumerations have a fixed underlying type: a record may hold a number that has no name here.

/// "class": which way the stream goes, seen from the device.
class StreamClass : public IJsonSerializable {
public:
    enum stream_class_t : std::int32_t { unset = 0, receiver = 1, sender = 2 };

    stream_class_t value = unset;

    /// Any value without a text of its own, `unset` included, is written "undefined".
    void Serialize(Json::Value& out) const override;
    /// A missing key and an unknown text, "undefined" included, keep the value.
    void Deserialize(Json::Value& in) override;
};

/// "state": whether the stream runs.
class State : public IJsonSerializable {
public:
    enum state_t : std::int32_t { disabled = 0, enabled = 1, paused = 2 };

    state_t value = disabled;

    /// Any value without a name is written "Undefined".
    void Serialize(Json::Value& out) const override;
    /// A missing key and an unknown text, "Undefined" included, reset the value to `disabled`.
    void Deserialize(Json::Value& in) override;
};

/// "type": what the stream carries.
class StreamType : public IJsonSerializable {
public:
    enum stream_type_t : std::int32_t { unset = 0, audio = 1, video = 2, ancillary = 3 };

    stream_type_t value = unset;

    /// Any value without a text of its own, `unset` included, is written "undefined".
    void Serialize(Json::Value& out) const override;
    /// A missing key and an unknown text keep the value. "ancillary" counts as unknown.
    void Deserialize(Json::Value& in) override;
};

/// "redundant-type": the stream's place in a pair that carries the same media over two networks
/// (SMPTE ST 2022-7).
class RedundantType : public IJsonSerializable {
public:
    enum redundant_type_t : std::int32_t { none = 0, primary = 1, secondary = 2 };

    redundant_type_t value = none;

    /// Any value without a name is written "none".
    void Serialize(Json::Value& out) const override;
    /// A missing key resets the value to `none`, an unknown text keeps it.
    void Deserialize(Json::Value& in) override;
};

/// "codec": how the payload is coded.
class Codec : public IJsonSerializable {
public:
    enum codec_t : std::int32_t {
        /// AES3 in AM824 words (SMPTE ST 2110-31).
        am824 = 0,
        /// Linear PCM of 32, 24 and 16 bits (AES67, SMPTE ST 2110-30).
        l32 = 1,
        l24 = 2,
        l16 = 3,
        /// A whole SDI signal (SMPTE ST 2022-6).
        smpte2022_6 = 4,
        am824_transparent = 5,
        /// Uncompressed video (SMPTE ST 2110-20).
        raw = 6,
        /// Whatever this device has no name for.
        not_supported = 7,
    };

    codec_t value = am824;

    /// Any value without a text of its own is written "Not-supported".
    void Serialize(Json::Value& out) const override;
    /// Letter case does not matter. A missing key resets the value to `am824`, an unknown text,
    /// the empty one included, sets `not_supported`.
    void Deserialize(Json::Value& in) override;
};

/// "id", "priority", "tpid": the VLAN tag of the stream's packets (IEEE 802.1Q). Its "id" would
/// collide with the stream's, so streams hold it in an object of its own.
class Vlan : public IJsonSerializable {
public:
    /// The tag protocol identifier of a customer VLAN tag.
    static constexpr std::uint16_t kDefaultTpid = 0x8100;

    /// VLAN identifier; 0 is a tag that carries only a priority.
    std::uint16_t id = 0;
    /// Priority code point, 0 to 7.
    std::uint8_t priority = 0;
    /// Tag protocol identifier.
    std::uint16_t tpid = kDefaultTpid;

    void Serialize(Json::Value& out) const override;
    /// A missing key resets its member: "id" and "priority" to 0, "tpid" to kDefaultTpid.
    void Deserialize(Json::Value& in) override;
};

/// "source", "destination": the UDP ports of the stream's packets.
class UdpPort : public IJsonSerializable {
public:
    std::uint16_t source = 0;
    std::uint16_t destination = 0;

    void Serialize(Json::Value& out) const override;
    /// A missing key resets its member to 0.
    void Deserialize(Json::Value& in) override;
};

/// "type", "value": the RTP synchronisation source (RFC 3550) and where it comes from.
class Ssrc : public IJsonSerializable {
public:
    enum ssrc_type_t : std::int32_t { session_id = 0, asio = 1, manual = 2, unspecified = 3 };

    ssrc_type_t type = session_id;
    std::uint32_t value = 0;

    /// A type without a name is written "-".
    void Serialize(Json::Value& out) const override;
    /// Takes the synchronisation source in any of its shapes, not its holder:
    /// - an object: a missing "type" and an unknown text keep the type, a missing "value" resets
    ///   the value to 0;
    /// - a bare number: it becomes the value, and the type becomes `session_id`;
    /// - null: everything stays.
    void Deserialize(Json::Value& in) override;
};

/// "payload-type" and the nested "sscr": the stream's RTP header (RFC 3550).
class Rtp : public IJsonSerializable {
public:
    static constexpr std::uint8_t kDefaultPayloadType = 98;

    /// 0 to 127; those from 96 on have no fixed meaning (RFC 3551).
    std::uint8_t payloadType = kDefaultPayloadType;
    Ssrc ssrc;

    void Serialize(Json::Value& out) const override;
    /// A missing "payload-type" resets it to kDefaultPayloadType. A missing "sscr" keeps the
    /// synchronisation source and is added to `in` as null.
    void Deserialize(Json::Value& in) override;
};

/// "local", "transport", "dscp", "ttl": the addresses of the stream's packets and how the network
/// is to treat them. Addresses are IPv4, in host byte order here, and dotted quads in JSON.
class IpAddrCfg : public IJsonSerializable {
public:
    /// Assured forwarding AF41 (RFC 2597), as AES67 recommends for media.
    static constexpr std::uint8_t kDefaultDscp = 34;
    static constexpr std::uint8_t kDefaultTtl = 64;

    /// The device's own address.
    std::uint32_t local = 0;
    /// Where the stream goes to, usually a multicast group.
    std::uint32_t transport = 0;
    /// Differentiated services code point, 0 to 63 (RFC 2474).
    std::uint8_t dscp = kDefaultDscp;
    /// IP time to live, hops.
    std::uint8_t ttl = kDefaultTtl;

    void Serialize(Json::Value& out) const override;
    /// An address whose key is missing, whose text is empty or whose text is not a dotted quad
    /// stays as it was; the last is logged at level 2. A missing "dscp" or "ttl" resets its member
    /// to the default.
    void Deserialize(Json::Value& in) override;
};

/// "type", "string": a text attribute and its kind.
class DaifType : public IJsonSerializable {
public:
    static constexpr std::int32_t kDefaultType = 11;
    static constexpr const char* kDefaultText = "auto";

    std::int32_t type = kDefaultType;
    std::string text = kDefaultText;

    void Serialize(Json::Value& out) const override;
    /// A missing key resets its member to the default.
    void Deserialize(Json::Value& in) override;
};

/// "timing-mode" and four numbers that tune the receive buffer of a video stream.
class VideoTimingParameters : public IJsonSerializable {
public:
    enum timing_mode_t : std::int32_t {
        unset = 0,
        frame_sync = 1,
        low_latency = 2,
        /// Aligned to PTP time (SMPTE ST 2059).
        st2059 = 3,
    };

    /// One of the four numbers holding it is not set, and is not written.
    static constexpr std::int32_t kNotSet = -1;

    timing_mode_t timingMode = unset;
    /// Initial delay of the buffer.
    std::int32_t initBufDelay = kNotSet;
    /// Bounds of the distance between the buffer's write and read pointers.
    std::int32_t minWrRdPtrThresh = kNotSet;
    std::int32_t maxWrRdPtrThresh = kNotSet;
    /// RTP packets in one video frame.
    std::int32_t rtpPktsPerFrame = kNotSet;

    /// A mode without a name is written "ERROR".
    void Serialize(Json::Value& out) const override;
    /// A missing key keeps its member, an unknown text keeps the mode. "unset" counts as unknown,
    /// the empty text as "low_latency".
    void Deserialize(Json::Value& in) override;
};

/// "tributary", an object of its own with "type" and "index": which part of a multiplexed video
/// signal the stream is.
class TributaryType : public IJsonSerializable {
public:
    enum tributary_type_t : std::int32_t {
        none = 0,
        /// One of the sub-images of a picture that is divided by two-sample interleave.
        multi_2si = 1,
        /// One of the square divisions of a picture.
        multi_sd = 2,
    };

    static constexpr std::int32_t kNoIndex = -1;

    tributary_type_t type = none;
    std::int32_t index = kNoIndex;

    /// A type without a name is written "none". The index is always written.
    void Serialize(Json::Value& out) const override;
    /// A missing "type" resets the type to `none`, an unknown text keeps it; a missing "index"
    /// resets the index to kNoIndex. A missing "tributary" does both and is added to `in` as null.
    void Deserialize(Json::Value& in) override;
};
