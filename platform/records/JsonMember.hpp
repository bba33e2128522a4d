#pragma once

#include "platform/records/JsonKey.hpp"

#include <json/value.h>

#include <cstdint>
#include <string>

/// Reading one member of a JSON object, as `Json::Value::get` with a default does, without get's
/// copy of the value. A key that is missing yields the default; one that is present is converted by
/// the library, which raises Json::LogicError where it cannot. Null converts to "", 0 and false.
namespace json_member {

inline const Json::Value* find(const Json::Value& object, JsonKey key) {
    return object.find(key.begin(), key.end());
}

inline std::string text(const Json::Value& object, JsonKey key, const char* absent = "") {
    const Json::Value* value = find(object, key);
    return value != nullptr ? value->asString() : std::string(absent);
}

/// Raises Json::LogicError for a number that was read as a double and is `limit` or more: the
/// library compares with the greatest 64-bit integer as a double, which is one above it, and so
/// lets 18446744073709551616 through as 0.
inline void refuseReal(const Json::Value& value, double limit) {
    if (value.type() == Json::realValue && value.asDouble() >= limit) {
        Json::throwLogicError("double out of 64-bit range");
    }
}

/// Ids and other unsigned 64-bit numbers; a negative number is refused.
inline std::uint64_t unsigned64(const Json::Value& object, JsonKey key) {
    const Json::Value* value = find(object, key);
    if (value == nullptr) {
        return 0;
    }
    constexpr double kLimit = 0x1p64;
    refuseReal(*value, kLimit);
    return value->asUInt64();
}

inline std::int64_t signed64(const Json::Value& object, JsonKey key) {
    const Json::Value* value = find(object, key);
    if (value == nullptr) {
        return 0;
    }
    constexpr double kLimit = 0x1p63;
    refuseReal(*value, kLimit);
    return value->asInt64();
}

/// The library's signed 32-bit conversion: a number outside 32 bits is refused.
inline int signed32(const Json::Value& object, JsonKey key, int absent = 0) {
    const Json::Value* value = find(object, key);
    return value != nullptr ? value->asInt() : absent;
}

/// The library's unsigned 32-bit conversion: a negative number or one above 32 bits is refused.
inline unsigned unsigned32(const Json::Value& object, JsonKey key, unsigned absent = 0) {
    const Json::Value* value = find(object, key);
    return value != nullptr ? value->asUInt() : absent;
}

} // namespace json_member
