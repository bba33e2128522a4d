#include "tests/support/ServiceTest.hpp"

#include <sys/stat.h>

#include <csignal>
#include <filesystem>

namespace {

using testing::ElementsAre;
using testing::HasSubstr;

class CommandLineTest : public ServiceTest {
protected:
    void TearDown() override { std::filesystem::remove(file); }

    std::string file = std::filesystem::temp_directory_path() /
                       ("command-line-" + std::to_string(::getpid()) + ".log");
};

TEST_F(CommandLineTest, AnythingButTheTwoOptionsGivesTheUsageAndStatusOne) {
    const std::string program = builtProgram("kaikla");
    const std::string usage =
        program + "\n    [-L <log_filename>] [-l <log_level 0..7>] [-s]\n\n"
                  "  -L <log_filename>        : file to log debug output to\n"
                  "  -l <log_level>           : 2=ERR 3=WRN 4=NTF 5=INF, 6=DBG 7=VERBOSE\n";
    struct Row {
        std::vector<std::string> options;
        std::string complaint;
    };
    for (const Row& row : {Row{{"-s"}, ""}, Row{{"-d"}, ""}, Row{{"-l", "5", "-L", file, "-d"}, ""},
                           Row{{"-x"}, program + ": invalid option -- 'x'\n"},
                           Row{{"-l"}, program + ": option requires an argument -- 'l'\n"},
                           Row{{"-L"}, program + ": option requires an argument -- 'L'\n"}}) {
        std::vector<std::string> arguments = {program};
        arguments.insert(arguments.end(), row.options.begin(), row.options.end());
        ChildProcess process(arguments);
        EXPECT_EQ(process.waitForExit(), 1);
        process.waitForError("\n\n\n");
        EXPECT_EQ(process.error(), row.complaint + usage);
        EXPECT_EQ(process.output(), "");
    }
    EXPECT_FALSE(std::filesystem::exists(file));
}

TEST_F(CommandLineTest, LowThreeBitsOfTheLevelDecideWhatIsWritten) {
    struct Row {
        std::vector<std::string> options;
        std::string levels;
    };
    for (const Row& row :
         {Row{{}, "EWI"}, Row{{"positional"}, "EWI"}, Row{{"-l", "2"}, "E"},
          Row{{"-l", "12x"}, "EW"}, Row{{"-l", "6"}, "EWID"}, Row{{"-l", "15"}, "EWID"},
          Row{{"-l", "-1"}, "EWID"}, Row{{"-l", "6", "-l", "3"}, "EW"}, Row{{"-l", "8"}, ""},
          Row{{"-l", "9"}, ""}, Row{{"-l", "abc"}, ""}}) {
        startService(row.options);
        client.request(4);
        EXPECT_EQ(stop(SIGTERM), 0);
        std::string levels;
        for (const std::string level : {"ERR", "WRN", "INF", "DBG"}) {
            if (countOf(service->error(), "Z " + level + " kaikla: ") > 0) {
                levels += level[0];
            }
        }
        EXPECT_EQ(levels, row.levels) << testing::PrintToString(row.options);
        EXPECT_EQ(service->error().empty(), row.levels.empty());
    }
}

TEST_F(CommandLineTest, FileGetsTheSameLinesOnlyWhenItIsNamed) {
    const std::string unnamed = fileText("/tmp/kaikla.log");
    startService();
    EXPECT_EQ(stop(SIGTERM), 0);
    EXPECT_EQ(fileText("/tmp/kaikla.log"), unnamed);

    std::string all;
    for (int run = 0; run < 2; ++run) {
        startService({"-L", file});
        EXPECT_EQ(stop(SIGTERM), 0);
        all += service->error();
        EXPECT_EQ(fileText(file), all);
    }
    EXPECT_THAT(log(), ElementsAre("INF WebNotifierServer - waiting for commands! poll size 5",
                                   "WRN WebNotifierServer:: Main loop interrupted.",
                                   "INF Destroying 0 active connections"));

    startService({"-L", "/nowhere/x.log"});
    EXPECT_EQ(stop(SIGTERM), 0);
    EXPECT_THAT(errors(), ElementsAre("log file /nowhere/x.log cannot be opened: No such file or "
                                      "directory; going on without it"));
}

TEST_F(CommandLineTest, StandardErrorMayBeClosedOrItsReaderGoAway) {
    service.emplace(std::vector<std::string>{"/bin/sh", "-c", R"(exec "$0" -L "$1" 2>&- <&-)",
                                             builtProgram("kaikla"), file});
    EXPECT_EQ(client.request(kList)["result"], 0);
    EXPECT_EQ(client.request(4)["result"], -8);
    EXPECT_EQ(stop(SIGTERM), 0);
    EXPECT_THAT(errorLines(fileText(file)), ElementsAre(HasSubstr("not recognized")));

    std::filesystem::remove(file);
    ASSERT_EQ(::mkfifo(file.c_str(), S_IRUSR | S_IWUSR), 0);
    service.emplace(std::vector<std::string>{"/bin/sh", "-c", R"(exec "$0" -l 7 2>"$1")",
                                             builtProgram("kaikla"), file});
    fclose(fopen(file.c_str(), "r"));
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(client.request(4)["result"], -8);
    }
    EXPECT_EQ(stop(SIGTERM), 0);
}

} // namespace
