#include "platform/PlatformProtocol.hpp"
#include "platform/api/Chk.hpp"
#include "platform/api/NmosClientIpc.hpp"

#include <climits>

#include <unistd.h>

#include <array>

// There is nobody to ask: the host's name serves as the device id.

struct ClientJsonApi::Impl {};
ClientJsonApi::ClientJsonApi(const char* /*endpoint*/, int /*answerTimeoutMs*/) {}
ClientJsonApi::~ClientJsonApi() = default;
int ClientJsonApi::init(zmq::context_t& /*context*/) {
    return 0;
}

NmosClientIpc::NmosClientIpc() : ClientJsonApi("", 0) {}

int NmosClientIpc::getDeviceInfo(Json::Value& reply) {
    std::array<char, HOST_NAME_MAX + 1> name{};
    if (::gethostname(name.data(), name.size()) != 0) {
        return CHK(platform_protocol::kErrorUnreachable);
    }
    reply["device"]["id"] = name.data();
    return 0;
}
