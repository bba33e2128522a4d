// Feeds the records and the handler with lines "NAME TEXT". A record of that name reads the text;
// what it then writes it must read to the same. The text also goes to the handler, as a request
// ("message") or as a notification: every request gets one reply, and the document stays sound.

#include "handler/WebNotifierHandler.hpp"
#include "platform/PlatformProtocol.hpp"
#include "platform/api/Logger.hpp"
#include "platform/api/ResultCode.hpp"
#include "platform/records/JsonText.hpp"
#include "tests/fuzz/Expect.hpp"
#include "tests/records/NamedRecords.hpp"

#include <zmq.hpp>

#include <algorithm>
#include <cstdint>
#include <random>
#include <set>
#include <string>

namespace {

Json::Value decoded(std::string_view text) {
    static JsonDecoder decoder;
    Json::Value json;
    expect(decoder.decodeObject(text, json).empty(), "what is written is a JSON object");
    return json;
}

/// What a record writes after it has read `text`, as text. Throws as the record does.
std::string rewritten(void (*exerciseRecord)(Json::Value&), const Json::Value& text) {
    Json::Value request;
    request["read"].append(text);
    exerciseRecord(request);
    return toCompactJson(request["into"]);
}

class FuzzedService {
public:
    FuzzedService() {
        zmq_ctx_set(context.handle(), ZMQ_BLOCKY, 0);
        Logger::createLogger(Logger::kLevelMask | Logger::kToFile, "/dev/null", "fuzz");
        // With room for the command socket alone, set-up ends before it reaches the services.
        PollFds pollFds;
        while (pollFds.getPollListSize() + 1 < static_cast<int>(PollFds::kMaxItems)) {
            pollFds.addFd(0, ZMQ_POLLIN);
        }
        expect(handler.init(context, pollFds) == platform_protocol::kErrorPollSetFull, "set-up");
        // A name that no registered address can hit upon.
        const std::string name = "inproc://" + std::to_string(std::random_device()());
        server.bind(name);
        client.connect(name);
    }

    void begin() {
        SessionStatusData status;
        status.deviceId = "device";
        handler.avmgrNotifyUpdateSessionStatusEvent(status);
        command(R"({"command_id":1,"payload":{"address":"inproc://consumer"}})");
    }

    void take(std::string_view name, std::string_view text) {
        if (name == "message") {
            command(text);
        }
        const auto* const record =
            std::find_if(kNamedRecords.begin(), kNamedRecords.end(),
                         [&](const NamedRecord& candidate) { return candidate.name == name; });
        Json::Value json;
        if (record == kNamedRecords.end() || !decoder.decodeObject(text, json).empty()) {
            return;
        }
        try {
            const std::string written = rewritten(record->exercise, json);
            expect(rewritten(record->exercise, decoded(written)) == written,
                   "a record reads what it has written to the same");
            notify(name, json);
        } catch (const Json::Exception&) {
            return;
        }
    }

    /// Looks at the document, and takes every session and every consumer out.
    void end() {
        const Json::Value status = command(R"({"command_id":0})")["payload"]["status"];
        expect(rewritten(exercise<WebNotifierDeviceStatus>, status) == toCompactJson(status),
               "the document is read and written to the same");
        for (const Json::Value& session : status["sessions"]) {
            unsigned long long id = session["id"].asUInt64();
            handler.avmgrNotifyRemovedSessionEvent(id);
        }
        const Json::Value consumers = command(kList)["payload"]["remote"];
        for (const Json::Value& address : consumers) {
            Json::Value removal;
            removal["command_id"] = 2;
            removal["payload"]["address"] = address;
            command(toCompactJson(removal));
        }
        expect(command(kList)["payload"]["remote"].empty(), "what is listed can be removed");
    }

private:
    static constexpr std::string_view kList = R"({"command_id":3})";

    Json::Value command(std::string_view text) {
        client.send(zmq::message_t(), zmq::send_flags::sndmore);
        client.send(zmq::buffer(text), zmq::send_flags::none);
        handler.ipcPreProcessMsg(&server);
        zmq::message_t frame;
        expect(client.recv(frame, zmq::recv_flags::dontwait) && frame.more() &&
                   client.recv(frame, zmq::recv_flags::dontwait) && !frame.more(),
               "a request gets a reply of one frame");
        Json::Value reply = decoded(frame.to_string_view());
        expect(!client.recv(frame, zmq::recv_flags::dontwait), "a request gets one reply");
        static const std::set<int> results = {0, result_code::kUnknownId,
                                              result_code::kConsumerNotConnected,
                                              platform_protocol::kErrorMalformed};
        expect(results.contains(reply["result"].asInt()), "a reply has a known result");
        expect(reply["command_id"].isUInt() && reply["command_name"].isString() &&
                   reply["payload"].isObject() && reply.isMember("error") == (reply["result"] != 0),
               "a reply has its members");
        return reply;
    }

    void notify(std::string_view name, Json::Value& json) {
        using Handler = WebNotifierHandler;
        const auto deliver = [&](auto record, auto event) {
            record.Deserialize(json);
            (handler.*event)(record);
        };
        if (name == "session-configuration") {
            deliver(SessionConfigData(), &Handler::avmgrNotifyNewSessionEvent);
        } else if (name == "session-status") {
            deliver(SessionStatusData(), &Handler::avmgrNotifyUpdateSessionStatusEvent);
        } else if (name == "ptp-status") {
            deliver(PtpCommonInfo(), &Handler::zatPmcPtpStatusChangeEvent);
        } else if (name == "ptp-configuration") {
            deliver(ZatPmcPtpCfg(), &Handler::zatPmcPtpConfigChangeEvent);
        } else if (name == "dynamic-information") {
            deliver(SysParametersDynamic(), &Handler::notifyDynamicInfoUpdate);
        }
    }

    zmq::context_t context;
    WebNotifierHandler handler;
    zmq::socket_t server{context, zmq::socket_type::rep};
    zmq::socket_t client{context, zmq::socket_type::dealer};
    JsonDecoder decoder;
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    // Never destroyed, as in the service: the command socket stays open.
    static auto* const service = new FuzzedService;
    service->begin();
    std::string_view rest(reinterpret_cast<const char*>(data), size);
    // Fewer than the messages that a consumer's queue takes before a send waits.
    for (int line = 0; line < 500 && !rest.empty(); ++line) {
        const std::string_view text = rest.substr(0, rest.find('\n'));
        rest.remove_prefix(std::min(text.size() + 1, rest.size()));
        const std::string_view name = text.substr(0, text.find(' '));
        service->take(name, text.substr(std::min(name.size() + 1, text.size())));
    }
    service->end();
    return 0;
}
