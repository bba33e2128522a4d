#include "tools/kaiklactl/Notice.hpp"

#include "tools/kaiklactl/TerminalText.hpp"

#include <poll.h>
#include <unistd.h>

namespace kaiklactl {

void notice(const std::string& text) {
    const std::string line = "kaiklactl: " + printable(text).text + '\n';
    pollfd item{STDERR_FILENO, POLLOUT, 0};
    if (::poll(&item, 1, 0) > 0 && (item.revents & POLLOUT) != 0) {
        (void)!::write(STDERR_FILENO, line.data(), line.size());
    }
}

} // namespace kaiklactl
