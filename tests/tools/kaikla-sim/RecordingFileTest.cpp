#include "tools/kaikla-sim/RecordingFile.hpp"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <fstream>
#include <sstream>
#include <system_error>

namespace {

class RecordingFileTest : public testing::Test {
public:
    RecordingFileTest() : stop(::eventfd(0, EFD_CLOEXEC)) {}
    ~RecordingFileTest() override { ::close(stop); }
    RecordingFileTest(const RecordingFileTest&) = delete;
    RecordingFileTest& operator=(const RecordingFileTest&) = delete;
    RecordingFileTest(RecordingFileTest&&) = delete;
    RecordingFileTest& operator=(RecordingFileTest&&) = delete;

protected:
    int stop;
};

TEST_F(RecordingFileTest, HoldsEachLineAsSoonAsItIsWritten) {
    const std::string name = testing::TempDir() + "recording-" + std::to_string(::getpid());
    std::ofstream(name) << "an older recording";
    const std::string longLine(100'000, 'x');
    sim::RecordingFile file(name);
    file.writeLine("first", stop);
    file.writeLine(longLine, stop);
    std::ostringstream content;
    content << std::ifstream(name).rdbuf();
    EXPECT_EQ(content.str(), "first\n" + longLine + "\n");
    ::unlink(name.c_str());

    EXPECT_THROW(sim::RecordingFile("/absent/recording"), std::system_error);
    sim::RecordingFile full("/dev/full");
    EXPECT_THROW(full.writeLine("first", stop), std::system_error);
}

TEST_F(RecordingFileTest, GivesUpOnAReaderThatDoesNotReadWhenAskedToStop) {
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
}

} // namespace
