#pragma once

#include "platform/records/IJsonSerializable.hpp"

#include <cstdint>
#include <string>

/// The one message record of the system: a request, a notification or a published message is an
/// IpcMsg as one JSON object, `{"command_id": u32, "command_name": text, "payload": any}`.
class IpcMsg : public IJsonSerializable {
public:
    /// Which command, notification kind or message kind this is.
    std::uint32_t commandId = 0;
    /// Its name for people and for consumers that prefer texts to numbers.
    std::string commandName;
    /// What the message is about; null when there is nothing to say.
    Json::Value payload;

    /// Writes the three members; the payload is copied.
    void Serialize(Json::Value& out) const override;

    /// Reads the three members. "command_id" must be there and be an unsigned 32-bit integer,
    /// otherwise Json::LogicError says so; "command_name" and "payload" may be missing.
    void Deserialize(Json::Value& in) override;
};
