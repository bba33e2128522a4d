#pragma once

#include "platform/records/IJsonSerializable.hpp"
#include "platform/records/JsonText.hpp"
#include "tests/support/CommandClient.hpp"

#include <string>

/// A record as compact JSON text.
inline std::string textOf(const IJsonSerializable& record) {
    Json::Value json;
    record.Serialize(json);
    return toCompactJson(json);
}

/// `record` after it has read JSON text.
template <typename Record>
Record recordFrom(const std::string& text, Record record = {}) {
    Json::Value json = parseJson(text);
    record.Deserialize(json);
    return record;
}

/// A text read into a record and written back.
template <typename Record>
std::string rewritten(const std::string& text) {
    return textOf(recordFrom<Record>(text));
}

/// What reading leaves of the text that was read.
template <typename Record>
std::string inputAfterReading(const std::string& text) {
    Json::Value json = parseJson(text);
    Record().Deserialize(json);
    return toCompactJson(json);
}
