#pragma once

#include <sys/resource.h>

/// Raises the process's limit of descriptors to the highest that it may have. The customary 1024
/// are fewer than a thousand peers need.
inline void raiseDescriptorLimit() {
    rlimit limit{};
    if (::getrlimit(RLIMIT_NOFILE, &limit) == 0) {
        limit.rlim_cur = limit.rlim_max;
        (void)::setrlimit(RLIMIT_NOFILE, &limit);
    }
}
