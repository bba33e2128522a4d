#include "tools/kaiklactl/MessageLine.hpp"

#include "platform/records/IpcMsg.hpp"
#include "tools/client/ServiceConnection.hpp"
#include "tools/kaiklactl/TerminalText.hpp"

#include <algorithm>
#include <ctime>
#include <iomanip>
#include <sstream>

namespace kaiklactl {
namespace {

std::string timeOfDay(std::chrono::system_clock::time_point time) {
    using std::chrono::milliseconds;
    const std::time_t seconds = std::chrono::system_clock::to_time_t(time);
    const auto sinceEpoch = std::chrono::duration_cast<milliseconds>(time.time_since_epoch());
    const long long fraction = sinceEpoch.count() % std::milli::den;
    std::tm local{};
    ::localtime_r(&seconds, &local);
    std::ostringstream text;
    text << std::put_time(&local, "%H:%M:%S.") << std::setfill('0') << std::setw(3) << fraction;
    return text.str();
}

/// The kind, wide enough for the two that there are.
std::string column(const std::string& kind) {
    constexpr std::size_t kWidth = sizeof("status-session") - 1;
    return kind + std::string(kWidth - std::min(kWidth, kind.size()), ' ');
}

} // namespace

std::string messageLine(std::string_view frame, std::chrono::system_clock::time_point time,
                        StatusHistory& history) {
    std::string kind = "malformed";
    std::string words;
    try {
        Json::Value json = client::readObject(frame);
        IpcMsg message;
        message.Deserialize(json);
        words = history.take(message);
        kind = message.commandName;
    } catch (const Json::Exception& error) {
        words = std::string("this message cannot be read: ") + error.what();
    }
    return printable(timeOfDay(time) + "  " + column(kind) + "  " + words).text;
}

} // namespace kaiklactl
