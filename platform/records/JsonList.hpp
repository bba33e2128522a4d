#pragma once

#include "platform/records/JsonKey.hpp"

#include <json/value.h>

#include <list>
#include <utility>

/// Lists of records inside a JSON object.
namespace json_list {

/// Writes element i of `records` into element i of `holder[key]`. An empty list writes no key at
/// all, and surplus elements of a longer array that is already there stay.
template <typename Record>
void write(Json::Value& holder, JsonKey key, const std::list<Record>& records) {
    if (records.empty()) {
        return;
    }
    Json::Value& array = holder[key];
    Json::ArrayIndex index = 0;
    for (const Record& record : records) {
        record.Serialize(array[index++]);
    }
}

/// Replaces `records` by the elements of `holder[key]`, in array order. A missing key is added to
/// `holder` as null and reads as an empty list, as does any value that has no elements. Raises
/// Json::LogicError for an object with members.
template <typename Record>
void read(Json::Value& holder, JsonKey key, std::list<Record>& records) {
    records.clear();
    Json::Value& array = holder[key];
    if (array.isObject() && !array.empty()) {
        // As the library's own index does; the loop would walk the members.
        Json::throwLogicError("an object where a list is expected");
    }
    for (Json::Value& element : array) {
        Record record;
        record.Deserialize(element);
        records.push_back(std::move(record));
    }
}

} // namespace json_list
