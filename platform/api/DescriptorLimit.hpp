#pragma once

#include <sys/resource.h>

/// Raises the limit of descriptors: a thousand peers need more than the customary 1024.
inline void raiseDescriptorLimit() {
    if (rlimit limit{}; ::getrlimit(RLIMIT_NOFILE, &limit) == 0) {
        limit.rlim_cur = limit.rlim_max;
        (void)::setrlimit(RLIMIT_NOFILE, &limit);
    }
}
