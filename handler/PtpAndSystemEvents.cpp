#include "handler/WebNotifierHandler.hpp"
#include "platform/api/Chk.hpp"
#include "platform/api/Logger.hpp"

#include <algorithm>
#include <list>
#include <utility>

namespace {

/// Whether two lists of Ethernet ports differ in a way that consumers are told: in number, names or
/// states. Everything else about a port moves all the time (SFP temperatures) and does not count.
bool portsChanged(const std::list<EthBasicInfo>& known, const std::list<EthBasicInfo>& reported) {
    if (known.size() != reported.size()) {
        return true;
    }
    return std::any_of(known.begin(), known.end(), [&reported](const EthBasicInfo& port) {
        const auto match =
            std::find_if(reported.begin(), reported.end(), [&port](const EthBasicInfo& candidate) {
                return candidate.name == port.name;
            });
        return match == reported.end() || match->state != port.state;
    });
}

} // namespace

int WebNotifierHandler::zatPmcPtpStatusChangeEvent(PtpCommonInfo& status) {
    Logger::log(Logger::LOG_LEVEL_INF, "%s:: PTP changed", __func__);
    deviceStatus.ptp = status;
    if (const int code = publishAllDeviceStatus(""); code < 0) {
        return CHK(code);
    }
    return 0;
}

int WebNotifierHandler::zatPmcPtpConfigChangeEvent(ZatPmcPtpCfg& config) {
    Logger::log(Logger::LOG_LEVEL_INF, "%s:: PTP changed", __func__);
    PtpCommonInfo& ptp = deviceStatus.ptp;
    ptp.cfgSetting1 = config.cfgSetting1;
    ptp.cfgSetting2 = config.cfgSetting2;
    ptp.cfgSetting3 = config.cfgSetting3;
    ptp.cfgFlag = config.cfgFlag != 0;
    for (const ZatPmcPtpPortCfg& configured : config.ports) {
        for (PtpBasePortInfo& port : ptp.ports) {
            // Signed against unsigned: a negative number, configured as 128 or more, matches none.
            if (std::cmp_equal(configured.portNumber, port.portNumber)) {
                port.portSetting1 = configured.portSetting1;
                port.portSetting2 = configured.portSetting2;
                port.portSetting3 = configured.portSetting3;
            }
        }
    }
    if (const int code = publishAllDeviceStatus(""); code < 0) {
        return CHK(code);
    }
    return 0;
}

int WebNotifierHandler::notifyDynamicInfoUpdate(SysParametersDynamic& information) {
    const bool changed = portsChanged(deviceStatus.eths, information.eths);
    Logger::log(Logger::LOG_LEVEL_DBG, "%s:: information %s change", __func__,
                changed ? "did" : "didn't");
    if (!changed) {
        return 0;
    }
    deviceStatus.eths = information.eths;
    if (const int code = publishAllDeviceStatus(""); code < 0) {
        return CHK(code);
    }
    return 0;
}
