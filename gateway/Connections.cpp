#include "gateway/Connections.hpp"

namespace gateway {

Connections::Place::Place(Connections& connections, std::string address)
    : owner(&connections), from(std::move(address)) {
    ++owner->number;
    ++owner->byAddress[from];
}

Connections::Place::~Place() {
    if (owner == nullptr) {
        return;
    }
    --owner->number;
    const auto found = owner->byAddress.find(from);
    if (--found->second == 0) {
        owner->byAddress.erase(found);
    }
}

Connections::Place Connections::admit(const std::string& address, bool isLoopback,
                                      const std::function<bool()>& makeRoom) {
    const auto found = byAddress.find(address);
    const std::size_t fromThere = found == byAddress.end() ? 0 : found->second;
    if ((!isLoopback && fromThere >= kMaxFromOneAddress) || (number >= kMax && !makeRoom())) {
        return {};
    }
    return {*this, address};
}

} // namespace gateway
