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

/// What toCompactJson writes with, for one who writes many texts. It serves one text at a time.
std::unique_ptr<Json::StreamWriter> makeCompactWriter();

/// Reads JSON texts that come from outside the process.
///
/// A text is at most platform_protocol::kMaxFrameBytes long. The library's strict reader decides
/// what is JSON; docs/messages.md lists what it lets pass beyond RFC 8259. A number beyond the
/// range of a double is refused, though newer versions of the library take it for infinity.
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

    /// Reads one JSON object from `text` into `object`. Returns an empty text on success, otherwise
    /// a reason of one line, such as "not JSON: Line 1, Column 1 ...", and `object` is then
    /// unspecified. Never throws on account of `text`.
    std::string decodeObject(std::string_view text, Json::Value& object);

private:
    std::unique_ptr<Json::CharReader> reader;
};
