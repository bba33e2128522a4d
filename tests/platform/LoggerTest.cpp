#include "platform/api/Logger.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <regex>
#include <string>
#include <vector>

namespace {

namespace fs = std::filesystem;

constexpr std::size_t kMaxFileBytes = std::size_t{4} * 1024 * 1024;

class LoggerTest : public testing::Test {
protected:
    LoggerTest() {
        std::string pattern = (fs::temp_directory_path() / "kaikla-test-XXXXXX").string();
        directory = ::mkdtemp(pattern.data());
    }
    ~LoggerTest() override {
        Logger::createLogger(0, "", "");
        fs::remove_all(directory);
    }

    void logTo(const std::string& name) {
        file = directory / name;
        ASSERT_EQ(Logger::createLogger(Logger::kToFile | Logger::LOG_LEVEL_INF, file, "test"), 0);
    }
    /// Logs a numbered line of about 4000 bytes `count` times.
    void logMuch(std::size_t count) {
        constexpr int kWidth = 4000;
        for (std::size_t i = 0; i < count; ++i) {
            Logger::log(Logger::LOG_LEVEL_INF, "%*zu", kWidth, ++number);
        }
        Logger::flush();
    }

    fs::path directory;
    std::string file;
    std::size_t number = 0;
};

TEST_F(LoggerTest, LineHoldsUtcTimeLevelProcessNameAndTheEscapedText) {
    ::setenv("TZ", "TEST-7", 1);
    ::tzset();
    logTo("log");
    std::array<char, sizeof("2026-03-01T12:00")> minute{};
    const std::time_t now = std::time(nullptr);
    (void)std::strftime(minute.data(), minute.size(), "%Y-%m-%dT%H:", std::gmtime(&now));
    Logger::log(Logger::LOG_LEVEL_NTF, "%s has %d", "text", 42);
    const std::vector<std::array<std::string, 2>> texts = {
        {"a\nb\r\tc\x1b[31m\x7f \\n", R"(a\nb\r\tc\x1b[31m\x7f \n)"},
        // Characters of several bytes stay, but for C1 control characters, the marks that turn the
        // order of a text or break its line, and what is no UTF-8.
        {"\xc3\xa9 \xe2\x82\xac \xf0\x9f\x8e\xa7 \xe2\x80\x8d\xe2\x80\xaf",
         "\xc3\xa9 \xe2\x82\xac \xf0\x9f\x8e\xa7 \xe2\x80\x8d\xe2\x80\xaf"},
        {"\xc2\x85\xc2\x9f\xc2\xa0", "\\xc2\\x85\\xc2\\x9f\xc2\xa0"},
        // NOLINTNEXTLINE(misc-misleading-bidirectional): what the log must not let through.
        {"\xd8\x9c\xe2\x80\x8e\xe2\x80\xa8\xe2\x80\xae\xe2\x81\xa9",
         R"(\xd8\x9c\xe2\x80\x8e\xe2\x80\xa8\xe2\x80\xae\xe2\x81\xa9)"},
        {"\xff \x80 \xc0\xaf \xed\xa0\x80 \xe0\x9f\xbf \xf4\x90\x80\x80 \xe2\x82",
         R"(\xff \x80 \xc0\xaf \xed\xa0\x80 \xe0\x9f\xbf \xf4\x90\x80\x80 \xe2\x82)"},
    };
    for (const auto& text : texts) {
        Logger::log(Logger::LOG_LEVEL_ERR, "%s", text[0].c_str());
    }
    Logger::log(Logger::LOG_LEVEL_ERR, "%s", std::string(100'000, '\n').c_str());
    std::ifstream lines(file);
    std::string line;
    std::getline(lines, line);
    EXPECT_TRUE(std::regex_match(
        line, std::regex(R"(\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{3}Z NTF test: text has 42)")))
        << line;
    EXPECT_EQ(line.substr(0, std::string(minute.data()).size()), minute.data());
    for (const auto& text : texts) {
        std::getline(lines, line);
        EXPECT_THAT(line, testing::EndsWith(" ERR test: " + text[1]));
    }
    std::getline(lines, line);
    EXPECT_THAT(line, testing::MatchesRegex(".* ERR test: (\\\\n)+"));
    EXPECT_FALSE(std::getline(lines, line));
}

TEST_F(LoggerTest, FileIsRotatedWithoutLosingALineAndThreeOldOnesAreKept) {
    constexpr std::size_t kLinesAFile = kMaxFileBytes / 4000;
    logTo("log");
    logMuch(3 * kLinesAFile);
    // What is there when the log is opened counts, and a link stays one.
    fs::create_symlink("log", directory / "link");
    logTo("link");
    logMuch(3 * kLinesAFile);
    EXPECT_TRUE(fs::is_symlink(file));
    EXPECT_FALSE(fs::exists(file + ".1"));

    std::size_t expected = number;
    for (const char* name : {"log", "log.1", "log.2", "log.3"}) {
        const std::string path = directory / name;
        EXPECT_LE(fs::file_size(path), kMaxFileBytes);
        if (std::string(name) != "log") {
            EXPECT_GT(fs::file_size(path), kMaxFileBytes * 9 / 10);
        }
        std::vector<std::size_t> numbers;
        std::ifstream lines(path);
        for (std::string line; std::getline(lines, line);) {
            numbers.push_back(std::stoul(line.substr(line.rfind(' '))));
        }
        ASSERT_FALSE(numbers.empty());
        EXPECT_EQ(numbers.back(), expected) << name;
        EXPECT_EQ(numbers.back() - numbers.front() + 1, numbers.size()) << name;
        expected = numbers.front() - 1;
    }
    EXPECT_FALSE(fs::exists(directory / "log.4"));
}

} // namespace
