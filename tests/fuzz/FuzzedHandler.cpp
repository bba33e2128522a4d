#include "tests/fuzz/FuzzedHandler.hpp"

#include "handler/WebNotifierCommand.hpp"
#include "platform/api/Logger.hpp"
#include "tests/fuzz/Expect.hpp"

namespace {

/// Sockets that are closed with messages in their queues go at once: inputs register consumers by
/// the thousand.
void keepNothingOpen(zmq::context_t& context) {
    expect(zmq_ctx_set(context.handle(), ZMQ_BLOCKY, 0) == 0, "the context takes options");
}

} // namespace

FuzzedHandler::FuzzedHandler() {
    keepNothingOpen(zmqContext);
    // Every line is formatted, and goes nowhere.
    Logger::createLogger(Logger::kLevelMask | Logger::kToFile, "/dev/null", "fuzz");
    expect(WebNotifierHandler::init(zmqContext, pollFds) == 0, "the handler starts");
    consumer = zmq::socket_t(zmqContext, zmq::socket_type::pull);
    consumer.bind("tcp://127.0.0.1:*");
    consumerAddress = consumer.get(zmq::sockopt::last_endpoint);

    // With a device id, or nothing would be published.
    SessionStatusData status;
    status.deviceId = "device";
    avmgrNotifyUpdateSessionStatusEvent(status);
    Json::Value payload;
    payload["address"] = consumerAddress;
    command(WebNotifierCommand::add_remote_info_consumer, payload);
    tidyUp();
}

Json::Value FuzzedHandler::command(unsigned id, const Json::Value& payload) {
    IpcMsg request;
    request.commandId = id;
    request.payload = payload;
    Json::Value reply;
    bool replyWanted = false;
    expect(ipcProcessMsg(request, reply, replyWanted) == 0, "the service obeys");
    return reply;
}

std::string FuzzedHandler::soundDocument() {
    std::string text = toCompactJson(command(WebNotifierCommand::get_device_status)["status"]);
    Json::Value document;
    expect(decoder.decodeObject(text, document).empty(), "the document is JSON");
    WebNotifierDeviceStatus again;
    again.Deserialize(document);
    Json::Value out;
    again.Serialize(out);
    expect(toCompactJson(out) == text, "the document survives being written and read");
    return text;
}

void FuzzedHandler::readMail() {
    for (zmq::message_t message; consumer.recv(message, zmq::recv_flags::dontwait);) {
        expect(!message.more(), "a message is one frame");
        Json::Value json;
        expect(decoder.decodeObject(message.to_string_view(), json).empty(), "a message is JSON");
        IpcMsg published;
        published.Deserialize(json);
    }
}

void FuzzedHandler::tidyUp() {
    const Json::Value reply = command(WebNotifierCommand::get_device_status);
    for (const Json::Value& session : reply["status"]["sessions"]) {
        unsigned long long id = session["id"].asUInt64();
        WebNotifierHandler::avmgrNotifyRemovedSessionEvent(id);
    }
    const Json::Value list = command(WebNotifierCommand::get_server_list);
    for (const Json::Value& address : list["remote"]) {
        if (address != consumerAddress) {
            Json::Value payload;
            payload["address"] = address;
            command(WebNotifierCommand::remove_remote_info_consumer, payload);
        }
    }
}

bool FuzzedHandler::serveEvents(long limitMs) {
    if (zmq_poll(pollFds.getPollList(), pollFds.getPollListSize(), limitMs) <= 0) {
        return false;
    }
    for (int index = 0; index < pollFds.getPollListSize(); ++index) {
        const zmq_pollitem_t item = pollFds.getPollList()[index];
        if (item.revents != 0) {
            processIncomingEvents(item);
        }
    }
    return true;
}
