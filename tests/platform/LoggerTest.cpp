#include "platform/api/Logger.hpp"

#include "platform/bundled/RotatingFile.hpp"
#include "tests/support/LogLines.hpp"
#include "tests/support/TemporaryDirectory.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fcntl.h>
#include <poll.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <regex>
#include <thread>

namespace {

using testing::ElementsAre;
using testing::HasSubstr;

constexpr unsigned kBoth = Logger::kToFile | Logger::kToStandardError;

class LoggerTest : public testing::Test {
protected:
    void TearDown() override { Logger::createLogger(0, "", ""); }

    /// What `action` leaves on standard error.
    template <typename Action>
    static std::string standardErrorOf(Action action) {
        testing::internal::CaptureStderr();
        action();
        return testing::internal::GetCapturedStderr();
    }

    TemporaryDirectory directory;
    const std::string file = directory.file("x.log");
};

void logOneOfEachLevel() {
    for (const auto level :
         {Logger::LOG_LEVEL_ERR, Logger::LOG_LEVEL_WRN, Logger::LOG_LEVEL_NTF,
          Logger::LOG_LEVEL_INF, Logger::LOG_LEVEL_DBG, Logger::LOG_LEVEL_VERBOSE}) {
        Logger::log(level, "%d", static_cast<int>(level));
    }
    Logger::flush();
}

TEST_F(LoggerTest, LineHoldsTimeLevelNameProcessNameAndText) {
    const std::string line = standardErrorOf([] {
        Logger::createLogger(Logger::kToStandardError | Logger::LOG_LEVEL_VERBOSE, "", "proc");
        Logger::log(Logger::LOG_LEVEL_NTF, "%s has %d", "text", 42);
        Logger::flush();
    });
    EXPECT_TRUE(std::regex_match(
        line, std::regex(R"(\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{3}Z NTF proc: text has 42\n)")))
        << line;
}

TEST_F(LoggerTest, FlagWordChoosesLevelAndDestinations) {
    const std::vector<std::string> all = {"ERR 2", "WRN 3", "NTF 4", "INF 5", "DBG 6", "VERBOSE 7"};
    for (const unsigned destinations : {0U, Logger::kToFile, Logger::kToStandardError, kBoth}) {
        for (unsigned level = 0; level <= Logger::kLevelMask; ++level) {
            std::filesystem::remove(file);
            const std::string shown = standardErrorOf([&] {
                Logger::createLogger(destinations | level, file, "kaikla");
                logOneOfEachLevel();
            });
            const auto count = static_cast<std::ptrdiff_t>(level < 2 ? 0 : level - 1);
            const std::vector<std::string> expected(all.begin(), all.begin() + count);
            const std::vector<std::string> none;
            EXPECT_EQ(logLines(shown),
                      (destinations & Logger::kToStandardError) != 0 ? expected : none);
            EXPECT_EQ(logLines(fileText(file)),
                      (destinations & Logger::kToFile) != 0 ? expected : none);
        }
    }
}

TEST_F(LoggerTest, TextNeverBreaksALine) {
    const std::string line = standardErrorOf([] {
        Logger::createLogger(Logger::kToStandardError | Logger::LOG_LEVEL_ERR, "", "kaikla");
        Logger::log(Logger::LOG_LEVEL_ERR, "%s",
                    "a\nb\r\tc\x1b[31m\x7f \xc3\xa9 \\n \xc2\x85\xc2\xa9\xc2");
        Logger::log(Logger::LOG_LEVEL_ERR, "%s", std::string(100'000, '\n').c_str());
        Logger::log(Logger::LOG_LEVEL_ERR, "%s", std::string(100'000, 'x').c_str());
    });
    const auto lines = logLines(line);
    ASSERT_EQ(lines.size(), 3U);
    EXPECT_EQ(lines[0], "ERR a\\nb\\r\\tc\\x1b[31m\\x7f \xc3\xa9 \\n \\xc2\\x85\xc2\xa9\xc2");
    EXPECT_THAT(lines[1], testing::MatchesRegex("ERR (\\\\n)+"));
    EXPECT_THAT(lines[2], testing::MatchesRegex("ERR x+"));
}

TEST_F(LoggerTest, LinesAreGatheredUntilAFlushAnErrorOrAFullBuffer) {
    Logger::createLogger(Logger::kToFile | Logger::LOG_LEVEL_INF, file, "kaikla");
    Logger::log(Logger::LOG_LEVEL_INF, "gathered");
    EXPECT_EQ(fileText(file), "");
    Logger::flush();
    EXPECT_THAT(logLines(fileText(file)), ElementsAre("INF gathered"));
    Logger::log(Logger::LOG_LEVEL_INF, "before");
    Logger::log(Logger::LOG_LEVEL_ERR, "error");
    EXPECT_THAT(logLines(fileText(file)), ElementsAre("INF gathered", "INF before", "ERR error"));

    constexpr int kMany = 10'000;
    for (int i = 0; i < kMany; ++i) {
        Logger::log(Logger::LOG_LEVEL_INF, "number %d", i);
    }
    EXPECT_GT(fileText(file).size(), 100'000U);
    Logger::flush();
    const auto lines = logLines(fileText(file));
    ASSERT_EQ(lines.size(), kMany + 3U);
    EXPECT_EQ(lines.back(), "INF number 9999");
}

TEST_F(LoggerTest, FileThatCannotBeOpenedGivesOneLineAndTheLogGoesOn) {
    for (const std::string& name : {directory.path(), file + "/none", std::string()}) {
        const auto lines = logLines(standardErrorOf([&] {
            EXPECT_EQ(Logger::createLogger(kBoth | Logger::LOG_LEVEL_INF, name, "kaikla"), -1);
            Logger::log(Logger::LOG_LEVEL_INF, "going on");
            Logger::log(Logger::LOG_LEVEL_ERR, "and on");
        }));
        ASSERT_EQ(lines.size(), 3U);
        EXPECT_THAT(lines[0], HasSubstr("log file " + name + " cannot be opened: "));
        EXPECT_EQ(lines[1], "INF going on");
    }
}

TEST_F(LoggerTest, FullDiskIsReportedOnceAndTheLogGoesOn) {
    EXPECT_THAT(logLines(standardErrorOf([] {
                    Logger::createLogger(kBoth | Logger::LOG_LEVEL_INF, "/dev/full", "kaikla");
                    Logger::log(Logger::LOG_LEVEL_ERR, "one");
                    Logger::log(Logger::LOG_LEVEL_ERR, "two");
                })),
                ElementsAre("ERR one",
                            "ERR log file /dev/full: No space left on device; its lines are lost "
                            "until it can be written again",
                            "ERR two"));
}

TEST_F(LoggerTest, ReaderOfStandardErrorMayGoAwayOrStandardErrorBeClosed) {
    const int original = ::dup(STDERR_FILENO);
    std::array<int, 2> pipe{};
    ASSERT_EQ(::pipe(pipe.data()), 0);
    ::close(pipe[0]);
    ::dup2(pipe[1], STDERR_FILENO);
    Logger::createLogger(kBoth | Logger::LOG_LEVEL_INF, file, "kaikla");
    Logger::log(Logger::LOG_LEVEL_ERR, "nobody reads");
    ::close(STDERR_FILENO);
    Logger::createLogger(kBoth | Logger::LOG_LEVEL_INF, file, "kaikla");
    // The number of standard error is taken, so that no other file or socket gets it.
    EXPECT_NE(::fcntl(STDERR_FILENO, F_GETFD), -1);
    Logger::log(Logger::LOG_LEVEL_ERR, "nobody can");
    ::dup2(original, STDERR_FILENO);
    ::close(original);
    ::close(pipe[1]);
    EXPECT_THAT(logLines(fileText(file)), ElementsAre("ERR nobody reads", "ERR nobody can"));
}

TEST_F(LoggerTest, FileIsRotatedAndThreeOldOnesAreKept) {
    RotatingFile rotating;
    ASSERT_EQ(rotating.open(file), 0);
    constexpr int kChunks = 12;
    const std::string rest = std::string(RotatingFile::kMaxBytes / 2 - 2, 'x') + "\n";
    for (int chunk = 0; chunk < kChunks; ++chunk) {
        ASSERT_EQ(rotating.append(static_cast<char>('a' + chunk) + rest), 0);
    }
    // Two chunks a file, the last ones in the youngest.
    std::string firsts;
    for (const char* suffix : {"", ".1", ".2", ".3"}) {
        const std::string text = fileText(file + suffix);
        EXPECT_EQ(text.size(), RotatingFile::kMaxBytes);
        firsts += text.at(0);
    }
    EXPECT_EQ(firsts, "kige");
    EXPECT_FALSE(std::filesystem::exists(file + ".4"));

    // The size of a file that was there before counts.
    RotatingFile again;
    ASSERT_EQ(again.open(file), 0);
    ASSERT_EQ(again.append("line\n"), 0);
    EXPECT_EQ(fileText(file), "line\n");
}

/// Three times what a file may hold.
void appendMuch(RotatingFile& rotating) {
    const std::string line = std::string(RotatingFile::kMaxBytes / 2 - 1, 'x') + "\n";
    for (int i = 0; i < 6; ++i) {
        ASSERT_EQ(rotating.append(line), 0);
    }
}

TEST_F(LoggerTest, LinkIsKeptAndTheFileBehindItIsRotated) {
    const std::string link = directory.file("link");
    std::filesystem::create_symlink("x.log", link);
    RotatingFile rotating;
    ASSERT_EQ(rotating.open(link), 0);
    appendMuch(rotating);
    EXPECT_TRUE(std::filesystem::is_symlink(link));
    EXPECT_FALSE(std::filesystem::exists(link + ".1"));
    EXPECT_EQ(std::filesystem::file_size(file), RotatingFile::kMaxBytes);
    EXPECT_EQ(std::filesystem::file_size(file + ".2"), RotatingFile::kMaxBytes);
    EXPECT_EQ(rotating.fileName(), link);
}

/// The null device; for root, who could rename the host's away, one of its own where it can be
/// used.
std::string nullDevice(const std::string& path) {
    constexpr unsigned kMemoryDevices = 1;
    constexpr unsigned kNull = 3;
    constexpr mode_t kCharacterDevice = S_IFCHR | 0600;
    const bool made =
        ::mknod(path.c_str(), kCharacterDevice, ::makedev(kMemoryDevices, kNull)) == 0;
    return made && std::ofstream(path) ? path : "/dev/null";
}

TEST_F(LoggerTest, WhatIsNoFileStaysInItsPlace) {
    const std::string null = nullDevice(directory.file("null"));
    std::filesystem::create_symlink(null, file);
    RotatingFile device;
    ASSERT_EQ(device.open(file), 0);
    appendMuch(device);
    EXPECT_TRUE(std::filesystem::is_character_file(null));
    EXPECT_EQ(std::filesystem::read_symlink(file), null);
    EXPECT_FALSE(std::filesystem::exists(file + ".1"));

    // What takes the place of a file later is no more renamed than what was there before.
    const std::string replaced = directory.file("replaced");
    RotatingFile rotating;
    ASSERT_EQ(rotating.open(replaced), 0);
    appendMuch(rotating);
    std::filesystem::remove(replaced);
    std::filesystem::create_symlink(null, replaced);
    appendMuch(rotating);
    EXPECT_TRUE(std::filesystem::is_symlink(replaced));
}

TEST_F(LoggerTest, FifoIsNeverWaitedForForGood) {
    std::signal(SIGPIPE, SIG_IGN);
    ASSERT_EQ(::mkfifo(file.c_str(), 0600), 0);
    RotatingFile fifo;
    EXPECT_EQ(fifo.open(file), ENXIO);
    const int reader = ::open(file.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    ASSERT_EQ(fifo.open(file), 0);
    // Much more than a pipe holds: the rest is lost, and what follows is not waited for again.
    const std::string lines(RotatingFile::kMaxBytes, 'x');
    EXPECT_EQ(fifo.append(lines), EAGAIN);
    const auto begin = std::chrono::steady_clock::now();
    constexpr int kCalls = 100;
    for (int i = 0; i < kCalls; ++i) {
        EXPECT_EQ(fifo.append("lost\n"), EAGAIN);
    }
    EXPECT_LT(std::chrono::steady_clock::now() - begin,
              std::chrono::milliseconds(kCalls * RotatingFile::kRoomTimeoutMs / 2));

    std::array<char, 4096> taken{};
    const auto drain = [&] {
        std::string text;
        for (ssize_t n = 0; (n = ::read(reader, taken.data(), taken.size())) > 0;) {
            text.append(taken.data(), static_cast<std::size_t>(n));
        }
        return text;
    };
    (void)drain();
    EXPECT_EQ(fifo.append("next\n"), 0);
    EXPECT_EQ(drain(), "\nnext\n");
    // A reader that comes to take it gets everything.
    std::thread slow([&] {
        std::size_t left = lines.size();
        pollfd item{reader, POLLIN, 0};
        while (left > 0 && ::poll(&item, 1, 10'000) == 1) {
            left -= drain().size();
        }
    });
    EXPECT_EQ(fifo.append(lines), 0);
    slow.join();
    ::close(reader);
    EXPECT_EQ(fifo.append("nobody\n"), EPIPE);
    EXPECT_TRUE(std::filesystem::is_fifo(file));
}

TEST_F(LoggerTest, LineTornByAFullDiskDoesNotRunIntoTheNextOne) {
    RotatingFile torn;
    ASSERT_EQ(torn.open(file), 0);
    ASSERT_EQ(torn.append("whole\n"), 0);
    rlimit before{};
    ::getrlimit(RLIMIT_FSIZE, &before);
    std::signal(SIGXFSZ, SIG_IGN);
    const rlimit tight{10, before.rlim_max};
    ::setrlimit(RLIMIT_FSIZE, &tight);
    const int error = torn.append("torn line\n");
    ::setrlimit(RLIMIT_FSIZE, &before);
    EXPECT_EQ(error, EFBIG);
    EXPECT_EQ(torn.append("next\n"), 0);
    EXPECT_EQ(fileText(file), "whole\ntorn\nnext\n");
}

} // namespace
