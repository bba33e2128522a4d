#include "tools/kaikla-sim/RecordingFile.hpp"

#include <climits>

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <system_error>

namespace sim {

namespace {

constexpr const char* kStandardOutput = "-";

[[noreturn]] void fail(const std::string& what) {
    throw std::system_error(errno, std::generic_category(), what);
}

/// False when `stopDescriptor` is readable first.
bool waitUntilWritable(int descriptor, int stopDescriptor) {
    std::array<pollfd, 2> items = {{{descriptor, POLLOUT, 0}, {stopDescriptor, POLLIN, 0}}};
    while (items[0].revents == 0) {
        if (items[1].revents != 0) {
            return false;
        }
        constexpr int kWithoutLimit = -1;
        (void)::poll(items.data(), items.size(), kWithoutLimit);
    }
    return true;
}

} // namespace

RecordingFile::RecordingFile(const std::string& fileName)
    : name(fileName == kStandardOutput ? "standard output" : fileName) {
    constexpr mode_t kMode = 0666;
    descriptor = fileName == kStandardOutput
                     ? ::fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 0)
                     : ::open(fileName.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, kMode);
    if (descriptor < 0) {
        fail("cannot open " + name);
    }
}

RecordingFile::~RecordingFile() {
    ::close(descriptor);
}

void RecordingFile::writeLine(const std::string& line, int stopDescriptor) {
    const std::string text = line + '\n';
    std::string_view rest = text;
    while (!rest.empty() && waitUntilWritable(descriptor, stopDescriptor)) {
        // A pipe that is writable takes this much without waiting.
        const ssize_t written =
            ::write(descriptor, rest.data(), std::min<std::size_t>(rest.size(), PIPE_BUF));
        if (written < 0 && errno != EINTR && errno != EAGAIN) {
            fail("cannot write to " + name);
        }
        rest.remove_prefix(static_cast<std::size_t>(std::max<ssize_t>(written, 0)));
    }
}

} // namespace sim
