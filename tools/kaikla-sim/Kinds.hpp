#pragma once

#include <json/value.h>

#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace sim {

/// The services that publish notifications.
enum class Service { session, system, ptp };

struct ServiceInfo {
    Service service;
    /// Its name in a scenario.
    const char* key;
    /// Its name in a sentence.
    const char* name;
    /// Where it binds.
    const char* endpoint;
};

/// Every service, in the order of `Service`.
std::span<const ServiceInfo> allServices();
const ServiceInfo& infoOf(Service service);
/// The service that scenarios call `key`, if there is one.
std::optional<Service> findService(std::string_view key);

/// What a notification of one kind does to the state that a service keeps.
enum class Effect {
    /// Something with an id appears. Earlier notifications about the id are void.
    appears,
    /// The latest notification of the kind about an id counts.
    updates,
    /// Something with an id is gone, with all notifications about it.
    disappears,
    /// The latest notification of the kind counts.
    replaces,
    /// An event that leaves no state.
    passes,
};

/// What a notification is about. The state of one subject is repeated as a whole, in the order in
/// which it came about, because its kinds build on each other.
enum class Subject {
    sessions,
    advertisements,
    storedParameters,
    dynamicInformation,
    reboot,
    whiteList,
    ptp,
};

/// One kind of notification.
struct Kind {
    Service service;
    unsigned number;
    const char* name;
    Subject subject;
    Effect effect;
    /// Reads a payload with the record that receivers read it with; raises Json::Exception where
    /// that cannot be done. May add null members to the payload.
    void (*decode)(Json::Value& payload);

    /// The subscription topic: the number in decimal.
    std::string topic() const { return std::to_string(number); }
    /// Whether the payload's "id" says which thing it is about.
    bool hasId() const {
        return effect == Effect::appears || effect == Effect::updates ||
               effect == Effect::disappears;
    }
};

/// Every kind of every service.
std::span<const Kind> allKinds();
/// Null when `service` has no kind of that number.
const Kind* findKind(Service service, unsigned number);
/// Whether a payload of `kind` is a session's status, which names the device.
bool namesDevice(const Kind& kind);

} // namespace sim
