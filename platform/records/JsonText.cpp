#include "platform/records/JsonText.hpp"

#include "platform/PlatformProtocol.hpp"

#include <algorithm>
#include <cmath>
#include <sstream>
#include <utility>

namespace {

std::unique_ptr<Json::CharReader> makeStrictReader() {
    Json::CharReaderBuilder builder;
    Json::CharReaderBuilder::strictMode(&builder.settings_);
    builder["stackLimit"] = JsonDecoder::kMaxDepth;
    return std::unique_ptr<Json::CharReader>(builder.newCharReader());
}

/// The library reports errors over several lines ("* Line 1, Column 2\n  Syntax error...\n") and
/// quotes what it found there at any length.
std::string onOneShortLine(const std::string& report) {
    constexpr std::size_t kMaxReason = 200;
    std::string line;
    for (const char c : report) {
        const bool blank = c == '\n' || c == ' ' || c == '*';
        if (!blank) {
            line += c;
        } else if (!line.empty() && line.back() != ' ') {
            line += ' ';
        }
        if (line.size() == kMaxReason) {
            return line + "...";
        }
    }
    line.erase(line.find_last_not_of(' ') + 1);
    return line;
}

/// Version 1.9.5 and older refuse a number beyond the range of a double by themselves.
constexpr bool kReadsInfinity = JSONCPP_VERSION_HEXA >= 0x01090600;

bool holdsInfinity(const Json::Value& value) {
    if (value.isArray() || value.isObject()) {
        return std::any_of(value.begin(), value.end(), holdsInfinity);
    }
    return value.type() == Json::realValue && std::isinf(value.asDouble());
}

} // namespace

std::string toCompactJson(const Json::Value& value) {
    std::ostringstream text;
    // Without this a lack of memory would cut the text short.
    text.exceptions(std::ios::badbit);
    makeCompactWriter()->write(value, &text);
    return std::move(text).str();
}

std::unique_ptr<Json::StreamWriter> makeCompactWriter() {
    static const Json::StreamWriterBuilder builder = [] {
        Json::StreamWriterBuilder compact;
        compact["commentStyle"] = "None";
        compact["indentation"] = "";
        return compact;
    }();
    return std::unique_ptr<Json::StreamWriter>(builder.newStreamWriter());
}

JsonDecoder::JsonDecoder() : reader(makeStrictReader()) {}
JsonDecoder::~JsonDecoder() = default;

std::string JsonDecoder::decodeObject(std::string_view text, Json::Value& object) {
    if (text.size() > platform_protocol::kMaxFrameBytes) {
        return "longer than " + std::to_string(platform_protocol::kMaxFrameBytes) + " bytes";
    }
    // The library takes a NUL for the end of the text and would not look at what follows it.
    if (text.find('\0') != std::string_view::npos) {
        return "not JSON: it holds a NUL byte";
    }
    std::string errors;
    try {
        if (!reader->parse(text.data(), text.data() + text.size(), &object, &errors)) {
            return "not JSON: " + onOneShortLine(errors);
        }
    } catch (const Json::Exception&) {
        return "nested deeper than " + std::to_string(kMaxDepth) + " levels";
    }
    if (!object.isObject()) {
        return "not a JSON object";
    }
    if (kReadsInfinity && holdsInfinity(object)) {
        return "not to be represented: a number is too large";
    }
    return {};
}
