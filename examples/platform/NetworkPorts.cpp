#include "NetworkPorts.hpp"

#include <net/if_arp.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <system_error>

namespace {

template <typename Value>
Value readAttribute(const std::filesystem::path& file) {
    Value value{};
    std::ifstream(file) >> value;
    return value;
}

EthBasicInfo readPort(const std::filesystem::path& directory) {
    EthBasicInfo port;
    port.name = directory.filename();
    port.mac = readAttribute<std::string>(directory / "address");
    port.state = readAttribute<std::string>(directory / "operstate") == "up" ? 1 : 0;
    // The kernel says -1 while the speed is unknown.
    port.speedMbps =
        static_cast<std::uint32_t>(std::max(readAttribute<std::int64_t>(directory / "speed"), {}));
    return port;
}

} // namespace

std::list<EthBasicInfo> readNetworkPorts() {
    std::list<EthBasicInfo> ports;
    std::error_code error;
    for (const auto& entry : std::filesystem::directory_iterator("/sys/class/net", error)) {
        // The loopback is no port.
        if (readAttribute<int>(entry.path() / "type") == ARPHRD_ETHER) {
            ports.push_back(readPort(entry.path()));
        }
    }
    ports.sort([](const EthBasicInfo& a, const EthBasicInfo& b) { return a.name < b.name; });
    return ports;
}
