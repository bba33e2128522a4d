#pragma once

#include "platform/records/SysParametersDynamic.hpp"

#include <list>

/// The network interfaces of this machine as the kernel shows them, in the order of their names.
/// Transceivers and addresses are not looked at. Whatever cannot be read is left empty.
std::list<EthBasicInfo> readNetworkPorts();
