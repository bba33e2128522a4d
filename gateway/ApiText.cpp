#include "gateway/ApiText.hpp"

#include <json/writer.h>

#include <array>
#include <cstdio>
#include <ctime>
#include <sstream>

namespace gateway {
namespace {

Json::StreamWriterBuilder makeWriterBuilder() {
    constexpr int kSignificantDigits = 15;
    Json::StreamWriterBuilder builder;
    builder["commentStyle"] = "None";
    builder["indentation"] = "";
    builder["precision"] = kSignificantDigits;
    return builder;
}

} // namespace

std::string jsonText(const Json::Value& value) {
    static const std::unique_ptr<Json::StreamWriter> writer(makeWriterBuilder().newStreamWriter());
    std::ostringstream text;
    // Without this a lack of memory would cut the text short.
    text.exceptions(std::ios::badbit);
    writer->write(value, &text);
    return std::move(text).str();
}

std::string timeText(WallClock::time_point time) {
    using std::chrono::milliseconds;
    const auto whole = std::chrono::floor<std::chrono::seconds>(time);
    const auto fraction = std::chrono::duration_cast<milliseconds>(time - whole).count();
    const std::time_t seconds = WallClock::to_time_t(whole);
    std::tm utc{};
    ::gmtime_r(&seconds, &utc);
    std::array<char, sizeof("2026-03-01T12:00:00.123Z") + 8> text{};
    const std::size_t length = std::strftime(text.data(), text.size(), "%Y-%m-%dT%H:%M:%S", &utc);
    (void)std::snprintf(text.data() + length, text.size() - length, ".%03dZ",
                        static_cast<int>(fraction));
    return text.data();
}

} // namespace gateway
