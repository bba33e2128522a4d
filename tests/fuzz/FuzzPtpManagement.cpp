#include "platform/PlatformProtocol.hpp"
#include "tests/fuzz/FuzzNotifications.hpp"

namespace {

class Service : public FuzzedHandler {
public:
    static constexpr const char* kEndpoint = platform_protocol::kPtpManagementEndpoint;

    std::vector<std::string> endMark() {
        const std::string kind = std::to_string(ZatPmcPublisher::zat_pmc_status_change);
        awaited = "end mark " + std::to_string(++number);
        return {kind,
                R"({"command_id":)" + kind + R"(,"payload":{"clock_id":")" + awaited + R"("}})"};
    }
    bool atEnd() const { return read == awaited; }

    int zatPmcPtpStatusChangeEvent(PtpCommonInfo& status) override {
        read = status.clockId == awaited ? awaited : read;
        return WebNotifierHandler::zatPmcPtpStatusChangeEvent(status);
    }

private:
    std::uint64_t number = 0;
    std::string awaited;
    std::string read;
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static auto* const fuzzer = new NotificationFuzzer<Service>;
    fuzzer->take(data, size);
    return 0;
}
