#include "app/WebNotifierServer.hpp"
#include "platform/api/Chk.hpp"
#include "platform/api/Logger.hpp"
#include "platform/api/StopDeadline.hpp"

#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <string>

namespace {

struct Options {
    std::string logFileName = "/tmp/kaikla.log";
    int logLevel = Logger::LOG_LEVEL_INF;
    unsigned int logFlags = Logger::kToStandardError;
};

/// Returns false when the usage text is to be printed.
bool readOptions(int argc, char** argv, Options& options) {
    // -d and -s are in the option string and yet lead to the usage text, as does anything unknown.
    for (int option = 0; (option = ::getopt(argc, argv, "dl:L:s")) != -1;) {
        switch (option) {
        case 'L':
            options.logFileName = ::optarg;
            options.logFlags = Logger::kToStandardError | Logger::kToFile;
            break;
        case 'l':
            // No validation: what is not a number counts as 0, and only three bits are used.
            options.logLevel = static_cast<int>(std::strtol(::optarg, nullptr, 10));
            break;
        default:
            return false;
        }
    }
    return true;
}

void printUsage(const char* program) {
    std::fprintf(stderr, "%s\n    [-L <log_filename>] [-l <log_level 0..7>] [-s]\n\n", program);
    std::fprintf(stderr, "  -L <log_filename>        : file to log debug output to\n");
    std::fprintf(stderr, "  -l <log_level>           : 2=ERR 3=WRN 4=NTF 5=INF, 6=DBG 7=VERBOSE\n");
}

} // namespace

int main(int argc, char** argv) {
    // A reader of standard error that goes away must not end the process.
    std::signal(SIGPIPE, SIG_IGN);
    Options options;
    if (!readOptions(argc, argv, options)) {
        printUsage(argv[0]);
        return EXIT_FAILURE;
    }
    const unsigned int levelBits = static_cast<unsigned int>(options.logLevel) & Logger::kLevelMask;
    Logger::createLogger(levelBits | options.logFlags, options.logFileName, "kaikla");

    WebNotifierServer server;
    if (const int code = CHK(server.init()); code < 0) {
        // Nothing is queued, but the open command socket would block context termination.
        StopDeadline::arm(code, StopDeadline::kNoConsumers);
        return code;
    }
    server.mainLoop();
    return EXIT_SUCCESS;
}
