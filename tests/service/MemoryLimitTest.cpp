#include "platform/PlatformProtocol.hpp"
#include "tests/support/ServiceTest.hpp"

#include <sys/resource.h>

#include <csignal>
#include <fstream>

namespace {

/// The service in an address space that has hardly more room than it takes when idle, whichever
/// allocator it has.
class MemoryLimitTest : public ServiceTest {
protected:
    /// What the library and its thread may need for one request, and far less than hugeRequest().
    static constexpr rlim_t kRoom = rlim_t{8} << 20;

    void setLimit(rlim_t bytes) {
        const rlimit limit{bytes, RLIM_INFINITY};
        ASSERT_EQ(prlimit(service->pid(), RLIMIT_AS, &limit, nullptr), 0);
    }

    rlim_t addressSpace() {
        const std::string name = "VmSize:";
        std::ifstream status("/proc/" + std::to_string(service->pid()) + "/status");
        for (std::string word; status >> word;) {
            rlim_t kibibytes = 0;
            if (word == name && status >> kibibytes) {
                return kibibytes << 10;
            }
        }
        ADD_FAILURE() << "no " << name;
        return 0;
    }

    /// As long as a request may be, and as its values some seventy times as large: more than the
    /// address space that an allocator sets aside beforehand.
    static std::string hugeRequest() {
        constexpr int kDepth = 60;
        const std::string nested = "," + std::string(kDepth, '[') + std::string(kDepth, ']');
        std::string body = R"({"command_id":3,"payload":[0)";
        while (body.size() + nested.size() + 2 <= platform_protocol::kMaxFrameBytes) {
            body += nested;
        }
        return body + "]}";
    }
};

TEST_F(MemoryLimitTest, RequestThatMemoryDoesNotSufficeForIsRefusedAndTheNextOneAnswered) {
    startService();
    const std::string request = hugeRequest();
    setLimit(addressSpace() + kRoom);
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(client.exchange(request),
                  R"({"command_id":0,"command_name":"","error":"The service is short of memory.",)"
                  R"("payload":{},"result":-103})");
        list();
    }
    EXPECT_THAT(service->error(),
                testing::HasSubstr("ERR kaikla: command interface: std::bad_alloc"));

    setLimit(RLIM_INFINITY);
    EXPECT_EQ(parseJson(client.exchange(request).value_or("null"))["result"], 0);
    EXPECT_EQ(stop(SIGTERM), 0);
}

} // namespace
