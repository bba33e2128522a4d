#include "platform/PlatformProtocol.hpp"
#include "tests/fuzz/FuzzNotifications.hpp"

namespace {

class Service : public FuzzedHandler {
public:
    static constexpr const char* kEndpoint = platform_protocol::kSessionManagerEndpoint;

    std::vector<std::string> endMark() {
        const std::string kind = std::to_string(AvmgrPublisher::avmgr_removed_session);
        return {kind, R"({"command_id":)" + kind + R"(,"payload":{"id":)" +
                          std::to_string(++awaited) + "}}"};
    }
    bool atEnd() const { return read == awaited; }

    int avmgrNotifyRemovedSessionEvent(unsigned long long& sessionId) override {
        read = sessionId == awaited ? awaited : read;
        return WebNotifierHandler::avmgrNotifyRemovedSessionEvent(sessionId);
    }

private:
    // Ids that no input hits upon.
    unsigned long long awaited = 0xf00d'0000'0000'0000;
    unsigned long long read = 0;
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static auto* const fuzzer = new NotificationFuzzer<Service>;
    fuzzer->take(data, size);
    return 0;
}
