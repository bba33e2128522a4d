#include "gateway/CommandLine.hpp"
#include "gateway/Gateway.hpp"
#include "gateway/fleet/Fleet.hpp"
#include "platform/api/DescriptorLimit.hpp"
#include "platform/api/Logger.hpp"

#include <cstdlib>
#include <exception>

int main(int argc, char** argv) {
    try {
        int exitStatus = EXIT_SUCCESS;
        const std::optional<gateway::Options> options =
            gateway::readCommandLine(argc, argv, exitStatus);
        if (!options) {
            return exitStatus;
        }
        const unsigned toFile = options->logFile.empty() ? 0 : Logger::kToFile;
        Logger::createLogger(static_cast<unsigned>(options->logLevel) | Logger::kToStandardError |
                                 toFile,
                             options->logFile, "kaikla-gateway");
        raiseDescriptorLimit();
        if (options->isFleet) {
            gateway::Fleet(*options).run();
        } else {
            gateway::Gateway(*options).run();
        }
        return EXIT_SUCCESS;
    } catch (const std::exception& error) {
        Logger::log(Logger::LOG_LEVEL_ERR, "%s", error.what());
        return EXIT_FAILURE;
    }
}
