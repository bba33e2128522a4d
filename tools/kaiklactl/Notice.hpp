#pragma once

#include <string>

namespace kaiklactl {

/// One line on standard error that is not part of the output. The text may come from the network.
/// A standard error that takes nothing is not waited for.
void notice(const std::string& text);

} // namespace kaiklactl
