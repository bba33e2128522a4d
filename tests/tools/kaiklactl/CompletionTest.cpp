#include "tests/tools/kaiklactl/KaiklactlTest.hpp"

#include <regex>
#include <set>
#include <sstream>

using testing::ElementsAre;
using testing::IsSupersetOf;

namespace {

using Words = std::set<std::string>;

class Completion : public KaiklactlTest {
protected:
    /// What bash offers at the end of `line`.
    static Words offered(const std::string& line) {
        const std::string program = line.substr(0, line.find(' '));
        // Bash ends a word at a colon; a word begins after a blank at the end.
        const Outcome outcome =
            run({"/bin/bash", "-c",
                 "PATH=" KAIKLA_BIN_DIR ":$PATH; source " COMPLETIONS "/" + program +
                     R"(.bash; COMP_LINE=$1; COMP_POINT=${#1}; read -ra COMP_WORDS <<<"${1//:/ : }"
                     [[ $1 != *' ' ]] || COMP_WORDS+=("")
                     COMP_CWORD=$((${#COMP_WORDS[@]} - 1))
                     $(complete -p "${COMP_WORDS[0]}" | sed 's/.*-F \([^ ]*\).*/\1/')
                     (( ${#COMPREPLY[@]} == 0 )) || printf '%s\n' "${COMPREPLY[@]}")",
                 "bash", line});
        EXPECT_EQ(outcome.error, "");
        return lines(outcome.output);
    }

    /// The long options and subcommands that the program's own help names.
    static Words documented(std::vector<std::string> command) {
        command.emplace_back("--help");
        const std::string help = run(std::move(command)).output;
        Words words;
        const std::regex option(R"((?:^|\n) +(?:-h,)?(--[a-z-]+))");
        const std::regex subcommand(R"(\n  ([a-z]+) )");
        const auto end = std::sregex_iterator();
        for (std::sregex_iterator match(help.begin(), help.end(), option); match != end; ++match) {
            words.insert((*match)[1]);
        }
        const std::string subcommands =
            help.substr(std::min(help.find("Subcommands:"), help.size()));
        for (std::sregex_iterator match(subcommands.begin(), subcommands.end(), subcommand);
             match != end; ++match) {
            words.insert((*match)[1]);
        }
        return words;
    }

private:
    static Words lines(const std::string& text) {
        Words words;
        std::istringstream stream(text);
        for (std::string line; std::getline(stream, line);) {
            words.insert(line);
        }
        return words;
    }
};

TEST_F(Completion, offersWhatTheHelpNames) {
    EXPECT_EQ(offered("kaiklactl "), documented({"kaiklactl"}));
    EXPECT_THAT(offered("kaiklactl "), IsSupersetOf({"--server", "status", "doctor"}));
    for (const char* command : {"status", "add", "remove", "list", "watch", "doctor"}) {
        Words expected = documented({"kaiklactl", command});
        expected.insert({"--server", "--timeout"});
        EXPECT_EQ(offered(std::string("kaiklactl ") + command + " --"), expected) << command;
    }
    EXPECT_THAT(offered("kaiklactl st"), ElementsAre("status"));
    EXPECT_EQ(offered("kaikla-sim "), documented({"kaikla-sim"}));
}

TEST_F(Completion, offersRegisteredConsumersWithoutExpandingThem) {
    startService();
    add("tcp://127.0.0.1:7001");
    add("tcp://127.0.0.1:7002");
    add("ipc:///tmp/$(touch x)");
    EXPECT_THAT(offered("kaiklactl remove tcp://127.0.0.1:700"), ElementsAre("7001", "7002"));
    EXPECT_THAT(offered("kaiklactl doctor ipc:"), ElementsAre(R"(///tmp/\$\(touch\ x\))"));
    EXPECT_THAT(offered("kaiklactl add "), ElementsAre());
    EXPECT_THAT(offered("kaiklactl watch --bind "), ElementsAre());
}

} // namespace
