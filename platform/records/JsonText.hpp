#pragma once

#include <json/reader.h>
#include <json/value.h>
#include <json/writer.h>

#include <memory>
#include <string>
#include <string_view>

/// `value` as compact JSON text: no comments, no line breaks, no blanks between tokens, members in
/// ascending order of their names.
std::string toCompactJson(const Json::Value& value);

/// What toCompactJson writes with, for whoever writes many texts. It serves one text at a time.
std::unique_ptr<Json::StreamWriter> makeCompactWriter();

/// Reads JSON texts that come from outside the process.
///
/// A text is at most platform_protocol::kMaxFrameBytes long. What the library's
/// strict reader takes is taken: no trailing commas, no duplicate keys, nothing after the value. It
/// is not quite as strict as RFC 8259: a comment behind a value passes, and so does a number such
/// as 01. One decoder
/// may read any number of texts; it is not shared between threads.
class JsonDecoder {
public:
    /// Objects and arrays may nest this deep; the deepest message of the system nests 7 levels.
    static constexpr int kMaxDepth = 64;

    JsonDecoder();
    ~JsonDecoder();
    JsonDecoder(const JsonDecoder&) = delete;
    JsonDecoder& operator=(const JsonDecoder&) = delete;
    JsonDecoder(JsonDecoder&&) = delete;
    JsonDecoder& operator=(JsonDecoder&&) = delete;

    /// Reads one JSON object from `text` into `object`. Returns an empty text on success, otherwise
    /// a reason of one line, such as "not JSON: Line 1, Column 1 ...", and `object` is then
    /// unspecified. Never throws on account of `text`.
    std::string decodeObject(std::string_view text, Json::Value& object);

private:
    std::unique_ptr<Json::CharReader> reader;
};
