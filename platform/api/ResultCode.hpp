#pragma once

/// The service's own negative results. Operations return 0 for success and pass the codes of other
/// layers up unchanged; those of the platform layer stand in PlatformProtocol.hpp.
namespace result_code {

/// An id is not in its table: unknown command, unknown message kind.
inline constexpr int kUnknownId = -8;
/// Removal of an unknown session.
inline constexpr int kUnknownSession = -16;
/// A remote consumer cannot be connected.
inline constexpr int kConsumerNotConnected = -33;
/// The command socket cannot be created or bound.
inline constexpr int kCommandSocket = -35;

} // namespace result_code
