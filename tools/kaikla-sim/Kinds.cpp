#include "tools/kaikla-sim/Kinds.hpp"

#include "model/DeviceStatus.hpp"
#include "platform/PlatformProtocol.hpp"
#include "platform/records/AdvSessionEntry.hpp"
#include "platform/records/JsonMember.hpp"
#include "platform/records/PtpCommonInfo.hpp"
#include "platform/records/SysParametersDynamic.hpp"
#include "platform/records/ZatPmcPtpCfg.hpp"
#include "platform/session/SessionConfigData.hpp"

#include <algorithm>
#include <array>

namespace sim {

namespace {

template <typename Record>
void decodeAs(Json::Value& payload) {
    Record record;
    record.Deserialize(payload);
}

void decodeId(Json::Value& payload) {
    (void)json_member::unsigned64(payload, "id");
}

/// For payloads that the services around pass on as they are.
void decodeAnything(Json::Value& /*payload*/) {}

constexpr std::array<ServiceInfo, 3> kServices = {{
    {Service::session, "session", "session manager", platform_protocol::kSessionManagerEndpoint},
    {Service::system, "system", "system manager", platform_protocol::kSystemManagerEndpoint},
    {Service::ptp, "ptp", "PTP management", platform_protocol::kPtpManagementEndpoint},
}};

constexpr std::array<Kind, 13> kKinds = {{
    {Service::session, AvmgrPublisher::avmgr_new_session, "new session", Subject::sessions,
     Effect::appears, decodeAs<SessionConfigData>},
    {Service::session, AvmgrPublisher::avmgr_removed_session, "removed session", Subject::sessions,
     Effect::disappears, decodeId},
    {Service::session, AvmgrPublisher::avmgr_session_configuration_update,
     "session configuration update", Subject::sessions, Effect::updates,
     decodeAs<SessionConfigData>},
    {Service::session, AvmgrPublisher::avmgr_session_status, "session status", Subject::sessions,
     Effect::updates, decodeAs<SessionStatusData>},
    {Service::session, AvmgrPublisher::avmgr_new_advertisement, "new advertisement",
     Subject::advertisements, Effect::appears, decodeAs<AdvSessionEntry>},
    {Service::session, AvmgrPublisher::avmgr_advertisement_update, "advertisement update",
     Subject::advertisements, Effect::updates, decodeAs<AdvSessionEntry>},
    {Service::session, AvmgrPublisher::avmgr_removed_advertisement, "removed advertisement",
     Subject::advertisements, Effect::disappears, decodeId},

    {Service::system, SysmgrPublisher::sysmgr_stored_parameters_update, "stored-parameter update",
     Subject::storedParameters, Effect::replaces, decodeAnything},
    {Service::system, SysmgrPublisher::sysmgr_dynamic_information_update,
     "dynamic-information update", Subject::dynamicInformation, Effect::replaces,
     decodeAs<SysParametersDynamic>},
    {Service::system, SysmgrPublisher::sysmgr_reboot_request, "reboot request", Subject::reboot,
     Effect::passes, decodeAnything},
    {Service::system, SysmgrPublisher::sysmgr_multicast_white_list_update,
     "multicast white-list update", Subject::whiteList, Effect::replaces, decodeAnything},

    {Service::ptp, ZatPmcPublisher::zat_pmc_status_change, "PTP status change", Subject::ptp,
     Effect::replaces, decodeAs<PtpCommonInfo>},
    {Service::ptp, ZatPmcPublisher::zat_pmc_configuration_change, "PTP configuration change",
     Subject::ptp, Effect::replaces, decodeAs<ZatPmcPtpCfg>},
}};

} // namespace

std::span<const ServiceInfo> allServices() {
    return kServices;
}

const ServiceInfo& infoOf(Service service) {
    return kServices.at(static_cast<std::size_t>(service));
}

std::optional<Service> findService(std::string_view key) {
    const auto* const match =
        std::find_if(kServices.begin(), kServices.end(),
                     [key](const ServiceInfo& info) { return info.key == key; });
    return match != kServices.end() ? std::optional(match->service) : std::nullopt;
}

std::span<const Kind> allKinds() {
    return kKinds;
}

const Kind* findKind(Service service, unsigned number) {
    const auto* const match =
        std::find_if(kKinds.begin(), kKinds.end(), [service, number](const Kind& kind) {
            return kind.service == service && kind.number == number;
        });
    return match != kKinds.end() ? match : nullptr;
}

bool namesDevice(const Kind& kind) {
    return kind.service == Service::session && kind.number == AvmgrPublisher::avmgr_session_status;
}

} // namespace sim
