// The steps between a notification and the bytes that leave, one by one, to see where time goes.

#include "model/DeviceStatus.hpp"
#include "platform/api/Logger.hpp"
#include "platform/records/IpcMsg.hpp"
#include "platform/records/JsonText.hpp"
#include "publisher/WebNotifierPublisher.hpp"

#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <utility>

namespace {

StreamAlarmData alarm() {
    StreamAlarmData data;
    data.severity = "minor";
    data.description = "RTP packets missing on secondary path";
    data.type = 3;
    return data;
}

/// A session of as many streams as the benchmark's argument says, each fourth with an alarm.
SessionStatusData sessionOf(const benchmark::State& state) {
    constexpr int kStreamsForOneAlarm = 4;
    SessionStatusData session;
    session.id = 1'000'000'000;
    session.deviceId = "0d7b9f4e-61c2-4c1a-9a43-5f2be8a1d6f0";
    session.nmosId = "6f1c8d0e-52a4-4c3b-9f7e-001000000000";
    session.alarms.push_back(alarm());
    for (int i = 0; i < state.range(0); ++i) {
        StreamStatusData& stream = session.streams.emplace_back();
        stream.id = static_cast<std::uint64_t>(i) + 1;
        if (i % kStreamsForOneAlarm == 1) {
            stream.alarms.push_back(alarm());
        }
    }
    return session;
}

Json::Value messageOf(const benchmark::State& state) {
    IpcMsg message;
    message.commandId = 1;
    message.commandName = "status-session";
    sessionOf(state).Serialize(message.payload);
    Json::Value json;
    message.Serialize(json);
    return json;
}

void decodeText(benchmark::State& state) {
    const std::string text = toCompactJson(messageOf(state));
    JsonDecoder decoder;
    for ([[maybe_unused]] auto step : state) {
        Json::Value json;
        benchmark::DoNotOptimize(decoder.decodeObject(text, json));
    }
}

void readSession(benchmark::State& state) {
    Json::Value json = messageOf(state);
    for ([[maybe_unused]] auto step : state) {
        SessionStatusData session;
        session.Deserialize(json["payload"]);
        benchmark::DoNotOptimize(session);
    }
}

void copySession(benchmark::State& state) {
    const SessionStatusData session = sessionOf(state);
    for ([[maybe_unused]] auto step : state) {
        SessionStatusData copy = session;
        benchmark::DoNotOptimize(copy);
    }
}

void writeSession(benchmark::State& state) {
    const SessionStatusData session = sessionOf(state);
    for ([[maybe_unused]] auto step : state) {
        Json::Value json;
        session.Serialize(json);
        benchmark::DoNotOptimize(json);
    }
}

void encodeText(benchmark::State& state) {
    const Json::Value json = messageOf(state);
    for ([[maybe_unused]] auto step : state) {
        benchmark::DoNotOptimize(toCompactJson(json));
    }
}

/// From the record to the frame, without anybody to send it to.
void publishSession(benchmark::State& state) {
    const SessionStatusData session = sessionOf(state);
    WebNotifierPublisher publisher;
    for ([[maybe_unused]] auto step : state) {
        IpcMsg message;
        message.commandId = 1;
        message.commandName = "status-session";
        session.Serialize(message.payload);
        publisher.publishMessage(message, "");
    }
}

/// From the records of a hundred such sessions to the frame.
void publishDocument(benchmark::State& state) {
    constexpr int kSessions = 100;
    WebNotifierDeviceStatus document;
    document.deviceId = "0d7b9f4e-61c2-4c1a-9a43-5f2be8a1d6f0";
    document.sessions.assign(kSessions, sessionOf(state));
    WebNotifierPublisher publisher;
    for ([[maybe_unused]] auto step : state) {
        IpcMsg message;
        message.commandName = "status-all";
        document.Serialize(message.payload);
        publisher.publishMessage(message, "");
    }
}

/// The line that the default level writes for every consumer and message.
void logLine(benchmark::State& state) {
    const std::string address = "tcp://127.0.0.1:40000";
    for ([[maybe_unused]] auto step : state) {
        Logger::log(Logger::LOG_LEVEL_INF, "Publishing message to socket (%s) size %ld",
                    address.c_str(), 422L);
    }
}

void logLineAboveLevel(benchmark::State& state) {
    for ([[maybe_unused]] auto step : state) {
        Logger::log(Logger::LOG_LEVEL_DBG, "WebNotifierServer: something received");
    }
}

void forStreams(benchmark::internal::Benchmark* steps) {
    steps->ArgName("streams")->Arg(4)->Arg(18);
}

BENCHMARK(decodeText)->Apply(forStreams);
BENCHMARK(readSession)->Apply(forStreams);
BENCHMARK(copySession)->Apply(forStreams);
BENCHMARK(writeSession)->Apply(forStreams);
BENCHMARK(encodeText)->Apply(forStreams);
BENCHMARK(publishSession)->Apply(forStreams);
BENCHMARK(publishDocument)->Apply(forStreams);
BENCHMARK(logLine);
BENCHMARK(logLineAboveLevel);

} // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv) ||
        std::freopen("/dev/null", "w", stderr) == nullptr) {
        return EXIT_FAILURE;
    }
    Logger::createLogger(Logger::kToStandardError | Logger::LOG_LEVEL_INF, "", "kaikla");
    benchmark::RunSpecifiedBenchmarks();
    return EXIT_SUCCESS;
}
