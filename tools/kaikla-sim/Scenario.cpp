#include "tools/kaikla-sim/Scenario.hpp"

#include "platform/records/JsonMember.hpp"
#include "platform/records/JsonText.hpp"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <istream>
#include <streambuf>
#include <utility>

namespace sim {

namespace {

constexpr JsonKey kDeviceId{"device_id"};

/// Stands for the device's id in a message until the id is known; no scenario holds it by chance.
constexpr const char* kIdToCome = "\x01kaikla-sim: device id\x01";

/// A file whose text ends when a signal arrives, because the writer of a pipe may never come.
class InterruptibleFile : public std::streambuf {
public:
    InterruptibleFile(const std::string& name, const StopSignals& stopSignals)
        : stop(stopSignals), descriptor(::open(name.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC)) {
        if (descriptor < 0) {
            throw ScenarioMistake(name + ": " + std::strerror(errno));
        }
    }
    ~InterruptibleFile() override { ::close(descriptor); }
    InterruptibleFile(const InterruptibleFile&) = delete;
    InterruptibleFile& operator=(const InterruptibleFile&) = delete;
    InterruptibleFile(InterruptibleFile&&) = delete;
    InterruptibleFile& operator=(InterruptibleFile&&) = delete;

protected:
    /// A failed read becomes the stream's bad().
    int_type underflow() override {
        std::array<pollfd, 2> items = {{{descriptor, POLLIN, 0}, {stop.descriptor(), POLLIN, 0}}};
        constexpr int kWithoutLimit = -1;
        while (::poll(items.data(), items.size(), kWithoutLimit) < 0) {
        }
        if (items[1].revents != 0) {
            return traits_type::eof();
        }
        const ssize_t count = ::read(descriptor, bytes.data(), bytes.size());
        if (count < 0) {
            throw std::runtime_error(std::strerror(errno));
        }
        setg(bytes.data(), bytes.data(), bytes.data() + count);
        return count == 0 ? traits_type::eof() : traits_type::to_int_type(bytes.front());
    }

private:
    const StopSignals& stop;
    int descriptor;
    std::array<char, std::size_t{64} * 1024> bytes{};
};

bool isBlankOrComment(const std::string& text) {
    const auto first = text.find_first_not_of(" \t\r");
    return first == std::string::npos || text[first] == '#';
}

/// Makes a scenario, line by line. All lines as JSON at once would take too much memory.
class ScenarioReader {
public:
    ScenarioReader(std::string scenarioName, std::optional<std::string> givenDeviceId)
        : name(std::move(scenarioName)), deviceId(std::move(givenDeviceId)) {}

    void take(const std::string& text) {
        ++lineNumber;
        if (isBlankOrComment(text)) {
            return;
        }
        try {
            append(decoder.decode(text));
        } catch (const NotPlayable& reason) {
            refuse(lineNumber, reason);
        }
    }

    /// Nothing when a signal arrives first.
    std::optional<Scenario> finish(const StopSignals& stop) {
        scenario.deviceId = deviceId.value_or(kDefaultDeviceId);
        const std::string toCome = toCompactJson(kIdToCome);
        const std::string quotedId = toCompactJson(scenario.deviceId);
        for (const auto& [event, number] : unnamed) {
            if (stop.arrived()) {
                return std::nullopt;
            }
            std::string& message = scenario.events[event].message;
            message.replace(message.find(toCome), toCome.size(), quotedId);
            message.shrink_to_fit(); // replace() doubles what it takes
            try {
                checkSize(message);
            } catch (const NotPlayable& reason) {
                refuse(number, reason);
            }
        }
        return std::move(scenario);
    }

private:
    [[noreturn]] void refuse(std::size_t number, const NotPlayable& reason) const {
        throw ScenarioMistake(name + ":" + std::to_string(number) + ": " + reason.what());
    }

    void append(ScenarioLine line) {
        if (line.at < scenario.length()) {
            throw NotPlayable("\"at_ms\" goes back from " +
                              std::to_string(scenario.length().count()) + " to " +
                              std::to_string(line.at.count()));
        }
        if (namesDevice(*line.kind)) {
            nameDevice(line.payload);
        }
        const std::uint64_t id = line.id();
        scenario.events.push_back(
            {line.at, line.kind, id, encodeNotification(*line.kind, std::move(line.payload))});
    }

    void nameDevice(Json::Value& payload) {
        const std::string id = json_member::text(payload, kDeviceId);
        if (id != kDevicePlaceholder) {
            if (!deviceId && !id.empty()) {
                deviceId = id;
            }
        } else if (deviceId) {
            payload[kDeviceId] = *deviceId;
        } else {
            payload[kDeviceId] = kIdToCome;
            unnamed.emplace_back(scenario.events.size(), lineNumber);
        }
    }

    std::string name;
    std::optional<std::string> deviceId;
    std::size_t lineNumber = 0;
    Scenario scenario;
    /// Events with the placeholder that came before the device's id, and their lines.
    std::vector<std::pair<std::size_t, std::size_t>> unnamed;
    ScenarioLineDecoder decoder;
};

} // namespace

std::optional<Scenario> readScenario(std::istream& input, const std::string& name,
                                     const std::optional<std::string>& deviceId,
                                     const StopSignals& stop) {
    ScenarioReader reader(name, deviceId);
    for (std::string text; std::getline(input, text);) {
        if (stop.arrived()) {
            break;
        }
        reader.take(text);
    }
    if (input.bad()) {
        throw ScenarioMistake(name + ": it cannot be read");
    }
    return stop.arrived() ? std::nullopt : reader.finish(stop);
}

std::optional<Scenario> readScenarioFile(const std::string& fileName,
                                         const std::optional<std::string>& deviceId,
                                         const StopSignals& stop) {
    InterruptibleFile file(fileName, stop);
    std::istream input(&file);
    return readScenario(input, fileName, deviceId, stop);
}

} // namespace sim
