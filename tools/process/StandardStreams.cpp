#include "tools/process/StandardStreams.hpp"

#include <fcntl.h>
#include <unistd.h>

void occupyStandardStreams() {
    int descriptor = 0;
    do {
        descriptor = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
    } while (descriptor >= 0 && descriptor <= STDERR_FILENO);
    ::close(descriptor);
}
