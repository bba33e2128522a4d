#include "platform/PlatformProtocol.hpp"
#include "tests/fuzz/FuzzNotifications.hpp"

namespace {

class Service : public FuzzedHandler {
public:
    static constexpr const char* kEndpoint = platform_protocol::kSystemManagerEndpoint;

    std::vector<std::string> endMark() {
        const std::string kind = std::to_string(SysmgrPublisher::sysmgr_dynamic_information_update);
        return {kind, R"({"command_id":)" + kind + R"(,"payload":{"uptime_s":)" +
                          std::to_string(++awaited) + "}}"};
    }
    bool atEnd() const { return read == awaited; }

    int notifyDynamicInfoUpdate(SysParametersDynamic& information) override {
        read = information.uptimeS == awaited ? awaited : read;
        return WebNotifierHandler::notifyDynamicInfoUpdate(information);
    }

private:
    // Times that no input hits upon.
    std::uint64_t awaited = 0xf00d'0000'0000'0000;
    std::uint64_t read = 0;
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static auto* const fuzzer = new NotificationFuzzer<Service>;
    fuzzer->take(data, size);
    return 0;
}
