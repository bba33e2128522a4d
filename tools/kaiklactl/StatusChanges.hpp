#pragma once

#include "model/DeviceStatus.hpp"

#include <string>
#include <vector>

/// What changed between two states of the same thing, one short text a change.
namespace kaiklactl {

using Changes = std::vector<std::string>;

void addPtpChanges(const PtpCommonInfo& before, const PtpCommonInfo& after, Changes& changes);

void addPortChanges(const std::list<EthBasicInfo>& before, const std::list<EthBasicInfo>& after,
                    Changes& changes);

/// A session that was not there before.
void addNewSession(const SessionStatusData& session, Changes& changes);

void addSessionChanges(const SessionStatusData& before, const SessionStatusData& after,
                       Changes& changes);

/// Sessions that came, went or changed. Their order does not count: it only tells which of them
/// changed last.
void addSessionListChanges(const std::list<SessionStatusData>& before,
                           const std::list<SessionStatusData>& after, Changes& changes);

} // namespace kaiklactl
