#pragma once

#include <json/reader.h>
#include <json/value.h>
#include <json/writer.h>

#include <memory>
#include <string>
#include <string_view>

/// `value` as compact JSON text: no comments, no line breaks, no blanks between tokens, members in
/// ascending order of their names. Throws std::bad_alloc when there is no memory for all of it.
std::string toCompactJson(const Json::Value& value);

/// What toCompactJson writes with, for whoever writes many texts. It serves one text at a time.
std::unique_ptr<Json::StreamWriter> makeCompactWriter();

/// Reads JSON texts that come from outside the process.
///
/// A text is at most platform_protocol::kMaxFrameBytes long. What the library's strict reader takes
/// is taken: no trailing commas, no duplicate keys, nothing after the object. It is not quite as
/// strict as RFC 8259. These pass too: a comment inside an object or array, behind a value or where
/// a key may begin (not before a value, nor outside the outermost object); the numbers 01, +1, 1.
/// and a lone minus sign, which is 0; a control character other than NUL in a string; a lone low
/// surrogate (an escape of U+DC00 to U+DFFF); bytes that are not UTF-8; a byte order mark in front.
///
/// One decoder may read any number of texts; it is not shared between threads.
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
