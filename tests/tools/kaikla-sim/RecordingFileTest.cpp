#include "tools/kaikla-sim/RecordingFile.hpp"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <system_error>

namespace {

TEST(RecordingFile, GivesUpOnAReaderThatDoesNotReadWhenAskedToStop) {
    const int stop = ::eventfd(0, EFD_CLOEXEC);
    std::array<int, 2> ends{};
    ASSERT_EQ(::pipe2(ends.data(), O_CLOEXEC), 0);
    sim::RecordingFile file("/proc/self/fd/" + std::to_string(ends[1]));
    ASSERT_EQ(::eventfd_write(stop, 1), 0);
    file.writeLine("there is room", stop);
    // Far more than the pipe takes: this returns because of the stop, or not at all.
    file.writeLine(std::string(5'000'000, 'x'), stop);

    (void)std::signal(SIGPIPE, SIG_IGN);
    ::close(ends[0]);
    EXPECT_THROW(file.writeLine("nobody reads", stop), std::system_error);
    ::close(ends[1]);
    ::close(stop);
}

} // namespace
