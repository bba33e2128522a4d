#include "tools/kaikla-sim/Scenario.hpp"

#include "platform/records/JsonMember.hpp"

#include <cerrno>
#include <cstring>
#include <fstream>
#include <istream>
#include <utility>

namespace sim {

namespace {

constexpr JsonKey kDeviceId{"device_id"};

struct NumberedLine {
    std::size_t number = 0;
    ScenarioLine line;
};

[[noreturn]] void refuse(const std::string& name, std::size_t number, const std::string& reason) {
    throw ScenarioMistake(name + ":" + std::to_string(number) + ": " + reason);
}

bool isBlankOrComment(const std::string& text) {
    const auto first = text.find_first_not_of(" \t\r");
    return first == std::string::npos || text[first] == '#';
}

std::vector<NumberedLine> readLines(std::istream& input, const std::string& name) {
    std::vector<NumberedLine> lines;
    ScenarioLineDecoder decoder;
    std::string text;
    for (std::size_t number = 1; std::getline(input, text); ++number) {
        if (isBlankOrComment(text)) {
            continue;
        }
        try {
            ScenarioLine line = decoder.decode(text);
            if (!lines.empty() && line.at < lines.back().line.at) {
                throw ScenarioMistake("\"at_ms\" goes back from " +
                                      std::to_string(lines.back().line.at.count()) + " to " +
                                      std::to_string(line.at.count()));
            }
            lines.push_back({number, std::move(line)});
        } catch (const ScenarioMistake& mistake) {
            refuse(name, number, mistake.what());
        }
    }
    if (input.bad()) {
        throw ScenarioMistake(name + ": it cannot be read");
    }
    return lines;
}

std::string firstDeviceId(const std::vector<NumberedLine>& lines) {
    for (const NumberedLine& entry : lines) {
        if (namesDevice(*entry.line.kind)) {
            std::string id = json_member::text(entry.line.payload, kDeviceId);
            if (!id.empty() && id != kDevicePlaceholder) {
                return id;
            }
        }
    }
    return kDefaultDeviceId;
}

ScenarioEvent makeEvent(ScenarioLine line, const std::string& deviceId) {
    if (namesDevice(*line.kind) &&
        json_member::text(line.payload, kDeviceId) == kDevicePlaceholder) {
        line.payload[kDeviceId] = deviceId;
    }
    ScenarioEvent event;
    event.at = line.at;
    event.kind = line.kind;
    event.id = line.id();
    event.message = encodeNotification(*line.kind, std::move(line.payload));
    return event;
}

} // namespace

Scenario readScenario(std::istream& input, const std::string& name,
                      const std::optional<std::string>& deviceId) {
    std::vector<NumberedLine> lines = readLines(input, name);
    Scenario scenario;
    scenario.deviceId = deviceId ? *deviceId : firstDeviceId(lines);
    scenario.events.reserve(lines.size());
    for (NumberedLine& entry : lines) {
        try {
            scenario.events.push_back(makeEvent(std::move(entry.line), scenario.deviceId));
        } catch (const ScenarioMistake& mistake) {
            refuse(name, entry.number, mistake.what());
        }
    }
    return scenario;
}

Scenario readScenarioFile(const std::string& fileName, const std::optional<std::string>& deviceId) {
    std::ifstream file(fileName);
    if (!file) {
        throw ScenarioMistake(fileName + ": " + std::strerror(errno));
    }
    return readScenario(file, fileName, deviceId);
}

} // namespace sim
