// Runs every input of the directories named, once: what a fuzzer does, without one.

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

int main(int argc, char** argv) {
    int inputs = 0;
    for (int i = 1; i < argc; ++i) {
        for (const auto& entry : std::filesystem::recursive_directory_iterator(argv[i])) {
            if (!entry.is_regular_file()) {
                continue;
            }
            std::ifstream file(entry.path(), std::ios::binary);
            const std::string input((std::istreambuf_iterator<char>(file)), {});
            LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(input.data()),
                                   input.size());
            ++inputs;
        }
    }
    std::printf("%d inputs\n", inputs);
    // The sockets stay open, as in the service, so that nothing is destroyed here.
    (void)std::fflush(stdout);
    std::_Exit(inputs > 0 ? EXIT_SUCCESS : EXIT_FAILURE);
}
