// The least that the libraries can do with a notification, as the measure for the service: receive
// it, parse it, wrap its payload, write that, send it to each consumer. Nothing is checked, kept in
// records or logged, and every library object lives as long as the process.
//
// "kaikla-bare-loop CONSUMERS" takes so many commands that add a consumer, then only runs the loop.
// With a second argument, it keeps the sessions in one JSON value and sends that for a PTP status.

#include "platform/PlatformProtocol.hpp"

#include <json/json.h>
#include <zmq.hpp>

#include <cstdlib>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

namespace {

std::vector<zmq::socket_t> acceptConsumers(zmq::context_t& context, Json::CharReader& reader,
                                           std::size_t count) {
    zmq::socket_t commands(context, zmq::socket_type::rep);
    commands.bind(platform_protocol::kCommandBindEndpoint);
    std::vector<zmq::socket_t> consumers;
    while (consumers.size() < count) {
        zmq::message_t frame;
        (void)commands.recv(frame);
        Json::Value request;
        reader.parse(frame.data<char>(), frame.data<char>() + frame.size(), &request, nullptr);
        consumers.emplace_back(context, zmq::socket_type::push);
        consumers.back().connect(request["payload"]["address"].asString());
        commands.send(zmq::str_buffer("{\"result\":0}"), zmq::send_flags::none);
    }
    return consumers;
}

} // namespace

// An exception ends it. NOLINTNEXTLINE(bugprone-exception-escape)
int main(int argc, char** argv) {
    const std::size_t consumerCount = argc > 1 ? std::strtoul(argv[1], nullptr, 10) : 1;
    const bool keepDocument = argc > 2;
    const std::string sessionStatus = std::to_string(AvmgrPublisher::avmgr_session_status);
    const std::string ptpStatus = std::to_string(ZatPmcPublisher::zat_pmc_status_change);
    zmq::context_t context;
    zmq::socket_t subscriber(context, zmq::socket_type::sub);
    subscriber.connect(platform_protocol::kSessionManagerEndpoint);
    subscriber.connect(platform_protocol::kPtpManagementEndpoint);
    subscriber.set(zmq::sockopt::subscribe, sessionStatus);
    subscriber.set(zmq::sockopt::subscribe, ptpStatus);
    Json::CharReaderBuilder readerBuilder;
    Json::CharReaderBuilder::strictMode(&readerBuilder.settings_);
    const std::unique_ptr<Json::CharReader> reader(readerBuilder.newCharReader());
    Json::StreamWriterBuilder writerBuilder;
    writerBuilder["commentStyle"] = "None";
    writerBuilder["indentation"] = "";
    const std::unique_ptr<Json::StreamWriter> writer(writerBuilder.newStreamWriter());
    auto consumers = acceptConsumers(context, *reader, consumerCount);

    Json::Value session, all, notification;
    session["command_id"] = 1;
    session["command_name"] = "status-session";
    all["command_id"] = 0;
    all["command_name"] = "status-all";
    zmq::message_t kind, frame, shared, copy;
    std::ostringstream text;
    const std::string empty; // str(empty) keeps the stream's memory for the next message
    for (;;) {
        (void)subscriber.recv(kind);
        (void)subscriber.recv(frame);
        reader->parse(frame.data<char>(), frame.data<char>() + frame.size(), &notification,
                      nullptr);
        Json::Value& payload = notification["payload"];
        const bool isSession = kind.to_string_view() == sessionStatus;
        if (isSession && keepDocument) {
            all["payload"]["device_id"] = payload["device_id"];
            all["payload"]["sessions"].append(payload);
        }
        (isSession ? session["payload"] : all["payload"]["ptp"]).swap(payload);
        text.str(empty);
        writer->write(isSession ? session : all, &text);
        shared.rebuild(text.view().data(), text.view().size());
        for (zmq::socket_t& consumer : consumers) {
            copy.copy(shared);
            consumer.send(copy, zmq::send_flags::none);
        }
    }
}
