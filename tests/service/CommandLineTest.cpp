#include "tests/support/ServiceTest.hpp"
#include "tests/support/TemporaryDirectory.hpp"

#include <csignal>
#include <filesystem>

namespace {

using testing::ElementsAre;

class CommandLineTest : public ServiceTest {
protected:
    TemporaryDirectory directory;
    const std::string file = directory.file("log");
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
        const Outcome outcome = run(arguments);
        EXPECT_EQ(outcome.status, 1);
        EXPECT_EQ(outcome.error, row.complaint + usage);
        EXPECT_EQ(outcome.output, "");
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
    for (int round = 0; round < 2; ++round) {
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

} // namespace
