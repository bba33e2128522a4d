#include "tools/kaiklactl/Commands.hpp"

#include "platform/records/JsonText.hpp"
#include "tools/client/Address.hpp"
#include "tools/client/Failure.hpp"
#include "tools/client/ServiceConnection.hpp"
#include "tools/kaiklactl/StatusReport.hpp"
#include "tools/kaiklactl/Terminal.hpp"

#include <json/writer.h>

#include <algorithm>
#include <chrono>
#include <optional>
#include <vector>

namespace kaiklactl {
namespace {

using client::Reachability;

std::string indented(const Json::Value& document) {
    Json::StreamWriterBuilder builder;
    builder["commentStyle"] = "None";
    builder["indentation"] = "  ";
    // No blank in front of a colon.
    builder["enableYAMLCompatibility"] = true;
    return Json::writeString(builder, document);
}

/// What is wrong at a consumer's address; empty when a consumer listens there.
std::string fault(Reachability reachability) {
    switch (reachability) {
    case Reachability::nobody:
        return "nobody listens there";
    case Reachability::stranger:
        return "what listens there is stopped or no consumer";
    case Reachability::consumer:
        break;
    }
    return "";
}

class Commands {
public:
    Commands(const Options& commandOptions, zmq::context_t& zmqContext, StopSignals& stopSignals)
        : options(commandOptions), context(zmqContext),
          stop(stopSignals), service{options.server, options.timeout} {}

    std::string status();
    std::string add();
    std::string remove();
    std::string list();

private:
    Json::Value ask(WebNotifierCommand::webnotifier_command_id_t command,
                    const Json::Value& payload = Json::Value()) {
        return client::request(context, service, command, payload, &stop);
    }

    /// What is wrong at each address, as far as it can be seen from here.
    std::vector<std::string> faults(const std::vector<std::string>& addresses);

    const Options& options;
    zmq::context_t& context;
    StopSignals& stop;
    const client::Service service;
};

std::string Commands::status() {
    Json::Value document = ask(WebNotifierCommand::get_device_status)["status"];
    if (options.pretty) {
        return indented(document);
    }
    if (options.json) {
        return toCompactJson(document);
    }
    WebNotifierDeviceStatus status;
    status.Deserialize(document);
    std::string report = statusReport(status, colourWanted());
    report.pop_back();
    return report;
}

std::string Commands::add() {
    client::checkConnectable(options.address);
    try {
        ask(WebNotifierCommand::add_remote_info_consumer, client::consumerPayload(options.address));
    } catch (const client::NoAnswer& failure) {
        throw client::NoAnswer(
            failure.what() +
            std::string(failure.withService ? " It may still register the consumer then." : ""));
    }
    if (const std::string wrong = faults({options.address}).front(); !wrong.empty()) {
        notice(options.address + ": " + wrong + ", seen from here. Messages queue up; when the " +
               "queue is full, the service waits.");
    }
    return printable(options.address).text + " is registered.";
}

std::string Commands::remove() {
    const std::string address = printable(options.address).text;
    const std::vector<std::string> before =
        client::removeConsumer(context, service, options.address, &stop);
    if (std::find(before.begin(), before.end(), options.address) != before.end()) {
        return address + " is not registered any more.";
    }
    const std::optional<std::string> similar = client::similarAddress(before, options.address);
    return address + " was not registered" +
           (similar ? ", but " + printable(*similar).text + " is." : ".");
}

std::string Commands::list() {
    const std::vector<std::string> addresses =
        client::registeredConsumers(ask(WebNotifierCommand::get_server_list));
    const std::vector<std::string> wrong =
        options.check ? faults(addresses) : std::vector<std::string>(addresses.size());
    const bool colour = colourWanted();
    std::string lines;
    for (std::size_t i = 0; i < addresses.size(); ++i) {
        lines += (i == 0 ? "" : "\n") + printable(addresses[i]).text;
        lines += wrong[i].empty() ? "" : "  " + painted("! " + wrong[i], Style::alarm, colour);
    }
    return lines;
}

std::vector<std::string> Commands::faults(const std::vector<std::string>& addresses) {
    // A consumer that listens accepts at once; a network in between may take a moment.
    constexpr std::chrono::milliseconds kLimit{500};
    const std::vector<Reachability> reachable =
        client::tryConnecting(context, addresses, std::min(kLimit, service.timeout), stop);
    const bool onThisMachine = client::isOnlyLocal(service.endpoint);
    std::vector<std::string> texts;
    for (std::size_t i = 0; i < addresses.size(); ++i) {
        // What only the service's machine can reach cannot be tried from another.
        const bool unknown = !onThisMachine && client::isOnlyLocal(addresses[i]);
        texts.push_back(unknown ? "" : fault(reachable[i]));
    }
    return texts;
}

} // namespace

std::string runCommand(const Options& options, zmq::context_t& context, StopSignals& stop) {
    Commands commands(options, context, stop);
    switch (options.action) {
    case Options::Action::add:
        return commands.add();
    case Options::Action::remove:
        return commands.remove();
    case Options::Action::list:
        return commands.list();
    default:
        return commands.status();
    }
}

} // namespace kaiklactl
