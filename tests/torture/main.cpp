#include "tests/torture/Checks.hpp"
#include "tests/torture/PlayedService.hpp"

#include <array>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <string_view>

namespace {

struct NamedCheck {
    const char* name;
    void (*run)(const Report&, Form);
};

constexpr std::array<NamedCheck, 10> kChecks = {{
    {"services", servicesRestarted},
    {"nmos-node", nmosNodeFaults},
    {"consumers", consumersVanish},
    {"full-queue", fullQueue},
    {"socket-limit", socketLimit},
    {"file-limit", descriptorLimit},
    {"log-file", logFileFaults},
    {"crowd", crowd},
    {"stops", stops},
    {"soak", soak},
}};

bool passes(const NamedCheck& check, Form form) {
    const Report report(check.name);
    try {
        check.run(report, form);
        return true;
    } catch (const std::exception& error) {
        report.figure("FAILED, this does not hold:", std::string(error.what()));
        return false;
    }
}

int usage(const char* program) {
    (void)std::fprintf(stderr, "%s [--short|--full] [CHECK]\n\nchecks:", program);
    for (const NamedCheck& check : kChecks) {
        (void)std::fprintf(stderr, " %s", check.name);
    }
    (void)std::fprintf(stderr, "\n");
    return EXIT_FAILURE;
}

} // namespace

int main(int argc, char** argv) {
    Form form = Form::shortened;
    std::string_view wanted;
    if (argc == 4 && std::string_view(argv[1]) == PlayedService::kOption) {
        return PlayedService::run(argv[2], argv[3]);
    }
    for (int i = 1; i < argc; ++i) {
        const std::string_view word = argv[i];
        if (word == "--full") {
            form = Form::full;
        } else if (word == "--short") {
            form = Form::shortened;
        } else if (!word.empty() && word.front() != '-' && wanted.empty()) {
            wanted = word;
        } else {
            return usage(argv[0]);
        }
    }

    int passed = 0;
    int failed = 0;
    for (const NamedCheck& check : kChecks) {
        if (wanted.empty() || wanted == check.name) {
            ++(passes(check, form) ? passed : failed);
        }
    }
    if (passed + failed == 0) {
        return usage(argv[0]);
    }
    std::printf("%d passed, %d failed\n", passed, failed);
    return failed == 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}
