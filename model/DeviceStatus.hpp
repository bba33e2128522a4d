#pragma once

#include "platform/records/IJsonSerializable.hpp"
#include "platform/records/PtpCommonInfo.hpp"
#include "platform/records/SysParametersDynamic.hpp"

#include <cstdint>
#include <list>
#include <string>

// The status records: what the service knows about the device and tells its consumers. All of them
// have value semantics; copies are deep. Reading replaces every member, taking the stated default
// for a missing key, and raises Json::Exception for a value that cannot be converted.

/// One active alarm of a session or of a stream.
class StreamAlarmData : public IJsonSerializable {
public:
    /// Free text. Written as it stands, an empty one included, but a missing one reads as
    /// "warning".
    std::string severity;
    /// For a person.
    std::string description;
    /// Numeric alarm type, as the session manager counts them.
    std::int32_t type = 0;

    void Serialize(Json::Value& out) const override;
    void Deserialize(Json::Value& in) override;
};

/// The status of one stream of a session: {"id": u64, "alarms": [alarm...]}, without "alarms" when
/// there are none.
class StreamStatusData : public IJsonSerializable {
public:
    std::uint64_t id = 0;
    /// In the order received.
    std::list<StreamAlarmData> alarms;

    void Serialize(Json::Value& out) const override;
    void Deserialize(Json::Value& in) override;
};

/// The status of one media session. It is an element of the document's "sessions", the payload of
/// a "status-session" message and the record in which the session manager reports a change.
///
/// The list of streams goes by the singular key "stream": that is the format as consumers know it.
class SessionStatusData : public IJsonSerializable {
public:
    /// The device that holds the session.
    std::string deviceId;
    /// The session's NMOS id (AMWA IS-04).
    std::string nmosId;
    /// Given by the session manager; unique on the device.
    std::uint64_t id = 0;
    /// Alarms of the session as a whole.
    std::list<StreamAlarmData> alarms;
    std::list<StreamStatusData> streams;

    void Serialize(Json::Value& out) const override;
    void Deserialize(Json::Value& in) override;
};

/// The device status document: {"device_id", "sessions", "ptp", "eths"}, the two lists left out
/// when they are empty. "GET device status" and "status-all" carry it.
class WebNotifierDeviceStatus : public IJsonSerializable {
public:
    /// The device's NMOS id (AMWA IS-04); empty until known.
    std::string deviceId;
    /// One record a session, the most recently changed one last.
    std::list<SessionStatusData> sessions;
    PtpCommonInfo ptp;
    /// In the order in which the system manager reported them.
    std::list<EthBasicInfo> eths;

    void Serialize(Json::Value& out) const override;

    /// Sessions and ports are discarded before reading, the PTP record is read over as it is.
    void Deserialize(Json::Value& in) override;
};
