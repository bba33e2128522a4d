#include "tests/tools/kaiklactl/KaiklactlTest.hpp"

#include <regex>
#include <set>

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
            shell("source " COMPLETIONS "/" + program + ".bash; COMP_LINE='" + line +
                  R"('; COMP_POINT=${#COMP_LINE}; read -ra COMP_WORDS <<<"${COMP_LINE//:/ : }"
               [[ $COMP_LINE != *' ' ]] || COMP_WORDS+=("")
               COMP_CWORD=$((${#COMP_WORDS[@]} - 1))
               $(complete -p "${COMP_WORDS[0]}" | sed 's/.*-F \([^ ]*\).*/\1/')
               (( ${#COMPREPLY[@]} == 0 )) || printf '%s\n' "${COMPREPLY[@]}")");
        EXPECT_EQ(outcome.error, "");
        return matches(outcome.output, R"(([^\n]+)\n)");
    }

    /// The long options and subcommands that the program's own help names.
    static Words documented(std::vector<std::string> command) {
        command.emplace_back("--help");
        const std::string help = run(std::move(command)).output;
        Words words = matches(help, R"((?:^|\n) +(?:-h,)?(--[a-z-]+))");
        if (const auto subcommands = help.find("Subcommands:"); subcommands != std::string::npos) {
            words.merge(matches(help.substr(subcommands), R"(\n  ([a-z]+) )"));
        }
        return words;
    }

private:
    /// What the group of `pattern` holds wherever it matches.
    static Words matches(const std::string& text, const char* pattern) {
        const std::regex regex(pattern);
        Words words;
        for (std::sregex_iterator match(text.begin(), text.end(), regex), end; match != end;
             ++match) {
            words.insert((*match)[1]);
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
