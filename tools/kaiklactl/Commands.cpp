#include "tools/kaiklactl/Commands.hpp"

#include "platform/records/JsonText.hpp"
#include "tools/client/ServiceConnection.hpp"
#include "tools/kaiklactl/StatusReport.hpp"
#include "tools/kaiklactl/Terminal.hpp"

#include <json/writer.h>

#include <iostream>

namespace kaiklactl {
namespace {

std::string indented(const Json::Value& document) {
    Json::StreamWriterBuilder builder;
    builder["commentStyle"] = "None";
    builder["indentation"] = "  ";
    // No blank in front of a colon.
    builder["enableYAMLCompatibility"] = true;
    return Json::writeString(builder, document);
}

std::string statusText(const Options& options, Json::Value document) {
    if (options.pretty) {
        return indented(document) + '\n';
    }
    if (options.json) {
        return toCompactJson(document) + '\n';
    }
    WebNotifierDeviceStatus status;
    status.Deserialize(document);
    return statusReport(status, colourWanted());
}

std::string run(const Options& options, zmq::context_t& context, StopSignals& stop) {
    const client::Service service{options.server, options.timeout};
    const auto ask = [&](WebNotifierCommand::webnotifier_command_id_t command,
                         const Json::Value& payload = Json::Value()) {
        return client::request(context, service, command, payload, &stop);
    };
    switch (options.action) {
    case Options::Action::add:
        ask(WebNotifierCommand::add_remote_info_consumer, client::consumerPayload(options.address));
        return printable(options.address).text + " is registered.\n";
    case Options::Action::remove:
        ask(WebNotifierCommand::remove_remote_info_consumer,
            client::consumerPayload(options.address));
        return printable(options.address).text + " is not registered any more.\n";
    case Options::Action::list: {
        std::string lines;
        for (const std::string& address :
             client::registeredConsumers(ask(WebNotifierCommand::get_server_list))) {
            lines += printable(address).text + '\n';
        }
        return lines;
    }
    default:
        return statusText(options, ask(WebNotifierCommand::get_device_status)["status"]);
    }
}

} // namespace

void runCommand(const Options& options, zmq::context_t& context, StopSignals& stop) {
    std::cout << run(options, context, stop) << std::flush;
    if (!std::cout) {
        throw std::runtime_error("the output cannot be written.");
    }
}

} // namespace kaiklactl
