#pragma once

#include "platform/records/JsonKey.hpp"

#include <json/value.h>

#include <cstdint>
#include <string>

/// Reading one member of a JSON object, as `Json::Value::get` with a default does, without get's
/// copy of the value. A key that is missing yields the default; one that is present is converted by
/// the library. Where it cannot, Json::LogicError names the key and the reason. Null converts to
/// "", 0 and false.
namespace json_member {

[[noreturn]] inline void refuse(JsonKey key, const std::string& reason) {
    Json::throwLogicError("\"" + std::string(key.begin(), key.end()) + "\": " + reason);
}

inline const Json::Value* find(const Json::Value& object, JsonKey key) {
    if (!object.isObject() && !object.isNull()) {
        refuse(key, "looked for in something that is no object");
    }
    return object.find(key.begin(), key.end());
}

/// Reads with one of the library's conversions. What it raises names the member.
template <typename Result>
Result read(const Json::Value& object, JsonKey key, Result (Json::Value::*conversion)() const,
            Result absent = Result()) {
    const Json::Value* value = find(object, key);
    if (value == nullptr) {
        return absent;
    }
    try {
        return (value->*conversion)();
    } catch (const Json::LogicError& error) {
        refuse(key, error.what());
    }
}

inline std::string text(const Json::Value& object, JsonKey key, const char* absent = "") {
    return read<std::string>(object, key, &Json::Value::asString, absent);
}

/// Refuses a number that was read as a double and is `limit` or more: the library compares with the
/// greatest 64-bit integer as a double, which is one above it, and so lets 18446744073709551616
/// through as 0.
inline void refuseReal(const Json::Value& object, JsonKey key, double limit) {
    const Json::Value* value = find(object, key);
    if (value != nullptr && value->type() == Json::realValue && value->asDouble() >= limit) {
        refuse(key, "double out of 64-bit range");
    }
}

/// Ids and other unsigned 64-bit numbers; a negative number is refused.
inline std::uint64_t unsigned64(const Json::Value& object, JsonKey key) {
    constexpr double kLimit = 0x1p64;
    refuseReal(object, key, kLimit);
    return read(object, key, &Json::Value::asUInt64);
}

inline std::int64_t signed64(const Json::Value& object, JsonKey key) {
    constexpr double kLimit = 0x1p63;
    refuseReal(object, key, kLimit);
    return read(object, key, &Json::Value::asInt64);
}

/// The library's signed 32-bit conversion: a number outside 32 bits is refused.
inline int signed32(const Json::Value& object, JsonKey key, int absent = 0) {
    return read(object, key, &Json::Value::asInt, absent);
}

/// The library's unsigned 32-bit conversion: a negative number or one above 32 bits is refused.
inline unsigned unsigned32(const Json::Value& object, JsonKey key, unsigned absent = 0) {
    return read(object, key, &Json::Value::asUInt, absent);
}

} // namespace json_member
