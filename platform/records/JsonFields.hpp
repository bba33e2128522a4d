#pragma once

#include "platform/records/IJsonSerializable.hpp"
#include "platform/records/JsonList.hpp"
#include "platform/records/JsonMember.hpp"

#include <json/value.h>

#include <concepts>
#include <cstdint>
#include <list>
#include <string>
#include <tuple>

/// Records whose JSON form is a list of fields, written and read from that one list:
///
///     constexpr std::tuple kFields{Field{"name", &PtpProfile::name},
///                                  Field{"domain", &PtpProfile::domain}};
///
/// The type of the member decides how it is written and read. A missing key reads as "", 0 or
/// false. A number is cut down to the member's width; one of 64 bits has to fit. A record nests in
/// an object of its own. A list is left out when it is empty, and is refused unless it is an array
/// or null.
namespace json_fields {

inline void read(Json::Value& in, JsonKey key, bool& member) {
    member = json_member::read(in, key, &Json::Value::asBool);
}

inline void read(Json::Value& in, JsonKey key, std::string& member) {
    member = json_member::text(in, key);
}

inline void read(Json::Value& in, JsonKey key, double& member) {
    member = json_member::read(in, key, &Json::Value::asDouble);
}

inline void read(Json::Value& in, JsonKey key, std::uint64_t& member) {
    member = json_member::unsigned64(in, key);
}

inline void read(Json::Value& in, JsonKey key, std::int64_t& member) {
    member = json_member::signed64(in, key);
}

template <std::integral Number>
void read(Json::Value& in, JsonKey key, Number& member) {
    const Json::Value* value = json_member::find(in, key);
    const bool large = value != nullptr && value->isUInt64();
    member = large ? static_cast<Number>(value->asUInt64())
                   : static_cast<Number>(json_member::read(in, key, &Json::Value::asInt64));
}

template <std::derived_from<IJsonSerializable> Record>
void read(Json::Value& in, JsonKey key, Record& member) {
    member.Deserialize(in[key]);
}

template <typename Record>
void read(Json::Value& in, JsonKey key, std::list<Record>& member) {
    if (const Json::Value& list = in[key]; !list.isArray() && !list.isNull()) {
        json_member::refuse(key, "not a list");
    }
    json_list::read(in, key, member);
}

template <typename Value>
void write(Json::Value& out, JsonKey key, const Value& member) {
    out[key] = member;
}

template <std::derived_from<IJsonSerializable> Record>
void write(Json::Value& out, JsonKey key, const Record& member) {
    member.Serialize(out[key]);
}

template <typename Record>
void write(Json::Value& out, JsonKey key, const std::list<Record>& member) {
    json_list::write(out, key, member);
}

/// A member of a record and its key.
template <typename Record, typename Member>
class Field {
public:
    consteval Field(JsonKey keyToUse, Member Record::*memberToUse)
        : key(keyToUse), member(memberToUse) {}

    void write(const Record& record, Json::Value& out) const {
        json_fields::write(out, key, record.*member);
    }
    void read(Record& record, Json::Value& in) const { json_fields::read(in, key, record.*member); }

private:
    JsonKey key;
    Member Record::*member;
};

/// A member that is a record and puts its keys beside those of its holder.
template <typename Record, typename Member>
class Beside {
public:
    consteval explicit Beside(Member Record::*memberToUse) : member(memberToUse) {}

    void write(const Record& record, Json::Value& out) const { (record.*member).Serialize(out); }
    void read(Record& record, Json::Value& in) const { (record.*member).Deserialize(in); }

private:
    Member Record::*member;
};

template <typename Record, typename... Fields>
void write(const Record& record, const std::tuple<Fields...>& fields, Json::Value& out) {
    std::apply([&](const Fields&... field) { (field.write(record, out), ...); }, fields);
}

template <typename Record, typename... Fields>
void read(Record& record, const std::tuple<Fields...>& fields, Json::Value& in) {
    std::apply([&](const Fields&... field) { (field.read(record, in), ...); }, fields);
}

} // namespace json_fields
