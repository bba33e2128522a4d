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
    /// What a scenario calls it.
    const char* key;
    /// What people call it.
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
    /// A thing with an id appears; what was said before about the same id is void.
    appears,
    /// Something about a thing with an id; the latest word counts.
    updates,
    /// A thing with an id is gone, and all that was said about it.
    disappears,
    /// The latest word about the device counts.
    replaces,
    /// Something happened; nothing is kept.
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
