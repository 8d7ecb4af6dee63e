// The answers to shells that complete command lines.
#include "tools/kvoctl/support/kvoctl.h"
#include "tools/kvosim/support/running_service.h"

#include <chrono>
#include <ostream>
#include <sstream>

namespace kvoctl_test {

namespace {

using kvosim_test::RunningService;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;

struct Answer {
    std::string kind;
    std::vector<std::string> candidates;  ///< each with a tab and its meaning
};

Answer complete(Arguments words)
{
    words.insert(words.begin(), {"complete", "--"});
    const Ended ended = kvoctl(words);
    EXPECT_EQ(ended.status, 0);
    EXPECT_EQ(ended.err, "");
    std::istringstream lines(ended.out);
    Answer answer;
    std::getline(lines, answer.kind);
    for (std::string line; std::getline(lines, line);) {
        answer.candidates.push_back(line);
    }
    return answer;
}

std::vector<std::string> wordsOf(const Answer &answer)
{
    std::vector<std::string> words;
    for (const std::string &candidate : answer.candidates) {
        words.push_back(candidate.substr(0, candidate.find('\t')));
    }
    return words;
}

std::string longestName(const Json &option) { return option.at("names").back().get<std::string>(); }

/// Checks that every command and option of the help is a candidate, so that a new one cannot be forgotten.
void expectAllAreCandidates(const Json &command, Arguments path)
{
    path.emplace_back("-");
    const auto options = wordsOf(complete(path));
    for (const Json &option : command.at("options")) {
        if (!option.at("positional").get<bool>()) {
            EXPECT_THAT(options, Contains(longestName(option)));
        }
    }
    path.back() = "";
    const auto words = command.at("commands").empty() ? std::vector<std::string>() : wordsOf(complete(path));
    path.pop_back();
    for (const Json &inner : command.at("commands")) {
        EXPECT_THAT(words, Contains(inner.at("name")));
        path.push_back(inner.at("name"));
        expectAllAreCandidates(inner, path);
        path.pop_back();
    }
}

TEST(Completion, lists_every_command_and_option)
{
    const Json structure = kvoctl({"complete", "--structure"}).document();
    ASSERT_GT(structure.at("commands").size(), 20U);
    expectAllAreCandidates(structure, {});
}

TEST(Completion, is_empty_without_a_service)
{
    const Answer answer = complete({"station", ""});
    EXPECT_EQ(answer.kind, "words");
    EXPECT_THAT(answer.candidates, IsEmpty());
}

TEST(Completion, waits_at_most_a_second_for_a_silent_service)
{
    const RunningService service("[[faults]]\nkind = \"silent\"\n");
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_THAT(complete({"station", ""}).candidates, IsEmpty());
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(3));
}

TEST(Completion, lists_stations_by_address_and_name)
{
    const RunningService service("[[station]]\naddress = \"10.0.0.5\"\nname = \"Lathe 1\"\n");
    EXPECT_THAT(complete({"station", ""}).candidates, ElementsAre("10.0.0.5\tLathe 1", "Lathe 1\t10.0.0.5"));
    EXPECT_THAT(complete({"station", "La"}).candidates, ElementsAre("Lathe 1\t10.0.0.5"));
    EXPECT_THAT(complete({"usb", "lock", "set", "1", "0", "10.0.0.5", "10"}).candidates, ElementsAre("10.0.0.5\tLathe 1"));
    EXPECT_THAT(complete({"agent", "run", "--focus", ""}).candidates, ElementsAre("10.0.0.5\tLathe 1"));
    EXPECT_THAT(complete({"agent", "run", "--focus-name", ""}).candidates, ElementsAre("Lathe 1\t10.0.0.5"));
    EXPECT_THAT(complete({"agent", "run", "--focus-name="}).candidates, ElementsAre("--focus-name=Lathe 1\t10.0.0.5"));
    EXPECT_THAT(complete({"station", "Lathe 1", ""}).candidates, Not(Contains("10.0.0.5\tLathe 1"))) << "one station is enough";
}

TEST(Completion, does_not_list_names_that_look_like_options)
{
    const RunningService service("[[station]]\naddress = \"10.0.0.5\"\nname = \"-x\"\n");
    EXPECT_THAT(wordsOf(complete({"station", ""})), ElementsAre("10.0.0.5"));
    EXPECT_THAT(wordsOf(complete({"station", "--", ""})), ElementsAre("10.0.0.5", "-x"));
}

TEST(Completion, lists_neither_given_options_nor_those_that_they_exclude)
{
    const auto options = wordsOf(complete({"stations", "--extended", "--"}));
    EXPECT_THAT(options, Contains("--json"));
    EXPECT_THAT(options, Not(Contains("--extended")));
    EXPECT_THAT(options, Not(Contains("--previous")));
    EXPECT_THAT(wordsOf(complete({"agent", "run", "--answer", "set-darken=1", "--"})), Contains("--answer"));
}

TEST(Completion, knows_which_argument_is_a_file)
{
    EXPECT_EQ(complete({"usb", "watch", "--exec", ""}).kind, "files");
    EXPECT_EQ(complete({"usb", "watch", "--exec=x"}).kind, "files");
    EXPECT_EQ(complete({"usb", "watch", "--exec", "x", ""}).kind, "words");
}

TEST(Completion, is_empty_for_wrong_command_lines)
{
    EXPECT_THAT(complete({"no-such-command", ""}).kind, "words");
    EXPECT_THAT(complete({"stations", "--no-such-option=x"}).candidates, IsEmpty());
    EXPECT_EQ(kvoctl({"complete"}).status, 2) << "only a shell sends the whole request";
}

TEST(Completion, leaves_the_command_after_two_dashes_to_the_shell)
{
    EXPECT_EQ(complete({"trace", "--failures", "--", "ls", ""}).kind, "command");
    EXPECT_EQ(complete({"record", "x", "--", ""}).kind, "command");
    EXPECT_EQ(complete({"record", ""}).kind, "files");
    EXPECT_THAT(wordsOf(complete({"trace", "--command", "a", "--comm"})), ElementsAre("--command"));
}

}  // namespace

}  // namespace kvoctl_test
