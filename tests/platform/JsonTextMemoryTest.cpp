#include "platform/records/JsonText.hpp"

#include <gtest/gtest.h>

#include <sys/resource.h>
#include <unistd.h>

#include <fstream>
#include <new>
#include <string>

namespace {

/// While it lives, the process gets hardly any more memory than it has.
class NoMoreMemory {
public:
    NoMoreMemory() {
        getrlimit(RLIMIT_AS, &before);
        rlim_t pages = 0;
        std::ifstream("/proc/self/statm") >> pages;
        constexpr rlim_t kRoom = rlim_t{4} << 20;
        const auto pageBytes = static_cast<rlim_t>(sysconf(_SC_PAGESIZE));
        const rlimit limit{pages * pageBytes + kRoom, before.rlim_max};
        setrlimit(RLIMIT_AS, &limit);
    }
    ~NoMoreMemory() { setrlimit(RLIMIT_AS, &before); }
    NoMoreMemory(const NoMoreMemory&) = delete;
    NoMoreMemory& operator=(const NoMoreMemory&) = delete;
    NoMoreMemory(NoMoreMemory&&) = delete;
    NoMoreMemory& operator=(NoMoreMemory&&) = delete;

private:
    rlimit before{};
};

TEST(JsonTextMemoryTest, TextIsWholeOrThereIsNone) {
    Json::Value value;
    constexpr std::size_t kPart = 1000;
    constexpr int kParts = 64'000;
    for (int i = 0; i < kParts; ++i) {
        value.append(std::string(kPart, 'x'));
    }
    {
        const NoMoreMemory limit;
        EXPECT_THROW((void)toCompactJson(value), std::bad_alloc);
    }
    EXPECT_GT(toCompactJson(value).size(), kPart * kParts);
}

} // namespace
