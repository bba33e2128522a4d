#include "tools/kaiklactl/LineOutput.hpp"

#include <climits>

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <utility>

namespace kaiklactl {
namespace {

constexpr std::size_t kMaxPendingBytes = std::size_t{4} * 1024 * 1024;

} // namespace

void LineOutput::add(std::string_view line) {
    if (isClosed) {
        return;
    }
    if (pending.size() - written + line.size() > kMaxPendingBytes) {
        ++leftOut;
        return;
    }
    pending.erase(0, std::exchange(written, 0));
    pending += line;
    pending += '\n';
    write();
}

zmq_pollitem_t LineOutput::pollItem() const {
    // A closed output is reported without being asked for.
    const short events = pending.empty() ? 0 : ZMQ_POLLOUT;
    return {nullptr, descriptor, events, 0};
}

void LineOutput::proceed(short revents) {
    if ((revents & ZMQ_POLLERR) != 0) {
        isClosed = true;
        pending.clear();
    } else if ((revents & ZMQ_POLLOUT) != 0) {
        write();
    }
}

void LineOutput::write() {
    // The descriptor may be shared with other programs and so stays in blocking mode. One that is
    // ready takes this much without blocking.
    while (!pending.empty()) {
        pollfd item{descriptor, POLLOUT, 0};
        if (::poll(&item, 1, 0) <= 0 || (item.revents & POLLOUT) == 0) {
            return;
        }
        const ssize_t count = ::write(descriptor, pending.data() + written,
                                      std::min<std::size_t>(pending.size() - written, PIPE_BUF));
        if (count >= 0) {
            written += static_cast<std::size_t>(count);
            if (written == pending.size()) {
                pending.clear();
                written = 0;
            }
        } else if (errno != EAGAIN && errno != EINTR) {
            errorNumber = errno == EPIPE ? 0 : errno;
            isClosed = true;
            pending.clear();
        }
    }
}

std::size_t LineOutput::takeLeftOut() {
    return std::exchange(leftOut, 0);
}

} // namespace kaiklactl
