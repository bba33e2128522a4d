// Without a fuzzer: runs each input file of the arguments once.

#include "tests/fuzz/Expect.hpp"

#include <cstdint>
#include <fstream>
#include <iterator>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

// NOLINTNEXTLINE(bugprone-exception-escape): what escapes is what the test is to find.
int main(int argc, char** argv) {
    for (int i = 1; i < argc; ++i) {
        std::ifstream file(argv[i], std::ios::binary);
        const std::string input((std::istreambuf_iterator<char>(file)), {});
        expect(!input.empty(), argv[i]);
        LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(input.data()), input.size());
    }
    std::_Exit(argc > 1 ? EXIT_SUCCESS : EXIT_FAILURE);
}
