#include "tools/client/Failure.hpp"
#include "tools/client/Waiting.hpp"
#include "tools/kaiklactl/CommandLine.hpp"
#include "tools/kaiklactl/Commands.hpp"
#include "tools/kaiklactl/Doctor.hpp"
#include "tools/kaiklactl/Failure.hpp"
#include "tools/kaiklactl/Notice.hpp"
#include "tools/kaiklactl/Watch.hpp"
#include "tools/signals/StopSignals.hpp"

#include <json/value.h>
#include <zmq.hpp>

#include <csignal>
#include <exception>
#include <string>

namespace {

/// What registers a consumer of its own, which must be taken out again however it ends.
kaiklactl::ExitStatus runAsConsumer(const kaiklactl::Options& options) {
    // Closed output is noticed where it is written.
    (void)std::signal(SIGPIPE, SIG_IGN);
    StopSignals stop;
    zmq::context_t context;
    return options.action == kaiklactl::Options::Action::watch
               ? kaiklactl::Watch(options, context, stop).run()
               : kaiklactl::runDoctor(options, context, stop);
}

kaiklactl::ExitStatus run(const kaiklactl::Options& options) {
    switch (options.action) {
    case kaiklactl::Options::Action::watch:
    case kaiklactl::Options::Action::doctor:
        return runAsConsumer(options);
    default: {
        zmq::context_t context;
        kaiklactl::runCommand(options, context);
        return kaiklactl::ExitStatus::success;
    }
    }
}

int failed(const std::exception& why, kaiklactl::ExitStatus status) {
    kaiklactl::notice(why.what());
    return static_cast<int>(status);
}

} // namespace

int main(int argc, char** argv) {
    int exitStatus = 0;
    const std::optional<kaiklactl::Options> options =
        kaiklactl::readCommandLine(argc, argv, exitStatus);
    if (!options) {
        return exitStatus;
    }
    try {
        return static_cast<int>(run(*options));
    } catch (const client::BadEndpoint& failure) {
        return failed(failure, kaiklactl::ExitStatus::usage);
    } catch (const client::Refused& failure) {
        return failed(failure, kaiklactl::ExitStatus::refused);
    } catch (const client::NoAnswer& failure) {
        return failed(failure, kaiklactl::ExitStatus::noAnswer);
    } catch (const client::Interrupted& interrupted) {
        constexpr int kSignalled = 128;
        return kSignalled + interrupted.signal;
    } catch (const Json::Exception& error) {
        kaiklactl::notice(std::string("the answer holds something else than expected: ") +
                          error.what());
        return static_cast<int>(kaiklactl::ExitStatus::noAnswer);
    } catch (const std::exception& error) {
        return failed(error, kaiklactl::ExitStatus::output);
    }
}
