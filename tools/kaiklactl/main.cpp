#include "tools/client/Address.hpp"
#include "tools/client/Failure.hpp"
#include "tools/client/Waiting.hpp"
#include "tools/kaiklactl/CommandLine.hpp"
#include "tools/kaiklactl/Commands.hpp"
#include "tools/kaiklactl/Doctor.hpp"
#include "tools/kaiklactl/Drain.hpp"
#include "tools/kaiklactl/Terminal.hpp"
#include "tools/kaiklactl/Watch.hpp"
#include "tools/process/StandardStreams.hpp"
#include "tools/process/StopSignals.hpp"

#include <json/value.h>
#include <zmq.hpp>

#include <csignal>
#include <exception>
#include <string>
#include <variant>

namespace {

using kaiklactl::ExitStatus;
using kaiklactl::Options;

ExitStatus run(const Options& options, StopSignals& stop) {
    client::checkConnectable(options.server);
    zmq::context_t context;
    switch (options.action) {
    case Options::Action::watch:
        return kaiklactl::Watch(options, context, stop).run();
    case Options::Action::doctor:
        return kaiklactl::runDoctor(options, context, stop);
    case Options::Action::drain:
        kaiklactl::print(kaiklactl::printable(kaiklactl::drain(options, context, stop)).text, stop);
        return ExitStatus::success;
    default:
        kaiklactl::print(kaiklactl::runCommand(options, context, stop), stop);
        return ExitStatus::success;
    }
}

/// Ends the process by the signal itself, so that a script around it ends, too.
int endBy(int signal) {
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, signal);
    (void)std::signal(signal, SIG_DFL);
    ::pthread_sigmask(SIG_UNBLOCK, &set, nullptr);
    (void)std::raise(signal);
    return static_cast<int>(ExitStatus::output);
}

int failed(const std::string& why, ExitStatus status) {
    kaiklactl::notice(why);
    return static_cast<int>(status);
}

} // namespace

int main(int argc, char** argv) {
    occupyStandardStreams();
    // Closed output is noticed where it is written.
    (void)std::signal(SIGPIPE, SIG_IGN);
    try {
        StopSignals stop;
        const auto line = kaiklactl::readCommandLine(argc, argv);
        if (const auto* const status = std::get_if<ExitStatus>(&line)) {
            return static_cast<int>(*status);
        }
        return static_cast<int>(run(std::get<Options>(line), stop));
    } catch (const client::BadEndpoint& failure) {
        return failed(failure.what(), ExitStatus::usage);
    } catch (const client::Refused& failure) {
        return failed(failure.what(), ExitStatus::refused);
    } catch (const client::NoAnswer& failure) {
        return failed(failure.what(), ExitStatus::noAnswer);
    } catch (const client::Interrupted& interrupted) {
        return endBy(interrupted.signal);
    } catch (const Json::Exception& error) {
        return failed(std::string("the answer holds something else than expected: ") + error.what(),
                      ExitStatus::noAnswer);
    } catch (const std::exception& error) {
        return failed(error.what(), ExitStatus::output);
    }
}
